"""Every situation of the files that is tried: what lies where the crash log and the application's logs should be.

A crash log is the text of a regular file. Where there is none, the program ends as if it had not been started; where
one of the application's logs is none, it is left out alone. Nothing is waited for, but two seconds for a file on which
another process holds a lease.
"""

import os
import socket
import subprocess

from attempt import LOG_NAME, NOTHING_TO_SEND, NO_REPORT
from files_world import File, Made
from leases import KEEPS, LETS_GO, lease
from network_world import CRASH_LOG
from situation import ACCEPTED, Group
from trial.expected import APPLICATION_LOGS, SIZE_CEILING, expected_report
from trial.home import write

GIBIBYTE = 1 << 30
OTHER = b"10:15:00 another text, longer or shorter than what it takes the place of\n" * 3
MORE = b"and so it grew\n" * 1000
# What a file system can hold at most, and what a text of the toolkit can (its bytes are counted with a sign).
LARGEST_FILE = (1 << 63) - 1


# Things that lie at a path


def directory(path):
    os.mkdir(path)


def fifo(path):
    os.mkfifo(path)


def socket_at(path):
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(path)


def link_to(target):
    return lambda path: os.symlink(target, path)


def looping_link(path):
    os.symlink(path + "2", path)
    os.symlink(path, path + "2")


def content(text):
    return lambda path: write(path, text)


def unreadable(path):
    write(path, OTHER)
    os.chmod(path, 0)


NO_TEXT = {
    "directory": directory,
    "FIFO": fifo,
    "socket": socket_at,
    "link to a device that never ends": link_to("/dev/zero"),
    "link to an empty device": link_to("/dev/null"),
    "link to a device that is always full": link_to("/dev/full"),
    "dangling link": link_to("/nonexistent/target"),
    "link to itself": looping_link,
    "link to a link to itself": lambda path: (looping_link(path + "3"), os.symlink(path + "3", path)),
    "file that may not be read": unreadable,
    "byte 0xFF at the start": content(b"\xff" + CRASH_LOG),
    "character cut at the end": content(CRASH_LOG + "\U0001f30a".encode()[:3]),
    "overlong character": content(CRASH_LOG + b"\xc0\xaf" + CRASH_LOG),
    "half a surrogate pair": content(CRASH_LOG + b"\xed\xa0\x80"),
    "character beyond the last": content(CRASH_LOG + b"\xf4\x90\x80\x80"),
    "UTF-16": content(CRASH_LOG.decode().encode("utf-16")),
}
# As text that is kept as it is.
TEXTS = {
    "NUL characters": b"\0" + CRASH_LOG + b"\0\0end\0",
    "byte-order mark": b"\xef\xbb\xbf" + CRASH_LOG,
    "two byte-order marks, one of them inside": b"\xef\xbb\xbf" + CRASH_LOG + b"\xef\xbb\xbf" + CRASH_LOG,
    "line ends of three systems": b"one\r\ntwo\rthree\nfour\n\r\n",
    "control characters": bytes(range(1, 32)) + b"\x7f" + "\u0085\u2028\u2029".encode() + CRASH_LOG,
    "characters that are none": "\ufffe\uffff\U0010ffff\ufdd0".encode() + CRASH_LOG,
    "a single line feed": b"\n",
    "multipart boundaries": b"\r\n--\r\n------\r\nContent-Disposition: form-data; name=\"email\"\r\n\r\n" + CRASH_LOG,
}


# The crash log


def crash_log(lay):
    """What is laid where the crash log should be."""
    def make(place):
        path = os.path.join(place.home.path, LOG_NAME)
        lay(path)
        return Made(path)
    return make


def text(told):
    return lambda place: Made(place.crash_log(content=told), told)


def named(name):
    """A readable crash log of this name; a name of bytes need not be UTF-8."""
    def make(place):
        path = os.path.join(os.fsencode(place.home.path), name if isinstance(name, bytes) else name.encode())
        write(path, CRASH_LOG)
        return Made(path, CRASH_LOG)
    return make


def beside(name):
    """The same, named without its folder, in which the program is started."""
    def make(place):
        write(os.path.join(place.home.path, name), CRASH_LOG)
        return Made(name, CRASH_LOG, folder=place.home.path)
    return make


def at(path):
    return lambda place: Made(path)


