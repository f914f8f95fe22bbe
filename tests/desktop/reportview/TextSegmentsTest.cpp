// Segments found from any place against a division of the whole text.
#include "desktop/reportview/TextSegments.h"

#include "ViewSupport.h"

#include <QTextBoundaryFinder>

using namespace Qt::StringLiterals;
using namespace reportview;

namespace {

QTextBoundaryFinder::BoundaryType typeOf(Segment segment)
{
    switch (segment) {
    case Segment::Word:
        return QTextBoundaryFinder::Word;
    case Segment::Sentence:
        return QTextBoundaryFinder::Sentence;
    default:
        return QTextBoundaryFinder::Grapheme;
    }
}

/// The whole text divided from its start, row by row.
std::vector<Range> division(const QString &text, Segment segment)
{
    std::vector<Range> segments;
    for (Row row = rowAt(text, 0);; row = nextRow(text, row)) {
        QTextBoundaryFinder finder(typeOf(segment), text.mid(row.begin, row.next - row.begin));
        qsizetype begin = 0;
        for (qsizetype end = finder.toNextBoundary(); end > 0; end = finder.toNextBoundary()) {
            segments.push_back({row.begin + begin, row.begin + end});
            begin = end;
        }
        if (row.isLast(text)) {
            return segments;
        }
    }
}

/// What is stepped through: a short text, and of a long one what lies around a row's end.
Range steppedThrough(const QString &text)
{
    if (text.size() < 2'000) {
        return {0, text.size()};
    }
    return {betweenCharacters(text, 2 * kRowUnits - 300), 2 * kRowUnits + 300};
}

/// Every place of a short text, and some of a long one.
qsizetype stepThrough(const QString &text)
{
    return text.size() < 2'000 ? 1 : 97;
}

class HostileSegments : public testing::TestWithParam<HostileText>
{
protected:
    void expectDivision(Segment segment)
    {
        const QString &text = GetParam().text;
        const std::vector<Range> segments = division(text, segment);
        for (qsizetype offset = 0; offset < text.size(); offset += stepThrough(text)) {
            const auto at = std::find_if(segments.begin(), segments.end(),
                                         [offset](const Range &range) { return offset < range.end; });
            ASSERT_NE(at, segments.end());
            EXPECT_EQ(segmentAt(text, offset, segment), *at) << offset;
            EXPECT_EQ(segmentBefore(text, offset, segment), at == segments.begin() ? Range() : *std::prev(at));
            const Range end{text.size(), text.size()};
            EXPECT_EQ(segmentBehind(text, offset, segment), std::next(at) == segments.end() ? end : *std::next(at));
        }
    }
};

} // namespace

TEST_P(HostileSegments, CharactersAreThoseOfTheWholeText)
{
    expectDivision(Segment::Character);
}

TEST_P(HostileSegments, WordsAreThoseOfTheWholeText)
{
    expectDivision(Segment::Word);
}

TEST_P(HostileSegments, SentencesAreThoseOfTheWholeText)
{
    expectDivision(Segment::Sentence);
}

TEST_P(HostileSegments, StepsForwardAndBackwardStopAtTheSamePlacesAndReachBothEnds)
{
    const QString &text = GetParam().text;
    const Range range = steppedThrough(text);
    std::vector<qsizetype> forward = {range.begin};
    while (forward.back() < range.end) {
        ASSERT_GT(nextCharacter(text, forward.back()), forward.back());
        forward.push_back(nextCharacter(text, forward.back()));
    }
    for (size_t index = forward.size() - 1; index > 0; --index) {
        ASSERT_EQ(previousCharacter(text, forward[index]), forward[index - 1]);
    }
}

TEST_P(HostileSegments, NoStepStopsInsideAPairOrALineEnd)
{
    const QString &text = GetParam().text;
    const Range range = steppedThrough(text);
    for (qsizetype offset = range.begin; offset < range.end; offset = nextCharacter(text, offset)) {
        if (offset > 0) {
            ASSERT_FALSE(text[offset].isLowSurrogate() && text[offset - 1].isHighSurrogate());
            ASSERT_FALSE(text[offset] == u'\n' && text[offset - 1] == u'\r');
        }
        ASSERT_EQ(betweenCharacters(text, offset), offset);
    }
}

INSTANTIATE_TEST_SUITE_P(, HostileSegments, testing::ValuesIn(hostileTexts()), nameOf);

TEST(TextSegments, WordStepsStopBeforeWordsAndAtRowBegins)
{
    const QString text = u"one  two.\n\nthree"_s;
    EXPECT_EQ(nextWord(text, 0), 5);
    EXPECT_EQ(nextWord(text, 5), 8);
    EXPECT_EQ(nextWord(text, 8), 10);
    EXPECT_EQ(nextWord(text, 10), 11);
    EXPECT_EQ(nextWord(text, 11), 16);
    EXPECT_EQ(nextWord(text, 16), 16);
    EXPECT_EQ(previousWord(text, 16), 11);
    EXPECT_EQ(previousWord(text, 11), 10);
    EXPECT_EQ(previousWord(text, 10), 8);
    EXPECT_EQ(previousWord(text, 8), 5);
    EXPECT_EQ(previousWord(text, 5), 0);
    EXPECT_EQ(previousWord(text, 0), 0);
}

TEST(TextSegments, WordStepsPassOverSpacesAtARowsBegin)
{
    EXPECT_EQ(previousWord(u"a b", 2), 0);
    EXPECT_EQ(previousWord(u"x\n  b", 4), 2);
    EXPECT_EQ(previousWord(u"x\nb", 3), 2);
    EXPECT_EQ(nextWord(u"x\n  b", 2), 4);
    EXPECT_EQ(nextWord(u"x\n  ", 2), 4);
}

TEST(TextSegments, NothingStandsBeforeTheStartOrBehindTheEnd)
{
    for (const QString &text : {u"ab"_s, u""_s, u"\n"_s}) {
        EXPECT_EQ(previousCharacter(text, 0), 0);
        EXPECT_EQ(previousCharacter(text, -3), 0);
        EXPECT_EQ(previousWord(text, 0), 0);
        EXPECT_EQ(previousWord(text, -3), 0);
        EXPECT_EQ(nextCharacter(text, text.size()), text.size());
        EXPECT_EQ(nextWord(text, text.size()), text.size());
    }
}

TEST(TextSegments, LastRowIsThereAtTheEndOfTheText)
{
    EXPECT_EQ(segmentAt(u"a\nbc", 0, Segment::Row), (Range{0, 2}));
    EXPECT_EQ(segmentAt(u"a\nbc", 4, Segment::Row), (Range{2, 4}));
    EXPECT_EQ(segmentAt(u"a\nbc\n", 5, Segment::Row), (Range{5, 5}));
    EXPECT_EQ(segmentAt(u"a\nbc", 4, Segment::Line), (Range{2, 4}));
    EXPECT_EQ(segmentBehind(u"a\nbc", 4, Segment::Line), (Range{4, 4}));
}
