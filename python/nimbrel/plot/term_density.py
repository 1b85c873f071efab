"""Where the heaviest terms of a state lie among its basis states."""

from __future__ import annotations

from typing import TYPE_CHECKING, Final

import numpy as np
import numpy.typing as npt
from matplotlib.colors import LogNorm

from nimbrel.plot.amplitude_bars import terms_of
from nimbrel.plot.figure import new_axes
from nimbrel.sampling import gather_bits

if TYPE_CHECKING:
    from matplotlib.axes import Axes

    from nimbrel.dense import DenseSimulator
    from nimbrel.sparse import SparseSimulator

_MOST_TERMS: Final = 10_000
_MOST_CELL_BITS: Final = 7
_LEAST_RATIO: Final = 10.0
_MOST_RUNS: Final = 5


def density(
    source: DenseSimulator | SparseSimulator | npt.ArrayLike,
    *,
    most: int = _MOST_TERMS,
    ax: Axes | None = None,
) -> Axes:
    """Draw how the probability of the heaviest terms is spread over the basis states.

    The qubits that are not the same in all these terms span a square: the upper half of them runs
    along the horizontal axis and the lower half along the vertical one. Each cell holds the summed
    probability of its terms.

    Args:
        source: A simulator, or all amplitudes, shape (2**qubits,).
        most: Largest number of terms that are drawn.
        ax: The axes to draw into; None makes a figure.

    Returns:
        The axes. Their title tells how many terms are drawn and what they hold of the probability.

    Raises:
        ValueError: If `most` is below 1, or if there is no term.
    """
    if most < 1:
        raise ValueError(f"most must be 1 or more, not {most}")
    indices, values, _ = terms_of(source, most)
    weights = np.abs(values) ** 2
    indices, weights = indices[weights > 0], weights[weights > 0]
    if not len(indices):
        raise ValueError("there are no terms to draw")
    differing = int(np.bitwise_or.reduce(indices ^ indices[0]))
    qubits = [qubit for qubit in range(64) if differing >> qubit & 1]
    low, high = qubits[: len(qubits) // 2], qubits[len(qubits) // 2 :]
    axes = new_axes(ax, width=5.6, height=4.6)
    _draw(axes, (gather_bits(indices, high), gather_bits(indices, low)), weights,
          (len(high), len(low)))  # fmt: skip
    axes.set_xlabel(_axis_name(high))
    axes.set_ylabel(_axis_name(low))
    terms = f"{len(indices):,} heaviest terms" if len(indices) > 1 else "the heaviest term"
    axes.set_title(f"{terms}, {100 * weights.sum():.4g} % of the probability", fontsize="medium")
    return axes


def _draw(
    axes: Axes,
    places: tuple[npt.NDArray[np.int64], npt.NDArray[np.int64]],
    weights: npt.NDArray[np.float64],
    bits: tuple[int, int],
) -> None:
    columns, rows = (min(count, _MOST_CELL_BITS) for count in bits)
    across, up = places[0] >> (bits[0] - columns), places[1] >> (bits[1] - rows)
    cells = np.zeros((1 << rows, 1 << columns))
    np.add.at(cells, (up, across), weights)
    heaviest, lightest = cells.max(), cells[cells > 0].min()
    # Without a range, a logarithmic scale has no ends.
    norm = LogNorm(min(lightest, heaviest / _LEAST_RATIO), heaviest)
    image = axes.imshow(
        np.ma.masked_equal(cells, 0),
        norm=norm,
        cmap="viridis_r",
        origin="lower",
        interpolation="nearest",
        aspect="auto",
        extent=(0, 2.0 ** bits[0], 0, 2.0 ** bits[1]),
    )
    axes.set_facecolor("0.96")
    axes.figure.colorbar(image, ax=axes, label="probability in a cell")
    for axis, count in ((axes.xaxis, bits[0]), (axes.yaxis, bits[1])):
        ticks = sorted({0.0, *(2.0**count * k / 4 for k in range(1, 5))})
        axis.set_ticks(ticks, [_power(tick) for tick in ticks])


def _power(value: float) -> str:
    """A tick: a number up to 1024, or a multiple of a power of two."""
    if value <= 1024:
        return f"{value:g}"
    exponent = int(np.log2(value))
    factor = value / 2.0**exponent
    return f"$2^{{{exponent}}}$" if factor == 1 else f"${factor:g}·2^{{{exponent}}}$"


def _axis_name(qubits: list[int]) -> str:
    """The qubits of an axis, highest first, with consecutive ones as ranges."""
    if not qubits:
        return "no qubit differs"
    runs: list[list[int]] = []
    for qubit in reversed(qubits):
        if runs and runs[-1][-1] == qubit + 1:
            runs[-1].append(qubit)
        else:
            runs.append([qubit])
    names = [f"{run[0]} to {run[-1]}" if len(run) > 1 else f"{run[0]}" for run in runs]
    if len(names) > _MOST_RUNS:
        return f"value of {len(qubits)} of the qubits {qubits[-1]} … {qubits[0]}"
    return f"value of qubit{'s' * (len(qubits) > 1)} {', '.join(names)}"
