"""The example launchers, run for an application that crashes: the reporter outlives them, and its report arrives."""

import fcntl
import glob
import os
import re
import shutil
import signal
import time

from support import PROJECT, ProgramTest, application_headline, cases, remote_headline
from trial.home import read, write
from trial.processes import ORDINARY_USER, Started
from trial.program import Program
from trial.screen import Screen
from trial.waiting import wait_until

LAUNCHER_OPTION = "-remotename"
CRASHING = "#!/bin/sh\nkill -{signal} $$\n"
# Not in a shell, for one may unblock all signals when it starts.
STAND_IN = """#!/usr/bin/python3
import os, shutil
shutil.copyfile("/proc/self/status", "{status}.part")
os.rename("{status}.part", "{status}")
"""
EXITING = "#!/bin/sh\nexit {status}\n"
LAUNCHERS = {"in_cpp": ("launcher",), "in_shell": ("launcher.sh",)}


def signals(status, field):
    """The signals of a mask in a process's status."""
    mask = int(re.search(rf"(?m)^{field}:\t(\w+)$", read(status).decode())[1], 16)
    return [number for number in range(1, 65) if mask >> (number - 1) & 1]


class Orphan:
    """A process that is nobody's child here, as Program knows a process."""

    def __init__(self, pid):
        self.pid = pid

    def is_running(self):
        return os.path.exists(f"/proc/{self.pid}/exe")

    @staticmethod
    def errors():
        return "nothing that is kept: its standard error is the null device"

    def environment(self):
        return read(f"/proc/{self.pid}/environ").split(b"\0")

    def open_files(self):
        """Where each of its descriptors leads."""
        folder = f"/proc/{self.pid}/fd"
        return {int(number): os.readlink(os.path.join(folder, number)) for number in os.listdir(folder)}

    def end(self):
        if self.is_running():
            os.kill(self.pid, signal.SIGKILL)


class Launched(Program):
    """A reporter that was started by somebody else."""

    def __init__(self, pid, desktop):
        self.desktop = desktop
        self.process = Orphan(pid)
        self.screen = Screen(pid)


