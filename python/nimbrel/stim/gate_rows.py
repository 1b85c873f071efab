"""The gates and measurements of Stim as records that are exact on a Clifford filter.

The sequences of one-qubit gates are the shortest of H, S and Paulis with the gate's tableau. The
gates on two qubits are products of these with a CX, a SWAP or a rotation about a Pauli product:

    CZ = H(b) CX H(b)         XCX = H(a) CX H(a)        YCX = H_YZ(a) CX H_YZ(a)
    ISWAP = S(a) S(b) CZ SWAP         SQRT_PP = exp(-i pi/4 PP) up to a phase
"""

from __future__ import annotations

from collections.abc import Iterable, Mapping
from typing import Final

from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import Opcode
from nimbrel.translation.row_types import Row, Rows

_H, _S, _S_INV = int(Opcode.H), int(Opcode.S), int(Opcode.S_INV)
_X, _Y, _Z, _SWAP = int(Opcode.X), int(Opcode.Y), int(Opcode.Z), int(Opcode.SWAP)
_READ, _PPM, _PPR = int(Opcode.READ), int(Opcode.PPM), int(Opcode.PPR)
_CLEAR, _EXTEND = int(Opcode.CLEAR), int(Opcode.EXTEND)

ONE_QUBIT: Final[Mapping[str, tuple[int, ...]]] = {
    **{"I": (), "X": (_X,), "Y": (_Y,), "Z": (_Z,), "H": (_H,), "S": (_S,), "S_DAG": (_S_INV,)},
    **{"SQRT_X": (_H, _S, _H), "SQRT_X_DAG": (_H, _S_INV, _H)},
    **{"SQRT_Y": (_H, _X), "SQRT_Y_DAG": (_H, _Z)},
    **{"H_XY": (_S, _Y), "H_YZ": (_S_INV, _H, _S), "H_NXY": (_S, _X), "H_NXZ": (_H, _Y)},
    **{"H_NYZ": (_S, _H, _S_INV), "C_XYZ": (_S_INV, _H), "C_ZYX": (_H, _S)},
    **{"C_NXYZ": (_S, _H, _Y), "C_NZYX": (_H, _S, _X), "C_XNYZ": (_S, _H)},
    **{"C_XYNZ": (_S, _H, _Z), "C_ZNYX": (_H, _S_INV), "C_ZYNX": (_H, _S, _Y)},
}
"""The opcodes of each gate on one qubit, the first one acting first."""

_BASIS: Final = {"X": "H", "Y": "H_YZ", "Z": "I"}
"""The gate, its own inverse, that exchanges a Pauli matrix with Z."""

_CONTROLLED: Final[Mapping[str, tuple[str, str]]] = {
    **{"CX": ("Z", "X"), "CY": ("Z", "Y"), "CZ": ("Z", "Z")},
    **{f"{a}C{b}": (a, b) for a in "XY" for b in "XYZ"},
}
"""The Pauli matrices of a controlled gate: it acts where both are -1."""

_ROTATIONS: Final[Mapping[str, tuple[str, float]]] = {
    f"SQRT_{letter * 2}{end}": (letter, -45.0 if end else 45.0)
    for letter in "XYZ"
    for end in ("", "_DAG")
}

TWO_QUBIT: Final = frozenset(
    {*_CONTROLLED, *_ROTATIONS, "II", "SWAP", "ISWAP", "ISWAP_DAG", "CXSWAP", "SWAPCX", "CZSWAP"}
)
"""The names of the gates on two qubits."""

CONTROLLED: Final = _CONTROLLED


def on_qubit(opcode: int, qubit: int, flag: int = 0) -> Row:
    """A gate on one qubit."""
    offset = qubit - qubit % WORD_BITS
    return (opcode, 1 << (qubit - offset), 0, 0.0, flag, 0, 0, offset, 0, 0, 0)


def cnot(control: int, target: int) -> Row:
    """A CX."""
    at, of = control - control % WORD_BITS, target - target % WORD_BITS
    return (_X, 1 << (target - of), 1 << (control - at), 0.0, 0, 0, 0, of, at, 0, 0)


def on_words(opcode: int, qubits: Iterable[int]) -> Rows:
    """A gate on different qubits, one record for each word of the register."""
    masks: dict[int, int] = {}
    for qubit in qubits:
        offset = qubit - qubit % WORD_BITS
        masks[offset] = masks.get(offset, 0) | 1 << (qubit - offset)
    return [(opcode, mask, 0, 0.0, 0, 0, 0, at, 0, 0, 0) for at, mask in masks.items()]


def one_qubit_rows(name: str, qubits: list[int]) -> Rows:
    """A gate of `ONE_QUBIT` on qubits, which may repeat."""
    if len(set(qubits)) == len(qubits):
        return [row for opcode in ONE_QUBIT[name] for row in on_words(opcode, qubits)]
    return [on_qubit(opcode, qubit) for qubit in qubits for opcode in ONE_QUBIT[name]]


def _basis_rows(letter: str, qubit: int) -> Rows:
    return [on_qubit(opcode, qubit) for opcode in ONE_QUBIT[_BASIS[letter]]]


