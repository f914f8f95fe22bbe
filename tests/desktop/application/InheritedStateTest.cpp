// What a process takes over, put right; each in a process of its own.
#include "desktop/application/InheritedState.h"

#include "support/FillDescriptor.h"

#include <QByteArrayView>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <initializer_list>

namespace {

constexpr int kAsExpected = 3;

[[noreturn]] void endAs(bool isAsExpected)
{
    std::_Exit(isAsExpected ? kAsExpected : EXIT_FAILURE);
}

bool isOpen(int descriptor)
{
    return ::fcntl(descriptor, F_GETFD) >= 0;
}

bool leadsNowhere(int descriptor)
{
    struct stat nowhere = {};
    struct stat status = {};
    return ::stat("/dev/null", &nowhere) == 0 && ::fstat(descriptor, &status) == 0 && status.st_rdev == nowhere.st_rdev;
}

/// The number of a descriptor that nothing has yet.
int lowestFree()
{
    const int descriptor = ::dup(STDIN_FILENO);
    ::close(descriptor);
    return descriptor;
}

} // namespace

TEST(InheritedState, ClosedStandardDescriptorLeadsNowhereAndTheOthersStay)
{
    for (const int closed : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const auto closeAndLook = [closed] {
            const int free = lowestFree();
            ::close(closed);
            putInheritedStateRight();
            bool isRight = leadsNowhere(closed) && lowestFree() == free;
            for (const int other : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
                isRight = isRight && isOpen(other);
            }
            endAs(isRight);
        };
        EXPECT_EXIT(closeAndLook(), testing::ExitedWithCode(kAsExpected), "") << closed;
    }
}

TEST(InheritedState, WriteToAStandardErrorThatNobodyReadsGivesUp)
{
    const auto writeToFullPipe = [] {
        std::array<int, 2> ends = {};
        if (::pipe(ends.data()) != 0 || ::dup2(ends[1], STDERR_FILENO) < 0) {
            endAs(false);
        }
        fillDescriptor(STDERR_FILENO);
        putInheritedStateRight();
        const bool givesUp = ::write(STDERR_FILENO, "x", 1) < 0;
        // Whoever has handed over the pipe goes on waiting for its reader.
        endAs(givesUp && (::fcntl(ends[1], F_GETFL) & O_NONBLOCK) == 0);
    };
    EXPECT_EXIT(writeToFullPipe(), testing::ExitedWithCode(kAsExpected), "");
}

// Over what is written by a description of the program's own, the starter's next line would be written.
TEST(InheritedState, WhatIsWrittenToAFileStandsBetweenWhatItsStarterWritesBeforeAndAfterwards)
{
    const auto writeInTurn = [] {
        char path[] = "/tmp/inherited-state-XXXXXX";
        const int starters = ::mkstemp(path);
        ::unlink(path);
        ::dup2(starters, STDERR_FILENO);
        bool isWritten = ::write(starters, "before ", 7) == 7;
        putInheritedStateRight();
        isWritten = isWritten && ::write(STDERR_FILENO, "between ", 8) == 8;
        isWritten = isWritten && ::write(starters, "behind", 6) == 6;
        std::array<char, 40> content = {};
        const ssize_t length = ::pread(starters, content.data(), content.size(), 0);
        endAs(isWritten && QByteArrayView(content.data(), length) == "before between behind");
    };
    EXPECT_EXIT(writeInTurn(), testing::ExitedWithCode(kAsExpected), "");
}

TEST(InheritedState, TerminalThatStopsWhoWritesFromTheBackgroundDoesNotStopTheProgram)
{
    const auto writeFromTheBackground = [] {
        // The first terminal that the leader of a session opens is the session's.
        ::setsid();
        const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
        const bool isOpened = ::grantpt(master) == 0 && ::unlockpt(master) == 0;
        const int terminal = isOpened ? ::open(::ptsname(master), O_RDWR) : -1;
        termios settings = {};
        ::tcgetattr(terminal, &settings);
        settings.c_lflag |= TOSTOP;
        ::tcsetattr(terminal, TCSANOW, &settings);
        const pid_t child = ::fork();
        if (child == 0) {
            ::setpgid(0, 0);
            ::dup2(terminal, STDERR_FILENO);
            putInheritedStateRight();
            endAs(::write(STDERR_FILENO, "x", 1) == 1);
        }
        int status = 0;
        ::waitpid(child, &status, WUNTRACED);
        endAs(WIFEXITED(status) && WEXITSTATUS(status) == kAsExpected);
    };
    EXPECT_EXIT(writeFromTheBackground(), testing::ExitedWithCode(kAsExpected), "");
}

