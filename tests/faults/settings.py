"""Every situation of the settings that is tried: what stands in their place, who else writes them, when a write ends.

The settings are two values: how many attempts there were, and when the last was. A report is never kept from being sent
because they cannot be stored; the file is always the old one or the new one, and nothing but settings is ever replaced.
"""

import os
import socket
import struct
import subprocess
import time

from attempt import COUNT, DATE
from leases import KEEPS, LETS_GO
from network_world import ADDRESS, clock_variables
from settings_world import (
    KEPT, NEW, NEW_COUNT, OLD, THROTTLED, Setting, at_once, failing, held_lock, in_turn, kills, leased, overlapping,
    with_old)
from situation import Group, REFUSED
from tracing import Trace
from trial.home import write


def folder_of(place):
    os.makedirs(place.home.settings_folder, exist_ok=True)
    return place.home.settings_folder


def holding(text):
    """A file with this text."""
    def lay(place):
        folder_of(place)
        write(place.home.settings_path, text if isinstance(text, bytes) else text.encode())
    return lay


def with_rights(mode, of, text=OLD):
    """The file, or its folder, with these rights."""
    def lay(place):
        holding(text)(place)
        path = place.home.settings_path if of == "file" else place.home.settings_folder
        os.chmod(path, mode)
        place.ended.callback(os.chmod, path, 0o700)
    return lay


def in_place_of(what, lay_at, text=None):
    """Something in place of the file, the new one, one of their folders, or the file of all the organisation's
    programs, or beside it with the name that a lock would have."""
    def lay(place):
        paths = {"file": place.home.settings_path, "new file": place.home.settings_path + NEW,
                 "lock": place.home.settings_path + ".lock",
                 "folder": place.home.settings_folder, "configuration": os.path.join(place.home.path, ".config"),
                 "organisation": organisations(place)}
        if what in ("file", "new file", "lock"):
            folder_of(place)
        if what == "configuration":
            os.rmdir(paths[what])
        if text:
            holding(text)(place)
        lay_at(paths[what])
    return lay


def organisations(place):
    """Where the toolkit keeps what all programs of the organisation have; it is none of the program's."""
    return place.home.settings_folder + ".conf"


def socket_at(path):
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(path)


def link_to(target):
    return lambda path: os.symlink(target, path)


def file_of(content):
    return lambda path: write(path, content)


NO_FILE = (("a directory", os.mkdir), ("a FIFO", os.mkfifo), ("a socket", socket_at),
           ("a link to a device that never ends", link_to("/dev/zero")), ("a link to no device", link_to("/dev/null")),
           ("a link to a full device", link_to("/dev/full")))


def instead_of(what, things, text=None):
    return tuple((label, in_place_of(what, lay_at, text)) for label, lay_at in things)


def linked_file(place):
    folder_of(place)
    write(os.path.join(place.home.path, "elsewhere.conf"), OLD.encode())
    os.symlink(os.path.join(place.home.path, "elsewhere.conf"), place.home.settings_path)


def linked_folder(place):
    os.mkdir(os.path.join(place.home.path, "elsewhere"))
    os.symlink(os.path.join(place.home.path, "elsewhere"), place.home.settings_folder)


def on_disk(options, fill=True, text=OLD):
    """The settings on a file system of their own, on which nothing more fits."""
    def lay(place):
        folder = folder_of(place)
        subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", folder], check=True)
        place.ended.callback(subprocess.run, ["umount", folder], check=True)
        write(place.home.settings_path, text.encode())
        if fill:
            subprocess.run(["dd", "if=/dev/zero", f"of={folder}/full", "bs=4096"], check=False, capture_output=True)
    return lay


def read_only_disk(place):
    on_disk("size=64k", fill=False)(place)
    subprocess.run(["mount", "-o", "remount,ro", place.home.settings_folder], check=True)


def home_is(path):
    def lay(place):
        return ("-u", "XDG_CONFIG_HOME", "-u", "XDG_CACHE_HOME", "-u", "XDG_DATA_HOME", f"HOME={path}"), ()
    return lay


