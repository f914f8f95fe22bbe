"""What a screen reader finds in the window and in an alert, in each state, compared with trees written by hand."""

import os

from support import ADDRESS, ProgramTest, remote_headline
from trial.screen import Atspi, children, is_showing
from trial.waiting import wait_until

TOLD_STATES = (
    (Atspi.StateType.EXPANDED, "expanded"),
    (Atspi.StateType.EDITABLE, "editable"),
    (Atspi.StateType.BUSY, "busy"),
    (Atspi.StateType.FOCUSED, "focused"),
)
# Widgets that only hold others; assistive technology passes over them.
PASSED_OVER = ("filler", "panel")

WINDOW = 'dialog "Korvale Crash Reporter"'
HEADLINE = f'label "{remote_headline("anvil")}"'
LABEL_OF_ADDRESS = 'label "E-mail address, in case we have questions about the crash (optional)"'
LABEL_OF_DESCRIPTION = 'label "Description of what you were doing"'


def described(accessible):
    states = accessible.get_state_set()
    told = [word for state, word in TOLD_STATES if states.contains(state)]
    if not states.contains(Atspi.StateType.ENABLED):
        told.append("disabled")
    return " ".join([accessible.get_role_name(), f'"{accessible.get_name()}"', *told])


def tree(accessible):
    """Everything that shows, each after what holds it."""
    is_named = accessible.get_name() or accessible.get_role_name() not in PASSED_OVER
    found = [described(accessible)] if is_named else []
    for child in children(accessible):
        if is_showing(child):
            found += tree(child)
    return found


class Tree(ProgramTest):
    def assert_tree(self, window, expected):
        seen = []

        def agrees():
            seen[:] = tree(window())
            return seen == expected
        try:
            wait_until(agrees, "the tree", 5)
        except AssertionError:
            self.assertEqual(seen, expected)

    def assert_window(self, program, expected):
        self.assert_tree(program.screen.report_window, expected)

    def summary(self):
        name = os.path.basename(self.crash_log)
        return f'label "{name} ({len(self.expected())} bytes, with 4 application logs), sent to localhost"'

    def test_editing(self):
        self.assert_window(self.launch(), [
            WINDOW,
            HEADLINE,
            LABEL_OF_ADDRESS,
            'text "E-mail address" editable focused',
            LABEL_OF_DESCRIPTION,
            'text "Description" editable',
            'push button "Report details"',
            self.summary(),
            'push button "Don\'t Send"',
            'push button "Report Crash"',
        ])

    def test_sending(self):
        self.serve("never")
        program = self.submitted(self.launch())
        self.assert_window(program, [
            WINDOW,
            HEADLINE,
            LABEL_OF_ADDRESS,
            'text "E-mail address" editable disabled',
            LABEL_OF_DESCRIPTION,
            'text "Description"',
            'push button "Report details"',
            self.summary(),
            'progress bar "Sending" busy focused',
            'push button "Cancel"',
            'push button "Sending..." disabled',
        ])

    def test_awaiting_another_try(self):
        self.serve("refuse")
        program = self.submitted(self.launch())
        program.dismiss_alert()
        self.assert_window(program, [
            WINDOW,
            HEADLINE,
            LABEL_OF_ADDRESS,
            'text "E-mail address" editable disabled',
            LABEL_OF_DESCRIPTION,
            'text "Description"',
            'push button "Report details"',
            self.summary(),
            'push button "Edit Report"',
            'push button "Report Crash" focused',
        ])

    def test_an_alert(self):
        self.serve("refuse")
        program = self.submitted(self.launch())
        program.alert()
        self.assert_tree(program.screen.alert_window, [
            'alert "Korvale Crash Reporter"',
            'label "Crash log upload failed."',
            'push button "OK" focused',
            'label "Please try again later."',
        ])

    def test_the_triangle_expands_and_collapses(self):
        program = self.launch()
        triangle = program.screen.find("Report details")
        self.assertTrue(triangle.get_state_set().contains(Atspi.StateType.EXPANDABLE))
        self.assertEqual(triangle.get_role(), Atspi.Role.PUSH_BUTTON)
        self.assertEqual(Atspi.Action.get_action_name(triangle, 0), "Expand")
        program.press("Report details")
        wait_until(lambda: program.screen.has_state("Report details", Atspi.StateType.EXPANDED), "the expanded state")
        wait_until(lambda: program.screen.is_shown("Report"), "the report pane")


class Keyboard(ProgramTest):
    def test_each_change_of_state_moves_the_focus_which_is_announced(self):
        self.serve("never")
        program = self.launch()
        wait_until(lambda: program.screen.has_focus("E-mail address"), "the focus on the address")
        program.type(ADDRESS)
        program.key("Return")
        wait_until(lambda: program.screen.has_focus("Sending"), "the focus on the spinner")
        program.key("Escape")
        wait_until(lambda: program.screen.has_focus("E-mail address"), "the focus on the address again")
