// The system's clock.
#pragma once

#include "platform/Clock.h"

class QtClock : public platform::Clock
{
public:
    QDateTime date() const override { return QDateTime::currentDateTimeUtc(); }
};
