// A controller whose outlets are not connected: the missing objects answer nothing and take every message.
#include "support/RecordingPlatform.h"
#include "support/SampleHome.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

TEST(MissingControls, AnswerZeroFalseOrEmpty)
{
    const platform::ReportControls missing;
    missing.emailText.setStringValue(u"someone@example.org"_s);
    missing.logText.setString(u"the report"_s);
    missing.logView.setHidden(true);
    missing.mainWindow.setFrameDisplayAnimate({1, 2, 3, 4}, platform::Display::On, platform::Animation::On);

    EXPECT_EQ(missing.emailText.stringValue(), QString());
    EXPECT_EQ(missing.logText.string(), QString());
    EXPECT_FALSE(missing.logView.isHidden());
    EXPECT_EQ(missing.logView.frame(), (platform::Rect{0, 0, 0, 0}));
    EXPECT_EQ(missing.mainWindow.frame(), (platform::Rect{0, 0, 0, 0}));
}

TEST(MissingControls, KeepNoReportThatIsShownFromBeingSubmitted)
{
    SampleHome home;
    RecordingPlatform recording;
    const PlatformServices services = recording.services();
    const PlatformServices unheard = {.application = services.application,
                                      .alertPanel = services.alertPanel,
                                      .userDefaults = services.userDefaults,
                                      .urlLoader = services.urlLoader,
                                      .processInfo = services.processInfo,
                                      .clock = services.clock,
                                      .diagnosticLog = services.diagnosticLog,
                                      .submissionHost = services.submissionHost};
    PublicController controller({.logText = recording.logText}, unheard);

    controller.init();
    EXPECT_TRUE(controller.applicationOpenFile(nullptr, home.write(u"Harbour_1.crash"_s, "Process: Harbour\n")));
    controller.applicationDidFinishLaunching(nullptr);
    controller.disclosureClick(nullptr);
    controller.submitReport(nullptr);
    ASSERT_NE(controller.connection, nullptr);
    recording.calls.taken();
    controller.connectionDidFailWithError(*controller.connection, {});

    EXPECT_EQ(recording.calls.taken(), Calls::List{"alert Connection failed. / Please try again later."});
}
