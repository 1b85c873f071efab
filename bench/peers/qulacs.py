"""Qulacs: its state vector and its ready-made gates."""

import importlib
import random
from typing import Any

from gates import Gate

from peers import Amplitudes, Call, DirectRegister

qulacs: Any = importlib.import_module("qulacs")


def made_gate(gate: Gate) -> Any:
    """A gate as Qulacs has it; its rotations are exp(+i angle/2 P)."""
    angles = [-angle for angle in gate.angles]
    if len(gate.paulis) > 1:
        letters = ["IXYZ".index(letter) for letter in gate.paulis]
        return qulacs.gate.PauliRotation(list(gate.qubits), letters, *angles)
    return getattr(qulacs.gate, gate.name)(*gate.qubits, *angles)


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
