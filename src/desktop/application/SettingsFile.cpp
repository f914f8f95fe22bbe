// The file that the settings are in.
#include "desktop/application/SettingsFile.h"

#include "base/HeldFile.h"
#include "base/TextFile.h"
#include "platform/LocalLookups.h"

#include <QFile>
#include <QLoggingCategory>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#ifdef Q_OS_LINUX
#include <sys/xattr.h>
#endif
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>

Q_DECLARE_LOGGING_CATEGORY(lcSettings)

namespace {

/// For another process that is just writing, which takes some milliseconds, or that holds a lease on the file. The
/// window stands still for as long at each of three readings, and for at most twice as long until the lock is there.
constexpr std::chrono::milliseconds kMaxWait(250);

/// Bytes of the settings, which are two values of this program's. The toolkit reads a list in a list by calling itself:
/// what is in so few bytes the stack has room for.
constexpr qsizetype kLongestContent = qsizetype(64) * 1024;

#ifdef Q_OS_LINUX
constexpr int kFolder = O_PATH | O_DIRECTORY | O_CLOEXEC;
constexpr int kItself = O_PATH | O_NOFOLLOW | O_CLOEXEC; // be it a link
#else
constexpr int kFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr int kItself = O_RDONLY | O_SYMLINK | O_NONBLOCK | O_CLOEXEC;
#endif

/// Says why something is not done with the settings, to whoever has asked for it by QT_LOGGING_RULES.
void say(const std::filesystem::path &path, const char *what, const char *reason)
{
    qCInfo(lcSettings) << QFile::decodeName(path.c_str()) << what << reason;
}

std::nullopt_t notTaken(const std::filesystem::path &path, const char *reason)
{
    say(path, "is not taken:", reason);
    return std::nullopt;
}

bool notReplaced(const std::filesystem::path &path, const char *reason)
{
    say(path, "is not replaced:", reason);
    return false;
}

bool isOfTrust(const struct stat &link)
{
    return link.st_uid == ::geteuid() || link.st_uid == platform::kRootUserId;
}

/// What the link that is open leads to; std::nullopt, with errno, where it cannot be read.
std::optional<std::filesystem::path> targetOf(const FileDescriptor &link)
{
    std::array<char, PATH_MAX> target = {};
#ifdef Q_OS_LINUX
    const ssize_t length = ::readlinkat(link.get(), "", target.data(), target.size());
#else
    const ssize_t length = ::freadlink(link.get(), target.data(), target.size());
#endif
    if (length < 0) {
        return std::nullopt;
    }
    return std::string(target.data(), static_cast<size_t>(length));
}

#ifdef Q_OS_LINUX
/// Whether an access control list may say more of the file than its mode does, in which the group's rights are then
/// what the list leaves to others at most (acl(5)). A file system of a server has lists under a name of its own.
bool mayHaveAccessControlList(const FileDescriptor &file)
{
    return std::ranges::any_of(
        std::array{"system.posix_acl_access", "system.nfs4_acl", "system.cifs_acl"}, [&](const char *list) {
            return ::fgetxattr(file.get(), list, nullptr, 0) >= 0 || (errno != ENODATA && errno != ENOTSUP);
        });
}
#else
bool mayHaveAccessControlList(const FileDescriptor &)
{
    return false;
}
#endif

/// Gives the new file the group and the rights of the one that it replaces. Where there is none, or they cannot be told
/// or given, or there is more to them than the mode, it stays the user's alone.
void keepRights(const FileDescriptor &former, const FileDescriptor &fresh)
{
    constexpr mode_t kRights = S_IRWXU | S_IRWXG | S_IRWXO;
    struct stat status = {};
    if (!mayHaveAccessControlList(former) && !mayHaveAccessControlList(fresh) && ::fstat(former.get(), &status) == 0
        && ::fchown(fresh.get(), static_cast<uid_t>(-1), status.st_gid) == 0) {
        ::fchmod(fresh.get(), status.st_mode & kRights);
    }
}

bool writeWhole(const FileDescriptor &file, const QByteArray &content)
{
    QFile opened;
    return opened.open(file.get(), QIODevice::WriteOnly | QIODevice::Unbuffered)
        && opened.write(content) == content.size();
}

} // namespace

SettingsFile::SettingsFile(FileDescriptor opened, std::filesystem::path place)
    : folder(std::move(opened))
    , path(std::move(place))
    , name(QByteArray::fromStdString(path.filename()))
{
}