// By the rights of root it could be opened for more, whatever whoever handed it over may write to.
TEST(InheritedState, AStandardErrorThatIsOpenForReadingAloneStaysSo)
{
    const auto writeToFile = [] {
        char path[] = "/tmp/inherited-state-XXXXXX";
        ::close(::mkstemp(path));
        ::dup2(::open(path, O_RDONLY), STDERR_FILENO);
        ::unlink(path);
        putInheritedStateRight();
        struct stat status = {};
        endAs(::write(STDERR_FILENO, "x", 1) < 0 && ::fstat(STDERR_FILENO, &status) == 0 && status.st_size == 0);
    };
    EXPECT_EXIT(writeToFile(), testing::ExitedWithCode(kAsExpected), "");
}

TEST(InheritedState, EndOfAChildIsToldEvenIfTheStarterHadIgnoredIt)
{
    const auto waitForChild = [] {
        std::signal(SIGCHLD, SIG_IGN);
        putInheritedStateRight();
        const pid_t child = ::fork();
        if (child == 0) {
            std::_Exit(EXIT_SUCCESS);
        }
        endAs(child > 0 && ::waitpid(child, nullptr, 0) == child);
    };
    EXPECT_EXIT(waitForChild(), testing::ExitedWithCode(kAsExpected), "");
}

TEST(InheritedState, NoSignalIsBlocked)
{
    const auto blockAndLook = [] {
        sigset_t all;
        ::sigfillset(&all);
        ::sigprocmask(SIG_SETMASK, &all, nullptr);
        putInheritedStateRight();
        sigset_t blocked;
        ::sigprocmask(SIG_SETMASK, nullptr, &blocked);
        endAs(::sigisemptyset(&blocked) != 0);
    };
    EXPECT_EXIT(blockAndLook(), testing::ExitedWithCode(kAsExpected), "");
}

// A profiler's timers, such as ITIMER_PROF, end whoever knows nothing of them.
TEST(InheritedState, NoTimerIsSet)
{
    for (const auto timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
        const auto setAndLook = [timer] {
            const itimerval inAnHour = {.it_interval = {.tv_sec = 3600, .tv_usec = 0},
                                        .it_value = {.tv_sec = 3600, .tv_usec = 0}};
            ::setitimer(timer, &inAnHour, nullptr);
            putInheritedStateRight();
            itimerval left = {};
            endAs(::getitimer(timer, &left) == 0 && left.it_value.tv_sec == 0 && left.it_value.tv_usec == 0);
        };
        EXPECT_EXIT(setAndLook(), testing::ExitedWithCode(kAsExpected), "") << timer;
    }
}

TEST(InheritedState, SignalThatTheProgramBeforeHasNotTakenIsForgotten)
{
    for (const int signal : {SIGALRM, SIGPROF, SIGVTALRM, SIGUSR1, SIGIO, SIGABRT, SIGRTMIN}) {
        const auto sendToItself = [signal] {
            sigset_t all;
            ::sigfillset(&all);
            ::sigprocmask(SIG_SETMASK, &all, nullptr);
            ::kill(::getpid(), signal);
            putInheritedStateRight();
            struct sigaction action = {};
            endAs(::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_DFL);
        };
        EXPECT_EXIT(sendToItself(), testing::ExitedWithCode(kAsExpected), "") << signal;
    }
}

TEST(InheritedState, RequestToEndIsNotForgotten)
{
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        const auto sendToItself = [signal] {
            // Other tests take these signals.
            std::signal(signal, SIG_DFL);
            sigset_t all;
            ::sigfillset(&all);
            ::sigprocmask(SIG_SETMASK, &all, nullptr);
            ::kill(::getpid(), signal);
            putInheritedStateRight();
            endAs(false);
        };
        EXPECT_EXIT(sendToItself(), testing::KilledBySignal(signal), "") << signal;
    }
}

TEST(InheritedState, WhatIsMadeCanBeUsedByTheUserAndChangedByNobodyElse)
{
    // A library's cache that root has written, for one, has to stay readable to everybody.
    constexpr std::pair<mode_t, mode_t> kCases[] = {{0, 0022}, {0777, 0077}, {0027, 0027}, {0022, 0022}};
    for (const auto &[inherited, expected] : kCases) {
        const auto setAndLook = [mask = inherited, wanted = expected] {
            ::umask(mask);
            putInheritedStateRight();
            endAs(::umask(0) == wanted);
        };
        EXPECT_EXIT(setAndLook(), testing::ExitedWithCode(kAsExpected), "") << inherited;
    }
}
