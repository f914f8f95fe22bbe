// The report text view: the kept text, and a display that is made late and filled in slices.
#include "desktop/window/ReportTextView.h"

#include "support/WindowSupport.h"

#include <QAbstractTextDocumentLayout>
#include <QClipboard>
#include <QFontInfo>
#include <QGuiApplication>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTextBlock>

using namespace Qt::StringLiterals;

namespace {

class ReportTextViewTest : public testing::Test
{
protected:
    void showAndFill()
    {
        QSignalSpy displayed(&view, &ReportTextView::displayed);
        view.show();
        ASSERT_TRUE(eventually([&] { return displayed.count() > 0; }));
    }

    QPlainTextEdit *display() const { return view.findChild<QPlainTextEdit *>(); }

    /// The document's paragraphs, joined by line feeds.
    QString shown() const
    {
        QStringList paragraphs;
        for (QTextBlock block = display()->document()->begin(); block.isValid(); block = block.next()) {
            paragraphs += block.text();
        }
        return paragraphs.join(u'\n');
    }

    QString copiedWhole() const
    {
        display()->selectAll();
        display()->copy();
        return QGuiApplication::clipboard()->text();
    }

    ReportTextView view;
};

/// A text, the lines that it is shown in, and what is copied of it.
struct ShownText {
    std::string name;
    QString text;
    QStringList lines;
    QString copied;
};

void PrintTo(const ShownText &shown, std::ostream *stream)
{
    *stream << shown.name;
}

class ShownTextTest : public ReportTextViewTest, public testing::WithParamInterface<ShownText>
{
protected:
    /// The lines that the display lays out, one below the other.
    QStringList shownLines() const
    {
        QStringList lines;
        for (QTextBlock block = display()->document()->begin(); block.isValid(); block = block.next()) {
            // Lines are laid out when they are first asked for.
            (void)display()->document()->documentLayout()->blockBoundingRect(block);
            for (int index = 0; index < block.layout()->lineCount(); ++index) {
                const QTextLine line = block.layout()->lineAt(index);
                QString text = block.text().mid(line.textStart(), line.textLength());
                if (text.endsWith(QChar::LineSeparator)) {
                    text.chop(1);
                }
                lines += text;
            }
        }
        return lines;
    }
};

class KeptTextTest : public ReportTextViewTest, public testing::WithParamInterface<NamedText>
{
};

} // namespace

