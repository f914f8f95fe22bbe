// The launch decision: what is loaded, what is shown, and when the application ends instead.
#include "support/RecordingPlatform.h"
#include "support/SampleHome.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QString kClientHeadline = u"The client running on build-mac-3 crashed the last time it ran. Please submit a bug "
                                "report so we can prevent this occurring in future."_s;
const QString kHarbourHeadline = u"Harbour crashed the last time it ran. Please submit a bug report so we can prevent "
                                 "this occurring in future."_s;

class Launch : public testing::Test
{
protected:
    Launch() { recording.controller.init(); }

    void launchWith(const QStringList &words)
    {
        recording.processInfo.argumentList = QStringList{u"/usr/bin/korvale-crash-reporter"_s} + words;
        recording.controller.applicationDidFinishLaunching(nullptr);
    }

    bool opensFile(const QString &path) { return recording.controller.applicationOpenFile(nullptr, path); }

    bool windowIsShown() const { return recording.mainWindow.lastSender == &recording.controller; }
    bool terminationIsAsked() const { return recording.application.lastSender == &recording.controller; }

    SampleHome home;
    RecordingPlatform recording;
    QString crashLog = home.write(u"Harbour_2026-11-02.crash"_s, "Thread 0 crashed with com.unsanity.ape\n");
};

const Calls::List kShownWindow = {
    "logText setString",
    "logView setHidden yes",
    "mainWindow setFrame 40,500 640x300 display yes animate yes",
    "disclosureBtn setState 0",
    "initialInfo setStringValue",
    "mainWindow makeKeyAndOrderFront",
    "application activateIgnoringOtherApps yes",
    "initialInfo setStringValue",
};

} // namespace

TEST_F(Launch, FiveArgumentsLoadTheLogSilentlyAndShowTheWindowWithTheRemoteName)
{
    launchWith({u"-remotename"_s, u"build-mac-3"_s, u"-log"_s, crashLog});

    EXPECT_EQ(recording.calls.taken(), kShownWindow);
    EXPECT_EQ(recording.initialInfo.text, kClientHeadline);
    EXPECT_EQ(recording.logText.text, u"Thread 0 crashed with com.unsanity.ape\n"_s);
    EXPECT_TRUE(windowIsShown());
    EXPECT_FALSE(terminationIsAsked());
}

TEST_F(Launch, FourArgumentsIgnoreTheCommandLineAndQuit)
{
    launchWith({u"-remotename"_s, u"build-mac-3"_s, u"-log"_s});

    EXPECT_EQ(recording.calls.taken(), (Calls::List{"application terminate"}));
    EXPECT_TRUE(terminationIsAsked());
}

TEST_F(Launch, FourArgumentsIgnoreTheCommandLineAndShowAFileThatWasOpened)
{
    ASSERT_TRUE(opensFile(crashLog));

    launchWith({u"-remotename"_s, u"build-mac-3"_s, u"-log"_s});

    EXPECT_TRUE(windowIsShown());
    EXPECT_EQ(recording.initialInfo.text, kHarbourHeadline);
}

TEST_F(Launch, LogOptionAsLastElementLoadsNothing)
{
    launchWith({u"-remotename"_s, u"build-mac-3"_s, u"more"_s, u"-log"_s});

    EXPECT_EQ(recording.calls.taken(), (Calls::List{"application terminate", "initialInfo setStringValue"}));
    EXPECT_FALSE(recording.controller.logOpened);
    EXPECT_EQ(recording.initialInfo.text, kClientHeadline) << "the steps after asking for termination still run";
}

TEST_F(Launch, RemoteNameOptionAsLastElementLoadsNothing)
{
    launchWith({u"-log"_s, crashLog, u"more"_s, u"-remotename"_s});

    EXPECT_EQ(recording.calls.taken(), (Calls::List{"application terminate"}));
    EXPECT_EQ(recording.initialInfo.text, QString());
}

TEST_F(Launch, OptionsStandInEitherOrderAmongOthersAndOnlyTheFirstOfEachCounts)
{
    const QString second = home.write(u"Second_1.crash"_s, "second");

    launchWith({u"-style"_s, u"windows"_s, u"-log"_s, crashLog, u"-quiet"_s, u"-remotename"_s, u"build-mac-3"_s,
                u"-log"_s, second, u"-remotename"_s, u"other"_s});

    EXPECT_TRUE(windowIsShown());
    EXPECT_EQ(recording.initialInfo.text, kClientHeadline);
    EXPECT_EQ(recording.controller.appName, u"Harbour"_s);
}

TEST_F(Launch, MissingLogQuitsWithoutWindowOrMessage)
{
    launchWith({u"-remotename"_s, u"build-mac-3"_s, u"-log"_s, home.path(u"gone_1.crash"_s)});

    EXPECT_EQ(recording.calls.taken(), (Calls::List{"application terminate", "initialInfo setStringValue"}));
}

TEST_F(Launch, LogThatIsNotUtf8QuitsWithoutWindowOrMessage)
{
    const QString broken = home.write(u"Broken_1.crash"_s, "caf\xE9");

    launchWith({u"-remotename"_s, u"build-mac-3"_s, u"-log"_s, broken});

    EXPECT_EQ(recording.calls.taken(), (Calls::List{"application terminate", "initialInfo setStringValue"}));
}

TEST_F(Launch, NoArgumentsAndNoFileQuitAtOnce)
{
    launchWith({});

    EXPECT_EQ(recording.calls.taken(), (Calls::List{"application terminate"}));
}

