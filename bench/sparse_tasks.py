"""The programs of the sparse benchmark, as plain gates that every simulator can be given."""

import random
from collections.abc import Sequence
from dataclasses import dataclass
from itertools import pairwise
from typing import NamedTuple

SEED = 20_250_611
ADDITIONS = 2
LAYERS = 4


class Gate(NamedTuple):
    """One gate.

    Attributes:
        name: H, X or PHASE.
        target: The qubit it acts on.
        controls: Qubits that must be 1.
        degrees: Angle of a phase.
    """

    name: str
    target: int
    controls: tuple[int, ...] = ()
    degrees: float = 0.0


@dataclass(frozen=True)
class Program:
    """Gates on a register in 0, then a measurement.

    Attributes:
        name: What the table calls it; an identifier.
        task: What it does, in words.
        inputs: Number k of superposed qubits: 2**k terms.
        num_qubits: Width of the register.
        gates: In order.
        measured: Qubits measured at the end.
    """

    name: str
    task: str
    inputs: int
    num_qubits: int
    gates: tuple[Gate, ...]
    measured: tuple[int, ...]


def adder(a: Sequence[int], b: Sequence[int], carries: Sequence[int]) -> list[Gate]:
    """Gates of b += a modulo 2**n: Toffolis and CNOTs. The n - 1 carries begin and end as 0."""
    gates = []
    for k in range(len(carries)):
        gates += _carry(a, b, carries, k)
    gates += _sum(a, b, carries, len(carries))
    for k in reversed(range(len(carries))):
        gates += reversed(_carry(a, b, carries, k))
        gates += _sum(a, b, carries, k)
    return gates


def _carry(a: Sequence[int], b: Sequence[int], carries: Sequence[int], k: int) -> list[Gate]:
    # The majority of a, b and the carry in: a AND b, or the carry where they differ.
    gates = [Gate("X", carries[k], (a[k], b[k]))]
    if k > 0:
        gates += [
            Gate("X", b[k], (a[k],)),
            Gate("X", carries[k], (b[k], carries[k - 1])),
            Gate("X", b[k], (a[k],)),
        ]
    return gates


def _sum(a: Sequence[int], b: Sequence[int], carries: Sequence[int], k: int) -> list[Gate]:
    return [Gate("X", b[k], (a[k],))] + ([Gate("X", b[k], (carries[k - 1],))] if k > 0 else [])


def toffoli_arithmetic(inputs: int) -> Program:
    """Add every number of `inputs` bits to a constant, `ADDITIONS` times over."""
    a, b = range(inputs), range(inputs, 2 * inputs)
    carries = range(2 * inputs, 3 * inputs - 1)
    constant = random.Random(SEED).getrandbits(inputs) | 1
    gates = [Gate("H", qubit) for qubit in a]
    gates += [Gate("X", b[k]) for k in range(inputs) if constant >> k & 1]
    for _ in range(ADDITIONS):
        gates += adder(a, b, carries)
    task = f"{ADDITIONS} additions of {inputs} superposed bits by Toffolis and CNOTs"
    return Program(
        f"Toffoli{inputs}", task, inputs, 3 * inputs - 1, tuple(gates), (*a, *b, *carries)
    )


def hadamards_and_phases(inputs: int, num_qubits: int = 50) -> Program:
    """Layers of Hadamards with phases and controlled phases between them, on spread qubits."""
    rng = random.Random(SEED)
    qubits = sorted(rng.sample(range(num_qubits), inputs))
    layer = [Gate("H", qubit) for qubit in qubits]
    gates = list(layer)
    for _ in range(LAYERS):
        gates += [Gate("PHASE", qubit, (), rng.uniform(10, 170)) for qubit in qubits]
        gates += [
            Gate("PHASE", high, (low,), rng.uniform(10, 170)) for low, high in pairwise(qubits)
        ]
        gates += layer
    task = f"{LAYERS} layers of {inputs} Hadamards, phases and controlled phases"
    return Program(f"Hadamard{inputs}", task, inputs, num_qubits, tuple(gates), tuple(qubits))
