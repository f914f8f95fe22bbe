"""Runs the rows of the table, several side by side in private namespaces, and prints what came of each."""

import argparse
import dataclasses
import importlib
import json
import os
import queue
import subprocess
import sys
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
PROJECT = os.path.dirname(os.path.dirname(HERE))
sys.path[:0] = [HERE, os.path.join(PROJECT, "tools")]

import calls  # noqa: E402 (found through the path above)
import calls_world  # noqa: E402
import ends  # noqa: E402
import files  # noqa: E402
import network  # noqa: E402
import network_world  # noqa: E402
import settings  # noqa: E402
from situation import NOT_REACHED, Result, ends_of, result_of, words  # noqa: E402
from trial.waiting import WaitedInVain  # noqa: E402

GROUPS = (*network.GROUPS, *files.GROUPS, *settings.GROUPS, *ends.GROUPS, *calls.GROUPS)
# More than there are processors: most rows wait most of their time.
WORKERS = 4
NOT_ALLOWED = 77
NAME_WIDTH = 76


# What is to be run


def all_rows(groups):
    return [(group, row) for group in groups for row in group.rows]


def is_meant(group, row, pattern):
    """A pattern is a group's name, its part before the colon, or else a part of rows' names."""
    if any(pattern in (known.name, known.name.partition(":")[0]) for known in GROUPS):
        return pattern in (group.name, group.name.partition(":")[0])
    return pattern in row.name


def is_chosen(group, row, patterns):
    if not patterns:
        return not group.only_on_demand
    return any(is_meant(group, row, pattern) for pattern in patterns)


def check_names(groups):
    names = [row.name for _, row in all_rows(groups)]
    twice = {name for name in names if names.count(name) > 1}
    if twice:
        sys.exit(f"two rows have the same name: {twice}")


# One worker: a process in a namespace of its own that is told numbers of rows and answers with results


def work(options):
    """One desktop serves all worlds: a process can have but one accessibility bus."""
    base = network_world.World(options)
    worlds = {"network_world": base}
    rows = all_rows(GROUPS)
    try:
        for line in sys.stdin:
            group, row = rows[int(line)]
            if group.world not in worlds:
                worlds[group.world] = importlib.import_module(group.world).World(base)
            begun = time.monotonic()
            try:
                result = result_of(row.end, worlds[group.world].run(row), time.monotonic() - begun)
            except Exception as error:  # a row that could not be tried is one that differs
                late = isinstance(error, WaitedInVain)
                result = Result([], [], 0.0, 0, [f"{type(error).__name__}: {error}"], [], late=late)
            print(json.dumps(dataclasses.asdict(result)), flush=True)
    finally:
        base.close()
    return 0


