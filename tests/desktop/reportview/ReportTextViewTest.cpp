// The report's pane: the kept text, and a display that is made when somebody looks.
#include "desktop/reportview/ReportTextView.h"

#include "ViewSupport.h"
#include "desktop/reportview/FindBar.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QFontDatabase>
#include <QFontInfo>
#include <QGuiApplication>
#include <QLabel>
#include <QMenu>
#include <QScrollBar>
#include <QTimer>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using namespace reportview;

namespace {

class ReportTextViewTest : public testing::Test
{
protected:
    void show()
    {
        view.show();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&view));
    }

    TextDisplay *display() const { return view.findChild<TextDisplay *>(); }

    /// The rows in view as texts.
    QStringList shownRows() const
    {
        QStringList rows;
        for (const Row &row : display()->visibleRows()) {
            rows += display()->text().mid(row.begin, row.end - row.begin);
        }
        return rows;
    }

    QString copiedWhole() const
    {
        display()->selectAll();
        display()->copy();
        return QGuiApplication::clipboard()->text();
    }

    ReportTextView view;
};

class KeptTextTest : public ReportTextViewTest, public testing::WithParamInterface<HostileText>
{
};

/// A text and the rows that it is shown in.
struct ShownText {
    std::string name;
    QString text;
    QStringList rows;
};

void PrintTo(const ShownText &shown, std::ostream *stream)
{
    *stream << shown.name;
}

class ShownTextTest : public ReportTextViewTest, public testing::WithParamInterface<ShownText>
{
};

} // namespace

TEST_P(KeptTextTest, TextIsGivenBackExactlyAndShownAndCopiedAsItIs)
{
    const QString &text = GetParam().text;
    view.setString(text);
    EXPECT_EQ(view.string(), text);
    show();
    EXPECT_EQ(view.string(), text);
    EXPECT_EQ(display()->text(), text);
    if (!text.isEmpty()) {
        EXPECT_EQ(copiedWhole(), text);
    }
}

INSTANTIATE_TEST_SUITE_P(, KeptTextTest, testing::ValuesIn(hostileTexts()), nameOf);

TEST_P(ShownTextTest, IsShownInItsRows)
{
    view.setString(GetParam().text);
    show();
    EXPECT_EQ(shownRows(), GetParam().rows);
}

INSTANTIATE_TEST_SUITE_P(
    , ShownTextTest,
    testing::Values(ShownText{"LineFeeds", u"a\nb\n"_s, {u"a"_s, u"b"_s, u""_s}},
                    ShownText{"CarriageReturnLineFeeds", u"a\r\nb\r\n\r\nc"_s, {u"a"_s, u"b"_s, u""_s, u"c"_s}},
                    ShownText{"LoneCarriageReturns", u"a\rb\r\rc"_s, {u"a"_s, u"b"_s, u""_s, u"c"_s}},
                    ShownText{"LineSeparator", u"a\u2028b"_s, {u"a"_s, u"b"_s}},
                    ShownText{"ParagraphSeparator", u"a\u2029b"_s, {u"a"_s, u"b"_s}},
                    ShownText{"OtherControlCharacters", u"a\u000Bb\u000Cc\u0085d"_s, {u"a\u000Bb\u000Cc\u0085d"_s}},
                    ShownText{"Empty", u""_s, {u""_s}}),
    [](const testing::TestParamInfo<ShownText> &given) { return given.param.name; });

TEST_F(ReportTextViewTest, NothingIsMadeBeforeTheViewIsShown)
{
    view.setString(u"a"_s);
    view.setSections({{u"Log"_s, 0}});
    EXPECT_EQ(display(), nullptr);
    EXPECT_TRUE(view.actions().isEmpty());
    show();
    ASSERT_NE(display(), nullptr);
    EXPECT_EQ(shownRows(), QStringList{u"a"_s});
}

TEST_F(ReportTextViewTest, TextIsSharedAndNotCopied)
{
    const QString text(1'000'000, u'x');
    view.setString(text);
    show();
    EXPECT_EQ(view.string().constData(), text.constData());
    EXPECT_EQ(display()->text().constData(), text.constData());
}

TEST_F(ReportTextViewTest, TextCanHaveTheKeyboardAsSoonAsTheViewIsShown)
{
    view.show();
    ASSERT_NE(display(), nullptr);
    EXPECT_TRUE(display()->isVisible());
}

