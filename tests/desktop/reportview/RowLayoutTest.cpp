// Where characters and their marks stand in a row, and that each of them can be seen.
#include "desktop/reportview/RowLayout.h"

#include "ViewSupport.h"
#include "desktop/reportview/TextSegments.h"

#include <QFontDatabase>
#include <QImage>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;
using namespace reportview;

namespace {

constexpr int kImageWidth = 900;

const TextStyle &style()
{
    static const TextStyle shared(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    return shared;
}

/// The first row of the text, of which only what lies between the two places is asked for.
QImage drawn(const QString &text, Range selected = {}, RowLayout::Span visible = {0, kImageWidth},
             const TextStyle &textStyle = style())
{
    QImage image(kImageWidth, textStyle.rowHeight, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    RowLayout layout(text, rowAt(text, 0), textStyle);
    layout.draw(painter, {0, 0}, visible, selected, {Qt::black, Qt::darkGray, Qt::white, Qt::lightGray, Qt::blue});
    return image;
}

/// The columns and the lines of the picture that are not white, from left to right; empty if there are none.
QRect inkOf(const QImage &image, qreal left = 0, qreal right = kImageWidth)
{
    QRect ink;
    for (int x = static_cast<int>(left); x < static_cast<int>(right); ++x) {
        for (int y = 0; y < image.height(); ++y) {
            if (image.pixelColor(x, y) != QColor(Qt::white)) {
                ink |= QRect(x, y, 1, 1);
            }
        }
    }
    return ink;
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

/// Where the characters are drawn, which have to stand side by side.
RowLayout::Span onlySpanOf(RowLayout &layout, Range characters)
{
    const auto spans = layout.spansOf(characters);
    EXPECT_EQ(spans.size(), 1U);
    return spans.empty() ? RowLayout::Span() : spans.front();
}

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
    for (const QString &text : {u"ab \u05E9\u05DC cd"_s, u"ab \u062F\u0627 cd"_s}) {
        RowLayout layout(text, rowAt(text, 0), style());
        const RowLayout::Span first = onlySpanOf(layout, {3, 4});
        const RowLayout::Span second = onlySpanOf(layout, {4, 5});
        // The first letter stands right of the second.
        EXPECT_NEAR(first.left, second.right, 0.1);
        EXPECT_GT(first.right, first.left + 1);
    }
}

TEST(RowLayout, RowKeepsItsDirectionWhereAPieceOfItBeginsWithTheOther)
{
    // The first piece ends behind its only space.
    const QString text = u"\u00E4"_s.repeated(255) + u" \u05E9 abc"_s;
    RowLayout layout(text, rowAt(text, 0), style());
    const RowLayout::Span letter = onlySpanOf(layout, {256, 257});
    EXPECT_NEAR(letter.left, 256 * style().cell, 1);
    EXPECT_GT(onlySpanOf(layout, {258, 261}).left, letter.right);
}

TEST(RowLayout, RowFromTheRightIsMeasuredWholeBeforeItIsLookedAt)
{
    const QString text = u"\u05E9"_s.repeated(300) + QString(300, QChar(1));
    RowLayout layout(text, rowAt(text, 0), style());
    const qreal start = layout.xOf(0);
    const qreal width = layout.width();
    layout.measureTo(1e7);
    EXPECT_NEAR(layout.xOf(0), start, 0.1);
    EXPECT_NEAR(layout.width(), width, 0.1);
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

TEST(RowLayout, MarkIsABoxInTheMiddleOfItsRoom)
{
    const QString text = u"a"_s + QChar(1) + u"b"_s;
    RowLayout layout(text, rowAt(text, 0), style());
    const qreal left = layout.xOf(1);
    const qreal right = layout.xOf(2);
    const QRect box = inkOf(drawn(text), left, right);
    EXPECT_NEAR(box.left() - left, right - box.right() - 1, 1.5);
    EXPECT_NEAR(box.top(), style().rowHeight - 1 - box.bottom(), 1);
    EXPECT_GT(box.width(), (right - left) * 0.7);
    EXPECT_GT(box.height(), style().rowHeight * 0.6);
}

TEST(RowLayout, MarkHasRoomForItsNameAndItsPadding)
{
    const QFontMetricsF metrics(style().markFont);
    for (const QString &name : {u"CR"_s, u"E0041"_s}) {
        EXPECT_NEAR(style().markWidth(name), metrics.horizontalAdvance(name) + 2 * style().markPadding, 0.5);
    }
    EXPECT_GT(style().markPadding, 0);
    EXPECT_LT(style().markPadding, style().markCell);
}

TEST(RowLayout, NameInAMarkIsDrawnSmallAndLeavesThePaddingFree)
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPixelSize(60);
    const TextStyle large(font);
    const QImage image = drawn(u"\U000E0041"_s, {}, {0, kImageWidth}, large);
    const int middle = image.height() / 2;
    const auto isFree = [&image, middle](int x) { return image.pixelColor(x, middle) == QColor(Qt::white); };
    const QRect box = inkOf(image);
    // Behind the line around it.
    for (int inside = 3; inside < large.markPadding - 2; ++inside) {
        EXPECT_TRUE(isFree(box.left() + inside)) << inside;
        EXPECT_TRUE(isFree(box.right() - inside)) << inside;
    }
    EXPECT_FALSE(isFree(box.left() + static_cast<int>(1.5 * large.markPadding)) && isFree(box.center().x()));
}

TEST(RowLayout, NamesOfMarksAreSmallerThanTheTextHoweverItsSizeIsGiven)
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPointSizeF(20);
    EXPECT_LT(TextStyle(font).markFont.pointSizeF(), 19);
    EXPECT_GT(TextStyle(font).markFont.pointSizeF(), 10);
    font.setPixelSize(20);
    EXPECT_LT(TextStyle(font).markFont.pixelSize(), 19);
    EXPECT_GT(TextStyle(font).markFont.pixelSize(), 10);
    font.setPixelSize(2);
    EXPECT_EQ(TextStyle(font).markFont.pixelSize(), 1);
}

TEST(RowLayout, RowsAreAsHighAsTheirLetters)
{
    const QFontMetricsF metrics(style().font);
    EXPECT_GE(style().rowHeight, metrics.lineSpacing());
    EXPECT_LT(style().rowHeight, metrics.lineSpacing() + 3);
}

TEST(RowLayout, MarksWidthIsThatOfItsBox)
{
    const QString text = u"a"_s + QChar(1) + QChar(2) + u"\u202E\U000E0041b"_s;
    RowLayout layout(text, rowAt(text, 0), style());
    EXPECT_NEAR(layout.xOf(2) - layout.xOf(1), style().markWidth(u"SOH"_s), 0.1);
    EXPECT_NEAR(layout.xOf(3) - layout.xOf(2), style().markWidth(u"STX"_s), 0.1);
    EXPECT_NEAR(layout.xOf(4) - layout.xOf(3), style().markWidth(u"RLO"_s), 0.1);
    EXPECT_NEAR(layout.xOf(6) - layout.xOf(4), style().markWidth(u"E0041"_s), 0.1);
    EXPECT_NEAR(layout.xOf(7) - layout.xOf(6), style().cell, 0.1);
    EXPECT_NEAR(layout.xOf(7), layout.width(), 0.1);

    const QString apart = QString(QChar(1)) + u"ab"_s + QChar(2) + u"c"_s;
    RowLayout between(apart, rowAt(apart, 0), style());
    EXPECT_NEAR(between.xOf(1), style().markWidth(u"SOH"_s), 0.1);
    EXPECT_NEAR(between.xOf(2) - between.xOf(1), style().cell, 0.1);
    EXPECT_NEAR(between.xOf(4) - between.xOf(3), style().markWidth(u"STX"_s), 0.1);
}

TEST(RowLayout, WidthHoldsTheLineEnd)
{
    const auto widthOfFirstRow = [](const QString &text) { return RowLayout(text, rowAt(text, 0), style()).width(); };
    EXPECT_NEAR(widthOfFirstRow(u"abc\nd"_s), 3 * style().cell, 0.1);
    EXPECT_NEAR(widthOfFirstRow(u"abc\nd"_s + QChar(1)), 3 * style().cell, 0.1);
    EXPECT_NEAR(widthOfFirstRow(u"abc\r\nd"_s), 3 * style().cell + style().markWidth(u"CR"_s), 0.1);
    const QString divided(3 * kRowUnits, u'x');
    const Row first = rowAt(divided, 0);
    ASSERT_TRUE(first.isContinued(divided));
    EXPECT_NEAR(widthOfFirstRow(divided), static_cast<qreal>(first.end + 1) * style().cell, 0.1);
}

TEST(RowLayout, TabIsAnArrowToItsEnd)
{
    const auto tip = [](const QImage &image, qreal left, qreal right) {
        // The column with the most ink above and below the shaft is the arrow's back.
        int highest = 0;
        int place = 0;
        for (int x = static_cast<int>(left); x < static_cast<int>(right); ++x) {
            const int height = inkOf(image, x, x + 1).height();
            if (height > highest) {
                highest = height;
                place = x;
            }
        }
        return place;
    };
    const QString text = u"\tb"_s;
    RowLayout layout(text, rowAt(text, 0), style());
    const QImage image = drawn(text);
    const qreal end = layout.xOf(1);
    const QRect arrow = inkOf(image, 0, end);
    EXPECT_GT(tip(image, 0, end), 0.75 * end);
    EXPECT_LT(tip(image, 0, end), arrow.right()) << "its head is open towards where the tab began";
    const int shaft = inkOf(image, arrow.left(), arrow.left() + 1).center().y();
    EXPECT_NEAR(shaft - arrow.top(), arrow.bottom() - shaft, 1) << "one half of the head above, the other below";
    EXPECT_NEAR(arrow.center().y(), style().rowHeight / 2, 1);
    EXPECT_NEAR(arrow.left(), end - 1 - arrow.right(), 2);
    EXPECT_GT(arrow.left(), 0);
    EXPECT_NEAR(arrow.height(), 2 * style().cell / 3, 3);

    const QString mirrored = u"\u05E9\t\u05DC"_s;
    RowLayout fromTheRight(mirrored, rowAt(mirrored, 0), style());
    const qreal left = fromTheRight.xOf(2);
    const qreal right = fromTheRight.xOf(1);
    const QImage other = drawn(mirrored);
    ASSERT_GT(right - left, 3 * style().cell);
    EXPECT_LT(tip(other, left + 1, right), left + (right - left) / 4);
    const QRect otherArrow = inkOf(other, left + 1, right);
    EXPECT_NEAR(otherArrow.left() - left, right - 1 - otherArrow.right(), 2);
    EXPECT_GT(tip(other, left + 1, right), otherArrow.left());
}

TEST(RowLayout, SelectionAndMarksStandInEveryPiece)
{
    // The first piece is of 64 letters.
    const QString text = QString(70, u'H') + QChar(1) + u'H';
    RowLayout layout(text, rowAt(text, 0), style());
    const auto lightest = [&layout](const QImage &image, qsizetype offset) {
        int red = 0;
        const int right = static_cast<int>(layout.xOf(offset + 1)) - 1;
        for (int x = static_cast<int>(std::ceil(layout.xOf(offset))) + 1; x < right; ++x) {
            for (int y = 0; y < image.height(); ++y) {
                red = std::max(red, image.pixelColor(x, y).red());
            }
        }
        return red;
    };
    const auto background = [&layout](const QImage &image, qsizetype offset) {
        return image.pixelColor(static_cast<int>(layout.xOf(offset)) + 2, image.height() - 1);
    };
    const QImage image = drawn(text, {62, 67});
    for (const qsizetype offset : {62, 63, 64, 66}) {
        EXPECT_EQ(background(image, offset), QColor(Qt::blue)) << offset;
        EXPECT_GT(lightest(image, offset), 200) << offset;
    }
    for (const qsizetype offset : {61, 67, 69}) {
        EXPECT_EQ(background(image, offset), QColor(Qt::white)) << offset;
    }
    const QRect box = inkOf(image, layout.xOf(70) + 1, layout.xOf(71));
    EXPECT_GT(box.width(), (layout.xOf(71) - layout.xOf(70)) * 0.7);
    const QImage mark = drawn(text, {70, 71});
    EXPECT_EQ(background(mark, 70), QColor(Qt::blue));
    const int begin = static_cast<int>(std::ceil(layout.xOf(70)));
    const QRect room(begin, 0, static_cast<int>(layout.xOf(71)) - begin, mark.height());
    EXPECT_EQ(mark.copy(room), drawn(text, {69, 72}).copy(room));
    EXPECT_NE(mark.copy(room), drawn(text, {71, 72}).copy(room));
}

TEST(RowLayout, TextOfEveryPieceHasItsColourBehindAMarkToo)
{
    const QString text = QChar(1) + QString(70, u'H');
    QImage image(kImageWidth, style().rowHeight, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    RowLayout layout(text, rowAt(text, 0), style());
    layout.draw(painter, {0, 0}, {0, kImageWidth}, {},
                {Qt::darkGreen, Qt::darkGray, Qt::white, Qt::lightGray, Qt::blue});
    painter.end();
    for (const qsizetype offset : {1, 69}) {
        QColor darkest = Qt::white;
        for (int x = static_cast<int>(layout.xOf(offset)); x < static_cast<int>(layout.xOf(offset + 1)); ++x) {
            for (int y = 0; y < image.height(); ++y) {
                darkest = std::min(darkest, image.pixelColor(x, y),
                                   [](const QColor &one, const QColor &other) { return one.red() < other.red(); });
            }
        }
        EXPECT_LT(darkest.red(), 60) << offset;
        EXPECT_GT(darkest.green(), 100) << offset;
    }
}

TEST(RowLayout, RowThatGoesOnEndsWithAnEllipsis)
{
    const QString divided = u" "_s.repeated(2 * kRowUnits - 1) + u"xyz"_s.repeated(kRowUnits);
    const Row first = rowAt(divided, 0);
    ASSERT_TRUE(first.isContinued(divided));
    RowLayout layout(divided, first, style());
    const qreal end = layout.xOf(first.end);
    QImage image(kImageWidth, style().rowHeight, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    layout.draw(painter, {-end + 100, 0}, {end - 100, end + 800}, {},
                {Qt::black, Qt::darkGray, Qt::white, Qt::lightGray, Qt::blue});
    painter.end();
    const QRect ellipsis = inkOf(image, 100);
    EXPECT_GE(ellipsis.left(), 100);
    EXPECT_LE(ellipsis.right(), 100 + style().cell);
    EXPECT_GT(ellipsis.top(), style().rowHeight / 2) << "dots at the foot of the row";
    for (int x = ellipsis.left(); x <= ellipsis.right(); ++x) {
        for (int y = ellipsis.top(); y <= ellipsis.bottom(); ++y) {
            EXPECT_GE(image.pixelColor(x, y).red(), QColor(Qt::darkGray).red()) << "no text, and dimmer";
        }
    }
}

TEST(RowLayout, OnlyWhatIsAskedForIsDrawn)
{
    const QString plain(300, u'W');
    const QString wide = u"\u00C4"_s.repeated(600);
    for (const QString &text : {plain, wide}) {
        const qreal from = 70 * style().cell;
        const QImage part = drawn(text, {}, {from, from + 100});
        const QImage whole = drawn(text);
        const QRect asked(static_cast<int>(from), 0, 100, style().rowHeight);
        EXPECT_EQ(part.copy(asked), whole.copy(asked));
    }
    // The pieces before and behind are left out.
    const QRect ink = inkOf(drawn(plain, {}, {70 * style().cell, 80 * style().cell}));
    EXPECT_GE(ink.left(), 60 * style().cell);
    EXPECT_LE(ink.right(), 140 * style().cell);
    const QString marks = u"a"_s + QString(40, QChar(1));
    RowLayout layout(marks, rowAt(marks, 0), style());
    const QRect shownMarks = inkOf(drawn(marks, {}, {layout.xOf(5) + 1, layout.xOf(8) - 1}), style().cell + 1);
    EXPECT_GE(shownMarks.left(), layout.xOf(5));
    EXPECT_LE(shownMarks.right(), layout.xOf(8));
    EXPECT_GT(shownMarks.width(), layout.xOf(8) - layout.xOf(5) - 6);
}

TEST(RowLayout, SelectedTextAndMarksHaveTheirOwnColours)
{
    // Red and green of the selection are nothing, so what they reach is the drawing's own.
    struct Shades {
        int darkest = 255;
        int lightest = 0;
    };
    const auto shades = [](const QImage &image, qreal left, qreal right) {
        Shades found;
        for (int x = static_cast<int>(std::ceil(left)); x < static_cast<int>(right); ++x) {
            for (int y = 0; y < image.height(); ++y) {
                found.darkest = std::min(found.darkest, image.pixelColor(x, y).red());
                found.lightest = std::max(found.lightest, image.pixelColor(x, y).red());
            }
        }
        return found;
    };
    const QString text = u"HH"_s + QChar(1) + QChar(1) + u"H\r"_s;
    RowLayout layout(text, rowAt(text, 0), style());
    const QImage image = drawn(text, {1, 3});
    EXPECT_LT(shades(image, layout.xOf(0), layout.xOf(1)).darkest, 60);
    EXPECT_EQ(shades(image, layout.xOf(0), layout.xOf(1)).lightest, 255);
    EXPECT_GT(shades(image, layout.xOf(1), layout.xOf(2)).lightest, 200) << "the selected letter";
    EXPECT_GT(shades(image, layout.xOf(2), layout.xOf(3) - 1).lightest, 90) << "the selected mark";
    EXPECT_LT(shades(image, layout.xOf(2), layout.xOf(3) - 1).lightest, 200);
    EXPECT_EQ(shades(image, layout.xOf(3), layout.xOf(4)).lightest, 255) << "the other mark";
    EXPECT_GT(shades(image, layout.xOf(3) + 1, layout.xOf(4)).darkest, 120);
    EXPECT_LT(shades(image, layout.xOf(3) + 1, layout.xOf(4)).darkest, 220);
    // The line end's mark.
    EXPECT_EQ(shades(image, layout.xOf(5) + 1, layout.width()).lightest, 255);
    EXPECT_GT(shades(image, layout.xOf(5) + 1, layout.width()).darkest, 120);
    const QImage withLineEnd = drawn(text, {1, 6});
    EXPECT_LT(shades(withLineEnd, layout.xOf(5), layout.width() - 1).lightest, 200);
    EXPECT_EQ(withLineEnd.pixelColor(static_cast<int>(layout.width()) - 1, 0), QColor(Qt::blue));
    EXPECT_EQ(withLineEnd.pixelColor(static_cast<int>(layout.width()) + 1, 0), QColor(Qt::white));
}

TEST(RowLayout, SelectedLineFeedHasHalfACellAtTheRowsFarEnd)
{
    const QImage image = drawn(u"ab\n"_s, {0, 3});
    const qreal end = 2 * style().cell;
    EXPECT_EQ(image.pixelColor(static_cast<int>(end + style().cell / 2) - 1, 0), QColor(Qt::blue));
    EXPECT_EQ(image.pixelColor(static_cast<int>(end + style().cell / 2) + 1, 0), QColor(Qt::white));
    EXPECT_EQ(image.pixelColor(static_cast<int>(end) + 1, image.height() - 1), QColor(Qt::blue));
    // Of an empty row, too.
    EXPECT_EQ(drawn(u"\n"_s, {0, 1}).pixelColor(1, 0), QColor(Qt::blue));
    EXPECT_EQ(drawn(u"\n"_s, {0, 0}).pixelColor(1, 0), QColor(Qt::white));

    const QString mirrored = u"\u05E9\u05DC\r\n"_s;
    RowLayout layout(mirrored, rowAt(mirrored, 0), style());
    const QImage other = drawn(mirrored, {0, 4});
    EXPECT_EQ(other.pixelColor(1, 0), QColor(Qt::blue));
    EXPECT_EQ(other.pixelColor(static_cast<int>(layout.width()) - 1, 0), QColor(Qt::blue));
    EXPECT_EQ(other.pixelColor(static_cast<int>(layout.width()) + 1, 0), QColor(Qt::white));
    EXPECT_NEAR(layout.xOf(2), style().markWidth(u"CR"_s), 1) << "the line end stands left of the letters";
}

TEST(RowLayout, CharacterUnderAPlaceIsTheOneWhoseRoomItIs)
{
    for (const QString &text : {u"abcdefgh"_s, u"\u00E4bcd\u00E9fgh"_s}) {
        RowLayout layout(text, rowAt(text, 0), style());
        for (int index = 0; index < 8; ++index) {
            EXPECT_EQ(layout.characterAt((index + 0.1) * style().cell), index);
            EXPECT_EQ(layout.characterAt((index + 0.9) * style().cell), index);
            EXPECT_EQ(layout.offsetAt((index + 0.4) * style().cell), index);
            EXPECT_EQ(layout.offsetAt((index + 0.6) * style().cell), index + 1);
        }
        EXPECT_EQ(layout.characterAt(-5), 0);
        EXPECT_EQ(layout.characterAt(100 * style().cell), 7);
        EXPECT_EQ(layout.offsetAt(-5), 0);
        EXPECT_EQ(layout.offsetAt(100 * style().cell), 8);
    }
    const QString longer(200, u'x');
    for (const int index : {63, 64, 65, 128, 150}) {
        RowLayout layout(longer, rowAt(longer, 0), style());
        EXPECT_EQ(layout.characterAt(index * style().cell), index);
        EXPECT_EQ(layout.characterAt(index * style().cell), index) << "now that its pieces are there";
    }
    const QString empty;
    EXPECT_EQ(RowLayout(empty, rowAt(empty, 0), style()).characterAt(5), 0);
    EXPECT_EQ(RowLayout(empty, rowAt(empty, 0), style()).offsetAt(5), 0);
}

TEST(RowLayout, HalvesOfRightToLeftCharactersAreMirrored)
{
    const QString text = u"\u05E9\u05DC\u05D5"_s;
    RowLayout layout(text, rowAt(text, 0), style());
    const qreal right = layout.xOf(0);
    const qreal next = layout.xOf(1);
    EXPECT_EQ(layout.offsetAt(right - 0.2 * (right - next)), 0);
    EXPECT_EQ(layout.offsetAt(right - 0.8 * (right - next)), 1);
    EXPECT_EQ(layout.characterAt(right - 0.8 * (right - next)), 0);
    EXPECT_EQ(layout.characterAt(next - 1), 1);
    const QString pairs = u"\U00010900\U00010901\U00010902"_s;
    RowLayout ofPairs(pairs, rowAt(pairs, 0), style());
    const qreal begin = ofPairs.xOf(2);
    const qreal end = ofPairs.xOf(4);
    EXPECT_EQ(ofPairs.offsetAt(begin - 0.2 * (begin - end)), 2);
    EXPECT_EQ(ofPairs.offsetAt(begin - 0.8 * (begin - end)), 4);
}

TEST(RowLayout, SpacesRunAsTheLettersAroundThem)
{
    for (const auto &[text, space] : std::vector<std::pair<QString, qsizetype>>{
             {u"\u05E9 \u05DC"_s, 1}, {u"a b\u05E9"_s, 1}, {u"a \u05E9 \u05DC b"_s, 3}}) {
        RowLayout layout(text, rowAt(text, 0), style());
        const qreal begin = layout.xOf(space);
        const qreal end = layout.xOf(space + 1);
        EXPECT_EQ(layout.offsetAt(begin + 0.2 * (end - begin)), space);
        EXPECT_EQ(layout.offsetAt(begin + 0.8 * (end - begin)), space + 1);
    }
}

TEST(RowLayout, LongRowOfOtherLettersIsMeasuredAsFarAsItIsLookedAt)
{
    const QString text = u"\u00E4"_s.repeated(1'000) + QString(1'000, QChar(1));
    RowLayout layout(text, rowAt(text, 0), style());
    EXPECT_NEAR(layout.width(), 2'000 * style().cell, 1);
    layout.measureTo(500 * style().cell);
    EXPECT_NEAR(layout.width(), 2'000 * style().cell, 1);
    layout.measureTo(1e7);
    EXPECT_NEAR(layout.width(), 1'000 * (style().cell + style().markWidth(u"SOH"_s)), 10);
    EXPECT_NEAR(layout.xOf(2'000), layout.width(), 1);
    EXPECT_NEAR(layout.xOf(1'500), 1'000 * style().cell + 500 * style().markWidth(u"SOH"_s), 10);
}

TEST(RowLayout, SpansAreTheCharactersFromLeftToRight)
{
    const QString plain(200, u'x');
    RowLayout layout(plain, rowAt(plain, 0), style());
    const auto spans = layout.spansOf({60, 70});
    ASSERT_FALSE(spans.empty());
    EXPECT_NEAR(spans.front().left, 60 * style().cell, 0.1);
    EXPECT_NEAR(spans.back().right, 70 * style().cell, 0.1);
    EXPECT_NEAR(widthOf(layout, {60, 70}), 10 * style().cell, 0.1);
    EXPECT_TRUE(layout.spansOf({5, 5}).empty());

    const QString mixed = u"ab \u05E9\u05DC\u05D5 cd"_s;
    RowLayout bothWays(mixed, rowAt(mixed, 0), style());
    // From the first letter into the run that goes the other way: its first characters stand at its far end.
    const auto parts = bothWays.spansOf({1, 4});
    ASSERT_EQ(parts.size(), 2U);
    EXPECT_NEAR(parts[0].left, style().cell, 0.5);
    EXPECT_NEAR(parts[0].right, 3 * style().cell, 0.5);
    EXPECT_GT(parts[1].left, parts[0].right + 1);
    ASSERT_EQ(bothWays.spansOf({0, 9}).size(), 1U) << "all of it is one stretch";
    EXPECT_NEAR(bothWays.spansOf({0, 9}).front().right, bothWays.width(), 1);
}

TEST(RowLayout, DigitsRunLeftToRightWithinTheOtherDirection)
{
    const QString text = u"\u05E9 12 \u05DC"_s;
    RowLayout layout(text, rowAt(text, 0), style());
    const RowLayout::Span one = onlySpanOf(layout, {2, 3});
    const RowLayout::Span two = onlySpanOf(layout, {3, 4});
    EXPECT_NEAR(one.right, two.left, 0.5);
    EXPECT_EQ(layout.characterAt((one.left + one.right) / 2), 2);
    EXPECT_EQ(layout.offsetAt(one.left + 1), 2);
    EXPECT_EQ(layout.offsetAt(two.right - 1), 4);
}

TEST(RowLayout, CombiningMarkBehindManyPlainLettersBelongsToTheLastOne)
{
    for (const int letters : {63, 64, 65, 128}) {
        const QString text = QString(letters, u'x') + u"\u0301yz"_s;
        RowLayout layout(text, rowAt(text, 0), style());
        EXPECT_NEAR(layout.xOf(letters + 1), letters * style().cell, 0.5);
        EXPECT_EQ(layout.characterAt((letters - 0.5) * style().cell), letters - 1) << letters;
        EXPECT_EQ(layout.offsetAt((letters - 0.1) * style().cell), letters + 1) << letters;
    }
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
