"""Records as the engine receives them: eleven words of 8 bytes, packed without the companion."""

from __future__ import annotations

import math
import struct
from collections.abc import Iterable, Iterator, Sequence
from typing import NamedTuple

TAG = 0x4E6D6272
WORD = (1 << 64) - 1
RECORD_BYTES = 88


class Record(NamedTuple):
    """The eleven words of a record in their order; `opcode` is the whole 64-bit value."""

    opcode: int
    target_mask: int = 0
    cond_mask: int = 0
    angle: float = 0.0
    cond_flag: int = 0
    read_flag: int = 0
    cond_neg_mask: int = 0
    target_offset: int = 0
    cond_offset: int = 0
    reserved_a: int = 0
    reserved_b: int = 0


def described(record: Record) -> str:
    """The words of the record that are not 0, the opcode and the masks in hexadecimal."""
    in_hex = ("opcode", "target_mask", "cond_mask", "cond_neg_mask")
    words = {name: word for name, word in record._asdict().items() if word}
    return " ".join(
        f"{name}={word:{'#x' if name in in_hex else ''}}" for name, word in words.items()
    )


def tagged(low: int, *words: int | float, **named_words: int | float) -> Record:
    """A record of the engine's tag, its other words in their order or by name."""
    return Record(TAG << 32 | low, *words, **named_words)  # type: ignore[arg-type]


def pack(records: Iterable[Record]) -> bytes:
    """The bytes of the records, little-endian."""
    return b"".join(struct.pack("<QQQdqqQQQQQ", *record) for record in records)


def event_id(angle: float) -> int:
    """The unsigned 64-bit id in the angle word: truncated, a negative one wraps around."""
    return math.trunc(angle) & WORD


def signed(word: int) -> int:
    """An unsigned 64-bit word reinterpreted as a signed one."""
    return (word & WORD) - ((word & 1 << 63) << 1)


def set_bits(mask: int) -> Iterator[int]:
    """The single-bit masks of `mask`, the lowest first."""
    while mask:
        lowest = mask & -mask
        yield lowest
        mask ^= lowest


def gathered(index: int, qubits: Sequence[int]) -> int:
    """The bits of the index at these qubits, the first one lowest."""
    return sum((index >> qubit & 1) << place for place, qubit in enumerate(qubits))
