// The window's frame and the pane that folds: coordinates, animation, held windows and what never moves.
#include "support/LogLines.h"
#include "support/ReportWindowFixture.h"
#include "support/StyleWithAnimationsOf.h"

#include <QApplication>
#include <QLayout>
#include <QLineEdit>
#include <QPauseAnimation>
#include <QScreen>
#include <QStyle>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <set>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

/// Records every height that the window goes through, and where a widget of the form lies each time anything moves.
class MovementRecorder : public QObject
{
public:
    MovementRecorder(QWidget &topLevel, const QList<QWidget *> &observedWidgets)
        : window(topLevel)
        , observed(observedWidgets)
    {
        window.installEventFilter(this);
        for (QWidget *widget : observed) {
            places.insert(placeOf(*widget));
            widget->installEventFilter(this);
        }
    }

    bool eventFilter(QObject *object, QEvent *event) override
    {
        if (event->type() != QEvent::Resize && event->type() != QEvent::Move) {
            return false;
        }
        if (object == &window) {
            heights.push_back(window.height());
            tops.insert(window.y());
        }
        for (QWidget *widget : observed) {
            places.insert(placeOf(*widget));
        }
        return false;
    }

    std::vector<int> heights;
    std::set<int> tops;
    std::set<std::array<int, 5>> places; ///< Which widget, and its rectangle in the window.

private:
    std::array<int, 5> placeOf(const QWidget &widget) const
    {
        const QPoint corner = widget.mapTo(&window, QPoint(0, 0));
        return {static_cast<int>(observed.indexOf(&widget)), corner.x(), corner.y(), widget.width(), widget.height()};
    }

    QWidget &window;
    QList<QWidget *> observed;
};

/// Does something once, in the turn of the event loop that follows the first event of this type that the widget meets.
class Once : public QObject
{
public:
    Once(QWidget &widget, QEvent::Type awaitedType, std::function<void()> action)
        : awaited(awaitedType)
        , then(std::move(action))
    {
        widget.installEventFilter(this);
    }

    bool eventFilter(QObject *object, QEvent *event) override
    {
        if (event->type() == awaited) {
            object->removeEventFilter(this);
            QMetaObject::invokeMethod(
                this, [this] { then(); }, Qt::QueuedConnection);
        }
        return false;
    }

private:
    QEvent::Type awaited;
    std::function<void()> then;
};

class FoldingPaneTest : public ReportWindowFixture
{
protected:
    void show()
    {
        ReportWindowFixture::show();
        window.move(40, 30);
    }

    void toggleAndWait()
    {
        toggleDisclosure();
        waitForRest();
    }

    /// Waits until the window has the frame that was asked for and divides itself freely again.
    void waitForRest()
    {
        const int unfolded = controls.logView.isHidden() ? 0 : paneHeight();
        ASSERT_TRUE(eventually([&] {
            return window.height() == static_cast<int>(controls.mainWindow.frame().height)
                && pane.isVisible() != controls.logView.isHidden() && form.height() == window.height() - unfolded
                && window.minimumHeight() == form.layout()->totalMinimumHeightForWidth(window.width()) + unfolded;
        }));
    }

    int paneHeight() const { return static_cast<int>(controls.logView.frame().height); }
    int minimumFormHeight() const { return form.layout()->totalMinimumHeightForWidth(window.width()); }

    /// Whether the form takes the window to this height, and the pane the rest of it.
    void expectDivisionAt(int height) const
    {
        EXPECT_EQ(form.geometry(), QRect(0, 0, window.width(), height));
        EXPECT_EQ(pane.geometry(), QRect(0, height, window.width(), window.height() - height));
    }
};

} // namespace

TEST_F(FoldingPaneTest, FrameCountsFromTheBottomLeftOfTheScreenUpwards)
{
    window.setGeometry(70, 90, 640, 500);
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    const platform::Rect expected{70, screen.height() - 90.0 - window.height(), static_cast<double>(window.width()),
                                  static_cast<double>(window.height())};
    EXPECT_EQ(controls.mainWindow.frame(), expected);
}

