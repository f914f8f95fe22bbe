"""The world of the endpoint's tests: that of the program's tests, with the real endpoint in place of the trial one."""

import hashlib
import os
import random
import subprocess

from installation import DatabaseStore, Installation
from support import ADDRESS, CONNECTION_FAILED, UPLOAD_FAILED, ProgramTest
from trial.home import read
from trial.waiting import wait_until

DESCRIPTION = "Dragged a folder.\nZürich — naïve \U0001f600, 100\u00a0%"
# What decides the moments of a run; the same ones come again with the number in the environment.
SEED = os.environ.get("KORVALE_TEST_SEED") or str(random.SystemRandom().randrange(1_000_000))
OUTCOMES = {UPLOAD_FAILED: "refused", CONNECTION_FAILED: "failed"}


def name_of(fields):
    """The name of a report, worked out apart from the endpoint."""
    return hashlib.sha256(b"".join(b"%s %d\n%s" % (name.encode(), len(fields[name]), fields[name])
                                   for name in sorted(fields))).hexdigest()


def chances(name):
    """Random numbers of that name, whose seed is printed."""
    print(f"KORVALE_TEST_SEED={SEED}", flush=True)
    return random.Random(f"{SEED} {name}")


def ensure_account():
    """initdb asks for the name of its user; this /etc is the namespace's own."""
    if b":x:1000:" not in read("/etc/passwd"):
        with open("/etc/passwd", "a", encoding="utf-8") as accounts:
            accounts.write("reporter:x:1000:1000::/nonexistent:/bin/false\n")


class ServerTest(ProgramTest):
    """Each test has an endpoint, a store, a home and a program of its own."""

    def install(self, **options):
        folder = os.path.join(self.folder, "installation")
        os.makedirs(folder)
        installation = Installation(folder, self.authority, **options)
        self.addCleanup(installation.end)
        installation.start()
        return installation

    def database(self, kind=DatabaseStore, **options):
        ensure_account()
        # A socket's path is short.
        store = kind(self.subfolder("db"), **options)
        self.addCleanup(store.end)
        return store

    def small_disk(self, name, size):
        """A folder on a file system of so many KiB, in this mount namespace."""
        folder = self.subfolder(name)
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}k,mode=755", "tmpfs", folder], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", folder], check=False)
        return folder

    def large_log(self, size):
        line = b"%07d  Harbour  0x0000000100003f2c  main + 12\n"
        content = b"".join(line % number for number in range(size // 47 + 1))[:size]
        return self.home.crash_log("Harbour_large.crash", content), content

    # The program at the endpoint

    def fields(self, report=None, email=ADDRESS, description=DESCRIPTION):
        expected = {"crashlog": self.expected() if report is None else report}
        expected |= {"email": email.encode()} if email else {}
        return expected | ({"info": description.encode()} if description else {})

    def submit(self, log=None, email=ADDRESS, description=DESCRIPTION):
        return self.submitted(self.launch(log), email, description)

    @staticmethod
    def outcome(program, seconds=90):
        """What the program makes of the answer: "accepted", "refused" or "failed"."""
        wait_until(lambda: not program.process.is_running() or program.screen.alert(), "the upload to end", seconds)
        if program.process.is_running():
            return OUTCOMES[program.screen.alert()]
        if program.process.process.returncode != 0:
            raise AssertionError(f"the program ended with {program.process.process.returncode}")
        return "accepted"

    def assert_stored(self, installation, fields):
        stored = installation.store.reports()
        self.assertIn(name_of(fields), stored)
        self.assertEqual(stored[name_of(fields)], fields)

    def assert_nothing_stored(self, installation):
        self.assertEqual(installation.store.reports(), {})
