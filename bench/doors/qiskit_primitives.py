"""Compare the primitives of nimbrel.qiskit with those of Qiskit Aer.

    python bench/doors/qiskit_primitives.py [--qubits N,N,...] [--repeats N] [--json PATH]

Task: one call of a primitive, from the Python line to the result, conversion included. A sampler
draws 1,000 shots of a circuit that measures all qubits; an estimator computes a sum of Pauli
products. Each circuit is transpiled beforehand for Aer, and both get the same circuit. "sweep" has
one circuit with ten sets of values of its parameters.

Goal: at most 1.00 of the time of Aer, on 4, 12 and 20 qubits.

Before a task is timed, the expectation values of both must agree to 1e-10, and the sampled
probability of an even number of ones within five standard errors.
"""

import argparse
import sys
from collections.abc import Callable, Iterator
from functools import partial
from math import sqrt
from pathlib import Path
from typing import Any, NamedTuple

import numpy as np
from qiskit import QuantumCircuit, transpile
from qiskit.circuit.library import QFTGate, efficient_su2
from qiskit.quantum_info import SparsePauliOp
from qiskit_aer import AerSimulator
from qiskit_aer.primitives import EstimatorV2 as AerEstimator
from qiskit_aer.primitives import SamplerV2 as AerSampler

sys.path.insert(0, str(Path(__file__).parents[1]))

from harness import WrongResultError, argument_parser, best_seconds, run, timed, widths
from nimbrel.qiskit import EstimatorV2, SamplerV2
from report import ENGINE, Comparison, Report

AER = "aer"
GOAL = {AER: 1.0}
SHOTS = 1000
SETS = 10
SEED = 20240607
TOLERANCE = 1e-10
STANDARD_ERRORS = 5.0


class Task(NamedTuple):
    """One pub for each primitive.

    Attributes:
        name: Its name in the report.
        ours: The call of our primitive.
        aer: The call of Aer's.
        difference: How far the results of two calls may be apart, and how far they are.
    """

    name: str
    ours: Callable[[], Any]
    aer: Callable[[], Any]
    difference: Callable[[Any, Any], tuple[float, float]]


def qft(num_qubits: int) -> QuantumCircuit:
    """The Fourier transform of a number."""
    circuit = QuantumCircuit(num_qubits)
    circuit.x(range(0, num_qubits, 2))
    circuit.append(QFTGate(num_qubits), range(num_qubits))
    return circuit


def ghz(num_qubits: int) -> QuantumCircuit:
    """All qubits equal."""
    circuit = QuantumCircuit(num_qubits)
    circuit.h(0)
    for qubit in range(num_qubits - 1):
        circuit.cx(qubit, qubit + 1)
    return circuit


def ansatz(num_qubits: int) -> QuantumCircuit:
    """Three layers of rotations with entangling gates between, with parameters."""
    return efficient_su2(num_qubits, reps=2, entanglement="linear")


def bound_ansatz(num_qubits: int) -> QuantumCircuit:
    """The same with values."""
    circuit = ansatz(num_qubits)
    return circuit.assign_parameters(values_of(circuit, 1)[0])


def values_of(circuit: QuantumCircuit, sets: int) -> Any:
    """Values of a circuit's parameters, in radians, shape (sets, parameters)."""
    return np.random.default_rng(SEED).uniform(-np.pi, np.pi, (sets, circuit.num_parameters))


def chain(num_qubits: int) -> SparsePauliOp:
    """The Heisenberg chain: 3 (n - 1) products of two letters."""
    pairs = [(letter * 2, [q, q + 1], 1.0) for q in range(num_qubits - 1) for letter in "XYZ"]
    return SparsePauliOp.from_sparse_list(pairs, num_qubits)


def for_aer(circuit: QuantumCircuit, *, measured: bool) -> QuantumCircuit:
    """A circuit of Aer's gates."""
    ready = transpile(circuit, AerSimulator(), optimization_level=0)
    if measured:
        ready.measure_all()
    return ready


def even_share(result: Any) -> float:
    """The share of shots with an even number of ones."""
    bits = result[0].data.meas
    return float(np.mean(bits.bitcount() % 2 == 0))


def sampling_difference(ours: Any, aer: Any) -> tuple[float, float]:
    """The allowed and the found difference of two samples."""
    shots = ours[0].data.meas.bitcount().size
    allowed = STANDARD_ERRORS * sqrt(2 * 0.25 / shots)
    return allowed, abs(even_share(ours) - even_share(aer))


def estimate_difference(ours: Any, aer: Any) -> tuple[float, float]:
    """The allowed and the found difference of two lists of expectation values."""
    return TOLERANCE, float(np.abs(ours[0].data.evs - aer[0].data.evs).max())


def call(primitive: Any, pub: tuple[Any, ...]) -> Any:
    """Run one pub and wait for the result."""
    return primitive.run([pub]).result()


def sampling(name: str, circuit: QuantumCircuit, *values: Any) -> Task:
    """A task of the samplers."""
    pub = (for_aer(circuit, measured=True), *values)
    ours, aer = SamplerV2(default_shots=SHOTS), AerSampler(default_shots=SHOTS)
    return Task(f"sample {name}", partial(call, ours, pub), partial(call, aer, pub),
                sampling_difference)  # fmt: skip


def estimating(name: str, circuit: QuantumCircuit, *values: Any) -> Task:
    """A task of the estimators."""
    pub = (for_aer(circuit, measured=False), chain(circuit.num_qubits), *values)
    return Task(f"estimate {name}", partial(call, EstimatorV2(), pub),
                partial(call, AerEstimator(), pub), estimate_difference)  # fmt: skip


def tasks(num_qubits: int) -> Iterator[Task]:
    """All tasks of one width."""
    circuit = ansatz(num_qubits)
    values = values_of(circuit, SETS)
    yield sampling("ghz", ghz(num_qubits))
    yield sampling("qft", qft(num_qubits))
    yield sampling("ansatz", bound_ansatz(num_qubits))
    yield sampling("sweep", circuit, values)
    yield estimating("ghz", ghz(num_qubits))
    yield estimating("qft", qft(num_qubits))
    yield estimating("ansatz", bound_ansatz(num_qubits))
    yield estimating("sweep", circuit, values)


def check(task: Task) -> None:
    """Compare the results of both.

    Raises:
        WrongResultError: If they differ.
    """
    allowed, found = task.difference(task.ours(), task.aer())
    if not found <= allowed:
        raise WrongResultError(f"{task.name}: results differ by {found:g}")


def benchmark(arguments: argparse.Namespace, report: Report) -> None:
    """Time all tasks, both primitives in turn."""
    for num_qubits in arguments.qubits:
        comparisons = []
        for task in tasks(num_qubits):
            check(task)
            ours, aer = best_seconds([timed(task.ours), timed(task.aer)], arguments.repeats)
            comparisons.append(
                Comparison(task.name, num_qubits, {ENGINE: ours, AER: aer}, goals=GOAL)
            )
        report.add_comparisons(f"primitives on {num_qubits} qubits", comparisons)


if __name__ == "__main__":
    parser = argument_parser(__doc__, repeats=5)
    parser.add_argument("--qubits", type=partial(widths, 2, 26), default=[4, 12, 20])
    sys.exit(run(benchmark, parser.parse_args()))
