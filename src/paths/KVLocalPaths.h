// Where the standard directories lie, who the user is, how temporary files are named, and what a path belongs to.
#pragma once

#include "platform/Object.h"

#include <QString>

#include <cstdint>
#include <optional>

/// Answers questions about local paths. Every operation belongs to the class: it holds no state and no cache, no
/// instance is ever made, and each answer is worked out afresh from the system's lookups
/// (platform::systemLocalLookups()). All operations may be called from any thread; only randomString(), and
/// tempFile() through it, disturb other threads, because they use the process's one random generator.
///
/// The user. "The user" is the one the process runs as. When the real user ID is 0 (never the effective one), the user
/// is the person logged in at the console instead, so that a program started with root's rights still finds that
/// person's folders.
///
/// No operation fails with an error: one that cannot answer returns std::nullopt, a path built on std::nullopt is
/// std::nullopt, and std::nullopt equals no path.
///
/// Paths are texts as the system gives them. None is standardised, no link is followed, nothing is created or opened.
class KVLocalPaths : public platform::Object
{
public:
    KVLocalPaths() = delete;

    // Standard directories. Those with an argument answer for the user's own domain (true) or the machine-wide, local
    // domain (false); those without one say which. In the user's own domain root gets the folder of the console user.
    // All of them return std::nullopt when the system has no such directory in that domain and, in the user's own
    // domain as root, when the console user's home is not known.

    /// The first place where the system looks for a directory of this kind in the domains of the mask (the numbers of
    /// platform::directory and platform::domain), unchanged; std::nullopt when it knows none.
    ///
    /// For root, and for the mask of exactly the user's domain, the place is moved under userDirectory(): a leading
    /// "/var/root" is dropped, then a leading "/private/var/root" but for its last letter ("/private/var/root/Library"
    /// becomes "t/Library"), and what remains is appended to userDirectory() as a component. Both are plain prefixes:
    /// "/var/rootless" loses its first nine characters, too. std::nullopt when userDirectory() is std::nullopt.
    static std::optional<QString> pathForDirectoryForUserDomain(std::uint64_t kind, std::uint64_t domainMask);

    /// Applications.
    static std::optional<QString> applicationDirectory(bool userDomain);

    /// Applications for administrators.
    static std::optional<QString> adminApplicationDirectory(bool userDomain);

    /// Documents.
    static std::optional<QString> documentDirectory(bool userDomain);

    /// The library folder.
    static std::optional<QString> libraryDirectory(bool userDomain);

    /// Preferences: the folder "Preferences" in the library folder.
    static std::optional<QString> prefsDirectory(bool userDomain);

    /// Caches.
    static std::optional<QString> cacheDirectory(bool userDomain);

    /// The cache directory that the operating system assigns to the process's user; for root it is root's own.
    /// A value of more than 1023 bytes is cut there, or before the character that would be cut in two. An empty value
    /// is an empty path; std::nullopt when there is no value, or when its bytes are no UTF-8 and so no path as a text.
    static std::optional<QString> darwinCacheDirectory();

    /// The user's films, in the user's own domain.
    static std::optional<QString> movieDirectory();

    /// Supporting files of applications.
    static std::optional<QString> appSupportDirectory(bool userDomain);

    /// The user's desktop, in the user's own domain.
    static std::optional<QString> desktopDirectory();

    /// The user's home directory. For root it is the console user's, and with nobody at the console whatever the
    /// system's lookup answers for no name; std::nullopt when it is not known.
    static std::optional<QString> userDirectory();

    /// The user's login name; std::nullopt when the system has no account for the process's user. For root it is
    /// currentConsoleUser(), so std::nullopt when nobody is at the console.
    static std::optional<QString> username();

    /// The library folder of the system itself, the same for everybody.
    static std::optional<QString> systemLibraryDirectory();

    /// The user's trash: ".Trash" in userDirectory(), and std::nullopt when that is std::nullopt.
    static std::optional<QString> trashDirectory();

    /// Log files: the folder "Logs" in libraryDirectory() of the same domain.
    static std::optional<QString> logDirectory(bool userDomain);

    /// Documentation in the machine-wide, local domain.
    static std::optional<QString> localDocumentationDirectory();

    // Temporary names. These operations only make names; they create no file and look for none.

    /// The temporary directory of the process's user, as the system gives it; it may end with "/". std::nullopt when
    /// the system names none.
    static std::optional<QString> tempDirectory();

    /// A path in tempDirectory() whose last component is uuid() directly followed by randomString(8); a different path
    /// on every call. std::nullopt when tempDirectory() is std::nullopt.
    static std::optional<QString> tempFile();

    /// A text that no other call, process or machine produces, usable inside a file name.
    static QString uuid();

    /// A text of exactly this many characters out of "a" to "z" and "0" to "9".
    ///
    /// It is for names, not for secrets. Every call, also one for no characters, seeds the process's generator
    /// (std::srand) with the low 32 bits of calendar time in seconds x processor time in ticks; each character is a
    /// draw (std::rand) modulo 36. Two calls in the same second and tick therefore give the same text, and whoever
    /// else draws from that generator sees its sequence start again. Throws std::bad_alloc when there is no memory for
    /// that many.
    static QString randomString(std::uint64_t length);

    // What a path belongs to. Comparisons are exact: case counts, and the text is taken as it is given. Lengths are in
    // UTF-16 code units. No path gives false.

    /// Whether the path is a system directory: isPathSystemDirectoryExactMatch() with exactMatch false.
    static bool isPathSystemDirectory(const std::optional<QString> &path);

    /// Whether the path is "/" or one of the system directories: those of applicationDirectory(),
    /// adminApplicationDirectory(), documentDirectory(), libraryDirectory(), prefsDirectory(), cacheDirectory() and
    /// appSupportDirectory() in both domains, desktopDirectory(), userDirectory(), systemLibraryDirectory(),
    /// localDocumentationDirectory(), "/Users/Shared" and "/Volumes". Unless exactMatch is asked for, also whether it
    /// begins with "/usr", "/var", "/private/var" or "/System", with no regard to where a component ends ("/usrlocal"
    /// does). For root the user's directories are those of the console user.
    ///
    /// A path of less than three units other than "/" is none. A path that ends with "/" is compared without its last
    /// two units: "/Applications/" counts as "/Application", which is none.
    static bool isPathSystemDirectoryExactMatch(const std::optional<QString> &path, bool exactMatch);

    /// Whether the path lies on a mounted volume, so begins with "/Volumes/", and inside a Time Machine backup, so has
    /// a component that is exactly "Backups.backupdb".
    static bool isPathOnTimeMachineVolume(const std::optional<QString> &path);

    // Who is at the console.

    /// The name of the user logged in at the console; std::nullopt when nobody is, or while the login screen shows.
    static std::optional<QString> currentConsoleUser();
};
