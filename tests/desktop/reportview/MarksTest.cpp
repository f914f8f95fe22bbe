// What is shown as a mark, and what each mark says.
#include "desktop/reportview/Marks.h"

#include "ViewSupport.h"

#include <algorithm>
#include <array>
#include <utility>

using namespace Qt::StringLiterals;
using namespace reportview;

namespace {

QStringList namesIn(const QString &text)
{
    QStringList names;
    for (const Mark &mark : marksOf(text)) {
        names += mark.name;
    }
    return names;
}

QString character(char32_t code)
{
    return QStringView(QChar::fromUcs4(code)).toString();
}

/// Unicode's Default_Ignorable_Code_Point (DerivedCoreProperties.txt), first and last of each stretch.
constexpr std::array<std::pair<char32_t, char32_t>, 17> kDefaultIgnorable = {{
    {0xAD, 0xAD},
    {0x34F, 0x34F},
    {0x61C, 0x61C},
    {0x115F, 0x1160},
    {0x17B4, 0x17B5},
    {0x180B, 0x180F},
    {0x200B, 0x200F},
    {0x202A, 0x202E},
    {0x2060, 0x206F},
    {0x3164, 0x3164},
    {0xFE00, 0xFE0F},
    {0xFEFF, 0xFEFF},
    {0xFFA0, 0xFFA0},
    {0xFFF0, 0xFFF8},
    {0x1BCA0, 0x1BCA3},
    {0x1D173, 0x1D17A},
    {0xE0000, 0xE0FFF},
}};

} // namespace

TEST(Marks, EveryControlCharacterButTheLineFeedIsMarked)
{
    for (char16_t unit = 0; unit < 0xA0; ++unit) {
        const bool isControl = (unit < u' ' || unit >= 0x7F) && unit != u'\n';
        EXPECT_EQ(marksOf(QString(QChar(unit))).size(), isControl ? 1 : 0) << int(unit);
    }
}

TEST(Marks, EveryFormatCharacterAndSeparatorAndHalfIsMarked)
{
    for (char32_t code = 0; code <= QChar::LastValidCodePoint; ++code) {
        const QChar::Category category = QChar::category(code);
        if (category == QChar::Other_Format || category == QChar::Other_Surrogate || category == QChar::Separator_Line
            || category == QChar::Separator_Paragraph) {
            const QString alone = category == QChar::Other_Surrogate ? QString(QChar(code)) : character(code);
            EXPECT_EQ(marksOf(alone).size(), 1) << std::hex << uint(code);
        }
    }
}

TEST(Marks, EveryDefaultIgnorableCharacterIsMarked)
{
    for (const auto &[first, last] : kDefaultIgnorable) {
        for (char32_t code = first; code <= last; ++code) {
            const QString ignorable = character(code);
            const QList<Mark> marks = marksOf(u'a' + ignorable);
            ASSERT_EQ(marks.size(), 1) << std::hex << uint(code);
            EXPECT_EQ(marks.first().offset, 1);
            EXPECT_EQ(marks.first().units, ignorable.size());
        }
    }
}

// One selector is a choice of form; more of them are data that nobody sees.
TEST(Marks, OneSelectorAndOneJoinerGiveACharacterItsShapeAndTheOthersAreMarked)
{
    QString hidden = u"\U0001F600"_s;
    for (char32_t code = 0xE0100; code < 0xE0140; ++code) {
        hidden += character(code);
    }
    EXPECT_EQ(marksOf(hidden).size(), 63);
    EXPECT_EQ(namesIn(u"\u2764\uFE0F\uFE0F"_s), QStringList{u"FE0F"_s});
    EXPECT_EQ(namesIn(u"\u0646\u200C\u200C\u200C"_s), (QStringList{u"ZWNJ"_s, u"ZWNJ"_s}));
    EXPECT_EQ(namesIn(u"\u0646\u200C\uFE0F"_s), QStringList{u"FE0F"_s});
    EXPECT_EQ(namesIn(u"\u0646\u200B\uFE0F\u200D"_s), (QStringList{u"ZWSP"_s, u"FE0F"_s, u"ZWJ"_s}));
}

TEST(Marks, JoinersBehindPunctuationAreMarked)
{
    EXPECT_EQ(namesIn(u"\u2014\u200C\u200C"_s), (QStringList{u"ZWNJ"_s, u"ZWNJ"_s}));
    EXPECT_EQ(namesIn(u"\u3002\uFE00"_s), QStringList{u"FE00"_s});
    EXPECT_EQ(namesIn(u"\u3000\uFE00"_s), QStringList{u"FE00"_s});
}

TEST(Marks, SayTheAbbreviationOrTheNumber)
{
    EXPECT_EQ(namesIn(QString(QChar(0)) + u"\t\r\u001B\u007F\u0085"_s),
              (QStringList{u"NUL"_s, u"HT"_s, u"CR"_s, u"ESC"_s, u"DEL"_s, u"NEL"_s}));
    EXPECT_EQ(namesIn(u"\u202E\u2066\u200B\uFEFF\u00AD\u2028\u2029"_s),
              (QStringList{u"RLO"_s, u"LRI"_s, u"ZWSP"_s, u"BOM"_s, u"SHY"_s, u"LS"_s, u"PS"_s}));
    EXPECT_EQ(namesIn(QString(QChar(0xD83D)) + u'x' + QChar(0xDCA5)), (QStringList{u"D83D"_s, u"DCA5"_s}));
    EXPECT_EQ(namesIn(QString(QChar(0xFDD0)) + QChar(0xFFFF)), (QStringList{u"FDD0"_s, u"FFFF"_s}));
    EXPECT_EQ(namesIn(character(0xE0041)), QStringList{u"E0041"_s});
    EXPECT_EQ(namesIn(u"\u0080"_s), QStringList{u"0080"_s});
}

