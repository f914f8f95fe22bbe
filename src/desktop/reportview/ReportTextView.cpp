// The report text's pane: label, display and find bar, each made when it is needed.
#include "desktop/reportview/ReportTextView.h"

#include "desktop/reportview/FindBar.h"

#include <QAction>
#include <QApplication>
#include <QFontDatabase>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace reportview;

namespace {

constexpr int kPreferredLines = 16;
constexpr int kMinLines = 4;
constexpr int kPreferredColumns = 80;
constexpr int kMinColumns = 20;

/// No smaller than the program's other letters: whoever has made those larger needs it here too.
QFont monospaced()
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    if (const qreal size = QApplication::font().pointSizeF(); size > font.pointSizeF()) {
        font.setPointSizeF(size);
    }
    return font;
}

/// Room for the text and, by half a line and a column at each side, for the frame and the margins around it.
QSize sizeForText(const QFontMetrics &metrics, int columns, int lines)
{
    return {metrics.horizontalAdvance(u'0') * (columns + 2), metrics.lineSpacing() * (lines + 1)};
}

} // namespace

ReportTextView::ReportTextView(QWidget *parent)
    : QWidget(parent)
    , label(new QLabel(u"&Text that is sent with the report"_s, this))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(label);
}

void ReportTextView::setString(const QString &newText)
{
    text = newText;
    sections.clear();
    if (findBar) {
        findBar->stop();
    }
    if (display) {
        display->setText(text);
    }
}

void ReportTextView::setSections(const QList<Section> &named)
{
    sections = named;
    if (display) {
        display->setSections(sections);
    }
}

QSize ReportTextView::sizeHint() const
{
    return sizeBelowLabel(kPreferredColumns, kPreferredLines);
}

QSize ReportTextView::minimumSizeHint() const
{
    return sizeBelowLabel(kMinColumns, kMinLines);
}

QSize ReportTextView::sizeBelowLabel(int columns, int lines) const
{
    const QSize labelSize = label->sizeHint();
    const QSize textSize = sizeForText(QFontMetrics(monospaced()), columns, lines);
    return {std::max(labelSize.width(), textSize.width()),
            labelSize.height() + layout()->spacing() + textSize.height()};
}

void ReportTextView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (!display) {
        makeDisplay();
    }
}

// A font set by code does not follow the system's.
bool ReportTextView::event(QEvent *event)
{
    if (event->type() == QEvent::ApplicationFontChange || event->type() == QEvent::ThemeChange) {
        if (display) {
            display->setFont(monospaced());
        }
        updateGeometry();
    }
    return QWidget::event(event);
}

void ReportTextView::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape && findBar && findBar->isVisible()) {
        findBar->dismiss();
        return;
    }
    // Held down, or pressed once too often: it was meant for the bar and must not close the window.
    if (event->key() == Qt::Key_Escape && (event->isAutoRepeat() || !dismissedLately.hasExpired())) {
        return;
    }
    QWidget::keyPressEvent(event);
}

void ReportTextView::makeDisplay()
{
    display = new TextDisplay(this);
    display->setAccessibleName(u"Report"_s);
    display->setFont(monospaced());
    display->setText(text);
    display->setSections(sections);
    connect(display, &TextDisplay::findRequested, this, &ReportTextView::openFindBar);
    connect(display, &TextDisplay::menuShown, this, [this](QMenu *menu) { addActionsTo(*menu); });
    layout()->addWidget(display);
    // At once: a layout shows what it is given later from the event loop, and until then nothing can focus it.
    display->show();
    label->setBuddy(display);
    addKeys();
}

void ReportTextView::addKeys()
{
    const auto addKey = [this](const QKeySequence &key, auto &&act) {
        auto *action = new QAction(this);
        action->setShortcut(key);
        action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
        connect(action, &QAction::triggered, this, act);
        addAction(action);
    };
    const auto findFurther = [this](SearchDirection direction) {
        if (!findBar) {
            openFindBar();
        } else if (direction == SearchDirection::Forward) {
            findBar->findNext();
        } else {
            findBar->findPrevious();
        }
    };
    addKey(QKeySequence::Find, [this] { openFindBar(); });
    addKey(QKeySequence::FindNext, [findFurther] { findFurther(SearchDirection::Forward); });
    addKey(QKeySequence::FindPrevious, [findFurther] { findFurther(SearchDirection::Backward); });
    addKey(Qt::CTRL | Qt::Key_PageDown, [this] { display->goToNextSection(); });
    addKey(Qt::CTRL | Qt::Key_PageUp, [this] { display->goToPreviousSection(); });
}

void ReportTextView::addActionsTo(QMenu &menu) const
{
    QList<QAction *> named = actions();
    named.removeIf([](const QAction *action) { return action->text().isEmpty(); });
    if (!named.isEmpty()) {
        menu.addSeparator();
        menu.addActions(named);
    }
}

void ReportTextView::openFindBar()
{
    if (!findBar) {
        findBar = new FindBar(*display, this);
        layout()->addWidget(findBar);
        connect(findBar, &FindBar::dismissed, this,
                [this] { dismissedLately.setRemainingTime(QApplication::doubleClickInterval()); });
    }
    findBar->open();
}

#include "moc_ReportTextView.cpp"
