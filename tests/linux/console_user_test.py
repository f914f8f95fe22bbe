#!/usr/bin/python3
"""Runs the probe of the console user in a private namespace, on a console that the case writes down.

Usage: console_user_test.py PROBE CASE

The namespace has its own /run, where systemd-logind's files about seats and sessions are written by hand, and its own
/etc/passwd; nothing outside changes. Exit status: 0 passed, 1 failed, 77 skipped (no private namespaces here).
"""

import os
import pathlib
import subprocess
import sys
import tempfile

SKIPPED = 77
NOTHING = "(nothing)"

# The process of the namespace has the user ID 0; root's own home must never be the answer.
ACCOUNTS = """root:x:0:0:root:/root:/bin/sh
user1:x:1234:1234:User One:/home/user one:/bin/sh
greeter:x:120:120:Greeter:/var/lib/greeter:/bin/false
"""
# Larger than any buffer that a look-up of accounts would try first.
LONG_ACCOUNT = "user2:x:2345:2345:" + 20000 * "x" + ":/home/user two:/bin/sh\n"
OWN_HOME = "/home/of the process"

USER_SESSION = "UID=1234\nUSER=user1\nACTIVE=1\nSTATE=active\nCLASS=user\nTYPE=wayland\nSEAT=seat0\n"
GREETER_SESSION = "UID=120\nUSER=greeter\nACTIVE=1\nSTATE=active\nCLASS=greeter\nTYPE=wayland\nSEAT=seat0\n"


def seat(session):
    return f"IS_SEAT0=1\nACTIVE={session}\nACTIVE_UID=1\nSESSIONS={session}\n"


CONSOLE_USER_ONE = {
    "currentConsoleUser": "user1",
    "username": "user1",
    "userDirectory": "/home/user one",
    "logDirectory": "/home/user one/Library/Logs",
    "trashDirectory": "/home/user one/.Trash",
}
NOBODY = dict.fromkeys(CONSOLE_USER_ONE, NOTHING)

# Each case: the files under /run/systemd, and what the probe answers; "user_id" runs it as somebody else than root.
CASES = {
    "RootAnswersForTheUserOfTheActiveSession": {
        "files": {"seats/seat0": seat("c2"), "sessions/c2": USER_SESSION, "sessions/c1": GREETER_SESSION},
        "answers": CONSOLE_USER_ONE,
    },
    "AGreeterIsNobody": {
        "files": {"seats/seat0": seat("c1"), "sessions/c1": GREETER_SESSION, "sessions/c2": USER_SESSION},
        "answers": NOBODY,
    },
    "ASeatWithoutAnActiveSessionHasNobody": {
        "files": {"seats/seat0": "IS_SEAT0=1\nSESSIONS=c2\n", "sessions/c2": USER_SESSION},
        "answers": NOBODY,
    },
    "WithoutASeatThereIsNobody": {
        "files": {},
        "answers": NOBODY,
    },
    "ASessionThatHasEndedMeanwhileIsNobodys": {
        "files": {"seats/seat0": seat("c2")},
        "answers": NOBODY,
    },
    "AnotherSeatIsNotTheConsole": {
        "files": {"seats/seat1": seat("c2"), "sessions/c2": USER_SESSION},
        "answers": NOBODY,
    },
    "ASessionOfAnIdWithoutAccountIsNobodys": {
        "files": {"seats/seat0": seat("c2"), "sessions/c2": USER_SESSION.replace("UID=1234", "UID=4321")},
        "answers": NOBODY,
    },
    "AnAccountWithAVeryLongEntryIsFound": {
        "files": {"seats/seat0": seat("c3"), "sessions/c3": USER_SESSION.replace("UID=1234", "UID=2345")},
        "answers": {
            "currentConsoleUser": "user2",
            "username": "user2",
            "userDirectory": "/home/user two",
            "logDirectory": "/home/user two/Library/Logs",
            "trashDirectory": "/home/user two/.Trash",
        },
    },
    "TheIdOfTheSessionDecidesAndNotTheNameWrittenBesideIt": {
        "files": {"seats/seat0": seat("c2"), "sessions/c2": USER_SESSION.replace("USER=user1", "USER=greeter")},
        "answers": CONSOLE_USER_ONE,
    },
    "AnOrdinaryProcessAnswersForItself": {
        "files": {"seats/seat0": seat("c2"), "sessions/c2": USER_SESSION},
        "user_id": 120,
        "answers": {
            "currentConsoleUser": "user1",
            "username": "greeter",
            "userDirectory": OWN_HOME,
            "logDirectory": OWN_HOME + "/Library/Logs",
            "trashDirectory": OWN_HOME + "/.Trash",
        },
    },
}


def run(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def lay_out_console(files, folder):
    """Inside the namespace: an own /run and an own /etc/passwd."""
    run("mount", "-t", "tmpfs", "tmpfs", "/run")
    for name in ("seats", "sessions", "users"):
        pathlib.Path("/run/systemd", name).mkdir(parents=True)
    for name, text in files.items():
        pathlib.Path("/run/systemd", name).write_text(text, encoding="utf-8")
    accounts = pathlib.Path(folder, "passwd")
    accounts.write_text(ACCOUNTS + LONG_ACCOUNT, encoding="utf-8")
    run("mount", "--bind", str(accounts), "/etc/passwd")


def answers_of(probe, user_id):
    os.environ["HOME"] = OWN_HOME
    command = [probe]
    if user_id != 0:
        command = ["unshare", "-U", f"--map-user={user_id}", f"--map-group={user_id}", probe]
    lines = run(*command).splitlines()
    return dict(line.split("=", 1) for line in lines)


def inside(probe, case, folder):
    lay_out_console(case["files"], folder)
    answers = answers_of(probe, case.get("user_id", 0))
    if answers == case["answers"]:
        return 0
    print(f"expected {case['answers']}\nanswered {answers}", file=sys.stderr)
    return 1


def main():
    probe, name = sys.argv[1:3]
    case = CASES[name]
    if len(sys.argv) > 3:
        return inside(probe, case, sys.argv[3])

    allowed = subprocess.run(["unshare", "-Urm", "mount", "-t", "tmpfs", "tmpfs", "/run"], check=False,
                             stderr=subprocess.PIPE, text=True)
    if allowed.returncode != 0:
        print(f"skipped: private namespaces are not allowed here ({allowed.stderr.strip()})")
        return SKIPPED
    with tempfile.TemporaryDirectory() as folder:
        return subprocess.run(["unshare", "-Urm", sys.executable, __file__, probe, name, folder],
                              check=False).returncode


if __name__ == "__main__":
    sys.exit(main())
