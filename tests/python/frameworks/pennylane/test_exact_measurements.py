"""Exact results of measurements are those of PennyLane's own device."""

from __future__ import annotations

import random
from collections.abc import Callable
from typing import Any

import numpy as np
import pytest

pytest.importorskip("pennylane")

from support.pennylane_circuits import (
    both_results,
    nimbrel_device,
    qml,
    random_operations,
    seeded,
)

TIGHT: Any = {"rtol": 0, "atol": 1e-12}


def hermitian(size: int) -> Any:
    rng = seeded("hermitian")
    matrix = rng.normal(size=(size, size)) + 1j * rng.normal(size=(size, size))
    return matrix + matrix.conj().T


def hamiltonian() -> Any:
    terms = [
        qml.X(0) @ qml.Y(1),
        qml.Z(3),
        qml.Identity(),
        qml.Y(2) @ qml.Y(0),
        qml.Z(0) @ qml.Z(1),
    ]
    return qml.dot([0.3, -1.2, 0.8, 2.0, 0.1], terms)


def mixed_sum() -> Any:
    return 0.5 * qml.Hermitian(hermitian(4), [2, 1]) + qml.Projector([1, 0], [0, 3]) + qml.X(1)


SPARSE = hamiltonian().sparse_matrix(range(4))
MEASUREMENTS: dict[str, Callable[[], Any]] = {
    "Pauli": lambda: qml.expval(qml.Y(2)),
    "identity": lambda: qml.expval(qml.Identity(1)),
    "product": lambda: qml.expval(qml.X(0) @ qml.Y(3) @ qml.Z(1)),
    "product with a repeated wire": lambda: qml.expval(qml.X(0) @ qml.Y(0) @ qml.Z(0) * 1j),
    "multiple": lambda: qml.expval(-2.5 * qml.Z(0)),
    "Hamiltonian": lambda: qml.expval(hamiltonian()),
    "Hadamard": lambda: qml.expval(qml.Hadamard(1)),
    "Hermitian": lambda: qml.expval(qml.Hermitian(hermitian(4), [3, 0])),
    "projector": lambda: qml.expval(qml.Projector([1, 0], [2, 1])),
    "sum of all kinds": lambda: qml.expval(mixed_sum()),
    "sparse": lambda: qml.expval(qml.SparseHamiltonian(SPARSE, wires=range(4))),
    "variance": lambda: qml.var(qml.X(1)),
    "variance of a multiple": lambda: qml.var(3 * (qml.X(1) @ qml.Z(2))),
    "variance of a sum": lambda: qml.var(qml.X(1) + qml.Z(1)),
    "variance of a Hermitian": lambda: qml.var(qml.Hermitian(hermitian(2), 2)),
    "variance of the identity": lambda: qml.var(qml.Identity(0)),
    "probabilities": lambda: qml.probs(),
    "probabilities of some wires": lambda: qml.probs(wires=[3, 0]),
    "probabilities in a basis": lambda: qml.probs(op=qml.X(1) @ qml.Hadamard(2)),
    "state": lambda: qml.state(),
    "density matrix": lambda: qml.density_matrix([2, 0]),
    "purity": lambda: qml.purity([1]),
    "entropy": lambda: qml.vn_entropy([0, 1]),
    "mutual information": lambda: qml.mutual_info([0], [2, 3]),
}


@pytest.mark.parametrize("name", MEASUREMENTS)
def test_one_measurement(name: str, rng: random.Random) -> None:
    operations = random_operations(rng, range(4), 20)

    def circuit() -> Any:
        for op in operations:
            qml.apply(op)
        return MEASUREMENTS[name]()

    ours, reference = both_results(circuit, 4)
    np.testing.assert_allclose(ours, reference, **TIGHT)
    assert np.shape(ours) == np.shape(reference)


def test_all_measurements_of_one_circuit(rng: random.Random) -> None:
    operations = random_operations(rng, range(4), 20)

    def circuit() -> Any:
        for op in operations:
            qml.apply(op)
        return [make() for make in MEASUREMENTS.values()]

    ours, reference = both_results(circuit, 4)
    for name, own, expected in zip(MEASUREMENTS, ours, reference, strict=True):
        np.testing.assert_allclose(own, expected, err_msg=name, **TIGHT)


def test_an_unnormalised_preparation_counts_with_its_norm() -> None:
    preparation = qml.StatePrep(np.array([0.5, 0.5j]), 0, validate_norm=False)
    processes = [qml.expval(qml.Y(0)), qml.expval(qml.Identity(0)), qml.probs(wires=0)]
    values = nimbrel_device(1).execute(qml.tape.QuantumScript([preparation], processes))
    np.testing.assert_allclose(values[0], 0.5, **TIGHT)
    np.testing.assert_allclose(values[1], 0.5, **TIGHT)
    np.testing.assert_allclose(values[2], [0.25, 0.25], **TIGHT)


def test_observables_on_a_register_that_is_divided_into_blocks(rng: random.Random) -> None:
    operations = random_operations(rng, range(14), 40)

    def circuit() -> Any:
        for op in operations:
            qml.apply(op)
        return (
            qml.expval(qml.X(0) @ qml.Y(13)),
            qml.expval(qml.Hermitian(hermitian(4), [0, 7])),
            qml.var(qml.Z(0)),
            qml.probs(wires=[13, 0]),
        )

    for own, expected in zip(*both_results(circuit, 14), strict=True):
        np.testing.assert_allclose(own, expected, **TIGHT)
