"""Compare the dense filter with other state-vector simulators.

    python bench/dense.py [--qubits N,N,...] [--gates NAME,...] [--peers NAME,...] [--quick]
                          [--threads N] [--json PATH] [--plot PATH]

Task: X, H, CNOT, T, RX and RZ on every target, a Pauli rotation of three qubits, a
measurement of one qubit and a mixed random circuit, in double precision on registers of 4 to
24 qubits. Goal: one record in one call of the engine takes no longer than the same gate in the
fastest of PennyLane-Lightning, Qulacs and Qiskit Aer without fusion. Every simulator's result
is checked before it is timed, all start from the same state, and all take turns. Everyone has
its default threads unless --threads says otherwise. The peers come with `pip install
nimbrel[bench]`; one that is not there is named and left out.
"""

import argparse
import importlib
import importlib.metadata
import os
import sys
from collections.abc import Sequence
from pathlib import Path
from typing import Any

from dense_model import (
    LARGEST_MODEL,
    Amplitudes,
    MismatchError,
    after_gates,
    after_measurement,
    compare,
    random_state,
)
from dense_report import BATCHED, ENGINE, Cell, print_misses, print_tables, write_json, write_plot
from dense_simulator import Simulator
from dense_tasks import TASKS, Task
from dense_timing import FULL, QUICK, Effort, time_cell

QUBITS = (4, 8, 10, 12, 13, 14, 16, 18, 20, 22, 24)
QUICK_QUBITS = (4, 10, 13, 16, 20)
RECORD_QUBITS = (4, 6)
BATCHED_QUBITS = 20  # above, one call cannot be told from many
RESET_QUBITS = (6, 12, 16, 20)
MEMORY_QUBITS = 22  # from here on a state does not fit a cache

# Name -> module, class, distribution.
PEERS = {
    "lightning": ("dense_peers_lightning", "Lightning", "pennylane-lightning"),
    "qulacs": ("dense_peers_qulacs", "Qulacs", "qulacs"),
    "aer": ("dense_peers_aer", "Aer", "qiskit-aer"),
}
ENGINES = {
    ENGINE: ("dense_engine", "Engine", "nimbrel"),
    BATCHED: ("dense_engine", "BatchedEngine", "nimbrel"),
}


class Roster:
    """The simulators that can be had, and why others cannot.

    Attributes:
        versions: Name -> version, or "missing: " and the reason.
    """

    def __init__(self, names: Sequence[str], threads: int | None) -> None:
        self._threads = threads
        self._classes: dict[str, Any] = {}
        self.versions: dict[str, str] = {}
        for name in names:
            module, class_name, distribution = (ENGINES | PEERS)[name]
            try:
                self._classes[name] = getattr(importlib.import_module(module), class_name)
                self._classes[name](2, threads).close()
                self.versions[name] = importlib.metadata.version(distribution)
            except (ImportError, OSError, RuntimeError) as error:
                self._classes.pop(name, None)
                self.versions[name] = f"missing: {error}"

    def __contains__(self, name: str) -> bool:
        """Whether a simulator can be had."""
        return name in self._classes

    def registers(self, num_qubits: int) -> list[Simulator]:
        """A register in each simulator; a batch is left out where a call costs nothing."""
        return [
            make(num_qubits, self._threads)
            for name, make in self._classes.items()
            if name != BATCHED or num_qubits <= BATCHED_QUBITS
        ]


def check(simulators: Sequence[Simulator], task: Task, num_qubits: int, start: Amplitudes) -> None:
    """Check a task's result in every simulator and leave each in a state of norm 1.

    Small registers are compared with the model, large ones with the first simulator, which
    has agreed with the model on the small ones.

    Raises:
        MismatchError: If a result differs.
    """
    gates = task.check_gates(num_qubits)
    measured = gates[0].qubits[0] if gates[0].name == "MEASURE" else None
    expected: Amplitudes | None = None
    if measured is None and num_qubits <= LARGEST_MODEL:
        expected = after_gates(start, gates)
    for simulator in simulators:
        simulator.load(start)
        simulator.apply(gates)
        found = simulator.state()
        if measured is not None:
            expected = after_measurement(start, measured, found)
            simulator.load(start)
        elif expected is None:
            expected = found
            continue
        compare(found, expected, f"{task.name} on {num_qubits} qubits in {simulator.name}")


def run_width(roster: Roster, tasks: Sequence[Task], num_qubits: int, effort: Effort) -> list[Cell]:
    """Check and time all tasks on one width."""
    simulators = roster.registers(num_qubits)
    start = random_state(num_qubits)
    cells = []
    for task in tasks:
        show(f"{num_qubits} qubits, {task.name}")
        check(simulators, task, num_qubits, start)
        cells.append(Cell(task.name, num_qubits, time_cell(simulators, task, num_qubits, effort)))
    for simulator in simulators:
        simulator.close()
    return cells


