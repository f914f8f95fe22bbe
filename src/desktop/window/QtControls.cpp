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

QtTextField::QtTextField(const QLineEdit &lineEdit, ToldHandler handler)
    : field(lineEdit)
    , told(std::move(handler))
{
}

QString QtTextField::stringValue() const
{
    return field.text();
}

void QtTextField::setEnabled(bool nowEnabled)
{
    enabled = nowEnabled;
    told();
}

QtTextView::QtTextView(const DescriptionEdit &description, ToldHandler handler)
    : edit(description)
    , told(std::move(handler))
{
}

QString QtTextView::string() const
{
    return edit.typedText();
}

void QtTextView::setEditable(bool nowEditable)
{
    editable = nowEditable;
    told();
}

QtSubmitButton::QtSubmitButton(const QAbstractButton &button, ToldHandler handler)
    : told(std::move(handler))
    , ownTitle(button.text())
    , shownTitle(ownTitle)
{
}

void QtSubmitButton::setTitle(const QString &title)
{
    const bool isOwnTitle = QString(ownTitle).remove(u'&') == title;
    shownTitle = isOwnTitle ? ownTitle : literalTitle(title);
    told();
}

void QtSubmitButton::setEnabled(bool nowEnabled)
{
    enabled = nowEnabled;
    told();
}

QtProgressIndicator::QtProgressIndicator(ToldHandler handler)
    : told(std::move(handler))
{
}

void QtProgressIndicator::startAnimation(const platform::Object * /*sender*/)
{
    animated = true;
    told();
}

void QtProgressIndicator::stopAnimation(const platform::Object * /*sender*/)
{
    animated = false;
    told();
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
    triangle.update();
}
