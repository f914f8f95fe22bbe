"""Runs a command where the system's log is a socket of this program's, which reads what comes or is full.

Usage: system_log.py read FILE COMMAND...   what comes goes to the file, each message with a line feed behind it
       system_log.py full COMMAND...        nobody reads, and no more is taken

In a mount namespace of its own, in which /dev has the devices that a program needs, and this log.
"""

import ctypes
import os
import signal
import socket
import subprocess
import sys
import tempfile

# prctl(2), PR_SET_PDEATHSIG.
SET_DEATH_SIGNAL = 1
DEVICES = ("full", "null", "random", "tty", "urandom", "zero")


def private_devices():
    folder = tempfile.mkdtemp()
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "tmpfs", folder], check=True)
    for device in DEVICES:
        path = os.path.join(folder, device)
        with open(path, "wb"):
            pass
        subprocess.run(["mount", "--bind", f"/dev/{device}", path], check=True)
    os.mkdir(os.path.join(folder, "shm"), 0o1777)
    os.chmod(os.path.join(folder, "shm"), 0o1777)
    subprocess.run(["mount", "--rbind", folder, "/dev"], check=True)
    os.symlink("/proc/self/fd", "/dev/fd")


def log():
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    listener.bind("/dev/log")
    os.chmod("/dev/log", 0o666)
    return listener


def fill():
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.connect("/dev/log")
        sender.setblocking(False)
        try:
            while True:
                sender.send(b"x")
        except BlockingIOError:
            pass


def read(listener, path):
    """In a child, which ends with the command."""
    if os.fork():
        return
    ctypes.CDLL(None).prctl(SET_DEATH_SIGNAL, signal.SIGKILL)
    with open(path, "ab", buffering=0) as file:
        while True:
            file.write(listener.recv(1 << 20) + b"\n")


def main(arguments):
    private_devices()
    listener = log()
    if arguments[0] == "full":
        # Open, or the log would be gone with this program.
        listener.set_inheritable(True)
        fill()
        command = arguments[1:]
    else:
        read(listener, arguments[1])
        command = arguments[2:]
    os.execvp(command[0], command)


main(sys.argv[1:])
