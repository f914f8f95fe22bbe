"""What a screen reader says of the whole job, compared line by line with what it should say. No voice is needed."""

import os
import re

from support import ADDRESS, ORDINARY_USER, ProgramTest, remote_headline, without_leak_detection
from trial.processes import Started
from trial.waiting import wait_until

# Without a voice all that would be spoken stands in the log, and each line at once. The keys that the test presses are
# not named.
PREFERENCES = """
import orca.debug
import orca.settings
orca.debug.debugFile.reconfigure(line_buffering=True)
orca.settings.speechServerFactory = None
orca.settings.speechFactoryModules = []
orca.settings.enableKeyEcho = False
orca.settings.enableBraille = False
"""
ADDRESS_FIELD = "E-mail address, in case we have questions about the crash (optional) text."
SENDING = "Sending progress bar."


class ScreenReader:
    """A run of the screen reader; said() is all that it has said so far."""

    def __init__(self, folder, desktop):
        self.log = os.path.join(folder, "log")
        preferences = os.path.join(folder, "preferences")
        os.mkdir(preferences)
        with open(os.path.join(preferences, "orca-customizations.py"), "w", encoding="utf-8") as file:
            file.write(PREFERENCES)
        self.process = Started(
            ["orca", "--debug-file", self.log, "--user-prefs", preferences], folder, "screen-reader",
            {**desktop.environment(), "HOME": folder, "GSETTINGS_BACKEND": "memory", "PYTHONDONTWRITEBYTECODE": "1"},
            prefix=ORDINARY_USER)
        wait_until(lambda: self.said() == ["Screen reader on."], "the screen reader")

    def said(self):
        if not os.path.exists(self.log):
            return []
        with open(self.log, encoding="utf-8", errors="replace") as file:
            return re.findall(r"^[\d:.]+ - SPEECH OUTPUT: '(.*)' ?\{", file.read(), re.MULTILINE)

    def end(self):
        self.process.end()


class WholeJob(ProgramTest):
    def setUp(self):
        super().setUp()
        self.reader = ScreenReader(self.subfolder("reader"), self.desktop)
        self.addCleanup(self.reader.end)
        self.heard = 1

    def assert_says(self, *expected):
        """These are the next things that are said."""
        try:
            wait_until(lambda: len(self.reader.said()) >= self.heard + len(expected), f"{expected} to be said", 15)
        finally:
            self.assertEqual(self.reader.said()[self.heard:self.heard + len(expected)], list(expected))
        self.heard += len(expected)

    def says_until(self, last):
        """What is said next, up to and with the last."""
        wait_until(lambda: last in self.reader.said()[self.heard:], f"{last!r} to be said", 15)
        found = self.reader.said()[self.heard:]
        found = found[:found.index(last) + 1]
        self.heard += len(found)
        return found

    def test_it_is_told(self):
        self.serve("never,refuse,accept")
        name, size = os.path.basename(self.crash_log), len(self.expected())
        summary = f"{name} ({size} bytes, with 4 application logs), sent to localhost"
        window = f"Korvale Crash Reporter dialog {remote_headline('anvil')} {summary}."
        # The toolkit loses its copy of a key that the screen reader has not answered by the end.
        program = self.launch(prefix=(*ORDINARY_USER, "env", without_leak_detection()))
        self.assert_says(window, ADDRESS_FIELD)
        program.type(ADDRESS)

        program.key("Tab")
        self.assert_says("Description of what you were doing text.")
        program.key("Tab")
        self.assert_says("Report details collapsed push button.", f"{summary}.")
        program.key("space")
        self.assert_says("expanded")
        program.key("space")
        self.assert_says("collapsed")
        program.key("space")
        self.assert_says("expanded")

        program.key("alt+t")
        self.assert_says("Text that is sent with the report read only text.", "Process: Harbour [4711]")
        for line in ("Exception Type: EXC_BAD_ACCESS", "blank", "Thread 0 Crashed:", "0 Harbour main + 12"):
            program.key("Down")
            self.assert_says(line)

        program.key("alt+r")
        self.assert_says(SENDING)
        program.key("Escape")
        self.assert_says(ADDRESS_FIELD, f"{ADDRESS}.")

        program.key("Return")
        said = self.says_until("OK push button.")
        # A refusal may come before the screen reader has got to the indicator.
        self.assertEqual([text for text in said if text != SENDING],
                         ["alert Korvale Crash Reporter.", "Crash log upload failed. Please try again later.",
                          "OK push button."])
        program.key("Return")
        self.assert_says(window, "Report Crash push button.")
        program.press("Edit Report")
        self.assert_says(ADDRESS_FIELD, f"{ADDRESS}.")

        program.key("Return")
        self.assertEqual(program.exit_status(), 0)
        # Another window shows that the screen reader has come past the end of this one.
        self.launch()
        said = self.says_until(window)
        self.assertLessEqual(set(said[:-1]), {SENDING})
