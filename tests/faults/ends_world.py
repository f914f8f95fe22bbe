"""Makes a report be given up: in each state of a submission, in each way that there is."""

import contextlib
import dataclasses
import glob
import os
import re
import signal
import tempfile
import time

from gi.repository import GLib

import attempt
from attempt import ACCEPT, COUNT
from names import NameService
from network_world import (
    ADDRESS, CANCEL_LIMIT, LOCAL_HOSTS, NAMED_HOST, clock_variables, crash_log, run_tool, write_file)
from situation import ACCEPTED, REFUSED, SENDING, Delay, ends_of, words
from trial.session import SessionManager
from trial.waiting import WaitedInVain, wait_until

IDLE = "idle"
ENDED = "ended"
LOCKED = "locked"
# Three times as long as the program's transfers wait between two looks at themselves, in seconds.
STILL = 0.3
# In Linux's list of connections, /proc/net/tcp.
BEING_MADE = "02"


@dataclasses.dataclass(frozen=True)
class State:
    """What a submission is stopped in: how it comes about, and how it is known that it has."""

    name: str
    steps: tuple                   # of the endpoint
    reached: object                # called with the attempt
    report: int = 100              # bytes of the crash log
    names: object = None           # what the name service does; the program is the one for a host with a name
    posts: int = 0                 # whole ones that have arrived by then
    says: tuple = ()               # the log's lines by the end
    stays: int = 0                 # descriptors that may stay open for a while after it was given up
    instead: tuple = None          # the only file of the system's that this pattern names, and what stands in its place
    anew: bool = False             # nobody else is told of the next submission, but it is known to have reached it


@dataclasses.dataclass(frozen=True)
class Way:
    """How it is given up."""

    name: str
    do: object                     # called with the attempt
    clock: int = 1                 # how much faster than the world's the program's runs
    session: bool = False          # the program belongs to a desktop's session
    within: float = CANCEL_LIMIT   # seconds until the end


@dataclasses.dataclass(frozen=True)
class GivingUp:
    """One row."""

    name: str
    end: object
    state: State
    way: Way
    sends_again: bool = False      # the next submission is accepted

    def variations(self):
        return (("", None),)

    def cost(self):
        return 1.5 + (1.0 if self.way.clock > 1 else 0.0)


class World(attempt.World):
    def run_once(self, row, _variation):
        self.clock = row.way.clock
        with self.place() as place, self.lookups(row.state) as asked, self.stand_in(row.state) as stand_in, \
                session(place, row.way) as logged_in:
            tried = begin(place, row, asked, logged_in)
            tried.stand_in = stand_in
            wait_until(lambda: row.state.reached(tried), row.state.name)
            posts = place.posts()
            tried.pressed = time.monotonic()
            row.way.do(tried)
            seen = tried.seen(end_of(tried, row))
            if row.end != SENDING and seen.seconds > row.way.within:
                seen.differences.append(Delay(f"it took {seen.seconds:.2f} s"))
            if posts != row.state.posts:
                seen.differences.append(f"{posts} POSTs had arrived")
            seen.differences += [*self.afterwards(row, place, tried, posts)]
            seen.posts = place.posts()
            return seen

    @contextlib.contextmanager
    def lookups(self, state):
        """The list of hosts, and a name service for the states that need one."""
        write_file("/etc/hosts", LOCAL_HOSTS + ("" if state.names else f"127.0.0.1 {NAMED_HOST}\n"))
        write_file("/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:30 attempts:5\n")
        service = NameService(self, state.names) if state.names else None
        try:
            yield service
        finally:
            if service:
                service.end()

    @contextlib.contextmanager
    def stand_in(self, state):
        """Puts a file in the place of one of the system's; what is given back takes it away again."""
        with contextlib.ExitStack() as put:
            if state.instead:
                pattern, content = state.instead
                (path,) = map(os.path.realpath, glob.glob(pattern))
                file = put.enter_context(tempfile.NamedTemporaryFile("w", dir=self.folder, delete=False))
                file.write(content)
                file.close()
                put.callback(os.unlink, file.name)
                os.chmod(file.name, 0o755)
                run_tool("mount", "--bind", file.name, path)
                put.callback(run_tool, "umount", "--lazy", path)
            yield put

    @staticmethod
    def afterwards(row, place, tried, posts):
        """No callback, no further POST, no lost count; and where the window is idle, the report can be sent."""
        yield from lasting(tried, row)
        again = 0
        if row.sends_again:
            again = 1
            yield from leaks(tried, row, place)
            posts = place.posts()
            tried.stand_in.close()
            place.stop_serving()
            place.serve(ACCEPT, addresses=("127.0.0.1",))
            if row.state.names:
                write_file("/etc/hosts", LOCAL_HOSTS + f"127.0.0.1 {NAMED_HOST}\n")
            if (end := tried.submit()) != ACCEPTED:
                yield f"the next submission ended as {end}"
        if more := place.posts() - posts - again:
            yield f"{more} further POSTs"
        yield from place.differing_content()
        if (counted := place.home.settings().get(COUNT)) != str(tried.attempts + again):
            yield f"{counted} attempts are counted, of {tried.attempts + again}"
        # What an answer said is written down when its alert is gone.
        if tried.log_lines() != (list(row.state.says) if row.end != REFUSED else []):
            yield f"the log has {tried.log_lines()}"


@contextlib.contextmanager
def session(place, way):
    """The session of the ways that end one; None for the others."""
    logged_in = SessionManager(tempfile.mkdtemp(dir=place.folder), place.world.desktop) if way.session else None
    try:
        yield logged_in
    finally:
        if logged_in:
            logged_in.end()


