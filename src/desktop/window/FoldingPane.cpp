// How the pane folds while the form above it stays where it is.
#include "desktop/window/FoldingPane.h"

#include "desktop/window/WindowLog.h"

#include <QEvent>
#include <QGuiApplication>
#include <QLayout>
#include <QScreen>
#include <QStyle>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>

namespace {

/// How long a window system may take to confirm a size. Late resize events of an animation would make the form jump.
constexpr std::chrono::milliseconds kConfirmation(250);

QRect screenGeometry()
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    return screen ? screen->geometry() : QRect();
}

/// The space available for the window's contents. The window's frame is not known before the window is shown, so this
/// takes the one that the style would draw.
QSize availableSize(const QWidget &window)
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen) {
        return {};
    }
    const int edge = window.style()->pixelMetric(QStyle::PM_MdiSubWindowFrameWidth, nullptr, &window);
    const int titleBar = window.style()->pixelMetric(QStyle::PM_TitleBarHeight, nullptr, &window);
    return screen->availableSize() - QSize(2 * edge, titleBar + 2 * edge);
}

platform::Rect frameOf(const QRect &geometry)
{
    const QRect screen = screenGeometry();
    const int screenBottom = screen.y() + screen.height();
    return {static_cast<double>(geometry.x() - screen.x()),
            static_cast<double>(screenBottom - geometry.y() - geometry.height()), static_cast<double>(geometry.width()),
            static_cast<double>(geometry.height())};
}

QRect geometryOf(const platform::Rect &frame)
{
    const QRect screen = screenGeometry();
    const int height = static_cast<int>(std::lround(frame.height));
    const int bottom = screen.y() + screen.height() - static_cast<int>(std::lround(frame.y));
    return {screen.x() + static_cast<int>(std::lround(frame.x)), bottom - height,
            static_cast<int>(std::lround(frame.width)), height};
}

/// Where a unit is not a whole number of pixels, the toolkit rounds a height in both directions, and how depends on the
/// window's place: a window that was given one of two such heights may tell of the other.
bool differByRounding(int height, int other)
{
    return std::abs(height - other) <= 1;
}

bool differOnlyInHeight(const QRect &one, const QRect &other)
{
    return one.topLeft() == other.topLeft() && one.width() == other.width();
}

} // namespace

FoldingPane::FoldingPane(QWidget &parentWindow, QWidget &upperPart, QWidget &lowerPart)
    : window(parentWindow)
    , form(upperPart)
    , pane(lowerPart)
{
    connect(&animation, &QVariantAnimation::valueChanged, this,
            [this](const QVariant &height) { stepTo(height.toInt()); });
    connect(&animation, &QVariantAnimation::finished, this, [this] {
        pane.setVisible(!folded);
        settle(kConfirmation);
    });
    animation.setEasingCurve(QEasingCurve::InOutQuad);
    connect(&settling, &QTimer::timeout, this, &FoldingPane::rest);
    restoring.setSingleShot(true);
    connect(&restoring, &QTimer::timeout, this, &FoldingPane::applyPendingHeight);

    setInitialSize();
    window.installEventFilter(this);
    rest();
}

void FoldingPane::setInitialSize()
{
    const QSize available = availableSize(window);
    const int preferredWidth = std::max(form.sizeHint().width(), pane.sizeHint().width());
    const int width = std::max(minimumWidth(), std::min(preferredWidth, available.width()));
    const int minimumForm = form.layout()->totalMinimumHeightForWidth(width);
    const int preferredForm = std::max(minimumForm, form.layout()->totalHeightForWidth(width));
    paneHeight =
        std::clamp(available.height() - preferredForm, pane.minimumSizeHint().height(), pane.sizeHint().height());
    const int formHeight = std::clamp(available.height() - paneHeight, minimumForm, preferredForm);
    givenHeight = formHeight + paneHeight;
    window.resize(width, givenHeight);
}

void FoldingPane::setFolded(bool fold)
{
    if (folded == fold) {
        return;
    }
    folded = fold;
    qCInfo(lcWindow) << (folded ? "pane folded" : "pane unfolded");
    if (state != State::Moving) {
        settle({});
    }
    // A pane that folds in view stays painted until the window has closed over it.
    if (!folded || !window.isVisible()) {
        pane.setVisible(!folded);
    }
}

platform::Rect FoldingPane::frame() const
{
    QRect geometry = window.geometry();
    if (state == State::Moving) {
        geometry.setHeight(animation.endValue().toInt());
    } else if (!isMaximizedOrFullScreen()) {
        geometry.setHeight(restoredHeight());
    }
    return frameOf(geometry);
}

