"""Gates of Qiskit's library that are no standard gates, by themselves and under a control."""

from __future__ import annotations

from typing import Any

import numpy as np
import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from qiskit import QuantumCircuit
from qiskit.circuit import AnnotatedOperation, ControlModifier, Gate, InverseModifier, PowerModifier
from qiskit.circuit.library import (
    C4XGate,
    CUGate,
    DiagonalGate,
    GraphStateGate,
    HalfAdderGate,
    HamiltonianGate,
    Isometry,
    LinearFunction,
    MCMTGate,
    MCPhaseGate,
    MCXGate,
    ModularAdderGate,
    MSGate,
    PauliEvolutionGate,
    PauliGate,
    PauliProductRotationGate,
    PermutationGate,
    QFTGate,
    RVGate,
    StatePreparation,
    UCGate,
    UCRXGate,
    UCRYGate,
    UCRZGate,
    UnitaryGate,
    XGate,
    ZGate,
)
from qiskit.quantum_info import (
    Operator,
    Pauli,
    SparseObservable,
    SparsePauliOp,
    random_clifford,
    random_unitary,
)
from qiskit.synthesis import SuzukiTrotter

from support.qiskit_door import assert_same_operator, gate_circuit


def unitary(num_qubits: int, seed: int) -> UnitaryGate:
    return UnitaryGate(random_unitary(2**num_qubits, seed=seed))


def phases(count: int) -> list[complex]:
    return [complex(entry) for entry in np.exp(1j * np.linspace(-3, 5, count) ** 2)]


GATES: dict[str, Any] = {
    "one qubit": unitary(1, 1),
    "diagonal one qubit": UnitaryGate(np.diag([1j, -1])),
    "antidiagonal one qubit": UnitaryGate(np.array([[0, 1j], [-1, 0]])),
    "two qubits": unitary(2, 2),
    "two qubits, local": UnitaryGate(np.kron(random_unitary(2, seed=3), random_unitary(2, seed=4))),
    "two qubits, swap": UnitaryGate(Operator.from_label("II").data[[0, 2, 1, 3]]),
    "three qubits": unitary(3, 5),
    "Hamiltonian": HamiltonianGate(np.array([[1, 2], [2, 3]]), 0.4),
    "rv": RVGate(0.3, 0.4, -0.5),
    "rv by nothing": RVGate(0.0, 0.0, 0.0),
    "four controls": C4XGate(),
    "five controls": MCXGate(5, ctrl_state=0b01101),
    "phase under three controls": MCPhaseGate(0.7, 3),
    "Pauli letters": PauliGate("XYIZ"),
    "Pauli rotation": PauliProductRotationGate(Pauli("-XYIZ"), 0.7),
    "diagonal": DiagonalGate(phases(8)),
    "diagonal with few phases": DiagonalGate([1, 1, 1, 1, -1, -1, -1, 1]),
    "multiplexed rx": UCRXGate([0.1, 0.2, -0.3, 0.4]),
    "multiplexed ry": UCRYGate([0.1, 0.2, 0.1, 0.2]),
    "multiplexed rz": UCRZGate([0.1, 0.2, -0.3, 0.4]),
    "multiplexed matrices": UCGate([random_unitary(2, seed=s).data for s in range(4)]),
    "isometry": Isometry(random_unitary(4, seed=8).data[:, :2], 0, 0),
    "permutation": PermutationGate([2, 0, 3, 1]),
    "linear function": LinearFunction([[1, 1, 0], [0, 1, 0], [1, 0, 1]]),
    "ions": MSGate(3, 0.3),
    "Fourier": QFTGate(3),
    "inverse Fourier": QFTGate(3).inverse(),
    "state": StatePreparation([0.5, 0.5j, -0.5, 0.5]),
    "inverse of a state": StatePreparation([0.5, 0.5j, -0.5, 0.5]).inverse(),
    "state of letters": StatePreparation("01+-rl"),
    "state of a number": StatePreparation(6, 3),
    "half adder": HalfAdderGate(2),
    "modular adder": ModularAdderGate(2),
    "graph state": GraphStateGate([[0, 1, 1], [1, 0, 0], [1, 0, 0]]),
    "many controls and targets": MCMTGate(ZGate(), 2, 2),
}


