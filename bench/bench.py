#!/usr/bin/env python3
"""Measures the built program against alternatives, in a private namespace, and prints a table; scripts/bench starts it.

Both sides of a ratio are measured in turn within one run, so that what else the machine does meets both alike.
"""

import argparse
import contextlib
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading

PROJECT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(PROJECT, "tools"))

import upload  # noqa: E402 (found through the path above)
from trial import screen  # noqa: E402
from trial.desktop import Desktop, start_display  # noqa: E402
from trial.home import Home  # noqa: E402
from trial.processes import ORDINARY_USER  # noqa: E402
from trial.program import Program  # noqa: E402
from trial.server import Server  # noqa: E402
from trial.waiting import wait_until  # noqa: E402

MEBI = 1 << 20
PAGE = os.path.join(PROJECT, "docs", "performance.md")
FIGURES = ("<!-- figures: written by scripts/bench --write -->\n", "<!-- end of the figures -->\n")
NOTHING_PAINTED = 3  # what first-paint ends with after a minute
STEADY = 1.15  # what a stage may cost more for each MiB of a large report than of a small one


class Bench:
    """One run: the built programs, the sizes and rounds of it, and the figures so far."""

    def __init__(self, build, folder, quick):
        self.build = build
        self.folder = folder
        self.large = 8 if quick else 128
        self.largest = 16 if quick else 1024
        self.rounds = 3 if quick else 7
        self.quick = quick
        self.rows = []
        self.home = Home(os.path.join(folder, "home"))
        self.logs = {size: self.home.crash_log(f"Harbour_{size}.crash", ordinary_lines(size * MEBI))
                     for size in (1, self.large // 2, self.large)}

    def has(self, program):
        """Whether it is installed; only a quick run goes on without it, and says so."""
        if shutil.which(program):
            return True
        if not self.quick:
            raise RuntimeError(f"{program} is not installed")
        print(f"left out, because it is not installed: {program}")
        return False

    def tool(self, name):
        return os.path.join(self.build, "bench", name)

    @property
    def program(self):
        return os.path.join(self.build, "korvale-crash-reporter")

    def largest_log(self):
        return self.home.crash_log(f"Harbour_{self.largest}.crash", ordinary_lines(self.largest * MEBI))

    def reporter(self, size):
        return [self.program, "-remotename", "anvil", "-log", self.logs[size]]

    # What was measured

    def ratio(self, what, ours, other, unit, goal=None, against="the other"):
        """Lists of both sides' figures; the ratio of their medians is judged."""
        one, two = statistics.median(ours), statistics.median(other)
        self.row(what, f"{one / two:.2f}", f"{short(one)} {unit} to {short(two)} {unit} ({against})",
                 goal and f"at most {goal}", goal is None or one <= goal * two)

    def figure(self, what, value, unit, goal=None, raw=""):
        self.row(what, f"{value:.4g} {unit}", raw, goal and f"at most {goal} {unit}", goal is None or value <= goal)

    def row(self, what, value, raw, goal, is_met):
        verdict = "" if self.quick or not goal else "met" if is_met else "**missed**"
        self.rows.append((what, value, raw, goal or "", verdict))
        print(f"{what:66} {value:>12}  {goal or '':18} {verdict.strip('*'):7} {raw}", flush=True)

    def table(self):
        lines = ["| what | figure | medians | goal | |", "|---|---|---|---|---|"]
        return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in self.rows]) + "\n"


def short(value):
    """Four digits, and all of those before the point."""
    return f"{value:.4g}" if value < 1000 else f"{value:.0f}"


