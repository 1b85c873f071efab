"""The sampler gives Qiskit's containers and the distributions that Aer gives."""

from __future__ import annotations

from collections import Counter

import numpy as np
import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from nimbrel.qiskit import ConversionError, SamplerV2
from qiskit import ClassicalRegister, QuantumCircuit, QuantumRegister
from qiskit.circuit import Gate, Parameter
from qiskit.primitives import BackendSamplerV2, StatevectorSampler

from support.qiskit_door import assert_same_distribution
from support.qiskit_primitive_circuits import standard, unitary_circuits

CIRCUITS = unitary_circuits()
SHOTS = 4000


def test_there_are_twenty_circuits() -> None:
    assert len(CIRCUITS) == 20


@pytest.mark.parametrize("name", CIRCUITS)
def test_beside_aer(name: str) -> None:
    aer = pytest.importorskip("qiskit_aer.primitives")
    circuit = standard(CIRCUITS[name]).measure_all(inplace=False)
    ours = SamplerV2(seed=3).run([circuit], shots=SHOTS).result()[0]
    theirs = aer.SamplerV2(seed=4).run([circuit], shots=SHOTS).result()[0]
    assert_same_distribution(
        Counter(ours.data.meas.get_counts()), Counter(theirs.data.meas.get_counts())
    )


def two_registers() -> QuantumCircuit:
    a, b = ClassicalRegister(3, "a"), ClassicalRegister(9, "b")
    circuit = QuantumCircuit(QuantumRegister(12), a, b)
    circuit.x([0, 2, 4, 11])
    circuit.measure(range(12), range(12))
    return circuit


def test_each_register_has_an_array() -> None:
    data = SamplerV2().run([two_registers()], shots=5).result()[0].data
    assert data.a.get_counts() == {"101": 5}
    assert data.b.get_counts() == {"100000010": 5}
    reference = StatevectorSampler().run([two_registers()], shots=5).result()[0].data
    assert (data.a.array == reference.a.array).all()
    assert (data.b.array == reference.b.array).all()


def test_registers_that_share_bits() -> None:
    whole = ClassicalRegister(4, "whole")
    reversed_bits = ClassicalRegister(name="back", bits=[whole[3], whole[1]])
    circuit = QuantumCircuit(QuantumRegister(4), whole, reversed_bits)
    circuit.x([0, 3])
    circuit.measure(range(4), range(4))
    data = SamplerV2().run([circuit], shots=2).result()[0].data
    assert data.whole.get_counts() == {"1001": 2}
    assert data.back.get_counts() == {"01": 2}


def test_values_are_broadcast() -> None:
    angle = Parameter("angle")
    circuit = QuantumCircuit(1)
    circuit.ry(angle, 0)
    circuit.measure_all()
    values = np.array([[[0.0], [np.pi]], [[np.pi], [0.0]], [[0.0], [0.0]]])
    data = SamplerV2().run([(circuit, values)], shots=20).result()[0].data
    assert data.meas.shape == (3, 2)
    assert data.meas.num_shots == 20
    ones = [[data.meas[i, j].get_int_counts().get(1, 0) for j in (0, 1)] for i in range(3)]
    assert ones == [[0, 20], [20, 0], [0, 0]]


def test_values_of_which_some_make_a_clifford_circuit() -> None:
    angle = Parameter("angle")
    circuit = QuantumCircuit(2)
    circuit.h(0)
    circuit.rz(angle, 0)
    circuit.h(0)
    circuit.measure_all()
    values = np.array([np.pi, 0.3, np.pi / 2])
    data = SamplerV2(seed=6).run([(circuit, values)], shots=SHOTS).result()[0].data
    shares = [data.meas[k].get_int_counts().get(1, 0) / SHOTS for k in range(3)]
    np.testing.assert_allclose(shares, np.sin(values / 2) ** 2, atol=5 * 0.5 / SHOTS**0.5)


def test_values_on_a_register_that_only_a_tableau_holds() -> None:
    angle = Parameter("angle")
    circuit = QuantumCircuit(50)
    circuit.h(range(50))
    circuit.rz(angle, range(50))
    circuit.h(range(50))
    circuit.measure_all()
    data = SamplerV2().run([(circuit, [np.pi, np.pi])], shots=3).result()[0].data
    assert data.meas.get_counts() == {"1" * 50: 6}


def test_several_pubs_with_their_own_shots() -> None:
    circuit = QuantumCircuit(1)
    circuit.measure_all()
    result = SamplerV2(default_shots=3).run([circuit, (circuit, None, 8)]).result()
    assert [pub.data.meas.num_shots for pub in result] == [3, 8]


def test_a_seed_repeats_the_outcomes_and_separates_the_pubs() -> None:
    circuit = QuantumCircuit(8)
    circuit.ry(1.0, range(8))
    circuit.measure_all()
    first, again = (SamplerV2(seed=9).run([circuit, circuit]).result() for _ in range(2))
    assert (first[0].data.meas.array == again[0].data.meas.array).all()
    assert (first[0].data.meas.array != first[1].data.meas.array).any()


def test_a_dynamic_circuit() -> None:
    circuit = QuantumCircuit(QuantumRegister(2), ClassicalRegister(2, "c"))
    circuit.h(0)
    circuit.measure(0, 0)
    with circuit.if_test((circuit.clbits[0], 1)):
        circuit.x(1)
    circuit.measure(1, 1)
    counts = SamplerV2().run([circuit], shots=200).result()[0].data.c.get_counts()
    assert set(counts) == {"00", "11"}


def test_metadata() -> None:
    circuit = QuantumCircuit(1, metadata={"made": "here"})
    circuit.measure_all()
    result = SamplerV2().run([circuit], shots=3).result()
    assert result.metadata == {"version": 2}
    assert result[0].metadata == {"shots": 3, "circuit_metadata": {"made": "here"}}


def test_a_refused_circuit() -> None:
    circuit = QuantumCircuit(1)
    circuit.append(Gate("magic", 1, []), [0])
    circuit.measure_all()
    with pytest.raises(ConversionError, match=r"operation 0 \(magic\)"):
        SamplerV2().run([circuit]).result()


def test_qiskits_own_sampler_takes_the_backend() -> None:
    from nimbrel.qiskit import NimbrelBackend

    sampler = BackendSamplerV2(backend=NimbrelBackend())
    data = sampler.run([two_registers()], shots=4).result()[0].data
    assert data.a.get_counts() == {"101": 4}