TEST_F(FoldingPaneTest, FrameThatIsSetIsTheFrame)
{
    show();
    const platform::Rect frame{25, 60, 700, 480};
    controls.mainWindow.setFrameDisplayAnimate(frame, platform::Display::On, platform::Animation::Off);
    EXPECT_EQ(controls.mainWindow.frame(), frame);
    EXPECT_EQ(window.geometry(), QRect(25, QGuiApplication::primaryScreen()->geometry().height() - 540, 700, 480));
}

TEST_F(FoldingPaneTest, WindowFirstHasThePreferredSize)
{
    const int width = std::max(form.sizeHint().width(), pane.sizeHint().width());
    ASSERT_NE(form.sizeHint().width(), pane.sizeHint().width());
    EXPECT_EQ(window.width(), width);
    EXPECT_EQ(window.minimumWidth(), std::max(form.minimumSizeHint().width(), pane.minimumSizeHint().width()));
    EXPECT_LT(window.minimumWidth(), width);
    EXPECT_EQ(paneHeight(), pane.sizeHint().height());
    EXPECT_EQ(window.height(), form.layout()->totalHeightForWidth(width) + paneHeight());
    EXPECT_EQ(window.minimumHeight(), minimumFormHeight() + paneHeight());
    EXPECT_LT(window.minimumHeight(), window.height());
    expectDivisionAt(window.height() - paneHeight());
}

TEST_F(FoldingPaneTest, FoldingIsLogged)
{
    const LogLines lines(u"korvale.window.info=true"_s);
    controls.logView.setHidden(true);
    controls.logView.setHidden(true);
    controls.logView.setHidden(false);
    EXPECT_EQ(LogLines::text(), u"korvale.window: pane folded\nkorvale.window: pane unfolded"_s);
}

TEST_F(FoldingPaneTest, FoldedWithoutAnotherFrameTheFormTakesTheWindow)
{
    show();
    toggleAndWait();
    controls.logView.setHidden(true);
    EXPECT_TRUE(eventually([this] { return form.height() == window.height(); }));
    EXPECT_FALSE(pane.isVisible());
}

TEST_F(FoldingPaneTest, OnlyAnotherHeightIsAnimatedAndOnlyWhereThatIsAskedFor)
{
    show();
    platform::Rect frame = controls.mainWindow.frame();
    const auto give = [&](platform::Animation animation) {
        controls.mainWindow.setFrameDisplayAnimate(frame, platform::Display::On, animation);
        return window.size() == QSize(static_cast<int>(frame.width), static_cast<int>(frame.height));
    };
    frame.x += 30;
    EXPECT_TRUE(give(platform::Animation::On));
    EXPECT_EQ(window.x(), 70);
    frame.width += 20;
    frame.height += 30;
    frame.y -= 30;
    EXPECT_TRUE(give(platform::Animation::On));
    frame.height += 30;
    frame.y -= 30;
    EXPECT_TRUE(give(platform::Animation::Off));
    frame.height += 30;
    frame.y -= 30;
    EXPECT_FALSE(give(platform::Animation::On));
}

TEST_F(FoldingPaneTest, FrameThatIsSetEndsTheWayToAnotherOne)
{
    show();
    const platform::Rect before = controls.mainWindow.frame();
    const int height = window.height();
    std::unique_ptr<MovementRecorder> recorder;
    QPauseAnimation rest(window.style()->styleHint(QStyle::SH_Widget_Animation_Duration, nullptr, &window));
    // After the first step, however busy the machine is, and before the second.
    const Once resized(window, QEvent::Resize, [&] {
        recorder = std::make_unique<MovementRecorder>(window, QList<QWidget *>());
        controls.logView.setHidden(true);
        controls.mainWindow.setFrameDisplayAnimate(before, platform::Display::On, platform::Animation::Off);
        rest.start();
    });
    toggleDisclosure();
    ASSERT_TRUE(eventually([&] { return recorder && rest.state() == QAbstractAnimation::Stopped; }));
    waitForRest();
    EXPECT_EQ(recorder->heights, std::vector<int>{height});
}

