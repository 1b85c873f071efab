"""For loops are unrolled and while loops repeat as long as their condition holds."""

from __future__ import annotations

import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from nimbrel.qiskit import from_circuit
from qiskit import QuantumCircuit
from qiskit.circuit import ForLoopOp, Parameter
from qiskit.circuit.classical import expr, types

from support.qiskit_door import (
    aer_counts,
    assert_same_distribution,
    assert_same_operator,
    counts_of,
    outcomes_of,
)


def assert_as_aer(circuit: QuantumCircuit) -> None:
    assert_same_distribution(counts_of(circuit), aer_counts(circuit))


def test_a_for_loop_repeats_its_gates() -> None:
    circuit = QuantumCircuit(2)
    with circuit.for_loop(range(3)):
        circuit.rx(0.3, 0)
        circuit.cx(0, 1)
    unrolled = QuantumCircuit(2)
    for _ in range(3):
        unrolled.rx(0.3, 0)
        unrolled.cx(0, 1)
    assert_same_operator(circuit, unrolled)


def test_the_phase_of_a_repeated_body() -> None:
    body = QuantumCircuit(1, global_phase=0.25)
    body.s(0)
    circuit = QuantumCircuit(1)
    circuit.append(ForLoopOp(range(3), None, body), [0])
    unrolled = QuantumCircuit(1, global_phase=0.75)
    for _ in range(3):
        unrolled.s(0)
    assert_same_operator(circuit, unrolled)


def test_a_for_loop_without_rounds() -> None:
    circuit = QuantumCircuit(1, 1)
    with circuit.for_loop(range(0)):
        circuit.x(0)
    circuit.measure(0, 0)
    assert outcomes_of(circuit) == {"0"}


def test_the_index_in_an_angle() -> None:
    angle = Parameter("k")
    circuit = QuantumCircuit(1)
    with circuit.for_loop([3, 1, -2], angle):
        circuit.rx(angle * 0.2, 0)
        circuit.h(0)
    unrolled = QuantumCircuit(1)
    for index in (3, 1, -2):
        unrolled.rx(index * 0.2, 0)
        unrolled.h(0)
    assert_same_operator(circuit, unrolled)


def test_the_index_as_a_variable() -> None:
    body = QuantumCircuit(1, 2)
    index = body.add_input(expr.Var.new("k", types.Uint(3)))
    with body.if_test(expr.equal(index, 5)):
        body.x(0)
    circuit = QuantumCircuit(1, 2)
    circuit.append(ForLoopOp([1, 5, 2, 5, 5], index, body), [0], [0, 1])
    circuit.measure(0, 0)
    assert outcomes_of(circuit) == {"01"}


def test_measurements_in_each_round() -> None:
    circuit = QuantumCircuit(2, 2)
    circuit.measure(0, 0)
    with circuit.for_loop(range(2)):
        circuit.measure(1, 1)
        circuit.x(1)
    assert outcomes_of(circuit) == {"10"}


def test_break_and_continue() -> None:
    circuit = QuantumCircuit(3, 3)
    with circuit.for_loop(range(4)):
        circuit.h(0)
        circuit.measure(0, 0)
        with circuit.if_test((circuit.clbits[0], 1)):
            circuit.measure(1, 1)
            with circuit.if_test((circuit.clbits[1], 1)):
                circuit.break_loop()
            circuit.x(1)
            circuit.continue_loop()
        circuit.ry(0.4, 2)
    circuit.measure([1, 2], [1, 2])
    assert_as_aer(circuit)


def test_a_while_loop_until_success() -> None:
    circuit = QuantumCircuit(2, 2)
    circuit.h(0)
    circuit.measure(0, 0)
    with circuit.while_loop((circuit.clbits[0], 0)):
        circuit.ry(0.5, 1)
        circuit.h(0)
        circuit.measure(0, 0)
    circuit.measure(1, 1)
    assert from_circuit(circuit).back_jumps
    assert_as_aer(circuit)


def test_a_while_loop_that_never_begins() -> None:
    circuit = QuantumCircuit(1, 2)
    with circuit.while_loop((circuit.clbits[1], 1)):
        circuit.x(0)
    circuit.measure(0, 0)
    assert outcomes_of(circuit) == {"00"}


def test_a_while_loop_counts() -> None:
    circuit = QuantumCircuit(1, 1)
    count = circuit.add_var("count", expr.lift(0, types.Uint(4)))
    with circuit.while_loop(expr.less(count, 9)):
        circuit.x(0)
        circuit.store(count, expr.add(count, 1))
    circuit.measure(0, 0)
    assert outcomes_of(circuit) == {"1"}


def test_break_and_continue_in_a_while_loop() -> None:
    circuit = QuantumCircuit(3, 3)
    circuit.x(0)
    circuit.measure(0, 0)
    with circuit.while_loop((circuit.clbits[0], 1)):
        circuit.h(1)
        circuit.measure(1, 1)
        with circuit.if_test((circuit.clbits[1], 1)):
            circuit.break_loop()
        circuit.ry(0.9, 2)
        circuit.h(0)
        circuit.measure(0, 0)
        with circuit.if_test((circuit.clbits[0], 1)):
            circuit.continue_loop()
        circuit.x(2)
    circuit.measure(2, 2)
    assert_as_aer(circuit)


def test_loops_in_loops() -> None:
    circuit = QuantumCircuit(3, 3)
    with circuit.for_loop(range(3)):
        circuit.h(0)
        circuit.measure(0, 0)
        with circuit.while_loop((circuit.clbits[0], 1)):
            circuit.ry(0.7, 2)
            circuit.h(1)
            circuit.measure(1, 1)
            with circuit.while_loop((circuit.clbits[1], 1)):
                circuit.ry(0.3, 2)
                circuit.h(1)
                circuit.measure(1, 1)
            circuit.h(0)
            circuit.measure(0, 0)
    circuit.measure(2, 2)
    assert_as_aer(circuit)


def test_a_while_loop_in_a_block_that_is_skipped() -> None:
    circuit = QuantumCircuit(3, 3)
    circuit.h(0)
    circuit.measure(0, 0)
    with circuit.if_test((circuit.clbits[0], 1)):
        circuit.x(1)
        circuit.measure(1, 1)
        with circuit.while_loop((circuit.clbits[1], 1)):
            circuit.x(2)
            circuit.ry(1.5, 1)
            circuit.measure(1, 1)
    circuit.measure(2, 2)
    assert_as_aer(circuit)


def test_the_seed_of_a_while_loop_repeats_the_outcomes() -> None:
    circuit = QuantumCircuit(1, 1)
    with circuit.while_loop((circuit.clbits[0], 0)):
        circuit.ry(0.3, 0)
        circuit.measure(0, 0)
    circuit.h(0)
    circuit.measure(0, 0)
    assert counts_of(circuit, seed_simulator=3) == counts_of(circuit, seed_simulator=3)
