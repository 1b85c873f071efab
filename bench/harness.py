"""What all benchmarks share: the command line and the timing in turns.

The timing loops are this module's own. pyperf runs each benchmark in processes of its own; the
simulators compared here take turns in one process, and some are timed by their own clock.
"""

import argparse
import statistics
import sys
import time
from collections.abc import Callable, Collection, Sequence
from dataclasses import dataclass
from functools import partial
from pathlib import Path
from typing import TypeAlias

from report import Report

Timer: TypeAlias = Callable[[], float]
"""Runs something once and returns the seconds that it took."""
RepeatTimer: TypeAlias = Callable[[int], float]
"""Runs something as often as it is told and returns the seconds of all runs together."""

HOPELESS = 2.0  # times the fastest: such a contender gets no second long run
LONG_RUN = 0.2  # seconds
LEAST_SECONDS = 1e-7
MOST_REPETITIONS = 1_000_000
MOST_GROWTH = 20  # of the repetitions from one run to the next
MOST_WARM_UPS = 8
SETTLE_SECONDS = 0.005  # before a run, so that idle threads of the one before stop spinning


class WrongResultError(Exception):
    """What was to be timed has another result than the one known."""


def seconds_of(call: Callable[[], object]) -> float:
    """The time that a call takes."""
    start = time.perf_counter()
    call()
    return time.perf_counter() - start


def timed(call: Callable[[], object]) -> Timer:
    """A timer of a call."""
    return partial(seconds_of, call)


def best_seconds(timers: Sequence[Timer], rounds: int) -> list[float]:
    """The least time of each timer over several rounds.

    Every round runs all of them one after the other, so that a slow spell of the machine falls
    on all alike.
    """
    best = [float("inf")] * len(timers)
    for _ in range(rounds):
        best = [min(least, timer()) for least, timer in zip(best, timers, strict=True)]
    return best


def median_seconds(timers: Sequence[Timer], rounds: int) -> list[float]:
    """The median time of each timer over several rounds, in which the timers take turns."""
    times: list[list[float]] = [[] for _ in timers]
    for _ in range(rounds):
        for own, timer in zip(times, timers, strict=True):
            own.append(timer())
    return [statistics.median(own) for own in times]


@dataclass(frozen=True)
class Effort:
    """How long the timing of a task by `time_in_turns` may take."""

    run_seconds: float  # aimed at for one timed run, by repeating the task
    rounds: int  # most rounds; in each, every contender has one run
    task_seconds: float  # after this no further round is begun, but one is made in any case
    patience: float = 0.0  # seconds of runs that a hopeless contender has before it is left out


# Many short runs: one that nothing else on the machine disturbs is soon among them.
FULL = Effort(run_seconds=0.004, rounds=12, task_seconds=1.0)
QUICK = Effort(run_seconds=0.003, rounds=5, task_seconds=0.3)


class BestTime:
    """The least time of one repetition over all runs so far."""

    def __init__(self, timer: RepeatTimer, effort: Effort, most_repetitions: int) -> None:
        self._timer = timer
        self._limit = most_repetitions
        self._run_seconds = effort.run_seconds
        self._repetitions = 1
        self.best = float("inf")
        self.last_run = 0.0
        self.spent = 0.0
        # The first run may be many times too slow, and a very short run tells little.
        for _ in range(MOST_WARM_UPS):
            self.run()
            if self.best < float("inf"):
                break

    def run(self) -> None:
        """Make one timed run, and choose the repetitions of the next one by its time."""
        time.sleep(SETTLE_SECONDS)
        # A time net of something else may come out as nothing or less.
        self.last_run = max(self._timer(self._repetitions), LEAST_SECONDS)
        self.spent += self.last_run
        each = self.last_run / self._repetitions
        if self.last_run >= self._run_seconds / 4 or self._repetitions == self._limit:
            self.best = min(self.best, each)
        wanted = round(self._run_seconds / min(self.best, each))
        self._repetitions = max(1, min(wanted, MOST_GROWTH * self._repetitions, self._limit))


def time_in_turns(
    contenders: dict[str, list[BestTime]], effort: Effort, pace: Collection[str] = ()
) -> dict[str, float]:
    """Time one task on several simulators.

    Args:
        contenders: Simulator -> its task, and further runs whose times are taken off.
        effort: How long to try.
        pace: The simulators whose fastest tells who is hopeless; all of them if none is named.

    Returns:
        Simulator -> best net time of one repetition in seconds. One whose time was lost in the
        noise of what is taken off is left out.
    """

    def measured() -> dict[str, float]:
        times = {name: gross.best - sum(o.best for o in off)
                 for name, (gross, *off) in contenders.items()}  # fmt: skip
        return {name: seconds for name, seconds in times.items() if 0 < seconds < float("inf")}

    begin = time.perf_counter()
    for round_number in range(effort.rounds):
        if round_number >= 1 and time.perf_counter() - begin > effort.task_seconds:
            break
        best = measured()
        paces = [seconds for name, seconds in best.items() if not pace or name in pace]
        limit = HOPELESS * min(paces, default=float("inf"))
        for name, runs in contenders.items():
            is_short = sum(each.last_run for each in runs) < LONG_RUN
            is_early = sum(each.spent for each in runs) < effort.patience
            if is_short or is_early or best.get(name, 0.0) <= limit:
                for each in runs:
                    each.run()
    return measured()


def argument_parser(doc: str | None, repeats: int | None = None) -> argparse.ArgumentParser:
    """A parser of the arguments that benchmarks share, with their usual number of rounds.

    The first line of `doc` describes the script. Without `repeats` it takes no such argument.
    """
    parser = argparse.ArgumentParser(description=(doc or "").partition("\n")[0])
    parser.add_argument("--json", type=Path, metavar="PATH", help="also write the figures there")
    if repeats is not None:
        rounds = "timed rounds; the best counts"
        parser.add_argument("--repeats", type=at_least(1), default=repeats, help=rounds)
    return parser


def at_least(least: int) -> Callable[[str], int]:
    """An argument's type: an integer not below this one."""

    def integer(text: str) -> int:
        value = int(text)
        if value < least:
            raise argparse.ArgumentTypeError(f"must be {least} or more")
        return value

    return integer


def widths(least: int, most: int, text: str) -> list[int]:
    """An argument's type: widths of registers, separated by commas."""
    found = [int(part) for part in text.split(",")]
    if not all(least <= width <= most for width in found):
        raise argparse.ArgumentTypeError(f"widths are from {least} to {most} qubits")
    return found


def names(known: Sequence[str], text: str) -> list[str]:
    """An argument's type: some of the known names, separated by commas."""
    found = text.split(",")
    unknown = [name for name in found if name not in known]
    if unknown:
        raise argparse.ArgumentTypeError(f"{unknown[0]} is none of {', '.join(known)}")
    return found


def show(text: str) -> None:
    """Say what is going on, on a terminal only."""
    if sys.stderr.isatty():
        print(f"\r{text:<40}", end="", file=sys.stderr, flush=True)


def run(
    benchmark: Callable[[argparse.Namespace, Report], None], arguments: argparse.Namespace
) -> int:
    """Run a benchmark and write what it found where `--json` says; returns the exit status."""
    report = Report()
    try:
        benchmark(arguments, report)
    except (WrongResultError, OSError) as error:
        print(f"{Path(sys.argv[0]).name}: {error}", file=sys.stderr)
        return 1
    if arguments.json is not None:
        report.write(arguments.json)
    return 0
