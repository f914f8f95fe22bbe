// The alert: its title in bold, the message below, one button.
#include "desktop/window/QtAlertPanel.h"

#include "desktop/window/KeyGuard.h"

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

using namespace Qt::StringLiterals;

namespace {

/// The least width of the message, in average characters.
constexpr int kLeastCharacters = 40;

QWidget *visibleWindow(QWidget *window)
{
    return window && window->isVisible() ? window : nullptr;
}

void showPlain(QMessageBox &box)
{
    box.setTextFormat(Qt::PlainText);
    // The format of the box holds for its text alone; its other labels go on guessing.
    const QList<QLabel *> labels = box.findChildren<QLabel *>();
    for (QLabel *label : labels) {
        label->setTextFormat(Qt::PlainText);
    }
}

void emphasizeTitle(QMessageBox &box)
{
    auto *title = box.findChild<QLabel *>(u"qt_msgbox_label"_s);
    if (!title) {
        return;
    }
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
}

/// Left to itself, the message wraps within the width of the title, and the window's title finds no room.
void widenMessage(QMessageBox &box)
{
    if (auto *message = box.findChild<QLabel *>(u"qt_msgbox_informativelabel"_s)) {
        message->setMinimumWidth(message->fontMetrics().averageCharWidth() * kLeastCharacters);
    }
}

} // namespace

QtAlertPanel::QtAlertPanel(QWidget *reportWindow)
    : window(reportWindow)
{
}

void QtAlertPanel::runAlertPanel(const QString &title, const QString &message)
{
    QMessageBox box(visibleWindow(window.data()));
    box.setIcon(QMessageBox::Warning);
    box.setWindowTitle(QMessageBox::tr("Korvale Crash Reporter"));
    box.setText(title);
    box.setInformativeText(message);
    box.setStandardButtons(QMessageBox::Ok);
    box.setAccessibleDescription(title + u'\n' + message);
    showPlain(box);
    emphasizeTitle(box);
    widenMessage(box);
    const KeyGuard keyGuard({&box, box.button(QMessageBox::Ok)});
    box.exec();
}
