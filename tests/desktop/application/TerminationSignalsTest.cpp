// Signals that ask the program to end, turned into calls of the event loop.
#include "desktop/application/TerminationSignals.h"

#include "support/EventLoop.h"

#include <gtest/gtest.h>

#include <csignal>

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
    struct sigaction before = {};
    ::sigaction(SIGTERM, nullptr, &before);
    {
        const TerminationSignals signals;
        struct sigaction during = {};
        ::sigaction(SIGTERM, nullptr, &during);
        ASSERT_NE(during.sa_handler, before.sa_handler);
    }

    struct sigaction after = {};
    ::sigaction(SIGTERM, nullptr, &after);
    EXPECT_EQ(after.sa_handler, before.sa_handler);
}
