// Scrolling, selecting and copying with keyboard and mouse.
#include "desktop/reportview/TextDisplay.h"

#include "DisplayFixture.h"
#include "ViewSupport.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMenu>
#include <QMimeData>
#include <QRandomGenerator>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTimer>

#include <ctime>

using namespace Qt::StringLiterals;
using namespace reportview;

namespace {

class TextDisplayTest : public DisplayFixture
{
protected:
    void press(int key, Qt::KeyboardModifiers modifiers = {}) { QTest::keyClick(&display, Qt::Key(key), modifiers); }

    QString copied()
    {
        QGuiApplication::clipboard()->setText(u"nothing was copied"_s);
        press(Qt::Key_C, Qt::ControlModifier);
        return QGuiApplication::clipboard()->text();
    }

    QString selected() const { return display.text().mid(display.selection().begin, display.selection().size()); }

    QPoint placeOf(qsizetype offset) const
    {
        const std::optional<QRect> rect = display.characterRect(offset);
        return rect ? QPoint(rect->left() + 1, rect->center().y()) : QPoint(-1, -1);
    }

    void click(qsizetype offset, Qt::KeyboardModifiers modifiers = {})
    {
        QTest::mouseClick(display.viewport(), Qt::LeftButton, modifiers, placeOf(offset));
    }

    bool isInView(qsizetype offset) const
    {
        const std::optional<QRect> rect = display.characterRect(offset);
        return rect && display.viewport()->rect().contains(QPoint(rect->left(), rect->top()))
            && rect->bottom() <= display.viewport()->height();
    }

    void moveTo(QPoint place, Qt::MouseButton button)
    {
        QMouseEvent move(QEvent::MouseMove, place, display.viewport()->mapToGlobal(place), Qt::NoButton, button, {});
        QApplication::sendEvent(display.viewport(), &move);
    }

    /// Leaves the button pressed.
    void drag(QPoint from, QPoint to, Qt::MouseButton button = Qt::LeftButton)
    {
        QTest::mousePress(display.viewport(), button, {}, from);
        moveTo(to, button);
    }

    void turnWheel(QWidget &widget, QPoint angle)
    {
        QWheelEvent event(QPointF(5, 5), widget.mapToGlobal(QPointF(5, 5)), {}, angle, Qt::NoButton, {},
                          Qt::NoScrollPhase, false);
        QApplication::sendEvent(&widget, &event);
    }

    /// Gives the view so many rows and pixels of height.
    void resizeTo(int rows, int pixels = 0)
    {
        display.setFrameShape(QFrame::NoFrame);
        const QRect first = *display.characterRect(0);
        display.resize(640, first.top() + rows * first.height() + pixels);
        QApplication::processEvents();
    }

    int firstRow() const { return static_cast<int>(display.visibleRows().front().begin); }
    QScrollBar &bar() const { return *display.verticalScrollBar(); }
};

class HostileDisplay : public TextDisplayTest, public testing::WithParamInterface<HostileText>
{
};

/// A key, and where it takes a caret that stands in the second of three rows.
struct CaretKey {
    std::string name;
    int key;
    Qt::KeyboardModifiers modifiers;
    qsizetype caret;
};

void PrintTo(const CaretKey &given, std::ostream *out)
{
    *out << given.name;
}

class CaretKeyTest : public TextDisplayTest, public testing::WithParamInterface<CaretKey>
{
};

QString numberedLines(int count)
{
    QString text;
    for (int line = 0; line < count; ++line) {
        text += u"line %1\n"_s.arg(line);
    }
    return text;
}

} // namespace

TEST_P(HostileDisplay, AllThatIsSelectedIsCopiedToTheUnit)
{
    show(GetParam().text);
    press(Qt::Key_A, Qt::ControlModifier);
    EXPECT_EQ(copied(), GetParam().text.isEmpty() ? u"nothing was copied"_s : GetParam().text);
}

TEST_P(HostileDisplay, CharactersSelectedOneByOneMakeTheWholeText)
{
    show(GetParam().text);
    QString together;
    for (int count = 0; count < 400 && display.caret() < display.text().size(); ++count) {
        const qsizetype before = display.caret();
        display.select(before, before);
        press(display.runsFromRightToLeft(rowAt(display.text(), before)) ? Qt::Key_Left : Qt::Key_Right,
              Qt::ShiftModifier);
        ASSERT_GT(display.caret(), before);
        together += copied();
    }
    EXPECT_EQ(together, display.text().left(together.size()));
    EXPECT_TRUE(together.size() == display.text().size() || together.size() >= 400);
}

TEST_P(HostileDisplay, EveryRowInViewIsDrawnAndCaretCanStandInIt)
{
    show(GetParam().text);
    for (int step = 0; step < 60; ++step) {
        EXPECT_TRUE(isInView(display.caret())) << display.caret();
        press(Qt::Key_Down);
    }
    press(Qt::Key_End, Qt::ControlModifier);
    EXPECT_EQ(display.caret(), display.text().size());
    EXPECT_TRUE(isInView(display.caret()));
    EXPECT_EQ(bar().value(), bar().maximum());
    EXPECT_FALSE(display.grab().isNull());
    for (int step = 0; step < 400 && display.caret() > 0; ++step) {
        press(Qt::Key_Up);
    }
    press(Qt::Key_Home, Qt::ControlModifier);
    EXPECT_EQ(display.caret(), 0);
    EXPECT_EQ(firstRow(), 0);
}

TEST_P(HostileDisplay, DraggingOverAllSelectsAll)
{
    show(GetParam().text);
    display.resize(700, 600);
    QApplication::processEvents();
    if (bar().maximum() > 0) {
        bar().setValue(0);
    }
    QWidget &viewport = *display.viewport();
    const bool startsRight = display.runsFromRightToLeft(display.visibleRows().front());
    const QPoint begin(startsRight ? viewport.width() - 1 : 1, 4);
    QTest::mousePress(&viewport, Qt::LeftButton, {}, begin);
    const QPoint below(5, viewport.height() - 2);
    QMouseEvent move(QEvent::MouseMove, below, viewport.mapToGlobal(below), Qt::NoButton, Qt::LeftButton, {});
    QApplication::sendEvent(&viewport, &move);
    QTest::mouseRelease(&viewport, Qt::LeftButton, {}, below);
    const Row last = display.visibleRows().back();
    const Range selection = display.selection();
    EXPECT_EQ(selection.begin, 0);
    if (last.isLast(display.text())) {
        EXPECT_EQ(copied(), display.text().isEmpty() ? u"nothing was copied"_s : display.text().left(selection.end));
        EXPECT_GE(selection.end, last.begin);
    }
}

INSTANTIATE_TEST_SUITE_P(, HostileDisplay, testing::ValuesIn(hostileTexts()), nameOf);

TEST_F(TextDisplayTest, ArrowsStepOverWholeCharactersAndLineEnds)
{
    show(u"a\U0001F4A5e\u0301\r\nb"_s);
    std::vector<qsizetype> stops;
    for (int step = 0; step < 6; ++step) {
        press(Qt::Key_Right);
        stops.push_back(display.caret());
    }
    EXPECT_EQ(stops, (std::vector<qsizetype>{1, 3, 5, 7, 8, 8}));
    press(Qt::Key_Left);
    press(Qt::Key_Left);
    EXPECT_EQ(display.caret(), 5);
}

