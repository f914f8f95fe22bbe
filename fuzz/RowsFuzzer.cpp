// The rows of the report view, which are found around a place without an index, against an index of the whole text. The
// input is a text of line ends, long runs and characters of several code units.
#include "desktop/reportview/TextRows.h"
#include "fuzz/ReferenceText.h"
#include "fuzz/Require.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>
#include <vector>

using reportview::Range;
using reportview::Row;

namespace {

constexpr qsizetype kRowUnits = 4096;
/// How far before a multiple of kRowUnits a line may be divided.
constexpr qsizetype kDivisionReach = 32;

constexpr std::array kPieces = {u"\n",
                                u"\r",
                                u"\r\n",
                                u"\x2028",
                                u"\x2029",
                                u" ",
                                u"x",
                                u"\xD83D\xDE00",
                                u"\xD83D",
                                u"\xDE00",
                                u"\x200D",
                                u"e\x0301",
                                u"\xD83D\xDC4B\xD83C\xDFFB",
                                u"\xD83C\xDDE9",
                                u"\x1112\x1161\x11AB",
                                u"\x2027",
                                u"\x202A"};

std::u16string textFrom(FuzzedDataProvider &input)
{
    std::u16string text;
    for (auto left = input.ConsumeIntegralInRange<int>(0, 8); left > 0; --left) {
        const std::u16string piece = input.PickValueInArray(kPieces);
        const auto choice = input.ConsumeIntegralInRange<int>(0, 15);
        const std::size_t size = choice == 0 ? input.ConsumeIntegralInRange<std::size_t>(4060, 4130)
            : choice == 1                    ? input.ConsumeIntegralInRange<std::size_t>(1, 40)
                                             : 1;
        for (std::size_t i = 0; i < size; ++i) {
            text += piece;
        }
    }
    return text;
}

/// A line from its begin to its end, and where the next one begins.
struct Line {
    qsizetype begin = 0;
    qsizetype end = 0;
    qsizetype next = 0;
};

/// All lines, with an empty one behind the last line end.
std::vector<Line> linesOf(std::u16string_view text)
{
    constexpr std::u16string_view kEnds = u"\n\r\x2028\x2029";
    std::vector<Line> lines;
    Line line;
    for (std::size_t at = 0; at <= text.size(); ++at) {
        const bool isEnd = at < text.size() && kEnds.find(text[at]) != kEnds.npos;
        if (!isEnd && at < text.size()) {
            continue;
        }
        line.end = static_cast<qsizetype>(at);
        if (isEnd && text.substr(at, 2) == u"\r\n") {
            ++at;
        }
        line.next = std::min(static_cast<qsizetype>(at) + 1, static_cast<qsizetype>(text.size()));
        lines.push_back(line);
        line.begin = line.next;
    }
    return lines;
}

/// Where the line is divided near the multiple; checked as far as the rules of it go.
qsizetype divisionAt(QStringView text, qsizetype multiple)
{
    const qsizetype division = reportview::divisionBefore(text, multiple);
    require(division <= multiple && division > multiple - kDivisionReach, "a line is divided near the multiple");
    require(!(text[division].isLowSurrogate() && text[division - 1].isHighSurrogate()), "a pair is not divided");
    return division;
}

std::vector<Row> rowsOf(QStringView text, const std::vector<Line> &lines)
{
    std::vector<Row> rows;
    for (const Line &line : lines) {
        qsizetype begin = line.begin;
        for (qsizetype multiple = kRowUnits; multiple < line.end; multiple += kRowUnits) {
            if (multiple - line.begin >= kRowUnits) {
                const qsizetype division = divisionAt(text, multiple);
                rows.push_back({begin, division, division});
                begin = division;
            }
        }
        rows.push_back({begin, line.end, line.next});
    }
    return rows;
}

void checkAround(QStringView text, const std::vector<Row> &rows, const std::vector<Line> &lines, qsizetype place)
{
    for (qsizetype offset = place - 2; offset <= place + 2; ++offset) {
        if (offset < 0 || offset > text.size()) {
            continue;
        }
        const auto row = std::ranges::upper_bound(rows, offset, {}, &Row::begin) - 1;
        require(reportview::rowAt(text, offset) == *row, "the row at a place is that of the index");
        const auto line = std::ranges::upper_bound(lines, offset, {}, &Line::begin) - 1;
        require(reportview::lineAt(text, offset) == Range{line->begin, line->next}, "and so is the line");
    }
}

void check(QStringView text, const std::vector<Line> &lines)
{
    const std::vector<Row> rows = rowsOf(text, lines);
    Row row = reportview::rowAt(text, 0);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        require(row == rows[i], "one row follows the other as in the index");
        require(row.end - row.begin <= 2 * kRowUnits, "no row is too long");
        require(row.isLast(text) == (i + 1 == rows.size()), "the last row is known as the last one");
        require(i == 0 || reportview::previousRow(text, row) == rows[i - 1], "the way back is the same");
        // Thousands of rows in a row are alike.
        if (i % 64 < 8 || i + 8 > rows.size()) {
            checkAround(text, rows, lines, row.begin);
            checkAround(text, rows, lines, row.end);
            checkAround(text, rows, lines, (row.begin + row.end) / 2);
        }
        row = i + 1 < rows.size() ? reportview::nextRow(text, row) : row;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const std::u16string units = textFrom(input);
    const QString text = reference::text(units);
    check(text, linesOf(units));
    return 0;
}
