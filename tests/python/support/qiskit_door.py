"""Circuits through nimbrel.qiskit, beside Qiskit's own operators and Aer's counts."""

from __future__ import annotations

from collections import Counter
from typing import Any

import nimbrel as nb
import numpy as np
import numpy.typing as npt
import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from nimbrel.qiskit import NimbrelBackend, from_circuit
from qiskit import QuantumCircuit
from qiskit.quantum_info import Operator

Matrix = npt.NDArray[np.complex128]

SHOTS = 2000
STANDARD_ERRORS = 5.0


def matrix_of(circuit: QuantumCircuit, **options: Any) -> Matrix:
    """The unitary matrix of the circuit's program, its global phase included."""
    converted = from_circuit(circuit, **options)
    n = circuit.num_qubits
    matrix = np.zeros((1 << n, 1 << n), dtype=np.complex128)
    with nb.DenseSimulator() as simulator:
        for column in range(1 << n):
            start = nb.write(range(n), column)
            simulator.run(nb.reset(n), start, converted.program[1:])
            matrix[:, column] = simulator.state()
    turn: complex = np.exp(1j * converted.global_phase)
    return matrix * turn


def gate_circuit(gate: Any, qubits: list[int] | None = None) -> QuantumCircuit:
    """A circuit of one gate; its qubits are in falling order unless they are given."""
    places = list(range(gate.num_qubits))[::-1] if qubits is None else qubits
    circuit = QuantumCircuit(max(places) + 1)
    circuit.append(gate, places)
    return circuit


def assert_same_operator(circuit: QuantumCircuit, expected: Any = None, **options: Any) -> None:
    """The program's matrix is that of the circuit, the global phase included."""
    wanted = Operator(circuit if expected is None else expected).data
    np.testing.assert_allclose(matrix_of(circuit, **options), wanted, rtol=0, atol=1e-10)


def assert_equal_up_to_phase(actual: Any, expected: Any, tolerance: float = 1e-9) -> None:
    """Two states of norm 1 are equal but for a factor."""
    overlap = abs(np.vdot(actual, expected))
    assert overlap == pytest.approx(1.0, abs=tolerance)


def counts_of(circuit: QuantumCircuit, **options: Any) -> Counter[str]:
    """The counts of a circuit on the backend."""
    chosen = {"shots": SHOTS, "seed_simulator": 11, **options}
    return Counter(NimbrelBackend().run(circuit, **chosen).result().get_counts())


def outcomes_of(circuit: QuantumCircuit, shots: int = 50) -> set[str]:
    """The outcomes that occur."""
    return set(counts_of(circuit, shots=shots, seed_simulator=None))


def aer_counts(circuit: QuantumCircuit, seed: int = 5) -> Counter[str]:
    """The counts of a circuit by Aer."""
    aer = pytest.importorskip("qiskit_aer")
    from qiskit import transpile

    backend = aer.AerSimulator(seed_simulator=seed)
    ready = transpile(circuit, backend, optimization_level=0)
    return Counter(backend.run(ready, shots=SHOTS).result().get_counts())


def assert_same_distribution(actual: Counter[str], expected: Counter[str]) -> None:
    """Every outcome is as frequent in both within five standard errors."""
    shots, other_shots = actual.total(), expected.total()
    for outcome in set(actual) | set(expected):
        share = (actual[outcome] + expected[outcome]) / (shots + other_shots)
        error = np.sqrt(share * (1 - share) * (1 / shots + 1 / other_shots))
        difference = abs(actual[outcome] / shots - expected[outcome] / other_shots)
        assert difference <= STANDARD_ERRORS * error + 1e-12, outcome
