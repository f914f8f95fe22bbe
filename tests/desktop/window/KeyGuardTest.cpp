// Keys that are held down or pressed twice: what they must not press or close, and what they still type.
#include "desktop/window/DescriptionEdit.h"
#include "desktop/window/QtAlertPanel.h"
#include "support/WindowSupport.h"

#include <QApplication>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTimer>
#include <QToolButton>

#include <chrono>

using namespace Qt::StringLiterals;

namespace {

/// Longer than any of these tests takes.
constexpr std::chrono::milliseconds kVeryLong = std::chrono::hours(1);

struct NamedKey {
    std::string name;
    Qt::Key key;
    QString text;
};

void PrintTo(const NamedKey &named, std::ostream *stream)
{
    *stream << named.name;
}

std::string nameOf(const testing::TestParamInfo<NamedKey> &given)
{
    return given.param.name;
}

/// What a key sends that is still held down, several times.
void hold(QWidget &widget, const NamedKey &held)
{
    for (int repeat = 0; repeat < 3; ++repeat) {
        for (const QEvent::Type type : {QEvent::KeyRelease, QEvent::KeyPress}) {
            QKeyEvent event(type, held.key, Qt::NoModifier, held.text, true);
            QCoreApplication::sendEvent(&widget, &event);
        }
    }
}

const NamedKey kReturn{"Return", Qt::Key_Return, u"\r"_s};
const NamedKey kEnter{"Enter", Qt::Key_Enter, u"\r"_s};
const NamedKey kBlank{"Blank", Qt::Key_Space, u" "_s};
const NamedKey kEscape{"Escape", Qt::Key_Escape, u"\x1b"_s};

class KeyGuardTest : public testing::Test
{
protected:
    KeyGuardTest() { QApplication::setDoubleClickInterval(static_cast<int>(kVeryLong.count())); }
    ~KeyGuardTest() override { QApplication::setDoubleClickInterval(usualInterval); }

    void show()
    {
        toggleDisclosure(controls);
        controls.disclosureBtn.setState(platform::kStateOff);
        controls.mainWindow.makeKeyAndOrderFront(nullptr);
        ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    }

    void expectNothingPressed() const
    {
        EXPECT_EQ(submissions.count(), 0);
        EXPECT_EQ(cancellations.count(), 0);
        EXPECT_EQ(disclosures.count(), 0);
        EXPECT_EQ(closings.count(), 0);
    }

    const int usualInterval = QApplication::doubleClickInterval();
    ReportWindow window;
    platform::ReportControls controls = window.controls();
    QLineEdit &email = child<QLineEdit>(window, "emailText");
    DescriptionEdit &description = child<DescriptionEdit>(window, "infoText");
    QToolButton &triangle = child<QToolButton>(window, "disclosureBtn");
    QPushButton &cancel = child<QPushButton>(window, "cancelBtn");
    QPushButton &submit = child<QPushButton>(window, "submitBtn");
    QSignalSpy disclosures{&window, &ReportWindow::disclosureClicked};
    QSignalSpy submissions{&window, &ReportWindow::submitClicked};
    QSignalSpy cancellations{&window, &ReportWindow::cancelClicked};
    QSignalSpy closings{&window, &ReportWindow::closed};
};

class HeldKeyTest : public KeyGuardTest, public testing::WithParamInterface<NamedKey>
{
};

} // namespace

// The window

TEST_P(HeldKeyTest, PressesNothingFromTheAddress)
{
    show();
    hold(email, GetParam());
    expectNothingPressed();
}

TEST_P(HeldKeyTest, PressesNothingWhereOnlyTheTimeTellsThatItIsHeld)
{
    show();
    submit.setFocus();
    for (const quint64 time : {1000U, 1040U, 1080U}) {
        for (const QEvent::Type type : {QEvent::KeyRelease, QEvent::KeyPress}) {
            QKeyEvent event(type, GetParam().key, Qt::NoModifier, GetParam().text);
            event.setTimestamp(time);
            QCoreApplication::sendEvent(&submit, &event);
        }
    }
    expectNothingPressed();
}

TEST_P(HeldKeyTest, PressesNoButtonThatHasTheFocus)
{
    show();
    enterSendingState(controls);
    enterRefusedState(controls);
    for (QWidget *button : std::initializer_list<QWidget *>{&submit, &cancel, &triangle}) {
        button->setFocus();
        hold(*button, GetParam());
    }
    expectNothingPressed();
}

TEST_P(HeldKeyTest, ClosesNothingFromTheDescription)
{
    show();
    description.setFocus();
    hold(description, GetParam());
    expectNothingPressed();
}

