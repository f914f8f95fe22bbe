// Text from outside, unit by unit: what is shown as a space, where it is cut and where a line may end.
#include "desktop/window/DisplayText.h"

#include "support/PrintQt.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QString kBreak(QChar(0x200B)); // Where a line may end.

QString word(qsizetype units)
{
    return QString(units, u'x');
}

} // namespace

TEST(DisplayText, ControlCharactersLineEndsAndDirectionsAreSpaces)
{
    const QString text = u"\x01\n\x7f\x9f\u2028\u2029\u061C\u200E\u200F\u202A\u202B\u202E\u2066\u2067\u2069"_s;

    EXPECT_EQ(displayText(text), QString(text.size(), u' '));
}

TEST(DisplayText, TheirNeighboursStay)
{
    const QString text = u" ~\u00a0\u061B\u061D\u200D\u2010\u2027\u202F\u2065\u206A"_s;

    EXPECT_EQ(displayText(text), text);
}

TEST(DisplayText, TextThatIsTooLongKeepsItsTwoEnds)
{
    EXPECT_EQ(withEllipsis(u"abcdef"_s, 6, 2), u"abcdef"_s);
    EXPECT_EQ(withEllipsis(u"abcdefg"_s, 6, 2), u"abcd…fg"_s);
}

TEST(DisplayText, NoPairOfSurrogatesIsParted)
{
    EXPECT_EQ(withEllipsis(u"abc\U0001F4A5efg"_s, 6, 2), u"abc…fg"_s);
    EXPECT_EQ(withEllipsis(u"ab\U0001F4A5efg"_s, 6, 2), u"ab\U0001F4A5…fg"_s);
    EXPECT_EQ(withEllipsis(u"abcde\U0001F4A5g"_s, 6, 2), u"abcd…g"_s);
    EXPECT_EQ(withEllipsis(u"abcdef\U0001F4A5"_s, 6, 2), u"abcd…\U0001F4A5"_s);
}

TEST(DisplayText, LineMayEndAfterEachTwentyUnitsOfAWord)
{
    EXPECT_EQ(breakable(word(20)), word(20));
    EXPECT_EQ(breakable(word(21)), word(20) + kBreak + word(1));
    EXPECT_EQ(breakable(word(41)), word(20) + kBreak + word(20) + kBreak + word(1));
}

TEST(DisplayText, WordsBeginAfterSpaces)
{
    const QString text = u' ' + word(20) + u' ' + word(20);

    EXPECT_EQ(breakable(text), text);
}

TEST(DisplayText, NoLineEndsInsideAPairOfSurrogates)
{
    EXPECT_EQ(breakable(word(19) + u"\U0001F4A5x"_s), word(19) + u"\U0001F4A5"_s + kBreak + u'x');
    EXPECT_EQ(breakable(word(20) + u"\U0001F4A5x"_s), word(20) + kBreak + u"\U0001F4A5x"_s);
}
