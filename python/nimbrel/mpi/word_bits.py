"""Bits of many 64-bit words at once."""

from __future__ import annotations

from typing import Final

import numpy as np

from nimbrel.register_trace import Words

__all__ = ["ONE", "ZERO", "BitMap", "bit_counts", "highest_bits", "lowest_bits", "odd_parity"]

ZERO: Final = np.uint64(0)
ONE: Final = np.uint64(1)
_BYTES: Final = 8
_BYTE: Final = np.uint64(0xFF)


def bit_counts(words: Words) -> np.ndarray[tuple[int], np.dtype[np.intp]]:
    """The number of set bits of each word, shape (n,)."""
    octets = np.ascontiguousarray(words).view(np.uint8).reshape(-1, _BYTES)
    counts: np.ndarray[tuple[int], np.dtype[np.intp]] = np.unpackbits(octets, axis=1).sum(
        axis=1, dtype=np.intp
    )
    return counts


def odd_parity(words: Words) -> np.ndarray[tuple[int], np.dtype[np.bool_]]:
    """Whether each word has an odd number of set bits, shape (n,)."""
    odd: np.ndarray[tuple[int], np.dtype[np.bool_]] = bit_counts(words) % 2 == 1
    return odd


def lowest_bits(words: Words) -> Words:
    """The lowest set bit of each word, or 0."""
    lowest: Words = words & (~words + ONE)
    return lowest


def highest_bits(words: Words) -> Words:
    """The highest set bit of each word, or 0."""
    filled = words.copy()
    for distance in (1, 2, 4, 8, 16, 32):
        filled |= filled >> np.uint64(distance)
    highest: Words = filled ^ (filled >> ONE)
    return highest


class BitMap:
    """Moves the bits of words to other positions, a table look-up for each byte."""

    def __init__(self, positions: dict[int, int]) -> None:
        """Make the tables.

        Args:
            positions: The new position of each bit; a bit without one is dropped.
        """
        self._tables = []
        for number in range(max(positions, default=0) // _BYTES + 1):
            table = np.zeros(1, dtype=np.uint64)
            for bit in range(number * _BYTES, (number + 1) * _BYTES):
                place = positions.get(bit)
                moved = np.uint64(0 if place is None else 1 << place)
                table = np.concatenate([table, table | moved])
            self._tables.append(table)

    def __call__(self, words: Words) -> Words:
        """Move the bits of all words, shape (n,)."""
        moved: Words = self._tables[0][(words & _BYTE).astype(np.intp)]
        for number, table in enumerate(self._tables[1:], start=1):
            shift = np.uint64(number * _BYTES)
            moved |= table[(words >> shift & _BYTE).astype(np.intp)]
        return moved
