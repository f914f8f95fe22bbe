// The user's settings store over QSettings.
#include "desktop/application/QtUserDefaults.h"

#include "base/PathText.h"
#include "base/TextFile.h"

#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QLoggingCategory>

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
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
    return !fileExists(path) || QFileInfo(path).isFile();
}

/// Whether a user other than root has put a link where root's settings lie: it would lead root's writing anywhere.
bool isLedAstray(const QString &folder)
{
    const QString ours = folder + u'/' + kOrganisation;
    const QStringList places = {folder, ours, ours + u'/' + kApplication + u".conf"_s};
    return std::ranges::any_of(places, [](const QString &place) {
        struct stat status = {};
        return ::lstat(QFile::encodeName(place).constData(), &status) == 0 && S_ISLNK(status.st_mode)
            && status.st_uid != platform::kRootUserId;
    });
}

/// Whether another process keeps the store from being written. The toolkit would wait for its lock up to 30 seconds, or
/// forever if the lock is not a regular file, blocking the window. Best effort: another process may take the lock right
/// behind this look at it.
bool isLocked(const QString &path)
{
    const QString lockPath = path + u".lock"_s;
    if (!canBeAStore(lockPath)) {
        return true;
    }
    QLockFile lock(lockPath);
    // A process that was killed before it had written its ID into the lock leaves one that looks alive but for its age.
    // A lock counts as left behind at this age; its holder's own lock on the file (flock(2)) keeps it from being
    // removed while the holder lives.
    lock.setStaleLockTime(static_cast<int>(kMaxWait.count()));
    return !lock.tryLock(static_cast<int>(2 * kMaxWait.count())) && lock.error() == QLockFile::LockFailedError;
}

std::unique_ptr<QSettings> openedStore(const platform::LocalLookups &lookups)
{
    const std::optional<QString> folder = configurationFolder(lookups);
    if (!folder || !canBeAStore(*folder + u'/' + kOrganisation + u'/' + kApplication + u".conf"_s)) {
        return nullptr;
    }
    if (isRoot(lookups) && isLedAstray(*folder)) {
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
    // Not before this is sure: the toolkit would write what it has been given from the event loop, and at its end.
    if (!settings) {
        qCInfo(lcSettings) << "nothing is kept: there is no folder for the settings, or no regular file";
        return;
    }
    if (!canBeAStore(settings->fileName()) || isLocked(settings->fileName())) {
        qCInfo(lcSettings) << settings->fileName() << "is not written: it or its lock is no regular file, or is locked";
        return;
    }
    for (const auto &[key, value] : std::exchange(unsaved, {}).asKeyValueRange()) {
        settings->setValue(key, value);
    }
    // Replaces the file as a whole, so its former content is lost only to the new one.
    settings->sync();
    if (settings->status() != QSettings::NoError) {
        qCInfo(lcSettings) << settings->fileName() << "is not written:" << settings->status();
    }
}

QVariant QtUserDefaults::valueForKey(const QString &key) const
{
    if (const auto found = unsaved.constFind(key); found != unsaved.constEnd()) {
        return *found;
    }
    if (!settings || !canBeAStore(settings->fileName())) {
        return {};
    }
    // Another window may have submitted since: what counts is what is stored now. Where this one could not write, it
    // goes on with what it has counted; the toolkit would try to write again here, and wait for locks.
    if (settings->status() != QSettings::AccessError) {
        settings->sync();
    }
    return settings->value(key);
}
