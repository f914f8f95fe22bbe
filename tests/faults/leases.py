"""Leases on files, which their holder is asked to let go when the file is opened (fcntl(2), F_SETLEASE)."""

import sys

from trial.processes import Started

LETS_GO, KEEPS = "SIG_DFL", "SIG_IGN"  # by its end, which is that signal's default
HOLDER = """
import fcntl, os, signal, sys
file = os.open(sys.argv[1], os.O_RDWR)
signal.signal(signal.SIGIO, getattr(signal, sys.argv[2]))
fcntl.fcntl(file, fcntl.F_SETLEASE, fcntl.F_WRLCK)
print("held", flush=True)
while True:
    signal.pause()
"""


def lease(place, path, asked):
    """Another process holds a lease on the file, until the run's end or until it is asked to let go."""
    holder = Started([sys.executable, "-c", HOLDER, path, asked], place.folder, "holder")
    place.ended.callback(holder.end)
    holder.wait_for_output("held")
    return holder
