// The present moment, as the throttle and the settings take it.
#include "desktop/application/QtClock.h"

#include <QDeadlineTimer>

#include <gtest/gtest.h>

TEST(QtClockTest, GivesThePresentInUtcExactToTheMillisecond)
{
    const QtClock clock;
    const qint64 before = QDateTime::currentMSecsSinceEpoch();

    const QDateTime now = clock.date();

    EXPECT_EQ(now.timeSpec(), Qt::UTC);
    EXPECT_GE(now.toMSecsSinceEpoch(), before);
    EXPECT_LE(now.toMSecsSinceEpoch(), QDateTime::currentMSecsSinceEpoch());
}

TEST(QtClockTest, GoesOn)
{
    const QtClock clock;
    const QDateTime first = clock.date();
    const QDeadlineTimer deadline(std::chrono::seconds(5));

    while (clock.date() <= first && !deadline.hasExpired()) {}

    EXPECT_GT(clock.date(), first);
}