def ordinary_lines(size):
    """Lines as crash logs have them, different lengths, ASCII."""
    lines = (f"{number % 512:<4}Harbour  0x{number * 7919 % 100000000:016x} " + "pier" * (number % 13) + "\n"
             for number in range(1 << 15))
    block = "".join(lines).encode()
    return (block * (size // len(block) + 1))[:size]


# Start and memory at start

def first_paint(bench, environment, command):
    """Milliseconds and MiB at the first painted window; a minute for a program that had painted none by then."""
    answer = subprocess.run([*ORDINARY_USER, bench.tool("first-paint"), *command], env=environment,
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=120)
    if answer.returncode == NOTHING_PAINTED:
        return 60_000.0, 0
    answer.check_returncode()
    milliseconds, kibibytes = answer.stdout.split()
    return float(milliseconds), int(kibibytes) / 1024


@contextlib.contextmanager
def display(bench):
    """The environment of a session with a display and a bus, and no accessibility, which most desktops leave off."""
    environment = {"PATH": "/usr/bin:/bin", "LANG": "C.UTF-8", "XDG_RUNTIME_DIR": bench.folder,
                   **bench.home.environment()}
    server, environment["DISPLAY"] = start_display(bench.folder, "-noreset")
    bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address=1"], env=environment,
                           stdout=subprocess.PIPE, text=True)
    environment["DBUS_SESSION_BUS_ADDRESS"] = bus.stdout.readline().strip()
    try:
        yield environment
    finally:
        bus.terminate()
        bus.wait()
        server.end()


def measure_starts(bench, environment):
    def turns(rounds, **commands):
        """The figures of each command, all of them in turn, after each was started once to warm the caches."""
        figures = {name: [] for name in commands}
        for command in commands.values():
            first_paint(bench, environment, [argument.replace(bench.logs[bench.large], bench.logs[1])
                                             for argument in command])
        for _ in range(rounds):
            for name, command in commands.items():
                figures[name].append(first_paint(bench, environment, command))
        return {name: tuple(zip(*figure)) for name, figure in figures.items()}

    at_small = turns(3 * bench.rounds, ours=bench.reporter(1), bare=[bench.tool("bare-window")])
    bench.ratio("start, 1 MiB", at_small["ours"][0], at_small["bare"][0], "ms", 1.15, "bare window")
    bench.ratio("memory at start, 1 MiB", at_small["ours"][1], at_small["bare"][1], "MiB", 1.15, "bare window")
    goals = {"zenity": (0.35, 0.15), "kdialog": (0.3, 0.035)}
    others = [name for name in goals if bench.has(name)]
    for place, size in enumerate((1, bench.large) if others else ()):
        commands = {"zenity": ["zenity", "--text-info", f"--filename={bench.logs[size]}"],
                    "kdialog": ["kdialog", "--textbox", bench.logs[size]]}
        figures = turns(7 if size == 1 else 1, ours=bench.reporter(size), **{name: commands[name] for name in others})
        for name in others:
            bench.ratio(f"start, {size} MiB", figures["ours"][0], figures[name][0], "ms", goals[name][place], name)
    measure_growth(bench, environment)
    if bench.has("valgrind"):
        count_instructions(bench, environment)


def measure_growth(bench, environment):
    """What a further MiB costs a start where the report is large, to what it costs where it is smaller."""
    bench.logs[bench.largest] = bench.largest_log()
    sizes = sorted(bench.logs)
    starts = {size: [] for size in sizes}
    for _ in range(bench.rounds):
        for size in sizes:
            starts[size].append(first_paint(bench, environment, bench.reporter(size)))
    os.remove(bench.logs.pop(bench.largest))
    for what, place, unit in (("start", 0, "ms"), ("memory at start", 1, "MiB")):
        medians = {size: statistics.median(figure[place] for figure in starts[size]) for size in sizes}

        def further(smaller, larger):
            return (medians[larger] - medians[smaller]) / (larger - smaller)
        for smaller, larger in zip(sizes[1:], sizes[2:]):
            bench.ratio(f"{what}, each further MiB from {smaller} to {larger} MiB", [further(smaller, larger)],
                        [further(1, smaller)], unit, STEADY, f"from 1 to {smaller} MiB")


def count_instructions(bench, environment):
    for what, command in (("report window", bench.reporter(1)), ("bare window", [bench.tool("bare-window")])):
        told = subprocess.run(
            [*ORDINARY_USER, bench.tool("first-paint"), "--end", "valgrind", "--tool=callgrind",
             "--callgrind-out-file=/dev/null", *command],
            env=environment, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, timeout=300)
        count = int(re.search(r"refs: +([\d,]+)", told.stderr).group(1).replace(",", "")) / 1e6
        recorded = re.search(rf"instructions of a start, {what} \| ([\d.]+) M", read(PAGE))
        bench.row(f"instructions of a start, {what}", f"{count:.1f} M",
                  f"recorded before: {recorded.group(1) if recorded else 'nothing'}", None, True)


# The text on its way, and the view

def measure_text(bench):
    command = [bench.tool("text-bench"), str(bench.rounds), bench.logs[1], bench.logs[bench.large]]
    printed = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, timeout=600).stdout
    small, large = {}, {}
    for name, *figures in map(str.split, printed.splitlines()):
        small[name], large[name] = list(map(float, figures[:2])), list(map(float, figures[2:]))
    size = f"{bench.large} MiB"
    bench.ratio(f"reading and checking {size}", [large["read"][0]], [large["read"][1]], "ms", 4, "reading alone")
    bench.ratio(f"encoding {size}", [large["encode"][0]], [large["encode"][1]], "ms", 4, "copying its bytes")
    for stage, name in (("read", "reading and checking"), ("rules", "words of a hang report"),
                        ("length", "length for the summary"), ("encode", "encoding")):
        bench.ratio(f"{name}, each MiB of {size}", [large[stage][0] / bench.large], [small[stage][0]], "ms", STEADY,
                    "1 MiB alone")


