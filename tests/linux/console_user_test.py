#!/usr/bin/python3
"""Runs the probe of the console user in a private namespace, on a console that each case writes down.

Usage: console_user_test.py PROBE [WORD...]

The namespace has its own /run, where systemd-logind's files about seats and sessions are written by hand, and its own
/etc/passwd; nothing outside changes. With words, only the cases run whose name contains one of them. Exit status: 0
when all passed, 1 when one failed, 77 when they were skipped (no private namespaces here).
"""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support"))

import runner  # noqa: E402 (found through the path above)

NOTHING = "(nothing)"
INSIDE = "--inside"

GREETER_ID = 120
# The process of the namespace has the user ID 0; root's own home must never be the answer.
ACCOUNTS = """root:x:0:0:root:/root:/bin/sh
user1:x:1234:1234:User One:/home/user one:/bin/sh
greeter:x:120:120:Greeter:/var/lib/greeter:/bin/false
"""
# Larger than any buffer that a lookup of accounts would try first; nearly as large as one may be; larger than that.
LONG_ACCOUNT = 20000
LONGEST_ACCOUNT = 15 * 1024 * 1024
ENDLESS_ACCOUNT = 17 * 1024 * 1024
OWN_HOME = "/home/of the process"

USER_SESSION = "UID=1234\nUSER=user1\nACTIVE=1\nSTATE=active\nCLASS=user\nTYPE=wayland\nSEAT=seat0\n"
GREETER_SESSION = "UID=120\nUSER=greeter\nACTIVE=1\nSTATE=active\nCLASS=greeter\nTYPE=wayland\nSEAT=seat0\n"


def account_of(size):
    """An entry of so many bytes and some more."""
    return "user2:x:2345:2345:" + size * "x" + ":/home/user two:/bin/sh\n"


def seat(session):
    return f"IS_SEAT0=1\nACTIVE={session}\nACTIVE_UID=1\nSESSIONS={session}\n"


CONSOLE_USER_ONE = {
    "currentConsoleUser": "user1",
    "username": "user1",
    "userDirectory": "/home/user one",
    "logDirectory": "/home/user one/Library/Logs",
    "trashDirectory": "/home/user one/.Trash",
}
CONSOLE_USER_TWO = {
    "currentConsoleUser": "user2",
    "username": "user2",
    "userDirectory": "/home/user two",
    "logDirectory": "/home/user two/Library/Logs",
    "trashDirectory": "/home/user two/.Trash",
}
NOBODY = dict.fromkeys(CONSOLE_USER_ONE, NOTHING)
GREETERS_OWN = {
    "currentConsoleUser": "user1",
    "username": "greeter",
    "userDirectory": OWN_HOME,
    "logDirectory": OWN_HOME + "/Library/Logs",
    "trashDirectory": OWN_HOME + "/.Trash",
}