def home_in_a_closed_folder(place):
    folder = os.path.join(place.folder, "closed")
    os.mkdir(folder, 0o555)
    return home_is(os.path.join(folder, "home"))(place)


def home_below_a_file(place):
    write(os.path.join(place.folder, "file"), b"")
    return ("-u", "XDG_CONFIG_HOME", f"HOME={place.folder}/file/home"), ()


def unreadable_link(place):
    linked_file(place)
    return (), Trace(place.folder, "trace=readlinkat", "inject=readlinkat:error=EIO", paths=[place.home.settings_path],
                     follow=False)


def no_longer_than(bytes_allowed, text=OLD):
    def lay(place):
        holding(text)(place)
        return (), ("prlimit", f"--fsize={bytes_allowed}")
    return lay


def not_opened(when):
    """A disk that fails for good; by its name in its folder, the file is opened each time for a look and to be read."""
    def lay(place):
        holding(f"{OLD}{KEPT}\n")(place)
        return (), Trace(place.folder, "trace=openat", f"inject=openat:error=EIO:when={when}",
                         paths=[os.path.basename(place.home.settings_path)], follow=False)
    return lay


def no_room_for_temporary_files(place):
    holding(OLD)(place)
    return (f"TMPDIR={place.folder}/missing",), ()


def first_reading_fails(place):
    """A disk that fails for a moment; what is counted then is counted from nothing."""
    holding(f"{OLD}{KEPT}\n")(place)
    return (), Trace(place.folder, "trace=read", "inject=read:error=EIO:when=1", paths=[place.home.settings_path],
                     follow=False)


def stored_at(clock):
    """Twelve attempts, the last of them now; the program's clock is another."""
    def lay(place):
        holding(f"[General]\n{COUNT}=12\n{DATE}={date_of_now()}\n")(place)
        return tuple(f"{name}={value}" for name, value in clock_variables(clock).items()), ()
    return lay


def date_of_now():
    """As the toolkit writes a date: kind, not null, Julian day, milliseconds of the day, coordinated time."""
    days, seconds = divmod(time.time(), 86400)
    stream = struct.pack(">IbqIb", 16, 0, int(days) + 2440588, int(seconds * 1000), 1)
    return "@DateTime(" + "".join(f"\\x{byte:x}" for byte in stream) + ")"


def long(text):
    """Ten megabytes of other settings."""
    return text + "\n[Other]\n" + "".join(f"key{number}={'x' * 1000}\n" for number in range(10_000))


def deep(text):
    """A value that the toolkit reads by calling itself."""
    nested = r"\0\0\0\x09\0\0\0\x01" * 100_000
    return f'{text}x="@Variant({nested})"\n'


# Of what the program opens for a write, what it cannot do without.
NAMED_FILES_OPENED = ("folder", "settings", "toolkit's file", "toolkit's file's lock", "new file")
# And those that the toolkit makes without a name, or with one where there is no such thing.
FILES_OPENED = (*NAMED_FILES_OPENED, "toolkit's folder 2", "toolkit's folder 3")
NOT_REMOVED = "QTemporaryDir: Unable to remove "

