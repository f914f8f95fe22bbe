// How a report is summed up in one line.
#include "desktop/window/ReportSummary.h"

#include "base/PathText.h"
#include "desktop/window/DisplayText.h"

#include <QLocale>

using namespace Qt::StringLiterals;

namespace {

QString appendedLogs(int count)
{
    if (count == 0) {
        return {};
    }
    return count == 1 ? u", with 1 application log"_s : u", with %1 application logs"_s.arg(count);
}

} // namespace

QString summaryText(const ReportSummary &summary)
{
    const QString file = displayText(lastPathComponent(summary.logFile));
    const QString size = QLocale::c().formattedDataSize(summary.bytes, 1, QLocale::DataSizeSIFormat);
    return file + u" ("_s + size + appendedLogs(summary.appendedLogs) + u"), sent to "_s + displayText(summary.host);
}
