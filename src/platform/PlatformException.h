// The one kind of exception that the controller's operations catch; every other kind passes through them.
#pragma once

#include <QString>

#include <utility>

namespace platform {

class PlatformException
{
public:
    PlatformException(QString name, QString reason)
        : nameText(std::move(name))
        , reasonText(std::move(reason))
    {
    }

    /// The kind of failure, a single word such as "InvalidArgumentException".
    const QString &name() const { return nameText; }
    /// What went wrong, as a sentence for the diagnostic log.
    const QString &reason() const { return reasonText; }

private:
    QString nameText;
    QString reasonText;
};

} // namespace platform
