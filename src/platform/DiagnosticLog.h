// The system's log, to which the program writes its few diagnostic lines.
#pragma once

#include "platform/Object.h"

#include <QString>

namespace platform {

class DiagnosticLog : public Object
{
public:
    /// Writes one line.
    virtual void log(const QString &line) = 0;
};

} // namespace platform
