"""What the program says of its work when it is asked to, and that it says nothing otherwise."""

import os

from support import ADDRESS, CRASH_LOG, ProgramTest
from trial.processes import ORDINARY_USER

ASKED = ("env", "QT_LOGGING_RULES=korvale.*=true", *ORDINARY_USER)
DESCRIPTION = "what nobody but the server is to read"
CATEGORIES = ("korvale.transfer", "korvale.window")


class Diagnosis(ProgramTest):
    def refused_run(self, **options):
        """What the program printed of a run in which a report is refused, given back and kept."""
        self.serve("refuse")
        program = self.launch(**options)
        self.submitted(program, description=DESCRIPTION)
        program.dismiss_alert()
        self.assert_usable_after_failure(program)
        program.close_window()
        self.assertEqual(program.exit_status(), 0)
        return program.errors()

    def test_transfer_and_window_tell_when_they_are_asked(self):
        printed = self.refused_run(prefix=ASKED)
        for category in CATEGORIES:
            self.assertIn(f"{category}:", printed)

    def test_no_word_of_the_report_the_address_or_the_description_is_told(self):
        printed = self.refused_run(prefix=ASKED)
        self.assertNotIn(DESCRIPTION, printed)
        self.assertNotIn(ADDRESS, printed)
        for line in CRASH_LOG.decode().splitlines():
            if len(line) > 12:
                self.assertNotIn(line, printed)

    def test_nothing_of_that_is_told_unasked(self):
        self.assertRegex(self.refused_run(), r"\A[^\n]*: Returned data: [^\n]*\n\Z")

    def test_a_setting_that_is_not_kept_is_told(self):
        os.makedirs(self.home.settings_path)
        printed = self.refused_run(prefix=ASKED)
        self.assertIn("CrashReporter.conf\" is not taken: it is not a regular file", printed)

    def test_why_a_link_in_the_place_of_the_settings_leads_nowhere_is_told(self):
        os.makedirs(os.path.dirname(self.home.settings_path))
        os.symlink("CrashReporter.conf", self.home.settings_path)
        self.assertIn('Korvale/CrashReporter.conf" is not taken: Too many levels of symbolic links',
                      self.refused_run(prefix=ASKED))

    def test_a_crash_log_that_is_not_there_is_named(self):
        missing = self.home.path + "/gone.crash"
        program = self.start("-remotename", "anvil", "-log", missing, prefix=ASKED)
        self.assertEqual(program.exit_status(), 0)
        self.assertIn(f'korvale.loading: "{missing}" does not exist', program.errors())