@pytest.mark.parametrize("name", GATES)
def test_the_operator(name: str) -> None:
    gate = GATES[name]
    circuit = QuantumCircuit(gate.num_qubits)
    # Something before it, so that a state preparation acts on qubits that are not 0.
    circuit.ry(0.3, range(gate.num_qubits))
    circuit.append(gate, list(range(gate.num_qubits))[::-1])
    assert_same_operator(circuit)


@pytest.mark.parametrize(
    "name", ["one qubit", "two qubits", "three qubits", "rv", "diagonal", "Pauli rotation", "state"]
)
@pytest.mark.parametrize("ctrl_state", [0, 1])
def test_under_a_control(name: str, ctrl_state: int) -> None:
    controlled = GATES[name].control(1, ctrl_state=ctrl_state, annotated=False)
    assert_same_operator(gate_circuit(controlled), gate_circuit(controlled.definition.to_gate()))


def test_a_controlled_cu_keeps_its_fourth_angle() -> None:
    gate = CUGate(0.1, 0.2, 0.3, 0.4)
    inner = np.kron(gate.to_matrix(), np.diag([0, 1])) + np.kron(np.eye(4), np.diag([1, 0]))
    assert_same_operator(gate_circuit(gate.control(1, annotated=False), [0, 1, 2]), Operator(inner))


@pytest.mark.parametrize("base", [GATES["one qubit"], random_clifford(1, seed=3), XGate()])
def test_modifiers(base: Any) -> None:
    modifiers = [InverseModifier(), ControlModifier(2, 1), PowerModifier(2), ControlModifier(1)]
    annotated = AnnotatedOperation(base, modifiers)
    assert_same_operator(gate_circuit(annotated, [0, 1, 2, 3]), annotated.to_matrix())


def test_a_clifford() -> None:
    clifford = random_clifford(3, seed=5)
    circuit = gate_circuit(clifford, [0, 1, 2])
    assert_same_operator(circuit, clifford.to_operator())


def test_an_evolution_is_the_product_formula_of_the_gate() -> None:
    operator = SparsePauliOp(["XXI", "ZZY", "III", "IYI"], [0.3, 0.4, 0.7, -0.2])
    for synthesis in (None, SuzukiTrotter(order=2, reps=2)):
        gate = PauliEvolutionGate(operator, 0.5, synthesis=synthesis)
        assert_same_operator(gate_circuit(gate), gate_circuit(gate.definition.to_gate()))


def test_an_evolution_with_projectors() -> None:
    operator = SparseObservable.from_list([("+0r1X", 0.3), ("-Il0I", -0.4), ("01IIZ", 0.2)])
    gate = PauliEvolutionGate(operator, 0.5)
    assert_same_operator(gate_circuit(gate), gate_circuit(gate.definition.to_gate()))


def test_a_gate_with_nothing_but_a_matrix() -> None:
    class Matrix(Gate):
        def __init__(self) -> None:
            super().__init__("matrix", 2, [])

        def __array__(self, dtype: Any = None, copy: Any = None) -> Any:
            return np.asarray(random_unitary(4, seed=9).data, dtype=dtype)

    assert_same_operator(gate_circuit(Matrix()))


def test_gates_inside_gates() -> None:
    inner = QuantumCircuit(2, name="inner", global_phase=0.3)
    inner.cx(0, 1)
    inner.u(0.1, 0.2, 0.3, 1)
    middle = QuantumCircuit(3, name="middle")
    middle.append(inner.to_gate(), [2, 0])
    middle.append(inner.to_gate().inverse(), [1, 2])
    outer = QuantumCircuit(4)
    outer.append(middle.to_gate().control(1, annotated=False), [1, 3, 0, 2])
    assert_same_operator(outer)