def measure_view(bench, environment):
    printed = subprocess.run([bench.tool("view-bench"), str(bench.large)], env=environment, check=True,
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, timeout=300).stdout
    for line in printed.splitlines():
        what, *figures = line.split("|")
        small, large, short_line, long_line = map(float, figures)
        for text, figure, least, against in ((f"{bench.large} MiB", large, small, "1 MiB"),
                                             ("one line of 16 million", long_line, short_line, "one line of 1 MiB")):
            if what.startswith("longest stall"):
                bench.figure(f"view: {what}, {text}", figure, "ms", 50)
            else:
                bench.ratio(f"view: {what}, {text}", [figure], [least], "ms", 2, against)


# A submission

def peak_of_submission(bench, authority, desktop, size, unfolded):
    """MiB of the high-water marks of all processes of the program, from launch until it ended by itself."""
    with tempfile.TemporaryDirectory(dir=bench.folder) as folder:
        server = Server(folder, authority, "accept")
        home = Home(os.path.join(folder, "home"))
        log = home.crash_log("Harbour_1.crash", read(bench.logs[size], "rb"))
        program = Program(bench.program, ["-remotename", "anvil", "-log", log], desktop, home, folder)
        peaks = {}
        ended = threading.Event()
        watch = threading.Thread(target=watch_memory, args=(program.pid, peaks, ended))
        watch.start()
        try:
            program.wait_for_window()
            if unfolded:
                program.click("Report details")
                wait_until(lambda: program.screen.is_shown("Report"), "the report pane")
            program.submit()
            status = program.exit_status(120)
            sent = len(server.posts()[0].body)
        finally:
            ended.set()
            watch.join()
            program.end()
            server.end()
    if status != 0 or sent < size * MEBI:
        raise RuntimeError(f"the report was not accepted: status {status}, {sent} bytes")
    return sum(peaks.values()) / 1024


