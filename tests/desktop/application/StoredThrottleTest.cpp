// The throttle on the real settings store and the real clock, as it holds from one run to the next.
#include "desktop/application/QtUserDefaults.h"
#include "desktop/application/SystemClock.h"
#include "support/RecordingPlatform.h"
#include "support/ScopedVariable.h"
#include "support/StoredDefaults.h"

#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QString kCount = u"crashSubmissionCount"_s;
const QString kDate = u"lastCrashSubmissionDate"_s;

class StoredThrottleTest : public testing::Test
{
protected:
    StoredThrottleTest() { world.logText.text = u"the report"_s; }

    static void store(qint64 count, qint64 secondsFromNow)
    {
        StoredDefaults defaults;
        defaults.setIntegerForKey(count, kCount);
        defaults.setObjectForKey(QDateTime::currentDateTimeUtc().addSecs(secondsFromNow), kDate);
        defaults.synchronize();
    }

    /// Submits anonymously in a run of its own; gives whether the report was posted.
    bool isPosted()
    {
        StoredDefaults defaults;
        PlatformServices services = {.application = world.application,
                                     .alertPanel = world.alertPanel,
                                     .userDefaults = defaults,
                                     .urlLoader = world.urlLoader,
                                     .processInfo = world.processInfo,
                                     .clock = clock,
                                     .diagnosticLog = world.diagnosticLog,
                                     .submissionHost = u"127.0.0.1"_s};
        OpenController controller(world.controls(), services);
        controller.init();
        const size_t before = world.urlLoader.requests.size();
        controller.submitReport(nullptr);
        return world.urlLoader.requests.size() == before + 1;
    }

    const QTemporaryDir user;
    const ScopedVariable configured{"XDG_CONFIG_HOME", user.path().toUtf8()};
    SystemClock clock;
    RecordingPlatform world;
};

} // namespace

TEST_F(StoredThrottleTest, AStoredDateInTheFutureIsRefused)
{
    store(11, 3600);

    EXPECT_FALSE(isPosted());
    EXPECT_EQ(StoredDefaults().integerForKey(kCount), 11);
}

TEST_F(StoredThrottleTest, AStoredDateOfLessThan180SecondsAgoIsRefused)
{
    store(11, -120);

    EXPECT_FALSE(isPosted());
    EXPECT_EQ(StoredDefaults().integerForKey(kCount), 11);
}

TEST_F(StoredThrottleTest, AStoredDateOf180SecondsAgoIsAcceptedAndThePresentStored)
{
    store(11, -180);
    const QDateTime before = QDateTime::currentDateTimeUtc();

    EXPECT_TRUE(isPosted());

    const StoredDefaults defaults;
    EXPECT_EQ(defaults.integerForKey(kCount), 12);
    EXPECT_GE(defaults.objectForKey(kDate).value().toDateTime(), before);
    EXPECT_LE(defaults.objectForKey(kDate).value().toDateTime(), QDateTime::currentDateTimeUtc());
}

TEST_F(StoredThrottleTest, TheRunAfterAnAcceptedOneIsRefused)
{
    store(10, -3600);

    EXPECT_TRUE(isPosted());
    EXPECT_FALSE(isPosted());
}
