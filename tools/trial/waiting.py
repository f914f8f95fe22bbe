"""Waiting for something that another process does, with an end to the patience."""

import time

PATIENCE = 20.0
INTERVAL = 0.02


class WaitedInVain(AssertionError):
    """What was waited for did not happen in time."""


def wait_until(condition, what, seconds=PATIENCE):
    """Asks until the condition returns something true, and returns that; the condition is asked at least once."""
    deadline = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise WaitedInVain(f"waited {seconds:.0f} s for {what}")
        time.sleep(INTERVAL)
