// The rules that turn a crash log and the application's own logs into the report text.
//
// All lengths are UTF-16 code units.
#pragma once

#include "platform/LoadedReport.h"

#include <QList>
#include <QString>

#include <array>

/// Once the report reaches this length, no further log is read: 1 Mi units.
inline constexpr quint64 kReportCeiling = 0x100000;

/// A hang report is kept up to this length.
inline constexpr qsizetype kMaxHangReport = 50'000;

/// One of the crashed application's own logs.
struct ApplicationLog {
    QLatin1StringView fileSuffix; ///< What follows the application's name in the file's name.
    QLatin1StringView header;     ///< What stands before the log's text in the report.

    /// The log is appended only if its length and the report's running length together stay below this: the ceiling
    /// minus the header's length and the two characters of its placeholder, which they may just reach.
    constexpr quint64 bound() const
    {
        constexpr quint64 kPlaceholder = 2;
        return kReportCeiling - static_cast<quint64>(header.size()) - kPlaceholder + 1;
    }
};

/// The logs in the order in which they are appended.
inline constexpr auto kApplicationLogs = std::to_array<ApplicationLog>({
    {QLatin1StringView(".1.log"), QLatin1StringView("\nLog 1:\n")},
    {QLatin1StringView(".task.1.log"), QLatin1StringView("\nTask Log 1:\n")},
    {QLatin1StringView(".2.log"), QLatin1StringView("\nLog 2:\n")},
    {QLatin1StringView(".task.2.log"), QLatin1StringView("\nTask Log 2:\n")},
});
static_assert(kApplicationLogs[0].bound() == 1'048'567 && kApplicationLogs[1].bound() == 1'048'562);

struct ReportText {
    QString text;
    QList<platform::AppendedLog> appendedLogs; ///< Those that are part of the text, in their order.
};

/// The report text: the crash log, cut where it is a long hang report, followed by those of the application's own logs
/// that can be read and fit. They lie in the folder "Korvale" of the user's log directory; without one there are none.
/// A log that is left out changes nothing for those after it. Reads their files.
ReportText reportText(QString crashLog, const QString &appName);

/// The crash log, or its first 50,000 units when it is a long hang report: when it contains "hang" and "Duration:"
/// anywhere (also inside other words) and is longer than that. The cut may part a surrogate pair.
QString withoutLongHangReport(QString crashLog);
