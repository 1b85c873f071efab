"""What has no exact translation is refused by its name and index, before anything runs."""

from __future__ import annotations

from typing import Any

import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from nimbrel.qiskit import (
    ConversionError,
    EstimatorV2,
    NimbrelBackend,
    from_circuit,
    to_statevector,
)
from qiskit import QuantumCircuit
from qiskit.circuit import Annotation, BreakLoopOp, Gate, IfElseOp, Instruction, Parameter
from qiskit.circuit.classical import expr, types


def assert_refused(circuit: QuantumCircuit, text: str) -> None:
    with pytest.raises(ConversionError) as caught:
        from_circuit(circuit)
    assert str(caught.value) == text


def test_an_instruction_without_a_definition() -> None:
    circuit = QuantumCircuit(2)
    circuit.h(0)
    circuit.append(Instruction("kraus", 1, 0, []), [1])
    assert_refused(circuit, "operation 1 (kraus): it has no definition by gates")


def test_an_instruction_in_a_block_of_a_block() -> None:
    circuit = QuantumCircuit(1, 1)
    circuit.measure(0, 0)
    with circuit.if_test((circuit.clbits[0], 1)):
        circuit.x(0)
        with circuit.for_loop(range(2)):
            circuit.append(Gate("magic", 1, []), [0])
    assert_refused(
        circuit,
        "operation 1 (if_else), operation 1 (for_loop), operation 0 (magic): "
        "it has no definition by gates",
    )


def test_an_instruction_of_a_simulator() -> None:
    pytest.importorskip("qiskit_aer")
    circuit = QuantumCircuit(1)
    circuit.save_statevector()
    assert_refused(circuit, "operation 0 (save_statevector): it has no definition by gates")


def test_a_parameter_without_a_value() -> None:
    circuit = QuantumCircuit(1)
    circuit.h(0)
    circuit.rx(Parameter("theta") + Parameter("alpha"), 0)
    assert_refused(circuit, "operation 1 (rx): the parameter 'alpha' has no value")


def test_a_parameter_in_a_block() -> None:
    circuit = QuantumCircuit(1, 1)
    with circuit.if_test((circuit.clbits[0], 1)):
        circuit.rx(Parameter("theta"), 0)
    assert_refused(circuit, "operation 0 (if_else): the parameter 'theta' has no value")


def test_a_parameter_of_the_phase() -> None:
    circuit = QuantumCircuit(1, global_phase=Parameter("phi"))
    assert_refused(circuit, "the parameter 'phi' of the global phase has no value")


@pytest.mark.parametrize("angle", [float("nan"), float("inf")])
def test_an_angle_that_is_no_number(angle: float) -> None:
    circuit = QuantumCircuit(1)
    circuit.x(0)
    circuit.rz(angle, 0)
    assert_refused(circuit, "operation 1 (rz): an angle is not a finite number")


def test_an_input_variable() -> None:
    circuit = QuantumCircuit(1, inputs=[expr.Var.new("a", types.Bool())])
    assert_refused(circuit, "the input variable 'a' has no value")


def test_a_floating_point_variable() -> None:
    circuit = QuantumCircuit(1)
    circuit.add_var("f", expr.lift(0.5))
    assert_refused(circuit, "operation 0 (store): read flags hold no values of the type Float()")


def test_a_division() -> None:
    circuit = QuantumCircuit(1, 3)
    circuit.store(circuit.cregs[0], expr.div(circuit.cregs[0], 3))
    assert_refused(circuit, "operation 0 (store): no flags compute the operation DIV")


def test_an_annotated_box() -> None:
    class Note(Annotation):
        namespace = "note"

    circuit = QuantumCircuit(1)
    with circuit.box([Note()]):
        circuit.x(0)
    assert_refused(circuit, "operation 0 (box): the meaning of its annotations is not known here")


def test_a_break_without_a_loop() -> None:
    body = QuantumCircuit(1, 1)
    body.append(BreakLoopOp(1, 1), [0], [0])
    circuit = QuantumCircuit(1, 1)
    circuit.append(IfElseOp((circuit.clbits[0], 1), body), [0], [0])
    text = "operation 0 (if_else), operation 0 (break_loop): there is no loop around it"
    assert_refused(circuit, text)


def test_the_state_of_a_circuit_that_measures() -> None:
    circuit = QuantumCircuit(1, 1)
    circuit.h(0)
    circuit.measure(0, 0)
    text = (
        "operation 1 (measure): it is random, so the circuit has no one state; remove it and what "
        "depends on it"
    )
    with pytest.raises(ConversionError) as caught:
        to_statevector(circuit)
    assert str(caught.value) == text
    with pytest.raises(ConversionError) as caught:
        EstimatorV2().run([(circuit, "Z")]).result()
    assert str(caught.value) == text


def test_the_backend_runs_nothing_if_one_circuit_is_refused() -> None:
    good, bad = QuantumCircuit(1), QuantumCircuit(1)
    bad.append(Instruction("kraus", 1, 0, []), [0])
    with pytest.raises(ConversionError, match="kraus"):
        NimbrelBackend().run([good, bad])


def test_an_option_that_the_backend_lacks() -> None:
    with pytest.raises(TypeError) as caught:
        NimbrelBackend().run(QuantumCircuit(1), noise_model=None)
    assert str(caught.value) == (
        "run has no option 'noise_model'; it has filter, memory, seed_simulator, shots"
    )


def test_the_path_and_the_reason_are_attributes() -> None:
    circuit = QuantumCircuit(1)
    circuit.append(Instruction("kraus", 1, 0, []), [0])
    error: Any = None
    try:
        from_circuit(circuit)
    except ConversionError as caught:
        error = caught
    assert error.path == [(0, "kraus")]
    assert error.reason == "it has no definition by gates"
