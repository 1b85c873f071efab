"""This engine in the dense benchmark: one record a call, and whole arrays."""

from collections.abc import Sequence

import _lib_nb_sim
import nimbrel as nb
import numpy as np
from dense_model import Amplitudes
from dense_simulator import Call, DirectSimulator
from dense_tasks import Gate

FILTER = "StreamQPU"

FIXED = {"X": nb.x, "H": nb.h, "T": nb.t}
ROTATIONS = {"RX": nb.rx, "RZ": nb.rz}


def record_of(gate: Gate) -> nb.RecordArray:
    """The record of a gate, shape (1,)."""
    if gate.name in FIXED:
        return FIXED[gate.name](gate.qubits)
    if gate.name in ROTATIONS:
        return ROTATIONS[gate.name](gate.angle, gate.qubits)
    if gate.name == "CNOT":
        control, target = gate.qubits
        return nb.x(target, controls=control)
    if gate.name == "PAULI":
        letters = list(zip(gate.qubits, gate.paulis, strict=True))
        xs = [qubit for qubit, letter in letters if letter in "XY"]
        zs = [qubit for qubit, letter in letters if letter in "YZ"]
        return nb.ppr(gate.angle / 2, xs, zs)  # the record takes the full angle
    return nb.read(gate.qubits, 2)


class Engine(DirectSimulator):
    """The dense filter, one call of the module for each record."""

    name = "nimbrel"

    def __init__(self, num_qubits: int, threads: int | None) -> None:
        self._sim = nb.Simulator(FILTER, max_num_threads=threads or 0)
        self._sim.run(nb.reset(num_qubits))
        self._num_qubits = num_qubits

    def load(self, state: Amplitudes) -> None:
        """Push a state."""
        _lib_nb_sim.push_state(self._sim.handle, state, 0)

    def state(self) -> Amplitudes:
        """Pull the state."""
        dest = np.empty(1 << self._num_qubits, dtype=np.complex128)
        _lib_nb_sim.pull_state(self._sim.handle, dest)
        return dest

    def call(self, gate: Gate) -> Call:
        """One call of `put_instructions` with one record."""
        return _lib_nb_sim.put_instructions, (self._sim.handle, record_of(gate), 1)

    def close(self) -> None:
        """Delete the filter."""
        self._sim.close()


class BatchedEngine(Engine):
    """The dense filter, one call of the module for the whole list."""

    name = "batched"

    def calls(self, gates: Sequence[Gate]) -> list[Call]:
        """One call of `put_instructions` with all records."""
        records = nb.program(*map(record_of, gates))
        return [(_lib_nb_sim.put_instructions, (self._sim.handle, records, len(records)))]
