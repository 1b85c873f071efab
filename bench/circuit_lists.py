"""The circuits of circuits.py as lists of gates, on 6 or more qubits.

Random angles and graphs are seeded by the circuit's name and width, so every simulator and every
run has the same lists.
"""

import math
import random
from collections.abc import Callable, Iterator, Sequence
from typing import Final

from gates import Gate

QAOA_LAYERS: Final = 8
VQE_LAYERS: Final = 3
BRICKWORK_LAYERS: Final = 10
GROVER_ITERATIONS: Final = 10
EIGENPHASE: Final = 77.0  # degrees; no fraction of a turn that few counting qubits hold exactly


def _rng(name: str, num_qubits: int) -> random.Random:
    return random.Random(f"{name} {num_qubits}")


def _turn(rng: random.Random) -> float:
    return rng.uniform(10, 170)


def _on_each(name: str, qubits: Sequence[int]) -> list[Gate]:
    return [Gate(name, (qubit,)) for qubit in qubits]


def _cnot_chain(num_qubits: int) -> list[Gate]:
    return [Gate("CNOT", (qubit, qubit + 1)) for qubit in range(num_qubits - 1)]


def fourier(num_qubits: int) -> list[Gate]:
    """The Fourier transform of the lowest qubits, with the swaps that restore their order."""
    gates = []
    for target in reversed(range(num_qubits)):
        gates.append(Gate("H", (target,)))
        gates += [Gate("CPHASE", (c, target), 180 / 2 ** (target - c)) for c in range(target)]
    gates += [Gate("SWAP", (q, num_qubits - 1 - q)) for q in range(num_qubits // 2)]
    return gates


def _inverse_fourier(num_qubits: int) -> list[Gate]:
    return [gate._replace(degrees=-gate.degrees) for gate in reversed(fourier(num_qubits))]


def phase_estimation(num_qubits: int) -> list[Gate]:
    """The phase of a phase gate; the highest qubit holds its eigenstate."""
    eigenstate, counting = num_qubits - 1, range(num_qubits - 1)
    gates = [Gate("X", (eigenstate,)), *_on_each("H", counting)]
    angles = [EIGENPHASE * 2**qubit % 360 for qubit in counting]
    gates += [Gate("CPHASE", (q, eigenstate), angles[q]) for q in counting]
    return gates + _inverse_fourier(num_qubits - 1)


def qaoa(num_qubits: int) -> list[Gate]:
    """Layers for the maximum cut of a ring with random chords, three edges at each node."""
    rng = _rng("qaoa", num_qubits)
    qubits = range(num_qubits)
    ends = rng.sample(qubits, num_qubits)
    edges = [*zip(qubits, [*qubits[1:], 0], strict=True)]
    edges += zip(ends[::2], ends[1::2], strict=False)
    gates = _on_each("H", qubits)
    for _ in range(QAOA_LAYERS):
        cost, mixer = _turn(rng), _turn(rng)
        gates += [Gate("RZZ", edge, cost) for edge in edges]
        gates += [Gate("RX", (qubit,), mixer) for qubit in qubits]
    return gates


def vqe(num_qubits: int) -> list[Gate]:
    """Layers of RY with a chain of CNOTs between them, so that all amplitudes stay real."""
    rng = _rng("vqe", num_qubits)

    def rotations() -> list[Gate]:
        return [Gate("RY", (qubit,), _turn(rng)) for qubit in range(num_qubits)]

    gates = rotations()
    for _ in range(VQE_LAYERS):
        gates += _cnot_chain(num_qubits) + rotations()
    return gates


def w_state(num_qubits: int) -> list[Gate]:
    """From 0 to the equal superposition of all states with one qubit at 1."""
    gates = [Gate("X", (num_qubits - 1,))]
    for qubit in reversed(range(1, num_qubits)):
        angle = math.degrees(math.acos((qubit + 1) ** -0.5))
        gates.append(Gate("RY", (qubit - 1,), -angle))
        gates.append(Gate("CZ", (qubit, qubit - 1)))
        gates.append(Gate("RY", (qubit - 1,), angle))
    gates += [Gate("CNOT", (qubit - 1, qubit)) for qubit in reversed(range(1, num_qubits))]
    return gates


def ghz(num_qubits: int) -> list[Gate]:
    """From 0 to the equal superposition of all qubits at 0 and all at 1."""
    return [Gate("H", (0,)), *_cnot_chain(num_qubits)]


def adder(num_qubits: int) -> list[Gate]:
    """A ripple-carry adder: b += a, of half the qubits each but for the carries.

    Qubit 0 is the carry in, then come b and a by turns from the lowest bit on, last the carry out.
    """
    triples = [(2 * bit, 2 * bit + 1, 2 * bit + 2) for bit in range((num_qubits - 2) // 2)]
    gates = []
    for carry, b, a in triples:
        gates += [Gate("CNOT", (a, b)), Gate("CNOT", (a, carry)), Gate("TOFFOLI", (carry, b, a))]
    last = triples[-1][-1]
    gates.append(Gate("CNOT", (last, last + 1)))
    for carry, b, a in reversed(triples):
        gates += [Gate("TOFFOLI", (carry, b, a)), Gate("CNOT", (a, carry))]
        gates.append(Gate("CNOT", (carry, b)))
    return gates


def grover(num_qubits: int) -> list[Gate]:
    """A search for one random value; both reflections are a Z with all other qubits as controls."""
    rng = _rng("grover", num_qubits)
    qubits = range(num_qubits)
    zeros = _on_each("X", [qubit for qubit in qubits if rng.random() < 0.5])
    reflection = Gate("CZ", tuple(qubits))
    hadamards, flips = _on_each("H", qubits), _on_each("X", qubits)
    oracle = [*zeros, reflection, *zeros]
    diffusion = [*hadamards, *flips, reflection, *flips, *hadamards]
    return hadamards + (oracle + diffusion) * GROVER_ITERATIONS


def brickwork(num_qubits: int) -> list[Gate]:
    """Layers of random rotations, then CNOT or CZ on neighbours, shifted by one a layer."""
    rng = _rng("brickwork", num_qubits)
    gates = []
    for layer in range(BRICKWORK_LAYERS):
        for qubit in range(num_qubits):
            gates.append(Gate(rng.choice(("RX", "RY", "RZ")), (qubit,), _turn(rng)))
        for qubit in range(layer % 2, num_qubits - 1, 2):
            gates.append(Gate(rng.choice(("CNOT", "CZ")), (qubit, qubit + 1)))
    return gates


def _any_rotation(qubit: int, rng: random.Random) -> Iterator[Gate]:
    for name in ("RZ", "RY", "RZ"):
        yield Gate(name, (qubit,), _turn(rng))


def _any_two_qubit_gate(a: int, b: int, rng: random.Random) -> Iterator[Gate]:
    """Three CNOTs with rotations between, which reach every two-qubit gate but for a phase."""
    yield from _any_rotation(a, rng)
    yield from _any_rotation(b, rng)
    yield Gate("CNOT", (b, a))
    yield Gate("RZ", (a,), _turn(rng))
    yield Gate("RY", (b,), _turn(rng))
    yield Gate("CNOT", (a, b))
    yield Gate("RY", (b,), _turn(rng))
    yield Gate("CNOT", (b, a))
    yield from _any_rotation(a, rng)
    yield from _any_rotation(b, rng)


def quantum_volume(num_qubits: int) -> list[Gate]:
    """As many layers as qubits, each of random two-qubit gates on random pairs.

    No record takes the matrix of two qubits. So every simulator has the gates as CNOTs and
    rotations by random angles.
    """
    rng = _rng("volume", num_qubits)
    gates: list[Gate] = []
    for _ in range(num_qubits):
        order = rng.sample(range(num_qubits), num_qubits)
        for a, b in zip(order[::2], order[1::2], strict=False):
            gates += _any_two_qubit_gate(a, b, rng)
    return gates


CIRCUITS: Final[dict[str, Callable[[int], list[Gate]]]] = {
    "qft": fourier,
    "phase": phase_estimation,
    "qaoa": qaoa,
    "vqe": vqe,
    "w": w_state,
    "ghz": ghz,
    "adder": adder,
    "grover": grover,
    "brickwork": brickwork,
    "volume": quantum_volume,
}