TEST_F(FoldingPaneTest, WindowGrowsWhereTheFormNeedsIt)
{
    show();
    window.resize(window.width(), window.minimumHeight());
    const int height = window.height();
    controls.initialInfo.setStringValue(u"many words "_s.repeated(100));
    EXPECT_TRUE(eventually([&] { return window.height() > height; }));
    EXPECT_EQ(window.height(), minimumFormHeight());
}

TEST_F(FoldingPaneTest, MinimumHeightFollowsTheWidth)
{
    show();
    const int before = window.minimumHeight();
    controls.initialInfo.setStringValue(u"many words "_s.repeated(100));
    ASSERT_TRUE(eventually([&] { return window.minimumHeight() > before; }));
    const int height = window.minimumHeight();
    window.resize(2 * window.width(), window.height());
    EXPECT_LT(minimumFormHeight(), height);
    EXPECT_EQ(window.minimumHeight(), minimumFormHeight());
}

TEST_F(FoldingPaneTest, FormKeepsItsHeightWhileTheWindowMayStillBeOnItsWay)
{
    show();
    toggleAndWait();
    toggleDisclosure();
    const QSize before = form.size();
    QSize after;
    const Once hidden(pane, QEvent::Hide, [&] {
        window.resize(window.width() + 30, window.height() + 40);
        after = form.size();
    });
    ASSERT_TRUE(eventually([&] { return after.isValid(); }));
    EXPECT_EQ(after, before + QSize(30, 0));
    EXPECT_TRUE(eventually([&] { return form.size() == before + QSize(30, 40); }));
}

TEST_F(FoldingPaneTest, PaneIsVisibleInTheLayoutAndFoldedBeforeTheWindowIsShown)
{
    EXPECT_FALSE(controls.logView.isHidden());
    const int unfoldedHeight = window.height();
    toggleDisclosure();
    EXPECT_TRUE(controls.logView.isHidden());
    EXPECT_EQ(window.height(), unfoldedHeight - paneHeight());
    controls.mainWindow.makeKeyAndOrderFront(nullptr);
    EXPECT_FALSE(pane.isVisible());
    EXPECT_EQ(form.height(), window.height());
}

TEST_F(FoldingPaneTest, HiddenWindowTakesItsFrameAtOnce)
{
    const platform::Rect before = controls.mainWindow.frame();
    toggleDisclosure();
    platform::Rect expected = before;
    expected.height -= paneHeight();
    expected.y += paneHeight();
    EXPECT_EQ(controls.mainWindow.frame(), expected);
    EXPECT_EQ(window.height(), static_cast<int>(expected.height));
}

TEST_F(FoldingPaneTest, PaneHasItsHeightAlsoWhileItIsFolded)
{
    const double height = controls.logView.frame().height;
    EXPECT_GT(height, 0);
    EXPECT_EQ(pane.height(), static_cast<int>(height));
    show();
    EXPECT_EQ(controls.logView.frame().height, height);
    toggleAndWait();
    EXPECT_EQ(controls.logView.frame().height, height);
    EXPECT_EQ(pane.height(), static_cast<int>(height));
}

TEST_F(FoldingPaneTest, UnfoldingGrowsTheWindowAtItsBottomThroughHeightsInBetween)
{
    show();
    const platform::Rect folded = controls.mainWindow.frame();
    MovementRecorder recorder(window, {});
    toggleAndWait();
    platform::Rect expected = folded;
    expected.height += paneHeight();
    expected.y -= paneHeight();
    EXPECT_EQ(controls.mainWindow.frame(), expected);
    expectDivisionAt(static_cast<int>(folded.height));
    EXPECT_GT(recorder.heights.size(), 2U);
    EXPECT_TRUE(std::is_sorted(recorder.heights.begin(), recorder.heights.end()));
    EXPECT_EQ(recorder.tops, std::set<int>{window.y()});
}

