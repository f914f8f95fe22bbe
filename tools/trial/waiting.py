"""Waiting for something that another process does, with an end to the patience."""

import time

PATIENCE = 20.0
# How long to wait before asking again, in seconds: a part of what was waited so far, so that what is quick is noticed
# quickly, and what takes long is not asked for more often than it matters.
SHORTEST, LONGEST = 0.005, 0.05
PART = 0.1


class WaitedInVain(AssertionError):
    """What was waited for did not happen in time."""


def wait_until(condition, what, seconds=PATIENCE):
    """Asks until the condition returns something true, and returns that; the condition is asked at least once."""
    begun = time.monotonic()
    while True:
        result = condition()
        if result:
            return result
        waited = time.monotonic() - begun
        if waited > seconds:
            raise WaitedInVain(f"waited {seconds:.0f} s for {what}")
        time.sleep(min(max(waited * PART, SHORTEST), LONGEST))
