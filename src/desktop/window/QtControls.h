// The interface objects of the controller on Qt's widgets.
#pragma once

#include "desktop/reportview/ReportTextView.h"
#include "desktop/window/DescriptionEdit.h"
#include "desktop/window/FoldingPane.h"
#include "desktop/window/HeadlineLabel.h"
#include "platform/Controls.h"

#include <QAbstractButton>
#include <QLineEdit>

#include <functional>

/// Called when a control was told something that the window's state may follow from.
using ChangeHandler = std::function<void()>;

/// The window, with the frame that the folding pane keeps.
class QtWindow : public platform::Window
{
public:
    QtWindow(QWidget &topLevel, FoldingPane &folding);

    platform::Rect frame() const override;
    void setFrameDisplayAnimate(const platform::Rect &frame, platform::Display display,
                                platform::Animation animation) override;
    void makeKeyAndOrderFront(const platform::Object *sender) override;

private:
    QWidget &window;
    FoldingPane &foldingPane;
};

/// The log pane, which hides by folding.
class QtView : public platform::View
{
public:
    QtView(QWidget &view, FoldingPane &folding);

    bool isHidden() const override;
    void setHidden(bool hidden) override;
    platform::Rect frame() const override;

private:
    QWidget &pane;
    FoldingPane &foldingPane;
};

/// Shows the headline, on a text field that nobody types into.
class QtHeadline : public platform::TextField
{
public:
    explicit QtHeadline(HeadlineLabel &headline);

    void setStringValue(const QString &text) override;

private:
    HeadlineLabel &label;
};

// The following four keep what they are told; ReportWindow shows it, all of it at once.

class QtTextField : public platform::TextField
{
public:
    QtTextField(const QLineEdit &lineEdit, ChangeHandler handler);

    QString stringValue() const override;
    void setEnabled(bool enabled) override;

    bool isEnabled() const { return enabled; }

private:
    const QLineEdit &field;
    ChangeHandler changed;
    bool enabled = true;
};

class QtTextView : public platform::TextView
{
public:
    QtTextView(const DescriptionEdit &description, ChangeHandler handler);

    QString string() const override;
    void setEditable(bool editable) override;

    bool isEditable() const { return editable; }

private:
    const DescriptionEdit &edit;
    ChangeHandler changed;
    bool editable = true;
};

class QtSubmitButton : public platform::Button
{
public:
    /// The button's title with its mnemonic is what it shows when it is told that title without one.
    QtSubmitButton(const QAbstractButton &button, ChangeHandler handler);

    void setTitle(const QString &title) override;
    void setEnabled(bool enabled) override;

    /// The title as a button takes it, in which a single "&" marks a mnemonic.
    QString title() const { return shownTitle; }
    bool isEnabled() const { return enabled; }

private:
    ChangeHandler changed;
    const QString ownTitle;
    QString shownTitle;
    bool enabled = true;
};

/// Ignores the request for a threaded animation: widgets are painted on the main thread only, and no operation keeps it
/// busy while the spinner turns. What needs to be displayed is known to the spinner itself.
class QtProgressIndicator : public platform::ProgressIndicator
{
public:
    explicit QtProgressIndicator(ChangeHandler handler);

    void startAnimation(const platform::Object *sender) override;
    void stopAnimation(const platform::Object *sender) override;

    bool isAnimated() const { return animated; }

private:
    ChangeHandler changed;
    bool animated = false;
};

/// Keeps the report text exactly as it was set, whatever of it is displayed.
class QtReportText : public platform::TextView
{
public:
    explicit QtReportText(ReportTextView &reportText);

    QString string() const override;
    void setString(const QString &text) override;

private:
    ReportTextView &view;
};

class QtDisclosureButton : public platform::Button
{
public:
    explicit QtDisclosureButton(QAbstractButton &button);

    void setState(int state) override;

private:
    QAbstractButton &triangle;
};
