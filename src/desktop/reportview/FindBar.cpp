// What the find bar is made of, and what its keys do.
#include "desktop/reportview/FindBar.h"

#include "desktop/reportview/TextDisplay.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QToolButton>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace reportview {

namespace {

/// Code units of a selection that are taken for words to find.
constexpr qsizetype kLongestWords = 200;

bool isInOneLine(QStringView text)
{
    return std::none_of(text.begin(), text.end(), [](QChar unit) {
        return unit < u' ' || unit == QChar::LineSeparator || unit == QChar::ParagraphSeparator;
    });
}

} // namespace

FindBar::FindBar(TextDisplay &searchedDisplay, QWidget *parent)
    : QWidget(parent)
    , display(searchedDisplay)
    , field(new QLineEdit(this))
    , status(new QLabel(this))
{
    addWidgets();
    // While they are typed the words are sought from where the last ones were found.
    connect(field, &QLineEdit::textEdited, this,
            [this] { searchFrom(display.selection().begin, SearchDirection::Forward); });
    connect(&search, &TextSearch::found, this, &FindBar::showFound);
    connect(&search, &TextSearch::notFound, this, [this] { say(u"Not found"_s); });
}

void FindBar::addWidgets()
{
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    auto *label = new QLabel(u"F&ind:"_s, this);
    label->setBuddy(field);
    field->setAccessibleName(u"Find in the report"_s);
    field->setClearButtonEnabled(true);
    // What is dropped is for the window around it, which opens files.
    field->setAcceptDrops(false);
    const auto addButton = [this](Qt::ArrowType arrow, const QString &name, SearchDirection direction) {
        auto *button = new QToolButton(this);
        button->setArrowType(arrow);
        button->setAutoRaise(true);
        button->setAccessibleName(name);
        button->setToolTip(name);
        button->setFocusPolicy(Qt::TabFocus);
        connect(button, &QToolButton::clicked, this, [this, direction] { find(direction); });
        return button;
    };
    status->setMinimumWidth(status->fontMetrics().averageCharWidth() * 18);
    row->addWidget(label);
    row->addWidget(field);
    row->addWidget(addButton(Qt::UpArrow, u"Find previous"_s, SearchDirection::Backward));
    row->addWidget(addButton(Qt::DownArrow, u"Find next"_s, SearchDirection::Forward));
    row->addWidget(status);
    auto *closeButton = new QToolButton(this);
    closeButton->setText(u"Close"_s);
    closeButton->setAccessibleName(u"Close the find bar"_s);
    closeButton->setAutoRaise(true);
    closeButton->setFocusPolicy(Qt::TabFocus);
    connect(closeButton, &QToolButton::clicked, this, &FindBar::dismiss);
    row->addWidget(closeButton);
}

void FindBar::open()
{
    const Range selected = display.selection();
    if (selected.size() <= kLongestWords) {
        const QString words = display.text().mid(selected.begin, selected.size());
        if (!words.isEmpty() && isInOneLine(words)) {
            field->setText(words);
        }
    }
    say({});
    show();
    field->setFocus(Qt::ShortcutFocusReason);
    field->selectAll();
}

void FindBar::dismiss()
{
    stop();
    hide();
    display.setFocus(Qt::OtherFocusReason);
    Q_EMIT dismissed();
}

void FindBar::stop()
{
    search.stop();
    say({});
}

void FindBar::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Escape:
        dismiss();
        return;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        // Never left to the window: its default button would send the report.
        find(event->modifiers().testFlag(Qt::ShiftModifier) ? SearchDirection::Backward : SearchDirection::Forward);
        return;
    default:
        QWidget::keyPressEvent(event);
    }
}

void FindBar::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::FontChange) {
        status->setMinimumWidth(status->fontMetrics().averageCharWidth() * 18);
    }
}

void FindBar::find(SearchDirection direction)
{
    if (field->text().isEmpty()) {
        open();
        return;
    }
    const Range selected = display.selection();
    const bool forward = direction == SearchDirection::Forward;
    searchFrom(forward ? selected.end : selected.begin, direction);
}

void FindBar::searchFrom(qsizetype offset, SearchDirection direction)
{
    stop();
    if (field->text().isEmpty()) {
        return;
    }
    search.start(display.text(), field->text(), offset, direction);
    if (search.isRunning()) {
        say(u"Searching…"_s);
    }
}

void FindBar::showFound(Range place, bool wrapped)
{
    display.select(place.begin, place.end);
    say(wrapped ? u"Continued from the other end"_s : QString());
}

// A screen reader reads the description of the field that has the keyboard when it changes.
void FindBar::say(const QString &outcome)
{
    status->setText(outcome);
    field->setAccessibleDescription(outcome);
}

} // namespace reportview
