"""What benchmarks share: arguments, fair timing, tables, figures for machines."""

import argparse
import json
import platform
import sys
import time
from collections.abc import Callable, Mapping, Sequence
from dataclasses import asdict, dataclass
from pathlib import Path
from typing import Any, Generic, TypeVar

import numpy as np

Compared = TypeVar("Compared")


@dataclass(frozen=True)
class Goal:
    """What a task should reach.

    Attributes:
        rate: Least rate on every width, in million records per second.
        spread: Most that the ratio of the widths may differ from 1.
    """

    rate: float
    spread: float


@dataclass(frozen=True)
class Result:
    """What a task reached.

    Attributes:
        task: What was timed.
        goal: What it should reach; None when nothing is promised.
        rates: Width of the register in qubits -> million records per second.
    """

    task: str
    goal: Goal | None
    rates: dict[int, float]

    @property
    def ratio(self) -> float:
        """Rate on the widest register over the rate on the narrowest."""
        return self.rates[max(self.rates)] / self.rates[min(self.rates)]

    @property
    def verdict(self) -> str:
        """Whether the goal was met, in a word; empty without a goal."""
        if self.goal is None:
            return ""
        fast = min(self.rates.values()) >= self.goal.rate
        return "met" if fast and abs(self.ratio - 1) <= self.goal.spread else "MISSED"


class WrongResultError(Exception):
    """What was to be timed gives another result than the one known."""


@dataclass(frozen=True)
class Figure:
    """One figure and what it should be.

    Attributes:
        name: What was measured.
        value: The figure.
        unit: Its unit, in words.
        goal: The most that it may be.
    """

    name: str
    value: float
    unit: str
    goal: float

    @property
    def verdict(self) -> str:
        """Whether the goal was met, in a word."""
        return "met" if self.value <= self.goal else "MISSED"


@dataclass(frozen=True)
class PeerBenchmark(Generic[Compared]):
    """A benchmark of one filter, alone and beside other simulators.

    Attributes:
        script: The file's name, which begins its errors.
        description: What it times, in words.
        measure: Takes the figures of the filter alone, in so many rounds.
        print_figures: Prints them.
        compare: Compares the filter with its peers, in so many rounds; none without a peer.
        print_comparisons: Prints them.
        json_name: What the comparisons are called in JSON.
        as_json: A comparison's own figures for JSON.
    """

    script: str
    description: str
    measure: Callable[[int], list[Figure]]
    print_figures: Callable[[Sequence[Figure]], None]
    compare: Callable[[int], list[Compared]]
    print_comparisons: Callable[[Sequence[Compared]], None]
    json_name: str
    as_json: Callable[[Compared], dict[str, Any]]


def argument_parser(description: str, repeats: int) -> argparse.ArgumentParser:
    """A parser of the arguments that every benchmark takes, with its usual number of rounds."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument(
        "--repeats", type=at_least(1), default=repeats, help="timed rounds; the best counts"
    )
    parser.add_argument("--json", type=Path, metavar="PATH", help="also write the figures there")
    return parser


def at_least(least: int) -> Callable[[str], int]:
    """An argument's type: an integer not below this one."""

    def integer(text: str) -> int:
        value = int(text)
        if value < least:
            raise argparse.ArgumentTypeError(f"must be {least} or more")
        return value

    return integer


def run_beside_peers(benchmark: PeerBenchmark[Any]) -> int:
    """Run a benchmark by the command line's arguments; returns the exit status."""
    parser = argument_parser(benchmark.description, repeats=15)
    parser.add_argument("--alone", action="store_true", help="leave the peers out")
    arguments = parser.parse_args()
    try:
        figures = benchmark.measure(arguments.repeats)
        benchmark.print_figures(figures)
        comparisons = [] if arguments.alone else benchmark.compare(arguments.repeats)
    except WrongResultError as error:
        print(f"{benchmark.script}: {error}", file=sys.stderr)
        return 1
    if comparisons:
        benchmark.print_comparisons(comparisons)
    if arguments.json is not None:
        document = {
            "engine": [asdict(figure) for figure in figures],
            benchmark.json_name: [benchmark.as_json(each) for each in comparisons],
        }
        write_document(arguments.json, document)
    return 0


def seconds_of(call: Callable[[], object]) -> float:
    """The time that a call takes."""
    start = time.perf_counter()
    call()
    return time.perf_counter() - start


def best_seconds(calls: Sequence[Callable[[], None]], repeats: int) -> list[float]:
    """The least time of each call over several rounds.

    Every round runs all calls one after the other, so that a slow spell of the machine
    falls on all of them alike.
    """
    best = [float("inf")] * len(calls)
    for _ in range(repeats):
        for number, call in enumerate(calls):
            best[number] = min(best[number], seconds_of(call))
    return best


def print_table(results: Sequence[Result]) -> None:
    """Print one row per task: goal, rate on each width, ratio of the widths, verdict."""
    widths = sorted(results[0].rates)
    rates_head = "".join(f"{f'{width:,} qubits':>18}" for width in widths)
    print("rates in million records/s, best of all rounds; ratio: widest over narrowest")
    print(f"{'task':<16}{'goal':<22}{rates_head}{'ratio':>8}")
    for result in results:
        goal = result.goal
        goal_text = f">= {goal.rate:g}, 1 +- {goal.spread:g}" if goal else "-"
        rates = "".join(f"{result.rates[width]:>18.1f}" for width in widths)
        line = f"{result.task:<16}{goal_text:<22}{rates}{result.ratio:>8.2f}  {result.verdict}"
        print(line.rstrip())


def print_figures(figures: Sequence[Figure]) -> None:
    """Print one row per figure."""
    for figure in figures:
        goal = f"goal <= {figure.goal:g}"
        print(f"{figure.name:<32}{figure.value:>8.2f} {figure.unit:<26}{goal:<14}{figure.verdict}")


def write_json(path: Path, results: Sequence[Result]) -> None:
    """Write the figures and what they were measured with as JSON.

    Args:
        path: File to write.
        results: The tasks, in order.
    """
    document = {
        "machine": platform.machine(),
        "python": platform.python_version(),
        "numpy": np.__version__,
        "unit": "million records per second",
        "results": [
            {**asdict(result), "ratio": result.ratio, "verdict": result.verdict}
            for result in results
        ],
    }
    write_document(path, document)


def write_document(path: Path, document: Mapping[str, Any]) -> None:
    """Write figures as JSON."""
    path.write_text(json.dumps(document, indent=2) + "\n", encoding="utf-8")
