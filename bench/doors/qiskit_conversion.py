"""Time how long nimbrel.qiskit takes to translate circuits of 100,000 gates.

    python bench/doors/qiskit_conversion.py [--repeats N] [--json PATH]

Task: `from_circuit` on a circuit of 20 qubits that is there already. Times are those of the
processor. Goal: at most 10 microseconds a gate. Before the timing, the program must have the
number of records that the gates have.
"""

import argparse
import sys
import time
from collections.abc import Callable
from pathlib import Path

from qiskit import QuantumCircuit

sys.path.insert(0, str(Path(__file__).parents[1]))

from harness import WrongResultError, argument_parser, run
from nimbrel.qiskit import from_circuit
from report import Figure, Report

GATES = 100_000
QUBITS = 20
GOAL = 10.0
AddGate = Callable[[QuantumCircuit, int], None]


def turning(circuit: QuantumCircuit, number: int) -> None:
    """RX by an angle of its own."""
    circuit.rx(0.1 * number, number % QUBITS)


def entangling(circuit: QuantumCircuit, number: int) -> None:
    """CX on qubits at a distance of 3."""
    circuit.cx(number % QUBITS, (number + 3) % QUBITS)


def mixed(circuit: QuantumCircuit, number: int) -> None:
    """H, RX and CX in turn."""
    (lambda c, k: c.h(k % QUBITS), turning, entangling)[number % 3](circuit, number)


def general(circuit: QuantumCircuit, number: int) -> None:
    """U, which is three records."""
    circuit.u(0.1 * number + 0.1, 0.2, 0.3, number % QUBITS)


def negated(circuit: QuantumCircuit, number: int) -> None:
    """CX with a negated control, which Qiskit keeps as a Python object."""
    circuit.cx(number % QUBITS, (number + 3) % QUBITS, ctrl_state=0)


TASKS: dict[str, tuple[AddGate, int]] = {
    "RX": (turning, 1),
    "CX": (entangling, 1),
    "H, RX, CX": (mixed, 1),
    "U": (general, 3),
    "CX, negated control": (negated, 1),
}
"""Name -> what adds a gate, and the records of one gate."""


def seconds_of_processor(circuit: QuantumCircuit) -> float:
    """The time of one translation."""
    start = time.process_time()
    from_circuit(circuit)
    return time.process_time() - start


def benchmark(arguments: argparse.Namespace, report: Report) -> None:
    """Check and time all tasks."""
    figures = []
    for name, (add, records) in TASKS.items():
        circuit = QuantumCircuit(QUBITS)
        for number in range(GATES):
            add(circuit, number)
        found = len(from_circuit(circuit).program)
        if found != 1 + GATES * records:
            raise WrongResultError(f"{name}: {found} records")
        best = min(seconds_of_processor(circuit) for _ in range(arguments.repeats))
        figures.append(Figure(name, 1e6 * best / GATES, "us a gate", at_most=GOAL))
    report.add_figures(f"from_circuit on {GATES:,} gates", figures)


if __name__ == "__main__":
    sys.exit(run(benchmark, argument_parser(__doc__, repeats=5).parse_args()))
