// The report window: its controls, focus and keyboard, dropped files and closing.
#include "desktop/reportview/TextDisplay.h"
#include "support/LogLines.h"
#include "support/ReportWindowFixture.h"
#include "support/StyleWithAnimationsOf.h"

#include <QAbstractScrollArea>
#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QDragEnterEvent>
#include <QMimeData>
#include <QRegion>
#include <QScrollBar>
#include <QTransform>
#include <QUrl>

#include <algorithm>
#include <initializer_list>
#include <numeric>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr auto kHeadline =
    "The client running on %1 crashed the last time it ran. Please submit a bug report so we can "
    "prevent this occurring in future.";

QString headlineNaming(const QString &name)
{
    return QString::fromLatin1(kHeadline).arg(name);
}

class ReportWindowTest : public ReportWindowFixture
{
protected:
    /// What a label shows, without the characters that only say where a line may end and which way it runs.
    static QString shownIn(const QLabel &label) { return label.text().remove(QChar(0x200B)).remove(QChar(0x200E)); }

    QLabel &summary = child<QLabel>(window, "summary");
};

QString accessibleName(QWidget &widget)
{
    return QAccessible::queryAccessibleInterface(&widget)->text(QAccessible::Name);
}

/// The names of the controls that the keyboard goes to while the object lives.
class KeyboardJourney
{
public:
    KeyboardJourney()
    {
        connection = QObject::connect(qApp, &QApplication::focusChanged, [this](QWidget * /*from*/, QWidget *to) {
            visited += to ? accessibleName(*to) : QString();
        });
    }
    ~KeyboardJourney() { QObject::disconnect(connection); }

    QStringList visited;

private:
    QMetaObject::Connection connection;
};

/// The pixels that are more red than anything else.
QRegion redIn(const QImage &image)
{
    QRegion red;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor color = image.pixelColor(x, y);
            if (color.red() > 2 * std::max(color.green(), color.blue())) {
                red += QRect(x, y, 1, 1);
            }
        }
    }
    return red;
}

int areaOf(const QRegion &region)
{
    return std::accumulate(region.begin(), region.end(), 0,
                           [](int area, const QRect &part) { return area + part.width() * part.height(); });
}

/// How often anything was called that asks to be called in each turn of the event loop.
class TurnCounter : public QObject
{
public:
    TurnCounter() { qApp->installEventFilter(this); }

    bool eventFilter(QObject *object, QEvent *event) override
    {
        const auto *timer = qobject_cast<QTimer *>(object);
        turns += timer && timer->interval() == 0 && event->type() == QEvent::Timer ? 1 : 0;
        return false;
    }

    int turns = 0;
};

class PaintCounter : public QObject
{
public:
    bool eventFilter(QObject * /*object*/, QEvent *event) override
    {
        paints += event->type() == QEvent::Paint ? 1 : 0;
        return false;
    }

    int paints = 0;
};

} // namespace

// The window as a whole

TEST_F(ReportWindowTest, WindowIsAnOrdinaryOneWithTheProductsTitleAndIcon)
{
    EXPECT_EQ(window.windowTitle(), u"Korvale Crash Reporter"_s);
    EXPECT_FALSE(window.windowIcon().pixmap(48, 48).isNull());
    EXPECT_EQ(window.windowType(), Qt::Window);
    const Qt::WindowFlags refused = Qt::CustomizeWindowHint;
    EXPECT_FALSE(window.windowFlags() & refused);
}

TEST_F(ReportWindowTest, IconIsDrawnForEachSizeThatAWindowShows)
{
    const QFileInfoList files = QDir(u":/icons"_s).entryInfoList({u"*.png"_s});
    ASSERT_GE(files.size(), 6);
    for (const QFileInfo &file : files) {
        const QPixmap drawn(file.filePath());
        EXPECT_EQ(window.windowIcon().pixmap(drawn.size()).toImage(), drawn.toImage()) << file.fileName().toStdString();
    }
}

TEST_F(ReportWindowTest, ControlsAreFoundByTheirAccessibleNames)
{
    show();
    toggleDisclosure();
    controls.initialInfo.setStringValue(u"Plovrin crashed."_s);

    EXPECT_EQ(accessibleName(email), u"E-mail address"_s);
    EXPECT_EQ(accessibleName(description), u"Description"_s);
    EXPECT_EQ(accessibleName(triangle), u"Report details"_s);
    EXPECT_EQ(accessibleName(*reportText.findChild<reportview::TextDisplay *>()), u"Report"_s);
    EXPECT_EQ(accessibleName(spinner), u"Sending"_s);
    EXPECT_EQ(accessibleName(second), u"Don't Send"_s);
    EXPECT_EQ(accessibleName(submit), u"Report Crash"_s);
    EXPECT_EQ(accessibleName(headline), u"Plovrin crashed."_s);
}

TEST_F(ReportWindowTest, ReportIsLabelledAndAloneHasTheFocus)
{
    show();
    toggleDisclosure();
    auto &display = *reportText.findChild<reportview::TextDisplay *>();
    display.setFocus();

    QAccessibleInterface *const accessible = QAccessible::queryAccessibleInterface(&display);
    QStringList labels;
    for (const auto &[related, relation] : accessible->relations(QAccessible::Label)) {
        labels += related->text(QAccessible::Name);
    }
    EXPECT_EQ(labels, QStringList{u"Text that is sent with the report"_s});
    EXPECT_TRUE(accessible->state().focused);
    EXPECT_FALSE(QAccessible::queryAccessibleInterface(&reportText)->state().focused);
}

TEST_F(ReportWindowTest, TriangleIsAButtonThatExpandsAndCollapses)
{
    show();
    QAccessibleInterface *const accessible = QAccessible::queryAccessibleInterface(&triangle);
    EXPECT_EQ(accessible->role(), QAccessible::Button);
    EXPECT_TRUE(accessible->state().expandable);
    EXPECT_TRUE(accessible->state().collapsed);
    EXPECT_FALSE(accessible->state().expanded);
    EXPECT_EQ(accessible->actionInterface()->actionNames().constFirst(), u"Expand"_s);

    accessible->actionInterface()->doAction(u"Expand"_s);
    EXPECT_FALSE(controls.logView.isHidden());
    EXPECT_TRUE(accessible->state().expanded);
    EXPECT_FALSE(accessible->state().collapsed);
    EXPECT_EQ(accessible->actionInterface()->actionNames().constFirst(), u"Collapse"_s);

    email.setFocus();
    accessible->actionInterface()->doAction(QAccessibleActionInterface::setFocusAction());
    EXPECT_TRUE(hasFocus(triangle));
}

