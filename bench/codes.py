"""Circuits of error correction: rounds of gates, measurements and resets, without errors.

Most of their outcomes are fixed. Each is a list of `Gate`s, from a register in 0, with these names
beside those of unitary gates: CLEAR, MEASURE, and MEASURE_CLEAR, a measurement that leaves 0.
"""

import importlib
from collections.abc import Sequence
from typing import Any, Final, NamedTuple

import nimbrel as nb
from gates import FIRST_FLAG, Gate, record_of

_STIM_NAMES: Final = {
    "CNOT": "CX",
    "S_INV": "S_DAG",
    "CLEAR": "R",
    "MEASURE": "M",
    "MEASURE_CLEAR": "MR",
}
_STORING: Final = ("MEASURE", "MEASURE_CLEAR")
_NAMES: Final = {name: ours for ours, name in _STIM_NAMES.items()}
_NOTES: Final = ("TICK", "DETECTOR", "OBSERVABLE_INCLUDE", "QUBIT_COORDS", "SHIFT_COORDS")


class Rounds(NamedTuple):
    """A circuit with measurements among its gates."""

    name: str
    note: str
    num_qubits: int
    gates: Sequence[Gate]

    @property
    def num_outcomes(self) -> int:
        """Number of measurements."""
        return sum(gate.name in _STORING for gate in self.gates)


def records_of(rounds: Rounds) -> nb.RecordArray:
    """The circuit as records, one a gate, behind a reset. Outcome k goes to flag FIRST_FLAG + k."""
    records: list[nb.RecordArray] = [nb.reset(rounds.num_qubits)]
    flag = FIRST_FLAG
    for gate in rounds.gates:
        if gate.name == "CLEAR":
            records.append(nb.clear(gate.qubits))
        elif gate.name in _STORING:
            [qubit] = gate.qubits
            cleared = gate.name == "MEASURE_CLEAR"
            records.append(nb.write(qubit, 0, flag) if cleared else nb.read(qubit, flag))
            flag += 1
        else:
            records.append(record_of(gate))
    return nb.program(*records)


def stim_circuit_of(rounds: Rounds) -> Any:
    """The circuit for Stim, with runs of the same gate as one instruction."""
    circuit = importlib.import_module("stim").Circuit()
    for name, qubits, _ in rounds.gates:
        circuit.append(_STIM_NAMES.get(name, name), qubits)
    return circuit


def surface_code(distance: int, rounds: int) -> Rounds:
    """The memory experiment of a rotated surface code, as Stim's generator makes it."""
    stim: Any = importlib.import_module("stim")
    circuit = stim.Circuit.generated(
        "surface_code:rotated_memory_z", distance=distance, rounds=rounds
    )
    gates = []
    for instruction in circuit.flattened():
        if instruction.name not in _NOTES:
            name = str(_NAMES.get(instruction.name, instruction.name))
            groups = instruction.target_groups()
            gates += [Gate(name, tuple(target.value for target in group)) for group in groups]
    return Rounds("surface", f"distance {distance}, {rounds} rounds", circuit.num_qubits, gates)


def repetition_code(distance: int, rounds: int) -> Rounds:
    """Data on even qubits; the odd ones measure the parity of their neighbours."""
    width = 2 * distance - 1
    ancillas = range(1, width, 2)
    gates = []
    for _ in range(rounds):
        for step in (-1, 1):
            gates += [Gate("CNOT", (ancilla + step, ancilla)) for ancilla in ancillas]
        gates += [Gate("MEASURE_CLEAR", (ancilla,)) for ancilla in ancillas]
    gates += [Gate("MEASURE", (qubit,)) for qubit in range(0, width, 2)]
    return Rounds("repetition", f"distance {distance}, {rounds} rounds", width, gates)


def colour_code(size: int, rounds: int) -> Rounds:
    """A colour code on a torus of size * size hexagons, with two data qubits for each.

    The corners of the hexagons are the data qubits. Each hexagon has an ancilla, which measures the
    product of X, and then of Z, on the six corners.
    """
    corners = [_corners(row, column, size) for row in range(size) for column in range(size)]
    first_ancilla = 2 * size * size
    width = first_ancilla + len(corners)
    checks = list(zip(range(first_ancilla, width), corners, strict=True))
    gates = []
    for _ in range(rounds):
        for letter in "XZ":
            turns = [Gate("H", (ancilla,)) for ancilla, _ in checks] if letter == "X" else []
            gates += turns
            for corner in range(6):
                pairs = [(ancilla, data[corner]) for ancilla, data in checks]
                gates += [Gate("CNOT", pair if letter == "X" else pair[::-1]) for pair in pairs]
            gates += turns
            gates += [Gate("MEASURE_CLEAR", (ancilla,)) for ancilla, _ in checks]
    gates += [Gate("MEASURE", (qubit,)) for qubit in range(first_ancilla)]
    return Rounds("colour", f"{size} * {size} hexagons, {rounds} rounds", width, gates)


def _corners(row: int, column: int, size: int) -> list[int]:
    # The hexagons' centres form a triangular lattice. Its triangles are the corners: one that
    # points up and one that points down for each centre.
    def up(r: int, c: int) -> int:
        return 2 * (r % size * size + c % size)

    def down(r: int, c: int) -> int:
        return up(r, c) + 1

    above, left = row - 1, column - 1
    return [
        up(row, column), up(above, column), up(row, left),
        down(above, column), down(row, left), down(above, left),
    ]  # fmt: skip
