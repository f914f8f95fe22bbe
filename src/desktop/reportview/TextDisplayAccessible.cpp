// The accessible text interface over the kept text.
#include "desktop/reportview/TextDisplayAccessible.h"

#include "desktop/reportview/TextDisplay.h"

#include <QAccessibleWidget>
#include <QFontInfo>

#include <algorithm>
#include <limits>
#include <memory>

using namespace Qt::StringLiterals;

namespace reportview {

namespace {

/// The bus counts in 32 bits.
int counted(qsizetype offset)
{
    return static_cast<int>(std::min<qsizetype>(offset, std::numeric_limits<int>::max()));
}

/// A text document answers these questions by going through all of its text; this asks for the surroundings only.
class TextDisplayAccessible : public QAccessibleWidget, public QAccessibleTextInterface
{
public:
    explicit TextDisplayAccessible(TextDisplay *display)
        : QAccessibleWidget(display, QAccessible::EditableText)
    {
    }

    void *interface_cast(QAccessible::InterfaceType type) override
    {
        return type == QAccessible::TextInterface ? static_cast<QAccessibleTextInterface *>(this)
                                                  : QAccessibleWidget::interface_cast(type);
    }

    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.readOnly = true;
        state.selectableText = true;
        state.multiLine = true;
        return state;
    }

    using QAccessibleWidget::text;

    // The text is all there is: viewport and scroll bars are ways to look at it.
    int childCount() const override { return 0; }
    QAccessibleInterface *child(int /*index*/) const override { return nullptr; }
    int indexOfChild(const QAccessibleInterface * /*child*/) const override { return -1; }
    QAccessibleInterface *childAt(int /*x*/, int /*y*/) const override { return nullptr; }

    int characterCount() const override { return counted(view().size()); }

    QString text(int startOffset, int endOffset) const override
    {
        const qsizetype begin = std::clamp<qsizetype>(startOffset, 0, view().size());
        const qsizetype end = endOffset < 0 ? view().size() : std::clamp<qsizetype>(endOffset, begin, view().size());
        return textOf(bounded({begin, end}, begin));
    }

    QString textBeforeOffset(int offset, QAccessible::TextBoundaryType type, int *start, int *end) const override
    {
        return segmentOf(offset, type, &segmentBefore, start, end);
    }

    QString textAtOffset(int offset, QAccessible::TextBoundaryType type, int *start, int *end) const override
    {
        return segmentOf(offset, type, &segmentAt, start, end);
    }

    QString textAfterOffset(int offset, QAccessible::TextBoundaryType type, int *start, int *end) const override
    {
        return segmentOf(offset, type, &segmentBehind, start, end);
    }

    int cursorPosition() const override { return counted(display().caret()); }
    void setCursorPosition(int position) override { display().select(position, position); }

    int selectionCount() const override { return display().selection().isEmpty() ? 0 : 1; }

    void selection(int index, int *start, int *end) const override
    {
        const Range selected = index == 0 ? display().selection() : Range();
        *start = counted(selected.begin);
        *end = counted(selected.end);
    }

    void addSelection(int start, int end) override
    {
        if (selectionCount() == 0) {
            setSelection(0, start, end);
        }
    }

    void removeSelection(int index) override
    {
        if (index == 0) {
            display().select(display().caret(), display().caret());
        }
    }

    void setSelection(int index, int start, int end) override
    {
        if (index == 0) {
            display().select(start, end < 0 ? view().size() : end);
        }
    }

    QRect characterRect(int offset) const override
    {
        const std::optional<QRect> place = display().characterRect(offset);
        return place ? place->translated(display().viewport()->mapToGlobal(QPoint())) : QRect();
    }

    int offsetAtPoint(const QPoint &point) const override
    {
        const QPoint place = display().viewport()->mapFromGlobal(point);
        return display().viewport()->rect().contains(place) ? counted(display().characterAt(place)) : -1;
    }

