// What a process takes over, put right; each in a process of its own.
#include "desktop/application/InheritedState.h"

#include "support/FillDescriptor.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>

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

TEST(InheritedState, WhatIsWrittenToStandardErrorGoesBehindWhatIsThere)
{
    const auto writeToFile = [] {
        char path[] = "/tmp/inherited-state-XXXXXX";
        const int file = ::mkstemp(path);
        ::unlink(path);
        ::dup2(file, STDERR_FILENO);
        bool isWritten = ::write(STDERR_FILENO, "before ", 7) == 7;
        putInheritedStateRight();
        isWritten = isWritten && ::write(STDERR_FILENO, "behind", 6) == 6;
        std::array<char, 20> content = {};
        endAs(isWritten && ::pread(file, content.data(), content.size(), 0) == 13);
    };
    EXPECT_EXIT(writeToFile(), testing::ExitedWithCode(kAsExpected), "");
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

TEST(InheritedState, NoAlarmIsSet)
{
    const auto setAndLook = [] {
        ::alarm(3600);
        putInheritedStateRight();
        endAs(::alarm(0) == 0);
    };
    EXPECT_EXIT(setAndLook(), testing::ExitedWithCode(kAsExpected), "");
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
