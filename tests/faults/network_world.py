"""Makes a situation of the network happen: peers and names in the private namespace, and one program that sends."""

import contextlib
import dataclasses
import glob
import os
import re
import shutil
import subprocess
import tempfile
import time

from names import NameService
from peers import Peer, REQUEST, fields_of
from situation import ACCEPTED, FAILED, REFUSED, SENDING, Delay, Seen, ends_of
from tracing import drawn
from trial import screen
from trial.desktop import Desktop
from trial.expected import expected_report
from trial.home import Home
from trial.processes import ORDINARY_USER
from trial.program import Program
from trial.waiting import WaitedInVain, wait_until

PATH = "/appdata/plovrin/reportcrash.php"
ADDRESS = "jo@example.org"
TRY_AGAIN = "Please try again later."
ALERTS = {("Crash log upload failed.", TRY_AGAIN): REFUSED, ("Connection failed.", TRY_AGAIN): FAILED}
CRASH_LOG = b"Process: Harbour [4711]\nException Type: EXC_BAD_ACCESS\n\nThread 0 Crashed:\n0 Harbour main + 12\n"
LINE = b"0x00007fff20331000 - 0x00007fff20331fff libharbour.so.1 (1.0.0) /usr/lib/libharbour.so.1\n"
NAMED_HOST = "endpoint.test"
LOCAL_HOSTS = "127.0.0.1 localhost\n::1 localhost\n"
OTHER_CLOCK = "/usr/lib/*/faketime/libfaketime.so.1"
# What the program may take to answer a person who presses Cancel, in seconds.
CANCEL_LIMIT = 1.0
# What a run may take beyond its bound before it is given up, in seconds.
GRACE = 5.0
MEBIBYTE = 1 << 20


def clock_variables(value):
    """The variables that give a program another clock, as libfaketime writes it.

    Files keep their times: of the two ways of asking for them the library would change what one gives, not the other.
    """
    (library,) = glob.glob(OTHER_CLOCK)
    return {"LD_PRELOAD": library, "FAKETIME": value, "NO_FAKE_STAT": "1"}


@dataclasses.dataclass(frozen=True)
class Situation:
    """One row: what the program meets, and what has to come of it.

    The endpoint listens on port 443 of both loopback addresses, unless `at` says otherwise. Times are in seconds of the
    program's clock, from the press of Report Crash to the end. Give `names` or `addresses` and the program is the one
    that was built for another host than this machine.
    """

    name: str
    end: object                    # one of the ends, or those that are allowed
    serve: tuple = None            # the endpoint's script
    each: tuple = ()               # instead: (label, script) of a series
    at: dict = dataclasses.field(default_factory=dict)  # further scripts by "address:port"
    addresses: tuple = ()          # of the other host, in the list of hosts
    names: object = None           # what the name service does
    resolver: str = None           # the resolver's configuration, where it is not the usual one
    environment: dict = dataclasses.field(default_factory=dict)
    posts: object = None           # whole POSTs that arrive, or the counts that are allowed; 1 where a script reads one
    connections: int = None        # TCP connections to all peers together
    tunnels: int = None            # requests to proxies
    clock: int = 1                 # how much faster than the world's the program's runs
    after: float = 0.0             # not before
    within: float = 10.0           # not later; for "still sending" the time at which it is looked at
    memory: int = None             # MiB at most, at the end
    report: int = len(CRASH_LOG)   # bytes of the crash log
    returned: object = "NO"        # the body of a refusal as the log shows it, or those that are allowed
    link: str = None               # rate of loopback, as tc writes it

    def variations(self):
        return self.each or (("", self.serve),)

    def expected_posts(self, steps):
        """The numbers of whole POSTs that are allowed."""
        if self.posts is not None:
            return (self.posts,) if isinstance(self.posts, int) else self.posts
        scripts = [steps, *self.at.values()]
        return (1,) if any(REQUEST in told for told in scripts if told) else (0,)

    def bodies(self):
        return (self.returned,) if isinstance(self.returned, str) else self.returned

    def cost(self):
        """About how many seconds it takes, so that the longest are begun first."""
        bound = self.after or (self.within if SENDING in ends_of(self.end) else 0.0)
        return (bound / self.clock + 0.5) * len(self.variations())


