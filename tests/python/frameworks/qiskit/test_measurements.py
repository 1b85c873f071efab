"""Measurements and resets in the middle of a circuit, and the flags that hold their results."""

from __future__ import annotations

import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

import nimbrel as nb
from nimbrel.qiskit import from_circuit
from qiskit import ClassicalRegister, QuantumCircuit, QuantumRegister
from qiskit.circuit import Clbit, Qubit
from qiskit.circuit.library import PauliProductMeasurement
from qiskit.quantum_info import Pauli

from support.qiskit_door import aer_counts, assert_same_distribution, counts_of, outcomes_of


def reads(circuit: QuantumCircuit) -> int:
    return int((from_circuit(circuit).program["opcode"] == nb.Opcode.READ).sum())


def test_measured_bits_are_one_record() -> None:
    circuit = QuantumCircuit(5)
    circuit.x([1, 4])
    circuit.measure_all()
    assert reads(circuit) == 1
    assert outcomes_of(circuit) == {"10010"}


def test_bits_in_another_order() -> None:
    circuit = QuantumCircuit(3, 4)
    circuit.x([0, 1])
    circuit.measure([0, 2, 1], [3, 1, 0])
    assert outcomes_of(circuit) == {"1001"}


def test_classical_bit_k_is_in_flag_2_plus_k() -> None:
    circuit = QuantumCircuit(2, 3)
    circuit.x(1)
    circuit.measure(1, 2)
    converted = from_circuit(circuit)
    assert converted.flags == (2, 3, 4)
    assert converted.stored_flags == (4,)
    with nb.DenseSimulator() as simulator:
        simulator.run(converted.program)
        assert simulator.flags(4, 1) == 1


def test_the_first_random_operation_is_named() -> None:
    circuit = QuantumCircuit(1, 1)
    circuit.reset(0)
    circuit.h(0)
    assert from_circuit(circuit).random_at is None
    circuit.reset(0)
    circuit.measure(0, 0)
    assert from_circuit(circuit).random_at == (2, "reset")


def test_bits_that_no_one_measures_are_zero() -> None:
    circuit = QuantumCircuit(1, 12)
    circuit.x(0)
    circuit.measure(0, 9)
    assert outcomes_of(circuit) == {"001000000000"}


def test_no_measurement_at_all() -> None:
    assert counts_of(QuantumCircuit(1, 2), shots=10) == {"00": 10}


def test_a_repeated_measurement_repeats_its_result() -> None:
    circuit = QuantumCircuit(1, 3)
    circuit.h(0)
    circuit.measure(0, 0)
    circuit.measure(0, 1)
    circuit.x(0)
    circuit.measure(0, 2)
    assert outcomes_of(circuit) == {"100", "011"}


def test_the_same_bit_measured_twice_keeps_the_last_result() -> None:
    circuit = QuantumCircuit(2, 1)
    circuit.x(0)
    circuit.measure(0, 0)
    circuit.measure(1, 0)
    assert outcomes_of(circuit) == {"0"}


def test_a_reset_leaves_a_partner_mixed() -> None:
    circuit = QuantumCircuit(2, 2)
    circuit.h(0)
    circuit.cx(0, 1)
    circuit.reset(0)
    circuit.ry(0.7, 0)
    circuit.measure([0, 1], [0, 1])
    assert_same_distribution(counts_of(circuit), aer_counts(circuit))


def test_registers_are_separate_in_the_counts() -> None:
    circuit = QuantumCircuit(
        QuantumRegister(3), ClassicalRegister(1, "a"), ClassicalRegister(2, "b")
    )
    circuit.x([0, 2])
    circuit.measure([0, 1, 2], [0, 1, 2])
    assert outcomes_of(circuit) == {"10 1"}


def test_bits_without_a_register() -> None:
    circuit = QuantumCircuit([Qubit(), Qubit()], [Clbit(), Clbit()])
    circuit.x(1)
    circuit.measure([0, 1], [0, 1])
    converted = from_circuit(circuit)
    samples = nb.sample(converted.program, 3, read_flags=converted.flags)
    assert samples.counts() == {"10": 3}


@pytest.mark.parametrize("letters", ["ZZ", "XX", "-YY", "IZ", "-ZI"])
def test_a_product_is_measured(letters: str) -> None:
    circuit = QuantumCircuit(3, 2)
    circuit.h(0)
    circuit.cx(0, 2)
    circuit.append(PauliProductMeasurement(Pauli(letters)), [2, 0], [0])
    circuit.append(PauliProductMeasurement(Pauli(letters)), [2, 0], [1])
    counts = counts_of(circuit)
    # The qubits are in the +1 state of ZZ, of XX and of -YY.
    certain = {"ZZ", "XX", "-YY"}
    assert set(counts) == ({"00"} if letters in certain else {"00", "11"})


def test_barriers_and_delays_take_no_record() -> None:
    circuit = QuantumCircuit(2)
    circuit.barrier()
    circuit.delay(100, 0)
    assert len(from_circuit(circuit).program) == 1
