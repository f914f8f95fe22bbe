// The system's clock.
#pragma once

#include "platform/Clock.h"

class SystemClock : public platform::Clock
{
public:
    QDateTime date() const override { return QDateTime::currentDateTimeUtc(); }
};
