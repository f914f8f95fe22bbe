#!/usr/bin/python3
"""Prints the coverage of each folder of src from a file in lcov's format, and the lines that were not run.

Usage: coverage_table.py LCOV SRC PERCENT

Exit status: 0 when at least PERCENT of all lines were run, 1 otherwise.
"""

import collections
import os
import pathlib
import sys


def runs_of(lcov, folder):
    """How often each line and each branch of the folder's files was run, by file."""
    lines = collections.defaultdict(collections.Counter)
    branches = collections.defaultdict(collections.Counter)
    file = None
    for record in pathlib.Path(lcov).read_text(encoding="utf-8").splitlines():
        kind, _, value = record.partition(":")
        if kind == "SF":
            path = os.path.relpath(value, folder)
            file = None if path.startswith("..") else path
        elif file and kind == "DA":
            line, runs = value.split(",")[:2]
            lines[file][int(line)] += int(runs)
        elif file and kind == "BRDA":
            line, block, branch, runs = value.split(",")
            branches[file][int(line), block, branch] += 0 if runs == "-" else int(runs)
    return lines, branches


def share(run, total):
    return f"{100 * run / total:6.1f} %" if total else "       -"


def counts(runs):
    return sum(1 for number in runs.values() if number), len(runs)


def totals(rooms, runs):
    """Of each room and of all: how many were run, of how many."""
    table = collections.defaultdict(lambda: (0, 0))
    for file, of_file in runs.items():
        for name in (rooms(file), "all"):
            table[name] = tuple(map(sum, zip(table[name], counts(of_file))))
    return table


def ranges(numbers):
    """Numbers as text, neighbours together."""
    found = []
    for number in sorted(numbers):
        if found and found[-1][1] == number - 1:
            found[-1][1] = number
        else:
            found.append([number, number])
    return ", ".join(str(a) if a == b else f"{a}-{b}" for a, b in found)


def main(lcov, folder, percent):
    lines, branches = runs_of(lcov, os.path.realpath(folder))
    of_lines = totals(os.path.dirname, lines)
    of_branches = totals(os.path.dirname, branches)
    print(f"{'room':22} {'lines':>6} {'run':>8} {'branches':>9} {'run':>8}")
    for room in sorted(of_lines, key=lambda name: (name == "all", name)):
        run, total = of_lines[room]
        run_branches, total_branches = of_branches[room]
        print(f"{room or '.':22} {total:6} {share(run, total)} "
              f"{total_branches:9} {share(run_branches, total_branches)}")
    print("\nlines that no test has run:")
    for file in sorted(lines):
        if missed := [line for line, runs in lines[file].items() if not runs]:
            print(f"  {file}: {ranges(missed)}")
    run, total = of_lines["all"]
    return 0 if total and 100 * run / total >= float(percent) else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
