// The pane at the bottom of a window that folds away, and the window's frame that moves with it.
#pragma once

#include "platform/Controls.h"

#include <QTimer>
#include <QVariantAnimation>
#include <QWidget>

#include <optional>

/// Divides a window into a form at its top and a pane below, and gives and changes the window's frame the way the
/// controller speaks of it.
///
/// The form begins at the top edge and takes the height that the pane leaves; while the frame is on its way to a new
/// height the form keeps its own, so that nothing in it moves. The pane has one height, folded or not.
///
/// Frames are in screen coordinates with y growing upwards and the origin at the bottom left of the primary screen.
/// They are those of the window without the window manager's decoration, which nobody knows before the window is shown.
class FoldingPane : public QObject
{
    Q_OBJECT

public:
    /// Takes the window, the form and the pane, both its children. The pane is unfolded at first.
    FoldingPane(QWidget &parentWindow, QWidget &upperPart, QWidget &lowerPart);

    bool isFolded() const { return folded; }
    void setFolded(bool fold);
    /// Logical pixels that the pane takes when it is unfolded.
    int height() const { return paneHeight; }

    /// The window's frame; while it is on its way to another one, that one.
    platform::Rect frame() const;
    /// Gives the window the frame. Where only the height changes, the window is resized and never moved, because a
    /// window may not place itself everywhere; only such a change is animated. A maximised window keeps the screen's
    /// size; it gets the change of height when it is restored.
    void setFrame(const platform::Rect &frame, platform::Animation animation);

protected:
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    void takeFirstSize();
    void moveToHeight(int height);
    void leaveMovementToTheScreen();
    void holdForm();
    void settle();
    void divide();
    void payHeightOwed();
    bool owesHeight() const { return heightOwed != 0 || interruptedTarget.has_value(); }
    int restoredHeight() const;
    int leastFormHeight() const;
    bool isHeldByScreen() const;
    bool isInView() const;
    int animationDuration() const;

    QWidget &window;
    QWidget &form;
    QWidget &pane;
    int paneHeight = 0;
    bool folded = false;
    bool formIsHeld = false;         ///< The form keeps its height whatever the window's is.
    std::optional<int> targetHeight; ///< While the window's height is on its way.
    QVariantAnimation movement;
    QTimer settling;
    int heightOwed = 0; ///< What was asked of a window that the screen holds; it is due when the window is restored.
    /// Where the window was going when the screen took hold of it; what it is restored to then is a height on the way.
    std::optional<int> interruptedTarget;
    QTimer restoring;
};
