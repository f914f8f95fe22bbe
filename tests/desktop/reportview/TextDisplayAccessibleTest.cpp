// The accessible text interface, call by call against the kept text.
#include "desktop/reportview/TextDisplayAccessible.h"

#include "ViewSupport.h"
#include "desktop/reportview/TextDisplay.h"

#include <QAccessible>
#include <QFontDatabase>
#include <QScrollBar>
#include <QTextBoundaryFinder>

#include <malloc.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <limits>
#include <memory>
#include <utility>

using namespace Qt::StringLiterals;
using namespace reportview;

namespace {

/// What was announced to assistive technology since it was last taken.
QStringList &announcements()
{
    static QStringList list;
    return list;
}

QStringList takenAnnouncements()
{
    return std::exchange(announcements(), {});
}

} // namespace

// In the place of the toolkit's own, which on the offscreen platform tells nobody.
void QAccessible::updateAccessibility(QAccessibleEvent *event)
{
    if (event->type() == QAccessible::TextUpdated) {
        const auto &update = static_cast<QAccessibleTextUpdateEvent &>(*event);
        announcements() += u"%1 became %2 at %3"_s.arg(update.textRemoved(), update.textInserted(),
                                                       QString::number(update.changePosition()));
    } else if (event->type() == QAccessible::TextCaretMoved) {
        announcements() += u"caret %1"_s.arg(static_cast<QAccessibleTextCursorEvent &>(*event).cursorPosition());
    } else if (event->type() == QAccessible::TextSelectionChanged) {
        const auto &change = static_cast<QAccessibleTextSelectionEvent &>(*event);
        announcements() += u"selection %1 to %2, caret %3"_s.arg(change.selectionStart())
                               .arg(change.selectionEnd())
                               .arg(change.cursorPosition());
    }
}

namespace {

class TextDisplayAccessibleTest : public testing::Test
{
protected:
    TextDisplayAccessibleTest()
    {
        display.setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
        display.setAccessibleName(u"Report"_s);
        display.resize(640, 300);
        accessible = QAccessible::queryAccessibleInterface(&display);
        text = accessible->textInterface();
    }

    void show(const QString &shown)
    {
        display.setText(shown);
        display.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&display));
    }

    TextDisplay display;
    QAccessibleInterface *accessible = nullptr;
    QAccessibleTextInterface *text = nullptr;
};

/// The answer of a text boundary call.
struct Answer {
    QString text;
    int start = 0;
    int end = 0;

    bool operator==(const Answer &) const = default;
};

void PrintTo(const Answer &answer, std::ostream *out)
{
    PrintTo(answer.text, out);
    *out << " [" << answer.start << ", " << answer.end << ')';
}

/// The toolkit's own implementation, which goes through the whole text for every answer.
class WholeText : public QAccessibleTextInterface
{
public:
    explicit WholeText(QString all)
        : kept(std::move(all))
    {
    }
    void selection(int /*index*/, int * /*start*/, int * /*end*/) const override {}
    int selectionCount() const override { return 0; }
    void addSelection(int /*start*/, int /*end*/) override {}
    void removeSelection(int /*index*/) override {}
    void setSelection(int /*index*/, int /*start*/, int /*end*/) override {}
    int cursorPosition() const override { return 0; }
    void setCursorPosition(int /*position*/) override {}
    QString text(int start, int end) const override { return kept.mid(start, end - start); }
    int characterCount() const override { return static_cast<int>(kept.size()); }
    QRect characterRect(int /*offset*/) const override { return {}; }
    int offsetAtPoint(const QPoint & /*point*/) const override { return -1; }
    void scrollToSubstring(int /*start*/, int /*end*/) override {}
    QString attributes(int /*offset*/, int * /*start*/, int * /*end*/) const override { return {}; }

private:
    QString kept;
};

using Call = QString (QAccessibleTextInterface::*)(int, QAccessible::TextBoundaryType, int *, int *) const;

