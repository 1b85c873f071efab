"""Every gate that the device runs without a decomposition has PennyLane's matrix."""

from __future__ import annotations

import random
from typing import Any

import numpy as np
import pytest

pytest.importorskip("pennylane")

from support.pennylane_circuits import WIRES, nimbrel_device, qml, random_gate, random_vector

QUBITS = 6
CONTROLS = (4, 5)
TIGHT: Any = {"rtol": 0, "atol": 1e-14}

preprocess: Any = pytest.importorskip("nimbrel.pennylane.preprocess")


def with_phase(op: Any) -> list[Any]:
    """The gate, its inverse, and both with controls."""
    inverse = qml.ops.Adjoint(op)
    return [
        op,
        inverse,
        *(qml.ops.Controlled(each, CONTROLS[:1]) for each in (op, inverse)),
        *(qml.ops.Controlled(each, CONTROLS, control_values=[0, 1]) for each in (op, inverse)),
        qml.ops.Adjoint(qml.ops.Controlled(inverse, CONTROLS, control_values=[0, 0])),
    ]


def assert_matrix(op: Any, name: str) -> None:
    assert preprocess.accepts_operation(op), f"{op} is decomposed"
    state = random_vector(name, QUBITS)
    tape = qml.tape.QuantumScript([qml.StatePrep(state, range(QUBITS)), op], [qml.state()])
    expected = qml.matrix(op, wire_order=range(QUBITS)) @ state
    np.testing.assert_allclose(nimbrel_device(QUBITS).execute(tape), expected, **TIGHT)


@pytest.mark.parametrize("name", WIRES)
def test_gates_and_their_variants(name: str, rng: random.Random) -> None:
    for op in with_phase(random_gate(rng, name, range(4))):
        assert_matrix(op, name)


@pytest.mark.parametrize("word", ["X", "ZY", "XYZ", "IXI", "III", "YYYY"])
def test_pauli_rotations(word: str, rng: random.Random) -> None:
    wires = rng.sample(range(4), len(word))
    for op in with_phase(qml.PauliRot(rng.uniform(-7, 7), word, wires)):
        assert_matrix(op, word)


def test_a_global_phase_counts_under_controls(rng: random.Random) -> None:
    for op in with_phase(qml.GlobalPhase(rng.uniform(-7, 7))):
        assert_matrix(op, "phase")


UNITARIES = {
    "identity": np.eye(2) * 1j,
    "X": [[0, 1], [1, 0]],
    "Y": [[0, -1j], [1j, 0]],
    "H": np.array([[1, 1], [1, -1]]) / 2**0.5,
    "nearly X": [[1e-9, 1], [1, -1e-9]],
    "nearly Z": [[1, 1e-9], [1e-9, -1]],
}


@pytest.mark.parametrize("name", UNITARIES)
def test_unitaries_on_one_wire(name: str) -> None:
    for op in with_phase(qml.QubitUnitary(UNITARIES[name], 2)):
        assert_matrix(op, name)


def test_multi_controlled_x(rng: random.Random) -> None:
    for values in ([1, 1, 1, 1, 1], [0, 1, 0, 0, 1], [0, 0, 0, 0, 0]):
        wires = rng.sample(range(QUBITS), QUBITS)
        assert_matrix(qml.MultiControlledX(wires=wires, control_values=values), str(values))
