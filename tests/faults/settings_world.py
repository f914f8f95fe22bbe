"""Makes a situation of the settings happen: what stands where they are kept, and who else writes them."""

import contextlib
import dataclasses
import fcntl
import os
import re
import signal
import stat
import subprocess

import attempt
from attempt import COUNT, DATE, REFUSE, is_date
from leases import lease, not_asked
from network_world import ADDRESS
from situation import ACCEPTED, REFUSED, Delay, Seen
from tracing import Trace, drawn
from trial.home import read
from trial.waiting import WaitedInVain, wait_until

THROTTLED = "asked for an address"
OLD_COUNT = 41
OLD = f"[General]\n{COUNT}={OLD_COUNT}\n"
KEPT = "colour=\"green, and blue\""
NEW_COUNT = str(OLD_COUNT + 1)
# Behind the name of the settings, the name of the file that comes in their place.
NEW = ".korvale-new"
# The rights of what the program makes.
FOR_THE_USER = {"file": "-rw-------", "folder": "drwx------"}
# The calls that give a file another name.
TWO_PATHS = ("renameat", "linkat")
# Those whose paths begin at a folder that is open.
FROM_A_FOLDER = ("openat", "newfstatat", "statx", "readlinkat", "faccessat2", "unlinkat", "renameat", "linkat")
# Until a call is hit: beside much other work the event loop reads and writes now more often, now less.
TRIES = 40


@dataclasses.dataclass(frozen=True)
class Setting:
    """One row: what is laid down, the end of one submission, and what is stored afterwards."""

    name: str
    end: str = ACCEPTED
    lay: object = None             # called with the place; may give variables of the program, and a prefix or a trace
    each: tuple = ()               # instead: (label, lay) of a series
    count: object = "1"            # stored at the end; None where nothing is stored
    untouched: bool = False        # nothing below the configuration folder, not even the file, is another than before
    kept: str = ""                 # a line that the file has before and after
    address: str = None            # what is typed; anonymous otherwise
    run: object = None             # instead of all that: called with the world, gives what was seen
    says: object = ""              # what the toolkit may say to the log, or several such words
    sample: int = None             # of its runs, how many are tried unless all are asked for
    within: float = 4.0            # from the press to the end

    def variations(self):
        return self.each or (("", self.lay),)

    def cost(self):
        return 20.0 if self.run else 1.0 * len(self.variations())


class World(attempt.World):
    def run(self, row):
        return row.run(self, row) if row.run else super().run(row)

    def run_once(self, row, lay):
        with self.place() as place:
            environment, prefix = (lay and lay(place)) or ((), ())
            trace, prefix = (prefix, prefix.prefix()) if isinstance(prefix, Trace) else (None, prefix)
            before, file = tree(place), file_of(place)
            place.serve()
            tried = place.report(place.crash_log(), environment=environment, prefix=prefix)
            if not tried.has_window():
                return tried.seen(tried.end_of_process())
            if row.address:
                tried.fill_in(row.address)
            seen = tried.seen(submitted(tried))
            seen.differences += [*differences(row, place, tried, before, file)]
            if trace and not trace.injected():
                seen.differences.append("no call was made to fail")
            if seen.seconds > row.within:
                seen.differences.append(Delay(f"it took {seen.seconds:.1f} s"))
            return seen


def submitted(tried):
    end = tried.submit()
    return THROTTLED if end.startswith("alert ('You must enter your email address.'") else end


def differences(row, place, tried, before, file):
    yield from place.differing_requests(int(row.end == ACCEPTED))
    if tried.log_lines():
        yield f"the log has {tried.log_lines()}"
    after = tree(place)
    yield from (f"{path} was {before.get(path)!r:.300} and is {after.get(path)!r:.300}"
                for path in sorted(before.keys() | after.keys())
                if before.get(path) != after.get(path)
                and (row.untouched or not is_of_a_write(path, before.get(path), after.get(path))))
    if row.untouched:
        yield from is_another(file, file_of(place))
    else:
        yield from differing_values(row, attempt.stored(place))
        if row.count == NEW_COUNT or (row.count == "1" and not file):
            yield from not_new(file, file_of(place))
    if left := os.listdir(place.home.environment()["TMPDIR"]):
        yield f"{left} is left among the temporary files"
    if row.kept and row.kept not in read(place.home.settings_path).decode().splitlines():
        yield f"{row.kept!r} is lost"


def differing_values(row, stored):
    if (counted := stored.get(COUNT)) != row.count:
        yield f"{counted} is stored"
    elif row.count not in (None, str(OLD_COUNT)) and not is_date(stored.get(DATE, "")):
        yield f"the date is {stored.get(DATE)}"