def in_locked_folder(place):
    folder = os.path.join(place.home.path, "locked")
    os.mkdir(folder)
    path = os.path.join(folder, LOG_NAME)
    write(path, CRASH_LOG)
    os.chmod(folder, 0)
    # Or nobody could clear it away.
    place.ended.callback(os.chmod, folder, 0o700)
    return Made(path)


def linked(place):
    place.crash_log("Lantern_1.crash")
    path = os.path.join(place.home.path, LOG_NAME)
    os.symlink("Lantern_1.crash", path + ".2")
    os.symlink(LOG_NAME + ".2", path)
    return Made(path, CRASH_LOG)


def leased(asked):
    def make(place):
        path = place.crash_log()
        return Made(path, CRASH_LOG, holder=lease(place, path, asked))
    return make


def of_the_kernel(place):
    """Such a file reports no size."""
    with open("/proc/filesystems", "rb") as file:
        return Made("/proc/filesystems", file.read())


def sparse(size, **options):
    """A file of this many bytes that takes no space, on a file system that can hold it."""
    def make(place):
        folder = os.path.join(place.folder, "disk")
        os.mkdir(folder)
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", folder], check=True)
        place.ended.callback(subprocess.run, ["umount", folder], check=True)
        path = os.path.join(folder, LOG_NAME)
        with open(path, "wb") as file:
            file.truncate(size)
        return Made(path, **options)
    return make


# What happens to it while it is read. The calls on it are, in this order: does it exist (newfstatat), openat, how large
# is it (newfstatat), read, and read again until there is nothing.

CALLS = "trace=newfstatat,openat,read"
HELD = "delay_enter=400ms"


def injected(fault, report=None):
    def make(place):
        return Made(place.crash_log(), report, inject=(CALLS, f"inject={fault}"))
    return make


def changed(change, held, report=None, before=CRASH_LOG, **between):
    """The change is made behind a call, while the next one is held."""
    def make(place):
        path = place.crash_log(content=before)
        return Made(path, report, inject=(CALLS, f"inject={held}"), change=lambda: change(path),
                    **between)
    return make


def append(path):
    with open(path, "ab") as file:
        file.write(MORE)


def cut_to(length):
    return lambda path: os.truncate(path, length)


def replace_by(lay):
    def change(path):
        os.remove(path)
        lay(path)
    return change


BEHIND_OPEN = {"behind": "openat", "held": f"newfstatat:{HELD}:when=2"}
BEHIND_SIZE = {"behind": "newfstatat", "times": 2, "held": f"read:{HELD}:when=1"}
BEHIND_TEST = {"behind": "newfstatat", "held": f"openat:{HELD}:when=1"}


# The application's logs


def with_logs(lay, report=None, crash=CRASH_LOG):
    """The crash log, and what is laid by suffix where the application's logs should be; contents give the report."""
    def make(place):
        kept = {}
        for suffix, what in lay.items():
            path = os.path.join(place.home.logs, f"Harbour{suffix}")
            if isinstance(what, bytes):
                kept[suffix] = what
                write(path, what)
            else:
                what(path)
        return Made(place.crash_log(content=crash), report or expected_report(crash, kept))
    return make


def first_log(left, inject, change=None, **between):
    """The first of two application logs, of which this is left, is traced, and changed behind a call."""
    def make(place):
        path, other = (os.path.join(place.home.logs, f"Harbour{suffix}") for suffix in (".1.log", ".2.log"))
        write(path, FIRST_LOG)
        write(other, b"the second")
        kept = {".2.log": b"the second"} if left is None else {".1.log": left, ".2.log": b"the second"}
        return Made(place.crash_log(), expected_report(CRASH_LOG, kept), inject=(CALLS, f"inject={inject}"),
                    traced=path, change=change and (lambda: change(path)), **between)
    return make


def first_log_changed(change, held, left=None, **between):
    return first_log(left, held, change, **between)


FIRST_LOG = b"10:14:59 the first\n" * 3
SUFFIXES = tuple(suffix for suffix, _, _ in APPLICATION_LOGS)


def one_is(lay, number):
    """One log is this, the others are texts."""
    return with_logs({suffix: lay if suffix == SUFFIXES[number % 4] else b"log " + suffix.encode()
                      for suffix in SUFFIXES})


def all_are(lay):
    return with_logs({suffix: lay for suffix in SUFFIXES}, report=CRASH_LOG)


