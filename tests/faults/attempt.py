"""One program in a home of its own with an endpoint beside it, as the situations of the machine itself need it."""

import contextlib
import os
import re
import signal
import tempfile
import time

from gi.repository import GLib

import network_world
from network_world import ALERTS, CRASH_LOG, Form
from peers import Peer, after_request, fields_of
from situation import ACCEPTED, SENDING, Seen
from trial.home import Home
from trial.processes import ORDINARY_USER
from trial.program import Program
from trial.waiting import WaitedInVain, wait_until

EMPTY = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"
ACCEPT = after_request(EMPTY)
REFUSE = after_request("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nNO")
# No window, no message, exit status 0: there was no report to show.
NO_REPORT = "no window"
# The alert that there is nothing to send, and then the program's end.
NOTHING_TO_SEND = "critical error"
CRITICAL = ("Critical error", "Plovrin was unable to find a log to submit.")
LOG_NAME = "Harbour_2026-11-02-101500_anvil.crash"
# What nobody waits longer for, in seconds.
PATIENCE = 15.0
COUNT = "crashSubmissionCount"
DATE = "lastCrashSubmissionDate"


class World:
    """The desktop of the situations of the network; each run begins with a home of its own."""

    path = network_world.PATH

    def __init__(self, base):
        self.options = base.options
        self.authority = base.authority
        self.desktop = base.desktop
        self.folder = base.folder
        self.clock = 1
        # A program that ends at once is gone before the accessibility service has got to know it.
        GLib.log_set_handler("dbind", GLib.LogLevelFlags.LEVEL_WARNING, lambda *_: None, None)

    def run(self, row):
        return [(label, self.run_once(row, variation)) for label, variation in row.variations()]

    @contextlib.contextmanager
    def place(self):
        """A folder of one run's own, gone at its end whatever stands in it."""
        with contextlib.ExitStack() as ended:
            folder = ended.enter_context(tempfile.TemporaryDirectory(dir=self.folder, ignore_cleanup_errors=True))
            yield Place(self, folder, ended)


class Place:
    """Where one run happens: a home, an endpoint, and the programs that are started there."""

    def __init__(self, world, folder, ended):
        self.world = world
        self.folder = folder
        self.ended = ended
        self.home = Home(os.path.join(folder, "home"))
        self.peers = []
        self.content = b""         # of the crash log that was laid down last
        self.typed = {}            # by the field of the form

    def crash_log(self, name=LOG_NAME, content=CRASH_LOG):
        self.content = content
        return self.home.crash_log(name, content)

    def types(self, address, description=None):
        self.typed["email"] = address.encode()
        if description:
            self.typed["info"] = description.encode()

    def serve(self, steps=ACCEPT, addresses=("127.0.0.1", "::1")):
        for address in addresses:
            peer = Peer(self.world, address, 443, steps)
            self.ended.callback(peer.end)
            self.peers.append(peer)

    def start(self, *arguments, environment=(), prefix=(), binary=None):
        """A program of an ordinary user; the prefix is what starts it inside that user's namespace."""
        attempt = Attempt(self, arguments, environment, prefix, binary or self.world.options.program)
        self.ended.callback(attempt.end)
        return attempt

    def report(self, log, **options):
        """The program as a crashed application starts it."""
        return self.start("-remotename", "anvil", "-log", log, **options)

    def stop_serving(self):
        for peer in self.peers:
            peer.end()

    # What arrived

    def requests(self):
        return [request for peer in self.peers for request in peer.requests]

    def posts(self):
        return sum(request.whole for request in self.requests())

    def bodies(self):
        """The fields of each whole POST."""
        return [fields_of(*body) for request in self.requests() for body in request.bodies]

    def differing_requests(self, expected_posts, report=None):
        if self.posts() != expected_posts:
            yield f"{self.posts()} whole POSTs, not {expected_posts}"
        if (begun := sum(request.begun for request in self.requests())) > expected_posts:
            yield f"{begun} requests were begun"
        yield from self.differing_content(report)

    def differing_content(self, report=None):
        """How what arrived is not the crash log, unless it is another report, with what was typed."""
        expected = {"crashlog": self.content if report is None else report, **self.typed}
        yield from (f"what arrived is {found!r:.300}, not the report" for found in self.bodies() if found != expected)
        yield from (problem for request in self.requests() for problem in request.problems)

    def notes(self):
        return [f"server: {note}" for peer in self.peers for note in peer.notes]


