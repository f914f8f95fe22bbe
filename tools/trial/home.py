"""The home of the user whose application crashed: its log files and its settings, in a folder of the trial."""

import configparser
import os

from trial.expected import APPLICATION_LOGS


class Home:
    """A home directory; everything the program reads or writes of a user lies below its path."""

    def __init__(self, path):
        self.path = path
        self.logs = os.path.join(path, "Library", "Logs", "Korvale")
        self.settings_folder = os.path.join(path, ".config", "Korvale")
        self.settings_path = os.path.join(self.settings_folder, "CrashReporter.conf")
        for folder in (self.logs, os.path.join(path, ".config"), os.path.join(path, "tmp")):
            os.makedirs(folder, exist_ok=True)

    def environment(self):
        return {
            "HOME": self.path,
            "XDG_CONFIG_HOME": os.path.join(self.path, ".config"),
            "XDG_CACHE_HOME": os.path.join(self.path, ".cache"),
            "XDG_DATA_HOME": os.path.join(self.path, ".local", "share"),
            "TMPDIR": os.path.join(self.path, "tmp"),
        }

    def crash_log(self, name, content):
        """Writes a crash log to the home and returns its path."""
        path = os.path.join(self.path, name)
        write(path, content)
        return path

    def application_log(self, application, suffix, content):
        path = os.path.join(self.logs, f"{application}{suffix}")
        write(path, content)
        return path

    def application_logs(self, application):
        """The application's own logs that are there, by suffix."""
        found = {}
        for suffix, _, _ in APPLICATION_LOGS:
            path = os.path.join(self.logs, f"{application}{suffix}")
            if os.path.isfile(path):
                found[suffix] = read(path)
        return found

    def settings(self):
        """The stored values as the file has them, without those of other sections; empty when there is no file."""
        parser = configparser.ConfigParser(interpolation=None)
        parser.optionxform = str
        parser.read(self.settings_path, encoding="utf-8")
        return dict(parser["General"]) if parser.has_section("General") else {}

    def write_settings(self, text):
        os.makedirs(self.settings_folder, exist_ok=True)
        write(self.settings_path, text.encode())


def read(path):
    with open(path, "rb") as file:
        return file.read()


def write(path, content):
    with open(path, "wb") as file:
        file.write(content)