TEST_P(CaretKeyTest, MovesTheCaretAndSelectsWithShift)
{
    const CaretKey &given = GetParam();
    show(u"one two three\nfour five six\nseven eight nine"_s);
    for (const Qt::KeyboardModifiers shift : {Qt::KeyboardModifiers(), Qt::KeyboardModifiers(Qt::ShiftModifier)}) {
        display.select(21, 21);
        press(given.key, given.modifiers | shift);
        EXPECT_EQ(display.caret(), given.caret);
        EXPECT_EQ(display.anchor(), shift ? 21 : given.caret);
    }
}

INSTANTIATE_TEST_SUITE_P(
    , CaretKeyTest,
    testing::Values(CaretKey{"Right", Qt::Key_Right, {}, 22}, CaretKey{"Left", Qt::Key_Left, {}, 20},
                    CaretKey{"WordRight", Qt::Key_Right, Qt::ControlModifier, 24},
                    CaretKey{"WordLeft", Qt::Key_Left, Qt::ControlModifier, 19}, CaretKey{"Down", Qt::Key_Down, {}, 35},
                    CaretKey{"Up", Qt::Key_Up, {}, 7}, CaretKey{"PageDown", Qt::Key_PageDown, {}, 35},
                    CaretKey{"PageUp", Qt::Key_PageUp, {}, 7}, CaretKey{"Home", Qt::Key_Home, {}, 14},
                    CaretKey{"End", Qt::Key_End, {}, 27}, CaretKey{"TextStart", Qt::Key_Home, Qt::ControlModifier, 0},
                    CaretKey{"TextEnd", Qt::Key_End, Qt::ControlModifier, 44}),
    [](const testing::TestParamInfo<CaretKey> &given) { return given.param.name; });

TEST_F(TextDisplayTest, SelectionThatIsAskedForInsideACharacterTakesItWhole)
{
    show(u"a\U0001F4A5\r\nb"_s);
    display.select(2, 4);
    EXPECT_EQ(display.selection(), (Range{1, 5}));
    EXPECT_EQ(display.caret(), 5);
    display.select(4, 2);
    EXPECT_EQ(display.selection(), (Range{1, 5}));
    EXPECT_EQ(display.caret(), 1);
    display.select(1, 3);
    EXPECT_EQ(display.selection(), (Range{1, 3}));
    display.select(-9, -5);
    EXPECT_EQ(display.selection(), (Range{0, 0}));
    display.select(2, 99);
    EXPECT_EQ(display.selection(), (Range{1, 6}));
}

TEST_F(TextDisplayTest, CaretThatIsAskedForInsideACharacterStandsBeforeIt)
{
    show(u"a\U0001F4A5\r\nb"_s);
    display.select(4, 4);
    EXPECT_EQ(display.selection(), (Range{3, 3}));
}