def watch_memory(process, peaks, ended):
    """Keeps the latest high-water mark of the process and of each of its descendants, in KiB."""
    while not ended.wait(0.004):
        for one in descendants(process):
            try:
                # Until it starts a program of its own, a child's memory is its parent's, counted a second time.
                is_copy = one != process and os.readlink(f"/proc/{one}/exe") == os.readlink(f"/proc/{process}/exe")
                peak = re.search(r"VmHWM:\s+(\d+)", read(f"/proc/{one}/status"))
            except OSError:
                continue
            if peak and not is_copy:
                peaks[one] = int(peak.group(1))


def descendants(process):
    yield process
    try:
        children = read(f"/proc/{process}/task/{process}/children").split()
    except OSError:
        return
    for child in children:
        yield from descendants(int(child))


def measure_submissions(bench, authority):
    rounds = 1 if bench.quick else 2
    with tempfile.TemporaryDirectory(dir=bench.folder) as folder:
        desktop = Desktop(folder)
        try:
            os.environ.update(desktop.environment())
            screen.start()
            folded, unfolded = [], []
            for _ in range(rounds):
                folded.append(peak_of_submission(bench, authority, desktop, bench.large, False))
                unfolded.append(peak_of_submission(bench, authority, desktop, bench.large, True))
        finally:
            desktop.end()
    peak = statistics.median(folded)
    bench.row(f"peak memory until accepted, {bench.large} MiB, folded", f"{(peak - 40) / bench.large:.2f}",
              f"{peak:.4g} MiB, less 40 MiB, to {bench.large} MiB of the log", "at most 3.2",
              peak <= 3.2 * bench.large + 40)
    bench.ratio("the same with the pane unfolded", unfolded, folded, "MiB", 1.1, "folded")


def measure_upload(bench, authority):
    rounds = 3 if bench.quick else 7
    sizes = (1, bench.large // 2, bench.large)
    figures = {size: upload.measured(bench.tool("upload-bench"), authority, size, rounds) for size in sizes}
    whole = {name: [1e3 * one for one in seconds] for name, seconds in figures[bench.large].items()}
    for name, against in (("form", "curl -F"), ("body", "curl --data-binary")):
        bench.ratio(f"upload of {bench.large} MiB over loopback TLS", whole["ours"], whole[name], "ms", 1.15, against)
    small, half, large = (1e3 * statistics.median(figures[size]["ours"]) for size in sizes)
    bench.ratio(f"upload, each further MiB from {sizes[1]} to {sizes[2]} MiB", [(large - half) / (sizes[2] - sizes[1])],
                [(half - small) / (sizes[1] - sizes[0])], "ms", STEADY, f"from 1 to {sizes[1]} MiB")
    bench.figure("longest turn of the event loop during that upload", max(figures[bench.large]["turns"]), "ms", 16,
                 f"in any round; {max(figures[bench.large]['busy']):.4g} ms of the processor's time")


def read(path, mode="r"):
    with open(path, mode, **({} if "b" in mode else {"encoding": "utf-8"})) as file:
        return file.read()


def write_page(table):
    page = read(PAGE)
    begin, end = (page.index(mark) for mark in FIGURES)
    with open(PAGE, "w", encoding="utf-8") as file:
        file.write(page[:begin + len(FIGURES[0])] + "\n" + table + "\n" + page[end:])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", help="the folder that was built in")
    parser.add_argument("authority", help="folder of the throwaway certificates")
    parser.add_argument("--quick", action="store_true", help="small sizes and few rounds: does it run?")
    parser.add_argument("--write", action="store_true", help="put the table into docs/performance.md")
    chosen = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="bench-") as folder:
        os.chmod(folder, 0o755)
        bench = Bench(os.path.abspath(chosen.build), folder, chosen.quick)
        measure_text(bench)
        measure_upload(bench, chosen.authority)
        with display(bench) as environment:
            measure_view(bench, environment)
            measure_starts(bench, environment)
        measure_submissions(bench, chosen.authority)
    if chosen.write:
        write_page(bench.table())


if __name__ == "__main__":
    main()
