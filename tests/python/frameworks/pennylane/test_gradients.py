"""Gradients: the adjoint method and the parameter shift against PennyLane's own device."""

from __future__ import annotations

import random
import warnings
from collections.abc import Callable
from typing import Any

import hypothesis
import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

pytest.importorskip("pennylane")

from support.pennylane_circuits import (
    WIRES,
    nimbrel_device,
    qml,
    random_vector,
    reference_device,
)

TIGHT: Any = {"rtol": 0, "atol": 1e-11}
TURNING = [name for name in WIRES if getattr(qml, name).num_params]


def trainable(values: Any) -> Any:
    return qml.numpy.array(values, requires_grad=True)


def jacobian(circuit: Callable[..., Any], device: Any, method: str, *values: Any) -> Any:
    node = qml.QNode(circuit, device, diff_method=method)
    with warnings.catch_warnings():
        if method == "backprop":  # which drops zero imaginary parts
            warnings.simplefilter("ignore", np.exceptions.ComplexWarning)
        return qml.jacobian(lambda *args: qml.numpy.stack(node(*args)))(*values)


def assert_adjoint(circuit: Callable[..., Any], wires: int, *values: Any) -> None:
    ours = jacobian(circuit, nimbrel_device(wires), "adjoint", *values)
    reference = jacobian(circuit, reference_device(wires), "backprop", *values)
    for own, expected in zip(np.atleast_1d(ours), np.atleast_1d(reference), strict=True):
        np.testing.assert_allclose(own, expected, **TIGHT)


def scrambled(wires: int, angle: float) -> None:
    for wire in range(wires):
        qml.RY(angle + wire, wire)
        qml.RZ(angle * wire, wire)
    for wire in range(wires - 1):
        qml.CNOT([wire, wire + 1])


@pytest.mark.parametrize("name", TURNING)
def test_every_gate_with_angles(name: str, rng: random.Random) -> None:
    kind = getattr(qml, name)
    count, wires = kind.num_params, WIRES[name]
    chosen = rng.sample(range(wires), wires)

    def circuit(angles: Any) -> Any:
        scrambled(6, 0.4)
        kind(*angles, wires=chosen)
        qml.adjoint(kind(*(2 * angles), wires=chosen))
        qml.ctrl(kind(*angles, wires=chosen), [4, 5], control_values=[0, 1])
        scrambled(6, 0.9)
        return qml.expval(qml.X(0) @ qml.Z(1)), qml.expval(qml.Y(5) + 0.3 * qml.Z(0))

    assert_adjoint(circuit, 6, trainable([rng.uniform(-3, 3) for _ in range(count)]))


def test_pauli_rotations_and_global_phases() -> None:
    def circuit(x: Any, y: Any) -> Any:
        scrambled(3, 0.4)
        qml.PauliRot(x, "XYZ", [2, 0, 1])
        qml.ctrl(qml.PauliRot(y, "YX", [0, 2]), 1)
        qml.GlobalPhase(x * y)
        qml.ctrl(qml.GlobalPhase(x), [1, 2], control_values=[1, 0])
        qml.ctrl(qml.PauliRot(y, "II", [0, 2]), 1)
        scrambled(3, 0.8)
        return qml.expval(qml.X(0)), qml.expval(qml.Y(2))

    assert_adjoint(circuit, 3, trainable(0.7), trainable(-0.4))


OBSERVABLES: dict[str, Callable[[], Any]] = {
    "Pauli": lambda: qml.Y(1),
    "identity": lambda: qml.Identity(1),
    "Hamiltonian": lambda: qml.dot(
        [0.3, -1.2, 500.0, 0.2], [qml.X(0) @ qml.Y(1), qml.Z(2), qml.Identity(), qml.Y(2)]
    ),
    "Hermitian": lambda: qml.Hermitian(np.array([[1, 2j], [-2j, 0.5]]), 2),
    "projector": lambda: qml.Projector([1, 0], [2, 0]),
    "mixed sum": lambda: 0.5 * qml.Projector([1], [2]) + qml.X(0) @ qml.X(1),
}


@pytest.mark.parametrize("name", OBSERVABLES)
def test_observables(name: str) -> None:
    def circuit(angles: Any) -> Any:
        scrambled(3, 0.4)
        for wire in range(3):
            qml.RX(angles[wire], wire)
        scrambled(3, 0.6)
        return (qml.expval(OBSERVABLES[name]()),)

    assert_adjoint(circuit, 3, trainable([0.1, -0.5, 2.0]))


@hypothesis.settings(max_examples=15)
@given(
    angles=st.lists(st.floats(-7, 7), min_size=4, max_size=12),
    num_wires=st.integers(2, 5),
    num_results=st.integers(1, 3),
)
def test_layers(angles: list[float], num_wires: int, num_results: int) -> None:
    def circuit(values: Any) -> Any:
        for place in range(len(angles)):
            qml.RY(values[place], place % num_wires)
            qml.PhaseShift(0.3 * values[place], (place + 1) % num_wires)
            qml.CZ([place % num_wires, (place + 1) % num_wires])
        return tuple(qml.expval(qml.X(wire % num_wires)) for wire in range(num_results))

    assert_adjoint(circuit, num_wires, trainable(angles))


