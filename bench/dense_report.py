"""Tables, JSON and plot of the dense benchmark."""

import importlib
import os
import platform
from collections.abc import Callable, Sequence
from dataclasses import asdict, dataclass
from pathlib import Path
from typing import Any

import numpy as np
from harness import write_document

ENGINE = "nimbrel"
BATCHED = "batched"
COLUMN = 8


@dataclass(frozen=True)
class Cell:
    """One task on one width.

    Attributes:
        task: Name of the task.
        num_qubits: Width.
        nanoseconds: Name of the simulator -> time of one gate.
    """

    task: str
    num_qubits: int
    nanoseconds: dict[str, float]

    @property
    def peers(self) -> dict[str, float]:
        """The times of all that is not this engine."""
        return {
            name: value for name, value in self.nanoseconds.items() if name not in (ENGINE, BATCHED)
        }

    @property
    def fastest_peer(self) -> str | None:
        """Name of the fastest peer; None when none was there."""
        return min(self.peers, key=self.peers.__getitem__, default=None)

    def ratio(self, name: str) -> float | None:
        """Time of a simulator over that of the fastest peer; None when one is missing."""
        if self.fastest_peer is None or name not in self.nanoseconds:
            return None
        return self.nanoseconds[name] / self.peers[self.fastest_peer]


def print_tables(cells: Sequence[Cell]) -> None:
    """Print the ratios, those of whole arrays, and the times behind them."""
    names = list(dict.fromkeys(name for cell in cells for name in cell.nanoseconds))
    if ENGINE in names:
        print("\none record a call over the fastest peer's call; goal 1.00 or less, * misses it")
        _print_grid(cells, lambda cell: _ratio_text(cell.ratio(ENGINE)))
    if BATCHED in names:
        print("\nfor information: one call for the whole list, over the fastest peer")
        _print_grid(cells, lambda cell: _ratio_text(cell.ratio(BATCHED)))
    print("\nfastest peer: l Lightning, q Qulacs, a Aer; time of one gate")
    _print_grid(cells, _fastest_text)
    if ENGINE in names:
        print("\nthis engine, one record a call; time of one gate")
        _print_grid(cells, lambda cell: _time_text(cell.nanoseconds.get(ENGINE)))


def print_misses(cells: Sequence[Cell]) -> None:
    """Print the cells in which the fastest peer is faster."""
    ratios = [(cell, cell.ratio(ENGINE)) for cell in cells]
    judged = [(cell, ratio) for cell, ratio in ratios if ratio is not None]
    missed = [f"{cell.task}/{cell.num_qubits} {ratio:.2f}" for cell, ratio in judged if ratio > 1]
    if judged:
        print(f"\n{len(judged) - len(missed)} of {len(judged)} cells reach 1.00")
    if missed:
        print("above: " + ", ".join(missed))


def _print_grid(cells: Sequence[Cell], text: Callable[[Cell], str]) -> None:
    widths = sorted({cell.num_qubits for cell in cells})
    placed = {(cell.task, cell.num_qubits): text(cell) for cell in cells}
    print(f"{'qubits':<8}" + "".join(f"{width:>{COLUMN}}" for width in widths))
    for task in dict.fromkeys(cell.task for cell in cells):
        row = "".join(f"{placed.get((task, width), ''):>{COLUMN}}" for width in widths)
        print(f"{task:<8}{row}")


def _ratio_text(ratio: float | None) -> str:
    return "-" if ratio is None else f"{ratio:.2f}{'*' if ratio > 1 else ' '}"


def _fastest_text(cell: Cell) -> str:
    name = cell.fastest_peer
    return "-" if name is None else f"{_time_text(cell.peers[name])}{name[0]}"


def _time_text(nanoseconds: float | None) -> str:
    if nanoseconds is None:
        return "-"
    for unit, size in (("ns", 1), ("us", 1e3), ("ms", 1e6)):
        if nanoseconds < 999.5 * size:
            return f"{nanoseconds / size:.3g}{unit}"
    return f"{nanoseconds / 1e9:.3g}s"


def write_json(
    path: Path, cells: Sequence[Cell], versions: dict[str, str], figures: dict[str, Any]
) -> None:
    """Write everything measured as JSON.

    Args:
        path: File to write.
        cells: The cells.
        versions: Simulator -> version, or why it is missing.
        figures: What was measured beside the cells.
    """
    document = {
        "machine": platform.machine(),
        "processors": len(os.sched_getaffinity(0)),
        "python": platform.python_version(),
        "numpy": np.__version__,
        "simulators": versions,
        "figures": figures,
        "cells": [
            {
                **asdict(cell),
                "fastest_peer": cell.fastest_peer,
                "ratio": cell.ratio(ENGINE),
                "batched_ratio": cell.ratio(BATCHED),
            }
            for cell in cells
        ],
    }
    write_document(path, document)


def write_plot(path: Path, cells: Sequence[Cell]) -> None:
    """Draw the time of a gate over the width, one panel per task, as a PNG.

    Raises:
        ImportError: If matplotlib is missing.
    """
    importlib.import_module("matplotlib").use("Agg")  # no display is needed
    pyplot = importlib.import_module("matplotlib.pyplot")
    tasks = list(dict.fromkeys(cell.task for cell in cells))
    columns = min(3, len(tasks))
    rows = -(-len(tasks) // columns)
    figure, panels = pyplot.subplots(
        rows, columns, figsize=(4.2 * columns, 3.2 * rows), squeeze=False, layout="constrained"
    )
    for panel in panels.flat[len(tasks) :]:
        panel.set_axis_off()
    for panel, task in zip(panels.flat, tasks, strict=False):
        _draw_panel(panel, task, [cell for cell in cells if cell.task == task])
    panels.flat[0].legend(fontsize="small")
    figure.savefig(path, dpi=130)
    pyplot.close(figure)


def _draw_panel(panel: Any, task: str, cells: Sequence[Cell]) -> None:
    for name in dict.fromkeys(name for cell in cells for name in cell.nanoseconds):
        points = [
            (cell.num_qubits, cell.nanoseconds[name]) for cell in cells if name in cell.nanoseconds
        ]
        style = {ENGINE: "o-", BATCHED: "o:"}.get(name, ".-")
        panel.plot(*zip(*points, strict=True), style, label=name)
    panel.set(title=task, xlabel="qubits", ylabel="ns per gate", yscale="log")
    panel.grid(alpha=0.3)
