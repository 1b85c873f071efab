"""PennyLane-Lightning in the dense benchmark, at its lowest Python level.

PennyLane's circuits and devices, and whatever turns a user's program into calls, are left out
of its time.
"""

import importlib
import math
import random
from typing import Any

import numpy as np
from dense_model import Amplitudes
from dense_simulator import Call, DirectSimulator
from dense_tasks import Gate

lightning: Any = importlib.import_module("pennylane_lightning.lightning_qubit_ops")


class Lightning(DirectSimulator):
    """The state vector of "lightning.qubit", whose wire 0 is the highest qubit."""

    name = "lightning"

    def __init__(self, num_qubits: int, threads: int | None) -> None:
        del threads  # read from the environment by its OpenMP
        self._num_qubits = num_qubits
        self._vector = lightning.StateVectorC128(num_qubits)
        self._measurements = lightning.MeasurementsC128(self._vector)

    def load(self, state: Amplitudes) -> None:
        """Copy a state in."""
        self._vector.updateData(state)

    def state(self) -> Amplitudes:
        """Copy the state out."""
        dest = np.empty(1 << self._num_qubits, dtype=np.complex128)
        self._vector.getState(dest)
        return dest

    def call(self, gate: Gate) -> Call:
        """A method of the state vector; angles are in radians there."""
        wires = [self._num_qubits - 1 - qubit for qubit in gate.qubits]
        angles = [math.radians(gate.angle)] if gate.angle else []
        if gate.name == "MEASURE":
            return self._measure, (wires[0], wires)
        if gate.name == "PAULI":
            return self._vector.applyPauliRot, (wires, False, angles, gate.paulis)
        names = {"X": "PauliX", "H": "Hadamard"}
        method = getattr(self._vector, names.get(gate.name, gate.name))
        return method, (wires, False, angles)

    def _measure(self, wire: int, wires: list[int]) -> None:
        ones = self._measurements.probs(wires)[1]
        self._vector.collapse(wire, bool(random.random() < ones))
