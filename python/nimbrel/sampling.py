"""Random draws of measurement outcomes from copied amplitudes, with NumPy's generator."""

from collections.abc import Sequence
from typing import Final

import numpy as np
import numpy.typing as npt

_ROW: Final = 64
"""Amplitudes whose probabilities are summed first. Of each row that is drawn, all are looked at."""


def check_shots(shots: int) -> None:
    """Check a number of draws.

    Raises:
        ValueError: If it is negative.
    """
    if shots < 0:
        raise ValueError(f"shots must be 0 or more, not {shots}")


def draw_terms(
    state: npt.NDArray[np.complex128], shots: int, rng: np.random.Generator
) -> npt.NDArray[np.int64]:
    """Draw positions in an array of amplitudes, each with the probability of its term.

    The probability of a term is |amplitude|**2, divided by the sum over all terms. The draws invert
    the cumulative distribution: L. Devroye, "Non-Uniform Random Variate Generation", section
    III.2, https://doi.org/10.1007/978-1-4613-8643-8.

    Args:
        state: Amplitudes, shape (terms,); the total probability need not be 1. In the array of a
            dense register, the position of a term is its index.
        shots: Number of draws.
        rng: The generator; one uniform number is drawn a shot.

    Returns:
        Positions, shape (shots,).

    Raises:
        ValueError: If the total probability is 0 or not finite.
    """
    if len(state) % _ROW == 0 and shots * _ROW < len(state):
        return _draw_by_rows(state.reshape(-1, _ROW), shots, rng)
    return _draw(state.real**2 + state.imag**2, shots, rng)[0]


def _draw(
    weights: npt.NDArray[np.float64], shots: int, rng: np.random.Generator
) -> tuple[npt.NDArray[np.int64], npt.NDArray[np.float64]]:
    """Draw positions in an array of weights, and what is left of each random number there."""
    summed = np.cumsum(weights)
    total = summed[-1] if len(summed) else 0.0
    if not 0.0 < total < np.inf:
        raise ValueError(f"a state of total probability {total:g} has no outcomes to draw")
    numbers = rng.random(shots) * total
    drawn = np.searchsorted(summed, numbers, side="right")
    # Rounding may raise a draw to the total itself, and no term past `last` has a probability.
    last = np.searchsorted(summed, total, side="left")
    indices: npt.NDArray[np.int64] = np.minimum(drawn, last).astype(np.int64)
    return indices, numbers - (summed[indices] - weights[indices])


def _draw_by_rows(
    rows: npt.NDArray[np.complex128], shots: int, rng: np.random.Generator
) -> npt.NDArray[np.int64]:
    """Draw a row of amplitudes, then one of its terms.

    Only sums over rows are stored, because touching new memory takes longer than the arithmetic.
    """
    parts = rows.view(np.float64)
    weights = np.einsum("ij,ij->i", parts, parts)
    chosen, rests = _draw(weights, shots, rng)
    summed = np.cumsum(np.abs(rows[chosen]) ** 2, axis=1)
    # The two sums of a row differ by rounding. No number may lie outside those of the terms.
    scaled = np.maximum(rests, 0.0) * (summed[:, -1] / weights[chosen])
    places = np.count_nonzero(summed <= scaled[:, None], axis=1)
    last = np.argmax(summed == summed[:, -1:], axis=1)
    drawn: npt.NDArray[np.int64] = chosen * rows.shape[1] + np.minimum(places, last)
    return drawn


def gather_bits(indices: npt.NDArray[np.int64], qubits: Sequence[int]) -> npt.NDArray[np.int64]:
    """Extract the bits of some qubits from term indices.

    Args:
        indices: Term indices, shape (n,).
        qubits: The qubits; bit k of a value is the bit of `qubits[k]`.

    Returns:
        The values, shape (n,).
    """
    values = np.zeros_like(indices)
    for place, qubit in enumerate(qubits):
        values |= (indices >> qubit & 1) << place
    return values