    void scrollToSubstring(int start, int end) override
    {
        display().bringIntoView(end);
        display().bringIntoView(start);
    }

    /// The whole text has one font; each row has its own direction.
    QString attributes(int offset, int *start, int *end) const override
    {
        const Row row = rowAt(view(), offset);
        *start = counted(row.begin);
        *end = counted(row.next);
        const QFontInfo font(display().font());
        const bool mirrored = display().runsFromRightToLeft(row);
        return u"font-family:%1;font-size:%2pt;writing-mode:%3;"_s.arg(
            font.family().replace(u';', u' ').replace(u':', u' '), QString::number(font.pointSizeF()),
            mirrored ? u"rl"_s : u"lr"_s);
    }

private:
    using FindSegment = Range (*)(QStringView, qsizetype, Segment);

    TextDisplay &display() const { return *static_cast<TextDisplay *>(object()); }
    QStringView view() const { return display().text(); }

    QString textOf(Range range) const { return display().text().mid(range.begin, range.size()); }

    /// As much of the range as an answer may hold: its first part, or what begins at the place where that lies further
    /// on, so that whoever goes on at the end of an answer gets the next part.
    Range bounded(Range range, qsizetype place) const
    {
        const auto firstPart = [this](Range whole) {
            return whole.size() <= kLongestAnswer
                ? whole
                : Range{whole.begin, betweenCharacters(view(), whole.begin + kLongestAnswer)};
        };
        const Range first = firstPart(range);
        return place < first.end || place >= range.end ? first
                                                       : firstPart({betweenCharacters(view(), place), range.end});
    }

    QString segmentOf(int offset, QAccessible::TextBoundaryType type, FindSegment find, int *start, int *end) const
    {
        *start = *end = -1;
        // By the interface's definition -1 is the end of the text.
        const qsizetype place = offset == -1 ? view().size() : offset;
        if (place < 0 || place > view().size()) {
            return {};
        }
        const Range whole =
            type == QAccessible::NoBoundary ? Range{0, view().size()} : find(view(), place, segmentOfBoundary(type));
        const Range found = bounded(whole, place);
        *start = counted(found.begin);
        *end = counted(found.end);
        return textOf(found);
    }

    static Segment segmentOfBoundary(QAccessible::TextBoundaryType type)
    {
        switch (type) {
        case QAccessible::WordBoundary:
            return Segment::Word;
        case QAccessible::SentenceBoundary:
            return Segment::Sentence;
        case QAccessible::ParagraphBoundary:
            return Segment::Line;
        case QAccessible::LineBoundary:
            return Segment::Row;
        default:
            return Segment::Character;
        }
    }
};

QAccessibleInterface *interfaceFor(const QString & /*className*/, QObject *object)
{
    auto *display = qobject_cast<TextDisplay *>(object);
    return display ? std::make_unique<TextDisplayAccessible>(display).release() : nullptr;
}

} // namespace

QString announcedOf(const QString &text)
{
    return text.left(betweenCharacters(text, std::min(text.size(), kLongestAnnouncement)));
}

void makeTextDisplaysAccessible()
{
    // The toolkit keeps one of each.
    QAccessible::installFactory(&interfaceFor);
}

void tellOfNewText(TextDisplay &display, const QString &before)
{
    QAccessibleTextUpdateEvent event(&display, 0, announcedOf(before), announcedOf(display.text()));
    QAccessible::updateAccessibility(&event);
}

void tellOfCaret(TextDisplay &display)
{
    QAccessibleTextCursorEvent event(&display, counted(display.caret()));
    QAccessible::updateAccessibility(&event);
}

void tellOfSelection(TextDisplay &display)
{
    const Range selected = display.selection();
    QAccessibleTextSelectionEvent event(&display, counted(selected.begin), counted(selected.end));
    event.setCursorPosition(counted(display.caret()));
    QAccessible::updateAccessibility(&event);
}

} // namespace reportview
