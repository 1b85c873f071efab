"""Gates and circuits in no simulator's own terms, and their records for this engine.

Qubit 0 is the least significant, angles are in degrees.
"""

import math
from collections.abc import Callable, Iterable, Sequence
from dataclasses import dataclass
from typing import Any, Final, NamedTuple

import nimbrel as nb
import numpy as np

DENSE_TASKS: Final = ("X", "H", "CNOT", "T", "RX", "RZ", "PAULI", "MEASURE", "MIXED")
DENSE_SEED: Final = 20_250_318
ANGLE: Final = 33.0  # nothing special about it, so no simulator takes a short cut
MIXED_GATES_PER_QUBIT: Final = 2
FIRST_FLAG: Final = 2  # the flags below are constants


class Gate(NamedTuple):
    """One gate or measurement.

    Attributes:
        name: X, Y, Z, H, S, S_INV, T, CNOT, TOFFOLI, SWAP; CZ with one or more controls; PHASE,
            CPHASE (controlled) by an angle; R and letters, such as RX or RXYZ, for the rotation
            exp(-i angle/2 P) about that Pauli product; or MEASURE.
        qubits: Controls and the target, in this order; one for each letter of a rotation.
        degrees: The angle.
    """

    name: str
    qubits: tuple[int, ...]
    degrees: float = 0.0

    @property
    def angles(self) -> list[float]:
        """The angle in radians as the only entry; empty without one."""
        return [math.radians(self.degrees)] if self.degrees else []

    @property
    def paulis(self) -> str:
        """The letters of a rotation; empty for other gates."""
        return self.name[1:] if self.name[0] == "R" else ""


@dataclass(frozen=True)
class Circuit:
    """Gates on a register in 0, then a measurement of some qubits.

    Attributes:
        name: What the table calls it; an identifier.
        note: What it does, in words.
        num_qubits: Width of the register.
        gates: In order.
        measured: Qubits measured at the end.
        is_certain: Whether the outcomes are the same each time.
    """

    name: str
    note: str
    num_qubits: int
    gates: tuple[Gate, ...]
    measured: Sequence[int]
    is_certain: bool = False


_BUILDERS: Final[dict[str, Callable[..., nb.RecordArray]]] = {
    "X": nb.x, "CNOT": nb.x, "TOFFOLI": nb.x, "Y": nb.y, "Z": nb.z, "CZ": nb.z,
    "H": nb.h, "S": nb.s, "S_INV": nb.s_inv, "T": nb.t,
    "PHASE": nb.phase, "CPHASE": nb.phase, "RX": nb.rx, "RY": nb.ry, "RZ": nb.rz,
}  # fmt: skip


def record_of(gate: Gate) -> nb.RecordArray:
    """One gate as a record, shape (1,)."""
    *controls, target = gate.qubits
    if gate.name == "MEASURE":
        return nb.read(target, FIRST_FLAG)
    if gate.name == "SWAP":
        return nb.swap(*gate.qubits)
    if len(gate.paulis) > 1:
        letters = list(zip(gate.qubits, gate.paulis, strict=True))
        xs = [qubit for qubit, letter in letters if letter in "XY"]
        zs = [qubit for qubit, letter in letters if letter in "YZ"]
        return nb.ppr(gate.degrees / 2, xs, zs)  # the record takes the full angle
    angle: list[Any] = [gate.degrees] if gate.degrees else []
    return _BUILDERS[gate.name](*angle, target, controls=controls)


def records_of(gates: Iterable[Gate]) -> nb.RecordArray:
    """Gates as records, one each."""
    return nb.program(*map(record_of, gates))


def dense_gates(task: str, num_qubits: int) -> list[Gate]:
    """The gates of a task of the dense benchmark; their mean time is the figure."""
    qubits = range(num_qubits)
    ring = [(*qubits, *qubits)[first : first + 3] for first in qubits]
    if task == "MIXED":
        return mixed_circuit(num_qubits)
    if task == "CNOT":
        return [Gate("CNOT", (control, target)) for target, control, _ in ring]
    if task == "PAULI":
        return [Gate("RXYZ", neighbours, ANGLE) for neighbours in ring]
    if task == "MEASURE":  # the Hadamard keeps amplitudes from staying 0
        return [Gate(name, (qubit,)) for qubit in qubits for name in ("MEASURE", "H")]
    return [Gate(task, (qubit,), ANGLE if task in ("RX", "RZ") else 0.0) for qubit in qubits]


def mixed_circuit(num_qubits: int) -> list[Gate]:
    """Seeded random gates of one and two qubits, random angles among them."""
    rng = np.random.default_rng([DENSE_SEED, num_qubits])
    gates = []
    for _ in range(MIXED_GATES_PER_QUBIT * num_qubits):
        name = str(rng.choice(["X", "H", "CNOT", "T", "RX", "RZ"]))
        first, second = rng.permutation(num_qubits)[:2].tolist()
        qubits = (first, second) if name == "CNOT" else (first,)
        gates.append(Gate(name, qubits, float(rng.uniform(10, 170)) if name[0] == "R" else 0.0))
    return gates
