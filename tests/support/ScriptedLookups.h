// Lookups whose answers a test writes down, and which note every question in the order it was asked.
#pragma once

#include "base/TextFile.h"
#include "platform/StandardDirectories.h"

#include <fcntl.h>

#include <algorithm>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// A value of a configuration string, and the size that is claimed for it where that is not the true one.
struct ScriptedConfigurationString {
    QByteArray value;
    std::optional<std::size_t> claimedSize = std::nullopt;
};

/// Unless told otherwise: the process of the ordinary user "user1", whose home is /Users/user1, with nobody at the
/// console and no standard directory anywhere.
class ScriptedLookups : public platform::LocalLookups
{
public:
    using Questions = std::vector<std::string>;

    /// The answers for a kind and a mask.
    std::map<std::pair<std::uint64_t, std::uint64_t>, QStringList> directories;
    std::uint32_t userId = 1000;
    std::optional<QString> home = QStringLiteral("/Users/user1");
    std::map<QString, QString> homes = {{QStringLiteral("user1"), QStringLiteral("/Users/user1")}};
    std::optional<QString> homeOfNobody;
    std::optional<QString> name = QStringLiteral("user1");
    std::optional<QString> consoleUser;
    mutable std::deque<std::optional<QString>> firstConsoleUsers; ///< One for each of the first questions.
    std::optional<ScriptedConfigurationString> userCacheDirectory;
    std::optional<QString> temporary = QStringLiteral("/tmp/of-user1/");
    /// What was asked, one line for a question: "search 5 1", "user id", "home of user1", ...
    mutable Questions questions;
    /// Handed out one after the other; the last one stays.
    mutable std::deque<QString> uniqueStrings = {QStringLiteral("unique")};
    std::time_t seconds = 1'700'000'000;
    std::clock_t ticks = 4711;
    /// What a file is opened by with a user's rights; these are refused where there is none.
    FileOpener openOfUser = [](const char *path, int flags) { return ::open(path, flags); };

    QStringList searchPathForDirectoriesInDomains(std::uint64_t kind, std::uint64_t domainMask) const override
    {
        note("search " + std::to_string(kind) + " " + std::to_string(domainMask));
        const auto found = directories.find({kind, domainMask});
        return found == directories.end() ? QStringList() : found->second;
    }

    std::uint32_t realUserId() const override
    {
        note("user id");
        return userId;
    }

    std::optional<QString> homeDirectory() const override
    {
        note("home");
        return home;
    }

    std::optional<QString> homeDirectoryForUser(const std::optional<QString> &user) const override
    {
        note("home of " + (user ? user->toStdString() : std::string("nobody")));
        if (!user) {
            return homeOfNobody;
        }
        const auto found = homes.find(*user);
        return found == homes.end() ? std::nullopt : std::optional(found->second);
    }

    std::optional<QString> userName() const override
    {
        note("user name");
        return name;
    }

    std::optional<QString> copyConsoleUser() const override
    {
        note("console user");
        if (firstConsoleUsers.empty()) {
            return consoleUser;
        }
        const std::optional<QString> user = firstConsoleUsers.front();
        firstConsoleUsers.pop_front();
        return user;
    }

    std::size_t configurationString(int configurationName, std::span<char> buffer) const override
    {
        note("configuration string " + std::to_string(configurationName) + " into " + std::to_string(buffer.size()));
        if (configurationName != platform::kUserCacheDirectoryName || !userCacheDirectory) {
            return 0;
        }
        const QByteArray &value = userCacheDirectory->value;
        if (!buffer.empty()) {
            const std::size_t copied = std::min(static_cast<std::size_t>(value.size()), buffer.size() - 1);
            std::copy_n(value.begin(), copied, buffer.begin());
            buffer[copied] = '\0';
        }
        return userCacheDirectory->claimedSize.value_or(static_cast<std::size_t>(value.size()) + 1);
    }

    std::optional<QString> temporaryDirectory() const override
    {
        note("temporary directory");
        return temporary;
    }

    QString globallyUniqueString() const override
    {
        note("unique string");
        const QString unique = uniqueStrings.front();
        if (uniqueStrings.size() > 1) {
            uniqueStrings.pop_front();
        }
        return unique;
    }

    std::time_t calendarTime() const override
    {
        note("time");
        return seconds;
    }

    std::clock_t processorTime() const override
    {
        note("clock");
        return ticks;
    }

    std::optional<QString> textOfFileOfUser(const QString &user, const QString &path, qsizetype maxBytes) const override
    {
        note("file of " + user.toStdString() + " up to " + std::to_string(maxBytes));
        return openOfUser ? textOfFile(path, maxBytes, openOfUser) : std::nullopt;
    }

private:
    void note(std::string question) const { questions.push_back(std::move(question)); }
};

/// Writes down where the standard directories lie on a standard installation, the user's below the home.
inline void installStandardDirectories(ScriptedLookups &lookups, const QString &home)
{
    namespace domain = platform::domain;
    for (const platform::StandardDirectory &row : platform::kStandardDirectories) {
        lookups.directories[{row.kind, domain::kUser}] = {home + row.user.toString()};
        if (!row.local.isEmpty()) {
            lookups.directories[{row.kind, domain::kLocal}] = {row.local.toString()};
        }
        if (!row.system.isEmpty()) {
            lookups.directories[{row.kind, domain::kSystem}] = {row.system.toString()};
        }
    }
}

/// Makes the process root's, with this user at the console.
inline void runAsRoot(ScriptedLookups &lookups, const std::optional<QString> &consoleUser)
{
    lookups.userId = 0;
    lookups.home = QStringLiteral("/var/root");
    lookups.name = QStringLiteral("root");
    lookups.consoleUser = consoleUser;
}

/// Answers for the system with these lookups for as long as the scope lives, in a program of tests that is linked with
/// ScriptedLookups.cpp. The lookups must outlive the scope.
class LookupsScope
{
public:
    explicit LookupsScope(const ScriptedLookups &lookups);
    LookupsScope(const LookupsScope &) = delete;
    LookupsScope &operator=(const LookupsScope &) = delete;
    ~LookupsScope();

private:
    const ScriptedLookups *previous;
};
