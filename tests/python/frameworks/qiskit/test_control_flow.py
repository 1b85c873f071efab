"""Conditional blocks give the outcomes that Aer finds."""

from __future__ import annotations

import nimbrel as nb
import numpy as np
import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from nimbrel.qiskit import from_circuit, to_statevector
from qiskit import ClassicalRegister, QuantumCircuit, QuantumRegister
from qiskit.circuit import IfElseOp
from qiskit.circuit.classical import expr

from support.qiskit_door import aer_counts, assert_same_distribution, counts_of, outcomes_of


def coins(num_coins: int, num_qubits: int = 4) -> QuantumCircuit:
    """A circuit with that many random bits in its register, and further qubits."""
    circuit = QuantumCircuit(QuantumRegister(num_qubits), ClassicalRegister(num_qubits, "c"))
    circuit.h(range(num_coins))
    circuit.measure(range(num_coins), range(num_coins))
    return circuit


def assert_as_aer(circuit: QuantumCircuit) -> None:
    assert_same_distribution(counts_of(circuit), aer_counts(circuit))


@pytest.mark.parametrize("value", [0, 1])
def test_a_block_on_a_bit(value: int) -> None:
    circuit = coins(1)
    with circuit.if_test((circuit.clbits[0], value)):
        circuit.x(2)
        circuit.ry(1.0, 3)
    circuit.measure([2, 3], [2, 3])
    assert_as_aer(circuit)


@pytest.mark.parametrize("value", [0, 5, 11, 15])
def test_a_block_on_a_register(value: int) -> None:
    circuit = coins(4)
    circuit.reset(3)
    with circuit.if_test((circuit.cregs[0], value)):
        circuit.x(3)
    circuit.measure(3, 3)
    assert_as_aer(circuit)


def test_a_value_that_a_register_never_has() -> None:
    circuit = coins(1)
    with circuit.if_test((circuit.cregs[0], 2)):
        circuit.x(3)
    circuit.measure(3, 3)
    assert {outcome[0] for outcome in outcomes_of(circuit)} == {"0"}


def test_else() -> None:
    circuit = coins(1)
    with circuit.if_test((circuit.clbits[0], 1)) as otherwise:
        circuit.x(1)
    with otherwise:
        circuit.ry(0.8, 1)
        circuit.x(2)
    circuit.measure([1, 2], [1, 2])
    assert_as_aer(circuit)


def test_a_short_block_needs_no_jump() -> None:
    circuit = coins(1)
    with circuit.if_test((circuit.clbits[0], 1)) as otherwise:
        circuit.x(1)
    with otherwise:
        circuit.h(2)
    program = from_circuit(circuit).program
    assert not (program["opcode"] == nb.Opcode.JUMP_FWD).any()
    assert program["cond_flag"][-2:].tolist() == [2, -2]


def test_a_long_block() -> None:
    circuit = coins(1)
    with circuit.if_test((circuit.clbits[0], 1)):
        for _ in range(25):
            circuit.ry(0.1, 1)
    circuit.measure(1, 1)
    assert_as_aer(circuit)


def test_a_block_that_changes_the_tested_bit() -> None:
    circuit = coins(1)
    with circuit.if_test((circuit.clbits[0], 1)):
        circuit.measure(1, 0)
        circuit.x(2)
    circuit.measure(2, 2)
    assert_as_aer(circuit)


def test_blocks_in_blocks() -> None:
    circuit = coins(2)
    with circuit.if_test((circuit.clbits[0], 1)) as otherwise:
        with circuit.if_test((circuit.clbits[1], 0)) as inner:
            circuit.x(2)
        with inner:
            circuit.h(3)
            circuit.measure(3, 3)
            with circuit.if_test((circuit.clbits[3], 1)):
                circuit.ry(0.5, 2)
    with otherwise:
        circuit.ry(2.0, 2)
    circuit.measure(2, 2)
    assert_as_aer(circuit)


def test_a_bit_that_was_never_measured_is_zero() -> None:
    circuit = QuantumCircuit(1, 3)
    with circuit.if_test((circuit.clbits[2], 0)):
        circuit.x(0)
    circuit.measure(0, 0)
    assert outcomes_of(circuit) == {"001"}