TEST_F(FoldingPaneTest, FoldAfterUnfoldGivesTheFormerFrame)
{
    show();
    const platform::Rect before = controls.mainWindow.frame();
    toggleAndWait();
    toggleAndWait();
    EXPECT_EQ(controls.mainWindow.frame(), before);
    EXPECT_EQ(window.y(), 30);
}

TEST_F(FoldingPaneTest, FrameIsTheOneAskedForWhileTheWindowIsOnItsWay)
{
    show();
    platform::Rect asked = controls.mainWindow.frame();
    asked.height += paneHeight();
    asked.y -= paneHeight();
    toggleDisclosure();
    EXPECT_TRUE(pane.isVisible());
    EXPECT_LT(window.height(), static_cast<int>(asked.height));
    EXPECT_EQ(controls.mainWindow.frame(), asked);
}

TEST_F(FoldingPaneTest, QuickClicksDoNotDrift)
{
    show();
    const platform::Rect before = controls.mainWindow.frame();
    for (int click = 0; click < 7; ++click) {
        const int height = window.height();
        toggleDisclosure();
        ASSERT_TRUE(eventually([&] { return window.height() != height; }));
    }
    toggleDisclosure();
    waitForRest();
    EXPECT_EQ(controls.mainWindow.frame(), before);
    EXPECT_TRUE(controls.logView.isHidden());
}

TEST_F(FoldingPaneTest, FormStaysWhereItIsAtEveryMoment)
{
    show();
    MovementRecorder recorder(window, {&form, &description, &triangle, &submit});
    const auto placesAtRest = recorder.places;
    toggleAndWait();
    toggleAndWait();
    EXPECT_EQ(recorder.places, placesAtRest);
    EXPECT_GT(recorder.heights.size(), 4U);
}

TEST_F(FoldingPaneTest, FormStaysWhereItIsWithoutAnimationsToo)
{
    StyleWithAnimationsOf style(0);
    window.setStyle(&style);
    show();
    MovementRecorder recorder(window, {&form, &description, &triangle, &submit});
    const auto placesAtRest = recorder.places;
    const int height = window.height();
    toggleDisclosure();
    EXPECT_EQ(window.height(), height + paneHeight());
    waitForRest();
    toggleAndWait();
    EXPECT_EQ(recorder.places, placesAtRest);
    EXPECT_EQ(recorder.heights, (std::vector<int>{height + paneHeight(), height}));
    window.setStyle(nullptr);
}

// A window system whose unit is not a whole number of pixels may report the height that comes last already for the one
// that is a unit off; the window, taking itself to be there, would not ask for the last one.
TEST_F(FoldingPaneTest, NoStepIsSoCloseToTheEndThatRoundingCouldTakeItForTheEnd)
{
    // So slow that it would come by every height near its end.
    StyleWithAnimationsOf style(800);
    window.setStyle(&style);
    show();
    for (int fold = 0; fold < 2; ++fold) {
        MovementRecorder recorder(window, {});
        toggleAndWait();
        std::vector<int> distances;
        for (const int height : recorder.heights) {
            distances.push_back(std::abs(height - window.height()));
        }
        EXPECT_EQ(distances.back(), 0);
        EXPECT_EQ(std::count(distances.begin(), distances.end(), 1), 0);
        EXPECT_GT(distances.size(), 2U);
    }
    window.setStyle(nullptr);
}

TEST_F(FoldingPaneTest, PaneStaysInViewUntilTheWindowHasClosedOverIt)
{
    show();
    toggleAndWait();
    toggleDisclosure();
    EXPECT_TRUE(controls.logView.isHidden());
    EXPECT_TRUE(pane.isVisible());
    waitForRest();
    EXPECT_FALSE(pane.isVisible());
}

TEST_F(FoldingPaneTest, DescriptionTakesTheHeightThatTheUserGivesTheWindow)
{
    show();
    toggleAndWait();
    const int descriptionHeight = description.height();
    window.resize(window.width(), window.height() + 75);
    EXPECT_TRUE(eventually([&] { return description.height() == descriptionHeight + 75; }));
    EXPECT_EQ(pane.height(), paneHeight());
    EXPECT_EQ(pane.geometry().bottom(), window.rect().bottom());
}

