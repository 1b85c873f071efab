"""Random draws of measurement outcomes from copied amplitudes, with NumPy's generator."""

from collections.abc import Sequence

import numpy as np
import numpy.typing as npt


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
    summed = np.cumsum(state.real**2 + state.imag**2)
    total = summed[-1] if len(summed) else 0.0
    if not 0.0 < total < np.inf:
        raise ValueError(f"a state of total probability {total:g} has no outcomes to draw")
    drawn = np.searchsorted(summed, rng.random(shots) * total, side="right")
    # Rounding may raise a draw to the total itself, and no term past `last` has a probability.
    last = np.searchsorted(summed, total, side="left")
    indices: npt.NDArray[np.int64] = np.minimum(drawn, last).astype(np.int64)
    return indices


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
