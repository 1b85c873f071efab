"""Compare the dense filter with other state-vector simulators, and time it alone.

    python bench/dense.py [--qubits N,N,...] [--gates NAME,...] [--peers NAME,...] [--quick]
                          [--threads N] [--json PATH] [--plot PATH]

Task: X, H, CNOT, T, RX and RZ on every target, a Pauli rotation of three qubits, a
measurement of one qubit and a mixed random circuit, in double precision on registers of 4 to
24 qubits. Goal: one record in one call of the engine takes no longer than the same gate in the
fastest of PennyLane-Lightning, Qulacs and Qiskit Aer without fusion. Every simulator's result
is checked before it is timed, all start from the same state, and all take turns. Everyone has
its default threads unless --threads says otherwise. The peers come with `pip install
nimbrel[bench]`; one that is not there is named and left out. At the end the engine is timed alone,
by dense_alone.py.
"""

import argparse
import importlib
import os
import sys
from collections.abc import Callable, Sequence
from functools import partial
from pathlib import Path
from typing import Any

import engine
import harness
import numpy as np
import peers
from dense_alone import alone_figures
from gates import DENSE_SEED, DENSE_TASKS, Gate, dense_gates
from numpy_models import after_gates, after_measurement, random_state
from report import BATCHED, ENGINE, SETTLED, Comparison, Report, print_table

QUBITS = (4, 8, 10, 12, 13, 14, 16, 18, 20, 22, 24)
QUICK_QUBITS = (4, 10, 13, 16, 20)
BATCHED_QUBITS = 20  # above, one call cannot be told from many
LARGEST_MODEL = 12  # qubits; above, the simulators are compared with one another
TOLERANCE = 1e-10  # norm of the difference of two states of norm 1
PEERS = ("lightning", "qulacs", "aer")
TIME_UNITS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}


def check(registers: dict[str, peers.DenseRegister], task: str, start: peers.Amplitudes) -> None:
    """Check a task's result in every simulator and leave each in a state of norm 1.

    Small registers are compared with the model, large ones with the first simulator, which has
    agreed with the model on the small ones. Of measurements one alone is checked.

    Raises:
        WrongResultError: If a result differs.
    """
    num_qubits = len(start).bit_length() - 1
    middle = num_qubits // 2
    gates = [Gate("MEASURE", (middle,))] if task == "MEASURE" else dense_gates(task, num_qubits)
    expected: peers.Amplitudes | None = None
    if task != "MEASURE" and num_qubits <= LARGEST_MODEL:
        expected = after_gates(start, gates)
    for name, register in registers.items():
        register.load(start)
        register.apply(gates)
        found = register.state()
        if task == "MEASURE":
            expected = after_measurement(start, middle, found)
            register.load(start)
        elif expected is None:
            expected = found
        distance = float(np.linalg.norm(found - expected))
        if not distance <= TOLERANCE:  # also when it is not a number
            what = f"{task} on {num_qubits} qubits in {name}"
            raise harness.WrongResultError(f"{what}: the state differs by {distance:.2g}")


