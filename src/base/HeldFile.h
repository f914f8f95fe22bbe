// What another process that holds a file keeps from being done.
#pragma once

#include <cerrno>
#include <chrono>
#include <thread>

/// Makes the call, and again each ten milliseconds while another process keeps it from being done: while it gives a
/// negative number and errno is EWOULDBLOCK. Gives what the last call gave, with its errno; that is after as much time
/// as the limit, which the calls' own comes on top of.
template<typename Call>
int onceItIsLetGo(std::chrono::milliseconds limit, const Call &call)
{
    constexpr std::chrono::milliseconds kInterval(10);
    int result = call();
    for (auto triesLeft = limit / kInterval; triesLeft > 0 && result < 0 && errno == EWOULDBLOCK; --triesLeft) {
        std::this_thread::sleep_for(kInterval);
        result = call();
    }
    return result;
}
