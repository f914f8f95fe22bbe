// Signals that ask the program to end, turned into calls of the event loop.
#include "desktop/application/TerminationSignals.h"

#include "support/EventLoop.h"

#include <QCoreApplication>
#include <QDir>

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

using namespace Qt::StringLiterals;

TEST(TerminationSignals, EachIsReceivedInTheEventLoop)
{
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        TerminationSignals signals;
        int received = 0;
        QObject::connect(&signals, &TerminationSignals::received, &signals, [&received] { ++received; });

        std::raise(number);
        EXPECT_EQ(received, 0) << "not in the handler";

        EXPECT_TRUE(eventually([&received] { return received == 1; }));
        ::alarm(0); // This program goes on.
    }
}

TEST(TerminationSignals, EachEndsAProgramThatStandsStill)
{
    const auto standStill = [](int number) {
        // As whoever has started the program may have left it.
        std::signal(SIGALRM, SIG_IGN);
        const TerminationSignals signals;
        std::raise(number);
        constexpr int kLimit = 20'000; // milliseconds
        ::poll(nullptr, 0, kLimit);
        std::_Exit(EXIT_SUCCESS);
    };
    for (const int number : kTerminationSignals) {
        EXPECT_EXIT(standStill(number), testing::KilledBySignal(SIGALRM), "");
    }
}

TEST(TerminationSignals, ThatKeepComingDoNotHoldUpTheEndOfAProgramThatStandsStill)
{
    const auto standStill = [] {
        const TerminationSignals signals;
        constexpr int kInterval = 100; // milliseconds
        constexpr int kTries = 200;
        for (int i = 0; i < kTries; ++i) {
            std::raise(SIGTERM);
            ::poll(nullptr, 0, kInterval);
        }
        std::_Exit(EXIT_SUCCESS);
    };
    EXPECT_EXIT(standStill(), testing::KilledBySignal(SIGALRM), "");
}

TEST(TerminationSignals, OneThatComesWhileTheProgramIsEndingChangesNothing)
{
    const auto endAgain = [] {
        {
            const TerminationSignals signals;
        }
        for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
            std::raise(number);
        }
        std::_Exit(EXIT_SUCCESS);
    };
    EXPECT_EXIT(endAgain(), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST(TerminationSignals, OnePipeIsOpenHoweverManyComeToBe)
{
    {
        const TerminationSignals first;
    }
    const auto openDescriptors = [] { return QDir(u"/proc/self/fd"_s).count(); };
    const uint before = openDescriptors();
    const TerminationSignals second;
    EXPECT_EQ(openDescriptors(), before);
}

TEST(TerminationSignals, MoreThanAPipeHoldsNeitherBlockNorChangeTheErrorNumber)
{
    TerminationSignals signals;
    int received = 0;
    QObject::connect(&signals, &TerminationSignals::received, &signals, [&received] { ++received; });

    constexpr int kMoreThanAPipeHolds = 70'000;
    errno = EDOM;
    for (int i = 0; i < kMoreThanAPipeHolds; ++i) {
        std::raise(SIGTERM);
    }
    const int error = errno;

    EXPECT_EQ(error, EDOM);
    EXPECT_TRUE(eventually([&received] { return received > 0; }));
    QCoreApplication::processEvents();
    EXPECT_EQ(received, 1) << "all of them are one";
    ::alarm(0); // This program goes on.
}

TEST(TerminationSignals, WithoutAPipeTheyKeepTheirDefault)
{
    // In a program that is started anew, which has no pipe yet.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto endWithoutPipe = [] {
        const rlimit none = {};
        ::setrlimit(RLIMIT_NOFILE, &none);
        const TerminationSignals signals;
        std::raise(SIGTERM);
        std::_Exit(EXIT_SUCCESS);
    };
    EXPECT_EXIT(endWithoutPipe(), testing::KilledBySignal(SIGTERM), "");
    GTEST_FLAG_SET(death_test_style, "fast");
}

TEST(TerminationSignals, OneThatIsIgnoredStaysIgnored)
{
    const auto handler = [] {
        struct sigaction action = {};
        ::sigaction(SIGHUP, nullptr, &action);
        return action.sa_handler;
    };
    const auto former = std::signal(SIGHUP, SIG_IGN);
    {
        const TerminationSignals signals;
        EXPECT_EQ(handler(), SIG_IGN);
    }
    EXPECT_EQ(handler(), SIG_IGN);
    std::signal(SIGHUP, former);
}
