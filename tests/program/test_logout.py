"""The end of the desktop's session, which is an end of the program like any other."""

import os

from support import ORDINARY_USER, ProgramTest
from trial.desktop import start_display
from trial.processes import Started
from trial.waiting import wait_until


class SessionManager:
    """The session of an X11 desktop (X Session Management Protocol); its address is known to what it starts."""

    def __init__(self, folder, desktop):
        self.folder = folder
        self.tickets = os.path.join(folder, "tickets")
        self.address_path = os.path.join(folder, "address")
        first = os.path.join(folder, "first-program")
        with open(first, "w", encoding="utf-8") as file:
            file.write(f'#!/bin/sh\necho "$SESSION_MANAGER" >{self.address_path}.new\n'
                       f"mv {self.address_path}.new {self.address_path}\n")
        os.chmod(first, 0o755)
        with open(os.path.join(folder, ".xsmstartup"), "w", encoding="utf-8") as file:
            file.write(f"{first}\n")
        self.process = Started(["xsm"], folder, "session-manager", {
            **desktop.environment(), "HOME": folder, "ICEAUTHORITY": self.tickets})
        wait_until(lambda: os.path.exists(self.address_path), "the session manager")

    def environment(self):
        with open(self.address_path, encoding="utf-8") as file:
            return [f"SESSION_MANAGER={file.read().strip()}", f"ICEAUTHORITY={self.tickets}"]

    def log_out(self):
        """Has every program save and end, and waits until all have."""
        self.process.process.terminate()
        self.process.exit_status()

    def saved_session(self):
        """What the next login would start."""
        with open(os.path.join(self.folder, ".XSM-Default"), encoding="utf-8") as file:
            return file.read()

    def end(self):
        self.process.end()


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
