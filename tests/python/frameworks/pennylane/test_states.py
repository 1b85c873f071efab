"""Circuits end in the state that PennyLane's own device computes."""

from __future__ import annotations

import random
from collections.abc import Sequence
from typing import Any

import hypothesis
import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

pytest.importorskip("pennylane")

from support.pennylane_circuits import (
    both_results,
    nimbrel_device,
    qml,
    random_operations,
    random_vector,
    reference_device,
)

TIGHT: Any = {"rtol": 0, "atol": 1e-12}


def assert_same_state(operations: Sequence[Any], wires: Any) -> None:
    def circuit() -> Any:
        for op in operations:
            qml.apply(op)
        return qml.state()

    ours, reference = both_results(circuit, wires)
    np.testing.assert_allclose(ours, reference, **TIGHT)


@hypothesis.settings(max_examples=40)
@given(seed=st.integers(0, 2**31), num_wires=st.integers(1, 6))
def test_random_circuits(seed: int, num_wires: int) -> None:
    wires = range(num_wires)
    assert_same_state(random_operations(random.Random(seed), wires, 25), wires)


def test_a_register_that_is_divided_into_blocks(rng: random.Random) -> None:
    wires = range(14)
    assert_same_state(random_operations(rng, wires, 60), wires)


@pytest.mark.parametrize("wires", [["a", 7, "b"], [3, 1, 2], None])
def test_labels_and_their_order(wires: Any, rng: random.Random) -> None:
    labels = wires or ["q", 5, 0]
    assert_same_state([qml.Hadamard(labels[0]), *random_operations(rng, labels, 20)], wires)


def test_wires_that_no_operation_uses() -> None:
    assert_same_state([qml.RY(0.3, 2)], 4)


def test_a_prepared_state_on_some_wires(rng: random.Random) -> None:
    state = random_vector("prepared", 2)
    rest = random_operations(rng, range(4), 10)
    assert_same_state([qml.StatePrep(state, [2, 0]), *rest], 4)


def test_a_prepared_basis_state(rng: random.Random) -> None:
    rest = random_operations(rng, range(3), 10)
    assert_same_state([qml.BasisState([1, 0, 1], [0, 1, 2]), *rest], 3)


def test_a_state_that_is_prepared_later(rng: random.Random) -> None:
    before = [qml.Hadamard(2)]
    later = qml.StatePrep(random_vector("later", 2), [0, 1])
    assert_same_state([*before, later, *random_operations(rng, range(3), 5)], 3)


DECOMPOSED = {
    "QFT": lambda: qml.QFT(wires=range(4)),
    "adjoint QFT": lambda: qml.adjoint(qml.QFT)(wires=range(4)),
    "controlled QFT": lambda: qml.ctrl(qml.QFT(wires=[0, 1, 2]), 3),
    "ECR": lambda: qml.ECR([1, 2]),
    "orbital rotation": lambda: qml.OrbitalRotation(0.7, [3, 1, 0, 2]),
    "Trotter product": lambda: qml.TrotterProduct(qml.X(0) @ qml.Z(1) + qml.Y(2), 0.4, n=2),
    "exponential": lambda: qml.exp(qml.Z(0) @ qml.X(3), -0.3j),
    "power": lambda: qml.pow(qml.SX(0), 3),
    "two-wire unitary": lambda: qml.QubitUnitary(qml.IsingXY(0.4, [0, 1]).matrix(), [2, 0]),
    "three-wire unitary": lambda: qml.QubitUnitary(
        qml.matrix(qml.QFT(range(3))) @ qml.matrix(qml.Toffoli(range(3))), [2, 0, 3]
    ),
    "diagonal unitary": lambda: qml.DiagonalQubitUnitary(np.exp(1j * np.arange(8)), [0, 1, 2]),
    "Grover operator": lambda: qml.GroverOperator(range(4)),
    "permutation": lambda: qml.Permute([2, 0, 1], [0, 1, 2]),
    "block encoding": lambda: qml.BlockEncode(np.array([[0.1, 0.2], [0.3, 0.4]]), [0, 1]),
}


@pytest.mark.parametrize("name", DECOMPOSED)
def test_operations_that_are_decomposed(name: str, rng: random.Random) -> None:
    before = random_operations(rng, range(4), 8)
    assert_same_state([*before, DECOMPOSED[name]()], 4)


def test_parameters_in_a_batch() -> None:
    angles = np.linspace(-3, 3, 7)

    def circuit() -> Any:
        qml.RX(angles, 0)
        qml.CRY(angles / 2, [0, 1])
        qml.PauliRot(0.3, "XY", [0, 1])
        return qml.state()

    ours, reference = both_results(circuit, 2)
    assert ours.shape == (7, 4)
    np.testing.assert_allclose(ours, reference, **TIGHT)


def test_a_circuit_without_operations() -> None:
    assert_same_state([], 2)


def test_snapshots_are_those_of_the_states_between() -> None:
    def circuit() -> Any:
        qml.Hadamard(0)
        qml.Snapshot("one")
        qml.CNOT([0, 1])
        return qml.probs()

    with pytest.warns(UserWarning, match="a tape will be created for each snapshot"):
        ours = qml.snapshots(qml.QNode(circuit, nimbrel_device(2)))()
    reference = qml.snapshots(qml.QNode(circuit, reference_device(2)))()
    assert ours.keys() == reference.keys()
    for tag, value in reference.items():
        np.testing.assert_allclose(ours[tag], value, **TIGHT)


def test_one_device_serves_circuits_of_any_size() -> None:
    device = nimbrel_device()
    for num_wires in (1, 5, 2, 14, 3):
        operations = [*map(qml.Identity, range(num_wires)), qml.X(num_wires - 1)]
        state = device.execute(qml.tape.QuantumScript(operations, [qml.state()]))
        assert np.flatnonzero(state).tolist() == [1]
        assert state.shape == (1 << num_wires,)
