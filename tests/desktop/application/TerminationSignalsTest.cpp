// Signals that ask the program to end, turned into calls of the event loop.
#include "desktop/application/TerminationSignals.h"

#include "support/EventLoop.h"

#include <QCoreApplication>
#include <QDir>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <cerrno>
#include <csignal>

using namespace Qt::StringLiterals;

namespace {

auto handlerOf(int number)
{
    struct sigaction action = {};
    ::sigaction(number, nullptr, &action);
    return action.sa_handler;
}

} // namespace

TEST(TerminationSignals, EachIsReceivedInTheEventLoop)
{
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        TerminationSignals signals;
        int received = 0;
        QObject::connect(&signals, &TerminationSignals::received, &signals, [&received] { ++received; });

        std::raise(number);
        EXPECT_EQ(received, 0) << "not in the handler";

        EXPECT_TRUE(eventually([&received] { return received == 1; }));
    }
}

TEST(TerminationSignals, FormerHandlingComesBack)
{
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        const auto before = handlerOf(number);
        {
            const TerminationSignals signals;
            ASSERT_NE(handlerOf(number), before);
        }
        EXPECT_EQ(handlerOf(number), before);
    }
}

TEST(TerminationSignals, NothingStaysOpen)
{
    const auto openDescriptors = [] { return QDir(u"/proc/self/fd"_s).count(); };
    const uint before = openDescriptors();
    {
        const TerminationSignals signals;
        EXPECT_EQ(openDescriptors(), before + 2);
    }
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
}

TEST(TerminationSignals, WithoutAPipeTheyKeepTheirDefault)
{
    const auto before = handlerOf(SIGTERM);
    rlimit limit = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none = {.rlim_cur = 0, .rlim_max = limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    {
        const TerminationSignals signals;
        EXPECT_EQ(handlerOf(SIGTERM), before);
    }
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);

    EXPECT_EQ(handlerOf(SIGTERM), before);
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
