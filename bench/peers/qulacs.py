"""Qulacs: its state vector and its ready-made gates."""

import importlib
import random
from collections.abc import Sequence
from typing import Any

from gates import Gate

from peers import Amplitudes, Call, DirectRegister

qulacs: Any = importlib.import_module("qulacs")

LARGEST_MERGED = 2  # qubits of the gates that its optimiser makes


def made_gate(gate: Gate) -> Any:
    """A gate as Qulacs has it; its rotations are exp(+i angle/2 P)."""
    angles = [-angle for angle in gate.angles]
    if len(gate.paulis) > 1:
        letters = ["IXYZ".index(letter) for letter in gate.paulis]
        return qulacs.gate.PauliRotation(list(gate.qubits), letters, *angles)
    *controls, target = gate.qubits
    if gate.name in ("PHASE", "CPHASE"):
        return _controlled(qulacs.gate.U1(target, *gate.angles), controls)
    if gate.name == "CZ" and len(controls) > 1:
        return _controlled(qulacs.gate.Z(target), controls)
    return getattr(qulacs.gate, gate.name)(*gate.qubits, *angles)


def _controlled(gate: Any, controls: Sequence[int]) -> Any:
    if controls:
        gate = qulacs.gate.to_matrix_gate(gate)
    for control in controls:
        gate.add_control_qubit(control, 1)
    return gate


class Dense(DirectRegister):
    """The update of a state vector by gates that were made beforehand."""

    def __init__(self, num_qubits: int, threads: int | None) -> None:
        del threads  # read from the environment
        self._state = qulacs.QuantumState(num_qubits)

    def load(self, state: Amplitudes) -> None:
        self._state.load(state)

    def state(self) -> Amplitudes:
        vector: Amplitudes = self._state.get_vector()
        return vector

    def call(self, gate: Gate) -> Call:
        if gate.name == "MEASURE":
            qubit = gate.qubits[0]
            return self._measure, (qubit, qulacs.gate.P0(qubit), qulacs.gate.P1(qubit))
        return made_gate(gate).update_quantum_state, (self._state,)

    def _measure(self, qubit: int, zero: Any, one: Any) -> None:
        # Its own measurement gate copies the state for every outcome; this way is faster.
        zeros = self._state.get_zero_probability(qubit)
        if random.random() < zeros:
            zero.update_quantum_state(self._state)
            self._state.normalize(zeros)
        else:
            one.update_quantum_state(self._state)
            self._state.normalize(1 - zeros)


class Optimized(Dense):
    """The same with whole lists as circuits, whose gates its optimiser has merged."""

    def calls(self, gates: Sequence[Gate]) -> list[Call]:
        circuit = qulacs.QuantumCircuit(self._state.get_qubit_count())
        for gate in gates:
            circuit.add_gate(made_gate(gate))
        qulacs.circuit.QuantumCircuitOptimizer().optimize(circuit, LARGEST_MERGED)
        return [(circuit.update_quantum_state, (self._state,))]
