// The pane at the bottom of a window that folds away, and the window's frame that moves with it.
#pragma once

#include "platform/Controls.h"

#include <QTimer>
#include <QVariantAnimation>
#include <QWidget>

#include <chrono>
#include <optional>

/// Divides a window into a form at its top and a pane below, and gives and changes the window's frame the way the
/// controller speaks of it. The pane has one height, folded or not. What the form does follows from the state:
///
/// | state    | the form                        | the window's minimum height | until                            |
/// |----------|---------------------------------|-----------------------------|----------------------------------|
/// | Resting  | takes what the pane leaves      | form, and the pane where it | a fold or a new frame            |
/// |          |                                 | is unfolded and no height   |                                  |
/// |          |                                 | is owed                     |                                  |
/// | Moving   | keeps its height, nothing moves | form alone                  | the animation ends, or the       |
/// |          |                                 |                             | window is maximized: Resting     |
/// | Settling | keeps its height                | form alone                  | the window system has had time   |
/// |          |                                 |                             | to confirm the size: Resting     |
///
/// A maximized or full-screen window keeps the screen's size, and the pane folds inside it; the change of height that
/// was asked for meanwhile is applied when the window is restored.
///
/// Frames are in screen coordinates with y growing upwards and the origin at the bottom left of the primary screen.
/// They are those of the window without the window manager's decoration, which is not known before the window is shown.
class FoldingPane : public QObject
{
    Q_OBJECT

public:
    /// Takes the window, and the form and the pane that are its children. The pane is unfolded at first.
    FoldingPane(QWidget &parentWindow, QWidget &upperPart, QWidget &lowerPart);

    bool isFolded() const { return folded; }
    void setFolded(bool fold);
    /// Logical pixels that the pane takes when it is unfolded.
    int height() const { return paneHeight; }

    /// The window's frame; while it is on its way to another one, that one.
    platform::Rect frame() const;
    /// Gives the window the frame. Where only the height changes, the window is resized and never moved, because a
    /// window may not place itself everywhere; only such a change is animated. At a fractional scale the toolkit (6.4)
    /// rounds the window's place to a pixel of its own, which may lie one of the screen's beside it.
    void setFrame(const platform::Rect &frame, platform::Animation animation);

protected:
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    enum class State { Resting, Moving, Settling };

    void setInitialSize();
    void animateToHeight(int height);
    void stepTo(int height);
    void abandonAnimation();
    void settle(std::chrono::milliseconds duration);
    void rest();
    void layOutChildren();
    void applyPendingHeight();
    bool hasPendingHeight() const { return pendingHeightDelta != 0 || interruptedTarget.has_value(); }
    int currentHeight() const;
    int restoredHeight() const;
    int minimumFormHeight() const;
    int minimumWidth() const;
    bool isMaximizedOrFullScreen() const;
    bool isInView() const;
    int animationDuration() const;

    QWidget &window;
    QWidget &form;
    QWidget &pane;
    int paneHeight = 0;
    int givenHeight = 0; ///< What the window was last given.
    bool folded = false;
    State state = State::Resting;
    QVariantAnimation animation; ///< Runs while Moving.
    QTimer settling;             ///< Runs while Settling.
    int pendingHeightDelta = 0;  ///< Asked of a maximized window; applied when the window is restored.
    /// Where the animation was going when the window was maximized; it is restored to a height on the way.
    std::optional<int> interruptedTarget;
    QTimer restoring;
};
