// The details disclosure: folding the log pane away and bringing it back.
#include "support/RecordingPlatform.h"

#include <gtest/gtest.h>

namespace {

class Disclosure : public testing::Test
{
protected:
    void click() { world.controller.disclosureClick(&world.disclosureBtn); }

    RecordingPlatform world;
};

const Calls::List kFolded = {
    "logView isHidden", "logView setHidden yes", "mainWindow frame",
    "logView frame",    "logView frame",         "mainWindow setFrame 40,500 640x300 display yes animate yes",
};

const Calls::List kUnfolded = {
    "logView isHidden",
    "mainWindow frame",
    "logView frame",
    "logView frame",
    "mainWindow setFrame 40,300 640x500 display yes animate yes",
    "logView setHidden no",
};

} // namespace

TEST_F(Disclosure, VisiblePaneFoldsAndASecondClickRestoresTheFrame)
{
    click();
    EXPECT_EQ(world.calls.taken(), kFolded);
    EXPECT_TRUE(world.logView.hidden);
    EXPECT_EQ(world.mainWindow.rect, (platform::Rect{.x = 40, .y = 500, .width = 640, .height = 300}));

    click();
    EXPECT_EQ(world.calls.taken(), kUnfolded);
    EXPECT_FALSE(world.logView.hidden);
    EXPECT_EQ(world.mainWindow.rect, (platform::Rect{.x = 40, .y = 300, .width = 640, .height = 500}));
}

TEST_F(Disclosure, OriginXAndWidthNeverChange)
{
    for (int clicks = 0; clicks < 5; ++clicks) {
        click();
        EXPECT_EQ(world.mainWindow.rect.x, 40);
        EXPECT_EQ(world.mainWindow.rect.width, 640);
        EXPECT_EQ(world.mainWindow.rect.y + world.mainWindow.rect.height, 800) << "the top edge";
    }
}

TEST_F(Disclosure, WithoutASenderItDoesTheSame)
{
    world.controller.disclosureClick(nullptr);

    EXPECT_EQ(world.calls.taken(), kFolded);
}

TEST_F(Disclosure, FollowsThePaneAndNotTheTriangle)
{
    world.disclosureBtn.state = platform::kStateOn;
    world.logView.hidden = true;
    world.mainWindow.rect = {.x = 40, .y = 500, .width = 640, .height = 300};

    click();

    EXPECT_EQ(world.calls.taken(), kUnfolded);
    EXPECT_EQ(world.disclosureBtn.state, platform::kStateOn);
}

TEST_F(Disclosure, PaneOfNoHeightTogglesAndStillAsksForTheSameFrame)
{
    const std::string sameFrame = "mainWindow setFrame 40,300 640x500 display yes animate yes";
    world.logView.rect.height = 0;

    click();
    EXPECT_TRUE(world.logView.hidden);
    EXPECT_EQ(world.calls.taken(),
              (Calls::List{"logView isHidden", "logView setHidden yes", "mainWindow frame", "logView frame",
                           "logView frame", sameFrame}));

    click();
    EXPECT_FALSE(world.logView.hidden);
    EXPECT_EQ(world.calls.taken(),
              (Calls::List{"logView isHidden", "mainWindow frame", "logView frame", "logView frame", sameFrame,
                           "logView setHidden no"}));
}

TEST_F(Disclosure, WithoutAWindowThePaneIsStillHiddenAndShown)
{
    platform::ReportControls controls = {.logView = world.logView};
    AppController controller(controls, world.services());

    controller.disclosureClick(nullptr);
    EXPECT_TRUE(world.logView.hidden);
    EXPECT_EQ(world.calls.taken(),
              (Calls::List{"logView isHidden", "logView setHidden yes", "logView frame", "logView frame"}));

    controller.disclosureClick(nullptr);
    EXPECT_FALSE(world.logView.hidden);
    EXPECT_EQ(world.calls.taken(),
              (Calls::List{"logView isHidden", "logView frame", "logView frame", "logView setHidden no"}));
}

TEST_F(Disclosure, WithoutAPaneTheWindowIsSetToItsOwnFrame)
{
    platform::ReportControls controls = {.mainWindow = world.mainWindow};
    AppController controller(controls, world.services());

    controller.disclosureClick(nullptr);

    EXPECT_EQ(world.calls.taken(),
              (Calls::List{"mainWindow frame", "mainWindow setFrame 40,300 640x500 display yes animate yes"}));
}

TEST_F(Disclosure, ExceptionIsLoggedAndThePaneStaysHidden)
{
    world.calls.failAt("mainWindow frame");

    click();

    EXPECT_EQ(world.calls.taken(),
              (Calls::List{"logView isHidden", "logView setHidden yes", "mainWindow frame",
                           "log Exception in disclosureClick. TestFailure - as asked"}));
    EXPECT_TRUE(world.logView.hidden);
}

TEST_F(Disclosure, ExceptionOfAnotherKindPassesOn)
{
    world.calls.failOtherwiseAt("logView isHidden");

    EXPECT_THROW(click(), std::runtime_error);
}
