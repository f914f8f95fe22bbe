// What the view paints: colours, the caret, sections and selections, read from its pixels.
#include "DisplayFixture.h"
#include "ViewSupport.h"

#include <QImage>
#include <QLineEdit>
#include <QPaintEvent>
#include <QRegion>
#include <QScrollBar>
#include <QTimer>

#include <algorithm>
#include <chrono>

using namespace Qt::StringLiterals;
using namespace reportview;

namespace {

const QColor kText(200, 0, 0);
const QColor kBase(0, 0, 200);
const QColor kHighlight(0, 120, 0);
const QColor kHighlightedText(255, 255, 0);
const QColor kUnfocusedHighlight(90, 90, 90);
const QColor kAlternate(0, 60, 220);

class PaintingTest : public DisplayFixture
{
protected:
    PaintingTest()
    {
        QPalette colors;
        colors.setColor(QPalette::Text, kText);
        colors.setColor(QPalette::Base, kBase);
        colors.setColor(QPalette::AlternateBase, kAlternate);
        colors.setColor(QPalette::Highlight, kHighlight);
        colors.setColor(QPalette::HighlightedText, kHighlightedText);
        colors.setColor(QPalette::Inactive, QPalette::Highlight, kUnfocusedHighlight);
        display.setPalette(colors);
    }
    ~PaintingTest() override { QApplication::setCursorFlashTime(usualFlashTime); }

    QImage painted() { return display.viewport()->grab().toImage(); }
    QRect rectOf(qsizetype offset) const { return *display.characterRect(offset); }

    /// To the nearest pixel, while a character's place begins with the first one it lies in.
    bool showsCaretAt(const QRect &place)
    {
        const QImage image = painted();
        const int y = place.center().y();
        return image.pixelColor(place.left(), y) == kText || image.pixelColor(place.left() + 1, y) == kText;
    }

    /// The most of a colour's red and blue that a pixel in the place has.
    static QColor strongest(const QImage &image, const QRect &place)
    {
        int red = 0;
        int green = 0;
        for (int y = place.top(); y <= place.bottom(); ++y) {
            for (int x = place.left(); x <= place.right(); ++x) {
                red = std::max(red, image.pixelColor(x, y).red());
                green = std::max(green, image.pixelColor(x, y).green());
            }
        }
        return {red, green, 0};
    }

    /// Whether the action has the place painted anew.
    template<typename Action>
    bool paintsAnew(const QRect &place, Action action)
    {
        PaintedPlaces places;
        display.viewport()->installEventFilter(&places);
        do {
            places.painted = QRegion();
            QCoreApplication::processEvents();
        } while (!places.painted.isEmpty());
        action();
        return eventually([&] { return places.painted.contains(place); }, std::chrono::seconds(2));
    }

    class PaintedPlaces : public QObject
    {
    public:
        bool eventFilter(QObject * /*object*/, QEvent *event) override
        {
            if (event->type() == QEvent::Paint) {
                painted += static_cast<QPaintEvent *>(event)->region();
            }
            return false;
        }

        QRegion painted;
    };

    const int usualFlashTime = QApplication::cursorFlashTime();
};

} // namespace

TEST_F(PaintingTest, CaretIsPaintedWhereItStandsWhileTheViewHasTheKeyboard)
{
    show(u"   \n "_s);
    EXPECT_TRUE(showsCaretAt(rectOf(0)));
    display.select(2, 2);
    EXPECT_FALSE(showsCaretAt(rectOf(0)));
    EXPECT_TRUE(showsCaretAt(rectOf(2)));
    display.select(3, 3);
    EXPECT_TRUE(showsCaretAt(rectOf(3)));
    display.select(4, 4);
    EXPECT_FALSE(showsCaretAt(rectOf(3)));
    EXPECT_TRUE(showsCaretAt(rectOf(4)));
    display.select(5, 5);
    EXPECT_TRUE(showsCaretAt(rectOf(5)));
    display.clearFocus();
    EXPECT_FALSE(showsCaretAt(rectOf(5)));
    display.setFocus();
    EXPECT_TRUE(showsCaretAt(rectOf(5)));
}