Answer ask(const QAccessibleTextInterface &interface, Call call, int offset, QAccessible::TextBoundaryType type)
{
    Answer answer;
    answer.text = (interface.*call)(offset, type, &answer.start, &answer.end);
    return answer;
}

/// The lines of a text with their ends.
std::vector<Range> linesOf(const QString &text)
{
    std::vector<Range> lines;
    for (qsizetype begin = 0; begin < text.size();) {
        qsizetype end = begin;
        while (end < text.size() && !u"\n\r\u2028\u2029"_s.contains(text[end])) {
            ++end;
        }
        end += QStringView(text).mid(end).startsWith(u"\r\n") ? 2 : 1;
        lines.push_back({begin, std::min(end, text.size())});
        begin = lines.back().end;
    }
    return lines;
}

/// The rows of a text with their ends, the empty one behind a last line end left out.
std::vector<Range> rowsOf(const QString &text)
{
    std::vector<Range> rows;
    for (qsizetype begin = 0; begin < text.size(); begin = rows.back().end) {
        rows.push_back({begin, rowAt(text, begin).next});
    }
    return rows;
}

/// What the toolkit finds from the start of the whole text; of a long one from the start of each of its rows, since a
/// division ends what stands there.
std::vector<Range> foundByTheToolkit(const QString &text, QTextBoundaryFinder::BoundaryType type)
{
    const std::vector<Range> stretches = text.size() < 500 ? std::vector<Range>{{0, text.size()}} : rowsOf(text);
    std::vector<Range> segments;
    for (const Range &stretch : stretches) {
        QTextBoundaryFinder finder(type, text.mid(stretch.begin, stretch.size()));
        qsizetype begin = 0;
        for (qsizetype end = finder.toNextBoundary(); end > 0; end = finder.toNextBoundary()) {
            segments.push_back({stretch.begin + begin, stretch.begin + end});
            begin = end;
        }
    }
    return segments;
}

/// What a text is divided into for assistive technology, in its order.
std::vector<Range> segmentsOf(const QString &text, QAccessible::TextBoundaryType type)
{
    switch (type) {
    case QAccessible::WordBoundary:
        return foundByTheToolkit(text, QTextBoundaryFinder::Word);
    case QAccessible::SentenceBoundary:
        return foundByTheToolkit(text, QTextBoundaryFinder::Sentence);
    case QAccessible::LineBoundary:
        return rowsOf(text);
    case QAccessible::ParagraphBoundary:
        return linesOf(text);
    default:
        return foundByTheToolkit(text, QTextBoundaryFinder::Grapheme);
    }
}

Answer answered(const QString &text, Range range)
{
    return {text.mid(range.begin, range.size()), static_cast<int>(range.begin), static_cast<int>(range.end)};
}

/// Every offset of a short text; of a long one those around the ends of rows, and some of the others.
std::vector<qsizetype> triedOffsets(const QString &text)
{
    std::vector<qsizetype> offsets;
    const qsizetype step = text.size() < 500 ? 1 : 1'511;
    for (qsizetype offset = 0; offset < text.size(); offset += step) {
        offsets.push_back(offset);
    }
    if (step > 1) {
        for (const Range &row : rowsOf(text)) {
            offsets.insert(offsets.end(), {row.begin, std::min(row.begin + 1, row.end - 1), row.end - 1});
        }
    }
    return offsets;
}

class HostileAccessible : public TextDisplayAccessibleTest, public testing::WithParamInterface<HostileText>
{
protected:
    int step() const { return GetParam().text.size() < 500 ? 1 : 211; }

