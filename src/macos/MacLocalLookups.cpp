// What macOS knows about its users, the standard directories and its clocks.
#include "macos/MacLocalLookups.h"

#include "base/Utf8.h"

#include <QByteArray>
#include <QUuid>

#include <CoreFoundation/CoreFoundation.h>
#include <SystemConfiguration/SystemConfiguration.h>
#include <pwd.h>
#include <sysdir.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <limits>
#include <memory>
#include <type_traits>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

namespace domain = platform::domain;

/// The configuration string that names the per-user temporary directory.
constexpr int kUserTemporaryDirectoryName = 65537;

constexpr std::uint64_t kKnownDomains = domain::kUser | domain::kLocal | domain::kSystem;

/// Releases what a function of the system hands over by "Copy" in its name.
struct Release {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};

using OwnedString = std::unique_ptr<std::remove_pointer_t<CFStringRef>, Release>;

/// The path without separators at its end, so that a name can be appended; the root directory stays "/".
std::optional<QString> homePath(const QByteArray &bytes)
{
    std::optional<QString> path = textFromUtf8(bytes);
    if (!path || !path->startsWith(u'/')) {
        return std::nullopt;
    }
    while (path->size() > 1 && path->endsWith(u'/')) {
        path->chop(1);
    }
    return path;
}

std::optional<QString> homeOf(const passwd *account)
{
    return account ? homePath(account->pw_dir) : std::nullopt;
}

/// The path with a "~" at its start replaced by the home; std::nullopt when there is no home to replace it by.
std::optional<QString> expanded(const QString &path, const std::optional<QString> &home)
{
    if (!path.startsWith(u'~')) {
        return path;
    }
    if (!home) {
        return std::nullopt;
    }
    return *home == u"/"_s ? path.mid(1) : *home + path.mid(1);
}

std::optional<QString> textOf(CFStringRef string)
{
    const CFIndex size = CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::vector<char> buffer(static_cast<std::size_t>(size));
    if (!CFStringGetCString(string, buffer.data(), size, kCFStringEncodingUTF8)) {
        return std::nullopt;
    }
    return textFromUtf8(buffer.data());
}

} // namespace

QStringList MacLocalLookups::searchPathForDirectoriesInDomains(std::uint64_t kind, std::uint64_t domainMask) const
{
    if (kind > std::numeric_limits<std::uint32_t>::max()) {
        return {};
    }
    const std::optional<QString> home =
        realUserId() == platform::kRootUserId ? platform::kRootHome.toString() : homeDirectory();
    QStringList places;
    std::array<char, PATH_MAX> path = {};
    auto state =
        sysdir_start_search_path_enumeration(static_cast<sysdir_search_path_directory_t>(kind),
                                             static_cast<sysdir_search_path_domain_mask_t>(domainMask & kKnownDomains));
    while ((state = sysdir_get_next_search_path_enumeration(state, path.data())) != 0) {
        const std::optional<QString> found = textFromUtf8(path.data());
        if (const std::optional<QString> place = found ? expanded(*found, home) : std::nullopt) {
            places.append(*place);
        }
    }
    return places;
}

std::uint32_t MacLocalLookups::realUserId() const
{
    return getuid();
}

std::optional<QString> MacLocalLookups::homeDirectory() const
{
    if (std::optional<QString> home = homePath(qgetenv("HOME"))) {
        return home;
    }
    return homeOf(getpwuid(realUserId()));
}

std::optional<QString> MacLocalLookups::homeDirectoryForUser(const std::optional<QString> &name) const
{
    // A NUL would end the name early, and find another account.
    if (!name || name->contains(QChar::Null)) {
        return std::nullopt;
    }
    return homeOf(getpwnam(name->toUtf8().constData()));
}

std::optional<QString> MacLocalLookups::userName() const
{
    const passwd *const account = getpwuid(realUserId());
    return account ? textFromUtf8(account->pw_name) : std::nullopt;
}

std::optional<QString> MacLocalLookups::copyConsoleUser() const
{
    const OwnedString name(SCDynamicStoreCopyConsoleUser(nullptr, nullptr, nullptr));
    return name ? textOf(name.get()) : std::nullopt;
}

std::size_t MacLocalLookups::configurationString(int name, std::span<char> buffer) const
{
    return confstr(name, buffer.data(), buffer.size());
}

std::optional<QString> MacLocalLookups::temporaryDirectory() const
{
    std::array<char, PATH_MAX> path = {};
    const std::size_t size = confstr(kUserTemporaryDirectoryName, path.data(), path.size());
    return size > 1 && size <= path.size() ? textFromUtf8(path.data()) : u"/tmp"_s;
}

QString MacLocalLookups::globallyUniqueString() const
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

std::time_t MacLocalLookups::calendarTime() const
{
    return std::time(nullptr);
}

std::clock_t MacLocalLookups::processorTime() const
{
    return std::clock();
}

const platform::LocalLookups &platform::systemLocalLookups()
{
    static const MacLocalLookups lookups;
    return lookups;
}