TEST_F(PaintingTest, CaretIsNotPaintedBeforeTheViewHasTheKeyboard)
{
    display.setText(u" "_s);
    display.setFocusPolicy(Qt::NoFocus);
    display.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&display));
    ASSERT_FALSE(display.hasFocus());
    EXPECT_FALSE(showsCaretAt(rectOf(0)));
}

TEST_F(PaintingTest, FrameIsThatOfAField)
{
    show(QString());
    const auto edge = [](QWidget &widget) { return widget.grab().toImage().copy(0, 20, 1, 1).pixelColor(0, 0); };
    QLineEdit field;
    field.setPalette(display.palette());
    field.resize(200, 40);
    EXPECT_NE(edge(display), kBase);
    display.clearFocus();
    EXPECT_EQ(edge(display), edge(field));
}

TEST_F(PaintingTest, CaretBlinksAsTheSystemSays)
{
    show(QString());
    QApplication::setCursorFlashTime(20);
    display.select(0, 0);
    EXPECT_TRUE(showsCaretAt(rectOf(0)));
    bool wentAway = false;
    bool cameBack = false;
    EXPECT_TRUE(eventually([&] {
        const bool isShown = showsCaretAt(rectOf(0));
        cameBack = cameBack || (wentAway && isShown);
        wentAway = wentAway || !isShown;
        return cameBack;
    }));
    EXPECT_TRUE(paintsAnew(QRect(rectOf(0).topLeft(), QSize(1, rectOf(0).height())), [] {}));
    display.clearFocus();
    bool isOver = false;
    QTimer::singleShot(50, [&isOver] { isOver = true; });
    ASSERT_TRUE(eventually([&] { return isOver || showsCaretAt(rectOf(0)); }));
    EXPECT_TRUE(isOver) << "it blinks without the keyboard";
}

TEST_F(PaintingTest, CaretIsSeenAtOnceWhereItHasMovedTo)
{
    show(u"ab"_s);
    QApplication::setCursorFlashTime(20);
    display.select(0, 0);
    ASSERT_TRUE(eventually([&] { return !showsCaretAt(rectOf(0)); }));

    display.select(1, 1);

    EXPECT_TRUE(showsCaretAt(rectOf(1)));
}

TEST_F(PaintingTest, CaretStaysWhereTheSystemDoesNotBlink)
{
    show(QString());
    QApplication::setCursorFlashTime(0);
    display.select(0, 0);
    EXPECT_TRUE(showsCaretAt(rectOf(0)));
    bool isOver = false;
    QTimer::singleShot(50, [&isOver] { isOver = true; });
    ASSERT_TRUE(eventually([&] { return isOver || !showsCaretAt(rectOf(0)); }));
    EXPECT_TRUE(isOver);
}

TEST_F(PaintingTest, WhatChangesIsPaintedAnew)
{
    show(u"ab\ncd"_s);
    const QRect all = display.viewport()->rect();
    EXPECT_TRUE(paintsAnew(all, [this] { display.setSections({{u"Log"_s, 3}}); }));
    EXPECT_TRUE(paintsAnew(all, [this] { display.select(0, 2); }));
    EXPECT_TRUE(paintsAnew(all, [this] { display.clearFocus(); }));
    EXPECT_TRUE(paintsAnew(all, [this] { display.setFocus(); }));
    EXPECT_TRUE(paintsAnew(all, [this] { display.setText(u"ef"_s); }));
    QFont font = display.font();
    font.setPointSizeF(2 * font.pointSizeF());
    EXPECT_TRUE(paintsAnew(all, [&] { display.setFont(font); }));
    display.setText(u"line\n"_s.repeated(100));
    EXPECT_TRUE(paintsAnew(all, [this] { display.verticalScrollBar()->setValue(50); }));
}

