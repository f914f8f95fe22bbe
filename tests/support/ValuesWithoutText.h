// Form values that throw when they are converted to text.
#pragma once

#include "platform/PlatformException.h"

#include <QVariant>

#include <stdexcept>

struct WithoutText {
};
Q_DECLARE_METATYPE(WithoutText)

struct RaisesAnotherKind {
};
Q_DECLARE_METATYPE(RaisesAnotherKind)

/// Asking the value for its text raises the platform's exception.
inline QVariant valueWithoutText()
{
    [[maybe_unused]] static const bool registered =
        QMetaType::registerConverter<WithoutText, QString>([](const WithoutText &) -> QString {
            throw platform::PlatformException(QStringLiteral("TestFailure"), QStringLiteral("no textual form"));
        });
    return QVariant::fromValue(WithoutText());
}

/// Asking the value for its text raises an exception of another kind.
inline QVariant valueRaisingAnotherKind()
{
    [[maybe_unused]] static const bool registered = QMetaType::registerConverter<RaisesAnotherKind, QString>(
        [](const RaisesAnotherKind &) -> QString { throw std::runtime_error("of another kind"); });
    return QVariant::fromValue(RaisesAnotherKind());
}
