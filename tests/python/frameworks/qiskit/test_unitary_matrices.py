"""Unitary matrices of any number of qubits, with and without structure."""

from __future__ import annotations

from typing import Any

import numpy as np
import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from nimbrel.qiskit import from_circuit
from qiskit import QuantumCircuit
from qiskit.circuit.library import UnitaryGate
from qiskit.quantum_info import Operator, random_unitary
from scipy.linalg import dft, expm

from support.qiskit_door import assert_same_operator, gate_circuit, matrix_of

SMALL_STEPS = (1.0, 1e-2, 1e-4, 1e-7, 1e-10, 1e-13, 1e-16)


def permutation(size: int) -> Any:
    return np.eye(size)[np.random.default_rng(5).permutation(size)]


def hermitian(size: int, seed: int) -> Any:
    entries = np.random.default_rng(seed).normal(size=(2, size, size))
    matrix = entries[0] + 1j * entries[1]
    return matrix + matrix.conj().T


STRUCTURED: dict[str, Any] = {
    "identity": np.eye(8),
    "phase": 1j * np.eye(8),
    "permutation": permutation(16),
    "diagonal": np.diag(np.exp(1j * np.arange(8) ** 2)),
    "Fourier": dft(16) / 4,
    "product": np.kron(random_unitary(2, seed=1), np.kron(np.eye(2), random_unitary(4, seed=2))),
    "controlled": np.kron(np.diag([1, 0]), np.eye(4))
    + np.kron(np.diag([0, 1]), random_unitary(4, seed=3)),
    "real": np.linalg.qr(np.random.default_rng(4).normal(size=(8, 8)))[0],
}


@pytest.mark.parametrize("num_qubits", [1, 2, 3, 4, 5, 6])
def test_random_matrices(num_qubits: int) -> None:
    assert_same_operator(gate_circuit(UnitaryGate(random_unitary(2**num_qubits, seed=num_qubits))))


@pytest.mark.parametrize("name", STRUCTURED)
def test_matrices_with_structure(name: str) -> None:
    assert_same_operator(gate_circuit(UnitaryGate(STRUCTURED[name])))


@pytest.mark.parametrize("name", ["identity", "permutation", "diagonal"])
@pytest.mark.parametrize("step", SMALL_STEPS)
def test_matrices_close_to_structure(name: str, step: float) -> None:
    matrix = STRUCTURED[name] @ expm(1j * step * hermitian(len(STRUCTURED[name]), 6))
    found = matrix_of(gate_circuit(UnitaryGate(matrix), list(range(len(matrix).bit_length() - 1))))
    np.testing.assert_allclose(found, matrix, rtol=0, atol=1e-12)


def test_structure_takes_few_records() -> None:
    for name, most in (("identity", 1), ("phase", 1), ("diagonal", 1 + 7)):
        circuit = gate_circuit(UnitaryGate(STRUCTURED[name]))
        assert len(from_circuit(circuit).program) <= most, name


def test_under_controls() -> None:
    matrix = random_unitary(8, seed=9)
    inner = QuantumCircuit(3)
    inner.append(UnitaryGate(matrix), [0, 1, 2])
    controlled = QuantumCircuit(4)
    controlled.append(inner.to_gate().control(1, ctrl_state=0, annotated=True), [3, 0, 1, 2])
    expected = np.kron(np.diag([1, 0]), matrix) + np.kron(np.diag([0, 1]), np.eye(8))
    assert_same_operator(controlled, Operator(expected))
