// The current date and time.
#pragma once

#include "platform/Object.h"

#include <QDateTime>

namespace platform {

class Clock : public Object
{
public:
    /// Now, in UTC, exact to the millisecond.
    virtual QDateTime date() const = 0;
};

} // namespace platform