TEST_P(KeptTextTest, TextIsGivenBackExactly)
{
    view.setString(GetParam().text);
    EXPECT_EQ(view.string(), GetParam().text);
    showAndFill();
    EXPECT_EQ(view.string(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    , KeptTextTest,
    testing::Values(NamedText{"Empty", u""_s}, NamedText{"CarriageReturns", u"a\rb\r\nc\n\r"_s},
                    NamedText{"Nul", QString::fromUtf16(u"a\0b", 3)}, NamedText{"NoBreakSpace", u"a\u00a0b"_s},
                    NamedText{"LineAndParagraphSeparators", u"a\u2028b\u2029c"_s},
                    NamedText{"FrameMarks", QString(u'a') + QChar(0xFDD0) + QChar(0xFDD1) + QChar(0xFFFF)},
                    NamedText{"LoneSurrogates", QString(QChar(0xD83D)) + u'x' + QChar(0xDCA5)},
                    NamedText{"ByteOrderMark", QString(QChar(0xFEFF)) + u"a"_s}, NamedText{"Emoji", u"\U0001F4A5"_s},
                    NamedText{"ObjectReplacement", QString(QChar(0xFFFC))}),
    [](const testing::TestParamInfo<NamedText> &given) { return given.param.name; });

TEST_P(ShownTextTest, IsShownInItsLinesAndCopiedWithLineFeeds)
{
    view.setString(GetParam().text);
    showAndFill();
    EXPECT_EQ(shownLines(), GetParam().lines);
    EXPECT_EQ(copiedWhole(), GetParam().copied);
}

INSTANTIATE_TEST_SUITE_P(
    , ShownTextTest,
    testing::Values(
        ShownText{"LineFeeds", u"a\nb\n"_s, {u"a"_s, u"b"_s, u""_s}, u"a\nb\n"_s},
        ShownText{"CarriageReturnLineFeeds", u"a\r\nb\r\n\r\nc"_s, {u"a"_s, u"b"_s, u""_s, u"c"_s}, u"a\nb\n\nc"_s},
        ShownText{"LoneCarriageReturns", u"a\rb\r\rc"_s, {u"a"_s, u"b"_s, u""_s, u"c"_s}, u"a\nb\n\nc"_s},
        ShownText{"LineSeparator", u"a\u2028b"_s, {u"a"_s, u"b"_s}, u"a\nb"_s},
        ShownText{"ParagraphSeparator", u"a\u2029b"_s, {u"a"_s, u"b"_s}, u"a\nb"_s},
        ShownText{"NoBreakSpace", u"a\u00a0b"_s, {u"a\u00a0b"_s}, u"a\u00a0b"_s},
        ShownText{"Emoji", u"a\U0001F4A5b"_s, {u"a\U0001F4A5b"_s}, u"a\U0001F4A5b"_s},
        ShownText{
            "Nul", QString::fromUtf16(u"a\0b", 3), {QString::fromUtf16(u"a\0b", 3)}, QString::fromUtf16(u"a\0b", 3)},
        ShownText{"ByteOrderMark", u"\uFEFFa"_s, {u"\uFEFFa"_s}, u"\uFEFFa"_s}),
    [](const testing::TestParamInfo<ShownText> &given) { return given.param.name; });

TEST_F(ReportTextViewTest, CaretStandsAtTheStartOfTheText)
{
    view.setString(u"0123456789abcde\n"_s.repeated(50'000));
    showAndFill();
    EXPECT_EQ(display()->textCursor().position(), 0);
    QTest::keyClick(display(), Qt::Key_Down);
    EXPECT_EQ(display()->textCursor().blockNumber(), 1);
    EXPECT_EQ(display()->verticalScrollBar()->value(), 0);
}

TEST_F(ReportTextViewTest, OneStepSelectsAWholeEmoji)
{
    view.setString(u"\U0001F4A5b"_s);
    showAndFill();
    display()->moveCursor(QTextCursor::Start);
    QTest::keyClick(display(), Qt::Key_Right, Qt::ShiftModifier);
    display()->copy();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"\U0001F4A5"_s);
}

TEST_F(ReportTextViewTest, NoDocumentIsMadeBeforeTheViewIsShown)
{
    view.setString(u"a"_s);
    EXPECT_EQ(display(), nullptr);
    showAndFill();
    ASSERT_NE(display(), nullptr);
    EXPECT_EQ(shown(), u"a"_s);
}

TEST_F(ReportTextViewTest, DisplayIsReadOnlyMonospacedAndDoesNotWrap)
{
    showAndFill();
    EXPECT_TRUE(display()->isReadOnly());
    EXPECT_TRUE(QFontInfo(display()->font()).fixedPitch());
    EXPECT_EQ(display()->lineWrapMode(), QPlainTextEdit::NoWrap);
    EXPECT_TRUE(display()->textInteractionFlags() & Qt::TextSelectableByKeyboard);
}

TEST_F(ReportTextViewTest, TypingChangesNothing)
{
    view.setString(u"a"_s);
    showAndFill();
    QTest::keyClicks(display(), u"x"_s);
    QTest::keyClick(display(), Qt::Key_Delete);
    EXPECT_EQ(shown(), u"a"_s);
    EXPECT_EQ(view.string(), u"a"_s);
}

TEST_F(ReportTextViewTest, TextThatChangesInViewIsDisplayed)
{
    view.setString(u"a"_s);
    showAndFill();
    view.setString(u"b"_s);
    EXPECT_EQ(shown(), u"b"_s);
}

TEST_F(ReportTextViewTest, TextThatChangesOutOfViewIsDisplayedWhenTheViewIsShownAgain)
{
    view.setString(u"a"_s);
    showAndFill();
    view.hide();
    view.setString(u"b"_s);
    EXPECT_EQ(shown(), u"a"_s);
    view.show();
    EXPECT_EQ(shown(), u"b"_s);
}

TEST_F(ReportTextViewTest, ShowingTheViewAgainKeepsTheSelection)
{
    view.setString(u"abc"_s);
    showAndFill();
    display()->selectAll();
    view.hide();
    view.show();
    EXPECT_EQ(display()->textCursor().selectedText(), u"abc"_s);
}

TEST_F(ReportTextViewTest, LargeTextIsDisplayedInSeveralTurnsOfTheEventLoop)
{
    view.setString(u"0123456789abcde\n"_s.repeated(50'000));
    view.show();
    const qsizetype first = display()->document()->characterCount();
    EXPECT_GT(first, 200'000);
    EXPECT_LT(first, 300'000);
    ASSERT_TRUE(eventually([this] { return display()->document()->characterCount() > 800'000; }));
    EXPECT_EQ(shown(), view.string());
}

TEST_F(ReportTextViewTest, TextThatChangesWhileItIsBeingDisplayedIsDisplayedAlone)
{
    view.setString(u"0123456789abcde\n"_s.repeated(50'000));
    view.show();
    const QString next = u"next\n"_s.repeated(200'000);
    QSignalSpy displayed(&view, &ReportTextView::displayed);
    view.setString(next);
    ASSERT_TRUE(eventually([&] { return displayed.count() == 1; }));
    EXPECT_EQ(shown(), next);
}

TEST_F(ReportTextViewTest, NoLineEndIsDoubledWhereTheTextIsDivided)
{
    // A slice of 256 Ki units that has no line feed ends between CR and LF here, unless care is taken.
    const int units = 256 * 1024 - 1;
    view.setString(QString(units, u'x') + u"\r\nlast"_s);
    showAndFill();
    const QTextBlock last = display()->document()->lastBlock();
    EXPECT_EQ(last.text(), u"last"_s);
    EXPECT_TRUE(last.previous().text().startsWith(u'x'));
}

TEST_F(ReportTextViewTest, NoCharacterIsDividedInALineThatIsShownInPieces)
{
    for (const int offset : {0, 1}) {
        view.setString(QString(offset, u'x') + u"\U0001F4A5"_s.repeated(200'000));
        showAndFill();
        for (QTextBlock block = display()->document()->begin(); block.isValid(); block = block.next()) {
            ASSERT_FALSE(block.text().front().isLowSurrogate());
            ASSERT_FALSE(block.text().back().isHighSurrogate());
        }
        view.hide();
    }
}

TEST_F(ReportTextViewTest, VeryLongLineIsShownInPiecesAndCopiedAsOne)
{
    const QString text = u"before\n"_s + QString(25'000, u'x') + u"\nafter\n"_s;
    view.setString(text);
    showAndFill();
    EXPECT_EQ(display()->document()->blockCount(), 6);
    EXPECT_EQ(copiedWhole(), text);
}

TEST_F(ReportTextViewTest, LineOfAMillionCharactersIsCopiedAsOne)
{
    const QString text(1'000'000, u'x');
    view.setString(text);
    showAndFill();
    EXPECT_EQ(copiedWhole(), text);
}

TEST_F(ReportTextViewTest, CopyKeepsNoBreakSpacesAndEndsLinesWithLineFeeds)
{
    view.setString(u"a\u00a0b\r\nc\u2028d"_s);
    showAndFill();
    EXPECT_EQ(copiedWhole(), u"a\u00a0b\nc\nd"_s);
}

TEST_F(ReportTextViewTest, PartOfALineIsCopiedAlone)
{
    view.setString(u"abc\ndef"_s);
    showAndFill();
    QTextCursor cursor(display()->document());
    cursor.setPosition(1);
    cursor.setPosition(5, QTextCursor::KeepAnchor);
    display()->setTextCursor(cursor);
    display()->copy();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"bc\nd"_s);
}