TEST_F(PaintingTest, EllipsisOfARowThatGoesOnIsNeverSelected)
{
    show(QString(20'000, u'x'));
    display.selectAll();
    const Row second = display.visibleRows().at(1);
    ASSERT_TRUE(second.isContinued(display.text()));
    display.horizontalScrollBar()->setValue(rectOf(second.end - 1).left() - 300);
    const QRect last = rectOf(second.end - 1);
    const QImage image = painted();
    EXPECT_EQ(image.pixelColor(last.left(), last.top()), kHighlight);
    EXPECT_EQ(image.pixelColor(last.right() + 3, last.top()), kBase);
}

TEST_F(PaintingTest, RowWhereASectionBeginsIsShadedAndRuledOff)
{
    show(u"ab\nLog:\ncd\nend"_s);
    display.setSections({{u"Log"_s, 2}, {u"End"_s, 11}});
    const QImage image = painted();
    const auto background = [&](qsizetype offset, int line) {
        const int y = rectOf(offset).top() + line;
        const QColor left = image.pixelColor(0, y);
        return image.pixelColor(image.width() - 1, y) == left ? left : QColor();
    };
    EXPECT_EQ(background(0, 1), kBase);
    EXPECT_EQ(background(3, 1), kAlternate);
    EXPECT_EQ(background(3, rectOf(3).height() - 1), kAlternate);
    EXPECT_EQ(background(8, 0), kBase);
    EXPECT_EQ(background(11, 1), kAlternate);
    // The rule is mixed of the text's colour and its background's.
    const QColor rule = background(3, 0);
    EXPECT_TRUE(rule.red() > 20 && rule.red() < 180 && rule.blue() > 20 && rule.blue() < 180);
}

TEST_F(PaintingTest, SelectionHasTheColoursOfTheFocus)
{
    show(u"WWWW"_s);
    display.select(0, 2);
    const auto background = [this] { return painted().pixelColor(rectOf(1).left() + 1, rectOf(1).bottom()); };
    EXPECT_EQ(background(), kHighlight);
    EXPECT_EQ(painted().pixelColor(rectOf(3).left() + 1, rectOf(3).bottom()), kBase);
    display.select(1, 2);
    EXPECT_EQ(painted().pixelColor(rectOf(0).left() + 1, rectOf(0).bottom()), kBase);
    EXPECT_EQ(background(), kHighlight);
    EXPECT_EQ(strongest(painted(), rectOf(1)).green(), kHighlightedText.green());
    EXPECT_EQ(strongest(painted(), rectOf(3)).green(), 0);
    display.clearFocus();
    EXPECT_EQ(background(), kUnfocusedHighlight);
}

TEST_F(PaintingTest, SelectionInAnotherRowLeavesThisOne)
{
    show(u"WW\nWW\nWW"_s);
    display.select(3, 5);
    const QImage image = painted();
    EXPECT_EQ(strongest(image, rectOf(0)).green(), 0);
    EXPECT_EQ(strongest(image, rectOf(3)).green(), kHighlightedText.green());
    EXPECT_EQ(strongest(image, rectOf(6)).green(), 0);
}

TEST_F(PaintingTest, MarksAreFainterThanTheText)
{
    show(u"W\u0001W"_s);
    const QImage image = painted();
    EXPECT_GT(strongest(image, rectOf(0)).red(), 180);
    const int mark = strongest(image, rectOf(1)).red();
    EXPECT_GT(mark, 75) << "its name is no fainter than its box";
    EXPECT_LT(mark, 140);
    display.selectAll();
    const QImage selected = painted();
    const int selectedMark = strongest(selected, rectOf(1)).red();
    EXPECT_GT(selectedMark, 100);
    EXPECT_LT(selectedMark, 230);
}

TEST_F(PaintingTest, PartOfTheViewIsPaintedAsInTheWhole)
{
    show(u"WWWW\n"_s.repeated(50));
    const QImage whole = painted();
    for (const qsizetype offset : {0, 15, 40}) {
        const QRect row(0, rectOf(offset).top(), display.viewport()->width(), rectOf(offset).height());
        EXPECT_EQ(display.viewport()->grab(row).toImage(), whole.copy(row));
    }
}

TEST_F(PaintingTest, LayoutsOfRowsThatWereInViewBringNothingBack)
{
    show(u"first\nsecond\n"_s + u"line\n"_s.repeated(100));
    const QImage before = painted();
    QTest::keyClick(&display, Qt::Key_End, Qt::ControlModifier);
    EXPECT_NE(painted(), before);
    QTest::keyClick(&display, Qt::Key_Home, Qt::ControlModifier);
    EXPECT_EQ(painted(), before);
}