def leased_log(asked, left):
    """The first of two application logs, of which this is left, is under a lease."""
    def make(place):
        logs = {".1.log": FIRST_LOG, ".2.log": b"the second"}
        paths = [place.home.application_log("Harbour", suffix, text) for suffix, text in logs.items()]
        return Made(place.crash_log(), expected_report(CRASH_LOG, {suffix: logs[suffix] for suffix in left}),
                    holder=lease(place, paths[0], asked))
    return make


def up_to_bound(number, beyond):
    """The crash log and one log are together just below that log's bound, or as many characters beyond that."""
    suffix, header, bound = APPLICATION_LOGS[number]
    log = b"x" * (bound - 1 - len(CRASH_LOG) + beyond)
    return with_logs({suffix: log}, report=CRASH_LOG if beyond else CRASH_LOG + header.encode() + log)


def four_up_to_bound(beyond):
    """Four logs: the last one is just below its bound, or as many characters beyond that."""
    logs = {".1.log": b"a" * 300_000, ".task.1.log": b"b" * 300_000, ".2.log": b"c" * 300_000}
    running = len(CRASH_LOG) + 900_000
    suffix, header, bound = APPLICATION_LOGS[3]
    logs[suffix] = b"d" * (bound - 1 - running + beyond)
    report = CRASH_LOG + b"\nLog 1:\n" + logs[".1.log"] + b"\nTask Log 1:\n" + logs[".task.1.log"] \
        + b"\nLog 2:\n" + logs[".2.log"] + (b"" if beyond else header.encode() + logs[suffix])
    return with_logs(logs, report=report)


