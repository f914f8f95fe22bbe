"""Makes a situation of the files happen: a crash log and application logs as a person's disk may hold them."""

import dataclasses
import time

import attempt
from attempt import NOTHING_TO_SEND
from leases import not_asked
from situation import ACCEPTED, Delay
from tracing import Trace


@dataclasses.dataclass(frozen=True)
class Made:
    """What a row has laid down, and what has to come of it."""

    path: object                   # of the crash log, as the command line names it
    report: bytes = None           # what has to arrive, where the report can be sent
    folder: str = None             # in which the program is started
    inject: tuple = ()             # strace's expressions, for the calls that touch the file that is traced
    traced: str = None             # the file; the crash log where none is named
    change: object = None          # done, while a call on that file is held,
    behind: str = ""               # once this one has been made
    times: int = 1                 # so many times
    address_space: int = None      # the bound on it, in bytes
    holder: object = None          # of a lease


@dataclasses.dataclass(frozen=True)
class File:
    """One row: what lies there, and the end."""

    name: str
    end: str
    make: object = None            # called with the place, gives what it has Made
    each: tuple = ()               # instead: (label, make) of a series
    within: float = 12.0           # from the start to the window, or to the end: no file is waited for

    def variations(self):
        return self.each or (("", self.make),)

    def cost(self):
        return 1.0 * len(self.variations())


class World(attempt.World):
    def run_once(self, row, make):
        with self.place() as place:
            made = make(place)
            place.serve()
            tried = start(place, made)
            has_window = tried.has_window()
            taken = time.monotonic() - tried.begun
            seen = tried.seen(tried.submit() if has_window else tried.end_of_process())
            end = seen.end
            if taken > row.within:
                seen.differences.append(Delay(f"the start took {taken:.1f} s"))
            seen.differences += [*self.differences(row, made, place, tried)]
            if end == NOTHING_TO_SEND and not (tried.dismiss() and tried.program.exit_status() == 0):
                seen.differences.append("the program does not end with the alert")
            return seen

    @staticmethod
    def differences(row, made, place, tried):
        sends = row.end == ACCEPTED
        yield from place.differing_requests(int(sends), made.report)
        if tried.log_lines():
            yield f"the log has {tried.log_lines()}"
        counted = attempt.stored(place).get(attempt.COUNT)
        if counted != ("1" if sends else None):
            yield f"{counted} attempts are counted"
        yield from made_happen(made, tried)


def start(place, made):
    trace = Trace(place.folder, *made.inject, paths=[made.traced or made.path] if made.inject else ())
    limit = ("prlimit", f"--as={made.address_space}") if made.address_space else ()
    tried = place.report(made.path, environment=("-C", made.folder) if made.folder else (),
                         prefix=(*limit, *(trace.prefix() if made.inject else ())))
    tried.trace = trace
    if made.change:
        trace.wait_for(made.behind, made.times)
        made.change()
        tried.changed_late = bool(trace.injected())
    return tried


def made_happen(made, tried):
    """What was to be injected has been."""
    if any(expression.startswith("inject") for expression in made.inject) and not tried.trace.injected():
        yield f"nothing was injected: {tried.trace.lines()}"
    if made.holder:
        yield from not_asked(made.holder)
    if made.change and tried.changed_late:
        yield Delay(f"the change came behind the call that was held: {tried.trace.lines()}")
