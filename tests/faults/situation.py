"""What every row of the table is made of, whatever is injected, and how what was seen is held against it."""

import dataclasses

ACCEPTED = "accepted"
REFUSED = "refused"
FAILED = "failed"
SENDING = "still sending"
# What was to be injected was not met this time, so the run says nothing.
NOT_REACHED = "not reached"
# Where the protocol leaves it to the reader of a broken message what to make of it; an acceptance it must not be.
NOT_ACCEPTED = (REFUSED, FAILED)


@dataclasses.dataclass(frozen=True)
class Group:
    """Rows of one kind; the world is the module that makes a row happen and gives what was seen."""

    name: str
    world: str
    rows: tuple
    only_on_demand: bool = False
    prints_runs: bool = False      # below each row: its runs are drawn


class Delay(str):
    """A difference of time, in words: so it may be where other programs keep the machine busy."""


@dataclasses.dataclass
class Seen:
    """One run of a row; a series has several."""

    end: str
    posts: int = 0
    seconds: float = 0.0
    memory: int = 0
    where: str = ""                # in whose code it has come to that end, if that is told
    # What differs from the row apart from the end, in words.
    differences: list = dataclasses.field(default_factory=list)
    # What helps to find out why: printed with a row that differs.
    notes: list = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class Result:
    """What came of a row: the worst of its runs where it is a series."""

    ends: list
    posts: list
    seconds: float
    memory: int
    differences: list
    notes: list
    cost: float = 0.0
    # Each run and its end, where a group has them printed.
    runs: list = dataclasses.field(default_factory=list)
    not_reached: int = 0           # of the runs
    late: bool = False             # it differs, and in nothing but time
    again: bool = False            # it is what came of the second try

    @property
    def passed(self):
        return not self.differences


def ends_of(expected):
    return (expected,) if isinstance(expected, str) else tuple(expected)


def words(values):
    """The different values in their order, as one text."""
    return " or ".join(dict.fromkeys(str(value) for value in values))


def result_of(expected_end, runs, cost):
    """Adds what is judged alike for every group: the end, and that something was injected at all."""
    differences, notes, late = [], [], False
    for label, seen in runs:
        place = f"{label}: " if label else ""
        if seen.end not in ends_of(expected_end):
            seen.differences.insert(0, f"ended as {seen.end}, not as {words(ends_of(expected_end))}")
        differences += [place + difference for difference in seen.differences]
        if seen.differences:
            notes += [place + note for note in seen.notes]
    observed = [seen for _, seen in runs]
    not_reached = sum(seen.end == NOT_REACHED for seen in observed)
    if not_reached == len(runs):
        differences.append("no run has reached what was to be injected")
    else:
        late = bool(differences) and all(
            isinstance(difference, Delay) for seen in observed for difference in seen.differences)
    return Result(
        ends=list(dict.fromkeys(seen.end for seen in observed)),
        posts=sorted({seen.posts for seen in observed}),
        seconds=max(seen.seconds for seen in observed),
        memory=max(seen.memory for seen in observed),
        differences=differences, notes=notes, cost=cost, not_reached=not_reached,
        late=late,
        runs=[f"{label}: {seen.end}" + (f" ({seen.where})" if seen.where else "") for label, seen in runs])
