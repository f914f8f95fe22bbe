"""Running as root: the user whose logs are collected is the one logged in at the console."""

import os

from support import CRASH_LOG, ProgramTest

# The console user as systemd's login service writes it down, in a /run of the program's own.
LOGIN_SERVICE = """
mount -t tmpfs tmpfs /run
mkdir -p /run/systemd/seats /run/systemd/sessions /run/systemd/users
cat >/run/systemd/seats/seat0 <<SEAT
IS_SEAT0=1
CAN_MULTI_SESSION=1
ACTIVE=c1
ACTIVE_UID=4321
SESSIONS=c1
SEAT
cat >/run/systemd/sessions/c1 <<SESSION
UID=4321
USER=conny
ACTIVE=1
STATE=active
REMOTE=0
TYPE=x11
CLASS=$1
SEAT=seat0
SESSION
mount --bind "$2" /etc/passwd
shift 2
exec "$@"
"""


class Root(ProgramTest):
    def console_home(self):
        path = os.path.join(self.folder, "conny")
        os.makedirs(os.path.join(path, "Library", "Logs", "Korvale"))
        with open(os.path.join(path, "Library", "Logs", "Korvale", "Harbour.1.log"), "wb") as file:
            file.write(b"log of the console user\n")
        return path

    def root_home(self):
        path = os.path.join(self.folder, "root")
        os.makedirs(path, exist_ok=True)
        return path

    def account_list(self):
        path = os.path.join(self.folder, "passwd")
        with open(path, "w", encoding="utf-8") as file:
            file.write(f"root:x:0:0:root:{self.root_home()}:/bin/sh\n")
            file.write(f"conny:x:4321:4321:Conny Sole:{self.console_home()}:/bin/sh\n")
        return path

    def launch_as_root(self, session_class):
        prefix = ("unshare", "--mount", "bash", "-e", "-c", LOGIN_SERVICE, "bash", session_class, self.account_list())
        return self.start("-remotename", "anvil", "-log", self.crash_log, prefix=prefix).wait_for_window()

    def test_the_console_users_logs_are_appended(self):
        server = self.serve()
        program = self.submitted(self.launch_as_root("user"))
        self.assert_report_sent(program, server, CRASH_LOG + b"\nLog 1:\nlog of the console user\n")

    def test_at_the_login_screen_no_logs_are_appended(self):
        server = self.serve()
        program = self.submitted(self.launch_as_root("greeter"))
        self.assert_report_sent(program, server, CRASH_LOG)
