// Runs the tests of one program and tells CTest how they ended.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>

/// Returns the exit status: 0 when every test passed, 77 when none failed and one was skipped, 1 otherwise; to run no
/// test at all is a failure, because a mistyped filter would pass.
inline int runTests()
{
    constexpr int kFailed = 1;
    constexpr int kSkipped = 77; // SKIP_RETURN_CODE in tests/CMakeLists.txt.
    const int status = RUN_ALL_TESTS();
    const testing::UnitTest &tests = *testing::UnitTest::GetInstance();
    if (tests.test_to_run_count() == 0) {
        std::fputs("no test ran: none has a name that the filter matches\n", stderr);
        return kFailed;
    }
    return status == 0 && tests.skipped_test_count() > 0 ? kSkipped : status;
}
