"""What only a display of X has: the launcher's word for the window, and files that are dropped onto it."""

import itertools
import os

from Xlib import X, display
from support import ORDINARY_USER, ProgramTest, remote_headline
from trial.processes import Started
from trial.screen import Atspi
from trial.waiting import wait_until

# Startup Notification Protocol of freedesktop.org: messages of twenty bytes each, the first of another type.
FIRST, FURTHER = "_NET_STARTUP_INFO_BEGIN", "_NET_STARTUP_INFO"


class Messages:
    """What is told to everybody who listens at the root window."""

    def __init__(self, where):
        self.display = display.Display(where)
        self.display.screen().root.change_attributes(event_mask=X.PropertyChangeMask)
        self.display.sync()
        self.first, self.further = (self.display.intern_atom(name) for name in (FIRST, FURTHER))
        self.series = []

    def end(self):
        self.display.close()

    def all(self):
        while self.display.pending_events():
            event = self.display.next_event()
            if event.type == X.ClientMessage and event.client_type == self.first:
                self.series.append(b"")
            if event.type == X.ClientMessage and event.client_type in (self.first, self.further):
                self.series[-1] += bytes(event.data[1])
        # What follows the end of the text is left over.
        return [text.split(b"\0")[0].decode() for text in self.series if b"\0" in text]


class Launched(ProgramTest):
    def test_the_launcher_is_told_that_the_window_is_there_and_no_child_hears_of_it(self):
        messages = Messages(self.desktop.environment()["DISPLAY"])
        self.addCleanup(messages.end)
        self.serve("refuse")
        trace = os.path.join(self.subfolder("trace"), "calls")
        program = self.launch(prefix=(
            *ORDINARY_USER, "strace", "-D", "-f", "-qq", "-v", "-s", "4096", "-e", "trace=execve", "-o", trace,
            "env", "DESKTOP_STARTUP_ID=launcher/harbour/1-0-host_TIME0"))
        wait_until(messages.all, "the launcher to be told")
        self.assertEqual(messages.all(), ["remove: ID=launcher/harbour/1-0-host_TIME0"])
        self.submitted(program).dismiss_alert()
        with open(trace, encoding="utf-8") as file:
            children = [line for line in file if 'execve("/usr/bin/proxy"' in line]
        self.assertTrue(children)
        self.assertNotIn('"DESKTOP_STARTUP_ID=', children[-1])

    def test_nobody_is_told_where_no_launcher_waits(self):
        messages = Messages(self.desktop.environment()["DISPLAY"])
        self.addCleanup(messages.end)
        self.launch(prefix=(*ORDINARY_USER, "env", "--unset=DESKTOP_STARTUP_ID"))
        # What the first one said would have come before.
        self.launch(prefix=(*ORDINARY_USER, "env", "DESKTOP_STARTUP_ID=second_TIME0"))
        wait_until(messages.all, "the launcher of the second one to be told")
        self.assertEqual(messages.all(), ["remove: ID=second_TIME0"])


class Dropping(ProgramTest):
    def middle(self, window):
        lines = self.desktop.tool("xdotool", "getwindowgeometry", "--shell", window).splitlines()
        place = {name: int(value) for name, value in (line.split("=") for line in lines)}
        return place["X"] + place["WIDTH"] // 2, place["Y"] + place["HEIGHT"] // 2

    def drag(self, path, program):
        """Drags the file from another program's window onto the middle of this one's, and drops it there."""
        source = Started([self.drag_source, path], self.subfolder("source"), "source", self.desktop.environment(),
                         prefix=ORDINARY_USER)
        self.addCleanup(source.end)
        window = self.desktop.tool("xdotool", "search", "--sync", "--onlyvisible", "--class", "drag-source").split()[0]
        # Beside the program's window, wherever the window manager has put it.
        self.desktop.tool("xdotool", "windowmove", "--sync", window, "0", "0", "windowraise", window)
        self.desktop.tool("xdotool", "mousemove", *map(str, self.middle(window)), "mousedown", "1")
        x, y = self.middle(program.window_id())
        step = itertools.cycle(range(2))

        def is_welcome():
            self.desktop.tool("xdotool", "mousemove", str(x + next(step)), str(y))
            return source.output().endswith("copy\n")
        wait_until(is_welcome, "the window to accept what is dragged over it")
        self.desktop.tool("xdotool", "mouseup", "1")

    def test_a_dropped_file_is_the_report(self):
        dropped = self.home.crash_log("Lantern_2026-11-01.crash", b"Process: Lantern [12]\n")
        program = self.launch()
        self.drag(dropped, program)
        self.assert_report_shown(program, b"Process: Lantern [12]\n")
        self.assertEqual(program.headline(), remote_headline("anvil"))


class Selected(ProgramTest):
    """What is selected in the report can be pasted by the middle button at once, as in every other window."""

    def setUp(self):
        super().setUp()
        self.report = self.expected().decode()
        self.program = self.launch()
        self.program.press("Report details")
        wait_until(lambda: self.program.screen.is_shown("Report"), "the report pane")
        self.program.wait_until_still()
        Atspi.Component.grab_focus(self.program.screen.find("Report"))
        wait_until(lambda: self.program.screen.has_focus("Report"), "the focus on the report")

    def point(self, x, y, *clicks):
        self.desktop.tool("xdotool", "mousemove", str(x), str(y), *clicks)

    def assert_pasted(self, text):
        self.point(*self.program.screen.middle("Description"), "click", "2")
        wait_until(lambda: self.program.screen.text("Description"), "the description to have a text")
        self.assertEqual(self.program.screen.text("Description"), text)

    def test_by_a_key(self):
        self.program.key("ctrl+Home", "shift+Down")
        self.assert_pasted(self.report.splitlines(keepends=True)[0])

    def test_as_a_whole(self):
        self.program.key("ctrl+a")
        self.assert_pasted(self.report)

    def test_by_dragging(self):
        place = self.program.screen.find("Report").get_extents(Atspi.CoordType.SCREEN)
        self.point(place.x + 1, place.y + 5, "mousedown", "1")
        self.point(place.x + place.width - 30, place.y + 5)
        self.point(place.x + place.width - 29, place.y + 5, "mouseup", "1")
        self.assert_pasted(self.report.splitlines()[0])
