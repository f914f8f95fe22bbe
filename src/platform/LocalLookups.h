// What the operating system knows about its users, its standard directories and its clocks.
#pragma once

#include "platform/Object.h"

#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <span>

namespace platform {

/// Kinds of standard directories, with the numbers they have on every system.
namespace directory {
inline constexpr std::uint64_t kApplications = 1;
inline constexpr std::uint64_t kAdminApplications = 4;
inline constexpr std::uint64_t kLibrary = 5;
inline constexpr std::uint64_t kDocumentation = 8;
inline constexpr std::uint64_t kDocuments = 9;
inline constexpr std::uint64_t kDesktop = 12;
inline constexpr std::uint64_t kCaches = 13;
inline constexpr std::uint64_t kApplicationSupport = 14;
inline constexpr std::uint64_t kMovies = 17;
} // namespace directory

/// Domains of standard directories; a mask may add several.
namespace domain {
inline constexpr std::uint64_t kUser = 1;
inline constexpr std::uint64_t kLocal = 2;
inline constexpr std::uint64_t kSystem = 8;
} // namespace domain

/// The configuration string that names the per-user cache directory.
inline constexpr int kUserCacheDirectoryName = 65538;

/// The user ID of root. What follows is what the lookups of every system answer for it, and while nobody is logged in.
inline constexpr std::uint32_t kRootUserId = 0;
/// The home that "~" is expanded to for root, on every system: KVLocalPaths recognises it and puts the console user's
/// home in its place.
inline constexpr QStringView kRootHome = u"/var/root";
/// The name of the console user while the login screen shows.
inline constexpr QStringView kLoginScreen = u"loginwindow";

class LocalLookups : public Object
{
public:
    /// Where the standard directory of the kind lies in the domains of the mask, in the order user, local, system,
    /// with "~" expanded to the home of the process's user (kRootHome for root). Empty when there is none.
    virtual QStringList searchPathForDirectoriesInDomains(std::uint64_t kind, std::uint64_t domainMask) const = 0;
    /// The real user ID of the process, never the effective one.
    virtual std::uint32_t realUserId() const = 0;
    /// The home directory of the process's user; std::nullopt when neither the environment nor an account names one.
    virtual std::optional<QString> homeDirectory() const = 0;
    /// The home directory of the named user; std::nullopt for an unknown name and for no name.
    virtual std::optional<QString> homeDirectoryForUser(const std::optional<QString> &name) const = 0;
    /// The login name of the process's user; std::nullopt when there is no account for it.
    virtual std::optional<QString> userName() const = 0;
    /// The name of the user at the console, kLoginScreen while the login screen shows, or std::nullopt.
    virtual std::optional<QString> copyConsoleUser() const = 0;
    /// Copies the value of a configuration string into the buffer, cut to fit and ended by NUL, and returns the bytes
    /// that the whole value needs, its NUL counted; 0 when the name has no value (as confstr(3) does).
    virtual std::size_t configurationString(int name, std::span<char> buffer) const = 0;
    /// The temporary directory of the process's user; it may end with "/". std::nullopt when the system names none.
    virtual std::optional<QString> temporaryDirectory() const = 0;
    /// A text that no other call, process or machine produces, usable inside a file name.
    virtual QString globallyUniqueString() const = 0;
    /// The calendar time in seconds since the epoch (as time(3) does).
    virtual std::time_t calendarTime() const = 0;
    /// The processor time that the process has used, in clock ticks (as clock(3) does).
    virtual std::clock_t processorTime() const = 0;
    /// What textOfFile() returns, opened and read with the named user's rights and no others: for a process of root's
    /// that reads what this user may have planted. std::nullopt also when they cannot be taken on.
    virtual std::optional<QString> textOfFileOfUser(const QString & /*user*/, const QString & /*path*/,
                                                    qsizetype /*maxBytes*/) const
    {
        return std::nullopt;
    }
};

/// The lookups of the system that the program was built for. Each system's sources define it; what is linked chooses.
const LocalLookups &systemLocalLookups();

} // namespace platform
