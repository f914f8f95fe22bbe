// Writing to a standard error that nobody reads; in processes of their own, which would be killed if they waited.
#include "desktop/application/StandardError.h"

#include "support/FillDescriptor.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>

namespace {

constexpr int kNotWaited = 4;

using PipeEnds = std::array<int, 2>;

int timesAsked = 0;

/// With no flag of the descriptor: another user's pipe cannot be opened once more, with a flag of one's own.
[[noreturn]] void writeToWhatIsFull(PipeEnds ends)
{
    ::dup2(ends[1], STDERR_FILENO);
    fillDescriptor(STDERR_FILENO);
    ::alarm(20);
    timesAsked = 0;
    writeToStandardError("a line\n");
    // What was refused once is not tried in pieces: whoever begins to read then would find the end of a line.
    std::_Exit(timesAsked == 1 ? kNotWaited : EXIT_FAILURE);
}

} // namespace

/// In the place of the library's.
int poll(pollfd *descriptors, nfds_t count, int timeout)
{
    constexpr int kPerSecond = 1000;
    ++timesAsked;
    const timespec time = {.tv_sec = timeout / kPerSecond, .tv_nsec = timeout % kPerSecond * 1'000'000L};
    return ::ppoll(descriptors, count, timeout < 0 ? nullptr : &time, nullptr);
}

TEST(StandardError, FullPipeIsNotWaitedFor)
{
    PipeEnds ends = {};
    ASSERT_EQ(::pipe(ends.data()), 0);
    EXPECT_EXIT(writeToWhatIsFull(ends), testing::ExitedWithCode(kNotWaited), "");
}

TEST(StandardError, FullSocketIsNotWaitedFor)
{
    PipeEnds ends = {};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    EXPECT_EXIT(writeToWhatIsFull(ends), testing::ExitedWithCode(kNotWaited), "");
}

TEST(StandardError, OfAPipeWithLittleSpaceOnlyThatIsTaken)
{
    const auto writeTwice = [] {
        PipeEnds ends = {};
        if (::pipe(ends.data()) != 0) {
            std::_Exit(EXIT_FAILURE);
        }
        const int capacity = ::fcntl(ends[0], F_GETPIPE_SZ);
        ::dup2(ends[1], STDERR_FILENO);
        ::alarm(20);
        writeToStandardError(QByteArray(2 * capacity, 'x'));
        QByteArray taken(2 * capacity, ' ');
        std::_Exit(::read(ends[0], taken.data(), static_cast<size_t>(taken.size())) == capacity ? kNotWaited
                                                                                                : EXIT_FAILURE);
    };
    EXPECT_EXIT(writeTwice(), testing::ExitedWithCode(kNotWaited), "");
}
