"""Sums over a whole state in the order of its terms, added as the engine adds them on one block.

A sum in another order differs in its last bits, and the amplitudes of a measured state with it.
"""

from __future__ import annotations

from collections.abc import Iterator
from typing import Final

import numpy as np
import numpy.typing as npt

from nimbrel.amplitudes import Amplitudes

__all__ = ["term_at", "total_probability"]

_CHUNK: Final = 1 << 15


def _running(values: npt.NDArray[np.float64], start: float) -> npt.NDArray[np.float64]:
    """The sums behind each value, added one by one to `start`."""
    sums: npt.NDArray[np.float64] = np.cumsum(np.append(start, values))
    return sums[1:]


def _chunks(state: Amplitudes) -> Iterator[tuple[int, Amplitudes]]:
    for start in range(0, len(state), _CHUNK):
        yield start, state[start : start + _CHUNK]


def total_probability(state: Amplitudes) -> float:
    """The sum of the squared magnitudes: real parts and imaginary parts apart, then both."""
    real = imaginary = 0.0
    for _, chunk in _chunks(state):
        real = float(_running(chunk.real**2, real)[-1])
        imaginary = float(_running(chunk.imag**2, imaginary)[-1])
    return real + imaginary


def term_at(state: Amplitudes, target: float) -> int:
    """The first term at which the summed probabilities reach a number, or else the last term."""
    total = 0.0
    for start, chunk in _chunks(state):
        sums = _running(chunk.real**2 + chunk.imag**2, total)
        total = float(sums[-1])
        if total >= target:
            reached = (sums >= target) & (chunk != 0)
            if reached.any():
                return start + int(reached.argmax())
    return len(state) - 1
