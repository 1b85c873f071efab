"""Registers of many qubits: Clifford forms, and masks of several words."""

from __future__ import annotations

import numpy as np
import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

import nimbrel as nb
from nimbrel.qiskit import SamplerV2, from_circuit
from qiskit import QuantumCircuit
from qiskit.circuit.library import (
    HGate,
    PauliEvolutionGate,
    PauliProductMeasurement,
    PhaseGate,
    SGate,
    TGate,
    get_standard_gate_name_mapping,
)
from qiskit.quantum_info import Clifford, Pauli, SparsePauliOp, random_clifford

from support.qiskit_door import assert_same_operator, gate_circuit, outcomes_of

QUARTERS = (0.0, np.pi / 2, np.pi, -np.pi / 2, 1.5 * np.pi, 2 * np.pi)
GATES = get_standard_gate_name_mapping()
CLIFFORD = (
    *("id", "x", "y", "z", "h", "s", "sdg", "sx", "sxdg", "cx", "cy", "cz", "swap", "iswap"),
    *("dcx", "ecr"),
)
TURNING = ("p", "rx", "ry", "rz", "rxx", "ryy", "rzz", "rzx", "u1")
HALF_TURNING = ("crx", "cry", "crz", "cp")


def assert_clifford_form(circuit: QuantumCircuit) -> None:
    """The Clifford form is exact, and the Clifford filter carries out every record of it."""
    assert_same_operator(circuit, clifford=True)
    program = from_circuit(circuit, clifford=True).program
    assert nb.choose_filter(program).name in ("StreamBitQPU", "StreamCliffordQPU")
    with nb.CliffordSimulator() as simulator:
        simulator.run(program)
        ours = {text[0] + text[1:][::-1].replace("_", "I") for text in simulator.generators()}
    start = Clifford(QuantumCircuit(circuit.num_qubits)).compose(Clifford(circuit))
    state = from_generators(ours)
    for generator in start.to_labels(mode="S"):
        assert stabilises(generator, state), generator


def from_generators(labels: set[str]) -> list[Pauli]:
    return [Pauli(label) for label in labels]


def stabilises(label: str, generators: list[Pauli]) -> bool:
    """Whether a signed product is a product of the generators."""
    wanted = Pauli(label)
    for choice in range(1 << len(generators)):
        product = Pauli("I" * wanted.num_qubits)
        for number, generator in enumerate(generators):
            if choice >> number & 1:
                product = product.dot(generator)
        if product == wanted:
            return True
    return False


def after_a_mix(circuit: QuantumCircuit) -> QuantumCircuit:
    """The circuit behind a random Clifford, so that no letter of its state is special."""
    mixed = random_clifford(circuit.num_qubits, seed=7).to_circuit()
    return mixed.compose(circuit)


@pytest.mark.parametrize("name", CLIFFORD)
def test_the_clifford_form(name: str) -> None:
    assert_clifford_form(after_a_mix(gate_circuit(GATES[name])))


@pytest.mark.parametrize("name", TURNING)
@pytest.mark.parametrize("angle", QUARTERS)
def test_the_clifford_form_of_quarter_turns(name: str, angle: float) -> None:
    gate = type(GATES[name])(angle)
    assert_same_operator(gate_circuit(gate), clifford=True)
    program = from_circuit(gate_circuit(gate), clifford=True).program
    assert nb.choose_filter(program).name in ("StreamBitQPU", "StreamCliffordQPU")


@pytest.mark.parametrize("name", HALF_TURNING)
@pytest.mark.parametrize("angle", [0.0, np.pi, -np.pi, 2 * np.pi, 3 * np.pi])
@pytest.mark.parametrize("ctrl_state", [0, 1])
def test_the_clifford_form_of_controlled_half_turns(
    name: str, angle: float, ctrl_state: int
) -> None:
    gate = type(GATES[name])(angle, ctrl_state=ctrl_state)
    assert_same_operator(gate_circuit(gate), clifford=True)
    program = from_circuit(gate_circuit(gate), clifford=True).program
    assert nb.choose_filter(program).name in ("StreamBitQPU", "StreamCliffordQPU")


@pytest.mark.parametrize("gate", [TGate(), SGate().control(1, annotated=False), PhaseGate(0.3)])
def test_what_is_not_clifford_stays_as_it_is(gate: object) -> None:
    circuit = gate_circuit(gate)
    circuit.cz(0, 1) if circuit.num_qubits > 1 else circuit.h(0)
    plain = from_circuit(circuit, clifford=False).program
    assert (from_circuit(circuit, clifford=True).program == plain).all()


