"""Bits of many 64-bit words at once."""

from __future__ import annotations

from typing import Final

import numpy as np
import numpy.typing as npt

from nimbrel.register_trace import Words

__all__ = ["ONE", "ZERO", "BitMaps", "bit_counts", "highest_bits", "lowest_bits", "odd_parity"]

ZERO: Final = np.uint64(0)
ONE: Final = np.uint64(1)
_WORD_BYTES: Final = 8
_BYTE_BITS: Final = 8
_BYTE_VALUES: Final = 1 << _BYTE_BITS


def bit_counts(words: Words) -> np.ndarray[tuple[int], np.dtype[np.intp]]:
    """The number of set bits of each word, shape (n,)."""
    octets = np.ascontiguousarray(words).view(np.uint8).reshape(-1, _WORD_BYTES)
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


class BitMaps:
    """Moves the bits of words to other positions, by one of several maps for each word."""

    def __init__(self, places: Words) -> None:
        """Make a table for each byte of a word.

        Args:
            places: The new position of each bit that has one, below 64, shape (maps, bits). Higher
                bits are dropped.
        """
        maps, bits = places.shape
        self._bytes = -(-bits // _BYTE_BITS)
        moved = np.zeros((maps, self._bytes * _BYTE_BITS), dtype=np.uint64)
        moved[:, :bits] = ONE << places
        moved = moved.reshape(maps, self._bytes, _BYTE_BITS)
        tables = np.zeros((maps, self._bytes, _BYTE_VALUES), dtype=np.uint64)
        for bit in range(_BYTE_BITS):
            filled = 1 << bit
            lower = tables[:, :, :filled]
            np.bitwise_or(lower, moved[:, :, bit, None], out=tables[:, :, filled : 2 * filled])
        self._tables = tables.reshape(-1)

    def __call__(self, words: Words, chosen: npt.NDArray[np.intp]) -> Words:
        """Move the bits of words.

        Args:
            words: Rows of words, shape (rows, n).
            chosen: The map of each column, shape (n,).
        """
        octets = np.ascontiguousarray(words, dtype="<u8").view(np.uint8)
        octets = octets.reshape(*words.shape, _WORD_BYTES)
        start = chosen * (self._bytes * _BYTE_VALUES)
        moved: Words = self._tables[start + octets[..., 0]]
        for number in range(1, self._bytes):
            start += _BYTE_VALUES
            moved |= self._tables[start + octets[..., number]]
        return moved
