"""What every benchmark needs: fair timing, one table, figures for machines."""

import json
import platform
import time
from collections.abc import Callable, Sequence
from dataclasses import asdict, dataclass
from pathlib import Path

import numpy as np


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


def best_seconds(calls: Sequence[Callable[[], None]], repeats: int) -> list[float]:
    """The least time of each call over several rounds.

    Every round runs all calls one after the other, so that a slow spell of the machine
    falls on all of them alike.
    """
    best = [float("inf")] * len(calls)
    for _ in range(repeats):
        for number, call in enumerate(calls):
            start = time.perf_counter()
            call()
            best[number] = min(best[number], time.perf_counter() - start)
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
    path.write_text(json.dumps(document, indent=2) + "\n", encoding="utf-8")