def time_task(
    registers: dict[str, peers.DenseRegister], task: str, num_qubits: int, effort: harness.Effort
) -> Comparison:
    """Time one task on every simulator; the times are those of one gate."""
    lists = [dense_gates(task, num_qubits)]
    figure_gates = len(lists[0])
    if task == "MEASURE":  # the time of the Hadamards is taken off
        lists.append(dense_gates("H", num_qubits))
        figure_gates -= num_qubits
    contenders = {}
    for name, register in registers.items():
        limit = max(1, register.max_gates // len(lists[0]))
        timers = [register.timer(gates) for gates in lists]
        contenders[name] = [harness.BestTime(timer, effort, limit) for timer in timers]
    times = harness.time_in_turns(contenders, effort)
    seconds = {name: each / figure_gates for name, each in times.items()}
    return Comparison(task, num_qubits, seconds)


def compare(
    classes: dict[str, Any], num_qubits: int, arguments: argparse.Namespace
) -> list[Comparison]:
    """Check and time all tasks on one width."""
    registers = {
        name: make(num_qubits, arguments.threads)
        for name, make in classes.items()
        if name != BATCHED or num_qubits <= BATCHED_QUBITS
    }
    start = random_state(num_qubits, DENSE_SEED)
    effort = harness.QUICK if arguments.quick else harness.FULL
    found = []
    for task in arguments.gates:
        harness.show(f"{num_qubits} qubits, {task}")
        check(registers, task, start)
        found.append(time_task(registers, task, num_qubits, effort))
    for register in registers.values():
        register.close()
    return found


def print_comparisons(cells: Sequence[Comparison]) -> None:
    """Print the ratios, those of whole arrays, the times behind them, and the cells missed."""
    title = "one record a call over the fastest peer's call; goal 1.00 or less, * misses it"
    _print_grid(title, cells, lambda cell: _ratio_text(cell.over_fastest()))
    title = "for information: one call for the whole list, over the fastest peer"
    _print_grid(title, cells, lambda cell: _ratio_text(cell.over_fastest(BATCHED)))
    title = "for information: `finish` after each record, over the fastest peer"
    _print_grid(title, cells, lambda cell: _ratio_text(cell.over_fastest(SETTLED)))
    title = "fastest peer: l Lightning, q Qulacs, a Aer; time of one gate"
    _print_grid(title, cells, lambda cell: _time_text(cell.peers, cell.fastest_peer, letter=True))
    title = "this engine, one record a call; time of one gate"
    _print_grid(title, cells, lambda cell: _time_text(cell.seconds, ENGINE))
    ratios = {f"{cell.task}/{cell.num_qubits}": cell.over_fastest() for cell in cells}
    judged = {name: ratio for name, ratio in ratios.items() if ratio is not None}
    missed = [f"{name} {ratio:.2f}" for name, ratio in judged.items() if ratio > 1]
    if judged:
        print(f"\n{len(judged) - len(missed)} of {len(judged)} cells reach 1.00")
    if missed:
        print("above: " + ", ".join(missed))


def _print_grid(title: str, cells: Sequence[Comparison], text: Callable[[Comparison], str]) -> None:
    widths = sorted({cell.num_qubits for cell in cells})
    placed = {(cell.task, cell.num_qubits): text(cell) for cell in cells}
    tasks = dict.fromkeys(cell.task for cell in cells)
    rows = [[task, *(placed[task, width] for width in widths)] for task in tasks]
    print_table(title, [["qubits", *map(str, widths)], *rows], "<" + ">" * len(widths))


def _ratio_text(ratio: float | None) -> str:
    return "-" if ratio is None else f"{ratio:.2f}{'*' if ratio > 1 else ' '}"


def _time_text(times: dict[str, float], name: str | None, *, letter: bool = False) -> str:
    if name not in times:
        return "-"
    seconds = times[name]
    unit = next((unit for unit, size in TIME_UNITS.items() if seconds < 999.5 * size), "s")
    return f"{seconds / TIME_UNITS[unit]:.3g}{unit}{name[0] if letter else ''}"


def write_plot(path: Path, cells: Sequence[Comparison]) -> None:
    """Draw the time of a gate over the width, one panel per task, as a PNG.

    Raises:
        ImportError: If matplotlib is missing.
    """
    importlib.import_module("matplotlib").use("Agg")  # no display is needed
    pyplot = importlib.import_module("matplotlib.pyplot")
    tasks = list(dict.fromkeys(cell.task for cell in cells))
    columns = min(3, len(tasks))
    rows = -(-len(tasks) // columns)
    size = (4.2 * columns, 3.2 * rows)
    figure, panels = pyplot.subplots(
        rows, columns, figsize=size, squeeze=False, layout="constrained"
    )
    for panel, task in zip(panels.flat, tasks, strict=False):
        mine = [cell for cell in cells if cell.task == task]
        for name in dict.fromkeys(name for cell in mine for name in cell.seconds):
            points = [(c.num_qubits, 1e9 * c.seconds[name]) for c in mine if name in c.seconds]
            style = {ENGINE: "o-", BATCHED: "o:", SETTLED: "o--"}.get(name, ".-")
            panel.plot(*zip(*points, strict=True), style, label=name)
        panel.set(title=task, xlabel="qubits", ylabel="ns per gate", yscale="log")
        panel.grid(alpha=0.3)
    for panel in panels.flat[len(tasks) :]:
        panel.set_axis_off()
    panels.flat[0].legend(fontsize="small")
    figure.savefig(path, dpi=130)
    pyplot.close(figure)


def benchmark(arguments: argparse.Namespace, report: Report) -> None:
    """Compare, then time the engine alone."""
    if arguments.threads is not None:  # read by the peers when they are imported
        for variable in ("OMP_NUM_THREADS", "QULACS_NUM_THREADS"):
            os.environ[variable] = str(arguments.threads)
    classes, versions = peers.load("Dense", arguments.peers)
    report.add_simulators(versions)
    simulators = {
        ENGINE: engine.Dense,
        BATCHED: engine.BatchedDense,
        SETTLED: engine.SettledDense,
    } | classes
    widths = arguments.qubits or (QUICK_QUBITS if arguments.quick else QUBITS)
    for width in widths:
        report.comparisons += compare(simulators, width, arguments)
    harness.show("")
    print_comparisons(report.comparisons)
    title = "the dense filter alone"
    report.add_figures(title, alone_figures(max(widths), arguments.threads))
    if arguments.plot is not None:
        try:
            write_plot(arguments.plot, report.comparisons)
        except ImportError as error:
            print(f"dense.py: nothing drawn: {error}", file=sys.stderr)


def parse_arguments() -> argparse.Namespace:
    """The command line; lists are checked here."""
    parser = harness.argument_parser(__doc__)
    parser.add_argument(
        "--qubits", help="widths, such as 4,16,24", type=partial(harness.widths, 4, 28)
    )
    parser.add_argument("--gates", type=partial(harness.names, DENSE_TASKS), default=DENSE_TASKS)
    parser.add_argument("--peers", type=partial(harness.names, PEERS), default=PEERS)
    parser.add_argument("--quick", action="store_true", help="fewer widths and shorter runs")
    parser.add_argument("--threads", type=harness.at_least(1), help="threads of every simulator")
    parser.add_argument("--plot", type=Path, metavar="PATH", help="draw them there, as PNG")
    return parser.parse_args()


if __name__ == "__main__":
    sys.exit(harness.run(benchmark, parse_arguments()))