TEST(Marks, TellWhereTheyStand)
{
    const QString text = u"ab"_s + QChar(0) + u"c"_s + character(0xE0041) + u"\r"_s;
    EXPECT_EQ(marksOf(text), (QList<Mark>{{2, 1, u"NUL"_s}, {4, 2, u"E0041"_s}, {6, 1, u"CR"_s}}));
}

TEST(Marks, WhatIsVisibleIsNotMarked)
{
    EXPECT_EQ(namesIn(u"Az09~ \u00A0\u00E9\u05D0\u0645\u65E5\U0001F4A5e\u0301\n"_s), QStringList());
}

TEST(Marks, JoinersThatGiveAPictureItsShapeAreNotMarked)
{
    EXPECT_EQ(namesIn(u"\U0001F468\u200D\U0001F469 \u2764\uFE0F \u0646\u200C\u06CC"_s), QStringList());
    EXPECT_EQ(namesIn(u"\u2764\uFE0F\u200D\U0001F525 \U0001F469\U0001F3FD\u200D\U0001F4BB"_s), QStringList());
    EXPECT_EQ(namesIn(u"\u0915\u094D\u200D\u0937 \u845B\U000E0100 \u1820\u180B"_s), QStringList());
}

TEST(Marks, EverySelectorBehindWhatItShapesIsNotMarked)
{
    constexpr std::array<std::pair<char32_t, char32_t>, 4> kSelectors = {
        {{0x180B, 0x180D}, {0x180F, 0x180F}, {0xFE00, 0xFE0F}, {0xE0100, 0xE01EF}}};
    for (const auto &[first, last] : kSelectors) {
        for (char32_t code = first; code <= last; ++code) {
            EXPECT_EQ(namesIn(u"\u1820"_s + character(code)), QStringList()) << std::hex << uint(code);
        }
    }
    EXPECT_EQ(namesIn(u"\u1820\u180E\u1820"_s + character(0xE00FF)), (QStringList{u"MVS"_s, u"E00FF"_s}));
}

TEST(Marks, HalfBehindALetterIsMarked)
{
    EXPECT_EQ(namesIn(u"\u00E9"_s + QChar(0xDCA5)), QStringList{u"DCA5"_s});
    EXPECT_EQ(namesIn(u"\u00E9"_s + QChar(0xD83D) + u'\u00E9'), QStringList{u"D83D"_s});
}

TEST(Marks, JoinersWithNothingToShapeAreMarked)
{
    EXPECT_EQ(namesIn(u"a\u200Db\u200C\uFE0F"_s), (QStringList{u"ZWJ"_s, u"ZWNJ"_s, u"FE0F"_s}));
    EXPECT_EQ(namesIn(u"\u00E9\u200D\u0436\uFE0F"_s), (QStringList{u"ZWJ"_s, u"FE0F"_s}));
    EXPECT_EQ(namesIn(u"\u200D"_s), QStringList{u"ZWJ"_s});
    EXPECT_EQ(namesIn(u"\u200B\u200D"_s), (QStringList{u"ZWSP"_s, u"ZWJ"_s}));
}

TEST(Marks, NoOtherCharacterIsMarked)
{
    const auto isOther = [](char32_t code) {
        const QChar::Category category = QChar::category(code);
        return category != QChar::Other_Control && category != QChar::Other_Format && category != QChar::Other_Surrogate
            && category != QChar::Separator_Line && category != QChar::Separator_Paragraph
            && !QChar::isNonCharacter(code) && code != 0xFFFC
            && std::ranges::none_of(kDefaultIgnorable, [code](const auto &stretch) {
                   return code >= stretch.first && code <= stretch.second;
               });
    };
    for (char32_t code = 0; code <= QChar::LastValidCodePoint; ++code) {
        if (isOther(code)) {
            ASSERT_EQ(marksOf(character(code)).size(), 0) << std::hex << uint(code);
        }
    }
}

TEST(Marks, EveryAbbreviationStandsForItsCharacter)
{
    EXPECT_EQ(namesIn(u"\x7F\u0085\u00AD\u034F\u061C\u180E"_s),
              (QStringList{u"DEL"_s, u"NEL"_s, u"SHY"_s, u"CGJ"_s, u"ALM"_s, u"MVS"_s}));
    EXPECT_EQ(namesIn(u"\u200B\u200C\u200D\u200E\u200F\u2028\u2029"_s),
              (QStringList{u"ZWSP"_s, u"ZWNJ"_s, u"ZWJ"_s, u"LRM"_s, u"RLM"_s, u"LS"_s, u"PS"_s}));
    EXPECT_EQ(namesIn(u"\u202A\u202B\u202C\u202D\u202E\u2060"_s),
              (QStringList{u"LRE"_s, u"RLE"_s, u"PDF"_s, u"LRO"_s, u"RLO"_s, u"WJ"_s}));
    EXPECT_EQ(namesIn(u"\u2066\u2067\u2068\u2069\uFEFF\uFFFC"_s),
              (QStringList{u"LRI"_s, u"RLI"_s, u"FSI"_s, u"PDI"_s, u"BOM"_s, u"OBJ"_s}));
}