void FoldingPane::setFrame(const platform::Rect &frame, platform::Animation animate)
{
    const QRect wanted = geometryOf(frame);
    const bool onlyHeightChanges = differOnlyInHeight(wanted, window.geometry());
    animation.stop();
    settle({});
    if (isMaximizedOrFullScreen()) {
        pendingHeightDelta += wanted.height() - window.height();
        return;
    }
    pendingHeightDelta = 0;
    interruptedTarget.reset();
    // What was owed is so no more, and to apply it would stop an animation that begins now.
    restoring.stop();
    givenHeight = wanted.height();
    if (!onlyHeightChanges) {
        window.setGeometry(wanted);
    } else if (animate == platform::Animation::On && isInView()) {
        // Where the style wants none, it is over at once.
        animateToHeight(wanted.height());
    } else {
        window.resize(wanted.size());
    }
}

bool FoldingPane::eventFilter(QObject * /*window*/, QEvent *event)
{
    switch (event->type()) {
    case QEvent::Resize:
    case QEvent::WindowStateChange:
        if (state == State::Moving && isMaximizedOrFullScreen()) {
            abandonAnimation();
        } else if (state == State::Resting) {
            rest();
        } else {
            layOutChildren();
        }
        if (hasPendingHeight() && !isMaximizedOrFullScreen()) {
            restoring.start(kConfirmation);
        }
        break;
    // The form's layout asks for one where what it needs has changed (QLayout::activate).
    case QEvent::LayoutRequest:
        if (state == State::Resting) {
            rest();
        }
        break;
    default:
        break;
    }
    return false;
}

void FoldingPane::animateToHeight(int height)
{
    settling.stop();
    state = State::Moving;
    animation.setDuration(animationDuration());
    animation.setStartValue(window.height());
    animation.setEndValue(height);
    animation.start();
}

// The last step has to change something: a window that stands so close to the end that it tells of the end already
// would stay there.
void FoldingPane::stepTo(int height)
{
    const int end = animation.endValue().toInt();
    if (height == end || !differByRounding(height, end)) {
        window.resize(window.width(), height);
    }
}

// Another step of the animation would take the window out of the place that it has on the screen now.
void FoldingPane::abandonAnimation()
{
    animation.stop();
    interruptedTarget = animation.endValue().toInt();
    rest();
}

void FoldingPane::settle(std::chrono::milliseconds duration)
{
    state = State::Settling;
    window.setMinimumHeight(minimumFormHeight());
    settling.start(duration);
}

void FoldingPane::rest()
{
    settling.stop();
    state = State::Resting;
    pane.setVisible(!folded);
    const int shownPane = folded || hasPendingHeight() ? 0 : paneHeight;
    window.setMinimumSize(minimumWidth(), minimumFormHeight() + shownPane);
    layOutChildren();
}

void FoldingPane::layOutChildren()
{
    const bool formStays = state != State::Resting;
    const int shownPane = folded ? 0 : paneHeight;
    const int formHeight = formStays ? form.height() : std::max(minimumFormHeight(), window.height() - shownPane);
    // On a screen too small for both, the pane makes do with what is left.
    const int paneSpace = formStays ? paneHeight : std::clamp(window.height() - formHeight, 0, paneHeight);
    form.setGeometry(0, 0, window.width(), formHeight);
    pane.setGeometry(0, formHeight, window.width(), paneSpace);
}

// The window manager reports the restored state and the restored size in either order, and nothing tells which comes
// last: so this runs when neither has changed for a while.
void FoldingPane::applyPendingHeight()
{
    if (isMaximizedOrFullScreen()) {
        return;
    }
    givenHeight = restoredHeight();
    pendingHeightDelta = 0;
    interruptedTarget.reset();
    window.resize(window.width(), givenHeight);
    rest();
}

// By its own word, a window that folds a few times would lose a unit each time.
int FoldingPane::currentHeight() const
{
    return differByRounding(window.height(), givenHeight) ? givenHeight : window.height();
}

int FoldingPane::restoredHeight() const
{
    return interruptedTarget.value_or(currentHeight()) + pendingHeightDelta;
}

int FoldingPane::minimumFormHeight() const
{
    return form.layout()->totalMinimumHeightForWidth(std::max(window.width(), form.minimumSizeHint().width()));
}

int FoldingPane::minimumWidth() const
{
    return std::max(form.minimumSizeHint().width(), pane.minimumSizeHint().width());
}

bool FoldingPane::isMaximizedOrFullScreen() const
{
    return window.isMaximized() || window.isFullScreen();
}

bool FoldingPane::isInView() const
{
    return window.isVisible() && !window.isMinimized();
}

int FoldingPane::animationDuration() const
{
    return window.style()->styleHint(QStyle::SH_Widget_Animation_Duration, nullptr, &window);
}

#include "moc_FoldingPane.cpp"
