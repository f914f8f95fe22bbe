"""What a screen reader finds in the window and in an alert, in each state, compared with trees written by hand."""

import os

from support import CONNECTION_FAILED, ProgramTest, UPLOAD_FAILED, cases, remote_headline
from trial.screen import Atspi, GLib, children, is_showing
from trial.waiting import wait_until

TOLD_STATES = (
    (Atspi.StateType.EXPANDED, "expanded"),
    (Atspi.StateType.EDITABLE, "editable"),
    (Atspi.StateType.BUSY, "busy"),
    (Atspi.StateType.FOCUSED, "focused"),
)
# Widgets that only hold others; assistive technology passes over them.
PASSED_OVER = ("filler",)

WINDOW = 'dialog "Korvale Crash Reporter"'
HEADLINE = f'label "{remote_headline("anvil")}"'
LABEL_OF_ADDRESS = 'label "E-mail address, in case we have questions about the crash (optional)"'
LABEL_OF_DESCRIPTION = 'label "Description of what you were doing"'


def described(accessible):
    states = accessible.get_state_set()
    told = [word for state, word in TOLD_STATES if states.contains(state)]
    if not states.contains(Atspi.StateType.ENABLED):
        told.append("disabled")
    # A tool tip that stands in for a description brings its markup along.
    if "<" in accessible.get_description():
        told.append(f"described as {accessible.get_description()}")
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

    def form_that_is_edited(self, triangle):
        return [
            WINDOW,
            HEADLINE,
            LABEL_OF_ADDRESS,
            'text "E-mail address" editable focused',
            LABEL_OF_DESCRIPTION,
            'text "Description" editable',
            f'push button "Report details"{triangle}',
            self.summary(),
            'push button "Don\'t Send"',
            'push button "Report Crash"',
        ]

    def test_editing(self):
        self.assert_window(self.launch(), self.form_that_is_edited(""))

    def test_editing_with_the_pane(self):
        program = self.launch()
        program.press("Report details")
        self.assert_window(program, [
            *self.form_that_is_edited(" expanded"),
            'label "Text that is sent with the report"',
            'text "Report"',
        ])

    def test_sending(self):
        self.serve("never")
        program = self.submitted(self.launch())
        self.assert_window(program, [
            WINDOW,
            HEADLINE,
            LABEL_OF_ADDRESS,
            'text "E-mail address" disabled',
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
            'text "E-mail address" disabled',
            LABEL_OF_DESCRIPTION,
            'text "Description"',
            'push button "Report details"',
            self.summary(),
            'push button "Edit Report"',
            'push button "Report Crash" focused',
        ])

    def test_the_find_bar(self):
        program = self.launch()
        program.press("Report details")
        wait_until(lambda: program.screen.is_shown("Report"), "the report pane")
        # A click could miss the pane, which is still unfolding.
        Atspi.Component.grab_focus(program.screen.find("Report"))
        wait_until(lambda: program.screen.has_focus("Report"), "the focus on the report")
        program.key("ctrl+f")
        wait_until(lambda: program.screen.is_shown("Find in the report"), "the find bar")
        bar = [
            'text "Find in the report" editable focused',
            'label "Find:"',
            'push button "Find previous"',
            'push button "Find next"',
            'push button "Close the find bar"',
        ]
        form = self.form_that_is_edited(" expanded")
        form[form.index('text "E-mail address" editable focused')] = 'text "E-mail address" editable'
        pane = ['label "Text that is sent with the report"', 'text "Report"']
        self.assert_window(program, [*form, *pane, *bar])
        program.type("no such words")
        bar.insert(1, 'push button "Clear"')
        bar.insert(2, 'label "Not found"')
        self.assert_window(program, [*form, *pane, *bar])

    @cases(sending=("never", "Cancel"), awaiting_another_try=("refuse", "Edit Report"))
    def test_no_one_changes_what_is_locked(self, answer, way_back):
        self.serve(answer)
        program = self.launch()
        program.fill_in("jo@example.org", "It froze.")
        program.submit()
        if answer == "refuse":
            program.dismiss_alert()
        wait_until(lambda: program.screen.is_shown(way_back), "the form to be locked")
        for name, text in (("E-mail address", "jo@example.org"), ("Description", "It froze.")):
            Atspi.EditableText.set_text_contents(program.screen.find(name), "changed")
            Atspi.EditableText.insert_text(program.screen.find(name), 0, "more", 4)
            self.assertEqual(program.screen.text(name), text)

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


class Announced(ProgramTest):
    """What assistive technology is told without asking, and so may speak."""

    def setUp(self):
        super().setUp()
        self.told = []
        listener = Atspi.EventListener.new(self.hear)
        for kind in ("expanded", "focused"):
            listener.register(f"object:state-changed:{kind}")
            self.addCleanup(listener.deregister, f"object:state-changed:{kind}")

    def hear(self, event):
        kind = event.type.rpartition(":")[2]
        if kind == "focused" and not event.detail1:
            return
        self.told.append((event.source.get_name(), kind if event.detail1 else f"not {kind}"))

    def has_heard(self, told):
        GLib.MainContext.default().iteration(False)
        return told in self.told

    def assert_told(self, *expected):
        """These and no others have been told since this was asked last."""
        try:
            wait_until(lambda: self.has_heard(expected[-1]), f"{expected} to be told", 5)
        finally:
            self.assertEqual(self.told, list(expected))
        self.told.clear()

    def launch_heard(self):
        program = self.launch()
        wait_until(lambda: self.has_heard(("E-mail address", "focused")), "the window to have the keyboard")
        self.told.clear()
        return program

    def test_the_triangle_says_that_it_has_expanded_and_collapsed(self):
        program = self.launch_heard()
        for _ in range(2):
            program.press("Report details")
            self.assert_told(("Report details", "expanded"))
            program.press("Report details")
            self.assert_told(("Report details", "not expanded"))

    def test_a_key_on_the_triangle_is_told_like_a_press(self):
        program = self.launch_heard()
        program.key("alt+d")
        self.assert_told(("Report details", "focused"), ("Report details", "expanded"))
        program.key("space")
        self.assert_told(("Report details", "not expanded"))

    def test_sending_and_cancelling_move_the_keyboard(self):
        self.serve("never")
        program = self.launch_heard()
        program.key("Return")
        self.assert_told(("Sending", "focused"))
        program.key("Escape")
        self.assert_told(("E-mail address", "focused"))

    @cases(refusal=("refuse", UPLOAD_FAILED), failure=("close-after-request", CONNECTION_FAILED))
    def test_the_alert_and_then_the_window_have_the_keyboard_after_a(self, answer, alert):
        self.serve(f"{answer},never")
        program = self.launch_heard()
        program.key("Return")
        wait_until(lambda: self.has_heard(("OK", "focused")), "the alert to have the keyboard")
        # The window gets it back meanwhile, which is told only while the alert does not stand before it yet.
        self.assertEqual([told for told in self.told if told != ("Report Crash", "focused")],
                         [("Sending", "focused"), ("OK", "focused")])
        self.told.clear()
        self.assertEqual(program.dismiss_alert(), alert)
        self.assert_told(("Report Crash", "focused"))
        program.press("Edit Report")
        self.assert_told(("E-mail address", "focused"))