def begin(place, row, asked, logged_in):
    state = row.state
    environment = logged_in.environment() if logged_in else []
    if row.way.clock > 1:
        environment += [f"{name}={value}" for name, value in clock_variables(f"+0 x{row.way.clock}").items()]
    if state.steps:
        place.serve(state.steps, addresses=("127.0.0.1",))
    tried = place.report(place.crash_log(content=crash_log(state.report)), environment=environment,
                         binary=place.world.options.named)
    tried.asked = asked
    tried.session = logged_in
    tried.attempts = 1
    tried.has_window()
    tried.fill_in(ADDRESS)
    tried.press()
    return tried


def end_of(tried, row):
    """What has become of it: as soon as it is what is expected, else what it still is when nobody waits longer."""
    known = []

    def is_expected():
        with contextlib.suppress(GLib.Error):  # a program that is just ending
            known.append(condition(tried))
        return known and known[-1] in ends_of(row.end)
    with contextlib.suppress(WaitedInVain):
        wait_until(is_expected, "an end", 0.5 if row.end == SENDING else 5)
    return known[-1] if known else "no answer"


def lasting(tried, row):
    """It stays what it has come to: no alert comes, and, when its connections are gone, nothing is sent again."""
    if row.end != SENDING and tried.command and not is_gone(tried.command):
        yield Delay("the command that it has started goes on")
    if not tried.is_running():
        return
    try:
        wait_until(lambda: row.end == SENDING or not connection_states(tried), "its connections to be gone",
                   CANCEL_LIMIT)
    except WaitedInVain:
        yield Delay("it still has a connection")
    with contextlib.suppress(WaitedInVain):
        later = wait_until(lambda: {condition(tried)}.difference(ends_of(row.end)), "something else", STILL)
        yield f"later it is {words(later)}"


def is_gone(process):
    with contextlib.suppress(WaitedInVain):
        return wait_until(lambda: not os.path.exists(f"/proc/{process}"), "the command's end", CANCEL_LIMIT)
    return False


def condition(tried):
    if not tried.is_running():
        return ENDED if tried.process.returncode == 0 else tried.end_of_process()
    if alert := tried.outcome():
        return alert
    if tried.form.can_submit():
        return IDLE if tried.form.is_unlocked() else LOCKED
    return SENDING


def descriptors(tried):
    """What the program has open apart from what comes and goes with a desktop."""
    folder = f"/proc/{tried.program.pid}/fd"
    found = []
    for name in os.listdir(folder):
        with contextlib.suppress(OSError):
            found.append(re.sub(r"\d+", "", os.readlink(os.path.join(folder, name))))
    return sorted(found)


def leaks(tried, row, place):
    """A second submission that is given up in the same way leaves nothing open."""
    first = settled(tried)
    known = traffic(tried)
    tried.attempts += 1
    tried.press()
    wait_until(lambda: row.state.reached(tried) if row.state.anew
               else traffic(tried) > known or BEING_MADE in connection_states(tried), "the next submission", 5)
    row.way.do(tried)
    try:
        wait_until(tried.form.can_submit, "the window to be idle", CANCEL_LIMIT)
    except WaitedInVain:
        yield Delay("the second time it is not given up")
    second = settled(tried)
    if len(second) > len(first) + row.state.stays:
        yield f"{len(first)} are open after the first, {len(second)} after the second: {first}, {second}"


def traffic(tried):
    """How many connections, whole reports and questions for names there have been."""
    return sum(peer.connections for peer in tried.place.peers) + tried.place.posts() \
        + (tried.asked.questions if tried.asked else 0)


def settled(tried):
    """What is open once that does not change any more."""
    known = []

    def is_settled():
        known.append(descriptors(tried))
        return len(known) > 3 and known[-1] == known[-2] == known[-3]
    with contextlib.suppress(WaitedInVain):
        wait_until(is_settled, "its descriptors to settle", 2)
    return known[-1]


def connection_states(tried):
    """The states of the program's TCP connections, as the kernel lists them."""
    sockets = {re.sub(r"\D", "", entry) for entry in links_of(tried.program.pid) if entry.startswith("socket:")}
    with open("/proc/net/tcp", encoding="ascii") as file:
        rows = [line.split() for line in file.readlines()[1:]]
    return {row[3] for row in rows if row[9] in sockets}


def links_of(pid):
    for name in os.listdir(f"/proc/{pid}/fd"):
        with contextlib.suppress(OSError):
            yield os.readlink(f"/proc/{pid}/fd/{name}")


# Ways


def signalled(*numbers):
    def do(tried):
        for number in numbers:
            tried.send_signal(number)
    return do


def pressing(title):
    def do(tried):
        tried.program.press(title)
    return do


def typing(*keys):
    def do(tried):
        tried.program.key(*keys)
        tried.pressed = time.monotonic()  # without the time that the tool takes to type them
    return do


def submitting_again(times):
    def do(tried):
        for _ in range(times):
            tried.program.click("Sending...")
            tried.program.key("alt+r", "Return")
    return do


def closing(tried):
    tried.program.close_window()
    tried.pressed = time.monotonic()  # without the time that the tool takes to give the window the focus


def logging_out(tried):
    tried.session.begin_logout()


def answering_alert(tried):
    tried.program.screen.press_alert_button()


def stopped(seconds):
    """Stopped, and continued when the program's clock has run on by so many seconds."""
    def do(tried):
        tried.send_signal(signal.SIGSTOP)
        time.sleep(seconds / tried.place.world.clock)  # it is what the row is about
        tried.send_signal(signal.SIGCONT)
        tried.pressed = time.monotonic()
    return do
