// Where the standard directories lie, who the user is, how temporary files are named, and what a path belongs to.
#include "paths/KVLocalPaths.h"

#include "base/PathText.h"
#include "base/Utf8.h"
#include "platform/LocalLookups.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

namespace directory = platform::directory;
namespace domain = platform::domain;

using Directory = std::optional<QString>;

/// Root's home once the link "/var" has been followed.
constexpr QStringView kResolvedRootHome = u"/private/var/root";

/// How many units of kResolvedRootHome are dropped. It has 17; dropping 16 is deliberate, so that its last letter
/// stays ("/private/var/root/Library" becomes "t/Library"). Another count would move the folders of every caller.
constexpr qsizetype kResolvedRootHomeDropped = 16;

constexpr std::size_t kConfigurationBufferSize = 1024;

/// A cut leaves at most this many bytes of a character whose UTF-8 takes four (RFC 3629).
constexpr qsizetype kLongestUnfinishedCharacter = 3;

constexpr QStringView kRandomAlphabet = u"abcdefghijklmnopqrstuvwxyz0123456789";

constexpr std::uint64_t kRandomPartOfTempFile = 8;

constexpr qsizetype kShortestSystemDirectory = 3;

/// How many units a path that ends with "/" loses. Two, and so the one before the "/" as well, is deliberate: with a
/// "/" at its end a standard directory counts as none ("/Applications/" is compared as "/Application").
constexpr qsizetype kDroppedWithTrailingSeparator = 2;

/// The directories that are the system's, in the order they are asked for. Each is asked only when the path equals
/// none before it, since every answer takes a lookup or more.
constexpr std::array<Directory (*)(), 20> kSystemDirectories = {
    [] { return KVLocalPaths::applicationDirectory(true); },
    [] { return KVLocalPaths::applicationDirectory(false); },
    [] { return KVLocalPaths::adminApplicationDirectory(true); },
    [] { return KVLocalPaths::adminApplicationDirectory(false); },
    [] { return KVLocalPaths::documentDirectory(true); },
    [] { return KVLocalPaths::documentDirectory(false); },
    [] { return KVLocalPaths::libraryDirectory(true); },
    [] { return KVLocalPaths::libraryDirectory(false); },
    [] { return KVLocalPaths::prefsDirectory(true); },
    [] { return KVLocalPaths::prefsDirectory(false); },
    [] { return KVLocalPaths::cacheDirectory(true); },
    [] { return KVLocalPaths::cacheDirectory(false); },
    [] { return KVLocalPaths::appSupportDirectory(true); },
    [] { return KVLocalPaths::appSupportDirectory(false); },
    [] { return KVLocalPaths::desktopDirectory(); },
    [] { return KVLocalPaths::userDirectory(); },
    [] { return KVLocalPaths::systemLibraryDirectory(); },
    [] { return KVLocalPaths::localDocumentationDirectory(); },
    [] { return Directory(u"/Users/Shared"_s); },
    [] { return Directory(u"/Volumes"_s); },
};

/// What a path inside the system begins with. They are plain prefixes with no regard to where a component ends,
/// deliberately: "/usrlocal" and "/Systemic" count as well.
constexpr std::array<QStringView, 4> kSystemPrefixes = {u"/usr", u"/var", u"/private/var", u"/System"};

constexpr QStringView kMountedVolumes = u"/Volumes/";

const platform::LocalLookups &lookups()
{
    return platform::systemLocalLookups();
}

std::uint64_t domainFor(bool userDomain)
{
    return userDomain ? domain::kUser : domain::kLocal;
}

bool runsAsRoot()
{
    return lookups().realUserId() == platform::kRootUserId;
}

/// What remains of a path of root's without root's home. The two are plain prefixes with no regard to where a component
/// ends, deliberately ("/var/rootless" becomes "less"), and the second is looked for in what the first one left.
QString withoutRootHome(const QString &path)
{
    QString rest = path;
    if (rest.startsWith(platform::kRootHome)) {
        rest.remove(0, platform::kRootHome.size());
    }
    if (rest.startsWith(kResolvedRootHome)) {
        rest.remove(0, kResolvedRootHomeDropped);
    }
    return rest;
}

/// The text of bytes that were cut somewhere, up to the last character that is still whole.
std::optional<QString> textFromCutUtf8(QByteArrayView bytes)
{
    for (qsizetype dropped = 0; dropped <= kLongestUnfinishedCharacter; ++dropped) {
        if (std::optional<QString> text = textFromUtf8(bytes.chopped(dropped))) {
            return text;
        }
    }
    return std::nullopt;
}

/// The low 32 bits of the product of both times. Unsigned throughout, so that no value of either can overflow.
std::uint32_t randomSeed()
{
    const auto seconds = static_cast<std::uint32_t>(lookups().calendarTime());
    const auto ticks = static_cast<std::uint32_t>(lookups().processorTime());
    return seconds * ticks;
}

bool isListedSystemDirectory(const QString &path)
{
    return std::ranges::any_of(kSystemDirectories, [&path](auto directory) { return directory() == path; });
}

bool hasSystemPrefix(const QString &path)
{
    return std::ranges::any_of(kSystemPrefixes, [&path](QStringView prefix) { return path.startsWith(prefix); });
}

} // namespace

std::optional<QString> KVLocalPaths::pathForDirectoryForUserDomain(std::uint64_t kind, std::uint64_t domainMask)
{
    const QStringList places = lookups().searchPathForDirectoriesInDomains(kind, domainMask);
    if (runsAsRoot() && domainMask == domain::kUser && !places.isEmpty()) {
        return byAppendingPathComponent(userDirectory(), withoutRootHome(places.first()));
    }
    if (places.isEmpty()) {
        return std::nullopt;
    }
    return places.first();
}

