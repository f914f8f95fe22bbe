// The report window: its controls, focus and keyboard, dropped files and closing.
#include "desktop/window/DescriptionEdit.h"
#include "desktop/window/HeadlineLabel.h"
#include "desktop/window/Spinner.h"
#include "support/WindowSupport.h"

#include <QAbstractButton>
#include <QAccessible>
#include <QDragEnterEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QToolButton>
#include <QUrl>

#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr auto kHeadline =
    "The client running on %1 crashed the last time it ran. Please submit a bug report so we can "
    "prevent this occurring in future.";

QString headlineNaming(const QString &name)
{
    return QString::fromLatin1(kHeadline).arg(name);
}

class ReportWindowTest : public testing::Test
{
protected:
    ReportWindowTest() { controls.logText.setString(u"Process: Plovrin\n"_s); }

    /// Shows the window the way launching does: with the pane folded.
    void show()
    {
        toggleDisclosure(controls);
        controls.disclosureBtn.setState(platform::kStateOff);
        controls.mainWindow.makeKeyAndOrderFront(nullptr);
        ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    }

    bool hasFocus(const QWidget &widget) { return window.focusWidget() == &widget; }

    ReportWindow window;
    platform::ReportControls controls = window.controls();
    QLineEdit &email = child<QLineEdit>(window, "emailText");
    DescriptionEdit &description = child<DescriptionEdit>(window, "infoText");
    QToolButton &triangle = child<QToolButton>(window, "disclosureBtn");
    QPushButton &cancel = child<QPushButton>(window, "cancelBtn");
    QPushButton &submit = child<QPushButton>(window, "submitBtn");
    HeadlineLabel &headline = child<HeadlineLabel>(window, "initialInfo");
    Spinner &spinner = child<Spinner>(window, "spinner");
    QWidget &reportText = child<QWidget>(window, "logText");
    QSignalSpy disclosures{&window, &ReportWindow::disclosureClicked};
    QSignalSpy submissions{&window, &ReportWindow::submitClicked};
    QSignalSpy cancellations{&window, &ReportWindow::cancelClicked};
    QSignalSpy drops{&window, &ReportWindow::filesDropped};
    QSignalSpy closings{&window, &ReportWindow::closed};
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

QString accessibleName(QWidget &widget)
{
    return QAccessible::queryAccessibleInterface(&widget)->text(QAccessible::Name);
}

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

TEST_F(ReportWindowTest, ControlsAreFoundByTheirAccessibleNames)
{
    show();
    toggleDisclosure(controls);
    controls.initialInfo.setStringValue(u"Plovrin crashed."_s);

    EXPECT_EQ(accessibleName(email), u"E-mail address"_s);
    EXPECT_EQ(accessibleName(description), u"Description"_s);
    EXPECT_EQ(accessibleName(triangle), u"Report details"_s);
    EXPECT_EQ(accessibleName(*reportText.findChild<QPlainTextEdit *>()), u"Report"_s);
    EXPECT_EQ(accessibleName(spinner), u"Sending"_s);
    EXPECT_EQ(accessibleName(cancel), u"Cancel"_s);
    EXPECT_EQ(accessibleName(submit), u"Report Crash"_s);
    EXPECT_EQ(accessibleName(headline), u"Plovrin crashed."_s);
}

TEST_F(ReportWindowTest, ReportIsLabelledAndAloneHasTheFocus)
{
    show();
    toggleDisclosure(controls);
    auto &display = *reportText.findChild<QPlainTextEdit *>();
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

TEST_F(ReportWindowTest, TriangleAndSpinnerTellAssistiveTechnologyWhatTheyAre)
{
    EXPECT_EQ(QAccessible::queryAccessibleInterface(&triangle)->role(), QAccessible::CheckBox);
    EXPECT_EQ(QAccessible::queryAccessibleInterface(&spinner)->role(), QAccessible::ProgressBar);
    EXPECT_EQ(QAccessible::queryAccessibleInterface(&headline)->role(), QAccessible::StaticText);
}

// Headline

TEST_F(ReportWindowTest, HeadlineShowsMarkupAsPlainText)
{
    controls.initialInfo.setStringValue(headlineNaming(u"<b>a & b</b>"_s));
    EXPECT_EQ(headline.textFormat(), Qt::PlainText);
    EXPECT_EQ(accessibleName(headline), headlineNaming(u"<b>a & b</b>"_s));
}

TEST_F(ReportWindowTest, HeadlineShowsControlCharactersAsBlanks)
{
    controls.initialInfo.setStringValue(u"a\nb\u001bc\u202ed\u2028e"_s);
    EXPECT_EQ(headline.text(), u"a b c d e"_s);
}

TEST_F(ReportWindowTest, HeadlineIsBoldAndUsesSeveralLinesForALongText)
{
    controls.initialInfo.setStringValue(headlineNaming(u"plovrin"_s));
    EXPECT_TRUE(headline.font().bold());
    EXPECT_GT(headline.heightForWidth(headline.minimumSizeHint().width()), headline.fontMetrics().lineSpacing());
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
    EXPECT_LE(headline.height(), 4 * headline.fontMetrics().lineSpacing() + 1);
    EXPECT_TRUE(window.rect().contains(submit.mapTo(&window, submit.rect().bottomRight())));
    EXPECT_GE(description.height(), description.minimumSizeHint().height());
    EXPECT_GE(email.height(), email.minimumSizeHint().height());
}

TEST_P(ReportWindowWithLongNameTest, BothEndsOfTheSentenceStayInView)
{
    show();
    controls.initialInfo.setStringValue(headlineNaming(GetParam().text));
    QCoreApplication::sendPostedEvents();
    const QString shown = headline.shownText();
    EXPECT_TRUE(shown.startsWith(u"The client running on "_s));
    EXPECT_TRUE(shown.contains(u'…'));
    EXPECT_TRUE(shown.endsWith(headlineNaming(QString()).mid(int(sizeof("The client running on")))));
    EXPECT_TRUE(shown.isValidUtf16());
}

TEST_P(ReportWindowWithLongNameTest, WhatDoesNotFitIsAToolTipThatShowsTheTextAsItIs)
{
    show();
    controls.initialInfo.setStringValue(headlineNaming(u"<i>"_s + GetParam().text));
    QCoreApplication::sendPostedEvents();
    EXPECT_TRUE(headline.toolTip().startsWith(u"<qt>The client running on &lt;i&gt;"_s));
    EXPECT_LT(headline.toolTip().size(), 3000);
}

INSTANTIATE_TEST_SUITE_P(, ReportWindowWithLongNameTest,
                         testing::Values(NamedText{"OneWord", QString(10'000, u'W')},
                                         NamedText{"ManyWords", u"a b "_s.repeated(2'500)},
                                         NamedText{"LineFeeds", QString(10'000, u'\n') + u"W"_s},
                                         NamedText{"Emoji", u"\U0001F4A5"_s.repeated(5'000)}),
                         [](const testing::TestParamInfo<NamedText> &given) { return given.param.name; });

TEST_F(ReportWindowTest, HeadlineThatFitsIsShownWholeAndHasNoToolTip)
{
    show();
    controls.initialInfo.setStringValue(headlineNaming(u"plovrin"_s));
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(headline.shownText(), headlineNaming(u"plovrin"_s));
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
    for (int press = 0; press < 4; ++press) {
        QTest::keyClick(window.focusWidget(), Qt::Key_Tab);
        visited += window.focusWidget()->objectName();
    }
    EXPECT_EQ(visited, (QStringList{u"infoText"_s, u"disclosureBtn"_s, u"submitBtn"_s, u"emailText"_s}));
}

TEST_F(ReportWindowTest, TabReachesCancelAndTheReportWhenTheyAreThere)
{
    show();
    toggleDisclosure(controls);
    enterSendingState(controls);
    enterRefusedState(controls);
    description.setFocus();
    QList<QWidget *> visited;
    for (int press = 0; press < 5; ++press) {
        QTest::keyClick(window.focusWidget(), Qt::Key_Tab);
        visited += window.focusWidget();
    }
    const QList<QWidget *> expected{&triangle, &cancel, &submit, reportText.findChild<QPlainTextEdit *>(),
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

TEST_F(ReportWindowTest, ReturnInTheLockedDescriptionDoesNotSubmit)
{
    show();
    enterSendingState(controls);
    enterRefusedState(controls);
    description.setFocus();
    QTest::keyClick(&description, Qt::Key_Return);
    EXPECT_EQ(submissions.count(), 0);
}

TEST_F(ReportWindowTest, EnterOnCancelCancelsAndDoesNotSubmit)
{
    show();
    enterSendingState(controls);
    enterRefusedState(controls);
    cancel.setFocus();
    QTest::keyClick(&cancel, Qt::Key_Return);
    EXPECT_EQ(cancellations.count(), 1);
    EXPECT_EQ(submissions.count(), 0);
}

TEST_F(ReportWindowTest, ReturnHeldDownAfterSubmittingDoesNotCancel)
{
    show();
    QObject::connect(&window, &ReportWindow::submitClicked, [this] { enterSendingState(controls); });
    QTest::keyClick(&email, Qt::Key_Return);
    QKeyEvent repeated(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier, u"\r"_s, true);
    QCoreApplication::sendEvent(window.focusWidget(), &repeated);
    EXPECT_EQ(submissions.count(), 1);
    EXPECT_EQ(cancellations.count(), 0);
}

TEST_F(ReportWindowTest, EscapeClosesTheWindowWhileThereIsNothingToCancel)
{
    show();
    QTest::keyClick(&email, Qt::Key_Escape);
    EXPECT_FALSE(window.isVisible());
    EXPECT_EQ(closings.count(), 1);
    EXPECT_EQ(cancellations.count(), 0);
}

TEST_F(ReportWindowTest, EscapeCancelsWhileThereIsSomethingToCancel)
{
    show();
    enterSendingState(controls);
    QTest::keyClick(window.focusWidget(), Qt::Key_Escape);
    EXPECT_TRUE(window.isVisible());
    EXPECT_EQ(cancellations.count(), 1);
    EXPECT_EQ(closings.count(), 0);
}

TEST_F(ReportWindowTest, EveryControlHasItsMnemonic)
{
    show();
    QTest::keyClick(&window, Qt::Key_S, Qt::AltModifier);
    EXPECT_TRUE(hasFocus(description));
    QTest::keyClick(&window, Qt::Key_E, Qt::AltModifier);
    EXPECT_TRUE(hasFocus(email));
    QTest::keyClick(&window, Qt::Key_D, Qt::AltModifier);
    EXPECT_TRUE(comesTrue([this] { return disclosures.count() == 1; }));
    toggleDisclosure(controls);
    QTest::keyClick(&window, Qt::Key_T, Qt::AltModifier);
    EXPECT_TRUE(reportText.isAncestorOf(window.focusWidget()));
    QTest::keyClick(&window, Qt::Key_R, Qt::AltModifier);
    EXPECT_TRUE(comesTrue([this] { return submissions.count() == 1; }));
    enterSendingState(controls);
    QTest::keyClick(&window, Qt::Key_C, Qt::AltModifier);
    EXPECT_TRUE(comesTrue([this] { return cancellations.count() == 1; }));
}

TEST_F(ReportWindowTest, FoldingThePaneThatHasTheFocusLeavesItWithTheTriangle)
{
    QObject::connect(&window, &ReportWindow::disclosureClicked, [this] { toggleDisclosure(controls); });
    show();
    toggleDisclosure(controls);
    reportText.findChild<QPlainTextEdit *>()->setFocus();
    QTest::keyClick(window.focusWidget(), Qt::Key_D, Qt::AltModifier);
    ASSERT_TRUE(comesTrue([this] { return controls.logView.isHidden(); }));
    EXPECT_TRUE(hasFocus(triangle));
}

// The sending state

TEST_F(ReportWindowTest, CancelIsEnabledExactlyWhileTheAddressIsLocked)
{
    show();
    EXPECT_FALSE(cancel.isEnabled());
    enterSendingState(controls);
    EXPECT_TRUE(cancel.isEnabled());
    enterRefusedState(controls);
    EXPECT_TRUE(cancel.isEnabled());
    enterIdleState(controls);
    EXPECT_FALSE(cancel.isEnabled());
}

TEST_F(ReportWindowTest, SendingLocksTheFormAndTurnsTheSpinner)
{
    show();
    enterSendingState(controls);
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
    enterSendingState(controls);
    for (const QPalette::ColorRole background : {QPalette::Window, QPalette::WindowText}) {
        QPalette palette = QApplication::palette();
        palette.setColor(background, Qt::darkGreen);
        window.setPalette(palette);
        EXPECT_EQ(email.palette().color(QPalette::Disabled, QPalette::Text),
                  description.palette().color(QPalette::Active, QPalette::Text));
        EXPECT_EQ(email.palette().color(QPalette::Disabled, QPalette::Base),
                  description.palette().color(QPalette::Active, description.viewport()->backgroundRole()));
    }
}

TEST_F(ReportWindowTest, CancellingUnlocksTheForm)
{
    show();
    enterSendingState(controls);
    enterIdleState(controls);
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
    enterSendingState(controls);
    const QImage before = spinner.grab().toImage();
    PaintCounter counter;
    spinner.installEventFilter(&counter);
    EXPECT_TRUE(comesTrue([&] { return counter.paints >= 3; }));
    EXPECT_NE(spinner.grab().toImage(), before);
}

TEST_F(ReportWindowTest, SendingMovesNoControl)
{
    show();
    const QRect cancelBefore = cancel.geometry();
    const QRect submitBefore = submit.geometry();
    enterSendingState(controls);
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(cancel.geometry(), cancelBefore);
    EXPECT_EQ(submit.geometry(), submitBefore);
}

TEST_F(ReportWindowTest, FocusGoesFromSubmitToCancelAndBackWhenTheReportIsRefused)
{
    show();
    submit.setFocus();
    enterSendingState(controls);
    EXPECT_TRUE(hasFocus(cancel));
    enterRefusedState(controls);
    EXPECT_TRUE(hasFocus(submit));
}

TEST_F(ReportWindowTest, FocusGoesFromTheAddressToCancelAndBackWhenTheUserCancels)
{
    show();
    enterSendingState(controls);
    EXPECT_TRUE(hasFocus(cancel));
    enterIdleState(controls);
    EXPECT_TRUE(hasFocus(email));
}

TEST_F(ReportWindowTest, FocusStaysInTheDescriptionWhileTheReportIsSentAndRefused)
{
    show();
    description.setFocus();
    enterSendingState(controls);
    EXPECT_TRUE(hasFocus(description));
    enterRefusedState(controls);
    EXPECT_TRUE(hasFocus(description));
    enterIdleState(controls);
    EXPECT_TRUE(hasFocus(description));
}

// Buttons

TEST_F(ReportWindowTest, SubmitButtonKeepsItsMnemonicThroughAnotherTitle)
{
    controls.submitBtn.setTitle(u"Sending..."_s);
    controls.submitBtn.setTitle(u"Report Crash"_s);
    EXPECT_EQ(submit.text(), u"&Report Crash"_s);
    EXPECT_EQ(submit.shortcut(), QKeySequence(u"Alt+R"_s));
}

TEST_F(ReportWindowTest, TitleShowsAnAmpersandAsSuch)
{
    controls.submitBtn.setTitle(u"A & B"_s);
    EXPECT_EQ(submit.text(), u"A && B"_s);
}

TEST_F(ReportWindowTest, TurningTheTriangleOverThroughAssistiveTechnologyIsAPress)
{
    QAccessibleActionInterface *const actions = QAccessible::queryAccessibleInterface(&triangle)->actionInterface();
    ASSERT_NE(actions, nullptr);
    actions->doAction(QAccessibleActionInterface::toggleAction());

    EXPECT_EQ(disclosures.count(), 1);
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

TEST_F(ReportWindowTest, TrianglesArrowFollowsItsState)
{
    show();
    const QImage closed = triangle.grab().toImage();
    controls.disclosureBtn.setState(platform::kStateOn);
    EXPECT_NE(triangle.grab().toImage(), closed);
    controls.disclosureBtn.setState(platform::kStateOff);
    EXPECT_EQ(triangle.grab().toImage(), closed);
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
    enterSendingState(controls);
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

/// Drags the data over the widget and drops it, the way a window system delivers that.
void drop(QWidget &target, QMimeData &data)
{
    const QPoint centre = target.rect().center();
    QDragEnterEvent enter(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&target, &enter);
    QDragMoveEvent move(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    // A window system takes a move for accepted where the entrance was.
    move.setAccepted(enter.isAccepted());
    QCoreApplication::sendEvent(&target, &move);
    if (!move.isAccepted())
        return;
    QDropEvent dropEvent(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&target, &dropEvent);
}

} // namespace

TEST_F(ReportWindowTest, FilesDroppedOntoTheWindowAreReportedInOrderWithoutRemoteOnes)
{
    show();
    QMimeData data;
    data.setUrls(severalUrls());
    drop(window, data);
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
    drop(window, data);
    EXPECT_EQ(drops.count(), 0);
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
    enterSendingState(controls);
    window.close();
    EXPECT_FALSE(window.isVisible());
    EXPECT_EQ(closings.count(), 1);
    EXPECT_EQ(cancellations.count(), 0);
}
