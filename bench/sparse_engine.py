"""The sparse filter as a contestant of the sparse benchmark."""

import random
from collections.abc import Sequence

import numpy as np
import numpy.typing as npt
from nimbrel import RecordArray, Simulator, h, phase, program, read, reset, x
from sparse_tasks import SEED, Gate, Program

FIRST_FLAG = 2  # the flags below are constants

Terms = tuple[npt.NDArray[np.uint64], npt.NDArray[np.complex128]]


def record_of(gate: Gate) -> RecordArray:
    """One gate as a record."""
    if gate.name == "H":
        return h(gate.target, controls=gate.controls)
    if gate.name == "X":
        return x(gate.target, controls=gate.controls)
    return phase(gate.degrees, gate.target, controls=gate.controls)


def scrambling(qubits: Sequence[int]) -> RecordArray:
    """A network of CNOTs between superposed qubits, after which no qubit orders the list."""
    rng = random.Random(SEED)
    pairs = [rng.sample(qubits, 2) for _ in range(6 * len(qubits))]
    return program(*[x(target, controls=control) for target, control in pairs])


class Engine:
    """One program on the sparse filter; its records are made beforehand."""

    name = "nimbrel"

    def __init__(self, task: Program) -> None:
        """Make the records."""
        self._sim = Simulator("StreamSparseQPU")
        self._bits = len(task.measured)
        self._gates = program(reset(task.num_qubits), *map(record_of, task.gates))
        self._whole = program(self._gates, read(task.measured, FIRST_FLAG))

    def state(self) -> Terms:
        """Run the gates; the terms in ascending order of their index."""
        self._sim.run(self._gates)
        return self._sim.terms()

    def run(self) -> None:
        """Run the gates and the measurement, and fetch its outcome."""
        self._sim.run(self._whole)
        self._sim.flags(FIRST_FLAG, self._bits)

    def close(self) -> None:
        """Free the filter."""
        self._sim.close()
