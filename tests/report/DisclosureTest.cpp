// The details disclosure: folding the log pane away and bringing it back.
#include "support/RecordingPlatform.h"

#include <gtest/gtest.h>

namespace {

class Disclosure : public testing::Test
{
protected:
    void click() { recording.controller.disclosureClick(&recording.disclosureBtn); }

    RecordingPlatform recording;
};

const Calls::List kFolded = {
    "logView setHidden yes",
    "mainWindow setFrame 40,500 640x300 display yes animate yes",
};

const Calls::List kUnfolded = {
    "mainWindow setFrame 40,300 640x500 display yes animate yes",
    "logView setHidden no",
};

} // namespace

TEST_F(Disclosure, VisiblePaneFoldsAndASecondClickRestoresTheFrame)
{
    click();
    EXPECT_EQ(recording.calls.taken(), kFolded);
    EXPECT_TRUE(recording.logView.hidden);
    EXPECT_EQ(recording.mainWindow.rect, (platform::Rect{.x = 40, .y = 500, .width = 640, .height = 300}));

    click();
    EXPECT_EQ(recording.calls.taken(), kUnfolded);
    EXPECT_FALSE(recording.logView.hidden);
    EXPECT_EQ(recording.mainWindow.rect, (platform::Rect{.x = 40, .y = 300, .width = 640, .height = 500}));
}

TEST_F(Disclosure, OriginXAndWidthNeverChange)
{
    for (int clicks = 0; clicks < 5; ++clicks) {
        click();
        EXPECT_EQ(recording.mainWindow.rect.x, 40);
        EXPECT_EQ(recording.mainWindow.rect.width, 640);
        EXPECT_EQ(recording.mainWindow.rect.y + recording.mainWindow.rect.height, 800) << "the top edge";
    }
}

TEST_F(Disclosure, WithoutASenderItDoesTheSame)
{
    recording.controller.disclosureClick(nullptr);

    EXPECT_EQ(recording.calls.taken(), kFolded);
}

TEST_F(Disclosure, FollowsThePaneAndNotTheTriangle)
{
    recording.disclosureBtn.state = platform::kStateOn;
    recording.logView.hidden = true;
    recording.mainWindow.rect = {.x = 40, .y = 500, .width = 640, .height = 300};

    click();

    EXPECT_EQ(recording.calls.taken(), kUnfolded);
    EXPECT_EQ(recording.disclosureBtn.state, platform::kStateOn);
}

TEST_F(Disclosure, PaneOfNoHeightTogglesAndStillAsksForTheSameFrame)
{
    const std::string sameFrame = "mainWindow setFrame 40,300 640x500 display yes animate yes";
    recording.logView.rect.height = 0;

    click();
    EXPECT_TRUE(recording.logView.hidden);
    EXPECT_EQ(recording.calls.taken(), (Calls::List{"logView setHidden yes", sameFrame}));

    click();
    EXPECT_FALSE(recording.logView.hidden);
    EXPECT_EQ(recording.calls.taken(), (Calls::List{sameFrame, "logView setHidden no"}));
}

TEST_F(Disclosure, WithoutAWindowThePaneIsStillHiddenAndShown)
{
    platform::ReportControls controls = {.logView = recording.logView};
    AppController controller(controls, recording.services());

    controller.disclosureClick(nullptr);
    EXPECT_TRUE(recording.logView.hidden);
    EXPECT_EQ(recording.calls.taken(), (Calls::List{"logView setHidden yes"}));

    controller.disclosureClick(nullptr);
    EXPECT_FALSE(recording.logView.hidden);
    EXPECT_EQ(recording.calls.taken(), (Calls::List{"logView setHidden no"}));
}

TEST_F(Disclosure, WithoutAPaneTheWindowIsSetToItsOwnFrame)
{
    platform::ReportControls controls = {.mainWindow = recording.mainWindow};
    AppController controller(controls, recording.services());

    controller.disclosureClick(nullptr);

    EXPECT_EQ(recording.calls.taken(), (Calls::List{"mainWindow setFrame 40,300 640x500 display yes animate yes"}));
}

TEST_F(Disclosure, ExceptionIsLoggedAndThePaneStaysHidden)
{
    recording.calls.failAt("mainWindow frame");

    click();

    EXPECT_EQ(recording.calls.taken(),
              (Calls::List{"logView setHidden yes", "log Exception in disclosureClick. TestFailure - as asked"}));
    EXPECT_TRUE(recording.logView.hidden);
}

TEST_F(Disclosure, ExceptionOfAnotherKindPassesOn)
{
    recording.calls.failOtherwiseAt("logView isHidden");

    EXPECT_THROW(click(), std::runtime_error);
}