TEST_P(HeldKeyTest, LeavesTheAlertInView)
{
    window.show();
    QtAlertPanel panel(&window);
    int looks = 0;
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, &window, [&] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box || !box->isVisible()) {
            return;
        }
        ++looks;
        hold(*box, GetParam());
        hold(*box->button(QMessageBox::Ok), GetParam());
        EXPECT_TRUE(box->isVisible());
        box->close();
    });
    look.start();
    panel.runAlertPanel(u"Title"_s, u"Message"_s);
    EXPECT_EQ(looks, 1);
}

INSTANTIATE_TEST_SUITE_P(, HeldKeyTest, testing::Values(kReturn, kEnter, kBlank, kEscape), nameOf);

TEST_F(KeyGuardTest, HeldReturnBeginsManyLinesInTheDescription)
{
    show();
    description.setFocus();
    hold(description, kReturn);
    EXPECT_EQ(controls.infoText.string(), u"\n\n\n"_s);
}

TEST_F(KeyGuardTest, HeldBlankIsTypedInTheFields)
{
    show();
    hold(email, kBlank);
    EXPECT_EQ(controls.emailText.stringValue(), u"   "_s);
    hold(description, kBlank);
    EXPECT_EQ(controls.infoText.string(), u"   "_s);
}

TEST_F(KeyGuardTest, KeyPressedAgainIsNoHeldKey)
{
    show();
    for (const quint64 time : {1000U, 1040U}) {
        QKeyEvent press(QEvent::KeyPress, kReturn.key, Qt::NoModifier, kReturn.text);
        press.setTimestamp(time);
        QCoreApplication::sendEvent(&email, &press);
        QKeyEvent release(QEvent::KeyRelease, kReturn.key, Qt::NoModifier, kReturn.text);
        release.setTimestamp(time + 20);
        QCoreApplication::sendEvent(&email, &release);
    }
    EXPECT_EQ(submissions.count(), 2);
}

// Return, pressed twice

TEST_F(KeyGuardTest, SecondReturnRightAfterTheOneThatSubmittedDoesNotCancel)
{
    show();
    enterSendingState(controls);
    ASSERT_EQ(window.focusWidget(), &cancel);
    QTest::keyClick(&cancel, Qt::Key_Return);
    EXPECT_EQ(cancellations.count(), 0);
}

TEST_F(KeyGuardTest, ReturnSomeTimeAfterTheOneThatSubmittedCancels)
{
    QApplication::setDoubleClickInterval(50);
    show();
    enterSendingState(controls);
    EXPECT_TRUE(comesTrue([this] {
        QTest::keyClick(&cancel, Qt::Key_Return);
        return cancellations.count() == 1;
    }));
}

// Escape, pressed twice

TEST_F(KeyGuardTest, SecondEscapeRightAfterTheOneThatCancelledClosesNothing)
{
    show();
    QObject::connect(&window, &ReportWindow::cancelClicked, [this] { enterIdleState(controls); });
    enterSendingState(controls);
    QTest::keyClick(window.focusWidget(), Qt::Key_Escape);
    QTest::keyClick(window.focusWidget(), Qt::Key_Escape);
    EXPECT_EQ(cancellations.count(), 1);
    EXPECT_TRUE(window.isVisible());
}

TEST_F(KeyGuardTest, EscapeSomeTimeAfterTheOneThatCancelledCloses)
{
    QApplication::setDoubleClickInterval(50);
    show();
    QObject::connect(&window, &ReportWindow::cancelClicked, [this] { enterIdleState(controls); });
    enterSendingState(controls);
    QTest::keyClick(window.focusWidget(), Qt::Key_Escape);
    EXPECT_TRUE(window.isVisible());
    EXPECT_TRUE(comesTrue([this] {
        QTest::keyClick(&window, Qt::Key_Escape);
        return !window.isVisible();
    }));
    EXPECT_EQ(cancellations.count(), 1);
}

TEST_F(KeyGuardTest, SecondEscapeRightAfterTheOneThatDismissedAnAlertClosesNothing)
{
    show();
    QtAlertPanel panel(&window);
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, &window, [] {
        if (QWidget *box = QApplication::activeModalWidget()) {
            QTest::keyClick(box, Qt::Key_Escape);
        }
    });
    look.start();
    panel.runAlertPanel(u"Title"_s, u"Message"_s);
    look.stop();
    QTest::keyClick(&window, Qt::Key_Escape);
    EXPECT_TRUE(window.isVisible());
}

TEST_F(KeyGuardTest, SecondEscapeRightAfterAnAlertStillCancels)
{
    show();
    enterSendingState(controls);
    enterRefusedState(controls);
    QtAlertPanel panel(&window);
    QTimer::singleShot(0, &window, [] { QApplication::activeModalWidget()->close(); });
    panel.runAlertPanel(u"Title"_s, u"Message"_s);
    QTest::keyClick(&window, Qt::Key_Escape);
    EXPECT_EQ(cancellations.count(), 1);
}
