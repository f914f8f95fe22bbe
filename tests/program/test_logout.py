"""The end of the desktop's session, which is an end of the program like any other."""

import os

from support import ORDINARY_USER, ProgramTest
from trial.desktop import start_display
from trial.session import SessionManager
from trial.waiting import wait_until


class Logout(ProgramTest):
    def setUp(self):
        super().setUp()
        self.session = SessionManager(self.subfolder("session"), self.desktop)
        self.addCleanup(self.session.end)

    def launch_in_session(self):
        return self.launch(prefix=(*ORDINARY_USER, "env", *self.session.environment()))

    def test_it_ends_the_program_as_closing_its_window_does(self):
        server = self.serve()
        program = self.launch_in_session()
        self.session.log_out()
        self.assert_ends_silently(program)
        self.assert_posts(server, 0)

    def test_it_ends_the_program_behind_an_alert(self):
        program = self.launch_in_session()
        self.submitted(program, "no address").alert()
        self.session.log_out()
        self.assert_ends_silently(program)

    def test_it_ends_an_upload(self):
        server = self.serve("never")
        program = self.submitted(self.launch_in_session())
        wait_until(server.posts, "the report to arrive")
        self.session.log_out()
        self.assert_ends_silently(program)

    def test_the_next_login_starts_no_reporter(self):
        program = self.launch_in_session()
        self.session.log_out()
        self.assert_ends_silently(program)
        self.assertNotIn(os.path.basename(self.binary), self.session.saved_session())


class Display(ProgramTest):
    def test_its_end_ends_the_program(self):
        folder = self.subfolder("display")
        display, name = start_display(folder)
        self.addCleanup(display.end)
        server = self.serve()
        program = self.launch(prefix=(*ORDINARY_USER, "env", f"DISPLAY={name}"))
        display.end()
        self.assertEqual(program.exit_status(), 1)
        self.assertEqual(len(program.errors().splitlines()), 1, program.errors())
        self.assert_posts(server, 0)
