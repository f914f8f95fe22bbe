"""What the tests of building and packaging share: the project, the build, and commands with their output."""

import os
import subprocess
import sys
import unittest

PROJECT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(PROJECT, "tests", "support"))

import runner  # noqa: E402 (found through the path above)

BUILD = os.environ["KORVALE_BUILD"]
APPLICATION_ID = "com.korvale.crashreporter"
PROGRAM = "korvale-crash-reporter"


def run(*command, **options):
    """The finished command; what it printed, on standard error too, is its stdout."""
    environment = dict(os.environ, LC_ALL="C.UTF-8", **options.pop("environment", {}))
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
                          env=environment, timeout=300, **options)


def read(*path):
    with open(os.path.join(*path), encoding="utf-8") as file:
        return file.read()


def generated(name):
    return os.path.join(BUILD, "resources", name)


class BuildTest(unittest.TestCase):
    def assert_succeeds(self, *command, **options):
        finished = run(*command, **options)
        self.assertEqual(finished.returncode, 0, f"{' '.join(command)}:\n{finished.stdout}")
        return finished.stdout

    def assert_fails(self, *command, **options):
        finished = run(*command, **options)
        self.assertNotEqual(finished.returncode, 0, f"{' '.join(command)} succeeded:\n{finished.stdout}")
        return finished.stdout


def main():
    # A machine without a tool that a test asks for is a failure that names it, never a test that is left out.
    sys.exit(runner.run("__main__", sys.argv[1:]))
