"""A desktop's session that can be logged out of."""

import os

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

    def begin_logout(self):
        """Has every program save and end."""
        self.process.process.terminate()

    def log_out(self):
        """The same, and waits until all have."""
        self.begin_logout()
        self.process.exit_status()

    def saved_session(self):
        """What the next login would start."""
        with open(os.path.join(self.folder, ".XSM-Default"), encoding="utf-8") as file:
            return file.read()

    def end(self):
        self.process.end()