TEST_F(ReportWindowTest, ItsActionsAreFoundByAnyone)
{
    show();
    QAccessibleActionInterface *const actions = QAccessible::queryAccessibleInterface(&window)->actionInterface();
    ASSERT_EQ(window.actions().size(), 1);
    const QString copy = window.actions().constFirst()->text();
    EXPECT_EQ(actions->actionNames().constFirst(), copy);

    QGuiApplication::clipboard()->setText(u"nothing was copied"_s);
    actions->doAction(u"no such action"_s);
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"nothing was copied"_s);
    actions->doAction(copy);
    EXPECT_TRUE(QGuiApplication::clipboard()->text().endsWith(u"Process: Harbour\n"_s));

    QWidget other;
    other.show();
    other.activateWindow();
    ASSERT_TRUE(eventually([&other] { return other.isActiveWindow(); }));
    actions->doAction(QAccessibleActionInterface::setFocusAction());
    EXPECT_TRUE(eventually([this] { return window.isActiveWindow(); })) << "what every window can do";
}

TEST_F(ReportWindowTest, SpinnerIsAProgressBarThatIsBusyWhileSending)
{
    show();
    QAccessibleInterface *const accessible = QAccessible::queryAccessibleInterface(&spinner);
    EXPECT_EQ(accessible->role(), QAccessible::ProgressBar);
    EXPECT_FALSE(accessible->state().busy);
    startSending();
    EXPECT_TRUE(accessible->state().busy);
    EXPECT_TRUE(accessible->state().focusable);

    QAccessibleValueInterface *const value = accessible->valueInterface();
    EXPECT_EQ(value->minimumValue(), QVariant(0));
    EXPECT_EQ(value->minimumStepSize(), QVariant());
    const QVariant before = value->currentValue();
    value->setCurrentValue(5);
    EXPECT_EQ(value->currentValue(), before) << "nobody but the transfer moves it";
}

TEST_F(ReportWindowTest, WindowComesUpFromTheTaskBar)
{
    window.showMinimized();
    controls.mainWindow.makeKeyAndOrderFront(nullptr);
    EXPECT_TRUE(window.isVisible());
    EXPECT_FALSE(window.isMinimized());
}

TEST_F(ReportWindowTest, WindowTakesTheKeyboardFromAnotherOne)
{
    show();
    QWidget other;
    other.show();
    other.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&other));
    controls.mainWindow.makeKeyAndOrderFront(nullptr);
    EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
}

TEST_F(ReportWindowTest, ReportStandsInLineWithTheFormAndBelowItWithoutSpace)
{
    show();
    toggleDisclosure();
    EXPECT_EQ(reportText.mapTo(&pane, QPoint()).y(), 0);
    EXPECT_EQ(reportText.mapTo(&window, QPoint()).x(), email.mapTo(&window, QPoint()).x());
    EXPECT_GT(reportText.x(), 0);
    EXPECT_EQ(controls.logView.frame(),
              (platform::Rect{0, 0, static_cast<double>(window.width()), controls.logView.frame().height}));
}

TEST_F(ReportWindowTest, WindowAtRestDoesNothing)
{
    StyleWithAnimationsOf style(0);
    window.setStyle(&style);
    show();
    toggleDisclosure();
    startSending();
    cancel();
    ASSERT_TRUE(eventually([this] { return window.minimumHeight() > form.height() - description.height(); }));
    TurnCounter turns;
    for (int turn = 0; turn < 5; ++turn) {
        QCoreApplication::processEvents();
    }
    EXPECT_EQ(turns.turns, 0);
    window.setStyle(nullptr);
}

TEST_F(ReportWindowTest, WindowIsPaintedAgainWithTheSameFrameWhereThatIsAskedFor)
{
    show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    QCoreApplication::processEvents();
    const platform::Rect frame = controls.mainWindow.frame();
    for (const auto display : {platform::Display::Off, platform::Display::On}) {
        PaintCounter counter;
        window.installEventFilter(&counter);

        controls.mainWindow.setFrameDisplayAnimate(frame, display, platform::Animation::Off);
        QCoreApplication::processEvents();

        EXPECT_EQ(counter.paints > 0, display == platform::Display::On);
    }
}

TEST_F(ReportWindowTest, IconIsTheWindows)
{
    show();
    auto &icon = child<QWidget>(window, "iconView");
    QPixmap red(64, 64);
    red.fill(Qt::red);
    window.setWindowIcon(red);
    const QImage shown = icon.grab().toImage();
    const QPoint centre(icon.sizeHint().width() / 2, icon.sizeHint().height() / 2);
    EXPECT_EQ(shown.pixelColor(centre), QColor(Qt::red));
    EXPECT_EQ(shown.pixelColor(0, 0), QColor(Qt::red));
}

TEST_F(ReportWindowTest, IconIsThreeLinesHighHoweverWideTheWindowIs)
{
    show();
    window.resize(2 * window.width(), window.height());
    const auto &icon = child<QWidget>(window, "iconView");
    EXPECT_EQ(icon.sizeHint(), QSize(3, 3) * icon.fontMetrics().height());
    EXPECT_EQ(icon.minimumSizeHint(), icon.sizeHint());
    EXPECT_EQ(icon.width(), icon.sizeHint().width());
}

// What would be sent, and where to

