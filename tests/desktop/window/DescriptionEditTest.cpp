// The description with lines of any length: which ones wrap, and what that keeps.
#include "desktop/window/DescriptionEdit.h"

#include "support/WindowSupport.h"

#include <QAccessible>
#include <QClipboard>
#include <QGuiApplication>
#include <QTextBlock>
#include <QtMath>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kVeryLong = 1'000'000;

class DescriptionEditTest : public testing::Test
{
protected:
    void show()
    {
        edit.resize(400, 200);
        edit.show();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&edit));
    }

    void paste(const QString &text)
    {
        QGuiApplication::clipboard()->setText(text);
        edit.paste();
    }

    bool wraps() const { return edit.lineWrapMode() == QPlainTextEdit::WidgetWidth; }

    /// Lines that the paragraphs are laid out in.
    int shownLines() const { return edit.document()->lineCount(); }

    DescriptionEdit edit;
};

} // namespace

TEST_F(DescriptionEditTest, OrdinaryParagraphsWrap)
{
    show();
    paste(u"many words "_s.repeated(200));
    EXPECT_TRUE(wraps());
    EXPECT_GT(shownLines(), 5);
}

TEST_F(DescriptionEditTest, HasRoomForSixLinesAndForThreeAtLeast)
{
    const int around = 2 * (edit.frameWidth() + qCeil(edit.document()->documentMargin()));
    const int line = edit.fontMetrics().lineSpacing();
    EXPECT_EQ(edit.sizeHint().height() - around, 6 * line);
    EXPECT_EQ(edit.minimumSizeHint().height() - around, 3 * line);
    EXPECT_EQ(edit.minimumSizeHint().width(), 20 * edit.fontMetrics().averageCharWidth());
}

TEST_F(DescriptionEditTest, ManyParagraphsWrapHoweverLongTheTextIs)
{
    show();
    paste(u"many words\n"_s.repeated(20'000));
    EXPECT_TRUE(wraps());
}

TEST_F(DescriptionEditTest, VeryLongParagraphDoesNotWrapAndIsKeptWhole)
{
    show();
    const QString text(kVeryLong, u'x');
    paste(text);
    EXPECT_FALSE(wraps());
    EXPECT_EQ(edit.typedText(), text);
}

TEST_F(DescriptionEditTest, ParagraphOfTwentyThousandUnitsIsTheLongestThatWraps)
{
    show();
    edit.setPlainText(QString(20'000, u'x'));
    EXPECT_TRUE(wraps());
    edit.setPlainText(QString(20'001, u'x'));
    EXPECT_FALSE(wraps());
}

TEST_F(DescriptionEditTest, VeryLongParagraphBetweenOthersDoesNotWrap)
{
    show();
    paste(u"first\nlast"_s);
    edit.moveCursor(QTextCursor::Start);
    paste(u"a\n"_s + QString(kVeryLong, u'x') + u"\nb"_s);
    EXPECT_FALSE(wraps());
}

TEST_F(DescriptionEditTest, SetTextDoesNotWrapEither)
{
    show();
    edit.setPlainText(QString(kVeryLong, u'x'));
    EXPECT_FALSE(wraps());
    edit.setPlainText(u"short"_s);
    EXPECT_TRUE(wraps());
}

TEST_F(DescriptionEditTest, WrapsAgainWhenTheLastVeryLongParagraphIsGone)
{
    show();
    paste(QString(kVeryLong, u'x') + u'\n' + QString(kVeryLong, u'y'));
    edit.moveCursor(QTextCursor::Start);
    edit.moveCursor(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
    edit.textCursor().removeSelectedText();
    EXPECT_FALSE(wraps());
    edit.selectAll();
    edit.textCursor().removeSelectedText();
    EXPECT_TRUE(wraps());
    paste(u"many words "_s.repeated(200));
    EXPECT_GT(shownLines(), 5);
}

TEST_F(DescriptionEditTest, UndoingAVeryLongPasteWrapsAgain)
{
    show();
    paste(u"before"_s);
    paste(QString(kVeryLong, u'x'));
    edit.undo();
    EXPECT_EQ(edit.typedText(), u"before"_s);
    EXPECT_TRUE(wraps());
}

TEST_F(DescriptionEditTest, LockedTextIsKeptWhateverAssistiveTechnologyDoes)
{
    show();
    QTest::keyClicks(&edit, u"It froze."_s);
    edit.setEditable(false);
    QAccessibleInterface *const accessible = QAccessible::queryAccessibleInterface(&edit);
    accessible->editableTextInterface()->replaceText(0, 9, u"Nothing"_s);
    EXPECT_EQ(edit.typedText(), u"It froze."_s);
    accessible->editableTextInterface()->insertText(2, u" never"_s);
    accessible->editableTextInterface()->deleteText(0, 3);
    EXPECT_EQ(edit.typedText(), u"It froze."_s);
    edit.setEditable(true);
    accessible->editableTextInterface()->insertText(2, u" never"_s);
    EXPECT_EQ(edit.typedText(), u"It never froze."_s);
}
