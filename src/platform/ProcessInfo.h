// What the process knows of itself.
#pragma once

#include "platform/Object.h"

#include <QString>
#include <QStringList>

namespace platform {

class ProcessInfo : public Object
{
public:
    /// The command line as the process was started with it; element 0 is the program's own path.
    virtual QStringList arguments() const = 0;
    /// A text that no other call, process or machine produces: letters, digits and hyphens, 36 of them (RFC 4122).
    virtual QString globallyUniqueString() const = 0;
};

} // namespace platform
