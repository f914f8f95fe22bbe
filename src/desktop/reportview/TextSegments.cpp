// How the toolkit's boundaries are asked for one row at a time.
#include "desktop/reportview/TextSegments.h"

#include <QTextBoundaryFinder>

#include <algorithm>

namespace reportview {

namespace {

QTextBoundaryFinder finderFor(QTextBoundaryFinder::BoundaryType type, QStringView text, const Row &row)
{
    return {type, text.sliced(row.begin, row.next - row.begin)};
}

Range boundedBy(QTextBoundaryFinder::BoundaryType type, QStringView text, qsizetype offset)
{
    if (offset == text.size()) {
        return {offset, offset};
    }
    const Row row = rowAt(text, offset);
    QTextBoundaryFinder finder = finderFor(type, text, row);
    finder.setPosition(offset - row.begin);
    const qsizetype begin = finder.isAtBoundary() ? finder.position() : finder.toPreviousBoundary();
    const qsizetype end = finder.toNextBoundary();
    return {row.begin + begin, row.begin + end};
}

} // namespace

Range segmentAt(QStringView text, qsizetype offset, Segment segment)
{
    offset = std::clamp<qsizetype>(offset, 0, text.size());
    switch (segment) {
    case Segment::Character:
        return boundedBy(QTextBoundaryFinder::Grapheme, text, offset);
    case Segment::Word:
        return boundedBy(QTextBoundaryFinder::Word, text, offset);
    case Segment::Sentence:
        return boundedBy(QTextBoundaryFinder::Sentence, text, offset);
    case Segment::Row: {
        const Row row = rowAt(text, offset);
        return {row.begin, row.next};
    }
    case Segment::Line:
        return lineAt(text, offset);
    }
    return {offset, offset};
}

Range segmentBefore(QStringView text, qsizetype offset, Segment segment)
{
    const qsizetype begin = segmentAt(text, offset, segment).begin;
    return begin == 0 ? Range{0, 0} : segmentAt(text, begin - 1, segment);
}

Range segmentBehind(QStringView text, qsizetype offset, Segment segment)
{
    const qsizetype end = segmentAt(text, offset, segment).end;
    const Range behind = segmentAt(text, end, segment);
    return behind.begin < end ? Range{end, end} : behind;
}

qsizetype previousCharacter(QStringView text, qsizetype offset)
{
    return segmentAt(text, offset - 1, Segment::Character).begin;
}

qsizetype nextCharacter(QStringView text, qsizetype offset)
{
    return segmentAt(text, offset, Segment::Character).end;
}

qsizetype previousWord(QStringView text, qsizetype offset)
{
    if (offset <= 0) {
        return 0;
    }
    const Row row = rowAt(text, offset - 1);
    QTextBoundaryFinder words = finderFor(QTextBoundaryFinder::Word, text, row);
    words.setPosition(offset - row.begin);
    qsizetype place = words.toPreviousBoundary();
    while (place > 0 && text[row.begin + place].isSpace()) {
        place = words.toPreviousBoundary();
    }
    return row.begin + place;
}

qsizetype nextWord(QStringView text, qsizetype offset)
{
    const Row row = rowAt(text, offset);
    QTextBoundaryFinder words = finderFor(QTextBoundaryFinder::Word, text, row);
    words.setPosition(offset - row.begin);
    qsizetype place = words.toNextBoundary();
    while (place >= 0 && row.begin + place < row.next && text[row.begin + place].isSpace()) {
        place = words.toNextBoundary();
    }
    return place < 0 ? row.next : row.begin + place;
}

qsizetype betweenCharacters(QStringView text, qsizetype offset)
{
    return segmentAt(text, offset, Segment::Character).begin;
}

Range wholeCharacters(QStringView text, Range range)
{
    const qsizetype begin = betweenCharacters(text, range.begin);
    if (range.isEmpty()) {
        return {begin, begin};
    }
    const Range last = segmentAt(text, range.end, Segment::Character);
    return {begin, last.begin < range.end ? last.end : last.begin};
}

} // namespace reportview