class Attempt:
    """One run of the program."""

    def __init__(self, place, arguments, environment, prefix, binary):
        self.place = place
        self.begun = time.monotonic()
        self.program = Program(
            os.path.abspath(binary), arguments, place.world.desktop, place.home,
            tempfile.mkdtemp(dir=place.folder), prefix=(*ORDINARY_USER, "env", *environment, *prefix))
        self.form = None
        self.command = None        # the process of it, where a row waits for one

    def end(self):
        self.program.end()

    @property
    def process(self):
        return self.program.process.process

    def is_running(self):
        return self.program.process.is_running()

    def send_signal(self, number):
        self.process.send_signal(number)

    def child(self):
        """The process that the program has started, if there is one."""
        for thread in os.listdir(f"/proc/{self.program.pid}/task"):
            with contextlib.suppress(OSError), \
                    open(f"/proc/{self.program.pid}/task/{thread}/children", encoding="ascii") as file:
                if found := file.read().split():
                    return int(found[0])
        return None

    # What a person sees

    def has_window(self):
        """Waits for the window; False when the program has ended without one."""
        def has_come():
            if not self.is_running():
                return "ended"
            return self.program.screen.find("Report Crash", required=False)
        if self.program.wait_until(has_come, "the window or the end", PATIENCE) == "ended":
            return False
        self.form = Form(self.program.screen)
        return True

    def fill_in(self, address, description=None):
        self.program.fill_in(address, description)
        self.place.types(address, description)

    def press(self):
        self.pressed = time.monotonic()
        self.form.submit.press()

    def submit(self, within=PATIENCE):
        """Presses Report Crash and gives the end."""
        self.press()
        try:
            return wait_until(self.outcome, "the end", within)
        except WaitedInVain:
            return SENDING

    def outcome(self):
        """The end, once there is one: of the program, or an alert."""
        if not self.is_running():
            return self.end_of_process()
        alert = self.program.screen.count_windows() > 1 and self.program.screen.alert()
        if not alert:
            return None
        return NOTHING_TO_SEND if alert == CRITICAL else ALERTS.get(alert, f"alert {alert}")

    def end_of_process(self):
        status = self.process.returncode
        if status == 0:
            return ACCEPTED if self.form else NO_REPORT
        if status < 0:
            return f"ended by {signal.Signals(-status).name}"
        return f"ended with exit status {status}"

    def dismiss(self):
        """Answers the alert; True when it closes, be it with the program."""
        self.program.screen.press_alert_button()
        with contextlib.suppress(WaitedInVain):
            return wait_until(lambda: not self.is_running() or self.program.screen.count_windows() == 1,
                              "the alert to close")
        return False

    def can_go_on(self, seconds=PATIENCE):
        """Whether the report can come to be submitted again."""
        with contextlib.suppress(WaitedInVain):
            return wait_until(self.form.can_submit, "the button", seconds)
        return False

    def log_lines(self):
        """What stands on standard error, without the program's name."""
        return [re.sub(r"^korvale-crash-reporter\S*\[\d+\]: ", "", line)
                for line in self.program.errors().splitlines()]

    def seen(self, end):
        seconds = time.monotonic() - getattr(self, "pressed", self.begun)
        return Seen(end=end, posts=self.place.posts(), seconds=seconds, notes=self.place.notes())


def stored(place):
    return place.home.settings()


def is_date(text):
    return re.fullmatch(r"@DateTime\(.+\)", text.strip('"')) is not None