class Launcher(ProgramTest):
    def setUp(self):
        super().setUp()
        self.reports = self.subfolder("reports")

    def application(self, name="Harbour", crash="SEGV"):
        path = os.path.join(self.subfolder("application"), name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(CRASHING.format(signal=crash))
        os.chmod(path, 0o755)
        return path

    def launcher_path(self, name):
        if name == "launcher":
            return os.path.join(os.path.dirname(self.binary), "examples", name)
        return os.path.join(PROJECT, "examples", name)

    def run_launcher(self, name, *arguments, environment=None, reporter=None, **options):
        """Runs a launcher to its end, as an ordinary user on the desktop, and gives its exit status."""
        values = dict(self.desktop.environment(), **self.home.environment(), **(environment or {}))
        self.launcher = Started(
            [*options.pop("prefix", ()), self.launcher_path(name), *options.pop("before", ()), reporter or self.binary,
             self.reports, *arguments],
            self.subfolder("launcher"), "launcher", values, ORDINARY_USER, **options)
        self.addCleanup(self.launcher.end)
        return self.launcher.exit_status()

    def reporters(self):
        """The processes that were started on a crash log of this test."""
        found = []
        for path in glob.glob("/proc/[0-9]*/cmdline"):
            try:
                words = read(path).split(b"\0")
            except OSError:
                continue
            if words[0] == self.binary.encode() and any(word.startswith(self.reports.encode()) for word in words):
                found.append(int(path.split("/")[2]))
        return found

    def launched(self):
        (pid,) = wait_until(self.reporters, "the reporter to start")
        program = Launched(pid, self.desktop)
        self.addCleanup(program.end)
        return program.wait_for_window()

    def crash_log_path(self):
        (path,) = glob.glob(os.path.join(self.reports, "*"))
        return path

    def assert_nothing_launched(self):
        self.assertEqual(os.listdir(self.reports), [])
        self.assertEqual(self.reporters(), [])

    @cases(**LAUNCHERS)
    def test_reports_a_crash_of_the_application(self, launcher):
        server = self.serve()
        self.assertEqual(self.run_launcher(launcher, self.application()), 128 + signal.SIGSEGV)
        program = self.launched()
        self.assertEqual(program.headline(), application_headline("Harbour"))
        self.submitted(program)
        wait_until(lambda: not program.process.is_running(), "the reporter to end")
        self.assert_posts(server, 1)
        crash_log = read(self.crash_log_path())
        self.assertRegex(crash_log.decode(), r"^Process: +Harbour\n(.*\n)*Exception Type: +S")
        self.assertEqual(server.posts()[0].fields()["crashlog"], self.expected(crash_log=crash_log))

    @cases(**LAUNCHERS)
    def test_reports_a_crash_though_ends_of_children_are_ignored_where_it_is_started(self, launcher):
        status = self.run_launcher(launcher, self.application(), prefix=("env", "--ignore-signal=CHLD"))
        self.assertEqual(status, 128 + signal.SIGSEGV)
        self.assertEqual(self.launched().headline(), application_headline("Harbour"))
        self.assertIn(b"Harbour", read(self.crash_log_path()))

    def test_reports_a_crash_in_spite_of_options_that_a_shell_above_exports(self):
        self.run_launcher("launcher.sh", self.application(), environment={"SHELLOPTS": "errexit:noglob"})
        program = self.launched()
        self.assertEqual(program.headline(), application_headline("Harbour"))
        self.assertNotIn(self.launcher_path("launcher.sh"), program.process.open_files().values())

    @cases(**LAUNCHERS)
    def test_names_the_machine_it_is_told(self, launcher):
        self.run_launcher(launcher, self.application(), before=(LAUNCHER_OPTION, "anvil"))
        self.assertEqual(self.launched().headline(), remote_headline("anvil"))

    @cases(**LAUNCHERS)
    def test_gives_the_reporter_a_session_and_none_of_the_applications_libraries(self, launcher):
        environment = {"LD_LIBRARY_PATH": self.folder, "LD_PRELOAD": "", "QT_PLUGIN_PATH": self.folder}
        self.run_launcher(launcher, self.application(), environment=environment)
        process = self.launched().process
        self.assertEqual(os.getsid(process.pid), os.getpgid(process.pid))
        self.assertNotEqual(os.getsid(process.pid), os.getsid(0))
        names = [variable.split(b"=")[0].decode() for variable in process.environment()]
        self.assertEqual([name for name in environment if name in names], [])
        self.assertIn("DISPLAY", names)
        files = process.open_files()
        self.assertEqual([files[number] for number in (0, 1, 2)], ["/dev/null"] * 3)

    @cases(**LAUNCHERS)
    def test_hands_over_no_open_file(self, launcher):
        path = os.path.join(self.folder, "open-in-the-launcher")
        with open(path, "wb") as file:
            # A number of two digits is one that not every shell can name.
            other = fcntl.fcntl(file, fcntl.F_DUPFD, 42)
            self.addCleanup(os.close, other)
            self.run_launcher(launcher, self.application(), pass_fds=[file.fileno(), other])
        self.assertNotIn(path, self.launched().process.open_files().values())

    @cases(**LAUNCHERS)
    def test_hands_over_no_signal_blocked_or_ignored(self, launcher):
        def trouble_signals():
            signal.signal(signal.SIGUSR1, signal.SIG_IGN)
            signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGUSR2])
        # In the place of the reporter, which blocks none itself.
        folder = self.subfolder("stand-in")
        os.chmod(folder, 0o777)
        stand_in, status = os.path.join(folder, "reporter"), os.path.join(folder, "status")
        write(stand_in, STAND_IN.format(status=status).encode())
        os.chmod(stand_in, 0o755)
        self.run_launcher(launcher, self.application(), reporter=stand_in, preexec_fn=trouble_signals)
        wait_until(lambda: os.path.exists(status), "the reporter's stand-in to start")
        self.assertNotIn(signal.SIGUSR1, signals(status, "SigIgn"))
        self.assertNotIn(signal.SIGUSR2, signals(status, "SigBlk"))

    @cases(**LAUNCHERS)
    def test_never_overwrites_a_file(self, launcher):
        now = time.time()
        times = [time.strftime("%Y-%m-%d-%H%M%S", time.localtime(now + second)) for second in range(60)]
        for text in times:
            write(os.path.join(self.reports, f"Harbour_{text}.crash"), b"earlier")
        self.assertEqual(self.run_launcher(launcher, self.application()), 128 + signal.SIGSEGV)
        self.assertEqual([read(path) for path in glob.glob(os.path.join(self.reports, "*"))], [b"earlier"] * 60)
        self.assertEqual(self.reporters(), [])

    @cases(**LAUNCHERS)
    def test_writes_a_crash_log_that_is_the_users_alone(self, launcher):
        self.run_launcher(launcher, self.application())
        self.launched()
        self.assertEqual(os.stat(self.crash_log_path()).st_mode & 0o777, 0o600)

    @cases(
        in_cpp_a_wished_end=("launcher", "TERM", 128 + signal.SIGTERM),
        in_shell_a_wished_end=("launcher.sh", "TERM", 128 + signal.SIGTERM),
        in_cpp_a_forced_end=("launcher", "KILL", 128 + signal.SIGKILL),
        in_shell_a_forced_end=("launcher.sh", "KILL", 128 + signal.SIGKILL),
        in_cpp_no_end_at_all=("launcher", "0", 0),
        in_shell_no_end_at_all=("launcher.sh", "0", 0),
    )
    def test_reports_nothing_after(self, launcher, crash, status):
        self.assertEqual(self.run_launcher(launcher, self.application(crash=crash)), status)
        self.assert_nothing_launched()

    @cases(in_cpp=("launcher",), in_shell=("launcher.sh",))
    def test_takes_a_status_that_is_no_signals_for_an_exit(self, launcher):
        for status in (128, 200, 255):
            application = os.path.join(self.folder, f"exits-with-{status}")
            write(application, EXITING.format(status=status).encode())
            os.chmod(application, 0o755)
            self.assertEqual(self.run_launcher(launcher, application), status)
            self.assertEqual(self.launcher.errors(), "")
        self.assert_nothing_launched()

    @cases(**LAUNCHERS)
    def test_never_reports_the_reporter(self, launcher):
        reporter = shutil.copy(self.application(), os.path.join(self.folder, os.path.basename(self.binary)))
        self.assertEqual(self.run_launcher(launcher, reporter), 128 + signal.SIGSEGV)
        self.assert_nothing_launched()
