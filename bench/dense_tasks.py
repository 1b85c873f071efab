"""What the dense benchmark runs: gates in no simulator's own terms, and lists of them.

Qubit 0 is the least significant, angles are in degrees, and a rotation by an angle is
exp(-i angle/2 P).
"""

from collections.abc import Callable
from dataclasses import dataclass

import numpy as np

SEED = 20_250_318
MIXED_GATES_PER_QUBIT = 2
ANGLE = 33.0  # of the rotations: nothing special about it, so no simulator takes a short cut


@dataclass(frozen=True)
class Gate:
    """One gate or measurement.

    Attributes:
        name: "X", "H", "CNOT", "T", "RX", "RZ", "PAULI" (a rotation) or "MEASURE".
        qubits: Target; control and target of a CNOT; one for each letter of `paulis`.
        angle: Of a rotation, in degrees.
        paulis: Letters of a Pauli rotation, one for each qubit.
    """

    name: str
    qubits: tuple[int, ...]
    angle: float = 0.0
    paulis: str = ""


@dataclass(frozen=True)
class Task:
    """One row of the table.

    Attributes:
        name: What the table calls it.
        gates: Makes the gates from the number of qubits; their mean time is the figure.
        overhead: Makes gates whose time is taken off, one for one: they only keep the state
            in shape. None when there are none.
        checked: Makes the gates that are checked when they are not `gates` themselves.
    """

    name: str
    gates: Callable[[int], list[Gate]]
    overhead: Callable[[int], list[Gate]] | None = None
    checked: Callable[[int], list[Gate]] | None = None

    def figure_gates(self, num_qubits: int) -> int:
        """Gates among which the time is shared out."""
        extra = self.overhead(num_qubits) if self.overhead else []
        return len(self.gates(num_qubits)) - len(extra)

    def check_gates(self, num_qubits: int) -> list[Gate]:
        """The gates whose result is compared."""
        return (self.checked or self.gates)(num_qubits)


def on_every_target(name: str, angle: float = 0.0) -> Callable[[int], list[Gate]]:
    """The same gate on each qubit in turn."""
    return lambda num_qubits: [Gate(name, (qubit,), angle) for qubit in range(num_qubits)]


def cnots(num_qubits: int) -> list[Gate]:
    """A CNOT on each qubit, controlled by the next one around the ring."""
    return [Gate("CNOT", ((qubit + 1) % num_qubits, qubit)) for qubit in range(num_qubits)]


def pauli_rotations(num_qubits: int) -> list[Gate]:
    """A rotation about X Y Z on each three neighbours around the ring."""
    return [
        Gate("PAULI", tuple((qubit + step) % num_qubits for step in range(3)), ANGLE, "XYZ")
        for qubit in range(num_qubits)
    ]


def measurements(num_qubits: int) -> list[Gate]:
    """A measurement of each qubit, then a Hadamard, so that no amplitude stays 0."""
    return [Gate(name, (qubit,)) for qubit in range(num_qubits) for name in ("MEASURE", "H")]


def one_measurement(num_qubits: int) -> list[Gate]:
    """A measurement of the qubit in the middle."""
    return [Gate("MEASURE", (num_qubits // 2,))]


def mixed_circuit(num_qubits: int) -> list[Gate]:
    """Seeded random gates of one and two qubits, random angles among them."""
    rng = np.random.default_rng([SEED, num_qubits])
    gates = []
    for _ in range(MIXED_GATES_PER_QUBIT * num_qubits):
        name = str(rng.choice(["X", "H", "CNOT", "T", "RX", "RZ"]))
        first, second = rng.permutation(num_qubits)[:2].tolist()
        qubits = (first, second) if name == "CNOT" else (first,)
        angle = float(rng.uniform(10, 170)) if name in ("RX", "RZ") else 0.0
        gates.append(Gate(name, qubits, angle))
    return gates


TASKS = (
    Task("X", on_every_target("X")),
    Task("H", on_every_target("H")),
    Task("CNOT", cnots),
    Task("T", on_every_target("T")),
    Task("RX", on_every_target("RX", ANGLE)),
    Task("RZ", on_every_target("RZ", ANGLE)),
    Task("PAULI", pauli_rotations),
    Task("MEASURE", measurements, overhead=on_every_target("H"), checked=one_measurement),
    Task("MIXED", mixed_circuit),
)
