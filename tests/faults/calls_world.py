"""Makes one system call of the program, or one allocation, fail once, from the first line of main to the acceptance."""

import contextlib
import dataclasses
import itertools
import os
import random
import re
import signal
import subprocess
import sys

import attempt
from attempt import NO_REPORT
from network_world import ADDRESS, LOCAL_HOSTS, NAMED_HOST, TRY_AGAIN, write_file
from settings_world import FOR_THE_USER, file_of, not_new, with_old
from situation import ACCEPTED, NOT_REACHED, SENDING
from tracing import Trace
from trial.waiting import WaitedInVain, wait_until

SAID = "a line and exit status 1"
DISPLAY_LOST = "the toolkit's own words of a lost display and exit status 1"
# All that stands in the log when the exit status is 1.
LAST_WORDS = (
    ("korvale-crash-reporter: there is no memory to go on", SAID),
    ("korvale-crash-reporter: the report window cannot be shown on this display: .+", SAID),
    # The toolkit may have wondered before at the answers that it no longer gets.
    (r"(?:(?!korvale-).*\n)*(?:The X11 connection broke.+|XIO:  fatal IO error.+\n +after \d+ .+)", DISPLAY_LOST),
)
ALERT = "an alert"
DESCRIPTION = "Saved a scene"
# That the report has not arrived. None other can be right: the server never refuses, and the log is read before.
ALERTS = tuple((title, TRY_AGAIN) for title in (
    "Connection failed.", "Unable to submit crash report - failed to establish a connection."))
UNTOLD = "its texts could not be read"
# Where the crash log cannot be read there is no report to show, and by design no word of it.
UNREAD = "no word of an unread log"
WITHOUT_BODY = "Exception in generateFormData:forBoundary."
# Below the program, at a place that the run names.
BELOW = "ended below the program"
CRASH = "ended by SIGSEGV"
# Nobody's own frames: the way into a handler of signals, and what asks for memory on somebody's behalf.
BENEATH_ALL = re.compile(r"/libc[.]so|\(_ZN10QArrayData(8allocate|10reallocate)")
TOOLKIT = re.compile(r"/qt6/plugins/|"
                     r"/lib(Qt6\w+|X11|X11-xcb|xcb[\w-]*|xkbcommon[\w-]*|glib-2[.]0|fontconfig|freetype|harfbuzz)[.]so")
# The request goes out all the same, which a server has to refuse; the log says so.
NO_BODY = "a request without a body"
# How it may come to an end; a run that was not reached has to be accepted.
ENDS = (ACCEPTED, ALERT, SAID, UNREAD, BELOW, NOT_REACHED)
# What strace's "<socket:" becomes where the socket is the server's, or the display's; others are those of the desktop.
SERVER, DISPLAY = "<server:", "<display:"
PEERS = ((SERVER, "sa_family=AF_INET"), (DISPLAY, 'sun_path=@?"/tmp/.X11-unix/'))
# The first call of main, that no library makes before it; and one that main makes soon after, and nobody else.
FIRST_OF_MAIN, SOON_AFTER, HOW_SOON = "rt_sigaction(SIGPIPE, {sa_handler=SIG_IGN", "setitimer", 20


@dataclasses.dataclass(frozen=True)
class Calls:
    """One row: calls, and for each the errors that its manual names and the machine may give."""

    name: str
    errors: dict                   # by call
    places: tuple = ()             # where what lies below ends the program: (what the call looks like, the end, where)
    files: tuple = ()              # of another thread: its calls on these files, which no other thread looks at
    end: object = ENDS
    sample: int = 2                # of its runs, how many are tried unless all are asked for

    def variations(self):
        return ((None, None),)

    def cost(self):
        return 8.0


@dataclasses.dataclass(frozen=True)
class Others:
    """One row: that the program makes no call but those that other rows make fail and those that are left out."""

    name: str
    known: frozenset
    places: tuple = ()
    files: tuple = ()
    end: object = ACCEPTED
    sample: int = 1

    def variations(self):
        return ((None, None),)

    def cost(self):
        return 8.0


@dataclasses.dataclass(frozen=True)
class Memory:
    """One row: allocations of a submission, of which one fails; each row has its share of all."""

    name: str
    share: int
    shares: int
    places: tuple = ()             # the same, by the stack of the crash, or of who got no memory
    end: object = (*ENDS, NO_BODY)
    sample: int = 2

    def variations(self):
        return ((None, None),)

    def cost(self):
        return 8.0


