// The rules that turn a crash log and the application's own logs into the report text.
#include "report/ReportText.h"

QString withoutLongHangReport(const QString &crashLog)
{
    const bool isHangReport = crashLog.contains(u"hang") && crashLog.contains(u"Duration:");
    if (!isHangReport || crashLog.size() <= kLongestHangReport) {
        return crashLog;
    }
    return crashLog.left(kLongestHangReport);
}

bool mayTakeMoreLogs(quint64 runningLength)
{
    return runningLength < kReportCeiling;
}

bool fits(const ApplicationLog &log, quint64 logLength, quint64 runningLength)
{
    return logLength + runningLength < log.bound();
}
