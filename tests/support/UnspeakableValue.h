// A form value whose textual form cannot be had.
#pragma once

#include "platform/PlatformException.h"

#include <QVariant>

struct Unspeakable {
};
Q_DECLARE_METATYPE(Unspeakable)

/// Asking the value for its text raises the platform's exception.
inline QVariant unspeakableValue()
{
    [[maybe_unused]] static const bool registered =
        QMetaType::registerConverter<Unspeakable, QString>([](const Unspeakable &) -> QString {
            throw platform::PlatformException(QStringLiteral("TestFailure"), QStringLiteral("no textual form"));
        });
    return QVariant::fromValue(Unspeakable());
}
