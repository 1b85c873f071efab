"""What benchmarks found: figures and comparisons with their goals, as tables and as JSON."""

import json
import os
import platform
from collections.abc import Iterable, Mapping, Sequence
from dataclasses import asdict, dataclass, field
from pathlib import Path
from typing import Any

import numpy as np

ENGINE = "nimbrel"
BATCHED = "batched"
SETTLED = "settled"
OURS = (ENGINE, BATCHED, SETTLED)
"""Names of this engine in a comparison: one record a call, the whole list in one call, and one
record a call with a wait for it."""


@dataclass(frozen=True)
class Figure:
    """One figure and the bounds that are its goal, if it has one."""

    name: str
    value: float
    unit: str = ""
    at_most: float | None = None
    at_least: float | None = None

    @property
    def goal(self) -> str:
        """The goal in words; empty without one."""
        bounds = ((">=", self.at_least), ("<=", self.at_most))
        return " and ".join(f"{sign} {bound:g}" for sign, bound in bounds if bound is not None)

    @property
    def verdict(self) -> str:
        """Whether the goal was met, in a word; empty without a goal."""
        low = -np.inf if self.at_least is None else self.at_least
        high = np.inf if self.at_most is None else self.at_most
        return ("met" if low <= self.value <= high else "MISSED") if self.goal else ""

    def as_json(self) -> dict[str, Any]:
        """The figure with its verdict."""
        return asdict(self) | {"verdict": self.verdict}


@dataclass(frozen=True)
class Comparison:
    """Times of one task, this engine's beside its peers'."""

    task: str
    num_qubits: int
    seconds: dict[str, float]  # of each simulator
    goals: dict[str, float] = field(default_factory=dict)  # peer -> most that the ratio may be
    details: Mapping[str, float] = field(default_factory=dict)  # head of a further column -> number
    note: str = ""

    @property
    def peers(self) -> dict[str, float]:
        """The times of all that is not this engine."""
        return {name: s for name, s in self.seconds.items() if name not in OURS}

    @property
    def fastest_peer(self) -> str | None:
        """Name of the fastest peer; None when none was there."""
        return min(self.peers, key=self.peers.__getitem__, default=None)

    def over_fastest(self, name: str = ENGINE) -> float | None:
        """This engine's time over the fastest peer's; None when one is missing."""
        known = self.fastest_peer is not None and name in self.seconds
        return self.seconds[name] / min(self.peers.values()) if known else None

    def ratios(self) -> list[Figure]:
        """This engine's time over that of each peer, with its goal; none when it is missing."""
        if ENGINE not in self.seconds:
            return []
        ours = self.seconds[ENGINE]
        return [Figure(p, ours / s, at_most=self.goals.get(p)) for p, s in self.peers.items()]

    def as_json(self) -> dict[str, Any]:
        """The comparison with its ratios."""
        return asdict(self) | {
            "fastest_peer": self.fastest_peer,
            "over_fastest": {name: self.over_fastest(name) for name in OURS},
            "ratios": [ratio.as_json() for ratio in self.ratios()],
        }


@dataclass
class Report:
    """What one benchmark has found: printed as it comes, written as JSON at the end."""

    simulators: dict[str, str] = field(default_factory=dict)  # their versions
    figures: list[Figure] = field(default_factory=list)
    comparisons: list[Comparison] = field(default_factory=list)

    def add_figures(self, title: str, figures: Iterable[Figure]) -> None:
        """Keep figures and print one row for each."""
        added = list(figures)
        self.figures += added
        rows = [[f.name, f"{f.value:,.2f}", f.unit, f.goal, f.verdict] for f in added]
        print_table(title, rows, "<><<<")

    def add_simulators(self, versions: dict[str, str]) -> None:
        """Keep and print the versions of simulators, or why they are missing."""
        self.simulators |= versions
        print_table("simulators", list(versions.items()), "<<")

    def add_comparisons(self, title: str, comparisons: Sequence[Comparison]) -> None:
        """Keep comparisons of the same simulators and print a row for each."""
        self.comparisons += comparisons
        first = comparisons[0]
        times = [f"{name} ms" for name in first.seconds]
        head = ["task", "qubits", *first.details, *times, *(f"over {p}" for p in first.peers), ""]
        rows = [head]
        for each in comparisons:
            numbers = [f"{value:.6g}" for value in each.details.values()]
            numbers += [f"{1e3 * seconds:.3f}" for seconds in each.seconds.values()]
            numbers += [f"{ratio.value:.3f} {ratio.verdict:<6}" for ratio in each.ratios()]
            rows.append([each.task, f"{each.num_qubits}", *numbers, each.note])
        print_table(title, rows, "<" + ">" * (len(head) - 2) + "<")

    def write(self, path: Path) -> None:
        """Write everything and what it was measured with as JSON; times are in seconds."""
        document = {
            "machine": platform.machine(),
            "processors": len(os.sched_getaffinity(0)),
            "python": platform.python_version(),
            "numpy": np.__version__,
            "simulators": self.simulators,
            "figures": [figure.as_json() for figure in self.figures],
            "comparisons": [comparison.as_json() for comparison in self.comparisons],
        }
        path.write_text(json.dumps(document, indent=2) + "\n", encoding="utf-8")


def print_table(title: str, rows: Sequence[Sequence[str]], alignment: str) -> None:
    """Print rows in columns, each aligned by its letter: "<" left, ">" right."""
    print(f"\n{title}")
    widths = [max(map(len, column)) for column in zip(*rows, strict=True)]
    for row in rows:
        columns = zip(row, alignment, widths, strict=True)
        print("  ".join(f"{text:{side}{width}}" for text, side, width in columns).rstrip())
