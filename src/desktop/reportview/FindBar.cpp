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
    connect(field, &QLineEdit::textEdited, this, [this] { searchFrom(place().begin, SearchDirection::Forward); });
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
    // The toolkit (6.4) gives it none.
    field->findChild<QToolButton *>()->setAccessibleName(u"Clear"_s);
    // What is dropped is for the window around it, which opens files.
    field->setAcceptDrops(false);
    // Words, and no arrows: a style draws these no larger where letters are.
    const auto newButton = [this](const QString &title, const QString &name, auto &&press) {
        auto *button = new QToolButton(this);
        button->setText(title);
        button->setAutoRaise(true);
        button->setAccessibleName(name);
        button->setToolTip(name);
        connect(button, &QToolButton::clicked, this, press);
        return button;
    };
    status->setMinimumWidth(status->fontMetrics().averageCharWidth() * 18);
    QSizePolicy policy = status->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    status->setSizePolicy(policy);
    row->addWidget(label);
    row->addWidget(field);
    row->addWidget(newButton(u"Previous"_s, u"Find previous"_s, [this] { find(SearchDirection::Backward); }));
    row->addWidget(newButton(u"Next"_s, u"Find next"_s, [this] { find(SearchDirection::Forward); }));
    row->addWidget(status);
    row->addWidget(newButton(u"Close"_s, u"Close the find bar"_s, [this] { dismiss(); }));
}

void FindBar::open()
{
    const Range selected = place();
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
    search.stop();
    say({});
    hide();
    display.setFocus(Qt::OtherFocusReason);
    Q_EMIT dismissed();
}

void FindBar::stop()
{
    search.stop();
    found.reset();
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
    searchFrom(direction == SearchDirection::Forward ? place().end : place().begin, direction);
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

/// Where the words stand that were found last, unless the reader has gone elsewhere. The whole characters that are
/// selected for them may be more, and a search that went on from there would pass over words.
Range FindBar::place() const
{
    const Range selected = display.selection();
    return found && found->selected == selected ? found->words : selected;
}

void FindBar::showFound(Range words, bool wrapped)
{
    display.select(words.begin, words.end);
    found = {words, display.selection()};
    say(wrapped ? u"Continued from the other end"_s : QString());
}

// A screen reader reads the description of the field that has the keyboard when it changes.
void FindBar::say(const QString &outcome)
{
    status->setText(outcome);
    // Without words it is nothing to assistive technology, and keeps its room.
    status->setVisible(!outcome.isEmpty());
    field->setAccessibleDescription(outcome);
}

} // namespace reportview

#include "moc_FindBar.cpp"
