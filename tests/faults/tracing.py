"""Faults in the program's own system calls, made and written down by strace(1)."""

import os
import re

from trial.waiting import wait_until

CALL = re.compile(r"^(\d+) +(?:<\.\.\. )?(\w+)")


class Trace:
    """The calls that strace has written so far. A tracer that is a grandchild leaves the program its process ID."""

    def __init__(self, folder, *expressions, paths=(), follow=True):
        self.path = os.path.join(folder, "trace")
        self.expressions = expressions
        self.paths = paths
        self.follow = follow

    def prefix(self):
        # -s is for the paths, which are never cut; -y names the file behind each descriptor.
        return ("strace", "-D", *(("-f",) if self.follow else ()), "--quiet=all", "-y", "-s", "64", "-o", self.path,
                *(word for expression in self.expressions for word in ("-e", expression)),
                *(word for path in self.paths for word in ("-P", path)))

    def lines(self):
        try:
            with open(self.path, encoding="utf-8", errors="replace") as file:
                return file.read().splitlines()
        except FileNotFoundError:
            return []

    def injected(self):
        """The calls that were made to fail, delayed or answered with a signal."""
        return [line for line in self.lines() if "(INJECTED)" in line or "(DELAYED)" in line]

    def wait_for(self, call, times=1):
        """Until the call has been made so many times."""
        wait_until(lambda: sum(f" {call}(" in line for line in self.lines()) >= times, f"the call of {call}")


def drawn(values, count=None):
    """So many of the values, evenly spread over all of them; all where no number is given."""
    if count is None or count >= len(values):
        return values
    return [values[number * len(values) // count] for number in range(count)]