def _controlled_rows(name: str, a: int, b: int) -> Rows:
    first, second = _CONTROLLED[name]
    if second == "Z" and first != "Z":
        (first, second), (a, b) = ("Z", first), (b, a)
    # CX is the form of Z and X, so the second basis is exchanged with X.
    outer = _basis_rows(first, a)
    before = {"X": (), "Y": (_S_INV,), "Z": (_H,)}[second]
    after = {"X": (), "Y": (_S,), "Z": (_H,)}[second]
    return [
        *outer,
        *(on_qubit(opcode, b) for opcode in before),
        cnot(a, b),
        *(on_qubit(opcode, b) for opcode in after),
        *outer,
    ]


def _swap_rows(a: int, b: int) -> Rows:
    if a // WORD_BITS != b // WORD_BITS:
        return [cnot(a, b), cnot(b, a), cnot(a, b)]
    offset = a - a % WORD_BITS
    mask = 1 << (a - offset) | 1 << (b - offset)
    return [(_SWAP, mask, 0, 0.0, 0, 0, 0, offset, 0, 0, 0)]


def two_qubit_rows(name: str, a: int, b: int) -> Rows:
    """A gate of `TWO_QUBIT`."""
    if name in _CONTROLLED:
        return _controlled_rows(name, a, b)
    if name in _ROTATIONS:
        letter, angle = _ROTATIONS[name]
        return rotation_rows({a: letter, b: letter}, angle)
    if name == "II":
        return []
    swap = _swap_rows(a, b)
    if name == "CXSWAP":
        return [cnot(a, b), *swap]
    if name == "SWAPCX":
        return [*swap, cnot(a, b)]
    if name == "CZSWAP":
        return [*_controlled_rows("CZ", a, b), *swap]
    if name == "SWAP":
        return swap
    phase = _S if name == "ISWAP" else _S_INV
    return [on_qubit(phase, a), on_qubit(phase, b), *_controlled_rows("CZ", a, b), *swap]


def _product_masks(product: Mapping[int, str]) -> tuple[int, int]:
    xs = sum(1 << qubit for qubit, letter in product.items() if letter in "XY")
    zs = sum(1 << qubit for qubit, letter in product.items() if letter in "YZ")
    return xs, zs


def _gathering(product: Mapping[int, str]) -> tuple[int, Rows, Rows]:
    """How to gather a product on its lowest qubit: that qubit, the rows before and those after."""
    basis = [row for qubit, letter in product.items() for row in _basis_rows(letter, qubit)]
    lowest = min(product)
    ladder = [cnot(qubit, lowest) for qubit in product if qubit != lowest]
    # The basis changes are their own inverses, and those of different qubits commute.
    return lowest, [*basis, *ladder], [*reversed(ladder), *basis]


def rotation_rows(product: Mapping[int, str], angle: float) -> Rows:
    """A rotation about a Pauli product by 45 or -45 degrees."""
    if max(product) < WORD_BITS:
        return [(_PPR, *_product_masks(product), angle, 0, 0, 0, 0, 0, 0, 0)]
    lowest, before, after = _gathering(product)
    return [*before, on_qubit(_S if angle > 0 else _S_INV, lowest), *after]


def product_measurement(product: Mapping[int, str], flag: int) -> tuple[Rows, int]:
    """A measurement of a Pauli product into a flag.

    Returns:
        The rows, and the position among them of the one that stores the flag.
    """
    if max(product) < WORD_BITS:
        return [(_PPM, *_product_masks(product), 1.0, 0, flag, 0, 0, 0, 0, 0)], 0
    lowest, before, after = _gathering(product)
    return [*before, measurement(lowest, flag), *after], len(before)


def measurement(qubit: int, flag: int) -> Row:
    """A measurement of one qubit into a flag; a negative flag stores the opposite."""
    offset = qubit - qubit % WORD_BITS
    return (_READ, 1 << (qubit - offset), 0, 0.0, 0, flag, 0, offset, 0, 0, 0)


def measurements(qubits: list[int], flags: list[int]) -> Rows:
    """Measurements into flags, one row for as many as a record can store."""
    rows: Rows = []
    last, highest = (-1, 0), -1
    for qubit, flag in zip(qubits, flags, strict=True):
        follows = last == (qubit - qubit % WORD_BITS, flag - 1) and qubit > highest
        if rows and follows and flag > 0:
            row = rows[-1]
            rows[-1] = (row[0], row[1] | 1 << qubit % WORD_BITS, *row[2:])
        else:
            rows.append(measurement(qubit, flag))
        last, highest = (qubit - qubit % WORD_BITS, flag), qubit
    return rows


def resets(qubits: list[int]) -> Rows:
    """Set qubits to 0."""
    return on_words(_CLEAR, dict.fromkeys(qubits))


def basis_changes(letter: str, qubits: list[int]) -> Rows:
    """Exchange the basis of a letter with that of Z, on different qubits."""
    return one_qubit_rows(_BASIS[letter], list(dict.fromkeys(qubits)))
