// What the tests of the report view share: hostile texts, and how ranges are printed.
#pragma once

#include "desktop/reportview/TextRows.h"
#include "support/EventLoop.h"
#include "support/PrintQt.h"

#include <QApplication>
#include <QString>
#include <QTest>

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace reportview {

inline void PrintTo(const Range &range, std::ostream *out)
{
    *out << '[' << range.begin << ", " << range.end << ')';
}

inline void PrintTo(const Row &row, std::ostream *out)
{
    *out << '[' << row.begin << ", " << row.end << "; " << row.next << ')';
}

} // namespace reportview

struct HostileText {
    std::string name;
    QString text;
};

inline void PrintTo(const HostileText &hostile, std::ostream *out)
{
    *out << hostile.name;
}

inline std::string nameOf(const testing::TestParamInfo<HostileText> &given)
{
    return given.param.name;
}

inline QString everyControlCharacter()
{
    QString text;
    for (char16_t unit = 0; unit < 0xA0; ++unit) {
        if (unit < u' ' || unit >= 0x7F) {
            text += QChar(u'a' + unit % 26);
            text += QChar(unit);
        }
    }
    return text;
}

/// Texts that a view could lose, part, join or reorder something of.
inline std::vector<HostileText> hostileTexts()
{
    using namespace Qt::StringLiterals;
    const QString high(QChar(0xD83D));
    const QString low(QChar(0xDCA5));
    return {
        {"Empty", u""_s},
        {"OneCharacter", u"a"_s},
        {"OneLineEnd", u"\n"_s},
        {"EveryLineEnd", u"a\nb\r\nc\rd\u2028e\u2029f\n\r\n\r\r\n\n"_s},
        {"NoLastLineEnd", u"a\r\nb"_s},
        {"LastCarriageReturn", u"a\r"_s},
        {"LastPair", u"a\r\n"_s},
        {"OnlyLineEnds", u"\r\r\n\n\u2028\u2029\r"_s},
        {"EveryControlCharacter", everyControlCharacter()},
        {"CombiningMarks", u"e\u0301 a\u0300\u0316\u0325b \u0301c"_s},
        {"ManyCombiningMarks", u"a"_s + QString(300, QChar(0x301)) + u"b"_s},
        {"Emoji", u"\U0001F4A5\U0001F468\u200D\U0001F469\u200D\U0001F467 \U0001F44D\U0001F3FD \U0001F1E9\U0001F1EA"_s},
        {"HalvesOfPairs", high + u"a"_s + low + low + high + high + low + u"\n"_s + low + high},
        {"RightToLeft",
         u"\u05E9\u05DC\u05D5\u05DD one 2\n\u0645\u0631\u062D\u0628\u0627 42\nfirst \u05E9\u05DC\u05D5\u05DD\n"_s},
        {"BidiControls", u"a\u202Eb\u202Cc\u2066d\u2069\u200Fe\u200E\n\u202Exyz"_s},
        {"Tabs", u"\ta\t\tb\t\n\t"_s},
        {"Sentences", u"It broke. Why? Nobody knows!  See above.\nNext one."_s},
        {"NoncharactersAndFillers",
         QString(QChar(0xFDD0)) + QChar(0xFFFF) + QChar(0xFFFE) + u"\u3164\u115F\uFFFC\uFEFF"_s},
        {"NoBreakSpace", u"a\u00A0b"_s},
        {"LongLine", u"before\r\n"_s + QString(25'000, u'x') + u"\nafter\n"_s},
        {"LongLineOfPairs", u"x"_s + u"\U0001F4A5"_s.repeated(10'000) + u"\r\nend"_s},
        {"LongLineOfWords", u"harbour pier "_s.repeated(1'500)},
        {"LongLineOfMarks", QString(9'000, QChar(0)) + u"\n"_s},
        {"LongLineOfFlags", u"xxx"_s + u"\U0001F1E9\U0001F1EA"_s.repeated(4'000)},
        {"LongLineOfSyllables", u"\u1112\u1161\u11AB"_s.repeated(3'000)},
        {"DataBehindAnEmoji", u"\U0001F600"_s + u"\uFE0F\uFE01\U000E0100"_s.repeated(20) + u"b\u2065\uFFF0"_s},
        {"LongRightToLeft", u"\u05E9\u05DC\u05D5\u05DD "_s.repeated(2'000) + u"\nx"_s},
    };
}
