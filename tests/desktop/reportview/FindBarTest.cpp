// Finding words from the keyboard.
#include "desktop/reportview/FindBar.h"

#include "ViewSupport.h"
#include "desktop/reportview/ReportTextView.h"

#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
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
        , button(new QPushButton(&dialog))
    {
        auto *layout = new QVBoxLayout(&dialog);
        layout->addWidget(view);
        layout->addWidget(button);
        button->setDefault(true);
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

    FindBar *bar() const { return view->findChild<FindBar *>(); }
    QLineEdit *field() const { return view->findChild<QLineEdit *>(); }
    bool says(const QString &outcome) const
    {
        const QList<QLabel *> labels = bar()->findChildren<QLabel *>();
        return std::any_of(labels.begin(), labels.end(),
                           [&](const QLabel *label) { return label->isVisible() && label->text() == outcome; })
            && field()->accessibleDescription() == outcome;
    }

    QDialog dialog;
    ReportTextView *view;
    QPushButton *button;
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

TEST_F(FindBarTest, EscapeWithoutABarIsTheWindows)
{
    show(u"abc"_s);
    press(Qt::Key_Escape);
    EXPECT_FALSE(dialog.isVisible());
}

TEST_F(FindBarTest, ReturnNeverPressesTheWindowsButton)
{
    show(u"abc"_s);
    const QSignalSpy pressed(button, &QPushButton::clicked);
    find(u"b"_s);
    press(Qt::Key_Return);
    press(Qt::Key_Enter);
    field()->clear();
    press(Qt::Key_Return);
    EXPECT_EQ(pressed.count(), 0);
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
}

TEST_F(FindBarTest, SearchInATextThatIsReplacedEndsWithoutAWord)
{
    show(QString(qsizetype(64) * 1024 * 1024, u'x'));
    find(u"y"_s);
    EXPECT_TRUE(says(u"Searching…"_s));
    view->setString(u"one y"_s);
    EXPECT_TRUE(says(QString()));
    QCoreApplication::processEvents();
    EXPECT_TRUE(says(QString()));
    EXPECT_TRUE(display->selection().isEmpty());
    press(Qt::Key_Return);
    EXPECT_EQ(display->selection(), (Range{4, 5}));
}