TEST_F(FoldingPaneTest, HeightThatTheUserGaveTheWindowOutlastsFolding)
{
    show();
    toggleAndWait();
    window.resize(window.width(), window.height() + 75);
    const int descriptionHeight = description.height();
    toggleAndWait();
    EXPECT_EQ(description.height(), descriptionHeight);
    toggleAndWait();
    EXPECT_EQ(description.height(), descriptionHeight);
}

TEST_F(FoldingPaneTest, HeightThatIsAUnitOffIsTheOneThatWasGivenAndAnyOtherTheUsers)
{
    show();
    const QSize given = window.size();
    window.resize(given.width(), given.height() + 1);
    EXPECT_EQ(controls.mainWindow.frame().height, given.height());
    window.resize(given.width(), given.height() + 2);
    EXPECT_EQ(controls.mainWindow.frame().height, given.height() + 2);
}

TEST_F(FoldingPaneTest, UserCannotMakeTheWindowTooSmallForItsControls)
{
    show();
    toggleAndWait();
    window.resize(1, 1);
    EXPECT_TRUE(form.rect().contains(submit.geometry()));
    EXPECT_EQ(form.height() + pane.height(), window.height());
    EXPECT_EQ(pane.height(), paneHeight());
}

TEST_F(FoldingPaneTest, WindowMovedWhileItUnfoldsStaysWhereItWasMoved)
{
    show();
    const int height = window.height();
    toggleDisclosure();
    window.move(90, 70);
    waitForRest();
    EXPECT_EQ(window.pos(), QPoint(90, 70));
    EXPECT_EQ(window.height(), height + paneHeight());
}

class LargeLettersTest : public testing::TestWithParam<int>
{
protected:
    LargeLettersTest()
    {
        QFont large = usual;
        large.setPixelSize(GetParam());
        QApplication::setFont(large);
    }
    ~LargeLettersTest() override { QApplication::setFont(usual); }

    const QFont usual = QApplication::font();
    const QSize available = QGuiApplication::primaryScreen()->availableSize();
};

TEST_P(LargeLettersTest, WindowAndItsFrameStartWithinTheScreen)
{
    const ReportWindow window;
    const auto &form = child<QWidget>(window, "form");
    const auto &pane = child<QWidget>(window, "logView");
    const int titleBar = window.style()->pixelMetric(QStyle::PM_TitleBarHeight);
    const QSize wanted(form.sizeHint().width(), form.sizeHint().height() + pane.sizeHint().height());
    ASSERT_TRUE(wanted.width() > available.width() || wanted.height() > available.height());
    EXPECT_LT(window.width(), available.width());
    EXPECT_LE(window.height(), available.height() - titleBar);
    EXPECT_GE(window.width(), window.minimumWidth());
    EXPECT_GE(window.height(), window.minimumHeight());
    const int edge = window.style()->pixelMetric(QStyle::PM_MdiSubWindowFrameWidth);
    EXPECT_EQ(window.height(), available.height() - titleBar - 2 * edge);
}

TEST_P(LargeLettersTest, WindowIsNoWiderThanTheScreenWhereItNeedNotBe)
{
    QFont larger = QApplication::font();
    larger.setPixelSize(GetParam() + 8);
    QApplication::setFont(larger);
    const ReportWindow window;
    const int edge = window.style()->pixelMetric(QStyle::PM_MdiSubWindowFrameWidth);
    const int preferred = child<QWidget>(window, "form").sizeHint().width();
    EXPECT_EQ(window.width(), std::max(window.minimumWidth(), std::min(preferred, available.width() - 2 * edge)));
}

INSTANTIATE_TEST_SUITE_P(, LargeLettersTest, testing::Values(34, 38), testing::PrintToStringParamName());

class MaximizedWindowTest : public FoldingPaneTest, public testing::WithParamInterface<Qt::WindowState>
{
protected:
    void holdByScreen()
    {
        const QSize available = QGuiApplication::primaryScreen()->availableSize();
        window.setWindowState(GetParam());
        ASSERT_TRUE(eventually([&] { return window.frameSize().height() >= available.height(); }));
    }

