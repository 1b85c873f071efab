"""Views of a part of the state, and walks over them in pieces that fit a cache."""

from __future__ import annotations

from collections.abc import Iterator, Mapping
from typing import Any, Final

import numpy as np
import numpy.typing as npt

from nimbrel.amplitudes import Amplitudes

__all__ = ["PIECE", "pieces", "probability", "view_of"]

PIECE: Final = 1 << 16
"""Amplitudes of a piece, 1 MiB."""


def view_of(part: Amplitudes, bits: Mapping[int, int]) -> npt.NDArray[np.complex128]:
    """The amplitudes whose index has certain bits, without a copy.

    Args:
        part: Amplitudes, shape (2**m,).
        bits: The value of each bit of the index that is fixed.

    Returns:
        A view with one axis more than there are bits, the highest bits first.
    """
    shape: list[int] = []
    chosen: list[Any] = []
    above = len(part).bit_length() - 1
    for bit in sorted(bits, reverse=True):
        shape += [1 << (above - bit - 1), 2]
        chosen += [slice(None), bits[bit]]
        above = bit
    view: npt.NDArray[np.complex128] = part.reshape([*shape, 1 << above])[tuple(chosen)]
    return view


def pieces(view: npt.NDArray[Any], most: int = PIECE) -> Iterator[npt.NDArray[Any]]:
    """Cut a view along its first axes into pieces of at most `most` amplitudes, in order."""
    if view.size <= most:
        yield view
        return
    if len(view) == 1:
        yield from pieces(view[0], most)
        return
    rows = max(1, most // (view.size // len(view)))
    for start in range(0, len(view), rows):
        yield from pieces(view[start : start + rows], most)


def probability(view: npt.NDArray[np.complex128]) -> float:
    """The sum of the squared magnitudes of a view."""
    total = 0.0
    for piece in pieces(view):
        parts = np.ascontiguousarray(piece).reshape(-1).view(np.float64)
        total += float(np.einsum("i,i->", parts, parts))
    return total