std::optional<SettingsFile> SettingsFile::at(const QString &path)
{
    constexpr int kMaxLinks = 40; // as the system has it (path_resolution(7))
    std::filesystem::path place = QFile::encodeName(path).toStdString();
    std::filesystem::path leadsTo = place; // from the folder of the last link
    FileDescriptor from;
    for (int links = 0; links <= kMaxLinks; ++links) {
        const std::filesystem::path parent = leadsTo.has_parent_path() ? leadsTo.parent_path() : ".";
        FileDescriptor folder(::openat(from.isOpen() ? from.get() : AT_FDCWD, parent.c_str(), kFolder));
        if (!folder.isOpen() && errno == ENOENT && links == 0) {
            return std::nullopt; // so it is before anything is kept
        }
        const std::string name = leadsTo.filename();
        if (!folder.isOpen() || name.empty()) {
            return notTaken(place, folder.isOpen() ? "it names no file" : std::strerror(errno));
        }
        const FileDescriptor found(::openat(folder.get(), name.c_str(), kItself));
        struct stat status = {};
        const bool isAbsent = !found.isOpen() && errno == ENOENT;
        if (!isAbsent && (!found.isOpen() || ::fstat(found.get(), &status) != 0)) {
            return notTaken(place, std::strerror(errno));
        }
        if (isAbsent || S_ISREG(status.st_mode)) {
            return SettingsFile(std::move(folder), place);
        }
        if (!S_ISLNK(status.st_mode)) {
            return notTaken(place, "it is not a regular file");
        }
        if (!isOfTrust(status)) {
            return notTaken(place, "it is a link of another user's");
        }
        const std::optional<std::filesystem::path> target = targetOf(found);
        if (!target) {
            return notTaken(place, std::strerror(errno));
        }
        leadsTo = *target;
        place.replace_filename(leadsTo);
        from = std::move(folder);
    }
    return notTaken(place, std::strerror(ELOOP));
}

bool SettingsFile::lock()
{
    locked = FileDescriptor(::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const bool isDone = locked.isOpen()
        && onceItIsLetGo(2 * kMaxWait, [this] { return ::flock(locked.get(), LOCK_EX | LOCK_NB); }) == 0;
    if (!isDone) {
        say(path, "has a folder that is not locked:", std::strerror(errno));
    }
    return isDone;
}

std::optional<QByteArray> SettingsFile::read()
{
    constexpr int kForReading = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
    FileDescriptor opened(
        onceItIsLetGo(kMaxWait, [this] { return ::openat(folder.get(), name.constData(), kForReading); }));
    if (!opened.isOpen()) {
        return errno == ENOENT ? std::make_optional<QByteArray>() : notTaken(path, std::strerror(errno));
    }
    former = std::move(opened);
    ::fstat(former.get(), &formerStatus); // Where that fails, it is not what is there at last.
    std::optional<QByteArray> content = contentsOfRegularFile(former, QFile::decodeName(path.c_str()), kLongestContent);
    return content ? std::move(content) : notTaken(path, "it cannot be read as a whole, or has more than 64 KiB");
}

bool SettingsFile::replace(const QByteArray &content) const
{
    // What lies there is removed, and where a link leads, a user's own files lie as well: it is a name that nobody else
    // chooses. What a killed process has left there is cleared away.
    const QByteArray fresh = name + ".korvale-new";
    ::unlinkat(folder.get(), fresh.constData(), 0);
    const bool isReplaced = moveIntoPlace(fresh, content);
    if (!isReplaced) {
        ::unlinkat(folder.get(), fresh.constData(), 0);
    }
    return isReplaced;
}

bool SettingsFile::moveIntoPlace(const QByteArray &fresh, const QByteArray &content) const
{
    constexpr int kNew = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    if (content.size() > kLongestContent) {
        return notReplaced(path, std::strerror(EFBIG));
    }
    if (former.isOpen() && ::faccessat(folder.get(), name.constData(), W_OK, 0) != 0) {
        return notReplaced(path, std::strerror(errno));
    }
    const FileDescriptor file(::openat(folder.get(), fresh.constData(), kNew, S_IRUSR | S_IWUSR));
    if (!file.isOpen() || !writeWhole(file, content)) {
        return notReplaced(path, std::strerror(errno));
    }
    if (former.isOpen()) {
        keepRights(former, file);
    }
    if (::fsync(file.get()) != 0) {
        return notReplaced(path, std::strerror(errno));
    }
    if (!isAsItWasRead()) {
        return notReplaced(path, "it has changed since it was read");
    }
    return ::renameat(folder.get(), fresh.constData(), folder.get(), name.constData()) == 0
        || notReplaced(path, std::strerror(errno));
}

bool SettingsFile::isAsItWasRead() const
{
    struct stat status = {};
    if (::fstatat(folder.get(), name.constData(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT && !former.isOpen();
    }
    return former.isOpen() && status.st_dev == formerStatus.st_dev && status.st_ino == formerStatus.st_ino
        && status.st_size == formerStatus.st_size && status.st_ctime == formerStatus.st_ctime;
}
