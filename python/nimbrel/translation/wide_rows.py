"""Rows whose masks go beyond the 64 bits of a word.

A record has one word of targets and one of controls; extension records before it have the others. A
Pauli product needs a letter in its first word, so a product in a wide register is gathered on one
qubit by CX gates instead.
"""

from __future__ import annotations

from itertools import zip_longest
from typing import Final

from nimbrel.opcodes import Opcode
from nimbrel.translation.row_types import Row, Rows

_WORD: Final = 2**64 - 1
_EXTEND, _X, _H = int(Opcode.EXTEND), int(Opcode.X), int(Opcode.H)
_S, _S_INV, _RZ, _READ = int(Opcode.S), int(Opcode.S_INV), int(Opcode.RZ), int(Opcode.READ)
_PPR, _PPM = int(Opcode.PPR), int(Opcode.PPM)
_WITHOUT_QUBITS: Final = frozenset(
    int(opcode) for opcode in (Opcode.FLAG_NAND, Opcode.JUMP_FWD, Opcode.LABEL, Opcode.RESET)
)


def wide_rows(rows: Rows) -> tuple[Rows, list[int]]:
    """Divide rows into records of 64-bit masks.

    Returns:
        The new rows, and for each old row, and the end, the index of its first new row.
    """
    new: Rows = []
    starts = []
    for row in rows:
        starts.append(len(new))
        if row[0] in _WITHOUT_QUBITS:
            new.append(row)
        elif row[0] in (_PPR, _PPM):
            for gathered in _gathered(row):
                _divide(new, gathered)
        else:
            _divide(new, row)
    return new, [*starts, len(new)]


def _divide(new: Rows, row: Row) -> None:
    opcode, target, controls, angle, flag, read_flag, zeros, *_ = row
    if (target | controls) <= _WORD:
        new.append(row)
        return
    words = [
        (target_word, target_at, control_word, control_at, zeros >> control_at & _WORD)
        for (target_word, target_at), (control_word, control_at) in zip_longest(
            _words(target), _words(controls), fillvalue=(0, 0)
        )
    ]
    for target_word, target_at, control_word, control_at, zero_word in words[1:]:
        negated = zero_word if control_word else 0
        new.append(
            (_EXTEND, target_word, control_word, 0.0, 0, 0, negated, target_at, control_at, 0, 0)
        )
    target_word, target_at, control_word, control_at, zero_word = words[0]
    negated = zero_word if control_word else 0
    new.append(
        (
            opcode,
            target_word,
            control_word,
            angle,
            flag,
            read_flag,
            negated,
            target_at,
            control_at,
            0,
            0,
        )
    )


def _words(mask: int) -> list[tuple[int, int]]:
    """The words of a mask that are not 0, each with its offset."""
    offsets = range(0, mask.bit_length(), 64)
    return [(mask >> at & _WORD, at) for at in offsets if mask >> at & _WORD]


def _gathered(row: Row) -> Rows:
    """A Pauli rotation or measurement as one of Z on the product's lowest qubit."""
    opcode, xs, zs, angle, flag, read_flag, zeros, *_ = row
    letters = xs | zs
    lowest = letters & -letters
    others = letters ^ lowest
    basis: Rows = []
    if xs & zs:
        basis.append((_S_INV, xs & zs, 0, 0.0, flag, 0, 0, 0, 0, 0, 0))
    if xs:
        basis.append((_H, xs, 0, 0.0, flag, 0, 0, 0, 0, 0, 0))
    ladder: Rows = []
    while others:
        qubit = others & -others
        others ^= qubit
        ladder.append((_X, lowest, qubit, 0.0, flag, 0, 0, 0, 0, 0, 0))
    if opcode == _PPR:
        middle = (_RZ, lowest, read_flag, 2 * angle, flag, 0, zeros, 0, 0, 0, 0)
    else:
        middle = (_READ, lowest, 0, 0.0, flag, read_flag, 0, 0, 0, 0, 0)
        if angle < 0:  # the sign of the product
            ladder.append((_X, lowest, 0, 0.0, flag, 0, 0, 0, 0, 0, 0))
    back = [(_S, *each[1:]) if each[0] == _S_INV else each for each in reversed(basis)]
    return [*basis, *ladder, middle, *reversed(ladder), *back]