    void holdWhileItUnfolds()
    {
        const QSize size = window.size();
        toggleDisclosure();
        ASSERT_TRUE(eventually([&] { return window.height() != size.height(); }));
        window.setWindowState(GetParam());
        ASSERT_TRUE(eventually([&] { return window.width() != size.width(); }));
    }

    /// The window as soon as it is restored.
    void release(const QSize &size)
    {
        window.setWindowState(Qt::WindowNoState);
        ASSERT_TRUE(eventually([&] { return window.width() == size.width(); }));
    }

    /// The time in which a height that is owed is applied.
    static void waitForConfirmation()
    {
        QTimer confirmed;
        confirmed.setSingleShot(true);
        confirmed.start(std::chrono::milliseconds(600));
        ASSERT_TRUE(eventually([&] { return !confirmed.isActive(); }));
    }

    void restore(const QSize &size)
    {
        release(size);
        waitForConfirmation();
    }
};

TEST_P(MaximizedWindowTest, PaneFoldsInsideAndTheWindowKeepsTheScreensSize)
{
    show();
    holdByScreen();
    const QRect held = window.geometry();
    const platform::Rect frame = controls.mainWindow.frame();
    toggleDisclosure();
    ASSERT_TRUE(eventually([this] { return form.height() == window.height() - paneHeight(); }));
    EXPECT_TRUE(pane.isVisible());
    EXPECT_EQ(window.geometry(), held);
    EXPECT_EQ(window.windowState() & GetParam(), GetParam());
    toggleDisclosure();
    ASSERT_TRUE(eventually([this] { return form.height() == window.height(); }));
    EXPECT_EQ(controls.mainWindow.frame(), frame);
}

TEST_P(MaximizedWindowTest, UnfoldedWhileHeldTheRestoredWindowHasRoomForThePane)
{
    show();
    const int foldedHeight = window.height();
    const int width = window.width();
    holdByScreen();
    toggleDisclosure();
    ASSERT_TRUE(eventually([this] { return form.height() == window.height() - paneHeight(); }));
    window.setWindowState(Qt::WindowNoState);
    EXPECT_TRUE(eventually([&] { return window.height() == foldedHeight + paneHeight(); })) << window.height();
    EXPECT_EQ(window.width(), width);
    EXPECT_EQ(form.height(), foldedHeight);
}

TEST_P(MaximizedWindowTest, FoldedWhileHeldTheRestoredWindowIsFolded)
{
    show();
    const int foldedHeight = window.height();
    toggleAndWait();
    holdByScreen();
    toggleDisclosure();
    ASSERT_TRUE(eventually([this] { return form.height() == window.height(); }));
    window.setWindowState(Qt::WindowNoState);
    EXPECT_TRUE(eventually([&] { return window.height() == foldedHeight; })) << window.height();
    EXPECT_EQ(form.height(), foldedHeight);
}

TEST_P(MaximizedWindowTest, UnchangedWhileHeldTheRestoredWindowHasItsFormerSize)
{
    show();
    const QSize size = window.size();
    holdByScreen();
    toggleDisclosure();
    toggleDisclosure();
    restore(size);
    EXPECT_EQ(window.size(), size);
    EXPECT_EQ(form.height(), size.height());
}

TEST_P(MaximizedWindowTest, UnfoldedAndFoldedAndUnfoldedAgainWhileHeldItHasRoomForThePaneOnce)
{
    show();
    const QSize size = window.size();
    holdByScreen();
    toggleDisclosure();
    toggleDisclosure();
    toggleDisclosure();
    restore(size);
    EXPECT_EQ(window.height(), size.height() + paneHeight());
    EXPECT_EQ(form.height(), size.height());
}

TEST_P(MaximizedWindowTest, TheHeightThatItIsOwedIsNoneThatItMustHaveBefore)
{
    show();
    const QSize size = window.size();
    holdByScreen();
    toggleDisclosure();
    ASSERT_TRUE(eventually([this] { return form.height() == window.height() - paneHeight(); }));
    EXPECT_EQ(window.minimumHeight(), minimumFormHeight());
    restore(size);
    EXPECT_EQ(window.minimumHeight(), minimumFormHeight() + paneHeight());
}

