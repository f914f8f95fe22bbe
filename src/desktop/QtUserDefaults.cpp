// The user's settings store over QSettings.
#include "desktop/QtUserDefaults.h"

#include "PathText.h"
#include "TextFile.h"
#include "platform/LocalLookups.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

const QString kOrganisation = u"Korvale"_s;
const QString kApplication = u"CrashReporter"_s;

/// The toolkit would put the settings of a user whose home is not in the environment into the root directory.
std::optional<QString> configurationFolder()
{
    const QString configured = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (configured.startsWith(u'/')) {
        return configured;
    }
    return byAppendingPathComponent(platform::LocalLookups::current().homeDirectory(), u".config"_s);
}

/// Whether writing to the path replaces nothing but settings: the toolkit writes a new file in the place of what a link
/// leads to, be it a device.
bool canBeAStore(const QString &path)
{
    return !fileExists(path) || QFileInfo(path).isFile();
}

std::unique_ptr<QSettings> openedStore()
{
    const std::optional<QString> folder = configurationFolder();
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

QtUserDefaults::QtUserDefaults()
    : settings(openedStore())
{
}

qint64 QtUserDefaults::integerForKey(const QString &key) const
{
    // The textual form, because a fraction would be rounded otherwise; what is no whole number gives 0.
    return stored(key).toString().toLongLong();
}

std::optional<QVariant> QtUserDefaults::objectForKey(const QString &key) const
{
    const QVariant value = stored(key);
    if (!value.isValid()) {
        return std::nullopt;
    }
    return value;
}

void QtUserDefaults::setIntegerForKey(qint64 value, const QString &key)
{
    store(value, key);
}

void QtUserDefaults::setObjectForKey(const QVariant &value, const QString &key)
{
    store(value, key);
}

void QtUserDefaults::synchronize()
{
    if (settings && canBeAStore(settings->fileName())) {
        // Replaces the file as a whole, so its former content is lost only to the new one.
        settings->sync();
    }
}

QVariant QtUserDefaults::stored(const QString &key) const
{
    return settings ? settings->value(key) : QVariant();
}

void QtUserDefaults::store(const QVariant &value, const QString &key)
{
    if (settings) {
        settings->setValue(key, value);
    }
}