PLACES = Group("settings: what stands there", "settings_world", (
    Setting("nothing: file and folder are made"),
    Setting("a file", lay=holding(OLD), count=NEW_COUNT),
    Setting("a file with other values and sections, which are kept", count=NEW_COUNT, kept=KEPT,
            lay=holding(f"{OLD}{KEPT}\n\n[Other]\nkey=value\n")),
    Setting("ten megabytes of other settings, which are not read", lay=holding(long(OLD)), untouched=True),
    Setting("a list in a list, a hundred thousand times, which is not read", lay=holding(deep(OLD)), untouched=True),
    Setting("a file without a byte", lay=holding("")),
    Setting("a file that is none of settings", each=(
        ("random bytes", holding(bytes(range(256)) * 16)),
        ("a picture's head", holding(b"\x89PNG\r\n\x1a\n\0\0\0\rIHDR")),
        ("NUL characters", holding(bytes(5000))), ("a cut section", holding("\x00\x01[General\ncrashSubmissionCount")),
        ("one long line", holding("x" * 60_000)))),
    Setting("a count that is no number", each=tuple((text, holding(f"[General]\n{COUNT}={text}\n")) for text in (
        "many", "", "1.5", "0x10", "99999999999999999999", "@Invalid()"))),
    Setting("the largest count, which stays", lay=holding(f"[General]\n{COUNT}=9223372036854775807\n"),
            count="9223372036854775807"),
    Setting("a negative count", lay=holding(f"[General]\n{COUNT}=-5\n"), count="-4"),
    Setting("a link to a file, which stays a link", lay=linked_file, count=NEW_COUNT),
    Setting("a link to a file, which cannot be read", lay=unreadable_link, untouched=True),
    Setting("a link in the place of the folder", lay=linked_folder),
    Setting("a file under a lease, which is given up when it is asked for", run=leased(LETS_GO, is_stored=True)),
    # The system would wait for 45 seconds, at each of three readings.
    Setting("a file under a lease that is not given up", run=leased(KEEPS, is_stored=False), within=4.0),
    Setting("something else in the place of the file", each=instead_of("file", NO_FILE), untouched=True),
    Setting("a directory in the place of the new file", lay=in_place_of("new file", os.mkdir, OLD), untouched=True),
    Setting("something else in the place of the new file, which is cleared away", count=NEW_COUNT,
            each=instead_of("new file", (("half a file", file_of(b"[General]\ncrash")), *NO_FILE[1:]), OLD)),
    Setting("something else that has the name of a lock, which stays", count=NEW_COUNT,
            each=instead_of("lock", (("a file", file_of(b"")), *NO_FILE), OLD)),
    Setting("something else in the place of the folder", untouched=True,
            each=instead_of("folder", (("a file", file_of(b"text")), *NO_FILE[1:]))),
    Setting("something else in the place of the configuration folder", untouched=True,
            each=instead_of("configuration", (("a file", file_of(b"text")), *NO_FILE[1:]))),
    Setting("something else in the place of the whole organisation's file", count=NEW_COUNT,
            each=instead_of("organisation", NO_FILE, OLD)),
    Setting("a link that leads to itself in the place of the folder", untouched=True,
            lay=in_place_of("folder", link_to("Korvale"))),
    Setting("no home", count=None, each=(
        ("in a closed folder", home_in_a_closed_folder), ("empty", home_is("")), ("below a file", home_below_a_file))),
))

