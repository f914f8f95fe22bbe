// The controls of the report window, each with only the verbs that the controller uses.
//
// Every base class is also the missing object: it returns zero, false or empty, and does nothing. An outlet that is not
// connected points at the shared instance from missing(), so no operation needs a test for null.
#pragma once

#include "platform/Object.h"

#include <QString>

namespace platform {

/// A rectangle in the coordinates that its giver names. For a window these are screen coordinates with y growing
/// upwards and the origin at the bottom left, so its top edge lies at y + height.
struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    bool operator==(const Rect &) const = default;
};

/// Whether a change of a window's frame is shown as a movement or at once.
enum class Animation { Off, On };
/// Whether a window redraws itself together with a change of its frame.
enum class Display { Off, On };

/// The states of a button that stays as it was pressed, such as a disclosure triangle.
inline constexpr int kStateOff = 0;
inline constexpr int kStateOn = 1;

class View : public Object
{
public:
    /// The shared missing view.
    static View &missing();

    virtual bool isHidden() const { return false; }
    virtual void setHidden(bool /*hidden*/) {}
    /// The view's rectangle in its superview; the height is the one the view has when it is shown.
    virtual Rect frame() const { return {}; }
};

class TextField : public Object
{
public:
    static TextField &missing();

    /// The field's text, exactly as it was set or typed.
    virtual QString stringValue() const { return {}; }
    /// Shows the text as plain text, never as markup.
    virtual void setStringValue(const QString & /*text*/) {}
    virtual void setEnabled(bool /*enabled*/) {}
};

class TextView : public Object
{
public:
    static TextView &missing();

    /// The whole text, exactly as it was set or typed.
    virtual QString string() const { return {}; }
    virtual void setString(const QString & /*text*/) {}
    virtual void setEditable(bool /*editable*/) {}
};

class Button : public Object
{
public:
    static Button &missing();

    /// Takes kStateOff or kStateOn. Setting a state triggers no action.
    virtual void setState(int /*state*/) {}
    virtual void setTitle(const QString & /*title*/) {}
    virtual void setEnabled(bool /*enabled*/) {}
};

class ProgressIndicator : public Object
{
public:
    static ProgressIndicator &missing();

    /// Asks for an animation that goes on while the main thread is busy, where the platform has one.
    virtual void setUsesThreadedAnimation(bool /*threaded*/) {}
    virtual void startAnimation(const Object * /*sender*/) {}
    virtual void stopAnimation(const Object * /*sender*/) {}
    virtual void setNeedsDisplay(bool /*needsDisplay*/) {}
};

class Window : public Object
{
public:
    static Window &missing();

    /// The window's rectangle in screen coordinates, y growing upwards. While a change of the frame is on its way
    /// this is the rectangle last asked for.
    virtual Rect frame() const { return {}; }
    /// Moves and resizes the window to the rectangle, in screen coordinates with y growing upwards.
    virtual void setFrameDisplayAnimate(const Rect & /*frame*/, Display /*display*/, Animation /*animation*/) {}
    /// Shows the window, puts it before the others and gives it the keyboard.
    virtual void makeKeyAndOrderFront(const Object * /*sender*/) {}
};

} // namespace platform
