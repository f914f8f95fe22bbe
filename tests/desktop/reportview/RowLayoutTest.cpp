// Where characters and their marks stand in a row, and that each of them can be seen.
#include "desktop/reportview/RowLayout.h"

#include "ViewSupport.h"
#include "desktop/reportview/TextSegments.h"

#include <QFontDatabase>
#include <QImage>
#include <QPainter>

using namespace Qt::StringLiterals;
using namespace reportview;

namespace {

constexpr int kImageWidth = 900;

const TextStyle &style()
{
    static const TextStyle shared(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    return shared;
}

QImage drawn(const QString &text, Range selected = {})
{
    QImage image(kImageWidth, style().rowHeight, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    RowLayout layout(text, rowAt(text, 0), style());
    layout.draw(painter, {0, 0}, {0, kImageWidth}, selected,
                {Qt::black, Qt::darkGray, Qt::white, Qt::lightGray, Qt::blue});
    return image;
}

/// Whether something is drawn between the two places.
bool hasInk(const QImage &image, qreal left, qreal right)
{
    for (int x = static_cast<int>(left); x < static_cast<int>(right); ++x) {
        for (int y = 0; y < image.height(); ++y) {
            if (image.pixelColor(x, y) != QColor(Qt::white)) {
                return true;
            }
        }
    }
    return false;
}

qreal widthOf(RowLayout &layout, Range characters)
{
    qreal width = 0;
    for (const RowLayout::Span &span : layout.spansOf(characters)) {
        width += span.right - span.left;
    }
    return width;
}

class HostileLayouts : public testing::TestWithParam<HostileText>
{
protected:
    template<typename Check>
    void forEachRow(Check check) const
    {
        const QString &text = GetParam().text;
        for (Row row = rowAt(text, 0);; row = nextRow(text, row)) {
            RowLayout layout(text, row, style());
            check(layout, row);
            if (row.isLast(text)) {
                return;
            }
        }
    }

    /// The ends of the row's characters, a few hundred at most.
    std::vector<Range> charactersOf(const Row &row) const
    {
        std::vector<Range> characters;
        qsizetype offset = row.begin;
        while (offset < row.end && characters.size() < 300) {
            const Range character = segmentAt(GetParam().text, offset, Segment::Character);
            characters.push_back({character.begin - row.begin, std::min(character.end, row.end) - row.begin});
            offset = character.end;
        }
        return characters;
    }
};

} // namespace

TEST_P(HostileLayouts, EveryCharacterHasRoomOfItsOwn)
{
    forEachRow([this](RowLayout &layout, const Row &row) {
        for (const Range &character : charactersOf(row)) {
            EXPECT_GT(widthOf(layout, character), 0) << row.begin + character.begin;
        }
    });
}

TEST_P(HostileLayouts, CaretComesBackToThePlaceItWasPutTo)
{
    forEachRow([this](RowLayout &layout, const Row &row) {
        for (const Range &character : charactersOf(row)) {
            const qreal x = layout.xOf(character.begin);
            EXPECT_NEAR(layout.xOf(layout.offsetAt(x)), x, 0.01) << row.begin + character.begin;
        }
    });
}

TEST_P(HostileLayouts, PlacesUnderTheMouseAreBetweenCharacters)
{
    const QString &text = GetParam().text;
    forEachRow([&text](RowLayout &layout, const Row &row) {
        for (qreal x = -10; x < 700; x += 3) {
            const qsizetype offset = row.begin + layout.offsetAt(x);
            ASSERT_LE(offset, row.end);
            ASSERT_FALSE(offset > 0 && offset < text.size() && text[offset].isLowSurrogate()
                         && text[offset - 1].isHighSurrogate());
        }
    });
}

TEST_P(HostileLayouts, WidthIsThatOfAllCharacters)
{
    forEachRow([](RowLayout &layout, const Row &row) {
        layout.measureTo(1e7);
        const qreal sum = widthOf(layout, {0, row.end - row.begin});
        EXPECT_GE(layout.width() + 0.01, sum);
    });
}

INSTANTIATE_TEST_SUITE_P(, HostileLayouts, testing::ValuesIn(hostileTexts()), nameOf);

TEST(RowLayout, MarkOfEveryControlCharacterCanBeSeenInItsPlace)
{
    for (char16_t unit = 0; unit < 0xA0; ++unit) {
        if ((unit >= 0x20 && unit < 0x7F) || unit == u'\n' || unit == u'\r') {
            continue;
        }
        const QString text = u"a"_s + QChar(unit) + u"b"_s;
        RowLayout layout(text, rowAt(text, 0), style());
        EXPECT_TRUE(hasInk(drawn(text), layout.xOf(1) + 1, layout.xOf(2) - 1)) << int(unit);
    }
}

TEST(RowLayout, InvisibleCharactersCanBeSeenInTheirPlaces)
{
    for (const int unit : {0x00AD, 0x200B, 0x200E, 0x202E, 0x2060, 0xD83D, 0xDCA5, 0xFDD0, 0xFEFF, 0xFFFC, 0xFFFF}) {
        const QString text = u"a"_s + QChar(static_cast<char16_t>(unit)) + u"b"_s;
        RowLayout layout(text, rowAt(text, 0), style());
        EXPECT_TRUE(hasInk(drawn(text), layout.xOf(1) + 1, layout.xOf(2) - 1)) << std::hex << unit;
    }
}

TEST(RowLayout, LineEndsOtherThanALineFeedCanBeSeen)
{
    const qreal behind = style().cell + 2;
    EXPECT_FALSE(hasInk(drawn(u"a\nb"_s), behind, kImageWidth));
    for (const QString &lineEnd : {u"\r\n"_s, u"\r"_s, u"\u2028"_s, u"\u2029"_s}) {
        EXPECT_TRUE(hasInk(drawn(u"a"_s + lineEnd + u"b"_s), behind, kImageWidth));
    }
}

TEST(RowLayout, DifferentMarksLookDifferent)
{
    EXPECT_NE(drawn(u"a"_s + QChar(1)), drawn(u"a"_s + QChar(2)));
    EXPECT_NE(drawn(u"a\u202E"_s), drawn(u"a\u202D"_s));
    EXPECT_NE(drawn(u"a\tb"_s), drawn(u"a       b"_s));
}

TEST(RowLayout, BidiControlsMoveNothing)
{
    const QString text = u"a\u202Ebc\u2067d\u202Ce\u2069f"_s;
    RowLayout layout(text, rowAt(text, 0), style());
    for (qsizetype offset = 0; offset < text.size(); ++offset) {
        EXPECT_LT(layout.xOf(offset), layout.xOf(offset + 1));
    }
    EXPECT_FALSE(layout.isRightToLeft());
}

TEST(RowLayout, RowHasTheDirectionOfItsFirstLetter)
{
    const auto isRightToLeft = [](const QString &text) {
        return RowLayout(text, rowAt(text, 0), style()).isRightToLeft();
    };
    EXPECT_TRUE(isRightToLeft(u"12 \u05E9\u05DC abc"_s));
    EXPECT_TRUE(isRightToLeft(u"\u0645\u0631"_s));
    EXPECT_FALSE(isRightToLeft(u"12 abc \u05E9\u05DC"_s));
    EXPECT_FALSE(isRightToLeft(u"\u200F12 abc"_s));
    EXPECT_FALSE(isRightToLeft(u""_s));
}

TEST(RowLayout, RightToLeftCharactersFollowEachOtherToTheLeft)
{
    const QString text = u"\u05E9\u05DC\u05D5\u05DD "_s.repeated(200);
    RowLayout layout(text, rowAt(text, 0), style());
    for (qsizetype offset = 0; offset < text.size(); ++offset) {
        ASSERT_GT(layout.xOf(offset) + 0.01, layout.xOf(offset + 1)) << offset;
    }
    EXPECT_NEAR(layout.xOf(0), layout.width(), 1);
}

TEST(RowLayout, MixedDirectionsAreSelectedCharacterByCharacter)
{
    const QString text = u"ab \u05E9\u05DC cd"_s;
    RowLayout layout(text, rowAt(text, 0), style());
    const auto first = layout.spansOf({3, 4});
    const auto second = layout.spansOf({4, 5});
    ASSERT_EQ(first.size(), 1U);
    ASSERT_EQ(second.size(), 1U);
    // The first letter stands right of the second.
    EXPECT_NEAR(first[0].left, second[0].right, 0.1);
    EXPECT_GT(first[0].right, first[0].left + 1);
}

TEST(RowLayout, TabsReachEveryEighthColumn)
{
    const QString text = u"a\tb\t\tc"_s;
    RowLayout layout(text, rowAt(text, 0), style());
    EXPECT_NEAR(layout.xOf(2), 8 * style().cell, 0.1);
    EXPECT_NEAR(layout.xOf(5), 24 * style().cell, 0.1);
}

TEST(RowLayout, LongPlainRowIsAsWideAsItsCells)
{
    const QString text(4'000, u'x');
    RowLayout layout(text, rowAt(text, 0), style());
    ASSERT_TRUE(style().isMonospaced);
    EXPECT_NEAR(layout.width(), 4'000 * style().cell, 0.1);
    EXPECT_NEAR(layout.xOf(3'999), 3'999 * style().cell, 0.1);
    EXPECT_EQ(layout.offsetAt(3'000.2 * style().cell), 3'000);
}

TEST(RowLayout, WhatIsSelectedIsFilled)
{
    const QImage image = drawn(u"abcd\n"_s, {1, 3});
    const auto colorAt = [&image](qreal cells) {
        return image.pixelColor(static_cast<int>(cells * style().cell), image.height() - 1);
    };
    EXPECT_EQ(colorAt(0.5), QColor(Qt::white));
    EXPECT_EQ(colorAt(1.5), QColor(Qt::blue));
    EXPECT_EQ(colorAt(2.5), QColor(Qt::blue));
    EXPECT_EQ(colorAt(3.5), QColor(Qt::white));
}

TEST(RowLayout, SelectedLineEndIsFilled)
{
    const QImage with = drawn(u"a\n"_s, {0, 2});
    const QImage without = drawn(u"a\n"_s, {0, 1});
    const int behind = static_cast<int>(1.2 * style().cell);
    EXPECT_EQ(with.pixelColor(behind, 2), QColor(Qt::blue));
    EXPECT_EQ(without.pixelColor(behind, 2), QColor(Qt::white));
}