TEST_F(Launch, FailedLaterOpenGivesNoAndLeavesTheEarlierReport)
{
    ASSERT_TRUE(opensFile(crashLog));
    launchWith({});
    recording.calls.taken();

    EXPECT_FALSE(opensFile(home.path(u"gone_1.crash"_s)));

    EXPECT_EQ(recording.calls.taken(), Calls::List());
    EXPECT_EQ(recording.logText.text, u"Thread 0 crashed with com.unsanity.ape\n"_s);
    EXPECT_EQ(recording.controller.appName, u"Harbour"_s);
    EXPECT_FALSE(recording.controller.logOpened);
}

TEST_F(Launch, LaterOpenReplacesTheReportButNeitherHeadlineNorWindow)
{
    ASSERT_TRUE(opensFile(crashLog));
    launchWith({});
    recording.calls.taken();

    EXPECT_TRUE(opensFile(home.write(u"Second_1.crash"_s, "second")));

    EXPECT_EQ(recording.calls.taken(), (Calls::List{"logText setString"}));
    EXPECT_EQ(recording.logText.text, u"second"_s);
    EXPECT_EQ(recording.controller.appName, u"Second"_s);
}

TEST_F(Launch, OpenedFileShowsTheAlertsAboutConflictingSoftware)
{
    ASSERT_TRUE(opensFile(crashLog));

    EXPECT_EQ(recording.calls.taken(),
              (Calls::List{"alert Unsanity Application Enhancer is installed / This software causes incompatibilities "
                           "with Korvale products and we recommend disabling it.",
                           "logText setString"}));
}

TEST_F(Launch, LogOfTheCommandLineReplacesAFileOpenedAtLaunch)
{
    ASSERT_TRUE(opensFile(home.write(u"Opened_1.crash"_s, "opened")));

    launchWith({u"-remotename"_s, u"build-mac-3"_s, u"-log"_s, crashLog});

    EXPECT_EQ(recording.controller.appName, u"Harbour"_s);
    EXPECT_EQ(recording.logText.text, u"Thread 0 crashed with com.unsanity.ape\n"_s);
}

TEST_F(Launch, FileOpenedAtLaunchStaysTheReportWhenTheCommandLinesLogIsMissing)
{
    ASSERT_TRUE(opensFile(crashLog));

    launchWith({u"-remotename"_s, u"build-mac-3"_s, u"-log"_s, home.path(u"gone_1.crash"_s)});

    EXPECT_TRUE(windowIsShown());
    EXPECT_EQ(recording.initialInfo.text, kClientHeadline);
    EXPECT_EQ(recording.controller.appName, u"Harbour"_s);
}

TEST_F(Launch, LastOfSeveralFilesOpenedAtLaunchDecides)
{
    ASSERT_TRUE(opensFile(crashLog));
    ASSERT_FALSE(opensFile(home.path(u"gone_1.crash"_s)));

    launchWith({});

    EXPECT_TRUE(terminationIsAsked());
    EXPECT_FALSE(windowIsShown());
}

TEST_F(Launch, HeadlineTakesNamesAsTheyAre)
{
    launchWith({u"-remotename"_s, u"<b>%1 & %@</b>"_s, u"-log"_s, crashLog});

    EXPECT_TRUE(recording.initialInfo.text.startsWith(u"The client running on <b>%1 & %@</b> crashed"_s));
}

TEST_F(Launch, ClosingTheLastWindowEndsTheApplication)
{
    EXPECT_TRUE(recording.controller.applicationShouldTerminateAfterLastWindowClosed(nullptr));
}

TEST_F(Launch, InitGivesTheControllerWithNoLogOpened)
{
    recording.controller.logOpened = true;

    EXPECT_EQ(recording.controller.init(), &recording.controller);
    EXPECT_FALSE(recording.controller.logOpened);
    EXPECT_FALSE(recording.controller.silentOutput);
    EXPECT_EQ(recording.controller.appName, std::nullopt);
    EXPECT_EQ(recording.controller.connection, nullptr);
}

TEST_F(Launch, ExceptionWhileLoadingNeitherShowsTheWindowNorQuits)
{
    recording.calls.failAt("logText setString");

    launchWith({u"-remotename"_s, u"build-mac-3"_s, u"-log"_s, crashLog});

    EXPECT_EQ(
        recording.calls.taken(),
        (Calls::List{"logText setString", "log Exception in applicationDidFinishLaunching. TestFailure - as asked"}));
    EXPECT_EQ(recording.controller.appName, u"Harbour"_s) << "what was done stays done";
}

TEST_F(Launch, ExceptionWhileOpeningAFileGivesNoAndLeavesNoLogOpened)
{
    recording.controller.logOpened = true;
    recording.calls.failAt("logText setString");

    EXPECT_FALSE(opensFile(home.write(u"Plain_1.crash"_s, "plain")));

    EXPECT_EQ(recording.calls.taken(),
              (Calls::List{"logText setString", "log Exception in application:openFile. TestFailure - as asked"}));
    EXPECT_FALSE(recording.controller.logOpened);
}

TEST_F(Launch, ExceptionsOfAnotherKindPassOn)
{
    recording.calls.failOtherwiseAt("logText setString");

    EXPECT_THROW(opensFile(crashLog), std::runtime_error);
    EXPECT_THROW(launchWith({u"-remotename"_s, u"m"_s, u"-log"_s, crashLog}), std::runtime_error);
}
