// The user's settings store over QSettings.
#include "desktop/application/QtUserDefaults.h"

#include "base/PathText.h"
#include "base/TextFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QLoggingCategory>

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcSettings, "korvale.settings", QtFatalMsg)

namespace {

/// For another process that is just writing, which takes some milliseconds. The window stands still for at most twice
/// as long.
constexpr std::chrono::milliseconds kMaxWait(250);

const QString kOrganisation = u"Korvale"_s;
const QString kApplication = u"CrashReporter"_s;

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
    const QString configured = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (configured.startsWith(u'/')) {
        return configured;
    }
    return byAppendingPathComponent(lookups.homeDirectory(), u".config"_s);
}

/// Whether writing to the path replaces nothing but settings: the toolkit writes a new file in the place of what a link
/// leads to, be it a device.
bool canBeAStore(const QString &path)
{
    const QFileInfo info(path);
    return !info.exists() || info.isFile();
}

/// Whether anything is another user's where root's settings lie: a link would lead root's writing anywhere, and in a
/// folder that user may put one at any time.
bool isPartlyForeign(const QString &folder)
{
    const QString ours = folder + u'/' + kOrganisation;
    const QStringList places = {folder, ours, ours + u'/' + kApplication + u".conf"_s};
    return std::ranges::any_of(places, [](const QString &place) {
        struct stat status = {};
        return ::lstat(QFile::encodeName(place).constData(), &status) == 0 && status.st_uid != platform::kRootUserId;
    });
}

/// Keeps other processes from writing the store, for as long as the lock lives; nothing where they cannot be kept from
/// it. The toolkit by itself would wait for its lock up to 30 seconds, or forever if the lock is not a regular file.
std::unique_ptr<QLockFile> lockOf(const QString &store)
{
    const QString path = store + u".lock"_s;
    if (!canBeAStore(path) || !QDir().mkpath(QFileInfo(store).path())) {
        return nullptr;
    }
    auto lock = std::make_unique<QLockFile>(path);
    // A process that was killed before it had written its ID into the lock leaves one that looks alive but for its age.
    // A lock counts as left behind at this age; its holder's own lock on the file (flock(2)) keeps it from being
    // removed while the holder lives.
    lock->setStaleLockTime(static_cast<int>(kMaxWait.count()));
    return lock->tryLock(static_cast<int>(2 * kMaxWait.count())) ? std::move(lock) : nullptr;
}

/// The file that a store of this name is: what a link leads to, so that the link stays.
QString linkTarget(const QString &store)
{
    const QFileInfo info(store);
    if (info.exists()) {
        return info.canonicalFilePath();
    }
    return info.isSymLink() ? info.symLinkTarget() : store;
}

/// Clears away what a killed process has left; false where anything stays.
bool isFree(const QString &path)
{
    QFile::remove(path);
    return !QFileInfo::exists(path);
}

/// Whether the file has a line for each of so many values, and the last line its end.
bool isWhole(const QString &path, qsizetype valueCount)
{
    const QByteArray content = contentsOfRegularFile(path).value_or(QByteArray());
    const QList<QByteArray> lines = content.split('\n');
    const auto isValue = [](const QByteArray &line) { return !line.isEmpty() && !line.startsWith('['); };
    return content.endsWith('\n') && std::ranges::count_if(lines, isValue) == valueCount;
}

/// Puts a file with these values in the place of the store's. It is written beside it and looked at first: the toolkit
/// takes a file whose last bytes could not be written, on a full disk, for a good one.
bool replaceStore(const QString &store, const QVariantMap &values)
{
    const QString file = linkTarget(store);
    const QString fresh = file + u".new"_s;
    if (!isFree(fresh) || !isFree(fresh + u".lock"_s) || (QFileInfo::exists(file) && !QFileInfo(file).isWritable())) {
        return false;
    }
    QSettings writer(fresh, QSettings::IniFormat);
    for (const auto &[key, value] : values.asKeyValueRange()) {
        writer.setValue(key, value);
    }
    writer.sync();
    if (writer.status() != QSettings::NoError || !isWhole(fresh, values.size())) {
        QFile::remove(fresh);
        return false;
    }
    if (QFileInfo::exists(file)) {
        QFile::setPermissions(fresh, QFile::permissions(file));
    }
    return std::rename(QFile::encodeName(fresh).constData(), QFile::encodeName(file).constData()) == 0;
}

std::unique_ptr<QSettings> openedStore(const platform::LocalLookups &lookups)
{
    const std::optional<QString> folder = configurationFolder(lookups);
    if (!folder || !canBeAStore(*folder + u'/' + kOrganisation + u'/' + kApplication + u".conf"_s)) {
        return nullptr;
    }
    if (isRoot(lookups) && isPartlyForeign(*folder)) {
        return nullptr;
    }
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, *folder);
    auto settings =
        std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope, kOrganisation, kApplication);
    // What an administrator or another program of the organisation has stored is not this user's.
    settings->setFallbacksEnabled(false);
    return settings;
}

} // namespace

QtUserDefaults::QtUserDefaults(const platform::LocalLookups &lookups)
    : settings(openedStore(lookups))
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
    unsaved[key] = value;
}

void QtUserDefaults::setObjectForKey(const QVariant &value, const QString &key)
{
    unsaved[key] = value;
}

void QtUserDefaults::synchronize()
{
    if (!settings) {
        qCInfo(lcSettings) << "nothing is kept: there is no folder for the settings, or no regular file";
        return;
    }
    const QString store = settings->fileName();
    const std::unique_ptr<QLockFile> lock = canBeAStore(store) ? lockOf(store) : nullptr;
    if (!lock) {
        qCInfo(lcSettings) << store << "is not written: it or its lock is no regular file, or is locked";
        return;
    }
    settings->sync();
    QVariantMap values = unsaved;
    const QStringList keys = settings->allKeys();
    for (const QString &key : keys) {
        if (!values.contains(key)) {
            values[key] = settings->value(key);
        }
    }
    if (!replaceStore(store, values)) {
        qCInfo(lcSettings) << store << "cannot be replaced";
        return;
    }
    unsaved.clear();
}

QVariant QtUserDefaults::valueForKey(const QString &key) const
{
    if (const auto found = unsaved.constFind(key); found != unsaved.constEnd()) {
        return *found;
    }
    if (!settings || !canBeAStore(settings->fileName())) {
        return {};
    }
    // Another window may have submitted since: what counts is what is stored now.
    settings->sync();
    return settings->value(key);
}
