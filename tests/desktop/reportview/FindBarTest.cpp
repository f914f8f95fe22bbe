// Finding words from the keyboard.
#include "desktop/reportview/FindBar.h"

#include "ViewSupport.h"
#include "desktop/reportview/ReportTextView.h"

#include <QDeadlineTimer>
#include <QDialog>
#include <QDragEnterEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using namespace reportview;

namespace {

/// A view in a dialog with a default button, as the report window is one.
class FindBarTest : public testing::Test
{
protected:
    FindBarTest()
        : view(new ReportTextView(&dialog))
        , defaultButton(new QPushButton(&dialog))
    {
        auto *layout = new QVBoxLayout(&dialog);
        layout->addWidget(view);
        layout->addWidget(defaultButton);
        defaultButton->setDefault(true);
    }

    void show(const QString &text)
    {
        view->setString(text);
        dialog.show();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&dialog));
        display = view->findChild<TextDisplay *>();
        display->setFocus();
    }

    void press(int key, Qt::KeyboardModifiers modifiers = {})
    {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key(key), modifiers);
    }

    void find(const QString &words)
    {
        press(Qt::Key_F, Qt::ControlModifier);
        QTest::keyClicks(QApplication::focusWidget(), words);
    }

    /// Words that no key types at once.
    void findPasted(const QString &words)
    {
        press(Qt::Key_F, Qt::ControlModifier);
        field()->setText(words);
        press(Qt::Key_Return);
    }

    /// What is selected after each of as many presses of the key.
    std::vector<Range> selectedAfter(int presses, int key, Qt::KeyboardModifiers modifiers = {})
    {
        std::vector<Range> selected;
        for (int count = 0; count < presses; ++count) {
            press(key, modifiers);
            selected.push_back(display->selection());
        }
        return selected;
    }

    FindBar *bar() const { return view->findChild<FindBar *>(); }
    QLineEdit *field() const { return view->findChild<QLineEdit *>(); }
    QToolButton &button(const QString &name) const
    {
        const QList<QToolButton *> buttons = bar()->findChildren<QToolButton *>();
        return **std::find_if(buttons.begin(), buttons.end(),
                              [&name](const QToolButton *one) { return one->accessibleName() == name; });
    }
    void click(const QString &name) { QTest::mouseClick(&button(name), Qt::LeftButton); }
    bool says(const QString &outcome) const
    {
        QStringList shown;
        for (const QLabel *label : bar()->findChildren<QLabel *>()) {
            shown += label->isVisible() ? label->text() : QString();
        }
        shown.removeAll(u"F&ind:"_s);
        shown.removeAll(QString());
        return shown == (outcome.isEmpty() ? QStringList() : QStringList(outcome))
            && field()->accessibleDescription() == outcome;
    }

    QDialog dialog;
    ReportTextView *view;
    QPushButton *defaultButton;
    TextDisplay *display = nullptr;
};

} // namespace

TEST_F(FindBarTest, BarIsMadeWhenItIsFirstAskedFor)
{
    show(u"abc"_s);
    EXPECT_EQ(bar(), nullptr);
    press(Qt::Key_F, Qt::ControlModifier);
    ASSERT_NE(bar(), nullptr);
    EXPECT_TRUE(bar()->isVisible());
    EXPECT_TRUE(field()->hasFocus());
}

TEST_F(FindBarTest, BarIsAsWideAsTheViewAndStandsBelowTheText)
{
    show(u"abc"_s);
    press(Qt::Key_F, Qt::ControlModifier);
    QCoreApplication::processEvents();
    EXPECT_EQ(bar()->x(), 0);
    EXPECT_EQ(bar()->width(), view->width());
    EXPECT_EQ(bar()->geometry().bottom(), view->rect().bottom());
    EXPECT_GT(bar()->y(), display->geometry().bottom());
    EXPECT_EQ(bar()->childrenRect(), bar()->rect());
    EXPECT_GT(field()->width(), view->width() / 4);
}

