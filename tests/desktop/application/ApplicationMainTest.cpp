// The main function, each time in a process of its own: what the process is when the event loop runs, and its end.
#include "desktop/application/ApplicationMain.h"

#include "support/FillDescriptor.h"
#include "support/RunTests.h"
#include "support/ScopedVariable.h"
#include "support/ScriptedLookups.h"

#include <QApplication>
#include <QFile>
#include <QLocale>
#include <QMessageBox>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>
#include <QTranslator>

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kAsExpected = 42; // An exit status that the program itself never has.
constexpr int kNotAsExpected = 43;
constexpr unsigned kLimit = 30; // Seconds, for a program that does not end.

using Step = std::function<void()>;

/// Runs the main function with these words behind the program's name, and ends the process as it ends. The step is
/// taken in the event loop, before the launch. No exception leaves it, as none leaves the program's own main function.
[[noreturn]] void run(std::vector<std::string> words, const Step &step) noexcept
{
    static Step inTheEventLoop;
    inTheEventLoop = step;
    qAddPreRoutine([] {
        // Not earlier: the timers that a process is started with are stopped.
        ::alarm(kLimit);
        QMetaObject::invokeMethod(
            qApp, [] { inTheEventLoop(); }, Qt::QueuedConnection);
    });
    words.insert(words.begin(), "korvale-crash-reporter");
    std::vector<char *> arguments;
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    std::_Exit(applicationMain(static_cast<int>(words.size()), arguments.data()));
}

[[noreturn]] void run(const Step &step)
{
    run({}, step);
}

void end(bool isAsExpected)
{
    QCoreApplication::exit(isAsExpected ? kAsExpected : kNotAsExpected);
}

void nothing()
{
}

/// A translation that is read from right to left, as a plugin of the desktop's may install one.
class RightToLeft : public QTranslator
{
public:
    bool isEmpty() const override { return false; }
    QString translate(const char * /*context*/, const char *text, const char * /*comment*/, int /*n*/) const override
    {
        return text == "QT_LAYOUT_DIRECTION"_ba ? u"RTL"_s : QString();
    }
};

void translate()
{
    static RightToLeft translator;
    QCoreApplication::installTranslator(&translator);
}

class ApplicationMain : public testing::Test
{
protected:
    ApplicationMain()
    {
        qputenv("HOME", home.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", home.path().toUtf8());
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qunsetenv("QT_QPA_PLATFORMTHEME");
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        lookups.home = home.path();
    }

    const QTemporaryDir home;
    ScriptedLookups lookups;
    const LookupsScope scope{lookups};
};

} // namespace

TEST_F(ApplicationMain, EndsWith0WhereThereIsNothingToReport)
{
    EXPECT_EXIT(run({}, nothing), testing::ExitedWithCode(0), "^$");
}

TEST_F(ApplicationMain, GivesTheToolkitTheProgramsNameAlone)
{
    const Step step = [] { end(QCoreApplication::arguments() == QStringList{u"korvale-crash-reporter"_s}); };

    EXPECT_EXIT(run({"word", "-platform", "none"}, step), testing::ExitedWithCode(kAsExpected), "");
}

TEST_F(ApplicationMain, IsEnglishFromLeftToRightInEveryLocale)
{
    const ScopedVariable hebrew("LC_ALL", "he_IL.UTF-8");

    EXPECT_EXIT(qAddPreRoutine(translate);
                run([] { end(QLocale().language() == QLocale::English && QGuiApplication::isLeftToRight()); }),
                testing::ExitedWithCode(kAsExpected), "");
}

TEST_F(ApplicationMain, IsCalledAsItsDesktopEntryIs)
{
    EXPECT_EXIT(run([] {
                    const QSettings entry(PROJECT_FOLDER u"/resources/"_s + QGuiApplication::desktopFileName()
                                              + u".desktop"_s,
                                          QSettings::IniFormat);
                    const QString name = entry.value(u"Desktop Entry/Name"_s).toString();
                    end(!name.isEmpty() && QGuiApplication::applicationDisplayName() == name);
                }),
                testing::ExitedWithCode(kAsExpected), "");
}

TEST_F(ApplicationMain, GoesOnWithoutAReaderAndBeyondTheSizeThatFilesMayHave)
{
    EXPECT_EXIT(run([] {
                    std::raise(SIGPIPE);
                    std::raise(SIGXFSZ);
                    end(true);
                }),
                testing::ExitedWithCode(kAsExpected), "");
}

TEST_F(ApplicationMain, OfRootChoosesNoPlatformThatDrawsIntoAFile)
{
    runAsRoot(lookups, u"user1"_s);
    const ScopedVariable x11("DISPLAY", std::nullopt);
    const ScopedVariable wayland("WAYLAND_DISPLAY", std::nullopt);

    EXPECT_EXIT(run([] { end(false); }), testing::ExitedWithCode(1), "cannot be shown on this display");
}

TEST_F(ApplicationMain, AnAlertBeforeTheWindowIsNotTheEnd)
{
    const QString log = home.filePath(u"Harbour_1.crash"_s);
    QFile file(log);
    ASSERT_TRUE(file.open(QFile::WriteOnly) && file.write("loaded: com.unsanity.ape") > 0 && file.flush());
    const Step step = [] {
        static QTimer look;
        QObject::connect(&look, &QTimer::timeout, [] {
            QWidget *shown = QApplication::activeWindow();
            if (auto *alert = qobject_cast<QMessageBox *>(shown)) {
                alert->close();
            } else if (shown && shown->objectName() == u"ReportWindow"_s) {
                end(true);
            }
        });
        look.start(1);
    };

    EXPECT_EXIT(run({log.toStdString()}, step), testing::ExitedWithCode(kAsExpected), "");
}

TEST_F(ApplicationMain, WhatTheToolkitSaysOnceItHasStartedIsNotHeldBack)
{
    EXPECT_EXIT(run([] {
                    qWarning("a warning");
                    end(true);
                }),
                testing::ExitedWithCode(kAsExpected), "a warning");
}

TEST_F(ApplicationMain, WhatTheToolkitSaysIsNotWaitedForWhereNobodyReadsIt)
{
    EXPECT_EXIT(run([] {
                    std::array<int, 2> ends = {};
                    ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data());
                    ::dup2(ends[1], STDERR_FILENO);
                    fillDescriptor(STDERR_FILENO);
                    qWarning("a warning");
                    end(true);
                }),
                testing::ExitedWithCode(kAsExpected), "");
}

TEST_F(ApplicationMain, WithoutADisplayOneLineGivesAllThatTheToolkitSaid)
{
    qputenv("QT_QPA_PLATFORM", "nosuchplatform");

    EXPECT_EXIT(run({}, nothing), testing::ExitedWithCode(1),
                "^korvale-crash-reporter: the report window cannot be shown on this display: [^\n]*"
                "\"nosuchplatform\"[^\n]*; [^\n]*no Qt platform plugin[^\n]*\n$");
}

TEST_F(ApplicationMain, SaysThatThereIsNoMemoryAndEndsWith1)
{
    EXPECT_EXIT(run([] { throw std::bad_alloc(); }), testing::ExitedWithCode(1),
                "korvale-crash-reporter: there is no memory to go on\n$");
}

TEST_F(ApplicationMain, AbortsAtAnyOtherException)
{
    EXPECT_EXIT(run([] { throw std::logic_error("a mistake"); }), testing::KilledBySignal(SIGABRT), "");
}

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    return runTests();
}
