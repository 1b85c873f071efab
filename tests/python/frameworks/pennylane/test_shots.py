"""Results from shots: their form is that of PennyLane's own device, their values its own."""

from __future__ import annotations

import random
from collections.abc import Callable
from typing import Any

import numpy as np
import pytest

pytest.importorskip("pennylane")

from support.pennylane_circuits import nimbrel_device, qml, random_operations, reference_device

SHOTS = 20_000
# Each test draws with this seed, so a value outside the bound repeats.
SEED = 20250


def circuit_of(operations: Any, measure: Callable[[], Any]) -> Callable[[], Any]:
    def circuit() -> Any:
        for op in operations:
            qml.apply(op)
        return measure()

    return circuit


def drawn(circuit: Any, wires: Any, shots: Any = SHOTS, device: Any = nimbrel_device) -> Any:
    return qml.set_shots(qml.QNode(circuit, device(wires, seed=SEED)), shots=shots)()


def exact(circuit: Any, wires: Any) -> Any:
    return qml.QNode(circuit, reference_device(wires))()


def five_sigma(variance: Any, shots: int = SHOTS) -> Any:
    return 5 * np.sqrt(np.asarray(variance) / shots) + 1e-12


OBSERVABLES = {
    "X": lambda: qml.X(0),
    "Y": lambda: qml.Y(2),
    "product": lambda: qml.Y(1) @ qml.X(2),
    "Hadamard": lambda: qml.Hadamard(1),
    "Hermitian": lambda: qml.Hermitian(np.array([[1, 2j], [-2j, 0.5]]), 0),
    "projector": lambda: qml.Projector([1, 0], [2, 0]),
    "multiple": lambda: -1.5 * (qml.Z(0) @ qml.X(1)),
}


@pytest.mark.parametrize("name", OBSERVABLES)
def test_expectation_values(name: str, rng: random.Random) -> None:
    obs = OBSERVABLES[name]()
    operations = random_operations(rng, range(3), 15)
    value = drawn(circuit_of(operations, lambda: qml.expval(obs)), 3)
    mean, variance = exact(circuit_of(operations, lambda: (qml.expval(obs), qml.var(obs))), 3)
    assert abs(value - mean) <= five_sigma(variance)


def test_sums_take_each_term_from_a_basis_that_has_it(rng: random.Random) -> None:
    terms = [qml.X(0), qml.Y(0) @ qml.Y(1), qml.Z(2), qml.X(0) @ qml.Z(2), qml.Identity()]
    coefficients = [0.5, -1.0, 2.0, 0.25, 3.0]
    obs = qml.dot(coefficients, terms)
    operations = random_operations(rng, range(3), 15)
    value = drawn(circuit_of(operations, lambda: qml.expval(obs)), 3)
    mean = exact(circuit_of(operations, lambda: qml.expval(obs)), 3)
    # Terms of one group are correlated, so their deviations are added and not their squares.
    assert abs(value - mean) <= sum(abs(each) for each in coefficients) * five_sigma(1.0)


def test_a_sum_with_an_observable_that_is_no_pauli_product() -> None:
    obs = qml.Hermitian(np.array([[0, 1], [1, 0]]), 0) + 2 * qml.Z(1)
    value = drawn(circuit_of([qml.Hadamard(0), qml.X(1)], lambda: qml.expval(obs)), 2)
    assert value == pytest.approx(-1.0)


def test_variances(rng: random.Random) -> None:
    operations = random_operations(rng, range(3), 15)
    circuit = circuit_of(operations, lambda: qml.var(qml.Z(0) @ qml.X(1)))
    assert abs(drawn(circuit, 3) - exact(circuit, 3)) <= five_sigma(1.0)


def test_probabilities(rng: random.Random) -> None:
    operations = random_operations(rng, range(3), 15)
    circuit = circuit_of(operations, lambda: qml.probs(wires=[2, 0]))
    expected = exact(circuit, 3)
    assert (abs(drawn(circuit, 3) - expected) <= five_sigma(expected * (1 - expected))).all()


