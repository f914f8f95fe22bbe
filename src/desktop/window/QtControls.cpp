// How the controller's messages reach the widgets.
#include "desktop/window/QtControls.h"

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

QtTextField::QtTextField(QLineEdit &lineEdit, EnabledSetter enableField)
    : field(lineEdit)
    , enable(std::move(enableField))
{
}

QString QtTextField::stringValue() const
{
    return field.text();
}

void QtTextField::setEnabled(bool enabled)
{
    enable(enabled);
}

QtTextView::QtTextView(DescriptionEdit &description)
    : edit(description)
{
}

QString QtTextView::string() const
{
    return edit.typedText();
}

void QtTextView::setEditable(bool editable)
{
    edit.setEditable(editable);
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

QtButton::QtButton(QAbstractButton &abstractButton, EnabledSetter enableButton)
    : button(abstractButton)
    , enable(std::move(enableButton))
    , titleWithMnemonic(button.text())
{
}

void QtButton::setState(int state)
{
    const QSignalBlocker noAction(button);
    button.setChecked(state == platform::kStateOn);
    button.update();
}

void QtButton::setTitle(const QString &title)
{
    // The button keeps the room of its widest title, so that the ones beside it stay where they are.
    button.setMinimumWidth(std::max(button.minimumWidth(), button.sizeHint().width()));
    QString own = titleWithMnemonic;
    const bool isOwnTitle = own.remove(u'&') == title;
    button.setText(isOwnTitle ? titleWithMnemonic : literalTitle(title));
}

void QtButton::setEnabled(bool enabled)
{
    enable(enabled);
}

QtProgressIndicator::QtProgressIndicator(Spinner &indicator)
    : spinner(indicator)
{
}

void QtProgressIndicator::startAnimation(const platform::Object * /*sender*/)
{
    spinner.start();
}

void QtProgressIndicator::stopAnimation(const platform::Object * /*sender*/)
{
    spinner.stop();
}
