// What Linux knows about its users, the standard directories and its clocks.
#include "linux/LinuxLocalLookups.h"

#include "base/TextFile.h"
#include "base/Utf8.h"
#include "linux/FileRights.h"
#include "platform/StandardDirectories.h"

#include <QByteArray>
#include <QUuid>

#include <grp.h>
#include <pwd.h>
#include <systemd/sd-login.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

namespace domain = platform::domain;

constexpr const char *kFirstSeat = "seat0";
constexpr std::string_view kGreeterClass = "greeter";

constexpr std::size_t kFirstAccountBuffer = 1024;
/// An entry beyond this is no account; the bound keeps a broken source of accounts from eating all memory.
constexpr std::size_t kLargestAccountBuffer = std::size_t(1) << 24;

struct Account {
    std::optional<QString> name;
    std::optional<QString> home;
    uid_t userId = 0;
    gid_t groupId = 0;
};

/// Frees what libsystemd hands over.
struct FreeDeleter {
    void operator()(char *text) const { std::free(text); }
};

using MallocedString = std::unique_ptr<char, FreeDeleter>;

/// The path without separators at its end, so that a name can be appended; the root directory stays "/".
QString withoutTrailingSeparators(QString path)
{
    while (path.size() > 1 && path.endsWith(u'/')) {
        path.chop(1);
    }
    return path;
}

std::optional<QString> homePath(const QByteArray &bytes)
{
    const std::optional<QString> path = textFromUtf8(bytes);
    if (!path || !path->startsWith(u'/')) {
        return std::nullopt;
    }
    return withoutTrailingSeparators(*path);
}

/// The account that a reentrant lookup of passwd entries finds, given a buffer that is large enough for the entry.
template<typename Lookup>
std::optional<Account> findAccount(Lookup lookup)
{
    for (std::size_t size = kFirstAccountBuffer; size <= kLargestAccountBuffer; size *= 2) {
        std::vector<char> buffer(size);
        passwd entry = {};
        passwd *found = nullptr;
        const int error = lookup(&entry, buffer.data(), buffer.size(), &found);
        if (error == ERANGE) {
            continue;
        }
        if (!found) {
            return std::nullopt;
        }
        return Account{.name = textFromUtf8(found->pw_name),
                       .home = homePath(found->pw_dir),
                       .userId = found->pw_uid,
                       .groupId = found->pw_gid};
    }
    return std::nullopt;
}

std::optional<Account> accountOfUserId(uid_t userId)
{
    return findAccount([userId](passwd *entry, char *buffer, std::size_t size, passwd **found) {
        return getpwuid_r(userId, entry, buffer, size, found);
    });
}

std::optional<Account> accountNamed(const QString &name)
{
    const QByteArray bytes = name.toUtf8();
    if (bytes.contains('\0')) {
        // The system would take the part before it for the whole name.
        return std::nullopt;
    }
    return findAccount([&bytes](passwd *entry, char *buffer, std::size_t size, passwd **found) {
        return getpwnam_r(bytes.constData(), entry, buffer, size, found);
    });
}

std::vector<gid_t> groupsOf(const QString &user, gid_t group)
{
    const QByteArray name = user.toUtf8();
    int count = 0;
    // Without space for any, it gives the count alone (getgrouplist(3)).
    ::getgrouplist(name.constData(), group, nullptr, &count);
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    if (::getgrouplist(name.constData(), group, groups.data(), &count) < 0) {
        return {group};
    }
    // There may be fewer meanwhile.
    return {groups.begin(), groups.begin() + count};
}

MallocedString activeSessionOnFirstSeat()
{
    // A call that fails leaves it as it is.
    char *session = nullptr;
    sd_seat_get_active(kFirstSeat, &session, nullptr);
    return MallocedString(session);
}

MallocedString classOfSession(const char *session)
{
    char *sessionClass = nullptr;
    sd_session_get_class(session, &sessionClass);
    return MallocedString(sessionClass);
}

std::optional<QString> userOfSession(const char *session)
{
    uid_t userId = 0;
    if (sd_session_get_uid(session, &userId) < 0) {
        return std::nullopt;
    }
    const std::optional<Account> account = accountOfUserId(userId);
    return account ? account->name : std::nullopt;
}

/// The path that a home and a text such as "/Library" make, with one separator between them.
QString belowHome(const QString &home, QStringView rest)
{
    return home == u"/"_s ? rest.toString() : QString(home).append(rest);
}

