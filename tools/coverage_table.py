#!/usr/bin/python3
"""Prints the coverage of each folder of src from a file in lcov's format, and the lines that were not run.

Usage: coverage_table.py LCOV SRC PERCENT UNCOVERED MOST_PERCENT

UNCOVERED is the list of the lines that no test runs, with the reasons: comments, and "file: text" of each line, then
its number among the lines of the file with that text where there are several. A line of brackets alone needs none.

Exit status: 0 when at least PERCENT of all lines were run, the others are in the list and at most MOST_PERCENT of all
lines, and what is listed is in SRC; 1 otherwise.
"""

import collections
import os
import pathlib
import re
import sys

BRACKETS_ALONE = re.compile(r"[](){}[;,]*")


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


def names_of(folder, file):
    """The lines of a file as the list names them, in their order; None for those that need no reason."""
    texts = [line.strip() for line in pathlib.Path(folder, file).read_text(encoding="utf-8").splitlines()]
    totals_of, seen = collections.Counter(texts), collections.Counter()
    for text in texts:
        seen[text] += 1
        place = f" ({seen[text]} of {totals_of[text]})" if totals_of[text] > 1 else ""
        yield None if BRACKETS_ALONE.fullmatch(text) else f"{file}: {text}{place}"


def held_against_list(folder, missed, path):
    """Prints what is missed and not listed, and what is listed and there no more; how many lines were missed that are
    listed, and whether there is neither of the others."""
    listed = [line for line in pathlib.Path(path).read_text(encoding="utf-8").splitlines()
              if line and not line.startswith("#")]
    names = {file: list(names_of(folder, file)) for file in {*missed, *(line.partition(": ")[0] for line in listed)}
             if pathlib.Path(folder, file).is_file()}
    needed = [names[file][number - 1] for file in sorted(missed) for number in sorted(missed[file])]
    known = {name for of_file in names.values() for name in of_file}
    found = {"not run, and without a reason": [name for name in needed if name and name not in listed],
             "with a reason, and not there": [name for name in listed if name not in known]}
    for title, lines in found.items():
        if lines:
            print(f"\n{title}:", *lines, sep="\n  ")
    if run := [name for name in listed if name in known and name not in needed]:
        print("\nwith a reason, and run this time:", *run, sep="\n  ")
    return sum(name in listed for name in needed), not any(found.values())


def main(lcov, folder, percent, uncovered, most_percent):
    lines, branches = runs_of(lcov, os.path.realpath(folder))
    of_lines = totals(os.path.dirname, lines)
    of_branches = totals(os.path.dirname, branches)
    print(f"{'room':22} {'lines':>6} {'run':>8} {'branches':>9} {'run':>8}")
    for room in sorted(of_lines, key=lambda name: (name == "all", name)):
        run, total = of_lines[room]
        run_branches, total_branches = of_branches[room]
        print(f"{room or '.':22} {total:6} {share(run, total)} "
              f"{total_branches:9} {share(run_branches, total_branches)}")
    missed = {file: [line for line, runs in of_file.items() if not runs] for file, of_file in lines.items()}
    print("\nlines that no test has run:")
    for file in sorted(missed):
        if missed[file]:
            print(f"  {file}: {ranges(missed[file])}")
    run, total = of_lines["all"]
    excused, has_reasons = held_against_list(folder, missed, uncovered)
    has_few_reasons = 100 * excused <= float(most_percent) * total
    if not has_few_reasons:
        print(f"\nnot run, with a reason: {excused} of {total} lines, more than {most_percent} %")
    return 0 if total and 100 * run / total >= float(percent) and has_reasons and has_few_reasons else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
