// How a fuzzer says that a rule is broken: libFuzzer keeps the input of a program that aborts.
#pragma once

#include <cstdio>
#include <cstdlib>

inline void require(bool holds, const char *rule)
{
    if (!holds) {
        std::fprintf(stderr, "broken: %s\n", rule);
        std::abort();
    }
}