class World(attempt.World):
    def __init__(self, base):
        super().__init__(base)
        self.counts = {}           # by the files of the rows
        self.allocations = None

    def run(self, row):
        runs = self.runs_of(row)
        if all(seen.end == NOT_REACHED for _, seen in runs):
            # What was counted holds no longer, as when somebody has filled a cache of the system's meanwhile.
            self.counts.clear()
            self.allocations = None
            runs = self.runs_of(row)
        return runs

    def runs_of(self, row):
        limit = None if self.options.all else self.options.runs or row.sample
        if isinstance(row, Others):
            strange = sorted(self.all_counts(row).keys() - row.known)
            return [("", attempt.Seen(ACCEPTED, differences=[f"it has no row: {name}" for name in strange]))]
        if isinstance(row, Memory):
            return [self.told_at_once(f"allocation {number}", self.out_of_memory(row, number))
                    for number in self.numbers(row, limit)]
        plan = self.plan(row, limit)
        if not plan:
            return [("", attempt.Seen("nothing to fail", differences=["none of these calls is made"]))]
        return [self.told_at_once(f"{name} {number} {error}", self.one_fails(row, name, number, error))
                for name, number, error in plan]

    def told_at_once(self, label, seen):
        """The run; where all are asked for, the table is hours away, so each is told as it is seen."""
        if self.options.all:
            print(f"{label}: {seen.end}", *seen.differences, sep="; ", file=sys.stderr, flush=True)
        return label, seen

    # What there is to fail

    def plan(self, row, limit):
        """What fails in each run; of a sample evenly many for each name, at calls and with errors that are drawn."""
        runs = {name: [(name, number, error) for number in self.occurrences(row, name) for error in errors]
                for name, errors in row.errors.items()}
        if never := [name for name in runs if not runs[name]]:
            print(f"{row.name}: never made: {', '.join(never)}", file=sys.stderr, flush=True)
        if limit is None:
            return [run for name in runs for run in runs[name]]
        turns = itertools.zip_longest(*(self.sample(runs[name], limit) for name in self.sample(runs)))
        return [run for turn in turns for run in turn if run][:limit]

    def sample(self, values, count=None):
        """So many of the values, or all in another order. The seed alone decides which of two comes first, so that a
        call more or less, as there is from run to run, changes no other."""
        return sorted(values, key=lambda value: random.Random(f"{self.options.seed} {value}").random())[:count]

    def occurrences(self, row, name):
        """The numbers of the calls of that name: in the main thread from the first line of main on, or on the files."""
        first, last = self.all_counts(row).get(name, (0, 0))
        return range(first + 1, last + 1)

    def all_counts(self, row):
        if row.files not in self.counts:
            # The first program of a system reads every font, of which it keeps what the others need.
            self.counted_calls(row)
            self.counts[row.files] = self.counted_calls(row)
        return self.counts[row.files]

    def counted_calls(self, row):
        with self.submission(files=row.files) as (place, trace, tried):
            end = submit(tried)
            if end != ACCEPTED:
                raise RuntimeError(f"the report without a fault ended as {end}")
            return counted_on_files(trace.lines()) if row.files else counted(trace.lines())

    def numbers(self, row, limit):
        if self.allocations is None:
            with self.submission(fail_at=0) as (place, _, tried):
                end = submit(tried)
                path = os.path.join(place.folder, "allocations")
                if end != ACCEPTED or not os.path.exists(path):
                    raise RuntimeError(f"the report without a fault ended as {end}")
                with open(path, encoding="ascii") as file:
                    self.allocations = int(file.read())
        numbers = range(1 + row.share, self.allocations + 1, row.shares)
        return numbers if limit is None else self.sample(numbers, limit)

    @contextlib.contextmanager
    def submission(self, *expressions, files=(), fail_at=None):
        write_file("/etc/hosts", LOCAL_HOSTS + f"127.0.0.1 {NAMED_HOST}\n")
        write_file("/etc/resolv.conf", "nameserver 127.0.0.1\n")
        with self.place() as place:
            with_old(place)
            place.before = file_of(place)
            place.serve(addresses=("127.0.0.1",))
            trace = Trace(place.folder, *expressions, paths=files, follow=bool(files))
            memory = () if fail_at is None else (
                f"LD_PRELOAD={os.path.abspath(self.options.memory)}", f"KORVALE_FAIL_AT={fail_at}",
                f"KORVALE_COUNT_TO={place.folder}/allocations", f"KORVALE_REFUSED_TO={place.folder}/refused",
                f"KORVALE_CRASHED_TO={place.folder}/crashed")
            tried = place.report(place.crash_log(), environment=memory,
                                 prefix=trace.prefix() if fail_at is None else (),
                                 binary=self.options.named if files else None)
            tried.arms = fail_at is not None
            try:
                yield place, trace, tried
            finally:
                if tried.is_running():
                    tried.send_signal(signal.SIGKILL)

    # One run

    def one_fails(self, row, name, number, error):
        expressions = (f"trace={name},connect", f"inject={name}:error={error}:when={number}")
        with self.submission(*expressions, files=row.files) as (place, trace, tried):
            seen = tried.seen(submit(tried))
            injected = trace.injected()
            seen.notes += injected
            if seen.end == NO_REPORT and any(attempt.LOG_NAME in line for line in injected):
                seen.end = UNREAD
            judge(row, seen, place, tried, "".join(injected).replace("<socket:", socket_of(injected, trace.lines())))
            return seen if injected else untouched(seen)

    def out_of_memory(self, row, number):
        with self.submission(fail_at=number) as (place, _, tried):
            seen = tried.seen(submit(tried))
            refused, crashed = stack_of(place, "refused"), stack_of(place, "crashed")
            seen.notes += [*refused[:10], *(f"crashed: {line}" for line in crashed[:10])]
            if seen.end == CRASH and (where := taken_for_granted(crashed, refused)):
                seen.end, seen.where = BELOW, where
            judge(row, seen, place, tried, "".join(crashed or refused))
            return seen if refused else untouched(seen)