TEST_P(MaximizedWindowTest, FoldedAsSoonAsTheWindowIsRestoredItHasItsFormerSize)
{
    show();
    const QSize size = window.size();
    holdByScreen();
    toggleDisclosure();
    release(size);
    toggleDisclosure();
    waitForRest();
    EXPECT_EQ(window.size(), size);
}

TEST_P(MaximizedWindowTest, UnfoldedAnewAsSoonAsTheWindowIsRestoredNothingEndsTheAnimationEarly)
{
    StyleWithAnimationsOf style(60'000);
    window.setStyle(&style);
    show();
    const QSize size = window.size();
    holdByScreen();
    toggleDisclosure();
    release(size);
    toggleDisclosure();
    toggleDisclosure();
    waitForConfirmation();
    EXPECT_EQ(window.minimumHeight(), minimumFormHeight()) << "it is on its way";
    EXPECT_LT(window.height(), size.height() + paneHeight());
    window.setStyle(nullptr);
}

TEST_P(MaximizedWindowTest, HeldWhileItUnfoldsTheAnimationEndsAndTheRestoredWindowHasItsHeight)
{
    show();
    const int foldedHeight = window.height();
    const int width = window.width();
    holdWhileItUnfolds();
    const QRect held = window.geometry();
    ASSERT_TRUE(eventually([this] { return form.height() == window.height() - paneHeight(); }));
    EXPECT_EQ(window.geometry(), held);
    window.setWindowState(Qt::WindowNoState);
    EXPECT_TRUE(eventually([&] { return window.height() == foldedHeight + paneHeight(); })) << window.height();
    EXPECT_EQ(window.width(), width);
}

TEST_P(MaximizedWindowTest, HeldWhileItUnfoldsAndFoldedAsSoonAsItIsRestoredItHasItsFormerSize)
{
    show();
    const QSize size = window.size();
    holdWhileItUnfolds();
    release(size);
    toggleDisclosure();
    waitForRest();
    EXPECT_EQ(window.size(), size);
}

TEST_P(MaximizedWindowTest, HeldWhileItUnfoldsAndGivenItsHeightByTheUserItMustHaveRoomForThePane)
{
    show();
    const QSize size = window.size();
    holdWhileItUnfolds();
    release(size);
    window.resize(size.width(), size.height() + paneHeight());
    EXPECT_TRUE(eventually([&] { return window.minimumHeight() == minimumFormHeight() + paneHeight(); }));
    EXPECT_EQ(window.height(), size.height() + paneHeight());
}

TEST_P(MaximizedWindowTest, HeldOnASmallScreenThePaneMakesDoWithWhatIsLeft)
{
    show();
    holdByScreen();
    toggleDisclosure();
    ASSERT_TRUE(eventually([this] { return form.height() == window.height() - paneHeight(); }));
    window.resize(window.width(), minimumFormHeight() + 50);
    expectDivisionAt(window.height() - 50);
}

TEST_P(MaximizedWindowTest, HeldWhileItUnfoldsAndFoldedAgainTheRestoredWindowIsFolded)
{
    show();
    const int foldedHeight = window.height();
    toggleDisclosure();
    ASSERT_TRUE(eventually([&] { return window.height() != foldedHeight; }));
    window.setWindowState(GetParam());
    toggleDisclosure();
    ASSERT_TRUE(eventually([this] { return form.height() == window.height(); }));
    window.setWindowState(Qt::WindowNoState);
    EXPECT_TRUE(eventually([&] { return window.height() == foldedHeight; })) << window.height();
}

INSTANTIATE_TEST_SUITE_P(, MaximizedWindowTest, testing::Values(Qt::WindowMaximized, Qt::WindowFullScreen),
                         [](const testing::TestParamInfo<Qt::WindowState> &given) {
                             return std::string(given.param == Qt::WindowMaximized ? "Maximised" : "FullScreen");
                         });
