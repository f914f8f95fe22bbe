"""A program's controls as the accessibility tree shows them."""

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402 (the version has to be chosen first)

from trial.waiting import WaitedInVain, wait_until  # noqa: E402 (in its place among the imports)

DEFAULT_BUTTON = "OK"
CALL_TIMEOUT_MS = 10_000


class NoSuchControl(AssertionError):
    """The window has no control of that name."""


def start():
    """Connects to the bus that the environment names; once, before any Screen."""
    Atspi.init()
    Atspi.set_timeout(CALL_TIMEOUT_MS, CALL_TIMEOUT_MS)
    # What another process shows is asked for each time: a remembered answer would be about the past.
    Atspi.get_desktop(0).set_cache_mask(Atspi.Cache.NONE)


def children(accessible):
    found = []
    for index in range(accessible.get_child_count()):
        child = accessible.get_child_at_index(index)
        if child is not None:
            found.append(child)
    return found


def descendants(accessible):
    """The accessible's descendants, each after its parent."""
    for child in children(accessible):
        yield child
        yield from descendants(child)


def is_showing(accessible):
    return accessible.get_state_set().contains(Atspi.StateType.SHOWING)


def is_button(accessible):
    return accessible.get_role() in (Atspi.Role.PUSH_BUTTON, Atspi.Role.TOGGLE_BUTTON, Atspi.Role.CHECK_BOX)


def left_in_window(accessible):
    return Atspi.Component.get_extents(accessible, Atspi.CoordType.WINDOW).x


class Control:
    """One control, found once: cheaper to ask again and again than to search for each time."""

    def __init__(self, accessible):
        self.accessible = accessible

    def name(self):
        return self.accessible.get_name()

    def is_enabled(self):
        return self.accessible.get_state_set().contains(Atspi.StateType.ENABLED)

    def is_editable(self):
        return self.accessible.get_state_set().contains(Atspi.StateType.EDITABLE)

    def press(self):
        press(self.accessible)


class Screen:
    """The windows of one process."""

    def __init__(self, pid):
        self.pid = pid
        self.known = None

    def application(self):
        GLib.MainContext.default().iteration(False)
        for candidate in children(Atspi.get_desktop(0)):
            try:
                if candidate.get_process_id() == self.pid:
                    return candidate
            except GLib.Error:
                continue  # a program that is just ending
        return None

    def windows(self):
        """The top-level windows on screen; none while the program has not connected or is gone."""
        try:
            application = self.application()
            return [window for window in children(application) if is_showing(window)] if application else []
        except GLib.Error:
            return []

    @staticmethod
    def known_to_the_bus():
        """The number of each process that shows its controls, and how many windows it has told of."""
        known = []
        for candidate in children(Atspi.get_desktop(0)):
            try:
                known.append((candidate.get_process_id(), candidate.get_child_count()))
            except GLib.Error as error:
                known.append(str(error))
        return known

    def count_windows(self):
        """How many windows the program has told of, whether they are on screen or not; 0 while it cannot be asked."""
        try:
            self.known = self.known or self.application()
            return self.known.get_child_count() if self.known else 0
        except GLib.Error:
            self.known = None
            return 0

    def report_window(self):
        return next((window for window in self.windows() if not self.is_alert(window)), None)

    # Controls of the report window

    def find(self, name, required=True):
        """The control of that accessible name; a required one is waited for, since the display may show a window
        before the bus has told of its controls."""
        if not required:
            return self.found(name)
        try:
            return wait_until(lambda: self.found(name), f"the control {name!r}")
        except WaitedInVain as vain:
            raise NoSuchControl(f"{vain}; there are {self.names()}") from vain

    def found(self, name):
        window = self.report_window()
        try:
            candidates = descendants(window) if window else ()
            return next((control for control in candidates if self.is_named(control, name)), None)
        except GLib.Error:
            return None

    @staticmethod
    def is_named(control, name):
        # A label may say the same as the control that it belongs to.
        return control.get_name() == name and control.get_role() != Atspi.Role.LABEL

    def control(self, name):
        return Control(self.find(name))

    def names(self):
        window = self.report_window()
        return [(control.get_role_name(), control.get_name()) for control in descendants(window)] if window else []

    def name_of_label(self, matches):
        labels = (control for control in descendants(self.report_window())
                  if control.get_role() == Atspi.Role.LABEL and matches(control.get_name()))
        found = next(labels, None)
        if found is None:
            raise NoSuchControl(f"no such label; there are {self.names()}")
        return found.get_name()

    def press(self, name):
        press(self.find(name))

    def text(self, name):
        return Atspi.Text.get_text(self.find(name), 0, -1)

    def set_text(self, name, text):
        Atspi.EditableText.set_text_contents(self.find(name), text)

    def has_state(self, name, state):
        return self.find(name).get_state_set().contains(state)

    def is_enabled(self, name):
        return self.has_state(name, Atspi.StateType.ENABLED)

    def is_editable(self, name):
        return self.has_state(name, Atspi.StateType.EDITABLE)

    def is_shown(self, name):
        control = self.find(name, required=False)
        return control is not None and is_showing(control)

    def middle(self, name):
        """The point on screen in the middle of a control."""
        extents = Atspi.Component.get_extents(self.find(name), Atspi.CoordType.SCREEN)
        return extents.x + extents.width // 2, extents.y + extents.height // 2

    def has_focus(self, name):
        return self.has_state(name, Atspi.StateType.FOCUSED)

    # Alerts

    @staticmethod
    def is_alert(window):
        return window.get_role() == Atspi.Role.ALERT

    def alert_window(self):
        return next((window for window in reversed(self.windows()) if self.is_alert(window)), None)

    def alert(self):
        """The texts of the alert on screen, its title first, or None."""
        try:
            window = self.alert_window()
            if window is None:
                return None
            labels = (control.get_name() for control in descendants(window) if control.get_role() == Atspi.Role.LABEL)
            return tuple(label for label in labels if label)
        except GLib.Error:
            return None

    def alert_buttons(self):
        return [control.get_name() for control in descendants(self.alert_window()) if is_button(control)]

    def press_alert_button(self):
        window = self.alert_window()
        press(next(control for control in descendants(window)
                   if is_button(control) and control.get_name() == DEFAULT_BUTTON))


def press(control):
    if not control.get_state_set().contains(Atspi.StateType.ENABLED):
        raise AssertionError(f"{control.get_name()!r} is not enabled")
    Atspi.Action.do_action(control, 0)