def test_counts_and_samples_agree_with_the_wires() -> None:
    operations = [qml.X(1), qml.Hadamard(2), qml.CNOT([2, 0])]
    counts, samples = drawn(
        circuit_of(operations, lambda: (qml.counts(wires=[0, 1]), qml.sample(wires=[2, 0, 1]))), 3
    )
    assert set(counts) == {"01", "11"}
    assert sum(counts.values()) == SHOTS
    assert abs(counts["01"] / SHOTS - 0.5) <= five_sigma(0.25)
    assert samples.shape == (SHOTS, 3)
    assert (samples[:, 0] == samples[:, 1]).all()
    assert (samples[:, 2] == 1).all()


def test_measurements_of_one_basis_come_from_the_same_shots() -> None:
    def measure() -> Any:
        return qml.sample(qml.Z(0)), qml.sample(wires=1), qml.sample(qml.Z(0) @ qml.Z(1))

    first, second, both = drawn(circuit_of([qml.Hadamard(0), qml.Hadamard(1)], measure), 2)
    np.testing.assert_array_equal(both, first * (1 - 2 * second.reshape(-1)))


FORMS: dict[str, Callable[[], Any]] = {
    "expectation value": lambda: qml.expval(qml.X(0)),
    "two": lambda: (qml.expval(qml.X(0)), qml.var(qml.Z(1))),
    "samples": lambda: qml.sample(),
    "samples of one wire": lambda: qml.sample(wires=1),
    "samples of an observable": lambda: qml.sample(qml.X(0) @ qml.X(1)),
    "probabilities and counts": lambda: (qml.probs(wires=0), qml.counts()),
    "counts of an observable": lambda: qml.counts(qml.Z(0)),
    "counts with those that are 0": lambda: qml.counts(all_outcomes=True),
    "sum": lambda: qml.expval(qml.X(0) + qml.Z(1)),
    "shadow": lambda: qml.classical_shadow(wires=[0, 1]),
}


def form(result: Any) -> Any:
    if isinstance(result, dict):
        return {key: type(value).__name__ for key, value in sorted(result.items())}
    if isinstance(result, (list, tuple)):
        return tuple(form(each) for each in result)
    return np.shape(result), np.asarray(result).dtype.kind


@pytest.mark.parametrize("shots", [5, 1, (3, 4), ((2, 3), 1)], ids=str)
@pytest.mark.parametrize("name", FORMS)
def test_forms(name: str, shots: Any) -> None:
    circuit = circuit_of([qml.X(0)], FORMS[name])
    ours = drawn(circuit, 2, shots)
    reference = drawn(circuit, 2, shots, reference_device)
    if name == "counts of an observable":
        reference, ours = repr(reference), repr(ours)
    assert form(ours) == form(reference)


def test_shots_of_a_batch_of_parameters() -> None:
    def circuit() -> Any:
        qml.RX(np.array([0.0, np.pi]), 0)
        return qml.expval(qml.Z(0)), qml.sample(wires=0)

    values, samples = drawn(circuit, 1, 10)
    np.testing.assert_allclose(values, [1, -1])
    assert samples.shape == drawn(circuit, 1, 10, reference_device)[1].shape


def test_shadow_expectation_values(rng: random.Random) -> None:
    obs = qml.X(0) @ qml.Y(1)
    operations = random_operations(rng, range(2), 10)
    value = drawn(circuit_of(operations, lambda: qml.shadow_expval(obs)), 2)
    mean = exact(circuit_of(operations, lambda: qml.expval(obs)), 2)
    assert abs(value - mean) <= five_sigma(9.0)  # a shadow of two letters is 9, -9 or 0


def test_a_seed_repeats_the_draws() -> None:
    def draws(seed: int) -> Any:
        circuit = circuit_of([qml.Hadamard(0), qml.Hadamard(1)], lambda: qml.sample())
        return qml.set_shots(qml.QNode(circuit, nimbrel_device(2, seed=seed)), shots=100)()

    np.testing.assert_array_equal(draws(7), draws(7))
    assert (draws(7) != draws(8)).any()


def test_the_global_seed_is_that_of_numpy() -> None:
    def draws() -> Any:
        np.random.seed(11)  # noqa: NPY002 - PennyLane's users seed this generator
        circuit = circuit_of([qml.Hadamard(0)], lambda: qml.sample())
        return qml.set_shots(qml.QNode(circuit, nimbrel_device(1)), shots=100)()

    np.testing.assert_array_equal(draws(), draws())
