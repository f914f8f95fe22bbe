// The interface objects of the controller on single widgets.
#pragma once

#include "desktop/window/DescriptionEdit.h"
#include "desktop/window/FoldingPane.h"
#include "desktop/window/HeadlineLabel.h"
#include "desktop/window/ReportTextView.h"
#include "desktop/window/Spinner.h"
#include "platform/Controls.h"

#include <QAbstractButton>
#include <QLineEdit>

#include <functional>

/// What every control on a widget of its own has in common.
template<typename Control, typename Widget>
class WidgetControl : public Control
{
public:
    explicit WidgetControl(Widget &control)
        : widget(control)
    {
    }

    bool isHidden() const override { return widget.isHidden(); }
    void setHidden(bool hidden) override { widget.setHidden(hidden); }
    platform::Rect frame() const override
    {
        const QWidget *parent = widget.parentWidget();
        const int bottom = widget.y() + widget.height();
        return {static_cast<double>(widget.x()), static_cast<double>((parent ? parent->height() : bottom) - bottom),
                static_cast<double>(widget.width()), static_cast<double>(widget.height())};
    }
    void setNeedsDisplay(bool needsDisplay) override
    {
        if (needsDisplay) {
            widget.update();
        }
    }

protected:
    Widget &widget;
};

/// Enables or disables a control, together with whatever in its window depends on that.
using Switch = std::function<void(bool)>;

/// The window as far as its frame is concerned, which the folding pane moves.
class WindowAdapter : public platform::Window
{
public:
    WindowAdapter(QWidget &topLevel, FoldingPane &folding);

    platform::Rect frame() const override;
    void setFrameDisplayAnimate(const platform::Rect &frame, platform::Display display,
                                platform::Animation animation) override;
    void makeKeyAndOrderFront(const platform::Object *sender) override;

private:
    QWidget &window;
    FoldingPane &foldingPane;
};

class PaneAdapter : public WidgetControl<platform::View, QWidget>
{
public:
    PaneAdapter(QWidget &pane, FoldingPane &folding);

    bool isHidden() const override;
    void setHidden(bool hidden) override;
    platform::Rect frame() const override;

private:
    FoldingPane &foldingPane;
};

/// Gives back the headline exactly as it was set, whatever of it is shown.
class HeadlineAdapter : public WidgetControl<platform::TextField, HeadlineLabel>
{
public:
    using WidgetControl::WidgetControl;

    QString stringValue() const override { return text; }
    void setStringValue(const QString &newText) override;
    void setEnabled(bool enabled) override;

private:
    QString text;
};

class LineEditAdapter : public WidgetControl<platform::TextField, QLineEdit>
{
public:
    LineEditAdapter(QLineEdit &field, Switch enableField);

    QString stringValue() const override;
    void setStringValue(const QString &text) override;
    void setEnabled(bool enabled) override;

private:
    Switch enable;
};

class DescriptionAdapter : public WidgetControl<platform::TextView, DescriptionEdit>
{
public:
    using WidgetControl::WidgetControl;

    QString string() const override;
    void setString(const QString &text) override;
    void setEditable(bool editable) override;
};

class ReportTextAdapter : public WidgetControl<platform::TextView, ReportTextView>
{
public:
    using WidgetControl::WidgetControl;

    QString string() const override;
    void setString(const QString &text) override;
    /// The report text is never editable.
    void setEditable(bool /*editable*/) override {}
};

class ButtonAdapter : public WidgetControl<platform::Button, QAbstractButton>
{
public:
    ButtonAdapter(QAbstractButton &button, Switch enableButton);

    void setState(int state) override;
    /// Shows the title as plain text; the title that the button came with keeps its mnemonic.
    void setTitle(const QString &title) override;
    void setEnabled(bool enabled) override;

private:
    Switch enable;
    QString titleWithMnemonic;
};

class SpinnerAdapter : public WidgetControl<platform::ProgressIndicator, Spinner>
{
public:
    using WidgetControl::WidgetControl;

    /// Nothing: widgets are painted on the main thread only, and no operation keeps it busy while the spinner turns.
    void setUsesThreadedAnimation(bool /*threaded*/) override {}
    void startAnimation(const platform::Object *sender) override;
    void stopAnimation(const platform::Object *sender) override;
};
