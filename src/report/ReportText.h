// The rules that turn a crash log and the application's own logs into the report text.
//
// All lengths are UTF-16 code units.
#pragma once

#include <QString>

#include <array>

/// No application log is read once the text has this length: 1 Mi units.
inline constexpr quint64 kReportCeiling = 0x100000;

/// A hang report is kept up to this length.
inline constexpr qsizetype kLongestHangReport = 50'000;

/// One of the crashed application's own logs.
struct ApplicationLog {
    QLatin1StringView fileSuffix; ///< What follows the application's name in the file's name.
    QLatin1StringView header;     ///< What stands before the log's text in the report.

    /// The log is appended only if its length and the report's running length together stay below this: with the
    /// header as it stands in its format, the two characters of its placeholder counted, they may just reach the
    /// ceiling.
    constexpr quint64 bound() const
    {
        constexpr quint64 kPlaceholder = 2;
        return kReportCeiling - static_cast<quint64>(header.size()) - kPlaceholder + 1;
    }
};

/// The logs in the order in which they are appended.
inline constexpr std::array<ApplicationLog, 4> kApplicationLogs = {{
    {QLatin1StringView(".1.log"), QLatin1StringView("\nLog 1:\n")},
    {QLatin1StringView(".task.1.log"), QLatin1StringView("\nTask Log 1:\n")},
    {QLatin1StringView(".2.log"), QLatin1StringView("\nLog 2:\n")},
    {QLatin1StringView(".task.2.log"), QLatin1StringView("\nTask Log 2:\n")},
}};
static_assert(kApplicationLogs[0].bound() == 1'048'567 && kApplicationLogs[1].bound() == 1'048'562);

/// The crash log, or its first 50,000 units when it is a long hang report: when it contains "hang" and "Duration:"
/// anywhere (also inside other words) and is longer than that. The cut may part a surrogate pair.
QString withoutLongHangReport(const QString &crashLog);

/// Whether any application log may still be looked at when the text has the running length.
bool mayTakeMoreLogs(quint64 runningLength);

/// Whether a log of the length may be appended. The running length counts texts, never their headers.
bool fits(const ApplicationLog &log, quint64 logLength, quint64 runningLength);

/// The most bytes that a text of fewer units than the bound can have in UTF-8, at three bytes a unit; a file of more
/// need not be read to know that it does not fit.
constexpr qsizetype mostBytes(const ApplicationLog &log)
{
    return static_cast<qsizetype>(3 * log.bound());
}