TEST_F(ReportTextViewTest, LettersAreAsLargeAsTheProgramsOthers)
{
    show();
    const QFont usual = QApplication::font();
    QFont large = usual;
    large.setPointSizeF(3 * usual.pointSizeF());
    QApplication::setFont(large);
    EXPECT_TRUE(QTest::qWaitFor([&] { return display()->font().pointSizeF() == large.pointSizeF(); }));
    QApplication::setFont(usual);
    EXPECT_TRUE(QTest::qWaitFor([&] { return display()->font().pointSizeF() < large.pointSizeF(); }));
}

TEST_F(ReportTextViewTest, DisplayIsNamedMonospacedAndLabelled)
{
    show();
    EXPECT_TRUE(QFontInfo(display()->font()).fixedPitch());
    EXPECT_EQ(display()->accessibleName(), u"Report"_s);
    const auto *label = view.findChild<QLabel *>();
    EXPECT_EQ(label->text(), u"&Text that is sent with the report"_s);
    EXPECT_EQ(label->buddy(), display());
}

TEST_F(ReportTextViewTest, CaretStandsAtTheStartOfTheText)
{
    view.setString(u"0123456789abcde\n"_s.repeated(50'000));
    show();
    EXPECT_EQ(display()->caret(), 0);
    QTest::keyClick(display(), Qt::Key_Down);
    EXPECT_EQ(display()->caret(), 16);
    EXPECT_EQ(display()->verticalScrollBar()->value(), 0);
}

TEST_F(ReportTextViewTest, TextThatChangesInViewIsDisplayed)
{
    view.setString(u"a"_s);
    show();
    view.setString(u"b"_s);
    EXPECT_EQ(shownRows(), QStringList{u"b"_s});
}

TEST_F(ReportTextViewTest, TextThatChangesOutOfViewIsDisplayedWhenTheViewIsShownAgain)
{
    view.setString(u"a"_s);
    show();
    view.hide();
    view.setString(u"b"_s);
    view.setSections({{u"Log"_s, 0}});
    view.show();
    EXPECT_EQ(shownRows(), QStringList{u"b"_s});
}

TEST_F(ReportTextViewTest, TextThatWasReplacedOutOfViewIsNotKept)
{
    QString old(1'000, u'x');
    view.setString(old);
    show();
    view.hide();
    view.setString(u"b"_s);
    EXPECT_TRUE(old.isDetached());
}

TEST_F(ReportTextViewTest, ShowingTheViewAgainKeepsTheSelection)
{
    view.setString(u"abc"_s);
    show();
    display()->selectAll();
    view.hide();
    view.show();
    EXPECT_EQ(display()->selection(), (Range{0, 3}));
}

TEST_F(ReportTextViewTest, ControlPageDownAndUpGoFromLogToLog)
{
    view.setString(u"crash\n\nLog 1:\nx\n\nLog 2:\ny\n"_s);
    view.setSections({{u"Log 1"_s, 6}, {u"Log 2"_s, 16}});
    show();
    display()->setFocus();
    QTest::keyClick(display(), Qt::Key_PageDown, Qt::ControlModifier);
    EXPECT_EQ(display()->caret(), 7);
    QTest::keyClick(display(), Qt::Key_PageDown, Qt::ControlModifier);
    EXPECT_EQ(display()->caret(), 17);
    QTest::keyClick(display(), Qt::Key_PageUp, Qt::ControlModifier);
    EXPECT_EQ(display()->caret(), 7);
}

TEST_F(ReportTextViewTest, ActionsOfTheViewStandInTheMenu)
{
    QAction more(u"Copy Report"_s, nullptr);
    view.addAction(&more);
    view.setString(u"abc"_s);
    show();
    QStringList titles;
    QTimer::singleShot(0, [&titles] {
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        for (const QAction *action : menu->actions()) {
            titles += action->text().section(u'\t', 0, 0);
        }
        menu->close();
    });
    QWidget &viewport = *display()->viewport();
    QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(5, 5), viewport.mapToGlobal(QPoint(5, 5)));
    QApplication::sendEvent(&viewport, &event);
    EXPECT_EQ(titles, (QStringList{u"&Copy"_s, u"Select &All"_s, u""_s, u"&Find…"_s, u""_s, u"Copy Report"_s}));
}

TEST_F(ReportTextViewTest, FindInTheMenuOpensTheBar)
{
    view.setString(u"abc"_s);
    show();
    QTimer::singleShot(0, [] {
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        menu->actions().last()->trigger();
        menu->close();
    });
    QWidget &viewport = *display()->viewport();
    QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(5, 5), viewport.mapToGlobal(QPoint(5, 5)));
    QApplication::sendEvent(&viewport, &event);
    const auto *bar = view.findChild<FindBar *>();
    ASSERT_NE(bar, nullptr);
    EXPECT_TRUE(bar->isVisible());
}

TEST_F(ReportTextViewTest, SystemsNewFixedFontIsTakenOn)
{
    view.setString(u"abc"_s);
    show();
    const QFont usual = display()->font();
    QFont other = usual;
    other.setPointSizeF(usual.pointSizeF() * 3);
    display()->setFont(other);

    QEvent change(QEvent::ApplicationFontChange);
    QApplication::sendEvent(&view, &change);

    EXPECT_EQ(display()->font(), usual);
}

TEST_F(ReportTextViewTest, NewTextHasNoSectionsOfTheOldOne)
{
    view.setString(u"crash\n\nLog 1:\n"_s);
    view.setSections({{u"Log 1"_s, 6}});
    show();
    view.setString(u"crash\nand much more"_s);
    display()->setFocus();
    QTest::keyClick(display(), Qt::Key_PageDown, Qt::ControlModifier);
    EXPECT_EQ(display()->caret(), 0);
}

TEST_F(ReportTextViewTest, SectionsOfATextThatWasNeverShownAreForgotten)
{
    view.setString(u"crash\n\nLog 1:\n"_s);
    view.setSections({{u"Log 1"_s, 6}});
    view.setString(u"crash\nand much more"_s);
    show();
    display()->setFocus();
    QTest::keyClick(display(), Qt::Key_PageDown, Qt::ControlModifier);
    EXPECT_EQ(display()->caret(), 0);
}

TEST_F(ReportTextViewTest, DisplayTakesAllOfTheViewBelowTheLabel)
{
    view.resize(700, 500);
    show();
    const auto *label = view.findChild<QLabel *>();
    EXPECT_EQ(label->pos(), QPoint(0, 0));
    EXPECT_EQ(label->height(), label->sizeHint().height());
    EXPECT_EQ(display()->x(), 0);
    EXPECT_EQ(display()->geometry().bottomRight(), view.rect().bottomRight());
    EXPECT_EQ(display()->y(), label->height() + view.layout()->spacing());
}

TEST_F(ReportTextViewTest, LayoutAroundTheViewIsToldOfAnotherTheme)
{
    QWidget around;
    auto *inside = new ReportTextView(&around);
    auto *layout = new QVBoxLayout(&around);
    layout->addWidget(inside);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
    layout->activate();
    QEvent change(QEvent::ThemeChange);
    QApplication::sendEvent(inside, &change);
    EXPECT_TRUE(layout->activate()) << "nothing would be laid out anew";
}

TEST_F(ReportTextViewTest, LeastAndUsualSizesHaveRoomForText)
{
    const QFontMetrics metrics(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    EXPECT_GE(view.sizeHint().width(), 80 * metrics.horizontalAdvance(u'0'));
    EXPECT_GE(view.sizeHint().height(), 16 * metrics.lineSpacing());
    EXPECT_LT(view.minimumSizeHint().width(), view.sizeHint().width());
    EXPECT_GE(view.minimumSizeHint().height(), 4 * metrics.lineSpacing());
}

// Of its frame and margins: half a line above and below, and a column at each side.
TEST_F(ReportTextViewTest, DisplayHasRoomForItsLinesAndWhatIsAroundThem)
{
    const QFontMetrics metrics(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    show();
    view.resize(view.sizeHint());
    QCoreApplication::processEvents();
    EXPECT_EQ(display()->height(), (16 + 1) * metrics.lineSpacing());
    EXPECT_EQ(display()->width(), (80 + 2) * metrics.horizontalAdvance(u'0'));
    view.resize(view.minimumSizeHint());
    QCoreApplication::processEvents();
    EXPECT_EQ(display()->height(), (4 + 1) * metrics.lineSpacing());
}
