"""Drawing outcomes from a pulled state, with NumPy's generator and not the engine's."""

from collections.abc import Sequence

import numpy as np
import numpy.typing as npt


def draw_terms(
    state: npt.NDArray[np.complex128], shots: int, rng: np.random.Generator
) -> npt.NDArray[np.int64]:
    """Draw places in an array of amplitudes, each with the probability of its term.

    Args:
        state: Amplitudes, shape (terms,); the norm need not be 1. Of a dense register, in
            order of their index, so that a place is a term index.
        shots: Number of draws.
        rng: Where the draws come from: one uniform number a shot.

    Returns:
        Places, shape (shots,).

    Raises:
        ValueError: If the norm of the state is 0 or not finite.
    """
    summed = np.cumsum(state.real**2 + state.imag**2)
    total = summed[-1] if len(summed) else 0.0
    if not 0.0 < total < np.inf:
        raise ValueError(f"a state of total probability {total:g} has no outcomes to draw")
    drawn = np.searchsorted(summed, rng.random(shots) * total, side="right")
    # Rounding may lift a draw to the total itself; no term above this one has a probability.
    last = np.searchsorted(summed, total, side="left")
    indices: npt.NDArray[np.int64] = np.minimum(drawn, last).astype(np.int64)
    return indices


def gather_bits(indices: npt.NDArray[np.int64], qubits: Sequence[int]) -> npt.NDArray[np.int64]:
    """Pick the bits of some qubits out of term indices.

    Args:
        indices: Term indices, shape (n,).
        qubits: The qubits; bit k of a value is the one of `qubits[k]`.

    Returns:
        The values, shape (n,).
    """
    values = np.zeros_like(indices)
    for place, qubit in enumerate(qubits):
        values |= (indices >> qubit & 1) << place
    return values