def run(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def lay_out_console(files, folder, account_size):
    """Inside the namespace: an own /run and an own /etc/passwd."""
    run("mount", "-t", "tmpfs", "tmpfs", "/run")
    for name in ("seats", "sessions", "users"):
        pathlib.Path("/run/systemd", name).mkdir(parents=True)
    for name, text in files.items():
        pathlib.Path("/run/systemd", name).write_text(text, encoding="utf-8")
    accounts = pathlib.Path(folder, "passwd")
    accounts.write_text(ACCOUNTS + account_of(account_size), encoding="utf-8")
    run("mount", "--bind", str(accounts), "/etc/passwd")


def answers_of(probe, user_id):
    os.environ["HOME"] = OWN_HOME
    command = [probe]
    if user_id != 0:
        command = ["unshare", "-U", f"--map-user={user_id}", f"--map-group={user_id}", probe]
    lines = run(*command).splitlines()
    return dict(line.split("=", 1) for line in lines)


def inside(probe, folder, user_id, files, account_size):
    """Inside the namespace: prints the probe's answers on a console that the files tell of."""
    lay_out_console(json.loads(files), folder, int(account_size))
    print(json.dumps(answers_of(probe, int(user_id))))


class ConsoleUser(unittest.TestCase):
    probe = None

    @classmethod
    def setUpClass(cls):
        allowed = subprocess.run(["unshare", "-Urm", "mount", "-t", "tmpfs", "tmpfs", "/run"], check=False,
                                 stderr=subprocess.PIPE, text=True)
        if allowed.returncode != 0:
            raise unittest.SkipTest(f"private namespaces are not allowed here ({allowed.stderr.strip()})")

    def assert_answers(self, expected, files, user_id=0, account_size=0):
        """Runs the probe where these are the files under /run/systemd, as root unless another user is given."""
        with tempfile.TemporaryDirectory() as folder:
            answers = run("unshare", "-Urm", sys.executable, __file__, INSIDE, self.probe, folder, str(user_id),
                          json.dumps(files), str(account_size))
        self.assertEqual(json.loads(answers), expected)

    def test_root_answers_for_the_user_of_the_active_session(self):
        self.assert_answers(
            CONSOLE_USER_ONE,
            {"seats/seat0": seat("c2"), "sessions/c2": USER_SESSION, "sessions/c1": GREETER_SESSION})

    def test_a_greeter_is_nobody(self):
        self.assert_answers(
            NOBODY, {"seats/seat0": seat("c1"), "sessions/c1": GREETER_SESSION, "sessions/c2": USER_SESSION})

    def test_a_seat_without_an_active_session_has_nobody(self):
        self.assert_answers(NOBODY, {"seats/seat0": "IS_SEAT0=1\nSESSIONS=c2\n", "sessions/c2": USER_SESSION})

    def test_without_a_seat_there_is_nobody(self):
        self.assert_answers(NOBODY, {})

    def test_a_session_that_has_ended_meanwhile_is_nobodys(self):
        self.assert_answers(NOBODY, {"seats/seat0": seat("c2")})

    def test_another_seat_is_not_the_console(self):
        self.assert_answers(NOBODY, {"seats/seat1": seat("c2"), "sessions/c2": USER_SESSION})

    def test_a_session_of_an_id_without_account_is_nobodys(self):
        session = USER_SESSION.replace("UID=1234", "UID=4321")
        self.assert_answers(NOBODY, {"seats/seat0": seat("c2"), "sessions/c2": session})

    def test_a_session_without_an_id_is_nobodys(self):
        session = USER_SESSION.replace("UID=1234\n", "")
        self.assert_answers(NOBODY, {"seats/seat0": seat("c2"), "sessions/c2": session})

    def test_an_account_with_a_very_long_entry_is_found(self):
        session = USER_SESSION.replace("UID=1234", "UID=2345")
        for size in (LONG_ACCOUNT, LONGEST_ACCOUNT):
            with self.subTest(size=size):
                self.assert_answers(CONSOLE_USER_TWO, {"seats/seat0": seat("c3"), "sessions/c3": session},
                                    account_size=size)

    def test_an_account_without_end_is_nobody(self):
        session = USER_SESSION.replace("UID=1234", "UID=2345")
        self.assert_answers(NOBODY, {"seats/seat0": seat("c3"), "sessions/c3": session}, account_size=ENDLESS_ACCOUNT)

    def test_the_id_of_the_session_decides_and_not_the_name_written_beside_it(self):
        session = USER_SESSION.replace("USER=user1", "USER=greeter")
        self.assert_answers(CONSOLE_USER_ONE, {"seats/seat0": seat("c2"), "sessions/c2": session})

    def test_an_ordinary_process_answers_for_itself(self):
        self.assert_answers(GREETERS_OWN, {"seats/seat0": seat("c2"), "sessions/c2": USER_SESSION}, GREETER_ID)


def main(arguments):
    if arguments[0] == INSIDE:
        inside(*arguments[1:])
        return 0
    ConsoleUser.probe, *words = arguments
    return runner.run("__main__", words)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
