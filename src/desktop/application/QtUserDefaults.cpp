// The user's settings store over QSettings.
#include "desktop/application/QtUserDefaults.h"

#include "base/FileDescriptor.h"
#include "base/PathText.h"
#include "base/TextFile.h"
#include "base/Utf8.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSettings>
#include <QTemporaryDir>
#include <QVariantMap>

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
#include <filesystem>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcSettings, "korvale.settings", QtFatalMsg)

namespace {

/// For another process that is just writing, which takes some milliseconds, or that holds a lease on the store. The
/// window stands still for as long at each of three readings, and for at most twice as long until the lock is there.
constexpr std::chrono::milliseconds kMaxWait(250);

/// Bytes of the settings, which are two values of this program's. The toolkit reads a list in a list by calling itself:
/// what is in so few bytes the stack has room for.
constexpr qsizetype kLongestStore = qsizetype(64) * 1024;

const QString kStore = u"/Korvale/CrashReporter.conf"_s;

bool isRoot(const platform::LocalLookups &lookups)
{
    return lookups.realUserId() == platform::kRootUserId;
}

/// The toolkit would put the settings of a user whose home is not in the environment into the root directory. Root's
/// are where its account says, whatever environment root's rights were gained with.
std::optional<QString> configurationFolder(const platform::LocalLookups &lookups)
{
    if (isRoot(lookups)) {
        return byAppendingPathComponent(lookups.homeDirectoryForUser(lookups.userName()), u".config"_s);
    }
    // A path that is no text names no folder: with other characters in the place of its bytes it would name another.
    const std::optional<QString> configured = textFromUtf8(qgetenv("XDG_CONFIG_HOME"));
    if (configured && configured->startsWith(u'/')) {
        return *configured;
    }
    return byAppendingPathComponent(lookups.homeDirectory(), u".config"_s);
}

/// Whether nobody but root decides what lies there and what it leads to.
bool isRootsAlone(const struct stat &status)
{
    const bool isShared = S_ISDIR(status.st_mode) && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    return status.st_uid == platform::kRootUserId && !S_ISLNK(status.st_mode) && !isShared;
}

/// Whether a user may lead root to another file than the store: by a link, or where that user may put one at any time.
/// What is not there yet, root makes. Only the home itself, which the account names, may be a link.
bool mayBeLedElsewhere(const QString &store)
{
    const QString ours = QFileInfo(store).path();
    const QString configuration = QFileInfo(ours).path();
    struct stat home = {};
    if (::stat(QFile::encodeName(QFileInfo(configuration).path()).constData(), &home) != 0 || !isRootsAlone(home)) {
        return true;
    }
    return std::ranges::any_of(std::array{configuration, ours, store}, [](const QString &place) {
        struct stat status = {};
        return ::lstat(QFile::encodeName(place).constData(), &status) == 0 ? !isRootsAlone(status) : errno != ENOENT;
    });
}

/// For the user alone, whatever the mask, as the XDG Base Directory Specification asks for. Of a path with a name
/// that is too long for the system, or that leaves no room for a file's, nothing is made.
bool makeFolder(const QString &path)
{
    constexpr qsizetype kLongestName = 32; // in bytes, with the separator and the NUL: of the new file
    const QByteArray whole = QFile::encodeName(path);
    if (whole.size() + kLongestName > PATH_MAX) {
        return false;
    }
    const std::filesystem::path names = whole.toStdString();
    if (std::ranges::any_of(names, [](const auto &name) { return name.native().size() > NAME_MAX; })) {
        return false;
    }
    std::filesystem::path folder;
    for (const std::filesystem::path &name : names) {
        folder /= name;
        // What is there already, maybe made by another process just now, does no harm.
        ::mkdir(folder.c_str(), S_IRWXU);
    }
    return QFileInfo(path).isDir();
}

/// The bytes of the regular file, no more than settings have; what holds a lease on it has less time to let go than for
/// a report.
std::optional<QByteArray> bytesOf(const QString &path)
{
    return contentsOfRegularFile(path, kLongestStore, kMaxWait);
}

/// Opens the folder and keeps other processes of this program from writing the store in it until it is closed. Where it
/// cannot be kept locked, gives -1. The lock is the folder's own (flock(2)): there is no file to be left behind by a
/// process that is killed, or to be something else.
int lockFolder(const QString &path)
{
    constexpr std::chrono::milliseconds kInterval(10);
    const int folder = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (auto triesLeft = 2 * kMaxWait / kInterval; folder >= 0 && ::flock(folder, LOCK_EX | LOCK_NB) != 0;
         --triesLeft) {
        if (errno != EWOULDBLOCK || triesLeft == 0) {
            ::close(folder);
            return -1;
        }
        std::this_thread::sleep_for(kInterval);
    }
    return folder;
}

/// Whether a link is the user's own or root's. Whoever else may write its folder might lead to any file of the user's,
/// and still can by swapping links between this look and what follows.
bool isOfTrust(const std::filesystem::path &link)
{
    struct stat status = {};
    return ::lstat(link.c_str(), &status) == 0
        && (status.st_uid == ::geteuid() || status.st_uid == platform::kRootUserId);
}

/// The file that a store of this name is: what a link leads to at last, there or not, so that every link stays.
/// std::nullopt where links lead in a circle, or to a name that is not UTF-8, or one cannot be read or is another
/// user's, or where there is no folder for it.
std::optional<QString> linkTarget(const QString &store)
{
    constexpr int kMaxLinks = 40; // as the system has it (path_resolution(7))
    std::filesystem::path file = QFile::encodeName(store).toStdString();
    for (int links = 0; links <= kMaxLinks; ++links) {
        // The toolkit takes ".." out of a path as if no folder before it were a link.
        std::error_code error;
        file = std::filesystem::canonical(file.parent_path(), error) / file.filename();
        if (error) {
            return std::nullopt;
        }
        const std::filesystem::file_type type = std::filesystem::symlink_status(file, error).type();
        if (type != std::filesystem::file_type::symlink) {
            return type == std::filesystem::file_type::none ? std::nullopt : textFromUtf8(file.native());
        }
        const bool isFollowed = isOfTrust(file);
        file = file.parent_path() / std::filesystem::read_symlink(file, error);
        if (error || !isFollowed) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

/// The path at which a file is made that comes in the place of this one. What lies there is removed, and where a link
/// leads, a user's own files lie as well: it is a name that nobody else chooses.
QString freshOf(const QString &file)
{
    return file + u".korvale-new"_s;
}

/// Makes it, open and for the user alone from the beginning; false where anything is there, or not all of the content
/// could be written.
bool makeFile(QFile &file, const QByteArray &content)
{
    return file.open(QIODevice::NewOnly, QFile::ReadOwner | QFile::WriteOwner) && file.write(content) == content.size()
        && file.flush();
}

bool hasAValue(const QByteArray &content)
{
    return std::ranges::any_of(content.split('\n'), [](const QByteArray &line) {
        const QByteArray text = line.trimmed();
        return text.contains('=') && !text.startsWith(';') && !text.startsWith('[');
    });
}

/// The content of the file, which has none while it is not there; std::nullopt where it cannot be read whole, or that
/// is not known.
std::optional<QByteArray> contentOf(const QString &file)
{
    std::optional<QByteArray> content = bytesOf(file);
    std::error_code error;
    const bool isAbsent = std::filesystem::status(QFile::encodeName(file).toStdString(), error).type()
        == std::filesystem::file_type::not_found;
    return content || !isAbsent ? std::move(content) : QByteArray();
}

/// A folder that no other process has to do with, for the toolkit: it would wait for a lock beside what it writes, and
/// for a lease on what it reads, or a FIFO in its place. Nothing where there is no room for temporary files.
std::unique_ptr<QTemporaryDir> privateFolder()
{
    const QString place = QDir::tempPath();
    // A TMPDIR that is not there gives an empty path, for which the toolkit would take the root directory.
    auto folder = place.isEmpty() ? nullptr : std::make_unique<QTemporaryDir>(place + u"/korvale-settings-XXXXXX"_s);
    return folder && folder->isValid() ? std::move(folder) : nullptr;
}

/// The values of settings; std::nullopt where they cannot be read, which the toolkit takes for none.
std::optional<QVariantMap> valuesOf(const QByteArray &content)
{
    const std::unique_ptr<QTemporaryDir> folder = privateFolder();
    QFile copy(folder ? folder->filePath(u"settings"_s) : QString());
    if (!folder || !makeFile(copy, content)) {
        return std::nullopt;
    }
    const QSettings reader(copy.fileName(), QSettings::IniFormat);
    const QStringList keys = reader.allKeys();
    if (keys.isEmpty() && reader.status() != QSettings::FormatError && hasAValue(content)) {
        return std::nullopt;
    }
    QVariantMap values;
    for (const QString &key : keys) {
        // The toolkit reads a value of which a part of the name is empty, and writes it as that of another name.
        if (!key.split(u'/').contains(QString())) {
            values[key] = reader.value(key);
        }
    }
    return values;
}

/// What the file has; std::nullopt where it cannot be read whole.
std::optional<QVariantMap> storedIn(const QString &file)
{
    const std::optional<QByteArray> content = contentOf(file);
    return content ? valuesOf(*content) : std::nullopt;
}

/// Whether there is a line for each of so many values, and the last line has its end.
bool isWhole(const QByteArray &content, qsizetype valueCount)
{
    const QList<QByteArray> lines = content.split('\n');
    const auto isValue = [](const QByteArray &line) { return !line.isEmpty() && !line.startsWith('['); };
    return content.endsWith('\n') && std::ranges::count_if(lines, isValue) == valueCount;
}

/// The settings that have these values, unless the next run could not read them. What the toolkit writes is looked at:
/// it takes a file whose last bytes could not be written, on a full disk, for a good one.
std::optional<QByteArray> contentWith(const QVariantMap &values)
{
    const std::unique_ptr<QTemporaryDir> folder = privateFolder();
    if (!folder) {
        return std::nullopt;
    }
    QSettings writer(folder->filePath(u"settings"_s), QSettings::IniFormat);
    for (const auto &[key, value] : values.asKeyValueRange()) {
        writer.setValue(key, value);
    }
    writer.sync();
    std::optional<QByteArray> content = bytesOf(writer.fileName());
    const bool isGood = content && writer.status() == QSettings::NoError && isWhole(*content, values.size());
    return isGood ? std::move(content) : std::nullopt;
}

#ifdef Q_OS_LINUX
ssize_t sizeOfAttribute(const QByteArray &path, const char *name)
{
    return ::getxattr(path.constData(), name, nullptr, 0);
}

ssize_t sizeOfAttribute(int file, const char *name)
{
    return ::fgetxattr(file, name, nullptr, 0);
}
#endif

/// Whether an access control list may say more of the file, which is a path or open, than its mode does, in which the
/// group's rights are then what the list leaves to others at most (acl(5)). A file system of a server has lists under a
/// name of its own.
template<typename File>
bool mayHaveAccessControlList([[maybe_unused]] const File &file)
{
#ifdef Q_OS_LINUX
    return std::ranges::any_of(
        std::array{"system.posix_acl_access", "system.nfs4_acl", "system.cifs_acl"},
        [&](const char *list) { return sizeOfAttribute(file, list) >= 0 || (errno != ENODATA && errno != ENOTSUP); });
#else
    return false;
#endif
}

/// Gives the new file, which is open, the group and the rights of the one that it replaces. Where there is none, or
/// they cannot be told or given, or there is more to them than the mode, it stays the user's alone. What another user
/// may have put at its path meanwhile gets none.
void keepRights(const QByteArray &replaced, int fresh)
{
    constexpr mode_t kRights = S_IRWXU | S_IRWXG | S_IRWXO;
    struct stat status = {};
    if (!mayHaveAccessControlList(replaced) && !mayHaveAccessControlList(fresh)
        && ::stat(replaced.constData(), &status) == 0 && ::fchown(fresh, static_cast<uid_t>(-1), status.st_gid) == 0) {
        ::fchmod(fresh, status.st_mode & kRights);
    }
}

/// Puts a file with this content in the place of this one. It is written beside it, and is on the disk first; what a
/// killed process has left there is cleared away.
bool replaceFile(const QString &file, const QByteArray &content)
{
    QFile fresh(freshOf(file));
    fresh.remove();
    if ((QFileInfo::exists(file) && !QFileInfo(file).isWritable()) || !makeFile(fresh, content)) {
        return false;
    }
    const QByteArray path = QFile::encodeName(file);
    keepRights(path, fresh.handle());
    return ::fsync(fresh.handle()) == 0
        && std::rename(QFile::encodeName(fresh.fileName()).constData(), path.constData()) == 0;
}

/// The number, changed by as much as there is from one to another. A file may have numbers beyond all counts: it wraps.
qint64 movedBy(qint64 number, qint64 from, qint64 to)
{
    return static_cast<qint64>(static_cast<quint64>(number) + static_cast<quint64>(to) - static_cast<quint64>(from));
}

bool mayBeUsed(const QString &store, bool isRoots)
{
    return !isRoots || !mayBeLedElsewhere(store);
}

/// By its path: asked for by the program's name, the toolkit would open what an administrator or another program of the
/// organisation has stored, and wait for it where it is a FIFO.
std::optional<QString> storeOf(const platform::LocalLookups &lookups)
{
    const std::optional<QString> folder = configurationFolder(lookups);
    return folder ? std::make_optional(*folder + kStore) : std::nullopt;
}

} // namespace

QtUserDefaults::QtUserDefaults(const platform::LocalLookups &lookups)
    : isRoots(isRoot(lookups))
    , store(storeOf(lookups))
{
}

qint64 QtUserDefaults::integerForKey(const QString &key) const
{
    // The textual form, because a fraction would be rounded otherwise; what is no whole number gives 0.
    return valueForKey(key).toString().toLongLong();
}

std::optional<QVariant> QtUserDefaults::objectForKey(const QString &key) const
{
    const QVariant value = valueForKey(key);
    if (!value.isValid()) {
        return std::nullopt;
    }
    return value;
}

void QtUserDefaults::setIntegerForKey(qint64 value, const QString &key)
{
    setObjectForKey(value, key);
}

void QtUserDefaults::setObjectForKey(const QVariant &value, const QString &key)
{
    if (!known.contains(key)) {
        readStored(key);
    }
    unsaved[key] = {.value = value, .replaced = known[key]};
}

void QtUserDefaults::synchronize()
{
    if (!store) {
        qCInfo(lcSettings) << "nothing is kept: there is no folder for the settings";
        return;
    }
    const bool canBeThere = mayBeUsed(*store, isRoots) && makeFolder(QFileInfo(*store).path());
    const std::optional<QString> file = canBeThere ? linkTarget(*store) : std::nullopt;
    const FileDescriptor lock(file ? lockFolder(QFileInfo(*file).path()) : -1);
    if (!lock.isOpen() || !storeUnsavedIn(*file)) {
        qCInfo(lcSettings) << *store << "is not written: it cannot be read or replaced, or its folder not be locked";
        return;
    }
    unsaved.clear();
    known.clear();
}

bool QtUserDefaults::storeUnsavedIn(const QString &file) const
{
    std::optional<QVariantMap> values = storedIn(file);
    if (values) {
        for (const auto &[key, change] : unsaved.asKeyValueRange()) {
            (*values)[key] = change.over(values->value(key));
        }
    }
    const std::optional<QByteArray> content = values ? contentWith(*values) : std::nullopt;
    if (content && replaceFile(file, *content)) {
        return true;
    }
    QFile::remove(freshOf(file));
    return false;
}

QVariant QtUserDefaults::Change::over(const QVariant &stored) const
{
    if (stored == replaced) {
        return value;
    }
    switch (value.typeId()) {
    case QMetaType::LongLong:
        return movedBy(stored.toLongLong(), replaced.toLongLong(), value.toLongLong());
    case QMetaType::QDateTime:
        return std::max(value.toDateTime(), stored.toDateTime());
    default:
        return stored;
    }
}

QVariant QtUserDefaults::valueForKey(const QString &key) const
{
    readStored(key);
    const auto change = unsaved.constFind(key);
    return change == unsaved.cend() ? known[key] : change->over(known[key]);
}

void QtUserDefaults::readStored(const QString &key) const
{
    // Another window may have submitted since: what counts is what is stored now.
    const std::optional<QString> file = store && mayBeUsed(*store, isRoots) ? linkTarget(*store) : std::nullopt;
    const std::optional<QVariantMap> stored = file ? storedIn(*file) : std::nullopt;
    known[key] = stored ? stored->value(key) : unsaved.value(key).replaced;
}
