// The user's settings store.
#pragma once

#include "platform/Object.h"

#include <QString>
#include <QVariant>

#include <optional>

namespace platform {

class UserDefaults : public Object
{
public:
    /// The number under the key; a number stored as text counts as that number. 0 when there is none, also when
    /// something is stored there that is not a whole number of 64 bits.
    virtual qint64 integerForKey(const QString &key) const = 0;
    /// What is stored under the key, in the type it was stored with, or std::nullopt.
    virtual std::optional<QVariant> objectForKey(const QString &key) const = 0;
    virtual void setIntegerForKey(qint64 value, const QString &key) = 0;
    virtual void setObjectForKey(const QVariant &value, const QString &key) = 0;
    /// Makes what was set durable, so that it survives the process ending at once. A store that cannot be written
    /// keeps its former content whole and is no error for the caller.
    virtual void synchronize() = 0;
};

} // namespace platform
