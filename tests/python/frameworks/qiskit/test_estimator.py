"""The estimator's values are those of Aer and of Qiskit."""

from __future__ import annotations

import numpy as np
import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from nimbrel.qiskit import EstimatorV2
from qiskit import QuantumCircuit
from qiskit.circuit import Parameter
from qiskit.primitives import StatevectorEstimator
from qiskit.quantum_info import SparsePauliOp

from support.qiskit_primitive_circuits import observables, standard, unitary_circuits

CIRCUITS = unitary_circuits()


@pytest.mark.parametrize("name", CIRCUITS)
def test_beside_aer(name: str) -> None:
    aer = pytest.importorskip("qiskit_aer.primitives")
    circuit = standard(CIRCUITS[name])
    pub = (circuit, observables(circuit.num_qubits))
    ours = EstimatorV2().run([pub]).result()[0].data
    theirs = aer.EstimatorV2().run([pub]).result()[0].data
    np.testing.assert_allclose(ours.evs, theirs.evs, rtol=0, atol=1e-10)
    assert not ours.stds.any()


def two_angles() -> QuantumCircuit:
    circuit = QuantumCircuit(2)
    circuit.ry(Parameter("a"), 0)
    circuit.cx(0, 1)
    circuit.rx(Parameter("b"), 1)
    return circuit


def test_values_and_observables_are_broadcast() -> None:
    values = np.random.default_rng(1).uniform(-3, 3, (4, 1, 2))
    pub = (two_angles(), [[SparsePauliOp("ZZ"), SparsePauliOp(["XI", "IY"], [0.5, 2])]], values)
    ours = EstimatorV2().run([pub]).result()[0].data.evs
    reference = StatevectorEstimator().run([pub]).result()[0].data.evs
    assert ours.shape == (4, 2)
    np.testing.assert_allclose(ours, reference, rtol=0, atol=1e-12)


def test_projectors_in_an_observable() -> None:
    values = [0.7, 0.4]
    labels = {"0+": ["II", "ZI", "IX", "ZX"], "r1": ["II", "YI", "IZ", "YZ"]}
    signs = {"0+": [1, 1, 1, 1], "r1": [1, 1, -1, -1]}
    pubs = [(two_angles(), {label: 2.0}, values) for label in labels]
    sums = [
        (two_angles(), SparsePauliOp(labels[key], 0.5 * np.array(signs[key])), values)
        for key in labels
    ]
    for ours, expected in zip(
        EstimatorV2().run(pubs).result(), StatevectorEstimator().run(sums).result(), strict=True
    ):
        assert ours.data.evs == pytest.approx(float(expected.data.evs), abs=1e-12)


def test_a_precision_adds_noise_of_that_width() -> None:
    pub = (two_angles(), "ZZ", np.full((400, 2), 0.3))
    exact = EstimatorV2().run([pub]).result()[0].data.evs
    noisy = EstimatorV2(seed=5).run([pub], precision=0.1).result()[0]
    assert (noisy.data.stds == 0.1).all()
    deviations = (noisy.data.evs - exact) / 0.1
    assert abs(deviations.mean()) < 5 / 400**0.5
    assert abs(deviations.std() - 1) < 5 / 800**0.5
    again = EstimatorV2(seed=5, default_precision=0.1).run([pub]).result()[0]
    assert (again.data.evs == noisy.data.evs).all()


def test_a_wide_clifford_circuit() -> None:
    circuit = QuantumCircuit(80)
    circuit.h(0)
    for qubit in range(79):
        circuit.cx(qubit, qubit + 1)
    evs = EstimatorV2().run([(circuit, ["X" * 80, "Z" * 80, "Z" + "I" * 79])]).result()[0].data.evs
    np.testing.assert_allclose(evs, [1.0, 1.0, 0.0], rtol=0, atol=1e-12)


def test_initialised_qubits() -> None:
    circuit = QuantumCircuit(1)
    circuit.initialize([0.6, 0.8], 0)
    assert EstimatorV2().run([(circuit, "Z")]).result()[0].data.evs == pytest.approx(-0.28)


def test_metadata() -> None:
    circuit = QuantumCircuit(1, metadata={"made": "here"})
    result = EstimatorV2().run([(circuit, "Z")], precision=0.5).result()
    assert result[0].metadata == {
        "target_precision": 0.5,
        "circuit_metadata": {"made": "here"},
    }
