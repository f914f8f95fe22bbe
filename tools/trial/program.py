"""The built program, started as a crashed application would, and its window as a person meets it."""

import os
import re
import subprocess

from trial.processes import ORDINARY_USER, Started, standing
from trial.screen import Screen
from trial.waiting import WaitedInVain, wait_until

# What the runtime of a sanitized program reads.
INSTRUMENTATION = ("ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS")


class Program:
    """One run of the program on a desktop, for a home."""

    def __init__(self, binary, arguments, desktop, home, folder, prefix=tuple(ORDINARY_USER), without=()):
        environment = desktop.environment()
        environment.update(home.environment())
        environment.update({name: os.environ[name] for name in INSTRUMENTATION if name in os.environ})
        for name in without:
            environment.pop(name, None)
        self.desktop = desktop
        self.process = Started([binary, *arguments], folder, "program", environment, prefix)
        self.screen = Screen(self.process.pid)

    # The process

    @property
    def pid(self):
        return self.process.pid

    def exit_status(self, seconds=20):
        return self.process.exit_status(seconds)

    def errors(self):
        return self.process.errors()

    def end(self):
        self.process.end()

    def wait_until(self, condition, what, seconds):
        """Waits for what the program is to do; in vain, it says all that can be seen of the program instead."""
        try:
            return wait_until(condition, what, seconds)
        except WaitedInVain as vain:
            raise WaitedInVain(
                f"{vain}; the program {standing(self)} The bus knows {self.screen.known_to_the_bus()}, "
                f"the display shows {self.windows_on_display()}.") from vain

    # The window

    def wait_for_window(self, seconds=20):
        """Waits until the report window can be used."""
        def is_shown():
            if not self.process.is_running():
                raise RuntimeError(f"the program ended with {self.process.process.returncode}: {self.errors()}")
            return self.screen.find("Report Crash", required=False) is not None
        self.wait_until(is_shown, "the report window", seconds)
        return self

    def headline(self):
        """The text above the form, the only one that speaks of a crash."""
        return self.screen.name_of_label(lambda name: "crashed the last time it ran" in name)

    def fill_in(self, email=None, description=None):
        if email is not None:
            self.screen.set_text("E-mail address", email)
        if description is not None:
            self.screen.set_text("Description", description)

    def press(self, title):
        self.screen.press(title)

    def offers(self, title):
        """Whether the window has a button of that title."""
        return self.screen.find(title, required=False) is not None

    def submit(self):
        self.press("Report Crash")

    # Its state

    def is_sending(self):
        button = self.screen.find("Sending...", required=False)
        return button is not None and not self.screen.is_enabled("Sending...")

    def wait_until_sending(self):
        wait_until(self.is_sending, "the sending state")

    def can_submit(self):
        return self.screen.find("Report Crash", required=False) is not None and self.screen.is_enabled("Report Crash")

    def is_locked(self):
        """Whether the address and the description are kept from the user."""
        return (not self.screen.is_enabled("E-mail address")) and (not self.screen.is_editable("Description"))

    def is_unlocked(self):
        return self.screen.is_enabled("E-mail address") and self.screen.is_editable("Description")

    # Alerts

    def alert(self, seconds=20):
        """Waits for an alert and returns its title and message."""
        return wait_until(self.screen.alert, "an alert", seconds)

    def dismiss_alert(self):
        """Presses the alert's only button and waits until this alert is gone."""
        shown = self.alert()
        self.screen.press_alert_button()
        wait_until(lambda: not self.process.is_running() or self.screen.alert() != shown, f"the alert {shown} to close")
        return shown

    # What the window manager knows

    def window_id(self):
        """Waits for the display to show the window, of which the accessibility bus may tell before."""
        return self.desktop.tool("xdotool", "search", "--sync", "--onlyvisible", "--pid", str(self.pid),
                                 "--name", "Korvale Crash Reporter").split()[0]

    def windows_on_display(self):
        """The numbers of the process's visible windows, if any, as the display server has them."""
        return subprocess.run(["xdotool", "search", "--onlyvisible", "--pid", str(self.pid)],
                              env=self.desktop.environment(), capture_output=True, text=True, timeout=30).stdout.split()

    def geometry(self):
        """x, y of the window's content on screen, and its width and height."""
        answer = self.desktop.tool("xdotool", "getwindowgeometry", "--shell", self.window_id())
        values = dict(re.findall(r"^(\w+)=(-?\d+)$", answer, re.MULTILINE))
        return tuple(int(values[key]) for key in ("X", "Y", "WIDTH", "HEIGHT"))

    def wait_until_still(self):
        """Waits until the window neither moves nor changes its size any more."""
        seen = []

        def is_still():
            seen.append(self.geometry())
            return len(seen) > 5 and len(set(seen[-5:])) == 1
        wait_until(is_still, "the window to stand still")

    def close_window(self):
        """Has the window manager ask the window to close, as the button in its frame does."""
        self.desktop.tool("xdotool", "windowfocus", "--sync", self.window_id(), "key", "alt+F4")

    def click(self, name):
        """Clicks with the mouse into the middle of a control, once the window manager has placed the window."""
        self.wait_until_still()
        x, y = self.screen.middle(name)
        self.desktop.tool("xdotool", "mousemove", str(x), str(y), "click", "1")

    def key(self, *keys):
        self.desktop.tool("xdotool", "key", "--window", "0", *keys)

    def type(self, text):
        self.desktop.tool("xdotool", "type", "--window", "0", text)

    def save_screenshot(self, path):
        self.desktop.tool("import", "-window", self.window_id(), path)
