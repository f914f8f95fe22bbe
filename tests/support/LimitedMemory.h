// A process that is given hardly any more memory.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

/// Bounds the process's address space to what it has now and so many bytes more, for as long as the object lives.
class LimitedMemory
{
public:
    explicit LimitedMemory(rlim_t moreBytes)
    {
        rlim_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        rlimit limit = {};
        if (pages == 0 || ::getrlimit(RLIMIT_AS, &before) != 0) {
            throw std::runtime_error("cannot ask for the address space");
        }
        limit = before;
        limit.rlim_cur = pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + moreBytes;
        if (::setrlimit(RLIMIT_AS, &limit) != 0) {
            throw std::runtime_error("cannot bound the address space");
        }
    }
    LimitedMemory(const LimitedMemory &) = delete;
    LimitedMemory &operator=(const LimitedMemory &) = delete;
    ~LimitedMemory() { ::setrlimit(RLIMIT_AS, &before); }

private:
    rlimit before = {};
};
