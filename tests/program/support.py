"""What every test starts from: a display, an endpoint that accepts, a home with a crash log, one program."""

import argparse
import os
import shutil
import sys
import tempfile
import unittest

PROJECT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [os.path.join(PROJECT, "tools"), os.path.join(PROJECT, "tests", "support")]

import runner  # noqa: E402 (found through the path above)
from trial import screen  # noqa: E402 (found through the path above)
from trial.desktop import Desktop  # noqa: E402
from trial.expected import expected_report  # noqa: E402
from trial.home import Home  # noqa: E402
from trial.processes import ORDINARY_USER  # noqa: E402
from trial.program import Program  # noqa: E402
from trial.server import Server  # noqa: E402
from trial.waiting import wait_until  # noqa: E402

PATH_ON_THE_SERVER = "/appdata/plovrin/reportcrash.php"
TRY_AGAIN = "Please try again later."
UPLOAD_FAILED = ("Crash log upload failed.", TRY_AGAIN)
CONNECTION_FAILED = ("Connection failed.", TRY_AGAIN)
ADDRESS = "jo@example.org"
CRASH_LOG_NAME = "Harbour_2026-11-02-101500_anvil.crash"
CRASH_LOG = b"Process: Harbour [4711]\nException Type: EXC_BAD_ACCESS\n\nThread 0 Crashed:\n0 Harbour main + 12\n"
APPLICATION_LOGS = {
    ".1.log": b"10:15:00 opened the window\n",
    ".task.1.log": b"10:15:00 task 7 started\n",
    ".2.log": b"09:00:00 closed the window\n",
    ".task.2.log": b"09:00:00 task 6 ended\n",
}


def remote_headline(name):
    return (f"The client running on {name} crashed the last time it ran. "
            "Please submit a bug report so we can prevent this occurring in future.")


def application_headline(name):
    return (f"{name} crashed the last time it ran. "
            "Please submit a bug report so we can prevent this occurring in future.")


def without_leak_detection():
    """A variable for a program whose leaks the sanitizer shall not look for."""
    return f"ASAN_OPTIONS={os.environ.get('ASAN_OPTIONS', '')}:detect_leaks=0"


def cases(**table):
    """Makes one test method of each row: its name is the method's and the row's, its arguments are the row's values."""
    def mark(method):
        method.table = table
        return method
    return mark


def case_of(method, values):
    def case(self):
        method(self, *values)
    return case


def expand_cases(test_class):
    for name, method in list(vars(test_class).items()):
        for row, values in getattr(method, "table", {}).items():
            setattr(test_class, f"{name}_{row}", case_of(method, values))
        if hasattr(method, "table"):
            delattr(test_class, name)


class ProgramTest(unittest.TestCase):
    """Each test has an endpoint, a home and a program of its own; the display is the whole file's."""

    binary = None
    named = None  # the same program, built for a host with a name
    drag_source = None  # a program to drag files from
    authority = None
    desktop = None

    def __init_subclass__(cls):
        super().__init_subclass__()
        expand_cases(cls)

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="program-test-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.home = Home(os.path.join(self.folder, "home"))
        self.crash_log = self.home.crash_log(CRASH_LOG_NAME, CRASH_LOG)
        for suffix, content in APPLICATION_LOGS.items():
            self.home.application_log("Harbour", suffix, content)

    def subfolder(self, name):
        return tempfile.mkdtemp(prefix=f"{name}-", dir=self.folder)

    # What a test starts

    def serve(self, answer="accept", identity="localhost"):
        server = Server(self.subfolder("server"), self.authority, answer, identity)
        self.addCleanup(server.end)
        return server

    def start(self, *arguments, prefix=tuple(ORDINARY_USER), **options):
        """Starts the program with these arguments, as an ordinary user unless the prefix says otherwise."""
        program = Program(self.binary, arguments, self.desktop, self.home, self.subfolder("program"), prefix, **options)
        self.addCleanup(program.end)
        return program

    def launch(self, log=None, remote_name="anvil", **options):
        """Starts the program as a crashed application does and waits for its window."""
        return self.start("-remotename", remote_name, "-log", log or self.crash_log, **options).wait_for_window()

    def submitted(self, program, email=ADDRESS, description=None):
        program.fill_in(email, description)
        program.submit()
        return program

    # What is expected of it

    def expected(self, application="Harbour", crash_log=CRASH_LOG):
        return expected_report(crash_log, self.home.application_logs(application))

    def assert_accepted(self, program, server, posts=1):
        self.assertEqual(program.exit_status(), 0)
        self.assert_posts(server, posts)

    def assert_posts(self, server, count):
        """Exactly that many POSTs, each a whole form at the right path."""
        posts = server.posts()
        self.assertEqual(len(posts), count)
        for post in posts:
            self.assertEqual(post.path, PATH_ON_THE_SERVER)
            self.assertIsNone(post.problem)

    def assert_report_shown(self, program, report):
        """The report pane, unfolded if it is not, comes to show the report."""
        if not program.screen.is_shown("Report"):
            program.click("Report details")
        wait_until(lambda: program.screen.is_shown("Report"), "the report pane")
        wait_until(lambda: program.screen.text("Report") == report.decode(), f"the pane to show {report[:80]!r}")

    def assert_report_sent(self, program, server, report):
        self.assert_accepted(program, server)
        sent = server.posts()[0].fields()["crashlog"]
        if sent != report:
            place = len(os.path.commonprefix([sent, report]))
            self.fail(f"the report differs at byte {place}: sent {len(sent)} bytes, {sent[place:place + 40]!r}; "
                      f"expected {len(report)} bytes, {report[place:place + 40]!r}")

    def assert_ends_silently(self, program):
        self.assertEqual(program.exit_status(), 0, program.errors())
        self.assertEqual(program.errors(), "")

    def assert_usable_after_failure(self, program):
        """Refused or failed: the user can submit again, but the form is locked until Cancel."""
        wait_until(program.can_submit, "the submit button to be enabled again")
        self.assertTrue(program.is_locked())
        self.assertFalse(program.is_sending())


def options(arguments):
    parser = argparse.ArgumentParser(description="Runs the tests of one file.")
    parser.add_argument("--program", required=True, help="the built program")
    parser.add_argument("--named", help="the same, built to submit to endpoint.test, for the tests that need it")
    parser.add_argument("--drag-source", help="the built program to drag files from, for the tests that need it")
    parser.add_argument("--authority", required=True, help="folder of the throwaway certificates")
    parser.add_argument("file", help="such as test_window.py")
    parser.add_argument("words", nargs="*", metavar="WORD", help="only the tests whose name contains one of these")
    return parser.parse_args(arguments)


def run(file, words):
    module = os.path.splitext(os.path.basename(file))[0]
    with tempfile.TemporaryDirectory(prefix="program-desktop-") as folder:
        desktop = ProgramTest.desktop = Desktop(folder)
        try:
            os.environ.update(desktop.environment())
            screen.start()
            return runner.run(module, words)
        finally:
            desktop.end()


def main(arguments):
    chosen = options(arguments)
    ProgramTest.binary = chosen.program
    ProgramTest.named = chosen.named
    ProgramTest.drag_source = chosen.drag_source
    ProgramTest.authority = chosen.authority
    return run(chosen.file, chosen.words)


if __name__ == "__main__":
    # The test files import this file by its name: run it under that name, so that there is only one of it.
    import support
    sys.exit(support.main(sys.argv[1:]))
