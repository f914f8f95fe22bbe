// How the pane folds while the form above it stays where it is.
#include "desktop/window/FoldingPane.h"

#include <QEvent>
#include <QGuiApplication>
#include <QLayout>
#include <QScreen>
#include <QStyle>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace {

/// A window system confirms sizes some time after they were asked for, and the late confirmations of an animation's
/// steps would pull the form about. This is how long they may take.
constexpr std::chrono::milliseconds kLateConfirmations(250);

QRect screenGeometry()
{
    const QScreen *screen = QGuiApplication::primaryScreen();
    return screen ? screen->geometry() : QRect();
}

/// What the screen has for a window inside its frame. Nobody knows the frame before the window is shown, so this takes
/// the one that the style would draw.
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
    connect(&movement, &QVariantAnimation::valueChanged, this,
            [this](const QVariant &height) { window.resize(window.width(), height.toInt()); });
    connect(&movement, &QVariantAnimation::finished, this, [this] {
        targetHeight.reset();
        pane.setVisible(!folded);
        settling.start(kLateConfirmations);
    });
    movement.setEasingCurve(QEasingCurve::InOutQuad);
    settling.setSingleShot(true);
    connect(&settling, &QTimer::timeout, this, &FoldingPane::settle);
    restoring.setSingleShot(true);
    connect(&restoring, &QTimer::timeout, this, &FoldingPane::payHeightOwed);

    takeFirstSize();
    window.installEventFilter(this);
    form.installEventFilter(this);
    settle();
}

void FoldingPane::takeFirstSize()
{
    const QSize available = availableSize(window);
    const int leastWidth = std::max(form.minimumSizeHint().width(), pane.minimumSizeHint().width());
    const int usualWidth = std::max(form.sizeHint().width(), pane.sizeHint().width());
    const int width = std::max(leastWidth, std::min(usualWidth, available.width()));
    const int leastForm = form.layout()->totalMinimumHeightForWidth(width);
    const int usualForm = std::max(leastForm, form.layout()->totalHeightForWidth(width));
    paneHeight = std::clamp(available.height() - usualForm, pane.minimumSizeHint().height(), pane.sizeHint().height());
    const int formHeight = std::clamp(available.height() - paneHeight, leastForm, usualForm);
    window.resize(width, formHeight + paneHeight);
}

void FoldingPane::setFolded(bool fold)
{
    if (folded == fold) {
        return;
    }
    folded = fold;
    holdForm();
    // A pane that folds in view stays painted until the window has closed over it.
    if (!folded || !window.isVisible()) {
        pane.setVisible(!folded);
    }
}

platform::Rect FoldingPane::frame() const
{
    QRect geometry = window.geometry();
    if (!isHeldByScreen()) {
        geometry.setHeight(targetHeight.value_or(restoredHeight()));
    }
    return frameOf(geometry);
}

void FoldingPane::setFrame(const platform::Rect &frame, platform::Animation animation)
{
    const QRect wanted = geometryOf(frame);
    const bool onlyHeightChanges = differOnlyInHeight(wanted, window.geometry());
    movement.stop();
    targetHeight.reset();
    holdForm();
    if (isHeldByScreen()) {
        heightOwed += wanted.height() - window.height();
        return;
    }
    heightOwed = 0;
    interruptedTarget.reset();
    if (!onlyHeightChanges) {
        window.setGeometry(wanted);
    } else if (animation == platform::Animation::On && isInView() && animationDuration() > 0) {
        moveToHeight(wanted.height());
    } else {
        window.resize(wanted.size());
    }
}

bool FoldingPane::eventFilter(QObject *object, QEvent *event)
{
    switch (event->type()) {
    case QEvent::Show:
        if (object == &window) {
            settle();
        }
        break;
    case QEvent::Resize:
    case QEvent::WindowStateChange:
        if (object == &window) {
            if (isHeldByScreen() && movement.state() == QAbstractAnimation::Running) {
                leaveMovementToTheScreen();
            }
            if (formIsHeld) {
                divide();
            } else {
                settle();
            }
            if (owesHeight() && !isHeldByScreen()) {
                restoring.start(kLateConfirmations);
            }
        }
        break;
    case QEvent::LayoutRequest:
        if (!formIsHeld) {
            settle();
        }
        break;
    default:
        break;
    }
    return QObject::eventFilter(object, event);
}

void FoldingPane::moveToHeight(int height)
{
    settling.stop();
    targetHeight = height;
    movement.setDuration(animationDuration());
    movement.setStartValue(window.height());
    movement.setEndValue(height);
    movement.start();
}

// A step of the movement would take the window out of the place that it has on the screen now.
void FoldingPane::leaveMovementToTheScreen()
{
    movement.stop();
    interruptedTarget = std::exchange(targetHeight, std::nullopt);
    settle();
}

void FoldingPane::holdForm()
{
    formIsHeld = true;
    window.setMinimumHeight(leastFormHeight());
    if (movement.state() != QAbstractAnimation::Running) {
        settling.start(0);
    }
}

void FoldingPane::settle()
{
    if (movement.state() == QAbstractAnimation::Running) {
        return;
    }
    settling.stop();
    formIsHeld = false;
    pane.setVisible(!folded);
    const int unfoldedHeight = folded || owesHeight() ? 0 : paneHeight;
    window.setMinimumSize(std::max(form.minimumSizeHint().width(), pane.minimumSizeHint().width()),
                          leastFormHeight() + unfoldedHeight);
    divide();
}

void FoldingPane::divide()
{
    const int shownPane = folded ? 0 : paneHeight;
    const int formHeight = formIsHeld ? form.height() : std::max(leastFormHeight(), window.height() - shownPane);
    // Where a screen is too small for both, the pane makes do with what is left.
    const int room = formIsHeld ? paneHeight : std::clamp(window.height() - formHeight, 0, paneHeight);
    form.setGeometry(0, 0, window.width(), formHeight);
    pane.setGeometry(0, formHeight, window.width(), room);
}

// The window manager tells of the restored state and of the restored size in either order, and of nothing more: so this
// runs when neither has changed for a while.
void FoldingPane::payHeightOwed()
{
    if (isHeldByScreen()) {
        return;
    }
    const int height = restoredHeight();
    heightOwed = 0;
    interruptedTarget.reset();
    window.resize(window.width(), height);
    settle();
}

int FoldingPane::restoredHeight() const
{
    return interruptedTarget.value_or(window.height()) + heightOwed;
}

int FoldingPane::leastFormHeight() const
{
    return form.layout()->totalMinimumHeightForWidth(std::max(window.width(), form.minimumSizeHint().width()));
}

bool FoldingPane::isHeldByScreen() const
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
