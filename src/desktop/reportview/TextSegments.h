// The characters, words, sentences, rows and lines of a text, around a place in it.
#pragma once

#include "desktop/reportview/TextRows.h"

namespace reportview {

/// What a text is divided into. Characters (as a reader sees them: grapheme clusters), words (what stands between them
/// counts as words, too) and sentences are those of Unicode's annex 29, but for a row's end, which ends them all.
enum class Segment { Character, Word, Sentence, Row, Line };

/// The segment that the code unit at the offset belongs to, its line end included. At the end of the text it is the
/// last row or line, or an empty range. Takes time for a row at most, but for a line.
Range segmentAt(QStringView text, qsizetype offset, Segment segment);
/// The segment before and behind the one at the offset; an empty range at the text's begin or end if there is none.
Range segmentBefore(QStringView text, qsizetype offset, Segment segment);
Range segmentBehind(QStringView text, qsizetype offset, Segment segment);

/// Where a caret stops on its way from the offset: between characters, before words, and at a row's begin.
qsizetype previousCharacter(QStringView text, qsizetype offset);
qsizetype nextCharacter(QStringView text, qsizetype offset);
qsizetype previousWord(QStringView text, qsizetype offset);
qsizetype nextWord(QStringView text, qsizetype offset);

/// The begin of the character that the offset lies in: an offset between two characters as it is.
qsizetype betweenCharacters(QStringView text, qsizetype offset);
/// The whole characters that the range has a part of. A range without units is where the character begins.
Range wholeCharacters(QStringView text, Range range);

} // namespace reportview
