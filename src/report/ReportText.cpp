// The rules that turn a crash log and the application's own logs into the report text.
#include "report/ReportText.h"

#include "base/TextFile.h"
#include "paths/KVLocalPaths.h"
#include "platform/LocalLookups.h"

#include <array>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

using LogPaths = std::array<std::optional<QString>, kApplicationLogs.size()>;

/// Where the logs of the table stand in the order in which their paths are built: the plain logs first. The log
/// directory is asked for each of them in this order, because who is at the console may change between two questions,
/// and every system asks alike.
constexpr std::array<size_t, kApplicationLogs.size()> kPathOrder = {0, 2, 1, 3};

/// The paths in the order of the table; std::nullopt where there is no log directory.
LogPaths applicationLogPaths(const QString &appName)
{
    LogPaths paths;
    for (const size_t index : kPathOrder) {
        if (const std::optional<QString> directory = KVLocalPaths::logDirectory(true)) {
            paths.at(index) = *directory + u"/Korvale/"_s + appName + kApplicationLogs.at(index).fileSuffix;
        }
    }
    return paths;
}

/// The maximum size of a file that can fit: a text of fewer units than the bound takes at most three bytes a unit in
/// UTF-8. A larger one need not be read.
qsizetype maxBytes(const ApplicationLog &log)
{
    return static_cast<qsizetype>(3 * log.bound());
}

/// Whether the path lies in the home of the user. Who is at the console may have changed since the path was built.
bool isInHomeOf(const QString &user, const QString &path)
{
    const std::optional<QString> home = platform::systemLocalLookups().homeDirectoryForUser(user);
    return home && path.startsWith(home->endsWith(u'/') ? *home : *home + u'/');
}

/// The text of the file at the path. Root reads it with the rights of the user at the console, whose file it is: a link
/// that this user has planted must not show and send what only root may read.
std::optional<QString> textWithItsUsersRights(const QString &path, qsizetype maximum)
{
    const platform::LocalLookups &lookups = platform::systemLocalLookups();
    if (lookups.realUserId() != platform::kRootUserId) {
        return fileExists(path) ? textOfFile(path, maximum) : std::nullopt;
    }
    const std::optional<QString> user = KVLocalPaths::currentConsoleUser();
    return user && isInHomeOf(*user, path) ? lookups.textOfFileOfUser(*user, path, maximum) : std::nullopt;
}

/// The text of the log, if it may be appended to a report of the running length.
std::optional<QString> appendableLog(const ApplicationLog &log, const std::optional<QString> &path,
                                     quint64 runningLength)
{
    if (!path || runningLength >= kReportCeiling) {
        return std::nullopt;
    }
    std::optional<QString> text = textWithItsUsersRights(*path, maxBytes(log));
    if (!text || static_cast<quint64>(text->size()) + runningLength >= log.bound()) {
        return std::nullopt;
    }
    return text;
}

/// "Log 1" of "\nLog 1:\n".
QString titleOf(const ApplicationLog &log)
{
    return QString(log.header).trimmed().chopped(1);
}

} // namespace

QString withoutLongHangReport(QString crashLog)
{
    // The length first: it alone decides for most logs. Then the longer word: the toolkit skips what cannot hold it.
    if (crashLog.size() > kMaxHangReport && crashLog.contains(u"Duration:") && crashLog.contains(u"hang")) {
        crashLog.truncate(kMaxHangReport);
    }
    return crashLog;
}

ReportText reportText(QString crashLog, const QString &appName)
{
    ReportText report = {.text = withoutLongHangReport(std::move(crashLog)), .appendedLogs = {}};
    // Counts the texts and never their headers.
    auto runningLength = static_cast<quint64>(report.text.size());
    const LogPaths paths = applicationLogPaths(appName);
    for (size_t index = 0; index < kApplicationLogs.size(); ++index) {
        const ApplicationLog &log = kApplicationLogs.at(index);
        if (const std::optional<QString> text = appendableLog(log, paths.at(index), runningLength)) {
            // The heading begins behind the line feed that ends the text before it.
            report.appendedLogs.append({.title = titleOf(log), .offset = report.text.size() + 1});
            report.text += log.header;
            report.text += *text;
            runningLength += static_cast<quint64>(text->size());
        }
    }
    return report;
}