def tree(place):
    """What stands below the configuration folder: kind and rights, and content or target, by path."""
    found = {}
    top = os.path.join(place.home.path, ".config")
    for folder, names, files in os.walk(top):
        for name in (*names, *files):
            path = os.path.join(folder, name)
            status = os.lstat(path)
            kept = os.readlink(path) if stat.S_ISLNK(status.st_mode) else None
            found[os.path.relpath(path, top)] = (
                stat.filemode(status.st_mode), read(path) if stat.S_ISREG(status.st_mode) else kept)
    return found


def is_of_a_write(path, before, after):
    """A file is made or replaced by one with its rights, its folder made, what a killed write has left removed; no link
    that the user has made is."""
    if path == "Korvale/CrashReporter.conf":
        return after and after[0] == (before[0] if before else FOR_THE_USER["file"]) and after[0].startswith("-")
    if path == "Korvale":
        return not before and after[0] == FOR_THE_USER["folder"]
    return path == "Korvale/CrashReporter.conf" + NEW and not after


def file_of(place):
    """Rights and content of the settings, be it through a link; nothing where they are no file."""
    path = place.home.settings_path
    return (stat.filemode(os.stat(path).st_mode), read(path)) if os.path.isfile(path) else None


def not_new(old, new, rights=None, attempts=1):
    """How the file is not the old one with so many more attempts and a date, every other line, and its rights."""
    if not new:
        yield "there is no file"
        return
    rights = rights or (old[0] if old else FOR_THE_USER["file"])
    if new[0] != rights:
        yield f"the file's rights are {new[0]}, not {rights}"
    wanted, found = (sections(content) for content in (old[1] if old else b"", new[1]))
    general = dict(line.partition("=")[::2] for line in wanted.get("[General]", []))
    date = dict(line.partition("=")[::2] for line in found.get("[General]", [])).get(DATE, "")
    general |= {COUNT: str(int(general.get(COUNT, 0)) + attempts), DATE: date}
    wanted["[General]"] = sorted(f"{key}={value}" for key, value in general.items())
    if found != wanted or not is_date(date) or not new[1].endswith(b"\n"):
        yield f"the file was {old!r:.300} and is {new!r:.300}"


def sections(content):
    """The lines of each section; the toolkit writes either in an order of its own."""
    lines = []
    found = {"": lines}
    for line in filter(None, content.decode(errors="replace").split("\n")):
        if line.startswith("["):
            lines = found.setdefault(line, [])
        else:
            lines.append(line)
    return {name: sorted(lines) for name, lines in found.items()}


# A lease of another process


def leased(asked, is_stored):
    """The settings are under a lease, which nobody looks at but the program; an attempt is stored, or none."""
    def run(world, row):
        with world.place() as place:
            with_old(place)
            before = file_of(place)
            place.serve()
            holder = lease(place, place.home.settings_path, asked)
            tried = place.report(place.crash_log())
            if not tried.has_window():
                return [("", tried.seen(tried.end_of_process()))]
            seen = tried.seen(tried.submit())
            holder.end()
            seen.differences += [*not_asked(holder), *place.differing_requests(1), *(
                not_new(before, file_of(place)) if is_stored else is_another(before, file_of(place)))]
            if seen.seconds > row.within:
                seen.differences.append(Delay(f"it took {seen.seconds:.1f} s"))
            return [("", seen)]
    return run


def is_another(before, after):
    if after != before:
        yield f"the file was {before!r:.300} and is {after!r:.300}"


# Faults at each system call of the write


def kills(lay):
    """A run for each system call of the write, ended by SIGKILL there; the file is always the old or the new one."""
    def run(world, row):
        plan = recorded(world, lay)
        if len(plan) < 20:
            return [("", Seen("nothing to kill at", differences=[f"the write has {len(plan)} calls"]))]
        chosen = drawn([*enumerate(plan)], None if world.options.all else row.sample)
        return [(f"{number + 1} of {len(plan)}, {call}", killed(world, lay, call, number % 8 == 0))
                for number, call in chosen]
    return run


def failing(name, error, stay=(), for_the_user=()):
    """Of the calls on each file the first and the last fail, or all, one after the other.

    Where one of "stay" fails, the old settings stay; else they are stored, with the old rights or for the user alone.
    """
    def run(world, row):
        plan = [call for call in recorded(world, with_old) if call.name == name]
        if not plan:
            return [("", Seen("nothing to fail", differences=[f"the write has no call of {name}"]))]
        chosen = plan if world.options.all else first_and_last(plan)
        return [(str(call), one_fails(world, call, error, row.says, old_stay=call.is_among(stay),
                                      rights=FOR_THE_USER["file"] if call.is_among(for_the_user) else None))
                for call in chosen]
    return run