def crash_log(size):
    return (CRASH_LOG + LINE * (size // len(LINE) + 1))[:size]


class World:
    """A desktop, and the binaries: `program`, built for this machine, and `named`, for a host with a name."""

    path = PATH

    def __init__(self, options):
        self.options = options
        self.authority = options.authority
        self.folder = tempfile.mkdtemp(prefix="faults-")
        self.desktop = Desktop(self.folder)
        self.clock = 1
        os.environ.update(self.desktop.environment())
        screen.start()

    def close(self):
        self.desktop.end()
        shutil.rmtree(self.folder, ignore_errors=True)

    def run(self, row):
        """What was seen, by the label of each run."""
        self.clock = row.clock
        with tempfile.TemporaryDirectory(dir=self.folder) as folder, limited(row.link):
            sender = Sender(self, row, folder)
            try:
                return [(label, self.run_once(row, steps, sender))
                        for label, steps in drawn(row.variations(), self.options.runs)]
            finally:
                sender.end()

    def run_once(self, row, steps, sender):
        write_file("/etc/hosts", LOCAL_HOSTS + "".join(f"{address} {NAMED_HOST}\n" for address in row.addresses))
        write_file("/etc/resolv.conf", row.resolver or "nameserver 127.0.0.1\n")
        with contextlib.ExitStack() as ended:
            peers = [Peer(self, *place_of(where), told) for where, told in self.places(row, steps).items()]
            service = NameService(self, row.names) if row.names else None
            for peer in (*peers, *([service] if service else ())):
                ended.callback(peer.end)
            sender.be_ready()
            seen = sender.submit()
            if row.link and seen.end == SENDING:
                # What the system still held would arrive later.
                sender.expect(seen, lambda: not any(peer.is_spoken_to() for peer in peers), "the server still receives")
            judge(row, steps, sender, peers, seen)
            return seen

    @staticmethod
    def places(row, steps):
        places = {"127.0.0.1:443": steps, "[::1]:443": steps} if steps else {}
        return {**places, **row.at}


def place_of(text):
    address, _, port = text.rpartition(":")
    return address.strip("[]"), int(port)


class Sender:
    """The program of one row; a series goes on with the same one as long as it runs."""

    def __init__(self, world, row, folder):
        self.world = world
        self.row = row
        self.folder = folder
        self.program = None

    def end(self):
        if self.program:
            self.program.end()

    def be_ready(self):
        """Has a program at hand whose report can be submitted."""
        if self.program and self.program.process.is_running():
            return
        self.end()
        self.home = Home(tempfile.mkdtemp(dir=self.folder))
        self.content = crash_log(self.row.report)
        log = self.home.crash_log("Harbour_2026-11-02-101500_anvil.crash", self.content)
        self.attempts = self.lines_read = 0
        self.program = Program(
            self.binary(), ["-remotename", "anvil", "-log", log], self.world.desktop, self.home,
            tempfile.mkdtemp(dir=self.folder), prefix=(*ORDINARY_USER, "env", *self.variables()))
        self.program.wait_for_window()
        self.program.fill_in(ADDRESS)
        self.form = Form(self.program.screen)

    def binary(self):
        options = self.world.options
        return options.named if self.row.addresses or self.row.names or self.row.resolver else options.program

    def variables(self):
        variables = dict(self.row.environment)
        if self.row.clock != 1:
            variables.update(clock_variables(f"+0 x{self.row.clock}"))
        return [f"{name}={value}" for name, value in variables.items()]

    def submit(self):
        """Presses Report Crash and waits for the end, or for the time at which it shall still be sending."""
        self.attempts += 1
        self.form.submit.press()
        self.pressed = time.monotonic()
        seen = Seen(end=SENDING)
        limit = self.row.within / self.row.clock
        if SENDING not in ends_of(self.row.end):
            limit += GRACE
        with contextlib.suppress(WaitedInVain):
            seen.end = wait_until(self.outcome, "the end", limit)
        seen.seconds = (time.monotonic() - self.pressed) * self.row.clock
        seen.memory = self.memory()
        self.leave(seen)
        return seen

    def outcome(self):
        process = self.program.process
        if not process.is_running():
            status = process.process.returncode
            return ACCEPTED if status == 0 else f"ended with exit status {status}"
        # An alert is one more window; to read it takes many more questions than to count.
        alert = self.program.screen.count_windows() > 1 and self.program.screen.alert()
        return ALERTS.get(alert, f"alert {alert}") if alert else None

    def memory(self):
        """The most that the program has had in memory so far, in MiB; 0 when it has ended."""
        with contextlib.suppress(OSError), open(f"/proc/{self.program.pid}/status", encoding="ascii") as file:
            if found := re.search(r"^VmHWM:\s+(\d+) kB$", file.read(), re.MULTILINE):
                return int(found[1]) * 1024 // MEBIBYTE
        return 0

    def leave(self, seen):
        """Answers the alert, or cancels; afterwards a person can go on."""
        if seen.end in (REFUSED, FAILED):
            self.program.screen.press_alert_button()
            self.expect(seen, lambda: self.program.screen.count_windows() == 1, "the alert does not close")
            self.expect(seen, self.form.can_submit, "the report cannot be submitted again")
            if not self.form.is_locked():
                seen.differences.append("the form is not locked")
        elif seen.end == SENDING:
            begun = time.monotonic()
            if not self.form.is_sending():
                seen.differences.append("the window does not show that it is sending")
            self.program.press("Cancel")
            self.expect(seen, lambda: self.form.can_submit() and self.form.is_unlocked(), "Cancel does not answer")
            taken = time.monotonic() - begun
            if taken > CANCEL_LIMIT:
                seen.differences.append(Delay(f"Cancel took {taken:.2f} s"))

    @staticmethod
    def expect(seen, condition, otherwise):
        try:
            wait_until(condition, otherwise, GRACE)
        except WaitedInVain:
            seen.differences.append(Delay(otherwise))

    def new_lines(self):
        """What the program has written to its log since this was last asked."""
        lines = self.program.errors().splitlines()
        new, self.lines_read = lines[self.lines_read:], len(lines)
        return [re.sub(r"^korvale-crash-reporter\S*\[\d+\]: ", "", line) for line in new]

    def expected_fields(self):
        return {"crashlog": expected_report(self.content, {}), "email": ADDRESS.encode()}


class Form:
    """The controls of the report window, by which a person sees what state the report is in."""

    def __init__(self, shown):
        self.submit = shown.control("Report Crash")
        self.address = shown.control("E-mail address")
        self.description = shown.control("Description")

    def can_submit(self):
        return self.submit.name() == "Report Crash" and self.submit.is_enabled()

    def is_sending(self):
        return self.submit.name() == "Sending..." and not self.submit.is_enabled()

    def is_locked(self):
        return not self.address.is_enabled() and not self.description.is_editable()

    def is_unlocked(self):
        return self.address.is_enabled() and self.description.is_editable()


# What is held against the row


def judge(row, steps, sender, peers, seen):
    seen.posts = sum(requests.whole for peer in peers for requests in peer.requests)
    seen.differences += [
        *differing_posts(row, steps, sender, peers, seen), *differing_counts(row, peers),
        *differing_cost(row, seen), *differing_log(row, sender, seen), *differing_settings(sender)]
    if seen.end != SENDING and seen.seconds > row.within:
        seen.differences.append(Delay(f"it took {seen.seconds:.1f} s of {row.within:.0f}"))
    seen.notes += [f"server: {note}" for peer in peers for note in peer.notes]
    seen.notes.append(f"{seen.posts} whole POSTs, {sum(peer.connections for peer in peers)} connections, "
                      f"{sum(peer.handshakes for peer in peers)} handshakes, {seen.seconds:.1f} s")


def differing_posts(row, steps, sender, peers, seen):
    requests = [request for peer in peers for request in peer.requests]
    if seen.posts not in row.expected_posts(steps):
        yield f"{seen.posts} whole POSTs"
    if seen.end == ACCEPTED and seen.posts != 1 and row.posts != 0:
        yield "accepted without a report at the server"
    if (begun := sum(request.begun for request in requests)) > 1:
        yield f"{begun} requests were begun"
    yield from (problem for request in requests for problem in request.problems)
    if any(fields_of(*body) != sender.expected_fields() for request in requests for body in request.bodies):
        yield "the body is not the report"


def differing_counts(row, peers):
    connections = sum(peer.connections for peer in peers)
    if row.connections is not None and connections != row.connections:
        yield f"{connections} connections"
    tunnels = sum(len(peer.tunnels) for peer in peers)
    if row.tunnels is not None and tunnels != row.tunnels:
        yield f"{tunnels} requests to a proxy"


def differing_cost(row, seen):
    if seen.end != SENDING and seen.seconds < row.after:
        yield f"it took {seen.seconds:.1f} s, less than {row.after:.0f}"
    if row.memory is not None and seen.memory > row.memory:
        yield f"it took {seen.memory} MiB of {row.memory}"


def differing_log(row, sender, seen):
    """One line with the beginning of the answer's body for a refusal, else nothing."""
    lines = []

    def has_come():
        lines.extend(sender.new_lines())
        return lines
    if seen.end == REFUSED:
        with contextlib.suppress(WaitedInVain):
            wait_until(has_come, "the line of the log", GRACE)
        text = lines[0].removeprefix("Returned data: ") if len(lines) == 1 else ""
        if not text or text == lines[0] or not any(body.startswith(text) for body in row.bodies()):
            yield f"the log has {lines}"
    elif has_come():
        yield f"the log has {lines}"


def differing_settings(sender):
    """Each attempt is counted once, whatever came of it."""
    counted = sender.home.settings().get("crashSubmissionCount")
    if counted != str(sender.attempts):
        yield f"{counted} of {sender.attempts} attempts are counted"


# The namespace


@contextlib.contextmanager
def limited(rate):
    """Loopback at this rate, with packets as small as a real link's."""
    if not rate:
        yield
        return
    run_tool("ip", "link", "set", "lo", "mtu", "1500")
    run_tool("tc", "qdisc", "add", "dev", "lo", "root", "tbf", "rate", rate, "burst", "1600", "latency", "500ms")
    try:
        yield
    finally:
        run_tool("tc", "qdisc", "del", "dev", "lo", "root")
        run_tool("ip", "link", "set", "lo", "mtu", "65536")


def run_tool(*command):
    subprocess.run(command, check=True, capture_output=True, text=True, env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"})


def write_file(path, text):
    with open(path, "w", encoding="ascii") as file:
        file.write(text)