def socket_of(injected, lines):
    """Whose socket the call that failed was on: what the display's brings about is no excuse for another's."""
    for label, address in PEERS:
        sockets = {found[1] for line in lines if (found := re.search(rf"connect\((\d+)<.*{address}", line))}
        if any((found := re.search(r"\((?:\[\{fd=)?(\d+)<", line)) and found[1] in sockets for line in injected):
            return label
    return "<socket:"


def untouched(seen):
    """The same, as a run in which nothing failed: that nobody notices."""
    if seen.end != ACCEPTED:
        seen.differences.append(f"nothing failed, and it ended as {seen.end}")
    seen.end = NOT_REACHED
    return seen


def counted(lines):
    """By name: how many calls there were before main, and how many in all."""
    calls = [line for line in lines if re.match(r"\w+\(", line)]
    names = [line.partition("(")[0] for line in calls]
    started = max(number for number, name in enumerate(names) if name == "execve")
    begins = next((number for number, line in enumerate(calls) if number > started and line.startswith(FIRST_OF_MAIN)),
                  started)
    if SOON_AFTER not in names[begins:begins + HOW_SOON]:
        raise RuntimeError(f"main does not begin with {FIRST_OF_MAIN} and soon after {SOON_AFTER}")
    return {name: (names[:begins].count(name), names.count(name)) for name in set(names[begins:])}


def counted_on_files(lines):
    """The same of calls on some files, which nothing makes before main; all of them in one thread."""
    calls = [match for line in lines if (match := re.match(r"(\d+) +(\w+)\(", line))]
    if len({call[1] for call in calls}) != 1:
        raise RuntimeError(f"not one thread has made the calls: {lines}")
    return {call[2]: (0, sum(other[2] == call[2] for other in calls)) for call in calls}


def submit(tried):
    """Submits by keyboard, for the accessibility bus may be what fails; returns the end as a person sees it."""
    try:
        wait_until(lambda: not tried.is_running() or windows(tried), "a window or the end", attempt.PATIENCE)
    except WaitedInVain:
        return "no window and no end"
    if tried.is_running():
        fill_in(tried)
    for _ in range(20):
        if has_reacted(tried):
            break
        press_key(tried)
        with contextlib.suppress(WaitedInVain):
            wait_until(lambda: has_reacted(tried), "a sign", 0.7)
    try:
        return wait_until(lambda: end_of(tried), "the end", attempt.PATIENCE)
    except WaitedInVain:
        return SENDING


