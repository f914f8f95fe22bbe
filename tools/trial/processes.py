"""Processes that a trial starts; each ends with the trial, however the trial ends."""

import contextlib
import glob
import os
import signal
import subprocess

from trial.waiting import WaitedInVain, wait_until

# What a trial starts the program with, so that it is not root's; nothing where the trial itself is an ordinary user's.
ORDINARY_USER = ["unshare", "--user", "--map-user=1000", "--map-group=1000"] if os.getuid() == 0 else []
DIE_WITH_PARENT = ["setpriv", "--pdeathsig", "KILL"]

# What is started goes on ignoring what this process ignores, as a shell has it do for what it starts in the background.
for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
    if signal.getsignal(number) is signal.SIG_IGN:
        signal.signal(number, signal.SIG_DFL)


class Started:
    """A running command with its standard output and standard error kept in files."""

    def __init__(self, command, folder, name, environment=None, prefix=(), **options):
        self.name = name
        self.output_path = os.path.join(folder, f"{name}.out")
        self.error_path = os.path.join(folder, f"{name}.err")
        with open(self.output_path, "wb") as output, open(self.error_path, "wb") as error:
            self.process = subprocess.Popen(
                [*prefix, *DIE_WITH_PARENT, *command],
                stdin=subprocess.DEVNULL, stdout=output, stderr=error, env=environment, **options)

    @property
    def pid(self):
        return self.process.pid

    def output(self):
        return read_text(self.output_path)

    def errors(self):
        return read_text(self.error_path)

    def is_running(self):
        return self.process.poll() is None

    def wait_for_output(self, text, seconds=20):
        """Waits for a text on standard output; a command that ends before is an error that says why."""
        def has_come():
            if text in self.output():
                return True
            if not self.is_running():
                raise RuntimeError(f"{self.name} ended with {self.process.returncode}: {self.errors()}")
            return False
        wait_until(has_come, f"{self.name} to print {text!r}", seconds)

    def exit_status(self, seconds=20):
        """The exit status once the process has ended by itself."""
        try:
            wait_until(lambda: not self.is_running(), f"{self.name} to end", seconds)
        except WaitedInVain as vain:
            raise WaitedInVain(f"{vain}, which {standing(self)}") from vain
        return self.process.returncode

    def end(self):
        if self.is_running():
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(5)
            except subprocess.TimeoutExpired:
                self.process.kill()
        self.process.wait()


def standing(process):
    """Where each thread of a process stands, and what the process has said."""
    return f"stands at {'; '.join(places_of(process.pid))}. It said: {process.errors()}"


def places_of(pid):
    """The name of each thread of a process, and the place in the kernel where it waits; 0 where it runs."""
    for thread in glob.glob(f"/proc/{pid}/task/*"):
        with contextlib.suppress(OSError):  # it has ended meanwhile
            yield f"{read_text(f'{thread}/comm').strip()}: {read_text(f'{thread}/wchan')}"


def read_text(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()
