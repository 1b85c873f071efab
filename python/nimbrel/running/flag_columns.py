"""Packs drawn outcomes into rows of read flags."""

from collections.abc import Sequence
from typing import Final

import numpy as np
import numpy.typing as npt

from nimbrel.running.stored_flags import QubitBit, Source

__all__ = ["pack_bits", "pack_indices", "row_bytes"]

_WORD_BITS: Final = 64


def row_bytes(columns: int) -> int:
    """The bytes of a row of packed outcomes."""
    return -(-columns // 8)


def pack_indices(
    sources: Sequence[Source], indices: npt.NDArray[np.int64]
) -> npt.NDArray[np.uint8]:
    """Pack outcomes that are bits of term indices.

    Args:
        sources: The source of each column.
        indices: A term index for each shot, shape (shots,).

    Returns:
        Packed rows, shape (shots, row_bytes(columns)).
    """
    # Columns whose qubits lie equally far away move together.
    moves: dict[tuple[int, int], int] = {}
    constants = [0] * -(-len(sources) // _WORD_BITS)
    for column, source in enumerate(sources):
        word, bit = divmod(column, _WORD_BITS)
        if isinstance(source, QubitBit):
            key = word, source.qubit - bit
            moves[key] = moves.get(key, 0) | 1 << bit
            constants[word] |= int(source.inverted) << bit
        else:
            constants[word] |= source << bit
    words = np.empty((len(indices), len(constants)), dtype="<u8")
    words[:] = np.array(constants, dtype=np.uint64)
    unsigned = indices.view(np.uint64)
    for (word, shift), mask in moves.items():
        amount = np.uint64(abs(shift))
        moved = unsigned >> amount if shift > 0 else unsigned << amount
        words[:, word] ^= moved & np.uint64(mask)
    rows = words.view(np.uint8).reshape(len(indices), 8 * len(constants))
    return np.ascontiguousarray(rows[:, : row_bytes(len(sources))])


def pack_bits(
    sources: Sequence[Source], qubits: Sequence[int], bits: npt.NDArray[np.uint8]
) -> npt.NDArray[np.uint8]:
    """Pack outcomes that are given qubit by qubit.

    Args:
        sources: The source of each column.
        qubits: The qubits that were measured.
        bits: Their values, shape (shots, len(qubits)).

    Returns:
        Packed rows, shape (shots, row_bytes(columns)).
    """
    places = {qubit: place for place, qubit in enumerate(qubits)}
    columns = np.zeros((len(bits), len(sources)), dtype=np.uint8)
    for column, source in enumerate(sources):
        if isinstance(source, QubitBit):
            columns[:, column] = bits[:, places[source.qubit]] ^ np.uint8(source.inverted)
        else:
            columns[:, column] = source
    return np.packbits(columns, axis=1, bitorder="little")
