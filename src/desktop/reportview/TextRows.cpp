// How lines and rows are found: by looking at the text itself, never further than a row is long but in a run of flags.
#include "desktop/reportview/TextRows.h"

#include <QTextBoundaryFinder>

#include <algorithm>
#include <optional>

namespace reportview {

namespace {

/// Code units that are looked at for a good place to divide a text.
constexpr qsizetype kDivisionSearch = 32;
/// Code units of a run of flags that are looked at: more flags than anybody sets side by side.
constexpr qsizetype kFlagSearch = 16 * kRowUnits;
/// Code units that are looked at together where a line may be millions long; a compiler makes few instructions of them.
constexpr qsizetype kBlockUnits = 32;

constexpr bool endsLine(char16_t unit)
{
    return unit == u'\n' || unit == u'\r' || (unit | 1) == 0x2029;
}

/// Whether one of the units at the place ends a line.
bool blockEndsLine(const char16_t *units)
{
    char16_t found = 0;
    for (qsizetype index = 0; index < kBlockUnits; ++index) {
        const char16_t unit = units[index];
        found |= static_cast<char16_t>((unit == u'\n') | (unit == u'\r') | ((unit | 1) == 0x2029));
    }
    return found != 0;
}

bool startsLine(QStringView text, qsizetype offset)
{
    if (offset == 0) {
        return true;
    }
    const char16_t before = text[offset - 1].unicode();
    return endsLine(before) && !(before == u'\r' && offset < text.size() && text[offset] == u'\n');
}

/// The last start of a line at or before the offset, not before the limit.
std::optional<qsizetype> lineStartBefore(QStringView text, qsizetype offset, qsizetype limit)
{
    const char16_t *units = text.utf16();
    qsizetype place = offset;
    while (place >= limit) {
        if (place - limit >= kBlockUnits && !blockEndsLine(units + place - kBlockUnits)) {
            place -= kBlockUnits;
            continue;
        }
        if (startsLine(text, place)) {
            return place;
        }
        --place;
    }
    return std::nullopt;
}

/// The first unit that ends a line, from the offset up to the limit; the limit if there is none.
qsizetype lineEndBehind(QStringView text, qsizetype offset, qsizetype limit)
{
    const char16_t *units = text.utf16();
    qsizetype place = offset;
    while (limit - place >= kBlockUnits && !blockEndsLine(units + place)) {
        place += kBlockUnits;
    }
    while (place < limit && !endsLine(units[place])) {
        ++place;
    }
    return place;
}

qsizetype behindLineEnd(QStringView text, qsizetype end)
{
    if (end == text.size()) {
        return end;
    }
    const bool isPair = text[end] == u'\r' && end + 1 < text.size() && text[end + 1] == u'\n';
    return end + (isPair ? 2 : 1);
}

/// Whether the line at a multiple of kRowUnits that is not the text's start is divided there.
bool isDivided(QStringView text, qsizetype multiple)
{
    return multiple < text.size() && !endsLine(text[multiple].unicode())
        && !lineStartBefore(text, multiple, multiple - kRowUnits + 1);
}

/// Where the row of the offset begins, which is at no line end but that of an empty line.
qsizetype rowBegin(QStringView text, qsizetype offset)
{
    const qsizetype multiple = offset / kRowUnits * kRowUnits;
    const qsizetype following = multiple + kRowUnits;
    if (following - offset < kDivisionSearch && isDivided(text, following)) {
        const qsizetype division = divisionBefore(text, following);
        if (division <= offset) {
            return division;
        }
    }
    if (const auto start = lineStartBefore(text, offset, multiple)) {
        return *start;
    }
    if (const auto start = lineStartBefore(text, multiple, multiple - kRowUnits + 1)) {
        return *start;
    }
    return divisionBefore(text, multiple);
}

/// The multiple of kRowUnits at which the row that begins at the place ends, unless its line ends before.
qsizetype nextMultiple(QStringView text, qsizetype begin)
{
    if (startsLine(text, begin)) {
        return (begin + 2 * kRowUnits - 1) / kRowUnits * kRowUnits;
    }
    // Its line was divided at a multiple or a little before it.
    return ((begin + kDivisionSearch) / kRowUnits + 1) * kRowUnits;
}

bool isInsidePair(QStringView text, qsizetype offset)
{
    return text[offset].isLowSurrogate() && text[offset - 1].isHighSurrogate();
}

/// Whether one of the letters stands there that make up a flag by twos (UTS 51, "Flags").
bool isFlagLetter(QStringView text, qsizetype offset)
{
    constexpr char16_t kHigh = 0xD83C;
    constexpr char16_t kFirstLow = 0xDDE6;
    constexpr char16_t kLastLow = 0xDDFF;
    return text[offset] == kHigh && text[offset + 1] >= kFirstLow && text[offset + 1] <= kLastLow;
}

/// Where looking for the characters that end at about the offset begins: between two of them, as far as can be told.
qsizetype contextBegin(QStringView text, qsizetype offset)
{
    qsizetype begin = std::max<qsizetype>(0, offset - 2 * kDivisionSearch);
    if (begin == 0) {
        return 0;
    }
    begin -= isInsidePair(text, begin) ? 1 : 0;
    // Which two of many flag letters belong together can be told from the first one alone.
    const qsizetype limit = std::max<qsizetype>(0, begin - kFlagSearch);
    qsizetype run = begin;
    while (run - 2 >= limit && isFlagLetter(text, run - 2)) {
        run -= 2;
    }
    return begin - (begin - run) % 4;
}

} // namespace

qsizetype divisionBefore(QStringView text, qsizetype offset)
{
    if (offset <= 0 || offset >= text.size()) {
        return std::clamp<qsizetype>(offset, 0, text.size());
    }
    const qsizetype context = contextBegin(text, offset);
    const qsizetype behind = std::min(offset + kDivisionSearch, text.size());
    QTextBoundaryFinder characters(QTextBoundaryFinder::Grapheme, text.sliced(context, behind - context));
    const qsizetype limit = std::max<qsizetype>(1, offset - kDivisionSearch + 1);
    std::optional<qsizetype> between;
    for (qsizetype place = offset; place >= limit; --place) {
        characters.setPosition(place - context);
        if (!characters.isAtBoundary()) {
            continue;
        }
        if (text[place - 1] == u' ') {
            return place;
        }
        between = between.value_or(place);
    }
    return between.value_or(offset - (isInsidePair(text, offset) ? 1 : 0));
}

Row rowAt(QStringView text, qsizetype offset)
{
    offset = std::clamp<qsizetype>(offset, 0, text.size());
    if (offset == text.size()) {
        if (startsLine(text, offset)) {
            return {offset, offset, offset};
        }
        --offset;
    }
    // A line end belongs to the row of the character before it.
    while (endsLine(text[offset].unicode()) && !startsLine(text, offset)) {
        --offset;
    }
    const qsizetype begin = rowBegin(text, offset);
    const qsizetype limit = std::min(nextMultiple(text, begin), text.size());
    const qsizetype end = lineEndBehind(text, begin, limit);
    if (end == text.size() || endsLine(text[end].unicode())) {
        return {begin, end, behindLineEnd(text, end)};
    }
    const qsizetype division = divisionBefore(text, end);
    return {begin, division, division};
}

Row nextRow(QStringView text, const Row &row)
{
    return rowAt(text, row.next);
}

Row previousRow(QStringView text, const Row &row)
{
    return rowAt(text, row.begin - 1);
}

Range lineAt(QStringView text, qsizetype offset)
{
    offset = std::clamp<qsizetype>(offset, 0, text.size());
    const qsizetype begin = lineStartBefore(text, offset, 0).value_or(0);
    return {begin, behindLineEnd(text, lineEndBehind(text, offset, text.size()))};
}

} // namespace reportview
