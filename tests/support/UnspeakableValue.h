// Form values whose textual form cannot be had.
#pragma once

#include "platform/PlatformException.h"

#include <QVariant>

#include <stdexcept>

struct Unspeakable {
};
Q_DECLARE_METATYPE(Unspeakable)

struct OtherwiseUnspeakable {
};
Q_DECLARE_METATYPE(OtherwiseUnspeakable)

/// Asking the value for its text raises the platform's exception.
inline QVariant unspeakableValue()
{
    [[maybe_unused]] static const bool registered =
        QMetaType::registerConverter<Unspeakable, QString>([](const Unspeakable &) -> QString {
            throw platform::PlatformException(QStringLiteral("TestFailure"), QStringLiteral("no textual form"));
        });
    return QVariant::fromValue(Unspeakable());
}

/// Asking the value for its text raises an exception of another kind.
inline QVariant otherwiseUnspeakableValue()
{
    [[maybe_unused]] static const bool registered = QMetaType::registerConverter<OtherwiseUnspeakable, QString>(
        [](const OtherwiseUnspeakable &) -> QString { throw std::runtime_error("of another kind"); });
    return QVariant::fromValue(OtherwiseUnspeakable());
}