TEST_F(ReportWindowTest, SummarySaysWhatWouldBeSentAndWhereTo)
{
    window.setReportSummary({u"/logs/Harbour_1.crash"_s, 52'400, 4, u"crash.example.org"_s});
    const QString expected = u"Harbour_1.crash (52.4 kB, with 4 application logs), sent to crash.example.org"_s;
    EXPECT_EQ(shownIn(summary), expected);
    EXPECT_EQ(accessibleName(summary), expected);
    EXPECT_EQ(triangle.accessibleDescription(), expected);
    EXPECT_EQ(summary.textFormat(), Qt::PlainText);
}

TEST_F(ReportWindowTest, SummaryFollowsAnotherFile)
{
    window.setReportSummary({u"/logs/Harbour_1.crash"_s, 52'400, 1, u"crash.example.org"_s});
    EXPECT_EQ(shownIn(summary), u"Harbour_1.crash (52.4 kB, with 1 application log), sent to crash.example.org"_s);
    window.setReportSummary({u"/logs/Beacon_2.crash"_s, 7, 0, u"crash.example.org"_s});
    EXPECT_EQ(shownIn(summary), u"Beacon_2.crash (7 bytes), sent to crash.example.org"_s);
}

TEST_F(ReportWindowTest, SummaryIsAlsoItsToolTipAndDescription)
{
    ReportSummary empty;
    empty.logFile = u"/logs/Beacon_2.crash"_s;
    empty.host = u"crash.example.org"_s;
    window.setReportSummary(empty);
    const QString expected = u"Beacon_2.crash (0 bytes), sent to crash.example.org"_s;
    EXPECT_EQ(shownIn(summary), expected);
    EXPECT_FALSE(summary.isHidden());
    EXPECT_EQ(readText(summary.toolTip()).remove(QChar(0x200B)), expected);
    EXPECT_EQ(summary.accessibleDescription(), expected);
}

TEST_F(ReportWindowTest, SummaryShowsTheTwoEndsOfALongName)
{
    const QString start(30, u'a');
    const QString end(30, u'b');
    window.setReportSummary({start + end, 7, 0, start + end});
    EXPECT_EQ(shownIn(summary), start + end + u" (7 bytes), sent to "_s + start + end);
    window.setReportSummary({start + u'c' + end, 7, 0, start + u'c' + end});
    EXPECT_EQ(shownIn(summary), start + u'…' + end + u" (7 bytes), sent to "_s + start + u'…' + end);
}

TEST_F(ReportWindowTest, SummaryMakesAHostileNameHarmless)
{
    show();
    const QSize size = window.size();
    window.setReportSummary({u"/logs/<b>x\u202e\n"_s + QString(250, u'W') + u".crash"_s, 7, 0, u"crash.example.org"_s});
    QCoreApplication::sendPostedEvents();
    EXPECT_TRUE(shownIn(summary).startsWith(u"<b>x  WWW"_s));
    EXPECT_TRUE(shownIn(summary).endsWith(u"W.crash (7 bytes), sent to crash.example.org"_s));
    EXPECT_EQ(window.width(), size.width());
    EXPECT_TRUE(accessibleName(summary).contains(QString(250, u'W')));
}

TEST_F(ReportWindowTest, ProgressIsKnownOnlyWhileSomethingButNotAllHasGone)
{
    show();
    window.setUploadProgress(5, 10);
    EXPECT_EQ(spinner.maximum(), 0) << "before sending";
    startSending();
    QAccessibleValueInterface *const progress = QAccessible::queryAccessibleInterface(&spinner)->valueInterface();
    ASSERT_NE(progress, nullptr);
    window.setUploadProgress(0, 400);
    EXPECT_EQ(spinner.maximum(), 0);
    EXPECT_EQ(progress->currentValue().toInt(), 0);
    window.setUploadProgress(100, 400);
    EXPECT_EQ(progress->currentValue().toInt(), 25);
    EXPECT_EQ(progress->maximumValue().toInt(), 100);
    window.setUploadProgress(400, 400);
    EXPECT_EQ(spinner.maximum(), 0);
    window.setUploadProgress(100, 400);
    refuse();
    EXPECT_EQ(spinner.maximum(), 0);
}

TEST_F(ReportWindowTest, CopyReportTakesWhatWouldBeSent)
{
    show();
    window.copyReport();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"Report:\nProcess: Harbour\n"_s);
    QTest::keyClicks(&email, u"ada@example.org"_s);
    description.setPlainText(u"It froze."_s);
    startSending();
    QTest::keyClick(&spinner, Qt::Key_C, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(QGuiApplication::clipboard()->text(),
              u"E-mail address:\nada@example.org\n\nDescription:\nIt froze.\n\nReport:\nProcess: Harbour\n"_s);
}

TEST_F(ReportWindowTest, CopyReportLeavesTheClipboardAloneWhereThereIsNoReport)
{
    QGuiApplication::clipboard()->setText(u"somebody's"_s);
    controls.logText.setString(QString());
    window.copyReport();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"somebody's"_s);
}

TEST_F(ReportWindowTest, CopyReportMakesOfHalfACharacterWhatIsSentOfIt)
{
    for (const QString &half : {QString(QChar(0xD83D)), QString(QChar(0xDE00))}) {
        controls.logText.setString(half + u"a\U0001F600"_s + half);
        window.copyReport();
        EXPECT_EQ(QGuiApplication::clipboard()->text(), u"Report:\n\uFFFDa\U0001F600\uFFFD"_s);
    }
}

TEST_F(ReportWindowTest, CopyReportIsAnActionOfTheWindowAndOfThePane)
{
    show();
    EXPECT_EQ(reportText.actions().constFirst()->text(), u"Copy Report"_s);
    QAccessibleActionInterface *const actions = QAccessible::queryAccessibleInterface(&window)->actionInterface();
    QGuiApplication::clipboard()->clear();
    actions->doAction(u"Copy Report"_s);
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"Report:\nProcess: Harbour\n"_s);
}

// Headline

TEST_F(ReportWindowTest, HeadlineShowsMarkupAsPlainText)
{
    controls.initialInfo.setStringValue(headlineNaming(u"<b>a & b</b>"_s));
    EXPECT_EQ(headline.textFormat(), Qt::PlainText);
    EXPECT_EQ(accessibleName(headline), headlineNaming(u"<b>a & b</b>"_s));
}

TEST_F(ReportWindowTest, HeadlineShowsControlAndDirectionCharactersAsSpaces)
{
    controls.initialInfo.setStringValue(u"a\nb\u001bc\u202ed\u2028e\u2067f\u200fg"_s);
    EXPECT_EQ(shownIn(headline), u"a b c d e f g"_s);
    EXPECT_EQ(accessibleName(headline), u"a b c d e f g"_s);
}

TEST_F(ReportWindowTest, HeadlineRunsFromLeftToRightWhateverTheNameIsWrittenIn)
{
    controls.initialInfo.setStringValue(u"\u05d0\u05d1 crashed."_s);
    EXPECT_FALSE(headline.text().isRightToLeft());
}

TEST_F(ReportWindowTest, HeadlineIsBoldAndUsesSeveralLinesForALongText)
{
    controls.initialInfo.setStringValue(headlineNaming(u"plovrin"_s));
    EXPECT_TRUE(headline.font().bold());
    EXPECT_GT(headline.heightForWidth(headline.minimumSizeHint().width()), headline.fontMetrics().lineSpacing());
}

TEST_F(ReportWindowTest, HeadlineShowsTheTwoEndsOfALongText)
{
    const QString start(90, u'a');
    const QString end(110, u'b');
    controls.initialInfo.setStringValue(start + end);
    EXPECT_EQ(shownIn(headline), start + end);
    controls.initialInfo.setStringValue(start + u'c' + end);
    EXPECT_EQ(shownIn(headline), start + u'…' + end);
    EXPECT_EQ(headline.accessibleDescription(), start + u'c' + end);
}

class ReportWindowWithLongNameTest : public ReportWindowTest, public testing::WithParamInterface<NamedText>
{
};

TEST_P(ReportWindowWithLongNameTest, WindowKeepsItsWidthAndItsControls)
{
    show();
    const QSize size = window.size();
    controls.initialInfo.setStringValue(headlineNaming(GetParam().text));

    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(window.size(), size);
    EXPECT_LE(window.minimumWidth(), size.width());
    EXPECT_LE(headline.height(), 5 * headline.fontMetrics().lineSpacing());
    EXPECT_LE(headline.heightForWidth(headline.width()), headline.height());
    EXPECT_TRUE(window.rect().contains(submit.mapTo(&window, submit.rect().bottomRight())));
    EXPECT_GE(description.height(), description.minimumSizeHint().height());
    EXPECT_GE(email.height(), email.minimumSizeHint().height());
}

TEST_P(ReportWindowWithLongNameTest, BothEndsOfTheSentenceStayInView)
{
    show();
    controls.initialInfo.setStringValue(headlineNaming(GetParam().text));
    const QString shown = shownIn(headline);
    EXPECT_TRUE(shown.startsWith(u"The client running on "_s));
    EXPECT_TRUE(shown.contains(u'…'));
    EXPECT_TRUE(shown.endsWith(headlineNaming(QString()).mid(int(sizeof("The client running on")))));
    EXPECT_TRUE(shown.isValidUtf16());
}

TEST_P(ReportWindowWithLongNameTest, AScreenReaderIsGivenTheWholeSentence)
{
    const QString visible = QString(GetParam().text).replace(u'\n', u' ');
    controls.initialInfo.setStringValue(headlineNaming(GetParam().text));
    EXPECT_EQ(accessibleName(headline), headlineNaming(visible));
}

TEST_P(ReportWindowWithLongNameTest, WhatIsNotShownIsAToolTipThatShowsTheTextAsItIs)
{
    controls.initialInfo.setStringValue(headlineNaming(u"<i>"_s + GetParam().text));
    EXPECT_TRUE(headline.toolTip().startsWith(u"<qt>The client running on &lt;i&gt;"_s));
    EXPECT_LT(headline.toolTip().size(), 3000);
}

INSTANTIATE_TEST_SUITE_P(, ReportWindowWithLongNameTest,
                         testing::Values(NamedText{{"OneWord"}, QString(10'000, u'W')},
                                         NamedText{{"ManyWords"}, u"a b "_s.repeated(2'500)},
                                         NamedText{{"LineFeeds"}, QString(10'000, u'\n') + u"W"_s},
                                         NamedText{{"Emoji"}, u"\U0001F4A5"_s.repeated(5'000)}),
                         nameOfCase);

TEST_F(ReportWindowTest, HeadlineOfUsualLengthIsShownWholeAndHasNoToolTip)
{
    const QString text = headlineNaming(u"build-17.lab.example.org"_s);
    controls.initialInfo.setStringValue(text);
    EXPECT_EQ(shownIn(headline), text);
    EXPECT_EQ(headline.toolTip(), QString());
}

// Focus and keyboard

TEST_F(ReportWindowTest, FirstFocusIsTheAddress)
{
    show();
    EXPECT_TRUE(hasFocus(email));
}

TEST_F(ReportWindowTest, TabVisitsTheControlsInReadingOrderAndLeavesTheDescription)
{
    show();
    QStringList visited;
    for (int press = 0; press < 5; ++press) {
        QTest::keyClick(window.focusWidget(), Qt::Key_Tab);
        visited += window.focusWidget()->objectName();
    }
    EXPECT_EQ(visited,
              (QStringList{u"infoText"_s, u"disclosureBtn"_s, u"secondBtn"_s, u"submitBtn"_s, u"emailText"_s}));
}

TEST_F(ReportWindowTest, TabReachesTheReportWhenItIsShown)
{
    show();
    toggleDisclosure();
    startSending();
    refuse();
    description.setFocus();
    QList<QWidget *> visited;
    for (int press = 0; press < 5; ++press) {
        QTest::keyClick(window.focusWidget(), Qt::Key_Tab);
        visited += window.focusWidget();
    }
    const QList<QWidget *> expected{&triangle, &second, &submit, reportText.findChild<reportview::TextDisplay *>(),
                                    &description};
    EXPECT_EQ(visited, expected);
}

TEST_F(ReportWindowTest, EnterInTheAddressSubmits)
{
    show();
    QTest::keyClick(&email, Qt::Key_Return);
    EXPECT_EQ(submissions.count(), 1);
}

TEST_F(ReportWindowTest, ReturnInTheDescriptionBeginsALine)
{
    show();
    description.setFocus();
    QTest::keyClicks(&description, u"a"_s);
    QTest::keyClick(&description, Qt::Key_Return);
    QTest::keyClicks(&description, u"b"_s);
    EXPECT_EQ(controls.infoText.string(), u"a\nb"_s);
    EXPECT_EQ(submissions.count(), 0);
}

TEST_F(ReportWindowTest, ControlReturnInTheDescriptionSubmits)
{
    show();
    description.setFocus();
    QTest::keyClick(&description, Qt::Key_Return, Qt::ControlModifier);
    EXPECT_EQ(submissions.count(), 1);
    EXPECT_EQ(controls.infoText.string(), QString());
}

TEST_F(ReportWindowTest, ControlReturnSubmitsFromTheDescriptionAloneAndNotWhileItIsHeld)
{
    show();
    triangle.setFocus();
    QTest::keyClick(&triangle, Qt::Key_Return, Qt::ControlModifier);
    description.setFocus();
    QTest::simulateEvent(&description, true, Qt::Key_Return, Qt::ControlModifier, u"\r"_s, true);
    EXPECT_EQ(submissions.count(), 0);
}

TEST_F(ReportWindowTest, ReturnInTheLockedDescriptionDoesNotSubmit)
{
    show();
    startSending();
    refuse();
    description.setFocus();
    QTest::keyClick(&description, Qt::Key_Return);
    EXPECT_EQ(submissions.count(), 0);
}

TEST_F(ReportWindowTest, EnterOnTheSecondButtonCancelsAndDoesNotSubmit)
{
    show();
    startSending();
    refuse();
    second.setFocus();
    QTest::keyClick(&second, Qt::Key_Return);
    EXPECT_EQ(cancellations.count(), 1);
    EXPECT_EQ(submissions.count(), 0);
}

TEST_F(ReportWindowTest, ReturnPressedAgainWhileSendingDoesNothing)
{
    show();
    QTest::keyClick(&email, Qt::Key_Return);
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Space}) {
        QTest::keyClick(window.focusWidget(), key);
        QCoreApplication::processEvents();
    }
    EXPECT_EQ(window.state(), ReportWindow::State::Sending);
    EXPECT_TRUE(hasFocus(spinner));
    EXPECT_EQ(submissions.count(), 1);
    EXPECT_EQ(cancellations.count(), 0);
}

TEST_F(ReportWindowTest, EscapeDoesNothingWhileThereIsNothingToCancel)
{
    show();
    QTest::keyClicks(&email, u"ada"_s);
    QTest::keyClick(&email, Qt::Key_Escape);
    EXPECT_TRUE(window.isVisible());
    EXPECT_EQ(email.text(), u"ada"_s);
    EXPECT_EQ(cancellations.count(), 0);
}

TEST_F(ReportWindowTest, EscapeCancelsOnceAndClosesNothing)
{
    show();
    startSending();
    QTest::keyClick(window.focusWidget(), Qt::Key_Escape);
    QTest::keyClick(window.focusWidget(), Qt::Key_Escape);
    waitUntilShown(ReportWindow::State::Editing);
    QTest::keyClick(window.focusWidget(), Qt::Key_Escape);
    EXPECT_TRUE(window.isVisible());
    EXPECT_EQ(cancellations.count(), 1);
}

TEST_F(ReportWindowTest, EscapeUnlocksTheFormAfterARefusal)
{
    show();
    startSending();
    refuse();
    QTest::keyClick(window.focusWidget(), Qt::Key_Escape);
    waitUntilShown(ReportWindow::State::Editing);
    EXPECT_TRUE(email.isEnabled());
}

TEST_F(ReportWindowTest, EveryControlHasItsMnemonic)
{
    show();
    QTest::keyClick(&window, Qt::Key_S, Qt::AltModifier);
    EXPECT_TRUE(hasFocus(description));
    QTest::keyClick(&window, Qt::Key_E, Qt::AltModifier);
    EXPECT_TRUE(hasFocus(email));
    QTest::keyClick(&window, Qt::Key_D, Qt::AltModifier);
    EXPECT_TRUE(eventually([this] { return !controls.logView.isHidden(); }));
    QTest::keyClick(&window, Qt::Key_T, Qt::AltModifier);
    EXPECT_TRUE(reportText.isAncestorOf(window.focusWidget()));
    QTest::keyClick(&window, Qt::Key_R, Qt::AltModifier);
    EXPECT_TRUE(eventually([this] { return submissions.count() == 1; }));
    QTest::keyClick(&window, Qt::Key_C, Qt::AltModifier);
    EXPECT_TRUE(eventually([this] { return cancellations.count() == 1; }));
    startSending();
    refuse();
    QTest::keyClick(&window, Qt::Key_P, Qt::AltModifier);
    EXPECT_TRUE(eventually([this] { return cancellations.count() == 2; }));
    waitUntilShown(ReportWindow::State::Editing);
    QTest::keyClick(&window, Qt::Key_N, Qt::AltModifier);
    EXPECT_TRUE(eventually([this] { return closings.count() == 1; }));
}

TEST_F(ReportWindowTest, FoldingThePaneThatHasTheFocusLeavesItWithTheTriangle)
{
    show();
    toggleDisclosure();
    reportText.findChild<reportview::TextDisplay *>()->setFocus();
    QTest::keyClick(window.focusWidget(), Qt::Key_D, Qt::AltModifier);
    ASSERT_TRUE(eventually([this] { return controls.logView.isHidden(); }));
    EXPECT_TRUE(hasFocus(triangle));
}

// The sending state

TEST_F(ReportWindowTest, SecondButtonFollowsTheState)
{
    show();
    EXPECT_EQ(accessibleName(second), u"Don't Send"_s);
    startSending();
    EXPECT_EQ(accessibleName(second), u"Cancel"_s);
    refuse();
    EXPECT_EQ(accessibleName(second), u"Edit Report"_s);
    startSending();
    EXPECT_EQ(accessibleName(second), u"Cancel"_s);
    cancel();
    EXPECT_EQ(accessibleName(second), u"Don't Send"_s);
}

TEST_F(ReportWindowTest, DontSendClosesAndCancelsNothing)
{
    show();
    second.click();
    EXPECT_FALSE(window.isVisible());
    EXPECT_EQ(closings.count(), 1);
    EXPECT_EQ(cancellations.count(), 0);
}

TEST_F(ReportWindowTest, SecondClickOfADoubleClickOnCancelClosesNothing)
{
    show();
    startSending();
    QTest::mouseClick(&second, Qt::LeftButton);
    waitUntilShown(ReportWindow::State::Editing);
    // The toolkit's own double click lacks the release, which is what presses the button.
    QTest::mouseDClick(&second, Qt::LeftButton);
    QTest::mouseRelease(&second, Qt::LeftButton);
    EXPECT_EQ(closings.count(), 0);
    EXPECT_TRUE(window.isVisible());
}

TEST_F(ReportWindowTest, DoubleClickInTheAddressSelectsAWord)
{
    show();
    QTest::keyClicks(&email, u"ada"_s);
    const int cursor = email.inputMethodQuery(Qt::ImCursorRectangle).toRect().center().x();
    const QPoint inTheWord(cursor / 2, email.height() / 2);
    QTest::mouseDClick(&email, Qt::LeftButton, {}, inTheWord);
    EXPECT_EQ(email.selectedText(), u"ada"_s);
}

TEST_F(ReportWindowTest, WhatEachControlIsToldIsShown)
{
    show();
    controls.infoText.setEditable(false);
    EXPECT_TRUE(eventually([this] { return description.isReadOnly(); }));
    EXPECT_EQ(window.state(), ReportWindow::State::Editing);
    EXPECT_TRUE(email.isEnabled());
    EXPECT_TRUE(submit.isEnabled());
    controls.submitBtn.setEnabled(false);
    EXPECT_TRUE(eventually([this] { return !submit.isEnabled(); }));
    controls.emailText.setEnabled(false);
    waitUntilShown(ReportWindow::State::AwaitingRetry);
    EXPECT_FALSE(email.isEnabled());
    controls.spinner.startAnimation(nullptr);
    waitUntilShown(ReportWindow::State::Sending);
    controls.spinner.stopAnimation(nullptr);
    waitUntilShown(ReportWindow::State::AwaitingRetry);
}

TEST_F(ReportWindowTest, StalledUploadIsSendingUntilItIsCancelled)
{
    recorded.urlLoader.canCreate = false;
    show();
    startSending();
    EXPECT_FALSE(submit.isEnabled());
    EXPECT_TRUE(hasFocus(spinner));
    second.click();
    waitUntilShown(ReportWindow::State::Editing);
    EXPECT_TRUE(submit.isEnabled());
}

TEST_F(ReportWindowTest, AcceptedReportLeavesTheWindowSendingUntilItsEnd)
{
    show();
    startSending();
    const KeyboardJourney journey;
    QEventLoop loop;
    // As the application ends: asked for within the callback, and carried out by the event loop.
    recorded.calls.on("application terminate",
                      [&loop] { QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection); });
    QMetaObject::invokeMethod(
        &window, [this] { controller.connectionDidFinishLoading(*controller.connection); }, Qt::QueuedConnection);
    loop.exec();

    EXPECT_EQ(submit.text(), u"Sending..."_s);
    EXPECT_FALSE(submit.isEnabled());
    EXPECT_TRUE(spinner.isTurning());
    EXPECT_TRUE(hasFocus(spinner));
    EXPECT_EQ(second.text(), u"&Cancel"_s);
    EXPECT_EQ(journey.visited, QStringList());
}

TEST_F(ReportWindowTest, WhatChangedBeforeItWasSendingGivesTheFormBackNoSooner)
{
    show();
    controls.infoText.setEditable(true);
    submitReport();
    QCoreApplication::processEvents();
    controls.spinner.stopAnimation(nullptr);
    QCoreApplication::processEvents();
    EXPECT_TRUE(spinner.isTurning()) << "one turn of the event loop later";
    waitUntilShown(ReportWindow::State::AwaitingRetry);
    EXPECT_FALSE(spinner.isTurning());
}

TEST_F(ReportWindowTest, FormIsLockedAsSoonAsTheReportIsSubmitted)
{
    show();
    submitReport();
    EXPECT_FALSE(email.isEnabled());
    EXPECT_TRUE(description.isReadOnly());
    EXPECT_FALSE(submit.isEnabled());
    EXPECT_TRUE(hasFocus(spinner));
}

TEST_F(ReportWindowTest, SendingLocksTheFormAndTurnsTheSpinner)
{
    show();
    startSending();
    EXPECT_FALSE(email.isEnabled());
    EXPECT_TRUE(description.isReadOnly());
    EXPECT_TRUE(description.isEnabled());
    EXPECT_EQ(description.viewport()->backgroundRole(), QPalette::Window);
    EXPECT_FALSE(submit.isEnabled());
    EXPECT_EQ(submit.text(), u"Sending..."_s);
    EXPECT_TRUE(spinner.isVisible());
    EXPECT_TRUE(spinner.isTurning());
}

TEST_F(ReportWindowTest, LockedFieldsLookAlike)
{
    show();
    startSending();
    for (const QPalette::ColorRole background : {QPalette::Window, QPalette::WindowText}) {
        QPalette palette = QApplication::palette();
        palette.setColor(background, Qt::darkGreen);
        window.setPalette(palette);
        EXPECT_EQ(email.palette().color(QPalette::Disabled, QPalette::Text),
                  description.palette().color(QPalette::Active, QPalette::Text));
        EXPECT_EQ(email.palette().color(QPalette::Disabled, QPalette::Base),
                  description.viewport()->palette().color(QPalette::Active, description.viewport()->backgroundRole()));
    }
}

TEST_F(ReportWindowTest, FieldsOfTheWindowsOwnColourHaveFramesInTheColourOfItsText)
{
    QPalette palette(Qt::yellow, Qt::black);
    palette.setColor(QPalette::Base, Qt::black);
    window.setPalette(palette);
    show();
    // Where the keyboard is, the frame has another colour.
    startSending();
    for (QWidget *widget : std::initializer_list<QWidget *>{&email, &description, &second}) {
        // At the left edge, where nothing but the frame is.
        const QColor frame = widget->grab().toImage().pixelColor(0, widget->height() / 2);
        EXPECT_GE(frame.red(), QColor(Qt::yellow).darker(200).red()) << widget->objectName().toStdString();
    }
    EXPECT_EQ(description.viewport()->grab().toImage().pixelColor(0, 0), QColor(Qt::black)) << "locked";
}

TEST_F(ReportWindowTest, CornerBetweenScrollBarsHasTheWindowsColourWhateverTheFramesHave)
{
    QPalette palette(Qt::yellow, Qt::black);
    palette.setColor(QPalette::Base, Qt::black);
    window.setPalette(palette);
    const QString wideAndHigh = QString(30'000, u'x') + QString(100, u'\n');
    show();
    toggleDisclosure();
    controls.logText.setString(wideAndHigh);
    description.setPlainText(wideAndHigh);
    auto &display = *reportText.findChild<QAbstractScrollArea *>();
    ASSERT_TRUE(eventually([&] { return window.height() == static_cast<int>(controls.mainWindow.frame().height); }));
    for (QAbstractScrollArea *area : std::initializer_list<QAbstractScrollArea *>{&description, &display}) {
        const QPoint corner(area->verticalScrollBar()->mapTo(&window, QPoint(5, 0)).x(),
                            area->horizontalScrollBar()->mapTo(&window, QPoint(0, 5)).y());
        ASSERT_TRUE(area->verticalScrollBar()->isVisible() && area->horizontalScrollBar()->isVisible());
        EXPECT_EQ(window.grab().toImage().pixelColor(corner), QColor(Qt::black)) << area->metaObject()->className();
    }
}

class ScaledWindowTest : public ReportWindowTest, public testing::WithParamInterface<double>
{
protected:
    /// The window as a display of that scale shows it.
    QImage picture()
    {
        QImage image(window.size() * GetParam(), QImage::Format_RGB32);
        image.setDevicePixelRatio(GetParam());
        window.render(&image);
        return image;
    }

    /// Whether one of the pixels around this point of the window is at least half as bright as the frame's colour.
    static bool isFrameNear(const QImage &image, QPoint point)
    {
        const QPoint center = (QPointF(point) * image.devicePixelRatio()).toPoint();
        for (int y = center.y() - 2; y <= center.y() + 2; ++y) {
            for (int x = center.x() - 2; x <= center.x() + 2; ++x) {
                if (image.pixelColor(x, y).red() >= QColor(Qt::yellow).darker(200).red()) {
                    return true;
                }
            }
        }
        return false;
    }
};

TEST_P(ScaledWindowTest, FieldsHaveAllSidesOfTheirFrames)
{
    QPalette palette(Qt::yellow, Qt::black, Qt::black, Qt::black, Qt::black, Qt::yellow, Qt::yellow, Qt::black,
                     Qt::black);
    window.setPalette(palette);
    show();
    toggleDisclosure();
    ASSERT_TRUE(eventually([&] { return window.height() == static_cast<int>(controls.mainWindow.frame().height); }));
    const QImage image = picture();
    for (const QAbstractScrollArea *field :
         std::initializer_list<QAbstractScrollArea *>{&description, reportText.findChild<QAbstractScrollArea *>()}) {
        const QRect place(field->mapTo(&window, QPoint()), field->size());
        EXPECT_TRUE(isFrameNear(image, {place.center().x(), place.top()})) << "top";
        EXPECT_TRUE(isFrameNear(image, {place.center().x(), place.bottom()})) << "bottom";
        EXPECT_TRUE(isFrameNear(image, {place.left(), place.center().y()})) << "left";
        EXPECT_TRUE(isFrameNear(image, {place.right(), place.center().y()})) << "right";
    }
}

INSTANTIATE_TEST_SUITE_P(, ScaledWindowTest, testing::Values(1, 1.25, 1.5, 1.75, 2),
                         [](const testing::TestParamInfo<double> &given) {
                             return std::to_string(static_cast<int>(given.param * 100)) + "Percent";
                         });

TEST_F(ReportWindowTest, CancellingUnlocksTheForm)
{
    show();
    startSending();
    cancel();
    EXPECT_TRUE(email.isEnabled());
    EXPECT_FALSE(description.isReadOnly());
    EXPECT_EQ(description.viewport()->backgroundRole(), QPalette::Base);
    EXPECT_TRUE(submit.isEnabled());
    EXPECT_FALSE(spinner.isVisible());
    EXPECT_FALSE(spinner.isTurning());
}

TEST_F(ReportWindowTest, TurningSpinnerIsPaintedAgainAndAgainWithAnotherPicture)
{
    show();
    startSending();
    const QImage before = spinner.grab().toImage();
    PaintCounter counter;
    spinner.installEventFilter(&counter);
    EXPECT_TRUE(eventually([&] { return counter.paints >= 3; }));
    EXPECT_NE(spinner.grab().toImage(), before);
}

TEST_F(ReportWindowTest, ButtonsLeaveACharactersSpaceOnEachSideOfEveryTitle)
{
    for (const auto &[button, titles] :
         {std::pair(&submit, QStringList{submit.text(), u"Sending..."_s}),
          std::pair(&second, QStringList{u"Do&n't Send"_s, u"&Cancel"_s, u"Edit Re&port"_s})}) {
        int widest = 0;
        for (const QString &title : titles) {
            button->setText(title);
            widest = std::max(widest, button->sizeHint().width());
        }
        EXPECT_EQ(button->minimumWidth(), widest + 2 * button->fontMetrics().averageCharWidth());
    }
}

TEST_F(ReportWindowTest, SendingMovesNoControl)
{
    show();
    const QRect secondBefore = second.geometry();
    const QRect submitBefore = submit.geometry();
    startSending();
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(second.geometry(), secondBefore);
    EXPECT_EQ(submit.geometry(), submitBefore);
    refuse();
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(second.geometry(), secondBefore);
    EXPECT_EQ(submit.geometry(), submitBefore);
}

TEST_F(ReportWindowTest, KeyboardGoesWhereTheStateNeedsItWhereverItWas)
{
    show();
    toggleDisclosure();
    QWidget &report = *reportText.findChild<reportview::TextDisplay *>();
    for (QWidget *from : {static_cast<QWidget *>(&description), static_cast<QWidget *>(&triangle), &report,
                          static_cast<QWidget *>(&second)}) {
        from->setFocus();
        startSending();
        EXPECT_TRUE(hasFocus(spinner)) << from->objectName().toStdString();
        from->setFocus();
        refuse();
        EXPECT_TRUE(hasFocus(submit)) << from->objectName().toStdString();
        from->setFocus();
        cancel();
        EXPECT_TRUE(hasFocus(email)) << from->objectName().toStdString();
    }
}

TEST_F(ReportWindowTest, KeyboardVisitsNothingOnItsWay)
{
    show();
    const KeyboardJourney journey;
    startSending();
    refuse();
    cancel();
    EXPECT_EQ(journey.visited, (QStringList{u"Sending"_s, u"Report Crash"_s, u"E-mail address"_s}));
}

// Buttons

TEST_F(ReportWindowTest, SubmitButtonKeepsItsMnemonicThroughAnotherTitle)
{
    show();
    startSending();
    EXPECT_EQ(submit.text(), u"Sending..."_s);
    refuse();
    EXPECT_EQ(submit.text(), u"&Report Crash"_s);
    EXPECT_EQ(submit.shortcut(), QKeySequence(u"Alt+R"_s));
}

TEST_F(ReportWindowTest, TitleShowsAnAmpersandAsSuch)
{
    controls.submitBtn.setTitle(u"A & B"_s);
    EXPECT_TRUE(eventually([this] { return submit.text() == u"A && B"_s; }));
}

TEST_F(ReportWindowTest, SettingTheTrianglesStateSendsNoAction)
{
    show();
    controls.disclosureBtn.setState(platform::kStateOn);
    EXPECT_TRUE(triangle.isChecked());
    controls.disclosureBtn.setState(platform::kStateOff);
    EXPECT_FALSE(triangle.isChecked());
    EXPECT_EQ(disclosures.count(), 0);
}

TEST_F(ReportWindowTest, PressingTheTriangleSendsItsActionOnce)
{
    show();
    QTest::mouseClick(&triangle, Qt::LeftButton);
    EXPECT_EQ(disclosures.count(), 1);
    triangle.setFocus();
    QTest::keyClick(&triangle, Qt::Key_Space);
    EXPECT_EQ(disclosures.count(), 2);
}

TEST_F(ReportWindowTest, TriangleAndIconGrowWithTheFont)
{
    auto &icon = child<QWidget>(window, "iconView");
    const QSize iconBefore = icon.sizeHint();
    const QSize triangleBefore = triangle.iconSize();
    QFont large = window.font();
    large.setPixelSize(2 * QFontInfo(large).pixelSize());
    window.setFont(large);
    EXPECT_GE(icon.sizeHint().width(), 2 * iconBefore.width() - 3);
    EXPECT_GE(triangle.iconSize().width(), 2 * triangleBefore.width() - 2);
}

TEST_F(ReportWindowTest, TrianglesArrowFollowsItsState)
{
    show();
    const QImage closed = triangle.grab().toImage();
    controls.disclosureBtn.setState(platform::kStateOn);
    EXPECT_NE(triangle.grab().toImage(), closed);
    controls.disclosureBtn.setState(platform::kStateOff);
    EXPECT_EQ(triangle.grab().toImage(), closed);
}

TEST_F(ReportWindowTest, TrianglePointsToTheRightAndWhereThePaneIsShownDown)
{
    QPalette palette = triangle.palette();
    palette.setColor(QPalette::ButtonText, Qt::red);
    triangle.setPalette(palette);
    QFont large = triangle.font();
    large.setPixelSize(60);
    triangle.setFont(large);
    triangle.setText({});
    show();
    for (const bool isDown : {false, true}) {
        controls.disclosureBtn.setState(isDown ? platform::kStateOn : platform::kStateOff);
        const QRegion red = redIn(triangle.grab().toImage());
        // The point is to the right or down; beside it the two halves are alike.
        const QTransform toTheRight = isDown ? QTransform(0, 1, 1, 0, 0, 0) : QTransform();
        const QRegion turned = toTheRight.map(red);
        const QRect box = turned.boundingRect();
        EXPECT_NEAR(box.width() * 3, box.height() * 2, 6);
        const QRect left(box.topLeft(), QSize(box.width() / 2, box.height()));
        const QRect upper(box.topLeft(), QSize(box.width(), box.height() / 2));
        EXPECT_NEAR(areaOf(turned), box.width() * box.height() / 2, box.height());
        EXPECT_NEAR(areaOf(turned & left), areaOf(turned) * 3 / 4, box.height());
        EXPECT_NEAR(areaOf(turned & upper), areaOf(turned) / 2, box.height());
    }
}

// What the user types

TEST_F(ReportWindowTest, DescriptionKeepsNoBreakSpaces)
{
    show();
    description.setFocus();
    QTest::keyClicks(&description, u"a\u00a0b"_s);
    EXPECT_EQ(controls.infoText.string(), u"a\u00a0b"_s);
}

TEST_F(ReportWindowTest, LineSeparatorOfTheDescriptionIsALineFeed)
{
    show();
    description.setFocus();
    QTest::keyClicks(&description, u"a"_s);
    QTest::keyClick(&description, Qt::Key_Return, Qt::ShiftModifier);
    QTest::keyClicks(&description, u"b"_s);
    EXPECT_EQ(controls.infoText.string(), u"a\nb"_s);
}

TEST_F(ReportWindowTest, LockedDescriptionTakesNoTyping)
{
    show();
    description.setPlainText(u"before"_s);
    startSending();
    description.setFocus();
    QTest::keyClicks(&description, u"x"_s);
    EXPECT_EQ(controls.infoText.string(), u"before"_s);
}

TEST_F(ReportWindowTest, AddressIsWhatWasTyped)
{
    show();
    QTest::keyClicks(&email, u"ada@example.org"_s);
    EXPECT_EQ(controls.emailText.stringValue(), u"ada@example.org"_s);
}

// Dropped files

namespace {

QList<QUrl> severalUrls()
{
    return {QUrl::fromLocalFile(u"/logs/Plovrin_2.crash"_s), QUrl(u"https://example.org/x.crash"_s),
            QUrl::fromLocalFile(u"/logs/a b%20.crash"_s)};
}

/// Drags the data over the widget and drops it, the way a window system delivers that; returns whether it was accepted.
bool drop(QWidget &target, QMimeData &data)
{
    const QPoint centre = target.rect().center();
    QDragEnterEvent enter(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&target, &enter);
    QDragMoveEvent move(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    // A window system takes a move for accepted where the entrance was.
    move.setAccepted(enter.isAccepted());
    QCoreApplication::sendEvent(&target, &move);
    if (!move.isAccepted()) {
        return false;
    }
    QDropEvent dropEvent(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&target, &dropEvent);
    return dropEvent.isAccepted();
}

} // namespace

TEST_F(ReportWindowTest, FilesDroppedOntoTheWindowAreReportedInOrderWithoutRemoteOnes)
{
    show();
    QMimeData data;
    data.setUrls(severalUrls());
    const LogLines lines(u"korvale.window.info=true"_s);
    EXPECT_TRUE(drop(window, data));
    EXPECT_EQ(LogLines::text(), u"korvale.window: files dropped: 2"_s);
    ASSERT_EQ(drops.count(), 1);
    EXPECT_EQ(drops.first().first().toStringList(), (QStringList{u"/logs/Plovrin_2.crash"_s, u"/logs/a b%20.crash"_s}));
}

TEST_F(ReportWindowTest, FilesDroppedOverAFieldAreReportedAndNotTyped)
{
    show();
    QMimeData data;
    data.setUrls(severalUrls());
    data.setText(u"/logs/Plovrin_2.crash"_s);
    drop(*description.viewport(), data);
    EXPECT_EQ(drops.count(), 1);
    drop(email, data);
    EXPECT_EQ(drops.count(), 2);
    EXPECT_EQ(controls.infoText.string(), QString());
    EXPECT_EQ(controls.emailText.stringValue(), QString());
}

TEST_F(ReportWindowTest, FilesDroppedOverTheFindBarAreReportedAndNotTyped)
{
    show();
    toggleDisclosure();
    auto *display = reportText.findChild<reportview::TextDisplay *>();
    display->setFocus();
    QTest::keyClick(display, Qt::Key_F, Qt::ControlModifier);
    auto *field = reportText.findChild<QLineEdit *>();
    ASSERT_NE(field, nullptr);
    QMimeData data;
    data.setUrls(severalUrls());
    data.setText(u"/logs/Plovrin_2.crash"_s);
    drop(*field, data);
    EXPECT_EQ(drops.count(), 1);
    EXPECT_EQ(field->text(), QString());
}

TEST_F(ReportWindowTest, FilesThatAreDroppedToBeMovedAreCopied)
{
    show();
    QMimeData data;
    data.setUrls(severalUrls());
    const QPoint centre = window.rect().center();
    const Qt::DropActions either = Qt::CopyAction | Qt::MoveAction;
    QDragEnterEvent enter(centre, either, &data, Qt::LeftButton, Qt::ShiftModifier);
    QDropEvent dropEvent(centre, either, &data, Qt::LeftButton, Qt::ShiftModifier);
    for (QDropEvent *event : std::initializer_list<QDropEvent *>{&enter, &dropEvent}) {
        ASSERT_EQ(event->proposedAction(), Qt::MoveAction);
        QCoreApplication::sendEvent(&window, event);
        EXPECT_TRUE(event->isAccepted());
        EXPECT_EQ(event->dropAction(), Qt::CopyAction);
    }
    EXPECT_EQ(drops.count(), 1);
}

TEST_F(ReportWindowTest, TextDroppedOverTheDescriptionIsTyped)
{
    show();
    QMimeData data;
    data.setText(u"pasted"_s);
    drop(*description.viewport(), data);
    EXPECT_EQ(controls.infoText.string(), u"pasted"_s);
    EXPECT_EQ(drops.count(), 0);
}

TEST_F(ReportWindowTest, RemoteFilesAloneAreNoDrop)
{
    show();
    QMimeData data;
    data.setUrls({QUrl(u"https://example.org/x.crash"_s)});
    EXPECT_FALSE(drop(window, data));
    EXPECT_EQ(drops.count(), 0);
}

// Launching

TEST_F(ReportWindowTest, LaunchingWithThePaneFoldedMakesNoDisplay)
{
    show();
    EXPECT_EQ(reportText.findChild<reportview::TextDisplay *>(), nullptr);
    toggleDisclosure();
    ASSERT_NE(reportText.findChild<reportview::TextDisplay *>(), nullptr);
    EXPECT_EQ(reportText.findChild<reportview::TextDisplay *>()->text(), u"Process: Harbour\n"_s);
}

TEST_F(ReportWindowTest, KeyGoesToTheNextAppendedLog)
{
    show();
    toggleDisclosure();
    controls.logText.setString(u"Process: Harbour\n\nLog 1:\nopened\n"_s);
    window.setAppendedLogs({{u"Log 1"_s, 17}});
    auto *display = reportText.findChild<reportview::TextDisplay *>();
    ASSERT_NE(display, nullptr);
    display->setFocus();
    QTest::keyClick(display, Qt::Key_PageDown, Qt::ControlModifier);
    EXPECT_EQ(display->caret(), 18);
}

// Closing

TEST_F(ReportWindowTest, ClosingIsReportedOnce)
{
    show();
    window.close();
    window.close();
    EXPECT_EQ(closings.count(), 1);
}

TEST_F(ReportWindowTest, ClosingWhileSendingClosesAndCancelsNothing)
{
    show();
    startSending();
    window.close();
    EXPECT_FALSE(window.isVisible());
    EXPECT_EQ(closings.count(), 1);
    EXPECT_EQ(cancellations.count(), 0);
}
