// The user's settings store over QSettings.
#include "desktop/application/QtUserDefaults.h"

#include "base/PathText.h"
#include "base/TextFile.h"

#include <QFileInfo>
#include <QLockFile>

#include <chrono>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// For another process that is just writing; longer than that the window must not stand still.
constexpr std::chrono::milliseconds kLongestWait(500);

const QString kOrganisation = u"Korvale"_s;
const QString kApplication = u"CrashReporter"_s;

/// The toolkit would put the settings of a user whose home is not in the environment into the root directory.
std::optional<QString> configurationFolder(const platform::LocalLookups &lookups)
{
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

/// Whether another process keeps the store from being written. The toolkit would wait for its lock for half a minute,
/// or for ever where the lock is no file, and the window with it.
bool isLocked(const QString &path)
{
    const QString lockPath = path + u".lock"_s;
    if (!canBeAStore(lockPath)) {
        return true;
    }
    QLockFile lock(lockPath);
    return !lock.tryLock(static_cast<int>(kLongestWait.count())) && lock.error() == QLockFile::LockFailedError;
}

std::unique_ptr<QSettings> openedStore(const platform::LocalLookups &lookups)
{
    const std::optional<QString> folder = configurationFolder(lookups);
    if (!folder || !canBeAStore(*folder + u'/' + kOrganisation + u'/' + kApplication + u".conf"_s)) {
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
    if (!settings || !canBeAStore(settings->fileName()) || isLocked(settings->fileName())) {
        return;
    }
    for (const auto &[key, value] : std::exchange(unsaved, {}).asKeyValueRange()) {
        settings->setValue(key, value);
    }
    // Replaces the file as a whole, so its former content is lost only to the new one.
    settings->sync();
}

QVariant QtUserDefaults::valueForKey(const QString &key) const
{
    if (const auto found = unsaved.constFind(key); found != unsaved.constEnd()) {
        return *found;
    }
    return settings ? settings->value(key) : QVariant();
}
