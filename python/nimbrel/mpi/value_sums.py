"""The probabilities of all values of some qubits, from one pass over a part of the state."""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np
import numpy.typing as npt

from nimbrel.amplitudes import Amplitudes
from nimbrel.mpi.parts import PIECE

__all__ = ["value_sums"]


def value_sums(part: Amplitudes, bits: Sequence[int]) -> npt.NDArray[np.float64]:
    """Sum the squared magnitudes of a part for each value of some bits of the index.

    Args:
        part: The amplitudes, shape (2**m,).
        bits: The k bits, each below m, once.

    Returns:
        The sums, shape (2**k,); bit j of an index is `bits[j]`.
    """
    length = min(len(part), PIECE)
    inner = length.bit_length() - 1
    low = [bit for bit in bits if bit < inner]
    high = sorted(bit for bit in bits if bit >= inner)
    sums = np.zeros((1 << len(high), 1 << len(low)))
    for number, piece in enumerate(part.reshape(-1, length)):
        value = sum((number << inner >> bit & 1) << place for place, bit in enumerate(high))
        sums[value] += _folded(piece.real**2 + piece.imag**2, low)
    found = sorted(bits)
    axes = [len(bits) - 1 - found.index(bit) for bit in reversed(bits)]
    ordered: npt.NDArray[np.float64] = sums.reshape((2,) * len(bits)).transpose(axes).reshape(-1)
    return ordered


def _folded(values: npt.NDArray[np.float64], kept: Sequence[int]) -> npt.NDArray[np.float64]:
    """Add the halves for each bit of the index that is not kept, from the highest bit down."""
    folded = values.reshape(1, -1)
    for bit in reversed(range(len(values).bit_length() - 1)):
        if bit in kept:
            folded = folded.reshape(-1, 1 << bit)
        else:
            folded = folded[:, : 1 << bit] + folded[:, 1 << bit :]
    return folded.reshape(-1)