    /// Asks for what stands before, at and behind every tried offset.
    void expectSegments(QAccessible::TextBoundaryType type)
    {
        const QString &kept = GetParam().text;
        show(kept);
        const std::vector<Range> segments = segmentsOf(kept, type);
        const Range none{kept.size(), kept.size()};
        for (const qsizetype offset : triedOffsets(kept)) {
            const auto at = std::find_if(segments.begin(), segments.end(),
                                         [offset](const Range &segment) { return offset < segment.end; });
            ASSERT_NE(at, segments.end());
            const Range before = at == segments.begin() ? Range() : *std::prev(at);
            const Range behind = std::next(at) == segments.end() ? none : *std::next(at);
            const auto answer = [&](Call call) { return ask(*text, call, static_cast<int>(offset), type); };
            EXPECT_EQ(answer(&QAccessibleTextInterface::textAtOffset), answered(kept, *at)) << offset;
            EXPECT_EQ(answer(&QAccessibleTextInterface::textBeforeOffset), answered(kept, before)) << offset;
            EXPECT_EQ(answer(&QAccessibleTextInterface::textAfterOffset), answered(kept, behind)) << offset;
        }
    }

    /// At the end of the text stands what a caret there belongs to.
    void expectEnd(QAccessible::TextBoundaryType type, Range at, Range before)
    {
        const QString &kept = GetParam().text;
        const auto end = static_cast<int>(kept.size());
        EXPECT_EQ(ask(*text, &QAccessibleTextInterface::textAtOffset, end, type), answered(kept, at));
        EXPECT_EQ(ask(*text, &QAccessibleTextInterface::textAtOffset, -1, type), answered(kept, at));
        EXPECT_EQ(ask(*text, &QAccessibleTextInterface::textBeforeOffset, end, type), answered(kept, before));
        EXPECT_EQ(ask(*text, &QAccessibleTextInterface::textAfterOffset, end, type),
                  answered(kept, {kept.size(), kept.size()}));
    }
};

constexpr std::array kInsideRows = {QAccessible::CharBoundary, QAccessible::WordBoundary,
                                    QAccessible::SentenceBoundary};
constexpr std::array kRowsAndLines = {QAccessible::LineBoundary, QAccessible::ParagraphBoundary};

} // namespace