class Worker:
    def __init__(self, options, tasks, done):
        self.tasks = tasks
        self.done = done
        self.process = subprocess.Popen(
            [os.path.join(PROJECT, "tools", "private-namespace"), "--own-display",
             os.path.join(options.authority, "authority.pem"), sys.executable, __file__, "--worker",
             *options.passed_on], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def run(self):
        while (number := self.next_task()) is not None:
            self.process.stdin.write(f"{number}\n")
            self.process.stdin.flush()
            answer = self.process.stdout.readline()
            if not answer:
                self.done.put((number, Result([], [], 0.0, 0, ["the worker ended"], [])))
                break
            self.done.put((number, Result(**json.loads(answer))))
        self.process.stdin.close()
        self.process.wait()
        self.done.put(None)

    def next_task(self):
        try:
            return self.tasks.get_nowait()
        except queue.Empty:
            return None


def results_of(options, chosen):
    """The results by number. What differs in nothing but time is run once more, when nothing of this runs beside it."""
    results = results_beside(options, chosen, options.workers)
    if late := [number for number, result in sorted(results.items()) if result.late]:
        print("once more, alone, for beside others they took too long:")
        for number in late:
            print(f"  {all_rows(GROUPS)[number][1].name}: {'; '.join(results[number].differences)}")
        results |= {number: dataclasses.replace(result, again=True)
                    for number, result in results_beside(options, late, 1).items()}
    return results


def results_beside(options, chosen, workers):
    """The results by number of rows that run in so many workers, the longest begun first."""
    tasks, done, results = queue.Queue(), queue.Queue(), {}
    for number in sorted(chosen, key=lambda number: -all_rows(GROUPS)[number][1].cost()):
        tasks.put(number)
    workers = [Worker(options, tasks, done) for _ in range(min(workers, len(chosen)))]
    running = len(workers)
    while running:
        answer = done.get()
        if answer is None:
            running -= 1
            continue
        results[answer[0]] = answer[1]
        if sys.stderr.isatty():
            print(f"\r{len(results)} of {len(chosen)}", end="", file=sys.stderr, flush=True)
    if sys.stderr.isatty():
        print("\r", end="", file=sys.stderr)
    if any(worker.process.returncode == NOT_ALLOWED for worker in workers):
        sys.exit(NOT_ALLOWED)
    return results


# The table


def line_of(row, result):
    runs = len(result.runs)
    name = f"{row.name} ({runs} runs{apart(result.not_reached)})" if runs > 1 else row.name
    end = words(result.ends) or "nothing"
    memory = f"{result.memory} MiB" if result.memory else ""
    mark = ("ok 2" if result.again else "ok  ") if result.passed else "FAIL"
    posts = "-".join(dict.fromkeys(str(count) for count in (*result.posts[:1], *result.posts[-1:])))
    return f"  {mark}  {name:{NAME_WIDTH}}  {words(ends_of(row.end)):17}  {end:17}  {posts:>5}  " \
           f"{result.seconds:7.1f}  {memory:>8}".rstrip()


def apart(not_reached):
    """Runs that prove nothing are counted apart."""
    return f", {not_reached} of them {NOT_REACHED}" if not_reached else ""


def print_group(group, rows, results):
    print(f"\n{group.name}\n")
    print(f"        {'what happens':{NAME_WIDTH}}  {'expected':17}  {'seen':17}  POSTs  seconds   memory".rstrip())
    for number, row in rows:
        result = results.get(number) or Result([], [], 0.0, 0, ["it was not run"], [])
        print(line_of(row, result))
        if group.prints_runs:
            print("\n".join(f"          {run}" for run in result.runs))
        if not result.passed:
            for difference in result.differences[:12]:
                print(f"          differs: {difference}")
            for note in result.notes[:12]:
                print(f"          {note}")
    passed = sum(1 for number, _ in rows if number in results and results[number].passed)
    print(f"\n        {passed} of {len(rows)} as expected", flush=True)
    return passed


def print_table(chosen, results):
    rows = all_rows(GROUPS)
    total = passed = 0
    totals = []
    for group in GROUPS:
        mine = [(number, rows[number][1]) for number in chosen if rows[number][0] is group]
        if mine:
            good = print_group(group, mine, results)
            totals.append((group.name, good, len(mine)))
            total, passed = total + len(mine), passed + good
    print()
    for name, good, count in totals:
        print(f"{name:40} {good:4} of {count:4}")
    print(f"{'all':40} {passed:4} of {total:4} as expected")
    not_reached = sum(result.not_reached for result in results.values())
    print(f"{sum(len(result.runs) for result in results.values())} runs{apart(not_reached)}")
    if untold := sum(calls_world.UNTOLD in run for result in results.values() for run in result.runs):
        print(f"{untold} alerts of which {calls_world.UNTOLD}")
    if again := sum(result.again for result in results.values()):
        print(f"{again} of the situations were tried a second time (ok 2 where that came out as expected)")
    return passed == total


def print_names(chosen):
    """The rows by their groups, and how many there are."""
    rows = [all_rows(GROUPS)[number] for number in chosen]
    for group in GROUPS:
        mine = [row for owner, row in rows if owner is group]
        if not mine:
            continue
        print(f"\n{group.name}\n")
        print("\n".join(f"  {row.name}" for row in mine))
        print(f"\n  {len(mine)} situations, {sum(len(row.variations()) for row in mine)} runs")
    print(f"\nall: {len(rows)} situations, {sum(len(row.variations()) for _, row in rows)} runs")


def options(arguments):
    parser = argparse.ArgumentParser(prog="faults", description=__doc__)
    parser.add_argument("--program", required=True, help="the built program")
    parser.add_argument("--named", required=True, help=f"the same, built to submit to {network.NAMED_HOST}")
    parser.add_argument("--memory", help="the library that lets an allocation fail")
    parser.add_argument("--authority", required=True, help="folder of the throwaway certificates")
    parser.add_argument("--all", action="store_true", help="every run of the rows of which else a sample is drawn")
    parser.add_argument("--runs", type=int, metavar="N",
                        help="so many runs at most of each row of calls that fail, and of each series of the network")
    parser.add_argument("--seed", type=int, metavar="N", default=1,
                        help="draws other runs of the rows of calls, and the same ones again (default: 1)")
    parser.add_argument("--workers", type=int, default=WORKERS)
    parser.add_argument("--list", action="store_true", help="only the names")
    parser.add_argument("--worker", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("patterns", nargs="*", metavar="PATTERN",
                        help="a group, all groups of a kind (network), or a part of rows' names; everything but what "
                             "takes long otherwise")
    chosen = parser.parse_args(arguments)
    chosen.passed_on = [argument for argument in arguments if argument not in chosen.patterns]
    return chosen


def main(arguments):
    chosen_options = options(arguments)
    if chosen_options.worker:
        return work(chosen_options)
    check_names(GROUPS)
    chosen = [number for number, (group, row) in enumerate(all_rows(GROUPS))
              if is_chosen(group, row, chosen_options.patterns)]
    if not chosen:
        sys.exit("no row is meant by that")
    if chosen_options.list:
        print_names(chosen)
        return 0
    begun = time.monotonic()
    passed = print_table(chosen, results_of(chosen_options, chosen))
    if not chosen_options.all and any(all_rows(GROUPS)[number][0].prints_runs for number in chosen):
        print(f"the runs of calls are those of --seed {chosen_options.seed}")
    print(f"in {time.monotonic() - begun:.0f} s")
    return 0 if passed else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