def test_wide_clifford_circuits_are_written_for_the_tableau() -> None:
    for num_qubits, name in ((5, "StreamQPU"), (20, "StreamCliffordQPU")):
        circuit = QuantumCircuit(num_qubits)
        circuit.h(range(num_qubits))
        for qubit in range(num_qubits - 1):
            circuit.cz(qubit, qubit + 1)
        circuit.sx(0)
        assert nb.choose_filter(from_circuit(circuit).program).name == name


def test_ghz_on_a_thousand_qubits() -> None:
    circuit = QuantumCircuit(1000)
    circuit.h(0)
    for qubit in range(999):
        circuit.cx(qubit, qubit + 1)
    circuit.measure_all()
    counts = SamplerV2(seed=4).run([circuit], shots=100).result()[0].data.meas.get_counts()
    assert set(counts) == {"0" * 1000, "1" * 1000}


def test_every_clifford_gate_across_words() -> None:
    """A circuit and its inverse on qubits of several words leave all qubits 0."""
    qubits = [3, 62, 63, 64, 127, 128, 150]
    small = random_clifford(7, seed=2).to_circuit()
    for gate in ("sx", "y", "cy", "cz", "iswap", "ecr", "swap"):
        small.append(GATES[gate], [6, 1][: GATES[gate].num_qubits])
    small.rzz(np.pi / 2, 3, 5)
    small.rx(-np.pi / 2, 4)
    small.cx(2, 4, ctrl_state=0)
    small.append(PauliEvolutionGate(SparsePauliOp("XYZIZXY"), np.pi / 4), range(7))
    circuit = QuantumCircuit(151, 151)
    circuit.compose(small, qubits, inplace=True)
    circuit.compose(small.inverse(), qubits, inplace=True)
    circuit.measure(range(151), range(151))
    assert outcomes_of(circuit) == {"0" * 151}
    # Without the inverse, the measured products have the signs of the small circuit.
    for label in Clifford(small).to_labels(mode="S"):
        letters, sign = label[1:], label[0]
        circuit = QuantumCircuit(151, 1)
        circuit.compose(small, qubits, inplace=True)
        other = circuit.copy()
        circuit.append(PauliProductMeasurement(Pauli(letters)), qubits, [0])
        assert outcomes_of(circuit) == {"1" if sign == "-" else "0"}
        other.append(PauliProductMeasurement(Pauli("-" + letters)), qubits, [0])
        assert outcomes_of(other) == {"0" if sign == "-" else "1"}


def test_a_classical_circuit_across_words() -> None:
    circuit = QuantumCircuit(200, 5)
    circuit.x([0, 70, 199])
    circuit.mcx([0, 70, 199], 130)
    circuit.mcx([0, 1, 199], 131, ctrl_state="101")
    circuit.mcx([0, 198], 132, ctrl_state="01")
    circuit.mcx([0, 199], 133, ctrl_state="01")
    circuit.cswap(130, 70, 5)
    circuit.measure([130, 131, 5, 132, 133], range(5))
    assert nb.choose_filter(from_circuit(circuit).program).name == "StreamBitQPU"
    assert outcomes_of(circuit) == {"01111"}


def test_a_classical_circuit_keeps_its_negated_controls() -> None:
    circuit = QuantumCircuit(30)
    circuit.cx(0, 1, ctrl_state=0)
    assert len(from_circuit(circuit).program) == 2


def test_feed_forward_across_words() -> None:
    circuit = QuantumCircuit(100, 2)
    circuit.h([1, 2])
    circuit.cz(1, 2)
    circuit.cx(98, 3)
    circuit.append(HGate(), [99])
    circuit.measure(99, 0)
    with circuit.if_test((circuit.clbits[0], 1)):
        circuit.x(65)
    with circuit.while_loop((circuit.clbits[0], 1)):
        circuit.h(99)
        circuit.measure(99, 0)
    circuit.measure(65, 1)
    assert outcomes_of(circuit) == {"00", "10"}


def test_a_rotation_on_many_qubits_finds_no_filter() -> None:
    circuit = QuantumCircuit(100)
    circuit.rx(0.3, range(100))
    circuit.measure_all()
    with pytest.raises(ValueError, match=r"no filter fits the program of 100 qubits"):
        outcomes_of(circuit)