TEST_P(HostileAccessible, GivesTheKeptTextWholeAndInParts)
{
    const QString &kept = GetParam().text;
    show(kept);
    EXPECT_EQ(text->characterCount(), kept.size());
    EXPECT_EQ(text->text(0, text->characterCount()), kept);
    EXPECT_EQ(text->text(0, -1), kept);
    for (int begin = 0; begin <= kept.size(); begin += step()) {
        for (const int units : {0, 1, 2, 7, 5'000}) {
            EXPECT_EQ(text->text(begin, begin + units), kept.mid(begin, units));
        }
    }
}

TEST_P(HostileAccessible, CharactersWordsAndSentencesAreThoseThatTheToolkitFinds)
{
    for (const auto type : kInsideRows) {
        SCOPED_TRACE(type);
        expectSegments(type);
    }
}

TEST_P(HostileAccessible, RowsAndParagraphsAreThoseOfTheKeptText)
{
    for (const auto type : kRowsAndLines) {
        SCOPED_TRACE(type);
        expectSegments(type);
    }
}

TEST_P(HostileAccessible, EndOfTheTextHasNoCharacterAndBelongsToTheLastRow)
{
    const QString &kept = GetParam().text;
    show(kept);
    const Range end{kept.size(), kept.size()};
    for (const auto type : kInsideRows) {
        SCOPED_TRACE(type);
        expectEnd(type, end, kept.isEmpty() ? end : segmentsOf(kept, type).back());
    }
    const bool isBehindLineEnd = kept.isEmpty() || u"\n\r\u2028\u2029"_s.contains(kept.back());
    for (const auto type : kRowsAndLines) {
        SCOPED_TRACE(type);
        std::vector<Range> segments = segmentsOf(kept, type);
        if (isBehindLineEnd) {
            segments.push_back(end);
        }
        expectEnd(type, segments.back(), segments.size() > 1 ? segments[segments.size() - 2] : Range());
    }
}

TEST_P(HostileAccessible, CharacterAnswersAreThoseOfTheToolkitsOwnImplementation)
{
    const QString &kept = GetParam().text;
    show(kept);
    const WholeText reference(kept);
    for (const qsizetype tried : triedOffsets(kept)) {
        const auto offset = static_cast<int>(betweenCharacters(kept, tried));
        EXPECT_EQ(ask(*text, &QAccessibleTextInterface::textAtOffset, offset, QAccessible::CharBoundary),
                  ask(reference, &QAccessibleTextInterface::textAtOffset, offset, QAccessible::CharBoundary));
    }
}

TEST_P(HostileAccessible, EveryCharacterInViewIsFoundWhereItSaysItIs)
{
    const QString &kept = GetParam().text;
    show(kept);
    for (const Row &row : display.visibleRows()) {
        for (qsizetype offset = row.begin; offset < std::min(row.end, row.begin + 60);
             offset = nextCharacter(kept, offset)) {
            const QRect place = text->characterRect(int(offset));
            ASSERT_GT(place.width(), 0) << offset;
            if (display.viewport()->rect().contains(display.viewport()->mapFromGlobal(place.center()))) {
                EXPECT_EQ(text->offsetAtPoint(place.center()), offset);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, HostileAccessible, testing::ValuesIn(hostileTexts()), nameOf);

TEST_F(TextDisplayAccessibleTest, IsAReadOnlyTextNamedReport)
{
    EXPECT_EQ(accessible->role(), QAccessible::EditableText);
    EXPECT_EQ(accessible->text(QAccessible::Name), u"Report"_s);
    EXPECT_TRUE(accessible->state().readOnly);
    EXPECT_FALSE(accessible->state().editable);
    EXPECT_TRUE(accessible->state().selectableText);
    EXPECT_TRUE(accessible->state().multiLine);
    EXPECT_TRUE(accessible->state().focusable);
    EXPECT_EQ(accessible->editableTextInterface(), nullptr);
    EXPECT_EQ(accessible->childCount(), 0);
}

TEST_F(TextDisplayAccessibleTest, HasNoPartsOfItsOwn)
{
    show(u"abc"_s);
    EXPECT_EQ(accessible->childCount(), 0);
    EXPECT_EQ(accessible->child(0), nullptr);
    EXPECT_EQ(accessible->indexOfChild(accessible), -1);
    const QPoint inside = display.mapToGlobal(display.rect().center());
    EXPECT_EQ(accessible->childAt(inside.x(), inside.y()), nullptr);
}

TEST_F(TextDisplayAccessibleTest, CaretAndSelectionAreToldAndSet)
{
    show(u"one two three"_s);
    text->setCursorPosition(4);
    EXPECT_EQ(text->cursorPosition(), 4);
    EXPECT_EQ(text->selectionCount(), 0);
    text->addSelection(4, 7);
    int start = 0;
    int end = 0;
    text->selection(0, &start, &end);
    EXPECT_EQ(start, 4);
    EXPECT_EQ(end, 7);
    EXPECT_EQ(text->selectionCount(), 1);
    text->setSelection(0, 8, 13);
    EXPECT_EQ(display.selection(), (Range{8, 13}));
    text->removeSelection(0);
    EXPECT_EQ(text->selectionCount(), 0);
    EXPECT_EQ(text->cursorPosition(), 13);
}

TEST_F(TextDisplayAccessibleTest, ThereIsOneSelectionAtMost)
{
    show(u"one two three"_s);
    text->addSelection(4, 7);
    text->addSelection(8, 10);
    EXPECT_EQ(display.selection(), (Range{4, 7}));
    int start = -1;
    int end = -1;
    text->selection(1, &start, &end);
    EXPECT_EQ(start, 0);
    EXPECT_EQ(end, 0);
    text->setSelection(1, 8, 10);
    text->removeSelection(1);
    EXPECT_EQ(display.selection(), (Range{4, 7}));
    text->setSelection(0, 4, -1);
    EXPECT_EQ(display.selection(), (Range{4, 13}));
    text->setSelection(0, 4, 0);
    EXPECT_EQ(display.selection(), (Range{0, 4}));
    EXPECT_EQ(text->cursorPosition(), 0);
}

TEST_F(TextDisplayAccessibleTest, EndOfTheTextHasAnOffsetOfItsOwn)
{
    show(u"one\ntwo"_s);
    EXPECT_EQ(ask(*text, &QAccessibleTextInterface::textAtOffset, -1, QAccessible::LineBoundary),
              (Answer{u"two"_s, 4, 7}));
    EXPECT_EQ(ask(*text, &QAccessibleTextInterface::textAtOffset, 7, QAccessible::LineBoundary),
              (Answer{u"two"_s, 4, 7}));
    EXPECT_EQ(ask(*text, &QAccessibleTextInterface::textAtOffset, -2, QAccessible::LineBoundary),
              (Answer{QString(), -1, -1}));
}

TEST_F(TextDisplayAccessibleTest, WithoutABoundaryTheWholeTextIsGiven)
{
    show(u"one\ntwo"_s);
    EXPECT_EQ(ask(*text, &QAccessibleTextInterface::textAtOffset, 2, QAccessible::NoBoundary),
              (Answer{u"one\ntwo"_s, 0, 7}));
}

TEST_F(TextDisplayAccessibleTest, SegmentsBeforeAndBehindAPlaceAreNamed)
{
    show(u"one two\nthree"_s);
    EXPECT_EQ(ask(*text, &QAccessibleTextInterface::textBeforeOffset, 8, QAccessible::LineBoundary),
              (Answer{u"one two\n"_s, 0, 8}));
    EXPECT_EQ(ask(*text, &QAccessibleTextInterface::textAfterOffset, 2, QAccessible::LineBoundary),
              (Answer{u"three"_s, 8, 13}));
    EXPECT_EQ(ask(*text, &QAccessibleTextInterface::textAfterOffset, 3, QAccessible::CharBoundary),
              (Answer{u"t"_s, 4, 5}));
}

TEST_F(TextDisplayAccessibleTest, NewTextIsAnnouncedWithTheOneBeforeWhereItIsInView)
{
    takenAnnouncements();
    display.setText(u"one"_s);
    EXPECT_EQ(takenAnnouncements(), QStringList());
    show(u"two"_s);
    takenAnnouncements();
    display.setText(u"three"_s);
    EXPECT_EQ(takenAnnouncements(), QStringList{u"two became three at 0"_s});
}

TEST_F(TextDisplayAccessibleTest, CaretAndSelectionAreAnnouncedWhenTheyChange)
{
    show(u"one two three"_s);
    takenAnnouncements();
    display.select(4, 7);
    EXPECT_EQ(takenAnnouncements(), (QStringList{u"caret 7"_s, u"selection 4 to 7, caret 7"_s}));
    display.select(4, 7);
    EXPECT_EQ(takenAnnouncements(), QStringList());
    display.select(5, 7);
    EXPECT_EQ(takenAnnouncements(), QStringList{u"selection 5 to 7, caret 7"_s});
    display.select(7, 5);
    EXPECT_EQ(takenAnnouncements(), QStringList{u"caret 5"_s});
    display.select(2, 2);
    EXPECT_EQ(takenAnnouncements(), (QStringList{u"caret 2"_s, u"selection 2 to 2, caret 2"_s}));
    display.select(3, 3);
    EXPECT_EQ(takenAnnouncements(), QStringList{u"caret 3"_s});
}

TEST_F(TextDisplayAccessibleTest, CharactersAreWhereTheScreenShowsThem)
{
    show(u"one\ntwo"_s);
    display.move(120, 90);
    const QPoint corner = display.viewport()->mapToGlobal(QPoint());
    const std::optional<QRect> place = display.characterRect(5);
    ASSERT_TRUE(place);
    EXPECT_EQ(text->characterRect(5), place->translated(corner));
    EXPECT_EQ(text->offsetAtPoint(corner + place->center()), 5);
    EXPECT_EQ(text->offsetAtPoint(corner - QPoint(1, 1)), -1);
}

TEST_F(TextDisplayAccessibleTest, BothEndsOfWhatIsScrolledToComeIntoViewWhereTheyFit)
{
    show(u"line\n"_s.repeated(1'000));
    text->scrollToSubstring(4'000, 4'020);
    EXPECT_FALSE(text->characterRect(4'000).isEmpty());
    EXPECT_FALSE(text->characterRect(4'020).isEmpty());
    text->scrollToSubstring(1'000, 4'000);
    EXPECT_FALSE(text->characterRect(1'000).isEmpty());
}

TEST_F(TextDisplayAccessibleTest, OffsetsOutsideTheTextHaveNoAnswer)
{
    show(u"abc"_s);
    for (const int offset : {-3, 4, 1'000}) {
        EXPECT_EQ(ask(*text, &QAccessibleTextInterface::textAtOffset, offset, QAccessible::WordBoundary),
                  (Answer{QString(), -1, -1}));
    }
    EXPECT_EQ(text->text(-5, 2), u"ab"_s);
    EXPECT_EQ(text->text(2, 99), u"c"_s);
    EXPECT_EQ(text->text(7, 9), QString());
    EXPECT_EQ(text->offsetAtPoint(QPoint(-500, -500)), -1);
    text->setCursorPosition(77);
    EXPECT_EQ(text->cursorPosition(), 3);
}

TEST_F(TextDisplayAccessibleTest, CharactersOutOfViewHaveNoPlaceUntilTheyAreScrolledTo)
{
    show(u"line\n"_s.repeated(1'000));
    EXPECT_TRUE(text->characterRect(4'000).isEmpty());
    text->scrollToSubstring(4'000, 4'002);
    EXPECT_FALSE(text->characterRect(4'000).isEmpty());
}

TEST_F(TextDisplayAccessibleTest, ScrollingToWhatIsOutsideTheTextScrollsToItsEnds)
{
    show(u"l\u00EDne\n"_s.repeated(1'000));
    text->scrollToSubstring(90'000, std::numeric_limits<int>::max());
    EXPECT_FALSE(text->characterRect(4'998).isEmpty());
    text->scrollToSubstring(std::numeric_limits<int>::min(), -1);
    EXPECT_FALSE(text->characterRect(0).isEmpty());
    EXPECT_EQ(display.horizontalScrollBar()->value(), 0);
}

TEST_F(TextDisplayAccessibleTest, AttributesOfEveryRowLeaveNoMemoryBehind)
{
    show(u"line\n"_s.repeated(50'000));
    const size_t before = mallinfo2().uordblks;
    for (int row = 0; row < 50'000; ++row) {
        int start = 0;
        int end = 0;
        text->attributes(5 * row, &start, &end);
        ASSERT_EQ(start, 5 * row);
    }
    EXPECT_LT(mallinfo2().uordblks, before + 1024 * 1024);
}

TEST_F(TextDisplayAccessibleTest, AttributesNameFontAndDirectionOfTheRow)
{
    show(u"abc\n\u05E9\u05DC\n"_s);
    int start = 0;
    int end = 0;
    EXPECT_TRUE(text->attributes(5, &start, &end).contains(u"writing-mode:rl;"_s));
    EXPECT_EQ(start, 4);
    EXPECT_EQ(end, 7);
    EXPECT_TRUE(text->attributes(1, &start, &end).contains(u"writing-mode:lr;"_s));
    EXPECT_TRUE(text->attributes(1, &start, &end).startsWith(u"font-family:"_s));
}

TEST_F(TextDisplayAccessibleTest, WholeOfAVeryLargeTextIsGivenUpToTheBound)
{
    const QString large = u"x\n"_s.repeated(8'000'000);
    show(large);
    EXPECT_EQ(text->characterCount(), large.size());
    EXPECT_EQ(text->text(0, -1), large.left(kLongestAnswer));
    EXPECT_EQ(text->text(15'000'000, 15'000'004), large.mid(15'000'000, 4));
}

TEST_F(TextDisplayAccessibleTest, AnswersOfAVeryLongLineFollowEachOtherAndNameWhatTheyHold)
{
    const QString line = QString(2 * kLongestAnswer - 1, u'x') + u"\U0001F4A5"_s.repeated(kLongestAnswer / 4) + u'\n';
    const QString all = u"before\n"_s + line + u"after"_s;
    show(all);
    QString read;
    for (int offset = 7; offset < 7 + line.size();) {
        const Answer part = ask(*text, &QAccessibleTextInterface::textAtOffset, offset, QAccessible::ParagraphBoundary);
        ASSERT_EQ(part.start, offset);
        ASSERT_EQ(part.end, offset + part.text.size());
        ASSERT_GT(part.end, offset);
        ASSERT_LE(part.text.size(), kLongestAnswer);
        read += part.text;
        offset = part.end;
    }
    EXPECT_TRUE(read == line);
    const Answer first{line.left(kLongestAnswer), 7, 7 + int(kLongestAnswer)};
    const auto end = static_cast<int>(7 + line.size());
    EXPECT_TRUE(ask(*text, &QAccessibleTextInterface::textAtOffset, 99, QAccessible::ParagraphBoundary) == first);
    EXPECT_TRUE(ask(*text, &QAccessibleTextInterface::textAfterOffset, 0, QAccessible::ParagraphBoundary) == first);
    EXPECT_TRUE(ask(*text, &QAccessibleTextInterface::textBeforeOffset, end, QAccessible::ParagraphBoundary) == first);
}

TEST_F(TextDisplayAccessibleTest, BoundPartsNoPair)
{
    show(u"x"_s + u"\U0001F4A5"_s.repeated(kLongestAnswer));
    const QString answer = text->text(0, -1);
    EXPECT_EQ(answer.size(), kLongestAnswer - 1);
    EXPECT_TRUE(answer.back().isLowSurrogate());
}

TEST_F(TextDisplayAccessibleTest, LinesOfAVeryLargeTextAreAnsweredWithoutGoingThroughIt)
{
    show(u"0123456789abcdef 0123456789abcdef\n"_s.repeated(3'950'000));
    ASSERT_GT(text->characterCount(), 128 * 1024 * 1024);
    const std::clock_t begun = std::clock();
    for (int count = 0; count < 5'000; ++count) {
        const int offset = 26'000 * count + 17;
        const Answer line = ask(*text, &QAccessibleTextInterface::textAtOffset, offset, QAccessible::LineBoundary);
        ASSERT_EQ(line.end - line.start, 34);
        ask(*text, &QAccessibleTextInterface::textAfterOffset, offset, QAccessible::WordBoundary);
    }
    // Of the processor's time going through the text once takes 30 milliseconds at the very least.
    EXPECT_LT(std::clock() - begun, 10 * CLOCKS_PER_SEC);
}

TEST_F(TextDisplayAccessibleTest, AnnouncementsAreBoundedAndPartNoCharacter)
{
    EXPECT_EQ(announcedOf(u"before"_s), u"before"_s);
    EXPECT_EQ(announcedOf(QString()), QString());
    EXPECT_EQ(announcedOf(QString(100'000, u'y')), QString(kLongestAnnouncement, u'y'));
    EXPECT_EQ(announcedOf(u"x"_s + u"\U0001F4A5"_s.repeated(5'000)).size(), kLongestAnnouncement - 1);
}