def crash_log_of(length, logs):
    """A crash log of this length, and four empty logs, of which so many fit."""
    crash = (CRASH_LOG * (length // len(CRASH_LOG) + 1))[:length]
    report = crash + b"".join(header.encode() for _, header, _ in APPLICATION_LOGS if header in logs)
    return with_logs({suffix: b"" for suffix in SUFFIXES}, report=report, crash=crash)


PLAIN, TASK = ("\nLog 1:\n", "\nLog 2:\n"), ("\nTask Log 1:\n", "\nTask Log 2:\n")


def without_folder(place):
    os.rmdir(place.home.logs)
    return Made(place.crash_log(), CRASH_LOG)


def folder_is(lay):
    def make(place):
        os.rmdir(place.home.logs)
        lay(place.home.logs)
        if lay is locked:
            place.ended.callback(os.chmod, place.home.logs, 0o700)
        return Made(place.crash_log(), CRASH_LOG)
    return make


def locked(path):
    os.mkdir(path)
    write(os.path.join(path, "Harbour.1.log"), OTHER)
    os.chmod(path, 0)


def linked_log(path):
    write(path + ".target", OTHER)
    os.symlink(path + ".target", path)


LOG_FILES = Group("files: the crash log", "files_world", (
    File("there is none", NO_REPORT, at("/nonexistent/Harbour_1.crash")),
    File("an empty path", NO_REPORT, at("")),
    *(File(f"instead of it: {what}", NO_REPORT, crash_log(lay)) for what, lay in NO_TEXT.items()),
    File("a device, named itself", NO_REPORT, each=tuple((path, at(path)) for path in ("/dev/zero", "/dev/tty"))),
    File("a file in a folder that may not be searched", NO_REPORT, in_locked_folder),
    File("a file below a file", NO_REPORT, at("/etc/hostname/Harbour_1.crash")),
    File("a name of 256 bytes, one more than there can be", NO_REPORT, at("/tmp/Harbour_" + "x" * 248)),
    File("a path of 5000 bytes", NO_REPORT, at("/tmp" + "/." * 2490 + "/Harbour_1.crash")),
    File("a name that is not UTF-8", NO_REPORT, named(b"Harbour_\xff\xfe.crash")),
    File("an empty file", NOTHING_TO_SEND, text(b"")),
    *(File(what, ACCEPTED, text(told)) for what, told in TEXTS.items()),
    File("a link to a link to a file", ACCEPTED, linked),
    File("a name with unusual characters", ACCEPTED, each=tuple((repr(name), named(name)) for name in (
        "Harbour_\n.crash", "Harbour_\"'.crash", "Harbour_\\.crash", "Harbour_%1%s$(x)`.crash",
        "Harbour_\x01\x1b[1m.crash", "Harbour_<b>&amp;.crash", "Harbour_ .crash ", "Harbour_\u202e\U0001f30a.crash"))),
    File("a name of 255 bytes", ACCEPTED, named("Harbour_" + "x" * 247)),
    File("a name that begins with a hyphen", ACCEPTED, each=tuple((name, beside(name)) for name in (
        "-x_1.crash", "--", "-log", "-remotename"))),
    File("a file of /proc, which reports no size", ACCEPTED, of_the_kernel),
    File("another process holds a lease on it, and lets go when it is asked", ACCEPTED, leased(LETS_GO)),
    File("another process holds a lease on it, and does not let go", NO_REPORT, leased(KEEPS)),
    File("5 GiB, where 2 GiB of memory may be had", NO_REPORT, sparse(5 * GIBIBYTE, address_space=2 * GIBIBYTE)),
    File("the largest file that there can be", NO_REPORT, sparse(LARGEST_FILE)),
    File("half of that, more than a text can hold", NO_REPORT, sparse(1 << 62)),
))

READING = Group("files: while the crash log is read", "files_world", (
    File("it grows behind its opening", ACCEPTED, changed(append, **BEHIND_OPEN, report=CRASH_LOG + MORE)),
    File("it grows when its size is known", ACCEPTED, changed(append, **BEHIND_SIZE, report=CRASH_LOG + MORE)),
    File("it is cut when its size is known", ACCEPTED, changed(cut_to(10), **BEHIND_SIZE, report=CRASH_LOG[:10])),
    File("it is emptied when its size is known", NOTHING_TO_SEND, changed(cut_to(0), **BEHIND_SIZE)),
    File("it disappears behind its opening", ACCEPTED, changed(os.remove, **BEHIND_OPEN, report=CRASH_LOG)),
    File("it disappears between the test whether it exists and its opening", NO_REPORT,
         changed(os.remove, **BEHIND_TEST)),
    File("another file takes its place there", ACCEPTED,
         changed(replace_by(content(OTHER)), **BEHIND_TEST, report=OTHER)),
    File("something else takes its place there", NO_REPORT, each=tuple(
        (what, changed(replace_by(lay), **BEHIND_TEST)) for what, lay in NO_TEXT.items()
        if what in ("directory", "FIFO", "socket", "dangling link", "link to a device that never ends"))),
    File("the test whether it exists fails", NO_REPORT, each=tuple(
        (error, injected(f"newfstatat:error={error}:when=1")) for error in ("EACCES", "EIO", "ELOOP", "ENOMEM"))),
    File("its opening fails", NO_REPORT, each=tuple(
        (error, injected(f"openat:error={error}:when=1")) for error in
        ("EACCES", "EIO", "EMFILE", "ENFILE", "ENOMEM", "EINTR", "ENODEV", "ENXIO"))),
    File("its size cannot be asked for", NO_REPORT, each=tuple(
        (error, injected(f"newfstatat:error={error}:when=2")) for error in ("EIO", "ENOMEM", "EOVERFLOW"))),
    File("the first read fails", NO_REPORT, each=tuple(
        (error, injected(f"read:error={error}:when=1")) for error in ("EIO", "EISDIR", "EAGAIN", "ESTALE"))),
    File("the last read fails, which would say that there is no more", NO_REPORT, injected("read:error=EIO:when=2")),
    File("reads are interrupted by signals", ACCEPTED, each=tuple(
        (when, injected(f"read:error=EINTR:when={when}", CRASH_LOG)) for when in ("1", "2", "1..20"))),
))

OWN_LOGS = Group("files: the application's logs", "files_world", (
    File("one of them is no text", ACCEPTED, each=tuple(
        (what, one_is(lay, number)) for number, (what, lay) in enumerate(NO_TEXT.items()))),
    File("none of them is a text", ACCEPTED, each=tuple(
        (what, all_are(NO_TEXT[what])) for what in ("FIFO", "link to a device that never ends", "socket"))),
    File("they are links to files", ACCEPTED, with_logs(
        {suffix: linked_log for suffix in SUFFIXES}, expected_report(CRASH_LOG, dict.fromkeys(SUFFIXES, OTHER)))),
    File("another process holds a lease on one of them", ACCEPTED, each=(
        ("and lets go when it is asked", leased_log(LETS_GO, (".1.log", ".2.log"))),
        ("and does not let go", leased_log(KEEPS, (".2.log",))))),
    File("all of them are empty", ACCEPTED, with_logs(dict.fromkeys(SUFFIXES, b""))),
    File("NUL characters and byte-order marks", ACCEPTED, with_logs(
        {".1.log": TEXTS["NUL characters"], ".2.log": TEXTS["byte-order mark"]})),
    File("there is no folder", ACCEPTED, without_folder),
    File("their folder is something else", ACCEPTED, each=tuple(
        (what, folder_is(lay)) for what, lay in (
            ("a file", content(OTHER)), ("a FIFO", fifo), ("a link to itself", looping_link),
            ("a folder that may not be searched", locked)))),
    File("one and the crash log are just below its bound", ACCEPTED, each=tuple(
        (SUFFIXES[number], up_to_bound(number, 0)) for number in range(4))),
    File("one and the crash log are at its bound", ACCEPTED, each=tuple(
        (SUFFIXES[number], up_to_bound(number, 1)) for number in range(4))),
    File("four are just below the last one's bound, and at it", ACCEPTED, each=tuple(
        (f"{beyond} beyond", four_up_to_bound(beyond)) for beyond in (0, 1))),
    File("a crash log just below, at and beyond the bounds", ACCEPTED, each=(
        ("0xFFFF1", crash_log_of(0xFFFF1, PLAIN + TASK)), ("0xFFFF2", crash_log_of(0xFFFF2, PLAIN)),
        ("0xFFFF6", crash_log_of(0xFFFF6, PLAIN)), ("0xFFFF7", crash_log_of(0xFFFF7, ())),
        ("the ceiling less one", crash_log_of(SIZE_CEILING - 1, ())), ("the ceiling", crash_log_of(SIZE_CEILING, ())),
        ("one more", crash_log_of(SIZE_CEILING + 1, ())))),
    File("a log larger than any that fits is not read", ACCEPTED, with_logs(
        {".1.log": lambda path: (content(b"")(path), os.truncate(path, GIBIBYTE)), ".2.log": b"two"},
        CRASH_LOG + b"\nLog 2:\ntwo")),
))

READING_OWN = Group("files: while one of the application's logs is read", "files_world", (
    File("a log grows behind its opening", ACCEPTED, first_log_changed(append, **BEHIND_OPEN, left=FIRST_LOG + MORE)),
    File("a log grows when its size is known", ACCEPTED,
         first_log_changed(append, **BEHIND_SIZE, left=FIRST_LOG + MORE)),
    File("a log is cut when its size is known", ACCEPTED,
         first_log_changed(cut_to(10), **BEHIND_SIZE, left=FIRST_LOG[:10])),
    File("a log is emptied when its size is known", ACCEPTED,
         first_log_changed(cut_to(0), **BEHIND_SIZE, left=b"")),
    File("a log disappears behind its opening", ACCEPTED, first_log_changed(os.remove, **BEHIND_OPEN, left=FIRST_LOG)),
    File("a log disappears between the test whether it exists and its opening", ACCEPTED,
         first_log_changed(os.remove, **BEHIND_TEST)),
    File("another file takes a log's place there", ACCEPTED,
         first_log_changed(replace_by(content(OTHER)), **BEHIND_TEST, left=OTHER)),
    File("something else takes a log's place there", ACCEPTED, each=tuple(
        (what, first_log_changed(replace_by(lay), **BEHIND_TEST)) for what, lay in NO_TEXT.items()
        if what in ("directory", "FIFO", "socket", "dangling link", "link to a device that never ends"))),
    File("a call on a log fails", ACCEPTED, each=tuple(
        (fault, first_log(None, fault)) for fault in (
            "newfstatat:error=EIO:when=1", "openat:error=EMFILE:when=1", "openat:error=EINTR:when=1",
            "newfstatat:error=EIO:when=2", "read:error=EIO:when=1", "read:error=ESTALE:when=1",
            "read:error=EIO:when=2"))),
    File("reads of a log are interrupted by signals", ACCEPTED, each=tuple(
        (when, first_log(FIRST_LOG, f"read:error=EINTR:when={when}")) for when in ("1", "2", "1..20"))),
))

GROUPS = (LOG_FILES, READING, OWN_LOGS, READING_OWN)
