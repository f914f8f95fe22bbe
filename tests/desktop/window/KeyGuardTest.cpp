// Keys that are held down: what they must not press or close, and what they still type.
#include "desktop/window/QtAlertPanel.h"
#include "support/NamedCase.h"
#include "support/ReportWindowFixture.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

struct NamedKey : NamedCase {
    Qt::Key key;
    QString text;
};

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

void sendAt(QWidget &widget, QEvent::Type type, const NamedKey &key, quint64 milliseconds)
{
    QKeyEvent event(type, key.key, Qt::NoModifier, key.text);
    event.setTimestamp(milliseconds);
    QCoreApplication::sendEvent(&widget, &event);
}

const NamedKey kReturn{{"Return"}, Qt::Key_Return, u"\r"_s};
const NamedKey kEnter{{"Enter"}, Qt::Key_Enter, u"\r"_s};
const NamedKey kSpace{{"Space"}, Qt::Key_Space, u" "_s};
const NamedKey kEscape{{"Escape"}, Qt::Key_Escape, u"\x1b"_s};

class KeyGuardTest : public ReportWindowFixture
{
protected:
    void expectNothingPressed() const
    {
        EXPECT_EQ(submissions.count(), 0);
        EXPECT_EQ(cancellations.count(), 0);
        EXPECT_EQ(disclosures.count(), 0);
        EXPECT_EQ(closings.count(), 0);
    }
};

class HeldKeyTest : public KeyGuardTest, public testing::WithParamInterface<NamedKey>
{
};

class RepeatedKeyTest : public HeldKeyTest
{
};

} // namespace

// The window

TEST_F(KeyGuardTest, HeldReturnPressesNothingFromTheAddress)
{
    show();
    hold(email, kReturn);
    hold(email, kEnter);
    expectNothingPressed();
}

TEST_F(KeyGuardTest, HeldEscapeUnlocksNothingFromTheDescription)
{
    show();
    startSending();
    refuse();
    description.setFocus();
    hold(description, kEscape);
    expectNothingPressed();
}

// In the state in which each of the keys would do something.
TEST_P(RepeatedKeyTest, PressesNothingWhereOnlyTheTimeTellsThatItIsHeld)
{
    show();
    startSending();
    refuse();
    submit.setFocus();
    for (const quint64 time : {1000U, 1040U, 1080U}) {
        sendAt(submit, QEvent::KeyRelease, GetParam(), time);
        sendAt(submit, QEvent::KeyPress, GetParam(), time + 2);
    }
    expectNothingPressed();
}

TEST_P(HeldKeyTest, PressesNoButtonThatHasTheFocus)
{
    show();
    startSending();
    refuse();
    for (QWidget *button : std::initializer_list<QWidget *>{&submit, &second, &triangle}) {
        button->setFocus();
        hold(*button, GetParam());
    }
    expectNothingPressed();
}

TEST_P(HeldKeyTest, LeavesTheAlertInView)
{
    window.show();
    QtAlertPanel panel(window);
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

// Not the space bar: the toolkit's buttons keep from its repetitions by themselves.
INSTANTIATE_TEST_SUITE_P(, HeldKeyTest, testing::Values(kReturn, kEnter, kEscape), nameOfCase);
INSTANTIATE_TEST_SUITE_P(, RepeatedKeyTest, testing::Values(kReturn, kEnter, kSpace, kEscape), nameOfCase);

TEST_F(KeyGuardTest, HeldReturnBeginsManyLinesInTheDescription)
{
    show();
    description.setFocus();
    hold(description, kReturn);
    EXPECT_EQ(controls.infoText.string(), u"\n\n\n"_s);
}

TEST_F(KeyGuardTest, HeldSpaceIsTypedInTheFields)
{
    show();
    hold(email, kSpace);
    EXPECT_EQ(controls.emailText.stringValue(), u"   "_s);
    hold(description, kSpace);
    EXPECT_EQ(controls.infoText.string(), u"   "_s);
}

TEST_F(KeyGuardTest, KeyPressedAgainIsNoHeldKey)
{
    show();
    QTest::keyClicks(&email, u"no address"_s);
    for (const quint64 time : {1000U, 1023U}) {
        sendAt(email, QEvent::KeyPress, kReturn, time);
        sendAt(email, QEvent::KeyRelease, kReturn, time + 20);
    }
    EXPECT_EQ(submissions.count(), 2);
}

TEST_F(KeyGuardTest, KeyPressedAsAnotherIsReleasedIsNoHeldKey)
{
    show();
    QTest::keyClicks(&email, u"no address"_s);
    sendAt(email, QEvent::KeyRelease, kSpace, 1000);
    sendAt(email, QEvent::KeyPress, kReturn, 1001);
    EXPECT_EQ(submissions.count(), 1);
}

TEST_F(KeyGuardTest, KeysThatAProgramPressesAreNoHeldKeys)
{
    show();
    QTest::keyClicks(&email, u"no address"_s);
    for (int press = 0; press < 2; ++press) {
        sendAt(email, QEvent::KeyPress, kReturn, 0);
        sendAt(email, QEvent::KeyRelease, kReturn, 0);
    }
    EXPECT_EQ(submissions.count(), 2);
}
