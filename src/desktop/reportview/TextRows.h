// Where the lines and the rows of a text lie, found around the place that is asked about.
#pragma once

#include <QStringView>

namespace reportview {

/// The UTF-16 code units from begin up to end.
struct Range {
    qsizetype begin = 0;
    qsizetype end = 0;

    qsizetype size() const { return end - begin; }
    bool isEmpty() const { return begin == end; }
    bool operator==(const Range &) const = default;
};

/// A row is what is shown side by side: a line, or a part of a very long one.
struct Row {
    qsizetype begin = 0;
    qsizetype end = 0;  ///< Behind its last character, before its line end.
    qsizetype next = 0; ///< Where the next row begins: behind its line end, and at the end where the line goes on.

    /// Whether the line goes on in the next row.
    bool isContinued(QStringView text) const { return end == next && next < text.size(); }
    bool isLast(QStringView text) const { return next == text.size() && end == next; }
    bool operator==(const Row &) const = default;
};

/// UTF-16 code units after which a line is divided into rows. A line is divided at each multiple of this number,
/// counted from the start of the text, that lies at least as far behind the line's start: so no row is longer than
/// twice the number, and where a row lies can be told from its surroundings in any text, without an index of it.
inline constexpr qsizetype kRowUnits = 4096;

/// The row that the code unit at the offset belongs to, its line end included. The end of the text belongs to the last
/// row, which is empty where the text ends with a line end. Lines end with LF, CR LF, CR, U+2028 and U+2029.
Row rowAt(QStringView text, qsizetype offset);
/// The row behind a row that is not the last.
Row nextRow(QStringView text, const Row &row);
/// The row before a row that is not the first.
Row previousRow(QStringView text, const Row &row);
/// The whole line that the code unit at the offset belongs to, its line end included. The time this takes grows with
/// the length of the line.
Range lineAt(QStringView text, qsizetype offset);

/// The place at or less than 32 units before the offset where a text may be divided for display: between words if there
/// is a space, else between characters as a reader sees them (grapheme clusters) where that can be told from the text
/// around it, and never inside a surrogate pair.
qsizetype divisionBefore(QStringView text, qsizetype offset);

} // namespace reportview