def first_and_last(plan):
    """Of each file: before anything is done with it, and after all."""
    files = [call.file for call in plan]
    return [call for number, call in enumerate(plan)
            if call.file not in files[:number] or call.file not in files[number + 1:]]


def with_old(place):
    place.home.write_settings(f"{OLD}{KEPT}\n\n[Other]\nkey=value\n")


@dataclasses.dataclass
class Call:
    """A call of the write: its file, which it is on that from the write's begin, and the number that is tried first."""

    name: str
    file: str
    which: int
    count: int

    def __str__(self):
        return f"{self.name} {f'of the {self.file} ' if self.file else ''}{self.which}"

    def is_among(self, calls):
        """By the file, by the file and the number, or all of them."""
        return any(what in ("all", self.file, f"{self.file} {self.which}") for what in calls)

    def paths(self, place):
        """What alone is traced for it: its file, and the folder, with which a write begins; no paths mean all."""
        if self.name in TWO_PATHS:
            return ()
        path = {file: path for path, file in files_of(place).items()}.get(self.file, self.file)
        return (path, place.home.settings_folder) if path.startswith("/") else ()


def files_of(place):
    """The names of the files of a write."""
    path = place.home.settings_path
    return {place.home.settings_folder: "folder", path: "settings", path + NEW: "new file"}


@contextlib.contextmanager
def attached(tried, place, *expressions, paths=(), name="calls"):
    """strace at the main thread of a program whose window waits, so that calls are counted from the press on."""
    path = os.path.join(place.folder, name)
    tracer = subprocess.Popen(
        ["strace", "-qq", "-y", "-s", "300", "-o", path, *expressions, *(word for of in paths for word in ("-P", of)),
         "-p", str(tried.program.pid)], stderr=subprocess.DEVNULL)
    try:
        wait_until(lambda: is_traced(tried.program.pid), "the tracer")
        yield path
    finally:
        tracer.terminate()
        tracer.wait()


