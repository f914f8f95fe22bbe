// The user's settings store over QSettings.
#include "desktop/QtUserDefaults.h"

using namespace Qt::StringLiterals;

QtUserDefaults::QtUserDefaults()
    : settings(QSettings::NativeFormat, QSettings::UserScope, u"Korvale"_s, u"CrashReporter"_s)
{
    // What an administrator or another program of the organisation has stored is not this user's.
    settings.setFallbacksEnabled(false);
}

qint64 QtUserDefaults::integerForKey(const QString &key) const
{
    // The textual form, because a fraction would be rounded otherwise; what is no whole number gives 0.
    return settings.value(key).toString().toLongLong();
}

std::optional<QVariant> QtUserDefaults::objectForKey(const QString &key) const
{
    const QVariant stored = settings.value(key);
    if (!stored.isValid()) {
        return std::nullopt;
    }
    return stored;
}

void QtUserDefaults::setIntegerForKey(qint64 value, const QString &key)
{
    settings.setValue(key, value);
}

void QtUserDefaults::setObjectForKey(const QVariant &value, const QString &key)
{
    settings.setValue(key, value);
}

void QtUserDefaults::synchronize()
{
    // Replaces the file as a whole, so its former content is lost only to the new one.
    settings.sync();
}
