// What is shown as a mark, and what each mark says.
#include "desktop/reportview/Marks.h"

#include "ViewSupport.h"

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
    return QString::fromUcs4(&code, 1);
}

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
    for (char32_t code = 0; code <= 0xFFFF; ++code) {
        const QChar::Category category = QChar::category(code);
        if (category == QChar::Other_Format || category == QChar::Other_Surrogate || category == QChar::Separator_Line
            || category == QChar::Separator_Paragraph) {
            EXPECT_EQ(marksOf(QString(QChar(static_cast<char16_t>(code)))).size(), 1) << std::hex << uint(code);
        }
    }
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
}

TEST(Marks, JoinersWithNothingToShapeAreMarked)
{
    EXPECT_EQ(namesIn(u"a\u200Db\u200C\uFE0F"_s), (QStringList{u"ZWJ"_s, u"ZWNJ"_s, u"FE0F"_s}));
    EXPECT_EQ(namesIn(u"\u200D"_s), QStringList{u"ZWJ"_s});
    EXPECT_EQ(namesIn(u"\u200B\u200D"_s), (QStringList{u"ZWSP"_s, u"ZWJ"_s}));
}
