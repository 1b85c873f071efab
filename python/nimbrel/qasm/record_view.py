"""The operations of a program with their qubits as lists, for the writer."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Final, NamedTuple

from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import Opcode
from nimbrel.records import RecordArray

_FLAG_COUNT: Final = 100_000_000
_PRODUCTS: Final = frozenset({Opcode.PPR, Opcode.PPM})
_JUMPS: Final = frozenset({Opcode.JUMP_FWD, Opcode.LABEL})


class UnwritableError(Exception):
    """A record that has no form in OpenQASM 3."""


class Operation(NamedTuple):
    """An operation: a record with the extension records before it.

    Attributes:
        position: The index of the record.
        opcode: What it does.
        targets: The target qubits, ascending; of a Pauli product those with X or Y.
        controls: The controls, ascending; of a Pauli product the qubits with Z or Y; of a write
            those that become 1.
        zeros: The negated controls, ascending.
        angle: The angle in degrees.
        flag: The classical condition.
        read_flag: The word `read_flag`; of a Pauli rotation 0.
        label: The word `target_mask` of a jump, a label and a reset.
        options: The word `cond_mask` of a free.
        words: The operands of a NAND.
        product_controls: The controls of a Pauli rotation.
    """

    position: int
    opcode: Opcode
    targets: list[int]
    controls: list[int]
    zeros: list[int]
    angle: float
    flag: int
    read_flag: int
    label: int
    options: int
    words: tuple[int, int]
    product_controls: list[int]

    @property
    def name(self) -> str:
        """The name of the opcode."""
        return self.opcode.name


def operations(program: RecordArray) -> Iterator[Operation]:
    """The operations of a program.

    Raises:
        ValueError: If a record has an unknown opcode, or an offset within a 64-qubit word.
    """
    extensions: list[tuple[int | float, ...]] = []
    for index, row in enumerate(program.tolist()):
        if row[0] == Opcode.EXTEND:
            extensions.append(row)
            continue
        yield _operation(index, row, extensions)
        # Jumps and labels leave extensions to the operation behind them.
        if row[0] not in _JUMPS:
            extensions = []


def _operation(
    index: int, row: tuple[int | float, ...], extensions: list[tuple[int | float, ...]]
) -> Operation:
    try:
        opcode = Opcode(int(row[0]))
    except ValueError:
        raise ValueError(f"record {index}: the opcode {row[0]:#x} is unknown") from None
    if opcode in _JUMPS:
        extensions = []
    words = [row, *extensions]
    controls = _qubits(index, words, 2, 8)
    zeros = [] if opcode in _PRODUCTS else [
        qubit for qubit in _qubits(index, words, 6, 8) if qubit in controls]  # fmt: skip
    is_rotation = opcode == Opcode.PPR
    return Operation(
        index,
        opcode,
        _qubits(index, words, 1, 7),
        [qubit for qubit in controls if qubit not in zeros],
        _bits(int(row[6])) if is_rotation else zeros,
        float(row[3]),
        _flag(int(row[4])),
        0 if is_rotation else _flag(int(row[5])),
        int(row[1]),
        int(row[2]),
        (int(row[1]), int(row[2])),
        _bits(int(row[5]) & 2**64 - 1 & ~int(row[6])) if is_rotation else [],
    )


def _qubits(
    index: int, rows: list[tuple[int | float, ...]], mask_word: int, offset_word: int
) -> list[int]:
    qubits: list[int] = []
    for row in rows:
        mask, offset = int(row[mask_word]), int(row[offset_word])
        if mask and offset % WORD_BITS:
            raise ValueError(f"record {index}: the offset {offset} is no multiple of {WORD_BITS}")
        qubits += [offset + bit for bit in _bits(mask)]
    return sorted(qubits)


def _bits(mask: int) -> list[int]:
    return [bit for bit in range(WORD_BITS) if mask >> bit & 1]


def _flag(number: int) -> int:
    # Flags repeat after this number; its multiples are the constant 0.
    return (abs(number) % _FLAG_COUNT) * (1 if number > 0 else -1)


def signed(word: int) -> int:
    """An unsigned word as the signed number of a flag."""
    return word - 2**64 if word >= 2**63 else word


def flag_text(flag: int) -> str:
    """The classical bit of a read flag, from 2 on."""
    return f"c[{flag - 2}]"
