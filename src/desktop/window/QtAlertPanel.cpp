// The alert: its title in bold, the message below, one button.
#include "desktop/window/QtAlertPanel.h"

#include "desktop/window/WindowLog.h"

#include <QGridLayout>
#include <QMessageBox>
#include <QPushButton>

using namespace Qt::StringLiterals;

namespace {

/// The minimum width of the message, in average characters.
constexpr int kMinCharacters = 40;

/// Left to itself, the message wraps within the width of the title, and there is no room for the window's title. That
/// the box lays itself out by a grid, the texts in its last column, is the toolkit's own affair: by anything else it
/// stays as narrow as it is.
void widen(QMessageBox &box)
{
    if (auto *grid = qobject_cast<QGridLayout *>(box.layout())) {
        const int width = box.fontMetrics().averageCharWidth() * kMinCharacters;
        grid->setColumnMinimumWidth(grid->columnCount() - 1, width);
    }
}

} // namespace

QtAlertPanel::QtAlertPanel(QWidget &reportWindow)
    : window(reportWindow)
{
}

void QtAlertPanel::runAlertPanel(const QString &title, const QString &message)
{
    qCInfo(lcWindow) << "alert:" << title;
    QMessageBox box(window.isVisible() ? &window : nullptr);
    box.setWindowTitle(u"Korvale Crash Reporter"_s);
    // Markup is the box's own way to a bold title. What comes in is none, whatever it looks like.
    box.setText(u"<b>"_s + title.toHtmlEscaped() + u"</b>"_s);
    box.setInformativeText(u"<span>"_s + message.toHtmlEscaped() + u"</span>"_s);
    box.setStandardButtons(QMessageBox::Ok);
    box.button(QMessageBox::Ok)->setIcon({});
    // The report is copied at any time, most of all where it could not be sent.
    box.addActions(window.actions());
    widen(box);
    box.exec();
}
