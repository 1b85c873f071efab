"""Bars of amplitudes, with the phase as colour."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any, Final

import numpy as np
import numpy.typing as npt
from matplotlib.cm import ScalarMappable
from matplotlib.colors import Normalize

from nimbrel.dense import DenseSimulator
from nimbrel.plot.figure import bar_axes, bar_width, bits, clean, label_bars, phase_colours
from nimbrel.simulator import Simulator

if TYPE_CHECKING:
    from matplotlib.axes import Axes

    from nimbrel.sparse import SparseSimulator

_MOST_BARS: Final = 32
_NEGLIGIBLE: Final = 1e-12
_TICKS: Final = {-1.0: "$-π$", -0.5: "$-π/2$", 0.0: "$0$", 0.5: "$π/2$", 1.0: "$π$"}


def amplitudes(
    source: DenseSimulator | SparseSimulator | npt.ArrayLike,
    *,
    most: int = _MOST_BARS,
    ax: Axes | None = None,
) -> Axes:
    """Draw the magnitude of each amplitude, coloured by its phase.

    Args:
        source: A simulator, or the amplitudes of the basis states 0, 1, ..., shape (2**qubits,).
        most: Largest number of basis states that have a bar; the ones of the largest magnitude.
        ax: The axes to draw into; None makes a figure.

    Returns:
        The axes. The basis states are in ascending order. The bar beside the axes tells the phases,
        relative to the phase of the whole state.

    Raises:
        ValueError: If `most` is below 1, if the number of amplitudes is no power of two, or if the
            simulator is closed.
    """
    if most < 1:
        raise ValueError(f"most must be 1 or more, not {most}")
    indices, values, num_qubits = terms_of(source, most)
    order = np.argsort(indices)
    indices, values = indices[order], values[order]
    axes = bar_axes(ax, len(indices) + 3)
    colours, norm = phase_colours(), Normalize(-1, 1)
    axes.bar(
        range(len(indices)),
        np.abs(values),
        width=bar_width(len(indices)),
        color=colours(norm(np.angle(values) / np.pi)),
    )
    clean(axes)
    label_bars(axes, [bits(int(index), num_qubits) for index in indices])
    axes.set_xlabel(f"basis state (qubit {num_qubits - 1} … 0)" if num_qubits > 1 else "qubit 0")
    axes.set_ylabel("magnitude of the amplitude")
    bar = axes.figure.colorbar(
        ScalarMappable(norm, colours), ax=axes, ticks=list(_TICKS), label="phase", aspect=18
    )
    bar.ax.set_yticklabels(list(_TICKS.values()))
    return axes


def terms_of(
    source: DenseSimulator | SparseSimulator | npt.ArrayLike, most: int
) -> tuple[npt.NDArray[np.int64], npt.NDArray[np.complex128], int]:
    """The heaviest terms of a state, and the number of its qubits.

    Args:
        source: A simulator, or all amplitudes.
        most: Largest number of terms.

    Returns:
        The indices and the amplitudes, the heaviest first, and the number of qubits. A sparse
        filter does not tell the number of its qubits; then it is that of the largest index.

    Raises:
        ValueError: If the number of amplitudes is no power of two.
    """
    if isinstance(source, Simulator):
        simulator: Any = source  # one without amplitudes says which have them
        num_terms = source._num_terms() if isinstance(source, DenseSimulator) else None
        count = most if num_terms is None else min(most, num_terms)
        found = [term for term in simulator.biggest(count) if abs(term[1]) > _NEGLIGIBLE]
        indices = np.array([index for index, _ in found], dtype=np.int64)
        values = np.array([value for _, value in found], dtype=np.complex128)
        largest = int(indices.max(initial=1)) if num_terms is None else num_terms - 1
        return indices, values, max(largest.bit_length(), 1)
    state = np.asarray(source, dtype=np.complex128)
    num_qubits = state.size.bit_length() - 1
    if state.ndim != 1 or state.size != 1 << num_qubits:
        raise ValueError(f"{state.size} amplitudes are no power of two")
    if state.size <= most:
        return np.arange(state.size), state, num_qubits
    heaviest = np.argsort(-np.abs(state), kind="stable")[:most]
    kept = heaviest[np.abs(state[heaviest]) > _NEGLIGIBLE]
    return kept, state[kept], num_qubits
