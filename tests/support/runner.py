"""Runs the cases of one Python file and tells CTest how they ended."""

import os
import unittest

FAILED = 1
SKIPPED = 77


def run(module, words=()):
    """Runs the module's cases whose full name, as unittest writes it, contains one of the words, or every case when no
    words are given, here or in the variable KORVALE_TEST_FILTER.

    The first that fails ends the run where GTEST_FAIL_FAST says so, as GoogleTest's programs take it.

    Returns the exit status: 0 when all passed, 77 when none failed and one was skipped, 1 otherwise; to run no case at
    all is a failure, because a mistyped word would pass.
    """
    loader = unittest.TestLoader()
    words = [*words, *os.environ.get("KORVALE_TEST_FILTER", "").split()]
    loader.testNamePatterns = [f"*{word}*" for word in words] or None
    suite = loader.loadTestsFromName(module)
    if suite.countTestCases() == 0:
        print(f"no test ran: none of {module} has a name that contains one of {words}")
        return FAILED
    result = unittest.TextTestRunner(verbosity=2, failfast=os.environ.get("GTEST_FAIL_FAST") == "1").run(suite)
    if not result.wasSuccessful():
        return FAILED
    return SKIPPED if result.skipped else 0
