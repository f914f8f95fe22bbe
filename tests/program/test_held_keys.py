"""Keys that are held down or pressed twice, controls reached behind an alert, and settings that never answer."""

import fcntl
import os

from support import ADDRESS, ProgramTest
from trial.screen import Atspi
from trial.waiting import WaitedInVain, wait_until

SHORT = 2


class HeldKey(ProgramTest):
    def hold(self, program, key):
        """Presses a key and lets go of it only when the test ends: the display repeats it meanwhile."""
        program.desktop.tool("xdotool", "keydown", key)
        self.addCleanup(program.desktop.tool, "xdotool", "keyup", key)

    def assert_never(self, condition, what):
        with self.assertRaises(WaitedInVain, msg=what):
            wait_until(condition, what, SHORT)

    def test_return_sends_one_report(self):
        server = self.serve("refuse")
        program = self.launch()
        program.fill_in(ADDRESS)
        wait_until(lambda: program.screen.has_focus("E-mail address"), "the focus on the address")
        self.hold(program, "Return")
        wait_until(server.posts, "the POST")
        self.assert_never(lambda: len(server.posts()) > 1, "a second POST")

    def test_escape_cancels_and_keeps_the_window(self):
        server = self.serve("never")
        program = self.submitted(self.launch(), description="A long text that took a while to type.")
        wait_until(server.posts, "the POST")
        self.hold(program, "Escape")
        wait_until(program.can_submit, "the button")
        self.assert_never(lambda: not program.process.is_running(), "the end of the program")

    def test_escape_closes_the_alert_and_keeps_the_window(self):
        program = self.submitted(self.launch(), email="no address", description="A long text.")
        program.alert()
        self.hold(program, "Escape")
        wait_until(lambda: program.screen.count_windows() == 1, "the alert to close")
        self.assert_never(lambda: not program.process.is_running(), "the end of the program")


class BehindAnAlert(ProgramTest):
    def test_the_triangle_goes_on_saying_whether_the_pane_is_shown(self):
        program = self.submitted(self.launch(), email="no address")
        program.alert()
        triangle = program.screen.find("Report details")
        Atspi.Action.do_action(triangle, 0)
        program.dismiss_alert()

        def agrees():
            expanded = triangle.get_state_set().contains(Atspi.StateType.EXPANDED)
            return expanded == program.screen.is_shown("Report")
        wait_until(agrees, "the triangle and the pane to agree", SHORT)


class SettingsThatNeverAnswer(ProgramTest):
    def test_a_fifo_does_not_keep_the_window_away(self):
        os.makedirs(self.home.settings_folder)
        os.mkfifo(self.home.settings_path)
        self.launch()

    def test_settings_that_another_program_keeps_locked_do_not_stop_a_report(self):
        os.makedirs(self.home.settings_folder)
        folder = os.open(self.home.settings_folder, os.O_RDONLY)
        self.addCleanup(os.close, folder)
        fcntl.flock(folder, fcntl.LOCK_EX)
        server = self.serve()
        program = self.launch()
        program.key("alt+r")
        wait_until(server.posts, "the POST", 5)
