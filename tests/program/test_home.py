"""What a complete run leaves in its user's home: the settings' file, and nothing else that was not there before."""

import os

from support import ADDRESS, ORDINARY_USER, UPLOAD_FAILED, ProgramTest
from trial.home import read
from trial.waiting import wait_until

SETTINGS_FOLDER = os.path.join(".config", "Korvale")
SETTINGS = os.path.join(SETTINGS_FOLDER, "CrashReporter.conf")
# These lead the settings, the cache and the data elsewhere; most users have none of them.
XDG_VARIABLES = ("XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME")


def state_of(path):
    """All that shows whether a file or a folder was changed; a folder's own time follows from what is in it."""
    status = os.lstat(path)
    if os.path.isdir(path):
        return status.st_mode, status.st_ino
    return status.st_mode, status.st_ino, status.st_mtime_ns, read(path)


def states_below(folder):
    found = {}
    for parent, folders, files in os.walk(folder):
        for name in folders + files:
            path = os.path.join(parent, name)
            found[os.path.relpath(path, folder)] = state_of(path)
    return found


def changes(before, after):
    return {path for path in before.keys() | after.keys() if before.get(path) != after.get(path)}


class Home(ProgramTest):
    def run_all_of_it(self):
        """Unfold, read, copy, be refused, correct, be accepted."""
        server = self.serve("refuse,accept")
        program = self.launch(prefix=(*ORDINARY_USER, "env", *(f"--unset={name}" for name in XDG_VARIABLES)))
        program.click("Report details")
        wait_until(lambda: program.screen.is_shown("Report"), "the report pane")
        program.key("ctrl+a", "ctrl+f")
        program.key("ctrl+shift+c")
        self.submitted(program, description="It froze.")
        self.assertEqual(program.dismiss_alert(), UPLOAD_FAILED)
        program.press("Edit Report")
        wait_until(program.is_unlocked, "the form to be unlocked")
        self.submitted(program, ADDRESS)
        self.assert_accepted(program, server, posts=2)
        server.end()

    def test_the_first_run_leaves_the_settings_alone(self):
        before = states_below(self.home.path)
        self.run_all_of_it()
        after = states_below(self.home.path)
        self.assertEqual(changes(before, after), {SETTINGS_FOLDER, SETTINGS})
        self.assertEqual(after.keys() - before.keys(), {SETTINGS_FOLDER, SETTINGS})

    def test_the_second_run_changes_the_settings_alone(self):
        self.run_all_of_it()
        before = states_below(self.home.path)
        self.run_all_of_it()
        after = states_below(self.home.path)
        self.assertEqual(changes(before, after), {SETTINGS})
        self.assertEqual(after.keys(), before.keys())

    def test_a_run_that_sends_nothing_leaves_nothing(self):
        before = states_below(self.home.path)
        program = self.launch(prefix=(*ORDINARY_USER, "env", *(f"--unset={name}" for name in XDG_VARIABLES)))
        program.click("Report details")
        wait_until(lambda: program.screen.is_shown("Report"), "the report pane")
        program.close_window()
        self.assert_ends_silently(program)
        self.assertEqual(changes(before, states_below(self.home.path)), set())
