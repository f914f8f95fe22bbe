"""The report window on a desktop: the details pane, the keyboard, closing."""

from support import ADDRESS, ProgramTest
from trial.processes import ORDINARY_USER
from trial.waiting import wait_until

TRIANGLE = "Report details"
REPORT = "Report"


class Details(ProgramTest):
    def toggled(self, program, shown, toggle=lambda program: program.click(TRIANGLE)):
        """Toggles the pane; gives every geometry that was seen until the window stood still, the last one last."""
        seen = []
        toggle(program)

        def stands_still():
            seen.append(program.geometry())
            return program.screen.is_shown(REPORT) == shown and len(seen) > 5 and len(set(seen[-5:])) == 1
        wait_until(stands_still, "the window to stand still")
        return seen

    def test_the_pane_is_folded_at_first(self):
        program = self.launch()
        self.assertFalse(program.screen.is_shown(REPORT))

    def test_unfolding_grows_the_window_at_its_bottom(self):
        program = self.launch()
        x, y, width, height = program.geometry()
        seen = self.toggled(program, shown=True)
        self.assertEqual({geometry[:3] for geometry in seen}, {(x, y, width)})
        self.assertGreater(seen[-1][3], height + 50)

    def test_folding_again_gives_the_former_frame(self):
        program = self.launch()
        before = program.geometry()
        unfolded = self.toggled(program, shown=True)[-1]
        folded = self.toggled(program, shown=False)
        self.assertEqual(folded[-1], before)
        self.assertEqual({geometry[:3] for geometry in folded}, {before[:3]})
        self.assertEqual(self.toggled(program, shown=True)[-1], unfolded)

    def test_folding_again_gives_the_former_frame_on_a_scaled_display(self):
        for scale in ("1.5", "1.75"):
            with self.subTest(scale=scale):
                program = self.launch(prefix=("env", f"QT_SCALE_FACTOR={scale}", *ORDINARY_USER))
                folded = program.geometry()[2:]
                # By the key: places on a scaled display are told in its units, and the pointer is moved in pixels.
                frames = [self.toggled(program, turn % 2 == 0, lambda program: program.key("alt+d"))[-1]
                          for turn in range(6)]
                self.assertEqual([frame[2:] for frame in frames], [frames[0][2:], folded] * 3)
                # At first the window manager moves it to where the screen has room for it.
                self.assertEqual(frames[1:], [frames[1], frames[2], frames[1], frames[2], frames[1]])
                program.end()

    def test_the_pane_shows_the_report(self):
        program = self.launch()
        self.assert_report_shown(program, self.expected())
        self.assertFalse(program.screen.is_editable(REPORT))

    def test_a_screen_reader_unfolds_the_pane(self):
        program = self.launch()
        program.press(TRIANGLE)
        wait_until(lambda: program.screen.is_shown(REPORT), "the report pane")

    def test_a_key_unfolds_the_pane(self):
        program = self.launch()
        program.key("alt+d")
        wait_until(lambda: program.screen.is_shown(REPORT), "the report pane")


class Closing(ProgramTest):
    def test_closing_the_window_ends_the_program(self):
        server = self.serve()
        program = self.launch()
        program.close_window()
        self.assert_ends_silently(program)
        self.assert_posts(server, 0)

    def test_dont_send_ends_the_program(self):
        server = self.serve()
        program = self.launch()
        program.press("Don't Send")
        self.assert_ends_silently(program)
        self.assert_posts(server, 0)

    def test_escape_keeps_the_window_and_what_was_typed(self):
        program = self.launch()
        wait_until(lambda: program.screen.has_focus("E-mail address"), "the focus on the address")
        program.type("jo")
        program.key("Escape")
        program.type("hn")
        wait_until(lambda: program.screen.text("E-mail address") == "john", "the address")

    def test_closing_the_window_during_an_upload_ends_the_program(self):
        server = self.serve("never")
        program = self.submitted(self.launch())
        wait_until(server.posts, "the POST")
        program.close_window()
        self.assertEqual(program.exit_status(), 0)
        self.assert_posts(server, 1)


class Keyboard(ProgramTest):
    def test_a_report_is_sent_by_keyboard_alone(self):
        server = self.serve()
        program = self.launch()
        wait_until(lambda: program.screen.has_focus("E-mail address"), "the focus on the address")
        program.type(ADDRESS)
        program.key("Tab")
        wait_until(lambda: program.screen.has_focus("Description"), "the focus on the description")
        program.type("It froze while I was saving.")
        program.key("Tab")
        wait_until(lambda: not program.screen.has_focus("Description"), "the focus to leave the description")
        wait_until(lambda: program.screen.text("Description") == "It froze while I was saving.", "the description")
        program.key("alt+r")
        self.assert_accepted(program, server)
        fields = server.posts()[0].fields()
        self.assertEqual(fields["email"], ADDRESS.encode())
        self.assertEqual(fields["info"], b"It froze while I was saving.")

    def test_the_return_key_in_the_address_submits(self):
        server = self.serve()
        program = self.launch()
        wait_until(lambda: program.screen.has_focus("E-mail address"), "the focus on the address")
        program.type(ADDRESS)
        program.key("Return")
        self.assert_accepted(program, server)

    def test_a_second_return_neither_cancels_nor_submits(self):
        server = self.serve("never")
        program = self.launch()
        wait_until(lambda: program.screen.has_focus("E-mail address"), "the focus on the address")
        program.type(ADDRESS)
        program.key("Return", "Return")
        wait_until(server.posts, "the POST")
        wait_until(lambda: program.screen.has_focus("Sending"), "the focus on the indicator")
        program.key("Return", "KP_Enter", "space")
        # Keys are delivered in their order: with the answer to this one the others have been.
        program.key("Tab")
        wait_until(lambda: program.screen.has_focus("Cancel"), "the focus on the next control")
        self.assertTrue(program.is_sending())
        self.assert_posts(server, 1)

    def test_cancel_is_offered_only_while_there_is_something_to_cancel(self):
        program = self.launch()
        self.assertTrue(program.offers("Don't Send"))
        self.assertFalse(program.offers("Cancel"))
