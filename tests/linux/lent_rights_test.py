"""Installs the program so that it lends rights to whoever starts it, and starts it as an ordinary user.

Usage: lent_rights_test.py PROGRAM [WORD...], as root of the system or of a namespace that has all users. With words,
only the cases run whose name contains one of them.
"""

import os
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support"))

import runner  # noqa: E402 (found through the path above)

AS_ORDINARY_USER = ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups")
REFUSAL = ("korvale-crash-reporter: not to be given rights by its file (set-user-ID, set-group-ID, capabilities) or by "
           "a security module: whoever starts it would read and send files with those rights\n")
# Files' capabilities as the kernel keeps them (linux/capability.h): second revision, effective; permitted and
# inheritable in two words each. Number 2 lets a program read every file.
READS_EVERY_FILE = struct.pack("<5I", 0x02000001, 1 << 2, 0, 0, 0)


class LentRights(unittest.TestCase):
    program = None

    def setUp(self):
        folder = tempfile.mkdtemp(prefix="lent-rights-")
        self.addCleanup(shutil.rmtree, folder)
        os.chmod(folder, 0o755)
        self.installed = shutil.copyfile(self.program, os.path.join(folder, "korvale-crash-reporter"))
        os.chmod(self.installed, 0o755)

    def started(self):
        environment = {"PATH": os.environ["PATH"], "LANG": "C.UTF-8"}
        return subprocess.run([*AS_ORDINARY_USER, self.installed], env=environment, capture_output=True, text=True,
                              timeout=30, check=False)

    def assert_refused(self):
        ended = self.started()
        self.assertEqual((ended.returncode, ended.stdout, ended.stderr), (1, "", REFUSAL))

    def test_set_user_id_is_refused(self):
        os.chmod(self.installed, 0o4755)
        self.assert_refused()

    def test_set_group_id_is_refused(self):
        os.chmod(self.installed, 0o2755)
        self.assert_refused()

    def test_capabilities_are_refused(self):
        os.setxattr(self.installed, "security.capability", READS_EVERY_FILE)
        self.assert_refused()

    def test_nothing_lent_is_started(self):
        self.assertIn("cannot be shown on this display", self.started().stderr)


if __name__ == "__main__":
    LentRights.program = sys.argv[1]
    sys.exit(runner.run("__main__", sys.argv[2:]))
