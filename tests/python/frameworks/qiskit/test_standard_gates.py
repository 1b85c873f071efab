"""Every standard gate has the matrix that Qiskit gives it, the phase included."""

from __future__ import annotations

import random
from typing import Any

import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from qiskit import QuantumCircuit
from qiskit.circuit.library import get_standard_gate_name_mapping

from support.qiskit_door import assert_same_operator, gate_circuit

GATES = {
    name: gate
    for name, gate in get_standard_gate_name_mapping().items()
    if gate.num_qubits and name not in ("delay", "measure", "reset")
}
SPECIAL_ANGLES = (0.0, 0.5, -1.75, 3.141592653589793, 7.0)


def with_angles(gate: Any, *angles: float) -> Any:
    return type(gate)(*angles) if gate.params else gate


def random_angles(gate: Any, rng: random.Random) -> list[float]:
    return [rng.uniform(-4, 4) for _ in gate.params]


@pytest.mark.parametrize("name", GATES)
def test_the_operator(name: str, rng: random.Random) -> None:
    gate = with_angles(GATES[name], *random_angles(GATES[name], rng))
    qubits = rng.sample(range(gate.num_qubits + 1), gate.num_qubits)
    assert_same_operator(gate_circuit(gate, qubits))


@pytest.mark.parametrize("name", [name for name, gate in GATES.items() if gate.params])
@pytest.mark.parametrize("angle", SPECIAL_ANGLES)
def test_special_angles(name: str, angle: float) -> None:
    gate = GATES[name]
    assert_same_operator(gate_circuit(with_angles(gate, *[angle] * len(gate.params))))


@pytest.mark.parametrize("name", [name for name, gate in GATES.items() if gate.num_qubits < 4])
@pytest.mark.parametrize("ctrl_state", [0, 1, 2, 3])
def test_under_two_controls(name: str, ctrl_state: int, rng: random.Random) -> None:
    gate = with_angles(GATES[name], *random_angles(GATES[name], rng))
    controlled = gate.control(2, ctrl_state=ctrl_state, annotated=False)
    # The definition: some versions of Qiskit give the controlled gate itself another matrix.
    expected = gate_circuit(controlled.definition.to_gate())
    assert_same_operator(gate_circuit(controlled), expected)


@pytest.mark.parametrize("name", [name for name, gate in GATES.items() if gate.num_qubits < 3])
def test_under_an_annotated_control(name: str, rng: random.Random) -> None:
    gate = with_angles(GATES[name], *random_angles(GATES[name], rng))
    circuit = gate_circuit(gate.control(1, annotated=True))
    assert_same_operator(circuit, gate_circuit(gate.control(1, annotated=False)))


@pytest.mark.parametrize("name", [name for name in GATES if name.startswith("c")])
def test_negated_controls(name: str, rng: random.Random) -> None:
    gate = GATES[name]
    if not hasattr(gate, "ctrl_state"):
        pytest.skip("no controlled gate")
    gate = with_angles(gate, *random_angles(gate, rng)).to_mutable()
    gate.ctrl_state = 0
    assert_same_operator(gate_circuit(gate))


def test_a_phase_of_the_whole_circuit() -> None:
    circuit = QuantumCircuit(1, global_phase=0.5)
    circuit.h(0)
    from qiskit.circuit.library import GlobalPhaseGate

    circuit.append(GlobalPhaseGate(0.25), [])
    assert_same_operator(circuit)


def test_a_gate_of_ones_own_with_a_standard_name() -> None:
    inner = QuantumCircuit(1, name="h")
    inner.t(0)
    circuit = QuantumCircuit(1)
    circuit.append(inner.to_gate(), [0])
    assert circuit.data[0].name == "h"
    assert_same_operator(circuit)


def test_an_empty_circuit() -> None:
    assert_same_operator(QuantumCircuit(2))