def show(text: str) -> None:
    """Say what is going on, on a terminal only."""
    if sys.stderr.isatty():
        print(f"\r{text:<40}", end="", file=sys.stderr, flush=True)


def measure_engine(widths: Sequence[int], threads: int | None) -> dict[str, Any]:
    """Measure and print what concerns this engine alone."""
    machine = importlib.import_module("dense_machine")
    show("records and calls")
    figures: dict[str, Any] = {
        "record_ns": {width: machine.record_figures(width) for width in RECORD_QUBITS},
        "call_ns": machine.call_figure(RECORD_QUBITS[0]),
        "reset": {width: machine.reset_figures(width) for width in RESET_QUBITS},
    }
    if max(widths) >= MEMORY_QUBITS:
        figures["bandwidth"] = machine.bandwidth_figures(max(widths), threads)
    for width, record in figures["record_ns"].items():
        parts = ", ".join(f"{name} {value:.0f}" for name, value in record.items())
        print(f"\nrecords in an array, {width} qubits (goal: 100 ns or less): {parts}", end="")
    print(
        f"\ncall of one record beyond the record (goal: 250 ns or less): {figures['call_ns']:.0f}"
    )
    for width, reset in figures["reset"].items():
        print(
            f"reset of the same shape, {width} qubits: {reset['microseconds']:.1f} us, "
            f"{reset['page_faults']} page faults"
        )
    if "bandwidth" in figures:
        print_bandwidth(figures["bandwidth"])
    return figures


def print_bandwidth(figures: dict[str, float]) -> None:
    """Print what gates reach of the memory's bandwidth."""
    print(
        f"{figures['num_qubits']} qubits: scaling loop {figures['loop_gb_per_s']:.1f} GB/s; "
        f"Hadamard {figures['hadamard_percent']:.0f} % of it (goal at 24: 85 or more), worst "
        f"target {figures['hadamard_worst_percent']:.0f} %\n"
        f"time over a Hadamard's: CNOT {figures['cnot_over_hadamard']:.2f}, "
        f"T {figures['t_over_hadamard']:.2f}; each touches half of the amplitudes"
    )


def parse_arguments() -> argparse.Namespace:
    """The command line; lists are checked here."""
    parser = argparse.ArgumentParser(description="Compare the dense filter with its peers.")
    parser.add_argument("--qubits", help="widths, such as 4,16,24", type=_widths)
    parser.add_argument("--gates", type=_names([task.name for task in TASKS]))
    parser.add_argument("--peers", type=_names(list(PEERS)), default=list(PEERS))
    parser.add_argument("--quick", action="store_true", help="fewer widths and shorter runs")
    parser.add_argument("--threads", type=int, help="threads of every simulator")
    parser.add_argument("--json", type=Path, metavar="PATH", help="write the figures there")
    parser.add_argument("--plot", type=Path, metavar="PATH", help="draw them there, as PNG")
    arguments = parser.parse_args()
    if arguments.threads is not None and arguments.threads < 1:
        parser.error("--threads must be 1 or more")
    return arguments


def _widths(text: str) -> list[int]:
    widths = [int(part) for part in text.split(",")]
    if not all(4 <= width <= 28 for width in widths):
        raise argparse.ArgumentTypeError("widths are from 4 to 28 qubits")
    return widths


def _names(known: list[str]) -> Any:
    def parse(text: str) -> list[str]:
        names = text.split(",")
        unknown = [name for name in names if name not in known]
        if unknown:
            raise argparse.ArgumentTypeError(f"{unknown[0]} is none of {', '.join(known)}")
        return names

    return parse


def main() -> int:
    """Run the benchmark; returns the exit status."""
    arguments = parse_arguments()
    if arguments.threads is not None:  # read by the peers when they are imported
        for variable in ("OMP_NUM_THREADS", "QULACS_NUM_THREADS"):
            os.environ[variable] = str(arguments.threads)
    roster = Roster([*ENGINES, *arguments.peers], arguments.threads)
    for name, version in roster.versions.items():
        print(f"{name:<10} {version}")
    widths = arguments.qubits or (QUICK_QUBITS if arguments.quick else QUBITS)
    tasks = [task for task in TASKS if arguments.gates is None or task.name in arguments.gates]
    effort = QUICK if arguments.quick else FULL
    try:
        cells = [cell for width in widths for cell in run_width(roster, tasks, width, effort)]
    except MismatchError as error:
        print(f"dense.py: {error}", file=sys.stderr)
        return 1
    show("")
    print_tables(cells)
    print_misses(cells)
    figures = measure_engine(widths, arguments.threads) if ENGINE in roster else {}
    if arguments.json is not None:
        write_json(arguments.json, cells, roster.versions, figures)
    if arguments.plot is not None:
        try:
            write_plot(arguments.plot, cells)
        except ImportError as error:
            print(f"dense.py: nothing drawn: {error}", file=sys.stderr)
    return 0


if __name__ == "__main__":
    sys.exit(main())
