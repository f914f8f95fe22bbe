// The present moment, as the throttle and the settings take it.
#include "desktop/application/SystemClock.h"

#include <QDeadlineTimer>

#include <gtest/gtest.h>

TEST(SystemClockTest, GivesThePresentInUtcExactToTheMillisecond)
{
    const SystemClock clock;
    const qint64 before = QDateTime::currentMSecsSinceEpoch();

    const QDateTime now = clock.date();

    EXPECT_EQ(now.timeSpec(), Qt::UTC);
    EXPECT_GE(now.toMSecsSinceEpoch(), before);
    EXPECT_LE(now.toMSecsSinceEpoch(), QDateTime::currentMSecsSinceEpoch());
}

TEST(SystemClockTest, GoesOn)
{
    const SystemClock clock;
    const QDateTime first = clock.date();
    const QDeadlineTimer deadline(std::chrono::seconds(5));

    while (clock.date() <= first && !deadline.hasExpired()) {}

    EXPECT_GT(clock.date(), first);
}
