// The interface objects of the controller on Qt's widgets.
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

/// Enables or disables a control, together with whatever in its window depends on that.
using EnabledSetter = std::function<void(bool)>;

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

class QtTextField : public platform::TextField
{
public:
    QtTextField(QLineEdit &lineEdit, EnabledSetter enableField);

    QString stringValue() const override;
    void setEnabled(bool enabled) override;

private:
    QLineEdit &field;
    EnabledSetter enable;
};

class QtTextView : public platform::TextView
{
public:
    explicit QtTextView(DescriptionEdit &description);

    QString string() const override;
    void setEditable(bool editable) override;

private:
    DescriptionEdit &edit;
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

class QtButton : public platform::Button
{
public:
    QtButton(QAbstractButton &abstractButton, EnabledSetter enableButton);

    void setState(int state) override;
    /// Shows the title as plain text; the title that the button came with keeps its mnemonic.
    void setTitle(const QString &title) override;
    void setEnabled(bool enabled) override;

private:
    QAbstractButton &button;
    EnabledSetter enable;
    QString titleWithMnemonic;
};

/// Ignores the request for a threaded animation: widgets are painted on the main thread only, and no operation keeps it
/// busy while the spinner turns. What is to be displayed again is known to the spinner itself.
class QtProgressIndicator : public platform::ProgressIndicator
{
public:
    explicit QtProgressIndicator(Spinner &indicator);

    void startAnimation(const platform::Object *sender) override;
    void stopAnimation(const platform::Object *sender) override;

private:
    Spinner &spinner;
};