TEST_F(TextDisplayTest, ControlArrowsStepOverWords)
{
    show(u"one two  three\nfour"_s);
    press(Qt::Key_Right, Qt::ControlModifier);
    EXPECT_EQ(display.caret(), 4);
    press(Qt::Key_Right, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(copied(), u"two  "_s);
    press(Qt::Key_Left, Qt::ControlModifier);
    EXPECT_EQ(display.caret(), 4);
}

TEST_F(TextDisplayTest, HomeAndEndGoToTheRowsEnds)
{
    show(u"one\r\ntwo three\r\nfour"_s);
    press(Qt::Key_Down);
    press(Qt::Key_End);
    EXPECT_EQ(display.caret(), 14);
    press(Qt::Key_Home, Qt::ShiftModifier);
    EXPECT_EQ(copied(), u"two three"_s);
}

TEST_F(TextDisplayTest, LeftGoesLeftInARightToLeftRow)
{
    show(u"\u05E9\u05DC\u05D5\u05DD"_s);
    press(Qt::Key_Left);
    EXPECT_EQ(display.caret(), 1);
    press(Qt::Key_Right);
    EXPECT_EQ(display.caret(), 0);
}

TEST_F(TextDisplayTest, UpAndDownKeepTheColumnOverAShortRow)
{
    show(u"long enough\nx\nlong enough"_s);
    for (int step = 0; step < 6; ++step) {
        press(Qt::Key_Right);
    }
    press(Qt::Key_Down);
    EXPECT_EQ(display.caret(), 13);
    press(Qt::Key_Down);
    EXPECT_EQ(display.caret(), 20);
    press(Qt::Key_Down);
    EXPECT_EQ(display.caret(), display.text().size());
}

TEST_F(TextDisplayTest, UpAndDownPassThroughTheRowsOfALongLine)
{
    // Its first row is the longest: the caret stops at the end of each below it.
    show(u"ab\n"_s + QString(60'000, u'x') + u"\nlast"_s);
    press(Qt::Key_Down);
    press(Qt::Key_End);
    std::vector<qsizetype> down = {display.caret()};
    while (display.caret() < display.text().size() && down.size() < 100) {
        press(Qt::Key_Down);
        ASSERT_GT(display.caret(), down.back());
        down.push_back(display.caret());
    }
    EXPECT_EQ(down.size(), 15U);
    while (display.caret() > 0) {
        const qsizetype before = display.caret();
        press(Qt::Key_Up);
        ASSERT_LT(display.caret(), before);
    }
}

TEST_F(TextDisplayTest, PageDownAndUpMoveCaretAndViewByAPage)
{
    show(numberedLines(500));
    press(Qt::Key_PageDown);
    const qsizetype caret = display.caret();
    const int first = firstRow();
    EXPECT_GT(first, 0);
    EXPECT_EQ(caret, first);
    press(Qt::Key_PageDown, Qt::ShiftModifier);
    EXPECT_EQ(display.anchor(), caret);
    EXPECT_GT(display.caret(), caret);
    press(Qt::Key_PageUp);
    press(Qt::Key_PageUp);
    EXPECT_EQ(display.caret(), 0);
    EXPECT_EQ(firstRow(), 0);
}

TEST_F(TextDisplayTest, CaretStaysInViewWhereverItGoes)
{
    show(numberedLines(300) + u"wide "_s.repeated(200) + u"\n"_s + numberedLines(300) + QString(40'000, u'x'));
    QRandomGenerator random(5);
    const std::vector<int> keys = {Qt::Key_Up,     Qt::Key_Down,     Qt::Key_Left, Qt::Key_Right,
                                   Qt::Key_PageUp, Qt::Key_PageDown, Qt::Key_Home, Qt::Key_End};
    for (int step = 0; step < 400; ++step) {
        const bool far = random.bounded(5) == 0;
        press(keys[random.bounded(static_cast<quint32>(keys.size()))], far ? Qt::ControlModifier : Qt::NoModifier);
        ASSERT_TRUE(isInView(display.caret())) << step << " at " << display.caret();
    }
}

TEST_F(TextDisplayTest, ControlInsertCopies)
{
    show(u"abc"_s);
    display.select(1, 2);
    press(Qt::Key_Insert, Qt::ControlModifier);
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"b"_s);
}

TEST_F(TextDisplayTest, CopyWithoutASelectionLeavesTheClipboard)
{
    show(u"abc"_s);
    EXPECT_EQ(copied(), u"nothing was copied"_s);
}

TEST_F(TextDisplayTest, CopySharesTheTextUntilItIsPasted)
{
    show(numberedLines(1'000));
    press(Qt::Key_A, Qt::ControlModifier);
    press(Qt::Key_C, Qt::ControlModifier);
    EXPECT_EQ(QGuiApplication::clipboard()->mimeData()->formats(), QStringList{u"text/plain"_s});
    EXPECT_EQ(QGuiApplication::clipboard()->text().constData(), display.text().constData());
}

TEST_F(TextDisplayTest, CopyOutlivesTheText)
{
    show(u"before"_s);
    press(Qt::Key_A, Qt::ControlModifier);
    press(Qt::Key_C, Qt::ControlModifier);
    display.setText(u"after"_s);
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"before"_s);
}

TEST_F(TextDisplayTest, TypingChangesNothing)
{
    show(u"abc"_s);
    QTest::keyClicks(&display, u"xyz"_s);
    press(Qt::Key_Delete);
    press(Qt::Key_Backspace);
    press(Qt::Key_V, Qt::ControlModifier);
    EXPECT_EQ(display.text(), u"abc"_s);
}

TEST_F(TextDisplayTest, ClickPutsTheCaretAndShiftClickSelects)
{
    show(u"one two\nthree four"_s);
    click(4);
    EXPECT_EQ(display.caret(), 4);
    click(14, Qt::ShiftModifier);
    EXPECT_EQ(copied(), u"two\nthree "_s);
    click(2);
    EXPECT_TRUE(display.selection().isEmpty());
}

TEST_F(TextDisplayTest, DoubleClickSelectsAWordAndATripleClickTheLine)
{
    show(u"one two\r\nthree"_s);
    const QPoint place = placeOf(5);
    QTest::mouseClick(display.viewport(), Qt::LeftButton, {}, place);
    QTest::mouseDClick(display.viewport(), Qt::LeftButton, {}, place);
    EXPECT_EQ(selected(), u"two"_s);
    QTest::mouseClick(display.viewport(), Qt::LeftButton, {}, place);
    EXPECT_EQ(selected(), u"one two\r\n"_s);
}

TEST_F(TextDisplayTest, TripleClickSelectsALineOfManyRowsWhole)
{
    show(u"a\n"_s + QString(30'000, u'x') + u"\nb"_s);
    const QPoint place = placeOf(10);
    QTest::mouseDClick(display.viewport(), Qt::LeftButton, {}, place);
    QTest::mouseClick(display.viewport(), Qt::LeftButton, {}, place);
    EXPECT_EQ(display.selection(), (Range{2, 30'003}));
}

TEST_F(TextDisplayTest, DraggingAfterADoubleClickSelectsWords)
{
    show(u"one two three four"_s);
    QWidget &viewport = *display.viewport();
    QTest::mouseDClick(&viewport, Qt::LeftButton, {}, placeOf(9));
    const auto dragTo = [&viewport](QPoint place) {
        QMouseEvent move(QEvent::MouseMove, place, viewport.mapToGlobal(place), Qt::NoButton, Qt::LeftButton, {});
        QApplication::sendEvent(&viewport, &move);
    };
    QTest::mousePress(&viewport, Qt::LeftButton, {}, placeOf(0) + QPoint(500, 0));
    QTest::mouseRelease(&viewport, Qt::LeftButton, {}, placeOf(0) + QPoint(500, 0));
    QMouseEvent twice(QEvent::MouseButtonDblClick, placeOf(9), viewport.mapToGlobal(placeOf(9)), Qt::LeftButton,
                      Qt::LeftButton, {});
    QApplication::sendEvent(&viewport, &twice);
    dragTo(placeOf(10));
    EXPECT_EQ(selected(), u"three"_s);
    EXPECT_EQ(display.caret(), 13) << "behind the word until it is left to the other side";
    dragTo(placeOf(15));
    EXPECT_EQ(selected(), u"three four"_s);
    dragTo(placeOf(5));
    EXPECT_EQ(selected(), u"two three"_s);
    QTest::mouseRelease(&viewport, Qt::LeftButton, {}, placeOf(5));
}

TEST_F(TextDisplayTest, DraggingBelowTheViewScrollsOnAndSelects)
{
    show(numberedLines(2'000));
    QWidget &viewport = *display.viewport();
    QTest::mousePress(&viewport, Qt::LeftButton, {}, placeOf(0));
    const QPoint below(5, viewport.height() + 40);
    QMouseEvent move(QEvent::MouseMove, below, viewport.mapToGlobal(below), Qt::NoButton, Qt::LeftButton, {});
    QApplication::sendEvent(&viewport, &move);
    const qsizetype first = display.caret();
    EXPECT_TRUE(eventually([&] { return display.caret() > first + 500; }));
    EXPECT_EQ(display.anchor(), 0);
    QTest::mouseRelease(&viewport, Qt::LeftButton, {}, below);
    const qsizetype last = display.caret();
    // Longer than it took from one step to the next.
    bool isOver = false;
    QTimer::singleShot(200, [&isOver] { isOver = true; });
    ASSERT_TRUE(eventually([&isOver] { return isOver; }));
    EXPECT_EQ(display.caret(), last);
}

TEST_F(TextDisplayTest, DraggingAboveTheViewScrollsBackAndSelects)
{
    show(numberedLines(2'000));
    press(Qt::Key_End, Qt::ControlModifier);
    const int first = firstRow();
    drag(placeOf(display.text().size() - 1), QPoint(5, -40));
    EXPECT_LT(firstRow(), first);
    EXPECT_TRUE(eventually([&] { return display.caret() < first - 500; }));
    EXPECT_EQ(display.anchor(), display.text().size() - 1);
}

TEST_F(TextDisplayTest, DraggingBesideTheViewScrollsSideways)
{
    show(u"wide "_s.repeated(200));
    QScrollBar &sideways = *display.horizontalScrollBar();
    drag(placeOf(2), QPoint(display.viewport()->width() + 50, placeOf(2).y()));
    EXPECT_EQ(sideways.value(), 51);
    EXPECT_GT(display.caret(), 20);
    const int right = sideways.value();
    drag(QPoint(30, placeOf(display.caret()).y()), QPoint(-20, placeOf(display.caret()).y()));
    EXPECT_EQ(sideways.value(), right - 20);
}

TEST_F(TextDisplayTest, ThirdClickCountsOnlyAtTheSamePlaceAndOnce)
{
    show(u"one two three four five six seven"_s);
    QWidget &viewport = *display.viewport();
    QTest::mouseDClick(&viewport, Qt::LeftButton, {}, placeOf(5));
    QTest::mouseClick(&viewport, Qt::LeftButton, {}, placeOf(25));
    EXPECT_TRUE(display.selection().isEmpty()) << "elsewhere it is a first one";
    QTest::mouseDClick(&viewport, Qt::LeftButton, {}, placeOf(5));
    QTest::mouseClick(&viewport, Qt::LeftButton, {}, placeOf(5));
    EXPECT_EQ(display.selection().size(), display.text().size());
    QTest::mouseClick(&viewport, Qt::LeftButton, {}, placeOf(5));
    EXPECT_TRUE(display.selection().isEmpty()) << "a fourth one is a first one";
}

TEST_F(TextDisplayTest, ThirdClickThatComesLateIsAFirstOne)
{
    show(u"one two"_s);
    const int usual = QApplication::doubleClickInterval();
    QApplication::setDoubleClickInterval(20);
    QTest::mouseDClick(display.viewport(), Qt::LeftButton, {}, placeOf(5));
    QApplication::setDoubleClickInterval(usual);
    bool isLate = false;
    QTimer::singleShot(60, [&isLate] { isLate = true; });
    ASSERT_TRUE(eventually([&isLate] { return isLate; }));
    QTest::mouseClick(display.viewport(), Qt::LeftButton, {}, placeOf(5));
    EXPECT_TRUE(display.selection().isEmpty());
}

TEST_F(TextDisplayTest, DraggingAfterATripleClickSelectsLines)
{
    show(u"one\ntwo\nthree\nfour"_s);
    QTest::mouseDClick(display.viewport(), Qt::LeftButton, {}, placeOf(5));
    drag(placeOf(5), placeOf(9));
    EXPECT_EQ(selected(), u"two\nthree\n"_s);
    moveTo(placeOf(1), Qt::LeftButton);
    EXPECT_EQ(selected(), u"one\ntwo\n"_s);
    EXPECT_EQ(display.caret(), 0) << "the caret is where the mouse is";
}

TEST_F(TextDisplayTest, ReleasedButtonEndsTheSelection)
{
    show(u"one two three"_s);
    click(4);
    moveTo(placeOf(9), Qt::LeftButton);
    EXPECT_TRUE(display.selection().isEmpty());
    QTest::mousePress(display.viewport(), Qt::LeftButton, {}, placeOf(4));
    moveTo(placeOf(9), Qt::NoButton);
    EXPECT_TRUE(display.selection().isEmpty()) << "its release was somewhere else";
}

TEST_F(TextDisplayTest, DraggingBackIntoTheViewStopsTheScrolling)
{
    show(numberedLines(2'000));
    drag(placeOf(0), QPoint(5, display.viewport()->height() + 5));
    const int first = firstRow();
    EXPECT_GT(first, 0);
    moveTo(QPoint(5, 50), Qt::LeftButton);
    const qsizetype caret = display.caret();
    bool isOver = false;
    QTimer::singleShot(100, [&isOver] { isOver = true; });
    ASSERT_TRUE(eventually([&isOver] { return isOver; }));
    EXPECT_EQ(display.caret(), caret);
    EXPECT_EQ(firstRow(), first);
}

TEST_F(TextDisplayTest, TheFurtherOutsideTheFasterItScrolls)
{
    show(numberedLines(2'000));
    const int height = display.characterRect(0)->height();
    const int below = display.viewport()->height();
    drag(placeOf(0), QPoint(5, below));
    EXPECT_EQ(firstRow(), 7) << "one row";
    moveTo(QPoint(5, below + 3 * height), Qt::LeftButton);
    EXPECT_EQ(firstRow(), 5 * 7) << "four more";
    moveTo(QPoint(5, below - 1), Qt::LeftButton);
    moveTo(QPoint(5, 0), Qt::LeftButton);
    EXPECT_EQ(firstRow(), 5 * 7) << "none within the view";
    moveTo(QPoint(5, -3 * height), Qt::LeftButton);
    EXPECT_EQ(firstRow(), 7) << "four back";
    moveTo(QPoint(5, -1), Qt::LeftButton);
    EXPECT_EQ(firstRow(), 0);
    EXPECT_EQ(display.caret(), 0);
}

TEST_F(TextDisplayTest, NewTextEndsTheScrollingOfADrag)
{
    show(numberedLines(2'000));
    drag(placeOf(0), QPoint(5, display.viewport()->height() + 40));
    ASSERT_GT(firstRow(), 0);
    display.setText(numberedLines(1'000));
    bool isOver = false;
    QTimer::singleShot(100, [&isOver] { isOver = true; });
    ASSERT_TRUE(eventually([&isOver] { return isOver; }));
    EXPECT_EQ(firstRow(), 0);
    EXPECT_EQ(display.caret(), 0);
}

TEST_F(TextDisplayTest, ClickBelowTheTextPutsTheCaretAtItsEnd)
{
    show(u"one\ntwo"_s);
    QTest::mouseClick(display.viewport(), Qt::LeftButton, {}, QPoint(placeOf(0).x(), 200));
    EXPECT_EQ(display.caret(), 7);
    for (const int y : {0, display.characterRect(0)->bottom()}) {
        QTest::mouseClick(display.viewport(), Qt::LeftButton, {}, QPoint(placeOf(1).x(), y));
        EXPECT_EQ(display.caret(), 1) << y;
    }
    QTest::mouseClick(display.viewport(), Qt::LeftButton, {}, QPoint(placeOf(1).x(), placeOf(4).y()));
    EXPECT_EQ(display.caret(), 5);
    QTest::mouseClick(display.viewport(), Qt::LeftButton, {},
                      QPoint(placeOf(1).x(), display.characterRect(4)->bottom() + 2));
    EXPECT_EQ(display.caret(), 7) << "also just below it";
}

TEST_F(TextDisplayTest, ClickBehindARowThatGoesOnPutsTheCaretBeforeItsLastCharacter)
{
    show(QString(10'000, u'x'));
    const Row first = display.visibleRows().front();
    display.horizontalScrollBar()->setValue(display.horizontalScrollBar()->maximum());
    click(first.end - 3);
    EXPECT_EQ(display.caret(), first.end - 3);
    QTest::mouseClick(display.viewport(), Qt::LeftButton, {}, placeOf(first.end - 1) + QPoint(30, 0));
    EXPECT_EQ(display.caret(), first.end - 1);
}

TEST_F(TextDisplayTest, EmptyFirstRowIsReachedByCaretAndView)
{
    show(u"\nabc\ndef"_s);
    display.select(7, 7);
    press(Qt::Key_PageUp);
    EXPECT_EQ(display.caret(), 0);
    display.setText(u"\n"_s + numberedLines(500));
    bar().triggerAction(QAbstractSlider::SliderSingleStepAdd);
    EXPECT_EQ(firstRow(), 1);
    bar().triggerAction(QAbstractSlider::SliderSingleStepSub);
    EXPECT_EQ(firstRow(), 0);
}

TEST_F(TextDisplayTest, WideRowThatIsScrolledToCanBeScrolledSideways)
{
    show(numberedLines(500) + u"wide "_s.repeated(200));
    ASSERT_EQ(display.horizontalScrollBar()->maximum(), 0);
    bar().setValue(bar().maximum());
    EXPECT_GT(display.horizontalScrollBar()->maximum(), 0);
    display.setText(u"wide "_s.repeated(200));
    press(Qt::Key_End);
    ASSERT_GT(display.horizontalScrollBar()->value(), 0);
    display.setText(u"other "_s.repeated(200));
    EXPECT_EQ(display.horizontalScrollBar()->value(), 0);
}

TEST_F(TextDisplayTest, TextThatIsSetOutOfViewCanBeScrolledWhenItIsShown)
{
    show(u"short"_s);
    display.hide();
    display.setText(numberedLines(500));
    display.show();
    EXPECT_GT(bar().maximum(), 0);
}

TEST_F(TextDisplayTest, StepsWithinTheViewScrollNothing)
{
    show(numberedLines(500));
    bar().setValue(700);
    const int first = firstRow();
    display.select(first + 30, first + 30);
    for (const int key : {Qt::Key_Right, Qt::Key_Left, Qt::Key_Down, Qt::Key_Up, Qt::Key_Home, Qt::Key_End}) {
        press(key);
        EXPECT_EQ(firstRow(), first);
    }
}

TEST_F(TextDisplayTest, RowOfMarksCanBeScrolledToItsEnd)
{
    const QString text(1'000, QChar(1));
    show(text);
    QScrollBar &sideways = *display.horizontalScrollBar();
    for (int count = 0; count < 30; ++count) {
        sideways.setValue(sideways.maximum());
    }
    const int range = sideways.maximum();
    press(Qt::Key_End);
    EXPECT_EQ(sideways.maximum(), range);
}

TEST_F(TextDisplayTest, CaretThatGoesAlongAWideRowKeepsToTheMargins)
{
    show(u"wide "_s.repeated(100));
    const int margin = display.characterRect(0)->left();
    for (qsizetype offset = 0; offset < 500; ++offset) {
        display.select(offset, offset);
        ASSERT_LE(display.characterRect(offset)->left(), display.viewport()->width() - margin) << offset;
        ASSERT_GE(display.characterRect(offset)->left(), margin - 1) << offset;
    }
}

TEST_F(TextDisplayTest, ViewThatIsShownAgainStandsWhereItStood)
{
    show(numberedLines(500));
    bar().setValue(700);
    const int first = firstRow();
    display.hide();
    display.show();
    EXPECT_EQ(firstRow(), first);
}

TEST_F(TextDisplayTest, ColumnIsKeptOverPages)
{
    show(u"long enough\nx\nlong enough\nx\nlong enough"_s);
    resizeTo(2);
    display.select(6, 6);
    press(Qt::Key_PageDown);
    press(Qt::Key_PageDown);
    EXPECT_EQ(display.caret(), 20);
    press(Qt::Key_PageUp);
    press(Qt::Key_PageUp);
    EXPECT_EQ(display.caret(), 6);
}

TEST_F(TextDisplayTest, AnotherButtonsReleaseEndsNoDrag)
{
    show(u"one two three"_s);
    QTest::mousePress(display.viewport(), Qt::LeftButton, {}, placeOf(4));
    QTest::mouseRelease(display.viewport(), Qt::RightButton, {}, placeOf(4));
    moveTo(placeOf(9), Qt::LeftButton);
    EXPECT_EQ(display.selection(), (Range{4, 9}));
}

TEST_F(TextDisplayTest, ViewWithoutATextIsAnEmptyOne)
{
    display.show();
    EXPECT_EQ(display.caret(), 0);
    EXPECT_EQ(display.anchor(), 0);
    EXPECT_EQ(firstRow(), 0);
    moveTo(QPoint(50, 50), Qt::LeftButton);
    press(Qt::Key_Right, Qt::ShiftModifier);
    EXPECT_TRUE(display.selection().isEmpty());
    EXPECT_EQ(bar().maximum(), 0);
    EXPECT_EQ(display.horizontalScrollBar()->maximum(), 0);
}

TEST_F(TextDisplayTest, PointerIsThatOfText)
{
    EXPECT_EQ(display.viewport()->cursor().shape(), Qt::IBeamCursor);
}

TEST_F(TextDisplayTest, UpAndDownAtTheEndsGoToTheEndsOfTheText)
{
    show(u"one two\nthree"_s);
    display.select(4, 4);
    press(Qt::Key_Up);
    EXPECT_EQ(display.caret(), 0);
    display.select(9, 9);
    press(Qt::Key_Down);
    EXPECT_EQ(display.caret(), 13);
}

TEST_F(TextDisplayTest, ColumnIsKeptUntilTheCaretMovesSideways)
{
    const QString text = u"long enough\nx\nlong enough\nx\nlong enough"_s;
    const auto columnBelow = [this](auto &&move) {
        display.select(6, 6);
        press(Qt::Key_Down);
        move();
        press(Qt::Key_Down);
        return display.caret();
    };
    show(text);
    EXPECT_EQ(columnBelow([] {}), 20);
    EXPECT_EQ(columnBelow([this] { press(Qt::Key_Left); }), 14);
    EXPECT_EQ(columnBelow([this] { display.select(13, 13); }), 15);
    EXPECT_EQ(columnBelow([this] { click(12); }), 14);
    EXPECT_EQ(columnBelow([this, &text] { display.setText(text); }), 12);
    display.setSections({{u"Log"_s, 14}});
    EXPECT_EQ(columnBelow([this] { display.goToNextSection(); }), 26);
    columnBelow([] {});
    display.selectAll();
    press(Qt::Key_Up);
    press(Qt::Key_Up);
    EXPECT_EQ(display.caret(), 25) << "from the end of the text";
}

TEST_F(TextDisplayTest, ColumnIsKeptWhereTheViewIsScrolledSideways)
{
    show((u"wide "_s.repeated(100) + u"\n"_s).repeated(3));
    display.select(300, 300);
    ASSERT_GT(display.horizontalScrollBar()->value(), 0);
    press(Qt::Key_Down);
    EXPECT_EQ(display.caret(), 801);
    press(Qt::Key_Down);
    EXPECT_EQ(display.caret(), 1'302);
    press(Qt::Key_Up);
    EXPECT_EQ(display.caret(), 801);
}

TEST_F(TextDisplayTest, PlaceComesIntoViewWithSomeOfWhatStandsBesideIt)
{
    show(u"wide "_s.repeated(200));
    const int width = display.viewport()->width();
    display.bringIntoView(500);
    EXPECT_LT(display.characterRect(500)->left(), width * 4 / 5);
    EXPECT_GT(display.characterRect(500)->left(), width / 2);
    display.bringIntoView(400);
    EXPECT_GT(display.characterRect(400)->left(), width / 5);
    EXPECT_LT(display.characterRect(400)->left(), width / 2);
    const int there = display.horizontalScrollBar()->value();
    display.bringIntoView(410);
    EXPECT_EQ(display.horizontalScrollBar()->value(), there) << "what is in view moves nothing";
}

TEST_F(TextDisplayTest, RowsComeIntoViewAtTheNearerEnd)
{
    show(numberedLines(500));
    resizeTo(5);
    display.bringIntoView(7 * 4);
    EXPECT_EQ(firstRow(), 0) << "the fifth row is in view";
    display.bringIntoView(7 * 5);
    EXPECT_EQ(firstRow(), 7) << "the sixth becomes the last one";
    display.bringIntoView(7 * 3);
    EXPECT_EQ(firstRow(), 7);
    display.bringIntoView(0);
    EXPECT_EQ(firstRow(), 0);
}

TEST_F(TextDisplayTest, SectionIsGoneToAtTheTopAndAtTheLeft)
{
    show(numberedLines(100) + u"Log:\n"_s + u"wide "_s.repeated(200) + u'\n' + numberedLines(100));
    const qsizetype log = numberedLines(100).size();
    display.setSections({{u"Log"_s, log}});
    display.select(log + 700, log + 700);
    ASSERT_GT(display.horizontalScrollBar()->value(), 0);
    display.goToPreviousSection();
    EXPECT_EQ(display.horizontalScrollBar()->value(), 0);
    EXPECT_EQ(firstRow(), log);
    EXPECT_EQ(display.selection(), (Range{log, log}));
}

TEST_F(TextDisplayTest, MenuOfTheKeyboardOpensAtTheCaret)
{
    show(u"abc\nlog\nend"_s);
    display.select(4, 6);
    QPoint place;
    QTimer::singleShot(0, [&place] {
        QWidget *menu = QApplication::activePopupWidget();
        place = menu->pos();
        menu->close();
    });
    QContextMenuEvent event(QContextMenuEvent::Keyboard, QPoint(5, 5), display.viewport()->mapToGlobal(QPoint(5, 5)));
    QApplication::sendEvent(display.viewport(), &event);
    const QPoint below = display.viewport()->mapToGlobal(display.characterRect(6)->bottomLeft());
    EXPECT_NEAR(place.x(), below.x(), 2);
    EXPECT_NEAR(place.y(), below.y(), 2);
}

TEST_F(TextDisplayTest, MenuOfAnEmptyTextOffersNothing)
{
    show(QString());
    QList<bool> enabled;
    QStringList keys;
    QTimer::singleShot(0, [&] {
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        for (const QAction *action : menu->actions()) {
            if (!action->isSeparator()) {
                enabled += action->isEnabled();
                keys += action->text().section(u'\t', 1);
            }
        }
        menu->close();
    });
    QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(5, 5), display.viewport()->mapToGlobal(QPoint(5, 5)));
    QApplication::sendEvent(display.viewport(), &event);
    EXPECT_EQ(enabled, QList<bool>({false, false, false}));
    EXPECT_EQ(keys, (QStringList{u"Ctrl+C"_s, u"Ctrl+A"_s, u"Ctrl+F"_s}));
}

TEST_F(TextDisplayTest, WidestRowIsForgottenWithItsText)
{
    show(u"wide "_s.repeated(200));
    ASSERT_GT(display.horizontalScrollBar()->maximum(), 0);
    display.setText(u"short"_s);
    EXPECT_EQ(display.horizontalScrollBar()->maximum(), 0);
}

TEST_F(TextDisplayTest, SmallerFontNeedsLessRoomSideways)
{
    show(u"wide "_s.repeated(200));
    const int before = display.horizontalScrollBar()->maximum();
    QFont font = display.font();
    font.setPointSizeF(font.pointSizeF() / 2);
    display.setFont(font);
    EXPECT_LT(display.horizontalScrollBar()->maximum(), before * 3 / 4);
}

TEST_F(TextDisplayTest, WideRowThatRunsFromRightToLeftIsShownFromItsStart)
{
    show(u"\u05E9\u05DC\u05D5\u05DD "_s.repeated(100));
    EXPECT_TRUE(isInView(0));
    EXPECT_EQ(display.horizontalScrollBar()->value(), display.horizontalScrollBar()->maximum());
    display.setText(u"\u05D0\u05DC\u05D5\u05DD "_s.repeated(100));
    EXPECT_TRUE(isInView(0));
}

TEST_F(TextDisplayTest, ButtonsOtherThanTheLeftSelectNothing)
{
    show(u"one two three"_s);
    for (const Qt::MouseButton button : {Qt::RightButton, Qt::MiddleButton}) {
        QTest::mouseDClick(display.viewport(), button, {}, placeOf(5));
        drag(placeOf(5), placeOf(9), button);
        EXPECT_TRUE(display.selection().isEmpty());
        EXPECT_EQ(display.caret(), 0);
    }
}

TEST_F(TextDisplayTest, NewTextEndsTheDragging)
{
    show(u"one two three"_s);
    QTest::mousePress(display.viewport(), Qt::LeftButton, {}, placeOf(2));
    display.setText(u"four five six"_s);
    moveTo(placeOf(9), Qt::LeftButton);
    EXPECT_TRUE(display.selection().isEmpty());
    EXPECT_EQ(display.caret(), 0);
}

TEST_F(TextDisplayTest, WheelTurnedSidewaysScrollsSideways)
{
    show(numberedLines(500) + u"wide "_s.repeated(200));
    press(Qt::Key_End, Qt::ControlModifier);
    press(Qt::Key_Home);
    const int first = firstRow();
    QScrollBar &sideways = *display.horizontalScrollBar();
    const int before = sideways.value();
    turnWheel(*display.viewport(), {-240, 20});
    EXPECT_GT(sideways.value(), before);
    EXPECT_EQ(firstRow(), first);
}

TEST_F(TextDisplayTest, WheelMovesAsManyRowsAsTheSystemSays)
{
    show(numberedLines(500));
    const qsizetype threeLines = u"line 0\nline 1\nline 2\n"_s.size();
    ASSERT_EQ(QApplication::wheelScrollLines(), 3);
    turnWheel(*display.viewport(), {0, -120});
    EXPECT_EQ(firstRow(), threeLines);
    turnWheel(bar(), {0, -120});
    EXPECT_EQ(firstRow(), 2 * threeLines);
    EXPECT_EQ(bar().value(), 2 * threeLines) << "the bar makes no step of its own";
    turnWheel(bar(), {0, 240});
    EXPECT_EQ(firstRow(), 0);
    // Half a row is no row yet.
    turnWheel(*display.viewport(), {0, -20});
    EXPECT_EQ(firstRow(), 0);
    turnWheel(*display.viewport(), {0, -20});
    EXPECT_EQ(firstRow(), u"line 0\n"_s.size());
}

TEST_F(TextDisplayTest, WheelsNotchIsCountedWholeHoweverFineItTurns)
{
    show(numberedLines(500));
    const int usual = QApplication::wheelScrollLines();
    QApplication::setWheelScrollLines(1);
    turnWheel(*display.viewport(), {0, -119});
    EXPECT_EQ(firstRow(), 0);
    turnWheel(*display.viewport(), {0, -1});
    EXPECT_EQ(firstRow(), 7);
    QApplication::setWheelScrollLines(usual);
}

TEST_F(TextDisplayTest, WheelTurnedBothWaysAlikeScrollsRows)
{
    show(numberedLines(500) + u"wide "_s.repeated(200));
    turnWheel(*display.viewport(), {-120, -120});
    EXPECT_GT(firstRow(), 0);
    EXPECT_EQ(display.horizontalScrollBar()->value(), 0);
}

TEST_F(TextDisplayTest, RowsThatFitExactlyAreAllInView)
{
    show(numberedLines(500));
    for (const int pixels : {-1, 0, 1}) {
        resizeTo(5, pixels);
        EXPECT_EQ(display.visibleRows().size(), pixels > 0 ? 6U : 5U) << pixels;
        press(Qt::Key_End, Qt::ControlModifier);
        const int whole = pixels < 0 ? 4 : 5;
        const qsizetype last = display.text().size();
        EXPECT_EQ(firstRow(), display.text().lastIndexOf(u"line %1\n"_s.arg(501 - whole))) << pixels;
        EXPECT_TRUE(isInView(last));
        press(Qt::Key_PageUp);
        press(Qt::Key_Home, Qt::ControlModifier);
        press(Qt::Key_PageDown);
        EXPECT_EQ(firstRow(), 7 * (whole - 1)) << "one row of the page before stays in view";
        bar().setValue(0);
        bar().triggerAction(QAbstractSlider::SliderPageStepAdd);
        EXPECT_EQ(firstRow(), 7 * (whole - 1));
        press(Qt::Key_Home, Qt::ControlModifier);
    }
}

TEST_F(TextDisplayTest, ViewLowerThanARowIsPagedByRows)
{
    show(numberedLines(500));
    resizeTo(0, 4);
    EXPECT_EQ(display.visibleRows().size(), 1U);
    press(Qt::Key_PageDown);
    EXPECT_EQ(display.caret(), 7);
    EXPECT_EQ(firstRow(), 7);
    press(Qt::Key_PageUp);
    EXPECT_EQ(display.caret(), 0);
    bar().triggerAction(QAbstractSlider::SliderPageStepAdd);
    EXPECT_EQ(firstRow(), 7);
    bar().triggerAction(QAbstractSlider::SliderPageStepSub);
    EXPECT_EQ(firstRow(), 0);
    press(Qt::Key_End, Qt::ControlModifier);
    EXPECT_EQ(firstRow(), display.text().size());
}

TEST_F(TextDisplayTest, CharactersFollowEachOtherInRowsAndCells)
{
    show(u"abc\ndef"_s);
    const QRect first = *display.characterRect(0);
    EXPECT_GT(first.width(), 4);
    EXPECT_NEAR(display.characterRect(2)->left(), first.left() + 2 * first.width(), 2);
    EXPECT_EQ(display.characterRect(4)->topLeft(), first.bottomLeft() + QPoint(0, 1));
    // A line end takes no room behind its row, nor does the end of the text.
    EXPECT_EQ(display.characterRect(3)->width(), 0);
    EXPECT_NEAR(display.characterRect(3)->left(), first.left() + 3 * first.width(), 3);
    EXPECT_EQ(display.characterRect(7)->width(), 0);
    EXPECT_EQ(display.characterRect(7)->top(), display.characterRect(4)->top());
    EXPECT_EQ(display.characterRect(8), std::nullopt);
}

TEST_F(TextDisplayTest, PlacesOutsideTheRowsAreThoseOfTheNearestOne)
{
    show(u"abc\ndef"_s);
    const QPoint second = display.characterRect(1)->center();
    EXPECT_EQ(display.characterAt(second), 1);
    EXPECT_EQ(display.characterAt({second.x(), -50}), 1);
    EXPECT_EQ(display.characterAt({second.x(), 250}), 5);
    EXPECT_EQ(display.characterAt({second.x(), display.characterRect(4)->top()}), 5);
    EXPECT_EQ(display.characterAt({second.x(), display.characterRect(4)->top() - 1}), 1);
    EXPECT_EQ(display.characterAt({-50, second.y()}), 0);
    EXPECT_EQ(display.characterAt({500, second.y()}), 2);
}

TEST_F(TextDisplayTest, RowsOfBothDirectionsKeepTheSameDistanceToTheirSides)
{
    show(u"\u05E9\u05DC\nabc"_s);
    const int atTheLeft = display.characterRect(3)->left();
    EXPECT_GT(atTheLeft, 0);
    EXPECT_NEAR(display.viewport()->width() - 1 - display.characterRect(0)->right(), atTheLeft, 1);
}

TEST_F(TextDisplayTest, ThumbsAreAsLongAsWhatIsInView)
{
    show(numberedLines(500) + u"wide "_s.repeated(200));
    EXPECT_EQ(bar().maximum() + bar().pageStep(), display.text().size());
    press(Qt::Key_End, Qt::ControlModifier);
    const QScrollBar &sideways = *display.horizontalScrollBar();
    const QRect first = *display.characterRect(display.visibleRows().front().begin);
    const int margin = first.left() + sideways.value();
    EXPECT_EQ(sideways.pageStep(), display.viewport()->width() - 2 * margin);
    EXPECT_EQ(sideways.value(), sideways.maximum());
    // The caret behind the last character has its room.
    const int right = display.characterRect(display.text().size())->left();
    EXPECT_LE(right, display.viewport()->width() - margin - 2);
    EXPECT_GE(right, display.viewport()->width() - margin - 2 * first.width());
}

TEST_F(TextDisplayTest, StepSidewaysIsSeveralCharacters)
{
    show(u"wide "_s.repeated(200));
    display.horizontalScrollBar()->triggerAction(QAbstractSlider::SliderSingleStepAdd);
    EXPECT_GE(display.horizontalScrollBar()->value(), 2 * display.characterRect(0)->width());
}

TEST_F(TextDisplayTest, ScrollBarsStepsAreRowsAndPages)
{
    show(numberedLines(500));
    bar().triggerAction(QAbstractSlider::SliderSingleStepAdd);
    EXPECT_EQ(firstRow(), 7);
    bar().triggerAction(QAbstractSlider::SliderSingleStepAdd);
    bar().triggerAction(QAbstractSlider::SliderSingleStepAdd);
    bar().triggerAction(QAbstractSlider::SliderSingleStepSub);
    EXPECT_EQ(firstRow(), 14);
    bar().setValue(0);
    bar().triggerAction(QAbstractSlider::SliderPageStepAdd);
    const auto page = static_cast<int>(display.visibleRows().size());
    const int second = firstRow();
    EXPECT_GT(second, (page - 4) * 7);
    EXPECT_EQ(bar().value(), second);
    bar().triggerAction(QAbstractSlider::SliderPageStepAdd);
    bar().triggerAction(QAbstractSlider::SliderPageStepSub);
    EXPECT_EQ(firstRow(), second);
    bar().triggerAction(QAbstractSlider::SliderPageStepSub);
    EXPECT_EQ(firstRow(), 0);
    EXPECT_EQ(bar().value(), 0);
    bar().triggerAction(QAbstractSlider::SliderToMaximum);
    EXPECT_TRUE(display.visibleRows().back().isLast(display.text()));
}

TEST_F(TextDisplayTest, ScrollBarAnywhereShowsWholeRows)
{
    const QString text = numberedLines(500);
    show(text);
    for (int value = 0; value <= bar().maximum(); value += 13) {
        bar().setValue(value);
        const qsizetype begin = display.visibleRows().front().begin;
        ASSERT_TRUE(begin == 0 || text[begin - 1] == u'\n');
        ASSERT_TRUE(begin <= value && value - begin < 10);
    }
}

TEST_F(TextDisplayTest, ScrollRangeIsFinalWhenTheViewIsShown)
{
    show(QString(200, u'y') + u'\n' + numberedLines(100'000) + QString(20'000, u'y') + numberedLines(10));
    const int range = bar().maximum();
    press(Qt::Key_End, Qt::ControlModifier);
    press(Qt::Key_Home, Qt::ControlModifier);
    QApplication::processEvents();
    EXPECT_EQ(bar().maximum(), range);
}

TEST_F(TextDisplayTest, WholeTextInViewCannotBeScrolled)
{
    show(u"a\nb\nc"_s);
    EXPECT_EQ(bar().maximum(), 0);
    EXPECT_EQ(display.horizontalScrollBar()->maximum(), 0);
}

TEST_F(TextDisplayTest, WideRowCanBeScrolledToItsEnd)
{
    show(u"wide "_s.repeated(100) + u"\nshort"_s);
    display.horizontalScrollBar()->setValue(display.horizontalScrollBar()->maximum());
    EXPECT_TRUE(isInView(498));
    EXPECT_FALSE(isInView(0));
}

TEST_F(TextDisplayTest, TextReplacedWhileScrolledIsShownFromItsStart)
{
    show(numberedLines(5'000) + QString(3'000, u'x'));
    press(Qt::Key_End, Qt::ControlModifier | Qt::ShiftModifier);
    ASSERT_GT(firstRow(), 0);
    display.setText(u"new\ntext"_s);
    EXPECT_EQ(firstRow(), 0);
    EXPECT_EQ(display.caret(), 0);
    EXPECT_TRUE(display.selection().isEmpty());
    EXPECT_EQ(bar().maximum(), 0);
    EXPECT_EQ(display.horizontalScrollBar()->value(), 0);
    EXPECT_FALSE(display.grab().isNull());
    display.setText(QString());
    press(Qt::Key_End, Qt::ControlModifier);
    EXPECT_EQ(display.caret(), 0);
}

TEST_F(TextDisplayTest, ShorterTextThatScrollsIsShownFromItsStart)
{
    show(numberedLines(5'000));
    press(Qt::Key_End, Qt::ControlModifier);
    display.setText(numberedLines(500));
    EXPECT_EQ(firstRow(), 0);
    EXPECT_EQ(bar().value(), 0);
    EXPECT_GT(bar().maximum(), 0);
}

TEST_F(TextDisplayTest, GrowingViewKeepsTheEndOfTheTextAtItsBottom)
{
    show(numberedLines(100));
    press(Qt::Key_End, Qt::ControlModifier);
    display.resize(640, 600);
    QApplication::processEvents();
    EXPECT_TRUE(display.visibleRows().back().isLast(display.text()));
    EXPECT_EQ(bar().value(), bar().maximum());
}

TEST_F(TextDisplayTest, LargerFontIsFollowed)
{
    show(numberedLines(100));
    const size_t before = display.visibleRows().size();
    QFont font = display.font();
    font.setPointSize(font.pointSize() * 2);
    display.setFont(font);
    EXPECT_LT(display.visibleRows().size(), before);
    EXPECT_FALSE(display.grab().isNull());
}

TEST_F(TextDisplayTest, PaletteIsFollowed)
{
    show(u"abc"_s);
    QPalette dark;
    dark.setColor(QPalette::Base, Qt::black);
    dark.setColor(QPalette::Text, Qt::white);
    display.setPalette(dark);
    QApplication::processEvents();
    const QImage image = display.viewport()->grab().toImage();
    EXPECT_EQ(image.pixelColor(image.width() - 5, image.height() - 5), QColor(Qt::black));
}

TEST_F(TextDisplayTest, RightToLeftRowBeginsAtTheRight)
{
    show(u"\u05E9\u05DC\nabc"_s);
    EXPECT_GT(display.characterRect(0)->left(), display.viewport()->width() / 2);
    EXPECT_LT(display.characterRect(3)->left(), 20);
}

TEST_F(TextDisplayTest, TabLeavesTheView)
{
    QWidget window;
    TextDisplay inside(&window);
    QWidget next(&window);
    next.setFocusPolicy(Qt::StrongFocus);
    inside.setText(u"a\tb"_s);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    inside.setFocus();
    QTest::keyClick(&inside, Qt::Key_Tab);
    EXPECT_TRUE(next.hasFocus());
}

TEST_F(TextDisplayTest, KeysOfTheCaretAreNotLeftToTheWindowsShortcuts)
{
    show(u"abc"_s);
    for (const auto &[key, modifiers] : std::vector<std::pair<int, Qt::KeyboardModifiers>>{
             {Qt::Key_C, Qt::ControlModifier}, {Qt::Key_A, Qt::ControlModifier}, {Qt::Key_Home, Qt::NoModifier}}) {
        QKeyEvent event(QEvent::ShortcutOverride, key, modifiers);
        event.ignore();
        QApplication::sendEvent(&display, &event);
        EXPECT_TRUE(event.isAccepted());
    }
    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, {});
    QApplication::sendEvent(&display, &escape);
    EXPECT_FALSE(escape.isAccepted());
}

TEST_F(TextDisplayTest, SectionsAreGoneToByTheirPlaces)
{
    const QString logs = numberedLines(200);
    show(logs + u"\nLog 1:\n"_s + logs + u"\nTask Log 1:\n"_s + logs);
    const qsizetype first = logs.size();
    const qsizetype second = first + 8 + logs.size();
    display.setSections({{u"Log 1"_s, first}, {u"Task Log 1"_s, second}});
    display.goToNextSection();
    EXPECT_EQ(display.caret(), first + 1);
    EXPECT_EQ(firstRow(), first + 1);
    display.goToNextSection();
    EXPECT_EQ(display.caret(), second + 1);
    display.goToNextSection();
    EXPECT_EQ(display.caret(), second + 1);
    display.goToPreviousSection();
    EXPECT_EQ(display.caret(), first + 1);
    display.goToPreviousSection();
    EXPECT_EQ(display.caret(), 0);
}

TEST_F(TextDisplayTest, SectionsOutsideTheTextAreItsEnd)
{
    show(u"abc"_s);
    display.setSections({{u"Beyond"_s, 99}});
    display.goToNextSection();
    EXPECT_EQ(display.caret(), 3);
}

TEST_F(TextDisplayTest, MenuOffersWhatCanBeDone)
{
    show(u"abc\nlog"_s);
    display.setSections({{u"Log & more"_s, 4}});
    QStringList titles;
    QTimer::singleShot(0, [&] {
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        for (const QAction *action : menu->actions()) {
            const QString title = action->isSeparator() ? u"-"_s : action->text().section(u'\t', 0, 0);
            titles += title + (action->isEnabled() ? u""_s : u" (off)"_s);
        }
        menu->actions().last()->trigger();
        menu->close();
    });
    QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(5, 5), display.viewport()->mapToGlobal(QPoint(5, 5)));
    QApplication::sendEvent(display.viewport(), &event);
    EXPECT_EQ(titles,
              (QStringList{u"&Copy (off)"_s, u"Select &All"_s, u"-"_s, u"&Find…"_s, u"-"_s, u"Go to Log && more"_s}));
    EXPECT_EQ(display.caret(), 4);
}

TEST_F(TextDisplayTest, LineOfSixteenMillionCharactersIsWalkedSelectedAndCopied)
{
    const QString text = QString(16'000'000, u'x');
    show(text);
    press(Qt::Key_End, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_TRUE(isInView(display.caret()));
    EXPECT_EQ(copied().size(), text.size());
    press(Qt::Key_PageUp);
    EXPECT_TRUE(isInView(display.caret()));
    EXPECT_FALSE(display.grab().isNull());
}

TEST_F(TextDisplayTest, VeryLargeTextIsShownWithoutAStall)
{
    const QString text = u"0123456789abcdef 0123456789abcdef 0123456789abcdef\n"_s.repeated(2'632'000);
    ASSERT_GT(text.size(), 128 * 1024 * 1024);
    display.setText(text);
    const std::clock_t begun = std::clock();
    display.show();
    display.repaint();
    EXPECT_LT(std::clock() - begun, 10 * CLOCKS_PER_SEC);
    press(Qt::Key_End, Qt::ControlModifier);
    EXPECT_TRUE(isInView(display.caret()));
    EXPECT_EQ(display.text().constData(), text.constData());
}
