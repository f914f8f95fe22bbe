// How the controller's messages reach the widgets.
#include "desktop/window/QtControls.h"

#include <QSignalBlocker>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// A title as a button takes it, in which a single "&" would mark a mnemonic.
QString literalTitle(QString title)
{
    return title.replace(u'&', u"&&"_s);
}

} // namespace

QtWindow::QtWindow(QWidget &topLevel, FoldingPane &folding)
    : window(topLevel)
    , foldingPane(folding)
{
}

platform::Rect QtWindow::frame() const
{
    return foldingPane.frame();
}

void QtWindow::setFrameDisplayAnimate(const platform::Rect &frame, platform::Display display,
                                      platform::Animation animation)
{
    foldingPane.setFrame(frame, animation);
    if (display == platform::Display::On) {
        window.update();
    }
}

void QtWindow::makeKeyAndOrderFront(const platform::Object * /*sender*/)
{
    window.setWindowState(window.windowState() & ~Qt::WindowMinimized);
    window.show();
    window.raise();
    window.activateWindow();
}

QtView::QtView(QWidget &view, FoldingPane &folding)
    : pane(view)
    , foldingPane(folding)
{
}

bool QtView::isHidden() const
{
    return foldingPane.isFolded();
}

void QtView::setHidden(bool hidden)
{
    foldingPane.setFolded(hidden);
}

platform::Rect QtView::frame() const
{
    return {0, 0, static_cast<double>(pane.width()), static_cast<double>(foldingPane.height())};
}

QtHeadline::QtHeadline(HeadlineLabel &headline)
    : label(headline)
{
}

void QtHeadline::setStringValue(const QString &text)
{
    label.setHeadline(text);
}

QtTextField::QtTextField(const QLineEdit &lineEdit, ChangeHandler handler)
    : field(lineEdit)
    , changed(std::move(handler))
{
}

QString QtTextField::stringValue() const
{
    return field.text();
}

void QtTextField::setEnabled(bool nowEnabled)
{
    enabled = nowEnabled;
    changed();
}

QtTextView::QtTextView(const DescriptionEdit &description, ChangeHandler handler)
    : edit(description)
    , changed(std::move(handler))
{
}

QString QtTextView::string() const
{
    return edit.typedText();
}

void QtTextView::setEditable(bool nowEditable)
{
    editable = nowEditable;
    changed();
}

QtSubmitButton::QtSubmitButton(const QAbstractButton &button, ChangeHandler handler)
    : changed(std::move(handler))
    , ownTitle(button.text())
    , shownTitle(ownTitle)
{
}

void QtSubmitButton::setTitle(const QString &title)
{
    const bool isOwnTitle = QString(ownTitle).remove(u'&') == title;
    shownTitle = isOwnTitle ? ownTitle : literalTitle(title);
    changed();
}

void QtSubmitButton::setEnabled(bool nowEnabled)
{
    enabled = nowEnabled;
    changed();
}

QtProgressIndicator::QtProgressIndicator(ChangeHandler handler)
    : changed(std::move(handler))
{
}

void QtProgressIndicator::startAnimation(const platform::Object * /*sender*/)
{
    animated = true;
    changed();
}

void QtProgressIndicator::stopAnimation(const platform::Object * /*sender*/)
{
    animated = false;
    changed();
}

QtReportText::QtReportText(ReportTextView &reportText)
    : view(reportText)
{
}

QString QtReportText::string() const
{
    return view.string();
}

void QtReportText::setString(const QString &text)
{
    view.setString(text);
}

QtDisclosureButton::QtDisclosureButton(QAbstractButton &button)
    : triangle(button)
{
}

void QtDisclosureButton::setState(int state)
{
    const QSignalBlocker noAction(triangle);
    triangle.setChecked(state == platform::kStateOn);
}