def test_a_register_that_is_divided_into_blocks() -> None:
    def circuit(angles: Any) -> Any:
        for wire in range(13):
            qml.Hadamard(wire)
            qml.X(wire)
            qml.RY(angles[wire], wire)
        for wire in range(12):
            qml.CNOT([wire + 1, wire])
        qml.RX(angles[0], 0)
        qml.X(0)
        qml.RZ(angles[1], 0)
        return (qml.expval(qml.X(0) @ qml.Z(12) + qml.Y(6)),)

    assert_adjoint(circuit, 13, trainable(np.linspace(-2, 2, 13)))


def test_a_prepared_state_stays_and_a_trainable_one_is_decomposed() -> None:
    state = random_vector("prepared", 2)

    def circuit(angle: Any) -> Any:
        qml.StatePrep(state, wires=[0, 1])
        qml.CRX(angle, [0, 1])
        return (qml.expval(qml.Y(1)),)

    assert_adjoint(circuit, 2, trainable(0.3))


def test_a_norm_that_is_not_one() -> None:
    def circuit(angle: Any) -> Any:
        qml.StatePrep(np.array([1.0, 1.0]), wires=[0], validate_norm=False)
        qml.RZ(angle, 0)
        return (qml.expval(qml.Y(0)),)

    assert_adjoint(circuit, 1, trainable(0.3))


def test_only_trainable_parameters_count() -> None:
    def circuit(first: Any, second: Any) -> Any:
        qml.RX(first, 0)
        qml.Rot(0.1, second, first, wires=0)
        return (qml.expval(qml.Z(0)),)

    fixed = qml.numpy.array(0.4, requires_grad=False)
    ours = jacobian(circuit, nimbrel_device(1), "adjoint", fixed, trainable(0.2))
    reference = jacobian(circuit, reference_device(1), "backprop", fixed, trainable(0.2))
    np.testing.assert_allclose(ours, reference, **TIGHT)


def test_a_batch_of_parameters() -> None:
    def circuit(angles: Any) -> Any:
        qml.RX(angles, 0)
        qml.CNOT([0, 1])
        return qml.expval(qml.Z(1))

    def total(device: Any, method: str) -> Any:
        node = qml.QNode(circuit, device, diff_method=method)
        return qml.jacobian(node)(trainable([0.1, 0.5, 1.5]))

    np.testing.assert_allclose(
        total(nimbrel_device(2), "adjoint"), total(reference_device(2), "backprop"), **TIGHT
    )


METHODS = {
    "adjoint": 1e-12,
    "best": 1e-12,
    "parameter-shift": 1e-12,
    "finite-diff": 1e-5,
    "hadamard": 1e-12,
}


@pytest.mark.parametrize("method", METHODS)
def test_methods(method: str) -> None:
    def circuit(angles: Any) -> Any:
        qml.RX(angles[0], 0)
        qml.CRY(angles[1], [0, 1])
        qml.IsingXX(angles[2], [0, 1])
        return qml.expval(qml.Z(0) @ qml.Z(1) + qml.X(1))

    angles = trainable([0.3, -0.8, 1.4])
    hadamard = method == "hadamard"
    options = {"gradient_kwargs": {"aux_wire": "spare"}} if hadamard else {}
    device = nimbrel_device([0, 1, "spare"] if hadamard else 2)
    gradient = qml.grad(qml.QNode(circuit, device, diff_method=method, **options))(angles)
    node = qml.QNode(circuit, reference_device(2), diff_method="backprop")
    np.testing.assert_allclose(gradient, qml.grad(node)(angles), rtol=0, atol=METHODS[method])


def test_the_best_method_is_the_adjoint_where_it_exists() -> None:
    device = nimbrel_device(1)
    script = qml.tape.QuantumScript
    rotation = qml.RX(trainable(0.3), 0)
    config = qml.devices.ExecutionConfig(gradient_method="best")
    assert device.supports_derivatives(config, script([rotation], [qml.expval(qml.Z(0))]))
    assert not device.supports_derivatives(config, script([rotation], [qml.probs(wires=0)]))
    assert not device.supports_derivatives(
        config, script([rotation], [qml.expval(qml.Z(0))], shots=10)
    )


def test_a_second_derivative() -> None:
    def circuit(angle: Any) -> Any:
        qml.RX(angle, 0)
        return qml.expval(qml.Z(0))

    node = qml.QNode(circuit, nimbrel_device(1), diff_method="parameter-shift", max_diff=2)
    assert qml.grad(qml.grad(node))(trainable(0.4)) == pytest.approx(-np.cos(0.4))


def test_gradients_from_shots() -> None:
    def circuit(angle: Any) -> Any:
        qml.RX(angle, 0)
        return qml.expval(qml.Z(0))

    node = qml.QNode(circuit, nimbrel_device(1, seed=5), diff_method="parameter-shift")
    gradient = qml.grad(qml.set_shots(node, shots=10_000))(trainable(0.4))
    assert abs(gradient + np.sin(0.4)) <= 5 / np.sqrt(10_000)