def has_reacted(tried):
    return not tried.is_running() or tried.place.requests() or len(windows(tried)) > 1


def end_of(tried):
    if tried.is_running():
        return ALERT if len(windows(tried)) > 1 else None
    status = tried.process.returncode
    if status == 1:
        log = "\n".join(tried.log_lines())
        return next((end for words, end in LAST_WORDS if re.fullmatch(words, log)), tried.end_of_process())
    if status == 0:
        return ACCEPTED if tried.place.posts() else NO_REPORT
    return tried.end_of_process()


def told(tried):
    """The texts of the alert; None where the program tells of no second window, as after a fault of its bus."""
    with contextlib.suppress(WaitedInVain):
        return wait_until(tried.program.screen.alert, "the texts of the alert", 3)
    return () if tried.program.screen.count_windows() > 1 else None


def windows(tried):
    """The program's windows as the display knows them."""
    return subprocess.run(["xdotool", "search", "--onlyvisible", "--pid", str(tried.program.pid), "--name", "."],
                          capture_output=True, text=True, check=False, timeout=30).stdout.split()


def fill_in(tried):
    """By keyboard too, but where memory runs out, from the moment on at which all that was typed is in the form."""
    if tried.arms:
        tried.fill_in(ADDRESS, DESCRIPTION)
        tried.send_signal(signal.SIGUSR1)
        return
    tried.place.types(ADDRESS, DESCRIPTION)
    typing = ("type", "--delay", "0", "--args", "1")
    subprocess.run(["xdotool", "key", "--window", "0", "alt+e", *typing, ADDRESS,
                    "key", "--window", "0", "alt+s", *typing, DESCRIPTION],
                   capture_output=True, check=False, timeout=30)


def press_key(tried):
    subprocess.run(["xdotool", "key", "--window", "0", "alt+r"], capture_output=True, check=False, timeout=30)


def stack_of(place, event):
    """Who was running when memory was refused, or at the crash, the innermost first; nobody where neither happened."""
    with contextlib.suppress(FileNotFoundError), open(f"{place.folder}/{event}", encoding="utf-8") as file:
        return [line for line in file if not re.search("failing-memory|libstdc", line)]
    return []


def taken_for_granted(crashed, refused):
    """Where the toolkit, or what it draws and reads the display with, crashed without the memory that itself had asked
    for; nothing where the program had a hand in either."""
    frames = [next((line for line in stack if not BENEATH_ALL.search(line)), "") for stack in (crashed, refused)]
    if all(map(TOOLKIT.search, frames)):
        return f"{os.path.basename(frames[0].split('[')[0])} goes on without memory"
    return None


def damage(place):
    """How the settings are neither the old ones nor those with one attempt more, with their rights or the user's."""
    after = file_of(place)
    if after != place.before:
        alone = FOR_THE_USER["file"]
        yield from not_new(place.before, after, alone if after and after[0] == alone else None)


def judge(row, seen, place, tried, where):
    """Accepted only with the whole report; an alert only one of failure; no setting lost; nothing sent twice."""
    if seen.end == ALERT:
        texts = told(tried)
        seen.where = UNTOLD if texts is None else " ".join(texts)
        if texts is not None and texts not in ALERTS:
            seen.differences.append(f"the window that came says {texts}")
        if texts is None and SERVER in where:
            seen.differences.append("the texts of the window that came cannot be read, though no fault is the bus's")
    for pattern, end, words in row.places:
        if seen.end == end and re.search(pattern, where):
            seen.end = BELOW
            seen.where = words
    if seen.end == ACCEPTED and place.bodies() == [None] and any(WITHOUT_BODY in line for line in tried.log_lines()):
        seen.end = NO_BODY
    expected = (1,) if seen.end == ACCEPTED else (0, 1)
    if place.posts() not in expected:
        seen.differences.append(f"{place.posts()} whole POSTs")
    if sum(request.begun for request in place.requests()) > 1:
        seen.differences.append("a second request was begun")
    if seen.end != NO_BODY:
        seen.differences += place.differing_content()
    seen.differences += damage(place)
    if tried.log_lines():
        seen.notes.append(f"log: {tried.log_lines()[:3]}")
