// The user's settings store over QSettings.
#include "desktop/application/QtUserDefaults.h"

#include "base/PathText.h"
#include "base/TextFile.h"
#include "base/Utf8.h"
#include "desktop/application/SettingsFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSettings>
#include <QTemporaryDir>
#include <QVariantMap>

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcSettings, "korvale.settings", QtFatalMsg)

namespace {

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

bool hasAValue(const QByteArray &content)
{
    return std::ranges::any_of(content.split('\n'), [](const QByteArray &line) {
        const QByteArray text = line.trimmed();
        return text.contains('=') && !text.startsWith(';') && !text.startsWith('[');
    });
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

/// Says why there is no copy, to whoever has asked for it by QT_LOGGING_RULES.
std::nullopt_t notCopied()
{
    qCInfo(lcSettings) << "no copy of the settings can be made or read among the temporary files";
    return std::nullopt;
}

/// The values of settings; std::nullopt where they cannot be read, which the toolkit takes for none.
std::optional<QVariantMap> valuesOf(const QByteArray &content)
{
    const std::unique_ptr<QTemporaryDir> folder = privateFolder();
    QFile copy(folder ? folder->filePath(u"settings"_s) : QString());
    if (!folder || !copy.open(QIODevice::WriteOnly) || copy.write(content) != content.size() || !copy.flush()) {
        return notCopied();
    }
    const QSettings reader(copy.fileName(), QSettings::IniFormat);
    const QStringList keys = reader.allKeys();
    if (keys.isEmpty() && reader.status() != QSettings::FormatError && hasAValue(content)) {
        return notCopied();
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
std::optional<QVariantMap> storedIn(SettingsFile &file)
{
    const std::optional<QByteArray> content = file.read();
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
        return notCopied();
    }
    QSettings writer(folder->filePath(u"settings"_s), QSettings::IniFormat);
    for (const auto &[key, value] : values.asKeyValueRange()) {
        writer.setValue(key, value);
    }
    writer.sync();
    std::optional<QByteArray> content = contentsOfRegularFile(writer.fileName());
    const bool isGood = content && writer.status() == QSettings::NoError && isWhole(*content, values.size());
    return isGood ? std::move(content) : notCopied();
}

/// The number, changed by as much as there is from one to another. A file may have numbers beyond all counts: it wraps.
qint64 movedBy(qint64 number, qint64 from, qint64 to)
{
    return static_cast<qint64>(static_cast<quint64>(number) + static_cast<quint64>(to) - static_cast<quint64>(from));
}

bool mayBeUsed(const QString &store, bool isRoots)
{
    const bool isRefused = isRoots && mayBeLedElsewhere(store);
    if (isRefused) {
        qCInfo(lcSettings) << store << "is not taken: from root's home on, it is not root's alone";
    }
    return !isRefused;
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
    if (!mayBeUsed(*store, isRoots)) {
        return;
    }
    if (!makeFolder(QFileInfo(*store).path())) {
        qCInfo(lcSettings) << *store << "is not written: it has no folder, and none can be made";
        return;
    }
    std::optional<SettingsFile> file = SettingsFile::at(*store);
    if (file && file->lock() && storeUnsavedIn(*file)) {
        unsaved.clear();
        known.clear();
    }
}

bool QtUserDefaults::storeUnsavedIn(SettingsFile &file) const
{
    std::optional<QVariantMap> values = storedIn(file);
    if (!values) {
        return false;
    }
    for (const auto &[key, change] : unsaved.asKeyValueRange()) {
        (*values)[key] = change.over(values->value(key));
    }
    const std::optional<QByteArray> content = contentWith(*values);
    return content && file.replace(*content);
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
    std::optional<SettingsFile> file = store && mayBeUsed(*store, isRoots) ? SettingsFile::at(*store) : std::nullopt;
    const std::optional<QVariantMap> stored = file ? storedIn(*file) : std::nullopt;
    known[key] = stored ? stored->value(key) : unsaved.value(key).replaced;
}
