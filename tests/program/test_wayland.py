"""The whole job under Wayland, with no X11 display to fall back on."""

import os
import re
import shutil
import signal
import tempfile

from support import ORDINARY_USER, ProgramTest, UPLOAD_FAILED, remote_headline, without_leak_detection
from trial.processes import Started
from trial.waiting import wait_until
from trial.wayland import WaylandDesktop

TRIANGLE = "Report details"
TOKEN_VARIABLES = ("XDG_ACTIVATION_TOKEN", "DESKTOP_STARTUP_ID")


def middle(window):
    place = window["rect"]
    return place["x"] + place["width"] // 2, place["y"] + place["height"] // 2


class Wayland(ProgramTest):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.mkdtemp(prefix="program-wayland-")
        cls.addClassCleanup(shutil.rmtree, folder, ignore_errors=True)
        cls.desktop = WaylandDesktop(folder, ProgramTest.desktop)
        cls.addClassCleanup(cls.desktop.end)

    def start(self, *arguments, prefix=tuple(ORDINARY_USER), **options):
        # A driver of the graphics leaves memory behind, and is gone by the end, when nothing can name it.
        return super().start(*arguments, prefix=(*prefix, "env", without_leak_detection()), **options)

    def launch_on_screen(self, **options):
        """Starts the program and waits until the compositor has given its window a size."""
        program = self.launch(**options)
        wait_until(lambda: self.size(program), "the window on screen")
        return program

    def size(self, program):
        window = self.desktop.window_of(program.pid)
        return window and (window["rect"]["width"], window["rect"]["height"])

    def toggled(self, program):
        """The size that the window comes to have once the pane has folded or unfolded."""
        before = self.size(program)
        program.press(TRIANGLE)
        wait_until(lambda: self.size(program) != before, "the window to change its size")
        seen = []

        def is_still():
            seen.append(self.size(program))
            return len(seen) > 10 and len(set(seen[-10:])) == 1
        wait_until(is_still, "the window to keep its size")
        return seen[-1]

    def test_a_report_is_accepted(self):
        server = self.serve()
        program = self.launch_on_screen()
        self.assertEqual(program.headline(), remote_headline("anvil"))
        self.submitted(program, description="It froze.")
        self.assert_report_sent(program, server, self.expected())

    def test_a_refusal_is_told_and_leaves_the_report_to_be_sent_again(self):
        server = self.serve("refuse")
        program = self.submitted(self.launch_on_screen())
        self.assertEqual(program.alert(), UPLOAD_FAILED)
        wait_until(lambda: len(self.desktop.windows()) == 2, "the alert on screen")
        program.dismiss_alert()
        wait_until(lambda: len(self.desktop.windows()) == 1, "the alert to leave the screen")
        self.assert_usable_after_failure(program)
        self.assert_posts(server, 1)

    def test_folding_and_unfolding_gives_the_same_sizes_each_time(self):
        program = self.launch_on_screen()
        folded = self.size(program)
        sizes = [self.toggled(program) for _ in range(4)]
        self.assertEqual(sizes, [sizes[0], folded] * 2)
        self.assertGreater(sizes[0][1], folded[1])
        self.assertEqual(sizes[0][0], folded[0])

    def start_other_program(self, path):
        """Another program's window, from which the file may be dragged, on screen."""
        source = Started([self.drag_source, path], self.subfolder("source"), "source", self.desktop.environment(),
                         prefix=ORDINARY_USER)
        self.addCleanup(source.end)
        return wait_until(lambda: self.desktop.window_of(source.pid), "the other program's window")

    def drag(self, path, program):
        """Drags the file from another program's window onto the middle of this one's, and drops it there."""
        client = self.desktop.client()
        self.addCleanup(client.end)
        pointer = client.pointer()
        pointer.move(*middle(self.start_other_program(path)))
        pointer.press()
        x, y = middle(self.desktop.window_of(program.pid))

        def is_welcome():
            for step in range(2):
                pointer.move(x + step, y)
            return re.search(r"wl_data_offer@\d+\.action\(1\)", program.errors())
        wait_until(is_welcome, "the window to accept what is dragged over it")
        pointer.release()

    def test_a_dropped_file_is_the_report(self):
        dropped = self.home.crash_log("Lantern_2026-11-01.crash", b"Process: Lantern [12]\n")
        program = self.launch_on_screen(prefix=(*ORDINARY_USER, "env", "WAYLAND_DEBUG=1"))
        program.press(TRIANGLE)
        wait_until(lambda: program.screen.is_shown("Report"), "the report pane")
        self.drag(dropped, program)
        self.assert_report_shown(program, b"Process: Lantern [12]\n")
        self.assertEqual(program.headline(), remote_headline("anvil"))

    def test_closing_the_window_ends_the_program(self):
        server = self.serve()
        program = self.launch_on_screen()
        self.desktop.close_window(program.pid)
        self.assert_ends_silently(program)
        self.assert_posts(server, 0)

    def test_a_signal_ends_the_program(self):
        program = self.launch_on_screen()
        os.kill(program.pid, signal.SIGTERM)
        self.assert_ends_silently(program)

    def has_focus(self, pid):
        return self.desktop.window_of(pid)["focused"]

    def assert_takes_the_focus(self, *variables):
        """Launched with these variables, the window gets what another program's window had. This compositor gives it to
        every new window of the workspace in view, and takes no token for a window that it does not show yet."""
        other = self.start_other_program(self.crash_log)["pid"]
        wait_until(lambda: self.has_focus(other), "the other window to have the focus")
        program = self.launch_on_screen(prefix=(*ORDINARY_USER, "env", "WAYLAND_DEBUG=1", *variables))
        wait_until(lambda: self.has_focus(program.pid), "the window to have the focus")
        self.assertFalse(self.has_focus(other))
        wait_until(lambda: program.screen.has_focus("E-mail address"), "the focus on the address")
        return program

    def test_the_window_has_the_focus_with_the_launchers_token(self):
        client = self.desktop.client()
        self.addCleanup(client.end)
        token = client.activation_token()
        program = self.assert_takes_the_focus(f"XDG_ACTIVATION_TOKEN={token}")
        self.assertIn(f'.activate("{token}"', program.errors())

    def test_the_window_has_the_focus_without_a_token(self):
        program = self.assert_takes_the_focus("--unset=XDG_ACTIVATION_TOKEN")
        self.assertNotIn(".activate(", program.errors())

    def test_the_launchers_token_activates_the_window_and_is_handed_to_nobody(self):
        self.serve("refuse")
        client = self.desktop.client()
        self.addCleanup(client.end)
        token = client.activation_token()
        trace = os.path.join(self.subfolder("trace"), "calls")
        program = self.launch_on_screen(prefix=(
            *ORDINARY_USER, "strace", "-D", "-f", "-qq", "-v", "-s", "4096", "-e", "trace=execve", "-o", trace,
            "env", "WAYLAND_DEBUG=1", f"XDG_ACTIVATION_TOKEN={token}", f"DESKTOP_STARTUP_ID={token}"))
        self.assertEqual(re.findall(r'xdg_activation_v1@\d+\.activate\("([^"]*)"', program.errors()), [token])
        self.submitted(program).dismiss_alert()
        with open(trace, encoding="utf-8") as file:
            calls = file.read().splitlines()
        itself = [line for line in calls if f'execve("{self.binary}"' in line]
        children = [line for line in calls if 'execve("/usr/bin/proxy"' in line]
        self.assertTrue(itself and children, calls)
        for name in TOKEN_VARIABLES:
            self.assertIn(f'"{name}=', itself[-1])
            self.assertNotIn(f'"{name}=', children[-1])


class EndOfTheSession(ProgramTest):
    def test_the_compositors_end_ends_the_program(self):
        desktop = WaylandDesktop(self.subfolder("wayland"), ProgramTest.desktop)
        self.addCleanup(desktop.end)
        self.desktop = desktop
        server = self.serve()
        program = self.launch()
        desktop.end()
        self.assertEqual(program.exit_status(), 1)
        # Both threads of the toolkit that read from the compositor may say so.
        self.assertEqual(len(set(program.errors().splitlines())), 1, program.errors())
        self.assert_posts(server, 0)
