"""The circuits of the Clifford benchmark, as plain gates that every simulator can be given.

There is no controlled Z among them: the filter's leaves the signs of the tableau alone.
"""

import random
from collections.abc import Sequence
from dataclasses import dataclass
from typing import Final, NamedTuple

SEED = 20_250_701
ONE_QUBIT_GATES: Final = ("H", "S", "S_INV", "X", "Y", "Z")
PAULIS: Final = ("X", "Y", "Z")
INVERSES: Final = {"S": "S_INV", "S_INV": "S"}


class Gate(NamedTuple):
    """One gate.

    Attributes:
        name: One of `ONE_QUBIT_GATES`, or CNOT.
        qubits: The qubit; for a CNOT, the control and the target.
    """

    name: str
    qubits: tuple[int, ...]


@dataclass(frozen=True)
class Circuit:
    """Gates on a register in 0, then a measurement of every qubit.

    Attributes:
        name: What the table calls it.
        task: What it does, in words.
        num_qubits: Width of the register.
        gates: In order.
        is_certain: Whether the outcomes are the same each time.
    """

    name: str
    task: str
    num_qubits: int
    gates: tuple[Gate, ...]
    is_certain: bool


def layer(qubits: Sequence[int], rng: random.Random) -> list[Gate]:
    """A gate on each qubit, then CNOTs on random pairs of them all."""
    gates = [Gate(rng.choice(ONE_QUBIT_GATES), (qubit,)) for qubit in qubits]
    order = rng.sample(qubits, len(qubits))
    return gates + [Gate("CNOT", pair) for pair in zip(order[::2], order[1::2], strict=False)]


def layers(qubits: Sequence[int], count: int, rng: random.Random) -> list[Gate]:
    """So many layers."""
    return [gate for _ in range(count) for gate in layer(qubits, rng)]


def random_circuit(num_qubits: int, depth: int) -> Circuit:
    """Layers of random gates, after which nearly every outcome is drawn."""
    gates = layers(range(num_qubits), depth, random.Random(SEED))
    return Circuit("random", f"{depth} layers", num_qubits, tuple(gates), is_certain=False)


def mirror_circuit(num_qubits: int, depth: int) -> Circuit:
    """Layers, a random Pauli on each qubit, and the layers undone: every outcome is fixed."""
    rng = random.Random(SEED)
    forward = layers(range(num_qubits), depth, rng)
    middle = [Gate(rng.choice(PAULIS), (qubit,)) for qubit in range(num_qubits)]
    backward = [Gate(INVERSES.get(name, name), qubits) for name, qubits in reversed(forward)]
    task = f"{depth} layers, Paulis, undone"
    return Circuit("mirror", task, num_qubits, (*forward, *middle, *backward), is_certain=True)