RIGHTS = Group("settings: what can be written", "settings_world", (
    Setting("a folder that may not be written", lay=with_rights(0o500, "folder"), untouched=True),
    Setting("a folder that may not be searched", lay=with_rights(0o000, "folder"), untouched=True),
    Setting("a file that may not be written", lay=with_rights(0o400, "file"), untouched=True),
    Setting("a file that may neither be read nor written", lay=with_rights(0o000, "file"), untouched=True),
    Setting("a file that may be written, but not read", lay=with_rights(0o200, "file"), untouched=True),
    Setting("the first reading of the file fails with EIO", lay=first_reading_fails, count=NEW_COUNT, kept=KEPT),
    Setting("the file can neither be opened nor looked at", lay=not_opened("1+"), untouched=True),
    Setting("the file can be looked at, but not opened", lay=not_opened("2+2"), untouched=True),
    Setting("no room for temporary files", lay=no_room_for_temporary_files, untouched=True),
    Setting("a disk that is read-only", lay=read_only_disk, untouched=True),
    Setting("a full disk", lay=on_disk("size=64k"), untouched=True),
    Setting("a disk on which there can be no more files", lay=on_disk("nr_inodes=2", fill=False), untouched=True),
    Setting("no file may be longer than nothing", lay=no_longer_than(0), untouched=True),
    Setting("no file may be longer than forty bytes", lay=no_longer_than(40), untouched=True),
    Setting("no file may be longer than half of the settings", untouched=True,
            lay=no_longer_than(500, f"{OLD}other={'x' * 1000}\n")),
    Setting("the lock is held all the time", lay=held_lock, count=None),
    # At last the calls that keep the settings from being stored: all, those on a file, or one.
    *(Setting(f"a call of {name} fails with {error}", run=failing(name, error, stay), says=says)
      for name, error, says, *stay in (
        ("openat", "EMFILE", NOT_REMOVED, *FILES_OPENED), ("openat", "EACCES", NOT_REMOVED, *FILES_OPENED),
        ("openat", "EOPNOTSUPP", NOT_REMOVED, *NAMED_FILES_OPENED),
        ("mkdir", "EIO", "", "toolkit's folder"), ("readlink", "EIO", ""),
        ("statx", "EACCES", "", "folder"),
        ("access", "EIO", "", "toolkit's file 1"), ("faccessat2", "EIO", "", "all"),
        ("read", "EIO", "", "settings", "toolkit's file 1", "toolkit's file 3", "toolkit's file 4"),
        ("write", "ENOSPC", "", "all"), ("write", "EIO", "", "all"),
        ("fsync", "EIO", "", "all"), ("fsync", "ENOSPC", "", "all"), ("fdatasync", "EIO", ""),
        ("flock", "ENOLCK", "setNativeLocks failed: ", "folder"), ("flock", "EAGAIN", "setNativeLocks failed: "),
        ("linkat", "EIO", "", "all"), ("linkat", "ENOSPC", "", "all"),
        ("getdents64", "EIO", NOT_REMOVED), ("rmdir", "EIO", NOT_REMOVED),
        ("renameat", "EIO", "", "all"), ("renameat", "ENOSPC", "", "all"),
        ("unlink", "EIO", (NOT_REMOVED, "Could not remove our own lock file ")), ("unlinkat", "EIO", ""),
        ("fgetxattr", "EOPNOTSUPP", ""), ("lseek", "EINVAL", "QFile::at: Cannot set "), ("close", "EIO", ""))),
    # And those without which the new file has the rights of a new one.
    *(Setting(f"a call of {name} fails with {error}", run=failing(name, error, for_the_user=on))
      for name, error, *on in (
        ("fchown", "EPERM", "all"), ("fchmod", "EPERM", "new file"), ("fgetxattr", "EIO", "all"))),
    Setting("a call of newfstatat fails with EIO", says=NOT_REMOVED, run=failing(
        "newfstatat", "EIO", stay=(*(f"settings {look}" for look in (1, 2, 3, 5)), "toolkit's file"),
        for_the_user=("settings 4",))),
))

TIME = Group("settings: others and the clock", "settings_world", (
    Setting("SIGKILL at each system call of the write, with a file", "ended by SIGKILL",
            run=kills(with_old), sample=12),
    Setting("SIGKILL at each system call of the write, without a file", "ended by SIGKILL",
            run=kills(lambda place: None), sample=6),
    Setting("two programs submit in turn, a hundred times", REFUSED, run=in_turn),
    Setting("two programs submit at the same moment", REFUSED, run=at_once(10)),
    Setting("another program is in its write, and ends it", REFUSED, run=overlapping(goes_on=True)),
    Setting("another program is in its write, and stays there", REFUSED, run=overlapping(goes_on=False)),
    Setting("twelve attempts, the last one just now", THROTTLED, lay=stored_at("+0"), untouched=True),
    Setting("the same with an address", lay=stored_at("+0"), address=ADDRESS, count="13"),
    Setting("the same, the clock four minutes forward", lay=stored_at("+240"), count="13"),
    Setting("the same, the clock a day forward", lay=stored_at("+1d"), count="13"),
    Setting("the same, the clock two minutes forward", THROTTLED, lay=stored_at("+120"), untouched=True),
    Setting("the same, the clock an hour back", THROTTLED, lay=stored_at("-3600"), untouched=True),
    Setting("the same, the clock years back", THROTTLED, lay=stored_at("-3000d"), untouched=True),
))

GROUPS = (PLACES, RIGHTS, TIME)
