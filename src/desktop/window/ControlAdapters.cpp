// How the controller's messages reach the widgets.
#include "desktop/window/ControlAdapters.h"

#include <QSignalBlocker>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// A title as a button takes it, in which a single "&" would mark a mnemonic.
QString literalTitle(QString title)
{
    return title.replace(u'&', u"&&"_s);
}

} // namespace

WindowAdapter::WindowAdapter(QWidget &topLevel, FoldingPane &folding)
    : window(topLevel)
    , foldingPane(folding)
{
}

platform::Rect WindowAdapter::frame() const
{
    return foldingPane.frame();
}

void WindowAdapter::setFrameDisplayAnimate(const platform::Rect &frame, platform::Display display,
                                           platform::Animation animation)
{
    foldingPane.setFrame(frame, animation);
    if (display == platform::Display::On) {
        window.update();
    }
}

void WindowAdapter::makeKeyAndOrderFront(const platform::Object * /*sender*/)
{
    window.setWindowState(window.windowState() & ~Qt::WindowMinimized);
    window.show();
    window.raise();
    window.activateWindow();
}

PaneAdapter::PaneAdapter(QWidget &pane, FoldingPane &folding)
    : WidgetControl(pane)
    , foldingPane(folding)
{
}

bool PaneAdapter::isHidden() const
{
    return foldingPane.isFolded();
}

void PaneAdapter::setHidden(bool hidden)
{
    foldingPane.setFolded(hidden);
}

platform::Rect PaneAdapter::frame() const
{
    return {0, 0, static_cast<double>(widget.width()), static_cast<double>(foldingPane.height())};
}

void HeadlineAdapter::setStringValue(const QString &newText)
{
    text = newText;
    widget.setHeadline(newText);
}

void HeadlineAdapter::setEnabled(bool enabled)
{
    widget.setEnabled(enabled);
}

LineEditAdapter::LineEditAdapter(QLineEdit &field, Switch enableField)
    : WidgetControl(field)
    , enable(std::move(enableField))
{
}

QString LineEditAdapter::stringValue() const
{
    return widget.text();
}

void LineEditAdapter::setStringValue(const QString &text)
{
    widget.setText(text);
}

void LineEditAdapter::setEnabled(bool enabled)
{
    enable(enabled);
}

QString DescriptionAdapter::string() const
{
    return widget.typedText();
}

void DescriptionAdapter::setString(const QString &text)
{
    widget.setPlainText(text);
}

void DescriptionAdapter::setEditable(bool editable)
{
    widget.setEditable(editable);
}

QString ReportTextAdapter::string() const
{
    return widget.string();
}

void ReportTextAdapter::setString(const QString &text)
{
    widget.setString(text);
}

ButtonAdapter::ButtonAdapter(QAbstractButton &button, Switch enableButton)
    : WidgetControl(button)
    , enable(std::move(enableButton))
    , titleWithMnemonic(button.text())
{
}

void ButtonAdapter::setState(int state)
{
    const QSignalBlocker noAction(widget);
    widget.setChecked(state == platform::kStateOn);
    widget.update();
}

void ButtonAdapter::setTitle(const QString &title)
{
    // The button keeps the room of its widest title, so that the ones beside it stay where they are.
    widget.setMinimumWidth(std::max(widget.minimumWidth(), widget.sizeHint().width()));
    QString own = titleWithMnemonic;
    const bool isOwnTitle = own.remove(u'&') == title;
    widget.setText(isOwnTitle ? titleWithMnemonic : literalTitle(title));
}

void ButtonAdapter::setEnabled(bool enabled)
{
    enable(enabled);
}

void SpinnerAdapter::startAnimation(const platform::Object * /*sender*/)
{
    widget.start();
}

void SpinnerAdapter::stopAnimation(const platform::Object * /*sender*/)
{
    widget.stop();
}
