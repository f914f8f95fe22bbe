// Operations of the controller run one at a time, also while one of them runs a nested event loop.
#include "base/OperationQueue.h"

#include "support/EventLoop.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QScopeGuard>
#include <QStringList>
#include <QTimer>

#include <gtest/gtest.h>

#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

class OperationQueueTest : public testing::Test
{
protected:
    /// Shows an alert, as far as the queue can tell: a nested event loop until everything that was to happen
    /// meanwhile has happened.
    void waitInNestedLoop(const std::function<void()> &meanwhile)
    {
        QEventLoop loop;
        QTimer::singleShot(0, &loop, [&] {
            meanwhile();
            QTimer::singleShot(0, &loop, [&] { QTimer::singleShot(0, &loop, &QEventLoop::quit); });
        });
        loop.exec();
    }

    OperationQueue::Operation note(const QString &what)
    {
        return [this, what] { happened << what; };
    }

    bool waitUntilHappened(qsizetype count)
    {
        return eventually([this, count] { return happened.size() >= count; });
    }

    OperationQueue operations;
    QStringList happened;
};

TEST_F(OperationQueueTest, AnOperationRunsAtOnceWhenNoneIsRunning)
{
    operations.perform(note(u"first"_s));

    EXPECT_EQ(happened, QStringList{u"first"_s});
}

TEST_F(OperationQueueTest, AnOperationAskedForInsideAnotherWaitsForItsEnd)
{
    operations.perform([this] {
        happened << u"begin"_s;
        operations.perform(note(u"asked inside"_s));
        happened << u"end"_s;
    });
    EXPECT_EQ(happened, (QStringList{u"begin"_s, u"end"_s}));

    ASSERT_TRUE(waitUntilHappened(3));
    EXPECT_EQ(happened, (QStringList{u"begin"_s, u"end"_s, u"asked inside"_s}));
}

TEST_F(OperationQueueTest, OperationsThatArriveInANestedLoopWaitAndKeepTheirOrder)
{
    operations.perform([this] {
        happened << u"begin"_s;
        waitInNestedLoop([this] {
            operations.perform(note(u"first"_s));
            operations.perform(note(u"second"_s));
        });
        happened << u"end"_s;
    });

    ASSERT_TRUE(waitUntilHappened(4));
    EXPECT_EQ(happened, (QStringList{u"begin"_s, u"end"_s, u"first"_s, u"second"_s}));
}

TEST_F(OperationQueueTest, AnOperationDoesNotOvertakeOnesThatWait)
{
    operations.perform([this] { operations.perform(note(u"waited"_s)); });
    operations.perform(note(u"came later"_s));

    ASSERT_TRUE(waitUntilHappened(2));
    EXPECT_EQ(happened, (QStringList{u"waited"_s, u"came later"_s}));
}

TEST_F(OperationQueueTest, AWaitingOperationMayRunANestedLoopItself)
{
    operations.perform([this] {
        operations.perform([this] {
            happened << u"begin"_s;
            waitInNestedLoop([this] { operations.perform(note(u"last"_s)); });
            happened << u"end"_s;
        });
        operations.perform(note(u"between"_s));
    });

    ASSERT_TRUE(waitUntilHappened(4));
    EXPECT_EQ(happened, (QStringList{u"begin"_s, u"end"_s, u"between"_s, u"last"_s}));
}

TEST_F(OperationQueueTest, WhatAUserPressesRunsAtOnceWhenNothingRunsOrWaits)
{
    operations.performIfIdle(note(u"pressed"_s));

    EXPECT_EQ(happened, QStringList{u"pressed"_s});
}

TEST_F(OperationQueueTest, WhatAUserPressesIsDroppedWhileAnOperationRunsOrWaits)
{
    operations.perform([this] {
        operations.performIfIdle(note(u"pressed inside"_s));
        operations.perform(note(u"waited"_s));
    });
    operations.performIfIdle(note(u"pressed before the waiting one"_s));

    ASSERT_TRUE(waitUntilHappened(1));
    QCoreApplication::processEvents();
    EXPECT_EQ(happened, QStringList{u"waited"_s});
}

TEST_F(OperationQueueTest, AnOperationThatEndsByAnExceptionHoldsNothingUp)
{
    EXPECT_THROW(operations.perform([this] {
        operations.perform(note(u"waited"_s));
        throw std::runtime_error("passes on");
    }),
                 std::runtime_error);

    ASSERT_TRUE(waitUntilHappened(1));
    operations.perform(note(u"next"_s));
    EXPECT_EQ(happened, (QStringList{u"waited"_s, u"next"_s}));
}

TEST_F(OperationQueueTest, WaitingOperationsAreReleasedWithTheQueue)
{
    const auto held = std::make_shared<int>(1);
    {
        OperationQueue shortLived;
        shortLived.perform([&] { shortLived.perform([this, held] { happened << u"ran"_s; }); });
        EXPECT_EQ(held.use_count(), 2);
    }

    EXPECT_EQ(held.use_count(), 1);
    QCoreApplication::processEvents();
    EXPECT_EQ(happened, QStringList{});
}

} // namespace
