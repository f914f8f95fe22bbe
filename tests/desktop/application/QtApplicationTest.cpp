// Bringing the application to the front, and ending it.
#include "desktop/application/QtApplication.h"

#include "support/ScopedVariable.h"
#include "support/WindowSupport.h"

#include <QApplication>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

class QtApplicationTest : public testing::Test
{
protected:
    /// Runs the event loop, five seconds at most; returns its exit status, or -1 when it had to be stopped.
    static int runEventLoop()
    {
        QTimer limit;
        QObject::connect(&limit, &QTimer::timeout, [] { QCoreApplication::exit(-1); });
        limit.start(5000);
        return QCoreApplication::exec();
    }

    QWidget window;
    QtApplication application{window};
};

} // namespace

TEST_F(QtApplicationTest, TerminateBeforeTheEventLoopEndsItWithStatus0)
{
    application.terminate(nullptr);
    EXPECT_EQ(runEventLoop(), 0);
}

TEST_F(QtApplicationTest, TerminateFromTheEventLoopReturnsToItsCallerFirst)
{
    bool nextStepRan = false;
    QTimer::singleShot(0, [&] {
        application.terminate(nullptr);
        EXPECT_FALSE(QCoreApplication::closingDown());
        nextStepRan = true;
    });
    EXPECT_EQ(runEventLoop(), 0);
    EXPECT_TRUE(nextStepRan);
}

TEST_F(QtApplicationTest, ActivateGivesTheWindowTheKeyboard)
{
    window.show();
    QWidget other;
    other.show();
    other.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&other));
    application.activateIgnoringOtherApps();
    EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
}

TEST_F(QtApplicationTest, ActivateBringsTheWindowToTheFront)
{
    QWidget desktop;
    window.setParent(&desktop);
    const QWidget other(&desktop);
    desktop.show();
    ASSERT_EQ(desktop.childAt(0, 0), &other);

    application.activateIgnoringOtherApps();

    EXPECT_EQ(desktop.childAt(0, 0), &window);
    window.setParent(nullptr);
}

TEST_F(QtApplicationTest, ActivateLeavesNothingOfTheLaunchersWordToOtherPrograms)
{
    const ScopedVariable token("XDG_ACTIVATION_TOKEN", "token");
    const ScopedVariable startupId("DESKTOP_STARTUP_ID", "anvil_TIME1");
    window.show();
    application.activateIgnoringOtherApps();
    EXPECT_FALSE(qEnvironmentVariableIsSet("XDG_ACTIVATION_TOKEN"));
    EXPECT_FALSE(qEnvironmentVariableIsSet("DESKTOP_STARTUP_ID"));
}