def is_traced(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return re.search(r"^TracerPid:\t[1-9]", file.read(), re.MULTILINE)


def calls_of(path):
    """The calls since the press, and the numbers of the write's first and last, which are on its folder."""
    with open(path, encoding="utf-8", errors="replace") as file:
        lines = [line for line in file if re.match(r"\w+\(", line)]
    begin = begin_of_write(lines)
    closings = [number for number, line in enumerate(lines) if number > begin and is_on_folder("close", line)]
    return lines, begin, closings[-1] if closings else len(lines)


def begin_of_write(lines):
    return next((number for number, line in enumerate(lines) if is_on_folder("mkdir", line)), len(lines))


def is_on_folder(name, line):
    return name_of(line) == name and [path for path in paths_in(line) if path.endswith("/.config/Korvale")]


def name_of(line):
    return line.partition("(")[0]


def is_of_the_write(line):
    """The event loop is woken, and waits, in between."""
    return "anon_inode:" not in line and name_of(line) not in ("poll", "futex", "writev", "recvmsg")


def paths_in(line):
    """The paths of a call, without its result, whole."""
    arguments = line.rpartition(") = ")[0] or line
    if name_of(line) in FROM_A_FOLDER:
        # An empty path is what the number has open.
        return [os.path.normpath(os.path.join(folder, path))
                for folder, path in re.findall(r'<([^>]*)>, "([^"]*)"', arguments)]
    return [one or other for one, other in re.findall(r'<([^>]*)>|"([^"]*)"', arguments) if one or other]


def is_traced_for(paths, line):
    """Whether strace, told of these paths alone, shows the call: a relative one it knows by the folder."""
    return not paths or {*paths} & {*paths_in(line), *re.findall(r"<([^>]*)>", line.rpartition(") = ")[0] or line)}


def file_in(line, place):
    """What the call is made on: of two files, the one that is to be."""
    paths = paths_in(line) or [""]
    path = paths[-1] if name_of(line) in TWO_PATHS else paths[0]
    if "/#" in path:
        return "unnamed file"
    if private := re.fullmatch(r".*/korvale-settings-\w{6}(/settings)?(\.lock)?(\.\w{6})?", path):
        return "toolkit's " + ("file's lock" if private[2] else "file's first name" if private[3] else
                               "file" if private[1] else "folder")
    if not path.startswith("/"):
        return ""
    if place.home.path.startswith(path + "/"):
        return "folder above"
    # The next run has another home and another process.
    return files_of(place).get(path) or re.sub(r"^/proc/\d+/", "process's ", path.replace(place.home.path, "home"))


def which_on_its_file(lines, begin, number, place):
    def what(line):
        return name_of(line), file_in(line, place)
    return sum(is_of_the_write(line) and what(line) == what(lines[number]) for line in lines[begin:number + 1])


def recorded(world, lay):
    """The calls of one whole write."""
    with world.place() as place:
        lay(place)
        place.serve()
        tried = place.report(place.crash_log())
        tried.has_window()
        with attached(tried, place) as path:
            tried.submit()
        lines, begin, end = calls_of(path)
        found = [Call(name_of(lines[number]), file_in(lines[number], place),
                      which_on_its_file(lines, begin, number, place), 0)
                 for number in range(begin, end + 1) if is_of_the_write(lines[number])]
        for call in found:
            traced = [line for line in lines if is_traced_for(call.paths(place), line)]
            call.count = better_count(traced, begin_of_write(traced), call, place, 0)
        return found


@contextlib.contextmanager
def one_submission(world, lay):
    with world.place() as place:
        lay(place)
        place.serve()
        tried = place.report(place.crash_log())
        tried.has_window()
        tried.before = file_of(place)
        yield place, tried


def has_hit(lines, begin, hit, call, place):
    return hit is not None and hit >= begin and name_of(lines[hit]) == call.name and is_of_the_write(lines[hit]) \
        and file_in(lines[hit], place) == call.file and which_on_its_file(lines, begin, hit, place) == call.which


def better_count(lines, begin, call, place, count):
    """What would have hit the call; the event loop may shift the count."""
    for number in range(len(lines)):
        if has_hit(lines, begin, number, call, place):
            return sum(name_of(earlier) == call.name for earlier in lines[:number + 1])
    return count + 1


def killed(world, lay, call, with_next):
    """One run that ends at that call."""
    count = call.count
    for _ in range(TRIES):
        with one_submission(world, lay) as (place, tried):
            with attached(tried, place, "-e", f"inject={call.name}:signal=KILL:when={count}",
                          paths=call.paths(place)) as path:
                with contextlib.suppress(Exception):  # the program may be gone before it has answered the press
                    tried.press()
                with contextlib.suppress(WaitedInVain):
                    wait_until(lambda: not tried.is_running() or tried.outcome(), "the end by SIGKILL", 5)
            lines, begin, _ = calls_of(path)
            if has_hit(lines, begin, len(lines) - 1, call, place):
                seen = tried.seen(tried.outcome() or "still running")
                if file_of(place) != tried.before:
                    seen.differences += not_new(tried.before, file_of(place))
                if seen.posts:
                    seen.differences.append("a report was sent")
                if with_next or world.options.all:
                    seen.differences += [*next_one_counts(place)]
                return seen
            count = better_count(lines, begin, call, place, count)
    return Seen("not killed there", differences=[f"the call was never hit: {lines[-3:]}"])


def one_fails(world, call, error, says, old_stay, rights):
    """One run in which that call fails."""
    count = call.count
    for _ in range(TRIES):
        with one_submission(world, with_old) as (place, tried):
            with attached(tried, place, "-e", f"inject={call.name}:error={error}:when={count}",
                          paths=call.paths(place)) as path:
                seen = tried.seen(tried.submit())
            lines, begin, _ = calls_of(path)
            hit = next((number for number, line in enumerate(lines) if "(INJECTED)" in line), None)
            if has_hit(lines, begin, hit, call, place):
                seen.differences += place.differing_requests(1)
                if not old_stay:
                    seen.differences += not_new(tried.before, file_of(place), rights)
                else:
                    seen.differences += is_another(tried.before, file_of(place))
                seen.notes.append(lines[hit].strip())
                strange = [line for line in tried.log_lines() if not says or not line.startswith(says)]
                if strange:
                    seen.differences.append(f"the log has {strange}")
                return seen
            count = better_count(lines, begin, call, place, count)
    return Seen("nothing failed", differences=[f"the call was never hit: {call}, {count}"])


def next_one_counts(place):
    """What was left behind keeps the next submission from nothing."""
    stored = int(place.home.settings().get(COUNT, 0))
    tried = place.report(place.crash_log())
    tried.has_window()
    tried.fill_in(ADDRESS)  # one without an address may come too soon after an attempt that was counted
    if (end := tried.submit()) != ACCEPTED:
        yield f"the next one ended as {end}"
    yield from place.differing_requests(1)
    if place.home.settings().get(COUNT) != str(stored + 1):
        yield f"the next one was not counted: {place.home.settings()}"


# Two programs


def in_turn(world, row):
    """Two programs submit one after the other, a hundred times together; every attempt is counted."""
    with world.place() as place:
        place.serve(REFUSE)
        pair = [place.report(place.crash_log()) for _ in range(2)]
        differences_seen = []
        for number in range(100):
            tried = pair[number % 2]
            if not tried.form:
                tried.has_window()
                tried.fill_in(ADDRESS)
            end = tried.submit()
            if end != REFUSED or not tried.dismiss() or not tried.can_go_on():
                differences_seen.append(f"submission {number + 1} ended as {end}")
                break
        stored = attempt.stored(place).get(COUNT)
        if stored != "100":
            differences_seen.append(f"{stored} attempts are counted")
        differences_seen += place.differing_requests(100)
        return [("", Seen(REFUSED, place.posts(), differences=differences_seen))]


def at_once(rounds):
    """Two programs submit at the same moment, again and again: both attempts are counted."""
    def run(world, row):
        seen = []
        with world.place() as place:
            place.serve(REFUSE)
            place.home.write_settings(OLD)
            pair = [place.report(place.crash_log()) for _ in range(2)]
            for tried in pair:
                tried.has_window()
                tried.fill_in(ADDRESS)
            for number in range(rounds):
                before = int(place.home.settings()[COUNT])
                for tried in pair:
                    tried.press()
                sent = place.posts()
                one = Seen(REFUSED)
                for tried in pair:
                    end = wait_until(tried.outcome, "the end")
                    if end != REFUSED or not tried.dismiss() or not tried.can_go_on():
                        one.end = end
                stored = attempt.stored(place)
                if int(stored.get(COUNT, 0)) != before + 2 or not is_date(stored.get(DATE, "")):
                    one.differences.append(f"{before} has become {stored}")
                one.posts = place.posts() - sent
                one.differences += place.differing_requests(2 * (number + 1))
                seen.append((f"round {number + 1}", one))
        return seen
    return run


def overlapping(goes_on):
    """One program is stopped in its write; another submits, and waits for it, or goes on without storing."""
    def run(world, row):
        with world.place() as place:
            place.serve(REFUSE)
            place.home.write_settings(OLD)
            before = file_of(place)
            first, second = (place.report(place.crash_log()) for _ in range(2))
            for tried in (first, second):
                tried.has_window()
                tried.fill_in(ADDRESS)
            with attached(first, place, "-e", "trace=fsync,renameat",
                          "-e", "inject=fsync:signal=STOP:when=1") as firsts:
                first.press()
                wait_until(lambda: "stopped by SIGSTOP" in text_of(firsts), "the stop in the write")
                with attached(second, place, "-e", "trace=flock,renameat", name="seconds") as seconds:
                    second.press()
                    # Not by its window, which stands still while it waits, and it would not wait for long.
                    wait_until(lambda: re.search(r"flock\(\d+<\S*/Korvale>, .*EAGAIN", text_of(seconds)),
                               "the other one's try at the held lock")
                    if goes_on:
                        first.send_signal(signal.SIGCONT)
                    seen = second.seen(wait_until(second.outcome, "the other one's end"))
                    differing = []
                    if goes_on and not has_stored(seconds):
                        differing.append(Delay("the other one has not stored"))
                if not goes_on:
                    if has_stored(seconds):
                        differing.append("the other one has stored")
                    if has_stored(firsts) or file_of(place) != before:
                        differing.append("the first one has not stayed in its write")
                    first.send_signal(signal.SIGCONT)
                first_end = wait_until(first.outcome, "the first one's end")
                if not has_stored(firsts):
                    differing.append("the first one has not stored")
            if first_end != REFUSED:
                differing.append(f"the first one ended as {first_end}")
            seen.posts = place.posts()
            seen.differences += [*differing, *not_new(before, file_of(place), attempts=2 if goes_on else 1),
                                 *place.differing_requests(2)]
            if seen.seconds > row.within:
                seen.differences.append(Delay(f"it took {seen.seconds:.1f} s"))
            return [("", seen)]
    return run


def text_of(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def has_stored(path):
    """Whether a traced program has put a file in the place of the settings."""
    return re.search(r'renameat\(.*CrashReporter\.conf"\) += 0', text_of(path)) is not None


def held_lock(place):
    """What this process holds as another program of this user would, until the run's end."""
    os.makedirs(place.home.settings_folder, exist_ok=True)
    folder = os.open(place.home.settings_folder, os.O_RDONLY)
    place.ended.callback(os.close, folder)
    fcntl.flock(folder, fcntl.LOCK_EX)
