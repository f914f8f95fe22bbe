"""What Copy Report leaves on the clipboard once the program has ended."""

import os
import signal
import subprocess
import sys

from support import ADDRESS, CRASH_LOG, ProgramTest, cases
from trial.processes import Started
from trial.waiting import wait_until

MANAGER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "clipboard_manager.py")
DESCRIPTION = "It froze “again”."


class Clipboard(ProgramTest):
    def start_manager(self):
        manager = Started([sys.executable, MANAGER], self.subfolder("manager"), "manager", self.desktop.environment())
        self.addCleanup(manager.end)
        manager.wait_for_output("ready")
        return manager

    def copied(self, program):
        """The program, once what it would send is on the clipboard."""
        program.fill_in(ADDRESS, DESCRIPTION)
        wait_until(lambda: program.screen.has_focus("E-mail address"), "the keyboard in the window")
        program.key("ctrl+shift+c")
        wait_until(lambda: self.pasted() is not None, "something on the clipboard")
        return program

    def pasted(self):
        """What another program finds on the clipboard; None where nothing is."""
        asked = subprocess.run(
            ["xclip", "-out", "-selection", "clipboard", "-target", "UTF8_STRING"], env=self.desktop.environment(),
            capture_output=True, timeout=30)
        return asked.stdout if asked.returncode == 0 else None

    def expected_copy(self, report):
        return (f"E-mail address:\n{ADDRESS}\n\nDescription:\n{DESCRIPTION}\n\nReport:\n").encode() + report

    def end_by(self, way, program):
        if way == "close":
            program.close_window()
        elif way == "signal":
            os.kill(program.pid, signal.SIGTERM)
        else:
            program.submit()

    @cases(closing=("close",), a_signal=("signal",), an_acceptance=("accept",))
    def test_it_outlives_the_program_that_ends_by(self, way):
        self.serve()
        manager = self.start_manager()
        program = self.copied(self.launch())
        self.end_by(way, program)
        self.assertEqual(program.exit_status(), 0)
        manager.wait_for_output("kept")
        self.assertEqual(self.pasted(), self.expected_copy(self.expected()))

    @cases(one_mebibyte=(1 << 20,), fifteen_mebibytes=(15 << 20,))
    def test_a_report_outlives_it_whole_that_has(self, size):
        manager = self.start_manager()
        crash_log = CRASH_LOG + b"0123456789abcde\n" * (size // 16)
        path = self.home.crash_log("Lantern_2026-11-01.crash", crash_log)
        program = self.copied(self.launch(log=path))
        self.end_by("close", program)
        self.assertEqual(program.exit_status(), 0)
        manager.wait_for_output("kept")
        self.assertEqual(self.pasted(), self.expected_copy(crash_log))

    def test_without_a_manager_it_goes_with_the_program(self):
        program = self.copied(self.launch())
        self.end_by("close", program)
        self.assert_ends_silently(program)
        self.assertIsNone(self.pasted())

    def test_a_manager_that_does_not_answer_does_not_keep_the_program_alive(self):
        manager = self.start_manager()
        program = self.copied(self.launch())
        manager.process.send_signal(signal.SIGSTOP)
        self.addCleanup(manager.process.send_signal, signal.SIGCONT)
        self.end_by("close", program)
        self.assertEqual(program.exit_status(), 0)
