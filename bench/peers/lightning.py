"""PennyLane-Lightning at its lowest Python level.

PennyLane's circuits and devices, and whatever turns a user's program into calls, are left out of
its time.
"""

import importlib
import random
from typing import Any

import numpy as np
from gates import Gate

from peers import Amplitudes, Call, DirectRegister

ops: Any = importlib.import_module("pennylane_lightning.lightning_qubit_ops")

_NAMES = {
    "X": "PauliX",
    "H": "Hadamard",
    "TOFFOLI": "Toffoli",
    "PHASE": "PhaseShift",
    "CPHASE": "ControlledPhaseShift",
    "RZZ": "IsingZZ",
}


class Dense(DirectRegister):
    """The state vector of "lightning.qubit", whose wire 0 is the highest qubit."""

    def __init__(self, num_qubits: int, threads: int | None) -> None:
        del threads  # read from the environment by its OpenMP
        self._num_qubits = num_qubits
        self._vector = ops.StateVectorC128(num_qubits)
        self._measurements = ops.MeasurementsC128(self._vector)

    def load(self, state: Amplitudes) -> None:
        self._vector.updateData(state)

    def state(self) -> Amplitudes:
        dest = np.empty(1 << self._num_qubits, dtype=np.complex128)
        self._vector.getState(dest)
        return dest

    def call(self, gate: Gate) -> Call:
        wires = [self._num_qubits - 1 - qubit for qubit in gate.qubits]
        if gate.name == "MEASURE":
            return self._measure, (wires[0], wires)
        if gate.name == "CZ" and len(wires) > 2:
            *controls, target = wires
            return self._vector.PauliZ, (controls, [True] * len(controls), [target], False, [])
        if len(gate.paulis) > 1 and gate.name not in _NAMES:
            return self._vector.applyPauliRot, (wires, False, gate.angles, gate.paulis)
        method = getattr(self._vector, _NAMES.get(gate.name, gate.name))
        return method, (wires, False, gate.angles)

    def _measure(self, wire: int, wires: list[int]) -> None:
        ones = self._measurements.probs(wires)[1]
        self._vector.collapse(wire, bool(random.random() < ones))