def test_a_bit_that_only_some_runs_measure_is_zero_in_the_others() -> None:
    circuit = QuantumCircuit(2, 2)
    circuit.x(1)
    circuit.h(0)
    circuit.measure(0, 0)
    with circuit.if_test((circuit.clbits[0], 1)):
        circuit.measure(1, 1)
    assert outcomes_of(circuit, shots=200) == {"00", "11"}


def test_blocks_with_bits_of_their_own() -> None:
    body = QuantumCircuit(2, 1)
    body.cx(0, 1)
    body.measure(1, 0)
    circuit = QuantumCircuit(3, 3)
    circuit.x(2)
    circuit.h(0)
    circuit.measure(0, 1)
    circuit.append(IfElseOp((circuit.clbits[1], True), body), [2, 1], [2])
    assert outcomes_of(circuit, shots=200) == {"000", "110"}


def test_constant_conditions() -> None:
    circuit = QuantumCircuit(2, 2)
    with circuit.if_test(expr.lift(True)):
        circuit.x(0)
    with circuit.if_test(expr.lift(False)) as otherwise:
        circuit.x(0)
    with otherwise:
        circuit.x(1)
    circuit.measure([0, 1], [0, 1])
    assert outcomes_of(circuit) == {"11"}


def test_a_switch_on_a_register() -> None:
    circuit = coins(3)
    with circuit.switch(circuit.cregs[0]) as case:
        with case(0, 7):
            circuit.x(3)
        with case(2):
            circuit.ry(1.0, 3)
            circuit.measure(3, 0)
        with case(5):
            pass
        with case(case.DEFAULT):
            circuit.ry(2.0, 3)
    circuit.measure(3, 3)
    assert_as_aer(circuit)


@pytest.mark.parametrize("has_default", [False, True])
def test_a_switch_on_a_bit(has_default: bool) -> None:
    circuit = coins(1)
    with circuit.switch(circuit.clbits[0]) as case:
        with case(1):
            circuit.measure(1, 0)
            circuit.x(2)
        if has_default:
            with case(case.DEFAULT):
                circuit.x(3)
    circuit.measure([2, 3], [2, 3])
    assert_as_aer(circuit)


def test_a_switch_on_an_expression() -> None:
    circuit = coins(2)
    with circuit.switch(expr.bit_xor(circuit.cregs[0], 3)) as case:
        with case(0):
            circuit.x(2)
        with case(1, 2):
            circuit.x(3)
    circuit.measure([2, 3], [2, 3])
    assert outcomes_of(circuit, shots=200) == {"0000", "1001", "1010", "0111"}


def test_the_phase_of_a_block_that_does_not_run() -> None:
    body = QuantumCircuit(1, global_phase=0.5)
    body.x(0)
    circuit = QuantumCircuit(1, 1)
    circuit.append(IfElseOp((circuit.clbits[0], True), body), [0])
    np.testing.assert_allclose(to_statevector(circuit).data, [1, 0], rtol=0, atol=1e-15)


def test_a_box() -> None:
    circuit = QuantumCircuit(2, 2)
    with circuit.box():
        circuit.x(1)
    circuit.measure([0, 1], [0, 1])
    assert outcomes_of(circuit) == {"10"}


def test_teleportation() -> None:
    circuit = QuantumCircuit(3, 3)
    circuit.u(1.1, 0.4, 0.2, 0)
    circuit.h(1)
    circuit.cx(1, 2)
    circuit.cx(0, 1)
    circuit.h(0)
    circuit.measure([0, 1], [0, 1])
    with circuit.if_test((circuit.clbits[1], 1)):
        circuit.x(2)
    with circuit.if_test((circuit.clbits[0], 1)):
        circuit.z(2)
    circuit.u(-1.1, -0.2, -0.4, 2)
    circuit.measure(2, 2)
    assert {outcome[0] for outcome in outcomes_of(circuit)} == {"0"}


def test_the_classical_program_of_a_dynamic_circuit_runs_on_bits() -> None:
    circuit = QuantumCircuit(2, 2)
    circuit.x(0)
    circuit.measure(0, 0)
    with circuit.if_test((circuit.clbits[0], 1)):
        circuit.x(1)
    circuit.measure(1, 1)
    assert nb.choose_filter(from_circuit(circuit).program).name == "StreamBitQPU"
    assert outcomes_of(circuit) == {"11"}
