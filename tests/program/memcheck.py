"""A whole submission under memcheck, for scripts/check-deep: not a test of CI's, which has no valgrind."""

import os

from support import ADDRESS, ORDINARY_USER, PROJECT, ProgramTest
from trial.home import read, write

MEMCHECK = ("valgrind", "--quiet",
            "--leak-check=full", "--errors-for-leak-kinds=definite", "--show-leak-kinds=definite",
            # Between it and the program, what makes the program end with the test; of the desktop's command, nothing.
            "--trace-children=yes", "--trace-children-skip=*/proxy",
            f"--suppressions={PROJECT}/tools/memcheck.supp")


class Memcheck(ProgramTest):
    def test_finds_nothing_in_a_submission_that_is_refused_and_then_accepted(self):
        server = self.serve("refuse,accept")
        found = os.path.join(self.subfolder("memcheck"), "found")
        write(found, b"")
        os.chmod(found, 0o666)
        program = self.start("-remotename", "anvil", "-log", self.crash_log,
                             prefix=(*ORDINARY_USER, *MEMCHECK, f"--log-file={found}"))
        program.wait_for_window(120)
        program.key("alt+d")
        program.fill_in(ADDRESS, "It froze.")
        program.submit()
        program.alert(120)
        program.dismiss_alert()
        program.submit()
        self.assertEqual(program.exit_status(120), 0)
        self.assert_posts(server, 2)
        self.assertEqual(read(found).decode(), "")