/// The user's cache directory as bytes, empty when it is not known.
QByteArray cacheDirectory(const std::optional<QString> &home)
{
    QByteArray configured = qgetenv("XDG_CACHE_HOME");
    if (configured.startsWith('/')) {
        return configured;
    }
    return home ? belowHome(*home, u"/.cache").toUtf8() : QByteArray();
}

} // namespace

QStringList LinuxLocalLookups::searchPathForDirectoriesInDomains(std::uint64_t kind, std::uint64_t domainMask) const
{
    const auto row = std::ranges::find(platform::kStandardDirectories, kind, &platform::StandardDirectory::kind);
    if (row == platform::kStandardDirectories.end()) {
        return {};
    }
    QStringList places;
    if ((domainMask & domain::kUser) != 0 && !row->user.isEmpty()) {
        const bool isRoot = realUserId() == platform::kRootUserId;
        if (const std::optional<QString> home = isRoot ? platform::kRootHome.toString() : homeDirectory()) {
            places.append(belowHome(*home, row->user));
        }
    }
    if ((domainMask & domain::kLocal) != 0 && !row->local.isEmpty()) {
        places.append(row->local.toString());
    }
    if ((domainMask & domain::kSystem) != 0 && !row->system.isEmpty()) {
        places.append(row->system.toString());
    }
    return places;
}

std::uint32_t LinuxLocalLookups::realUserId() const
{
    return getuid();
}

std::optional<QString> LinuxLocalLookups::homeDirectory() const
{
    if (std::optional<QString> home = homePath(qgetenv("HOME"))) {
        return home;
    }
    const std::optional<Account> account = accountOfUserId(realUserId());
    return account ? account->home : std::nullopt;
}

std::optional<QString> LinuxLocalLookups::homeDirectoryForUser(const std::optional<QString> &name) const
{
    const std::optional<Account> account = name ? accountNamed(*name) : std::nullopt;
    return account ? account->home : std::nullopt;
}

std::optional<QString> LinuxLocalLookups::userName() const
{
    const std::optional<Account> account = accountOfUserId(realUserId());
    return account ? account->name : std::nullopt;
}

std::optional<QString> LinuxLocalLookups::copyConsoleUser() const
{
    const MallocedString session = activeSessionOnFirstSeat();
    if (!session) {
        return std::nullopt;
    }
    const MallocedString sessionClass = classOfSession(session.get());
    if (!sessionClass) {
        return std::nullopt;
    }
    return sessionClass.get() == kGreeterClass ? platform::kLoginScreen.toString() : userOfSession(session.get());
}

std::size_t LinuxLocalLookups::configurationString(int name, std::span<char> buffer) const
{
    if (name != platform::kUserCacheDirectoryName) {
        return 0;
    }
    const QByteArray value = cacheDirectory(homeDirectory());
    if (value.isEmpty()) {
        return 0;
    }
    if (!buffer.empty()) {
        const std::size_t copied = std::min(static_cast<std::size_t>(value.size()), buffer.size() - 1);
        std::copy_n(value.begin(), copied, buffer.begin());
        buffer[copied] = '\0';
    }
    return static_cast<std::size_t>(value.size()) + 1;
}

std::optional<QString> LinuxLocalLookups::temporaryDirectory() const
{
    const std::optional<QString> configured = textFromUtf8(qgetenv("TMPDIR"));
    return configured && !configured->isEmpty() ? configured : u"/tmp"_s;
}

QString LinuxLocalLookups::globallyUniqueString() const
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

std::time_t LinuxLocalLookups::calendarTime() const
{
    return std::time(nullptr);
}

std::clock_t LinuxLocalLookups::processorTime() const
{
    return std::clock();
}

std::optional<QString> LinuxLocalLookups::textOfFileOfUser(const QString &user, const QString &path,
                                                           qsizetype maxBytes) const
{
    const std::optional<Account> account = accountNamed(user);
    if (!account) {
        return std::nullopt;
    }
    // Until it is read to its end: some files of the system's look at who reads them, too.
    const FileRights rights(account->userId, account->groupId, groupsOf(user, account->groupId));
    return rights.areTaken() ? textOfFile(path, maxBytes, &openByRightsAlone) : std::nullopt;
}

const platform::LocalLookups &platform::systemLocalLookups()
{
    static const LinuxLocalLookups lookups;
    return lookups;
}