TEST_F(FindBarTest, KeysOfTheViewAreNoneOfTheRestOfTheWindow)
{
    show(u"abc"_s);
    defaultButton->setFocus();
    press(Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(bar(), nullptr);
}

TEST_F(FindBarTest, WordsAreFoundWhileTheyAreTyped)
{
    show(u"a pier, a HARBOUR"_s);
    find(u"harb"_s);
    EXPECT_EQ(display->selection(), (Range{10, 14}));
}

TEST_F(FindBarTest, ReturnAndF3GoOnAndWithShiftBack)
{
    show(u"pier one pier two pier"_s);
    find(u"pier"_s);
    EXPECT_EQ(display->selection().begin, 0);
    press(Qt::Key_Return);
    EXPECT_EQ(display->selection().begin, 9);
    press(Qt::Key_F3);
    EXPECT_EQ(display->selection().begin, 18);
    press(Qt::Key_Return, Qt::ShiftModifier);
    EXPECT_EQ(display->selection().begin, 9);
    press(Qt::Key_F3, Qt::ShiftModifier);
    EXPECT_EQ(display->selection().begin, 0);
}

TEST_F(FindBarTest, GoingRoundTheEndIsSaid)
{
    show(u"pier one pier"_s);
    find(u"pier"_s);
    press(Qt::Key_Return);
    EXPECT_TRUE(says(QString()));
    press(Qt::Key_Return);
    EXPECT_EQ(display->selection().begin, 0);
    EXPECT_TRUE(says(u"Continued from the other end"_s));
}

TEST_F(FindBarTest, WhatIsNotFoundIsSaidToTheEyeAndToAScreenReader)
{
    show(u"abc"_s);
    find(u"x"_s);
    EXPECT_TRUE(says(u"Not found"_s));
    press(Qt::Key_Backspace);
    EXPECT_TRUE(says(QString()));
}

TEST_F(FindBarTest, WhatIsFoundComesIntoView)
{
    show(u"line\n"_s.repeated(5'000) + u"needle"_s + u"\nline"_s.repeated(5'000));
    find(u"needle"_s);
    EXPECT_EQ(display->selection(), (Range{25'000, 25'006}));
    const std::optional<QRect> place = display->characterRect(25'000);
    ASSERT_TRUE(place);
    EXPECT_TRUE(display->viewport()->rect().contains(*place));
}

TEST_F(FindBarTest, EscapeClosesTheBarAndNotTheWindow)
{
    show(u"abc"_s);
    find(u"b"_s);
    press(Qt::Key_Escape);
    EXPECT_FALSE(bar()->isVisible());
    EXPECT_TRUE(dialog.isVisible());
    EXPECT_TRUE(display->hasFocus());
    EXPECT_EQ(display->selection(), (Range{1, 2}));
}

TEST_F(FindBarTest, EscapeInTheTextClosesTheBarAndNotTheWindow)
{
    show(u"abc"_s);
    find(u"b"_s);
    display->setFocus();
    press(Qt::Key_Escape);
    EXPECT_FALSE(bar()->isVisible());
    EXPECT_TRUE(dialog.isVisible());
}

TEST_F(FindBarTest, EscapePressedTwiceOrHeldDoesNotCloseTheWindow)
{
    show(u"abc"_s);
    find(u"b"_s);
    press(Qt::Key_Escape);
    press(Qt::Key_Escape);
    EXPECT_TRUE(dialog.isVisible());
    QKeyEvent held(QEvent::KeyPress, Qt::Key_Escape, {}, QString(), true);
    QApplication::sendEvent(display, &held);
    EXPECT_TRUE(dialog.isVisible());
}

TEST_F(FindBarTest, EscapeLongAfterTheBarWasClosedIsTheWindows)
{
    show(u"abc"_s);
    find(u"b"_s);
    const int usual = QApplication::doubleClickInterval();
    QApplication::setDoubleClickInterval(1);
    press(Qt::Key_Escape);
    const QDeadlineTimer later(5);
    ASSERT_TRUE(eventually([&later] { return later.hasExpired(); }));
    press(Qt::Key_Escape);
    QApplication::setDoubleClickInterval(usual);
    EXPECT_FALSE(dialog.isVisible());
}

TEST_F(FindBarTest, KeysThatTheBarDoesNotKnowAreLeftToTheWindow)
{
    show(u"abc"_s);
    find(u"b"_s);
    QKeyEvent key(QEvent::KeyPress, Qt::Key_F9, {});
    QApplication::sendEvent(bar(), &key);
    EXPECT_FALSE(key.isAccepted());
    EXPECT_TRUE(bar()->isVisible());
}

TEST_F(FindBarTest, EscapeWithoutABarIsTheWindows)
{
    show(u"abc"_s);
    press(Qt::Key_Escape);
    EXPECT_FALSE(dialog.isVisible());
}

TEST_F(FindBarTest, ReturnNeverPressesTheWindowsButton)
{
    show(u"abc"_s);
    const QSignalSpy pressed(defaultButton, &QPushButton::clicked);
    find(u"b"_s);
    press(Qt::Key_Return);
    press(Qt::Key_Enter);
    field()->clear();
    press(Qt::Key_Return);
    EXPECT_EQ(pressed.count(), 0);
}

TEST_F(FindBarTest, ButtonsFindAndCloseAndLeaveTheKeyboardInTheField)
{
    show(u"pier one pier two pier"_s);
    find(u"pier"_s);
    click(u"Find next"_s);
    EXPECT_EQ(display->selection().begin, 9);
    EXPECT_TRUE(field()->hasFocus());
    click(u"Find previous"_s);
    EXPECT_EQ(display->selection().begin, 0);
    EXPECT_TRUE(field()->hasFocus());
    EXPECT_EQ(button(u"Find next"_s).toolTip(), u"Find next"_s);
    click(u"Close the find bar"_s);
    EXPECT_FALSE(bar()->isVisible());
    EXPECT_TRUE(display->hasFocus());
}

// Whoever speaks to the program says what stands on a button.
TEST_F(FindBarTest, NamesOfTheButtonsHoldWhatStandsOnThem)
{
    show(u"abc"_s);
    press(Qt::Key_F, Qt::ControlModifier);
    for (const QString &name : {u"Find previous"_s, u"Find next"_s, u"Close the find bar"_s}) {
        EXPECT_FALSE(button(name).text().isEmpty());
        EXPECT_TRUE(name.contains(button(name).text(), Qt::CaseInsensitive));
    }
}

TEST_F(FindBarTest, ButtonsAreReachedByTab)
{
    show(u"abc"_s);
    press(Qt::Key_F, Qt::ControlModifier);
    QStringList visited;
    for (int count = 0; count < 3; ++count) {
        press(Qt::Key_Tab);
        visited += QApplication::focusWidget()->accessibleName();
    }
    EXPECT_EQ(visited, (QStringList{u"Find previous"_s, u"Find next"_s, u"Close the find bar"_s}));
}

TEST_F(FindBarTest, FieldHasANameAMnemonicAndAButtonThatEmptiesIt)
{
    show(u"abc"_s);
    find(u"b"_s);
    EXPECT_EQ(field()->accessibleName(), u"Find in the report"_s);
    display->setFocus();
    press(Qt::Key_I, Qt::AltModifier);
    EXPECT_TRUE(field()->hasFocus());
    auto *clear = field()->findChild<QToolButton *>();
    ASSERT_NE(clear, nullptr);
    QTest::mouseClick(clear, Qt::LeftButton);
    EXPECT_EQ(field()->text(), QString());
}

TEST_F(FindBarTest, WhatIsDroppedOnTheFieldIsLeftToTheWindow)
{
    show(u"abc"_s);
    press(Qt::Key_F, Qt::ControlModifier);
    QMimeData data;
    data.setText(u"dropped"_s);
    QDragEnterEvent enter(QPoint(1, 1), Qt::CopyAction, &data, Qt::LeftButton, {});
    enter.ignore();
    QApplication::sendEvent(field(), &enter);
    EXPECT_FALSE(enter.isAccepted());
}

TEST_F(FindBarTest, FieldAndButtonsStayWhereTheyAreWhenTheOutcomeIsSaid)
{
    show(u"abc"_s);
    const QFont usual = dialog.font();
    for (const int times : {1, 2}) {
        QFont larger = usual;
        larger.setPointSizeF(times * usual.pointSizeF());
        dialog.setFont(larger);
        dialog.resize(1'200, 300);
        press(Qt::Key_F, Qt::ControlModifier);
        field()->clear();
        QCoreApplication::processEvents();
        const QRect before = field()->geometry();
        QTest::keyClicks(field(), u"x"_s);
        ASSERT_TRUE(says(u"Not found"_s));
        QCoreApplication::processEvents();
        EXPECT_EQ(field()->geometry(), before) << times;
    }
}

TEST_F(FindBarTest, WordsOfTheLastSearchAreReplacedByWhatIsTyped)
{
    show(u"pier harbour"_s);
    find(u"pier"_s);
    display->select(0, 0);
    find(u"harbour"_s);
    EXPECT_EQ(field()->text(), u"harbour"_s);
}

TEST_F(FindBarTest, WordsThatAreLongerThanTheBoundAreNotTakenOver)
{
    show(QString(300, u'x'));
    display->select(0, 200);
    press(Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(field()->text(), QString(200, u'x'));
    display->select(0, 201);
    press(Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(field()->text(), QString(200, u'x'));
}

TEST_F(FindBarTest, WordsAcrossAnyLineEndAreNotTakenOver)
{
    for (const QString &lineEnd : {u"\n"_s, u"\r"_s, u"\u2028"_s, u"\u2029"_s}) {
        show(u"one"_s + lineEnd + u"two"_s);
        display->select(0, 7);
        press(Qt::Key_F, Qt::ControlModifier);
        EXPECT_EQ(field()->text(), QString());
    }
}

TEST_F(FindBarTest, FindingFurtherWithoutWordsAsksForThem)
{
    show(u"one two"_s);
    press(Qt::Key_F3);
    ASSERT_NE(bar(), nullptr);
    press(Qt::Key_Escape);
    press(Qt::Key_F3);
    EXPECT_TRUE(bar()->isVisible());
    EXPECT_TRUE(field()->hasFocus());
}

TEST_F(FindBarTest, OutcomeIsForgottenWhenTheBarIsClosedOrOpened)
{
    show(u"abc"_s);
    find(u"x"_s);
    ASSERT_TRUE(says(u"Not found"_s));
    press(Qt::Key_F, Qt::ControlModifier);
    EXPECT_TRUE(says(QString()));
    press(Qt::Key_Return);
    ASSERT_TRUE(says(u"Not found"_s));
    press(Qt::Key_Escape);
    EXPECT_EQ(field()->accessibleDescription(), QString());
}

TEST_F(FindBarTest, ClosingTheBarEndsTheSearch)
{
    show(QString(qsizetype(16) * 1024 * 1024, u'x'));
    find(u"y"_s);
    ASSERT_TRUE(says(u"Searching…"_s));
    press(Qt::Key_Escape);
    press(Qt::Key_F, Qt::ControlModifier);
    // One that begins later ends later.
    TextSearch another;
    another.start(display->text(), u"y"_s, 0, SearchDirection::Forward);
    ASSERT_TRUE(eventually([&another] { return !another.isRunning(); }));
    EXPECT_TRUE(says(QString()));
}

TEST_F(FindBarTest, WordsThatEndInsideACharacterSelectItWholeAndAreGoneOnFrom)
{
    show(u"cafe\u0301 one two tree"_s);
    find(u"e"_s);
    EXPECT_EQ(display->selection(), (Range{3, 5}));
    EXPECT_EQ(selectedAfter(4, Qt::Key_F3), (std::vector<Range>{{8, 9}, {16, 17}, {17, 18}, {3, 5}}));
    EXPECT_EQ(selectedAfter(2, Qt::Key_F3, Qt::ShiftModifier), (std::vector<Range>{{17, 18}, {16, 17}}));
}

TEST_F(FindBarTest, LettersBelowACombiningMarkAreFoundWhileTheyAreTyped)
{
    show(u"a cafe\u0301"_s);
    find(u"cafe"_s);
    EXPECT_EQ(display->selection(), (Range{2, 7}));
}

TEST_F(FindBarTest, WordsThatBeginOrEndInsideACharacterAreFoundOnceInEitherDirection)
{
    show(u"\U0001F469 \U0001F468\u200D\U0001F469 \U0001F469\u200D\U0001F4BB"_s);
    findPasted(u"\U0001F469"_s);
    EXPECT_EQ(display->selection(), (Range{0, 2}));
    EXPECT_EQ(selectedAfter(3, Qt::Key_F3), (std::vector<Range>{{3, 8}, {9, 14}, {0, 2}}));
    EXPECT_EQ(selectedAfter(3, Qt::Key_F3, Qt::ShiftModifier), (std::vector<Range>{{9, 14}, {3, 8}, {0, 2}}));
}

TEST_F(FindBarTest, WordsThatACharacterHoldsTwiceAreGoneOnFrom)
{
    show(u"\U0001F469\u200D\U0001F469 and \U0001F469"_s);
    findPasted(u"\U0001F469"_s);
    EXPECT_EQ(display->selection(), (Range{0, 5}));
    EXPECT_EQ(selectedAfter(3, Qt::Key_F3), (std::vector<Range>{{0, 5}, {10, 12}, {0, 5}}));
}

TEST_F(FindBarTest, CaretThatWasMovedIsWhereTheSearchGoesOn)
{
    show(u"cafe\u0301 one two tree"_s);
    find(u"e"_s);
    display->select(9, 9);
    EXPECT_EQ(selectedAfter(1, Qt::Key_F3), (std::vector<Range>{{16, 17}}));
}

TEST_F(FindBarTest, PlaceOfWordsInATextThatWasReplacedIsForgotten)
{
    show(u"cafe\u0301"_s);
    find(u"e"_s);
    ASSERT_EQ(display->selection(), (Range{3, 5}));
    view->setString(u"xxxxe we"_s);
    display->select(3, 5);
    EXPECT_EQ(selectedAfter(1, Qt::Key_F3), (std::vector<Range>{{7, 8}}));
}

TEST_F(FindBarTest, FoundWordsStayInTheFieldWhenTheBarIsOpenedAgain)
{
    show(u"cafe\u0301 one"_s);
    find(u"cafe"_s);
    press(Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(field()->text(), u"cafe"_s);
}

TEST_F(FindBarTest, SelectedWordsAreTakenOver)
{
    show(u"one two\nthree"_s);
    display->select(4, 7);
    press(Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(field()->text(), u"two"_s);
    display->select(4, 10);
    press(Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(field()->text(), u"two"_s);
    display->select(0, 7);
    press(Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(field()->text(), u"one two"_s);
}

TEST_F(FindBarTest, SearchInATextThatIsReplacedEndsWithoutAWord)
{
    const QString replaced(qsizetype(16) * 1024 * 1024, u'x');
    show(replaced);
    find(u"y"_s);
    EXPECT_TRUE(says(u"Searching…"_s));
    view->setString(u"one y"_s);
    EXPECT_TRUE(says(QString()));
    // One that begins later ends later.
    TextSearch another;
    another.start(replaced, u"y"_s, 0, SearchDirection::Forward);
    ASSERT_TRUE(eventually([&another] { return !another.isRunning(); }));
    EXPECT_TRUE(says(QString()));
    EXPECT_TRUE(display->selection().isEmpty());
    press(Qt::Key_Return);
    EXPECT_EQ(display->selection(), (Range{4, 5}));
}
