// What the tests of the report window share: bounded waits, a shown window and the disclosure as the controller does
// it.
#pragma once

#include "desktop/window/ReportWindow.h"

#include <QTest>

#include <gtest/gtest.h>

#include <ostream>
#include <string>

/// A case of a table of texts.
struct NamedText {
    std::string name;
    QString text;
};

inline void PrintTo(const NamedText &named, std::ostream *stream)
{
    *stream << named.name;
}

/// Waits for the condition, five seconds at most, and gives whether it came true.
template<typename Condition>
bool comesTrue(Condition condition)
{
    return QTest::qWaitFor(condition, 5000);
}

/// Folds or unfolds the pane in the order of steps that the controller uses.
inline void toggleDisclosure(const platform::ReportControls &controls)
{
    using platform::Animation;
    using platform::Display;
    platform::Window &window = controls.mainWindow;
    platform::View &pane = controls.logView;
    if (pane.isHidden()) {
        platform::Rect frame = window.frame();
        frame.height += pane.frame().height;
        frame.y -= pane.frame().height;
        window.setFrameDisplayAnimate(frame, Display::On, Animation::On);
        pane.setHidden(false);
        return;
    }
    pane.setHidden(true);
    platform::Rect frame = window.frame();
    frame.height -= pane.frame().height;
    frame.y += pane.frame().height;
    window.setFrameDisplayAnimate(frame, Display::On, Animation::On);
}

/// What the controller does to the window when a report is on its way, in its order.
inline void enterSendingState(const platform::ReportControls &controls)
{
    controls.spinner.setUsesThreadedAnimation(true);
    controls.spinner.startAnimation(nullptr);
    controls.spinner.setNeedsDisplay(true);
    controls.infoText.setEditable(false);
    controls.emailText.setEnabled(false);
    controls.submitBtn.setEnabled(false);
    controls.submitBtn.setTitle(QStringLiteral("Sending..."));
}

/// What the controller does to the window when the server refuses the report.
inline void enterRefusedState(const platform::ReportControls &controls)
{
    controls.spinner.stopAnimation(nullptr);
    controls.submitBtn.setTitle(QStringLiteral("Report Crash"));
    controls.submitBtn.setEnabled(true);
}

/// What the controller does to the window when the user cancels.
inline void enterIdleState(const platform::ReportControls &controls)
{
    enterRefusedState(controls);
    controls.emailText.setEnabled(true);
    controls.infoText.setEditable(true);
}

/// Gives the child of that object name; a missing one ends the test run, because nothing can be tested without it.
template<typename Widget>
Widget &child(const QWidget &window, const char *name)
{
    auto *widget = window.findChild<Widget *>(QLatin1String(name));
    if (!widget)
        qFatal("The window has no child named %s.", name);
    return *widget;
}
