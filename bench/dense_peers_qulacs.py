"""Qulacs in the dense benchmark: its state vector and its ready-made gates."""

import importlib
import math
import random
from collections.abc import Callable
from typing import Any

from dense_model import Amplitudes
from dense_simulator import Call, DirectSimulator
from dense_tasks import Gate

qulacs: Any = importlib.import_module("qulacs")


class Qulacs(DirectSimulator):
    """Qulacs' state vector and its ready-made gates."""

    name = "qulacs"

    def __init__(self, num_qubits: int, threads: int | None) -> None:
        del threads  # read from the environment
        self._state = qulacs.QuantumState(num_qubits)

    def load(self, state: Amplitudes) -> None:
        """Copy a state in."""
        self._state.load(state)

    def state(self) -> Amplitudes:
        """Copy the state out."""
        vector: Amplitudes = self._state.get_vector()
        return vector

    def call(self, gate: Gate) -> Call:
        """The update of a gate that was made beforehand."""
        if gate.name == "MEASURE":
            qubit = gate.qubits[0]
            return self._measure, (qubit, qulacs.gate.P0(qubit), qulacs.gate.P1(qubit))
        return _qulacs_gate(gate).update_quantum_state, (self._state,)

    def _measure(self, qubit: int, zero: Any, one: Any) -> None:
        # Its own measurement gate copies the state for every outcome; this way is faster.
        zeros = self._state.get_zero_probability(qubit)
        if random.random() < zeros:
            zero.update_quantum_state(self._state)
            self._state.normalize(zeros)
        else:
            one.update_quantum_state(self._state)
            self._state.normalize(1 - zeros)


def _qulacs_gate(gate: Gate) -> Any:
    angle = -math.radians(gate.angle)  # its rotations are exp(+i angle/2 P)
    target = gate.qubits[-1]
    makers: dict[str, Callable[[], Any]] = {
        "X": lambda: qulacs.gate.X(target),
        "H": lambda: qulacs.gate.H(target),
        "T": lambda: qulacs.gate.T(target),
        "RX": lambda: qulacs.gate.RX(target, angle),
        "RZ": lambda: qulacs.gate.RZ(target, angle),
        "CNOT": lambda: qulacs.gate.CNOT(gate.qubits[0], target),
        "PAULI": lambda: qulacs.gate.PauliRotation(
            list(gate.qubits), ["IXYZ".index(letter) for letter in gate.paulis], angle
        ),
    }
    return makers[gate.name]()
