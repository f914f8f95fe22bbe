"""Leases on files, which their holder is asked to let go when the file is opened (fcntl(2), F_SETLEASE)."""

import sys

from trial.processes import Started

LETS_GO, KEEPS = "lets go", "keeps"
HOLDER = """
import fcntl, os, signal, sys
file = os.open(sys.argv[1], os.O_RDWR)
def ask(*_):
    print("asked", flush=True)
    if sys.argv[2] == "lets go":
        os.close(file)
signal.signal(signal.SIGIO, ask)
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


def not_asked(holder):
    """Where nobody has opened the file, the lease has kept nobody waiting."""
    if "asked" not in holder.output():
        yield "nobody has asked for the lease to be given up"