std::optional<QString> KVLocalPaths::applicationDirectory(bool userDomain)
{
    return pathForDirectoryForUserDomain(directory::kApplications, domainFor(userDomain));
}

std::optional<QString> KVLocalPaths::adminApplicationDirectory(bool userDomain)
{
    return pathForDirectoryForUserDomain(directory::kAdminApplications, domainFor(userDomain));
}

std::optional<QString> KVLocalPaths::documentDirectory(bool userDomain)
{
    return pathForDirectoryForUserDomain(directory::kDocuments, domainFor(userDomain));
}

std::optional<QString> KVLocalPaths::libraryDirectory(bool userDomain)
{
    return pathForDirectoryForUserDomain(directory::kLibrary, domainFor(userDomain));
}

std::optional<QString> KVLocalPaths::prefsDirectory(bool userDomain)
{
    return byAppendingPathComponent(pathForDirectoryForUserDomain(directory::kLibrary, domainFor(userDomain)),
                                    u"Preferences"_s);
}

std::optional<QString> KVLocalPaths::cacheDirectory(bool userDomain)
{
    return pathForDirectoryForUserDomain(directory::kCaches, domainFor(userDomain));
}

std::optional<QString> KVLocalPaths::darwinCacheDirectory()
{
    std::array<char, kConfigurationBufferSize> buffer = {};
    const std::size_t size = lookups().configurationString(platform::kUserCacheDirectoryName, buffer);
    if (size == 0) {
        return std::nullopt;
    }
    // The size is what the whole value needs, which may be more than the buffer holds. Both count the NUL at the end.
    const QByteArrayView value(buffer.data(), static_cast<qsizetype>(std::min(size, buffer.size()) - 1));
    return size > buffer.size() ? textFromCutUtf8(value) : textFromUtf8(value);
}

std::optional<QString> KVLocalPaths::movieDirectory()
{
    return pathForDirectoryForUserDomain(directory::kMovies, domain::kUser);
}

std::optional<QString> KVLocalPaths::appSupportDirectory(bool userDomain)
{
    return pathForDirectoryForUserDomain(directory::kApplicationSupport, domainFor(userDomain));
}

std::optional<QString> KVLocalPaths::desktopDirectory()
{
    return pathForDirectoryForUserDomain(directory::kDesktop, domain::kUser);
}

std::optional<QString> KVLocalPaths::userDirectory()
{
    return runsAsRoot() ? lookups().homeDirectoryForUser(currentConsoleUser()) : lookups().homeDirectory();
}

std::optional<QString> KVLocalPaths::username()
{
    return runsAsRoot() ? currentConsoleUser() : lookups().userName();
}

std::optional<QString> KVLocalPaths::systemLibraryDirectory()
{
    return pathForDirectoryForUserDomain(directory::kLibrary, domain::kSystem);
}

std::optional<QString> KVLocalPaths::trashDirectory()
{
    return byAppendingPathComponent(userDirectory(), u".Trash"_s);
}

std::optional<QString> KVLocalPaths::logDirectory(bool userDomain)
{
    return byAppendingPathComponent(libraryDirectory(userDomain), u"Logs"_s);
}

std::optional<QString> KVLocalPaths::localDocumentationDirectory()
{
    return pathForDirectoryForUserDomain(directory::kDocumentation, domain::kLocal);
}

std::optional<QString> KVLocalPaths::tempDirectory()
{
    return lookups().temporaryDirectory();
}

std::optional<QString> KVLocalPaths::tempFile()
{
    const std::optional<QString> directory = tempDirectory();
    const QString unique = uuid();
    return byAppendingPathComponent(directory, unique + randomString(kRandomPartOfTempFile));
}

QString KVLocalPaths::uuid()
{
    return lookups().globallyUniqueString();
}

QString KVLocalPaths::randomString(std::uint64_t length)
{
    std::srand(randomSeed());

    constexpr std::uint64_t kLongestText = std::numeric_limits<qsizetype>::max();
    QString text;
    text.reserve(static_cast<qsizetype>(std::min(length, kLongestText)));
    for (std::uint64_t i = 0; i < length; ++i) {
        // The plain modulo, which slightly prefers the first letters, is deliberate: no draw is rejected, so that a
        // text takes as many draws as it has characters.
        text.append(kRandomAlphabet.at(std::rand() % kRandomAlphabet.size()));
    }
    return text;
}

bool KVLocalPaths::isPathSystemDirectory(const std::optional<QString> &path)
{
    return isPathSystemDirectoryExactMatch(path, false);
}

bool KVLocalPaths::isPathSystemDirectoryExactMatch(const std::optional<QString> &path, bool exactMatch)
{
    if (path == u"/"_s) {
        return true;
    }
    if (!path || path->size() < kShortestSystemDirectory) {
        return false;
    }
    const QString compared = path->endsWith(u'/') ? path->chopped(kDroppedWithTrailingSeparator) : *path;
    if (isListedSystemDirectory(compared)) {
        return true;
    }
    return !exactMatch && hasSystemPrefix(compared);
}

bool KVLocalPaths::isPathOnTimeMachineVolume(const std::optional<QString> &path)
{
    if (!path || !path->startsWith(kMountedVolumes)) {
        return false;
    }
    return pathComponents(*path).contains(u"Backups.backupdb"_s);
}

std::optional<QString> KVLocalPaths::currentConsoleUser()
{
    const std::optional<QString> name = lookups().copyConsoleUser();
    return name == platform::kLoginScreen ? std::nullopt : name;
}
