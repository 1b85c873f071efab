"""Initialised qubits have the state that was asked for, whatever they were before."""

from __future__ import annotations

import numpy as np
import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from nimbrel.qiskit import from_circuit, to_statevector
from qiskit import QuantumCircuit
from qiskit.quantum_info import Statevector, random_statevector

from support.qiskit_door import outcomes_of

STATES = {
    "random": random_statevector(16, seed=3).data,
    "real": np.array([0.5, -0.5, 0.1, np.sqrt(0.49)]),
    "one term": np.array([0, 0, 0, 1j]),
    "GHZ": np.array([1, 0, 0, 0, 0, 0, 0, -1j]) / np.sqrt(2),
    "product": np.kron([0.6, 0.8j], np.kron([1, 1j], [0.8, -0.6])) / np.sqrt(2),
    "one qubit": np.array([0.6, -0.8]),
}


@pytest.mark.parametrize("name", STATES)
def test_the_state(name: str) -> None:
    state = STATES[name]
    num_qubits = len(state).bit_length() - 1
    for prepare in (QuantumCircuit.initialize, QuantumCircuit.prepare_state):
        circuit = QuantumCircuit(num_qubits)
        prepare(circuit, state, range(num_qubits))
        np.testing.assert_allclose(to_statevector(circuit).data, state, rtol=0, atol=1e-12)


def test_a_product_state_takes_two_records_a_qubit() -> None:
    circuit = QuantumCircuit(3)
    circuit.initialize(STATES["product"], range(3))
    assert len(from_circuit(circuit).program) <= 1 + 2 * 3


def test_on_some_qubits_in_another_order() -> None:
    circuit = QuantumCircuit(4)
    circuit.h(2)
    circuit.initialize(STATES["GHZ"], [3, 0, 1])
    np.testing.assert_allclose(
        to_statevector(circuit).data, Statevector(circuit).data, rtol=0, atol=1e-12
    )


def test_letters_and_a_number() -> None:
    circuit = QuantumCircuit(6)
    circuit.initialize("01+-rl")
    np.testing.assert_allclose(
        to_statevector(circuit).data, Statevector.from_label("01+-rl").data, rtol=0, atol=1e-12
    )
    circuit = QuantumCircuit(3)
    circuit.initialize(6, range(3))
    assert to_statevector(circuit).probabilities_dict() == {"110": pytest.approx(1.0)}


def test_used_qubits_are_reset_first() -> None:
    circuit = QuantumCircuit(2, 2)
    circuit.h([0, 1])
    circuit.initialize(2, [0, 1])
    circuit.measure([0, 1], [0, 1])
    assert outcomes_of(circuit) == {"10"}


def test_a_loop_resets_the_qubits_in_each_round() -> None:
    circuit = QuantumCircuit(1, 1)
    with circuit.for_loop(range(3)):
        circuit.initialize([0, 1], 0)
        circuit.x(0)
    circuit.measure(0, 0)
    assert outcomes_of(circuit) == {"0"}
