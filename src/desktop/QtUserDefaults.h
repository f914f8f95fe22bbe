// The user's settings store over QSettings.
#pragma once

#include "platform/UserDefaults.h"

#include <QSettings>

class QtUserDefaults : public platform::UserDefaults
{
public:
    QtUserDefaults();

    qint64 integerForKey(const QString &key) const override;
    std::optional<QVariant> objectForKey(const QString &key) const override;
    void setIntegerForKey(qint64 value, const QString &key) override;
    void setObjectForKey(const QVariant &value, const QString &key) override;
    void synchronize() override;

private:
    QSettings settings;
};
