"""Bars of counts and of probabilities."""

from __future__ import annotations

from collections.abc import Mapping
from typing import TYPE_CHECKING, Any, Final

import numpy as np
import numpy.typing as npt

from nimbrel.masks import Qubits
from nimbrel.plot.figure import (
    BAR_COLOUR,
    REST_COLOUR,
    bar_axes,
    bar_width,
    bits,
    clean,
    label_bars,
)
from nimbrel.samples import Samples
from nimbrel.simulator import Simulator

if TYPE_CHECKING:
    from matplotlib.axes import Axes

    from nimbrel.dense import DenseSimulator
    from nimbrel.sparse import SparseSimulator

_MOST_BARS: Final = 32


def counts(
    samples: Samples | Mapping[str, int], *, most: int = _MOST_BARS, ax: Axes | None = None
) -> Axes:
    """Draw how often each outcome came.

    Args:
        samples: The outcomes, or the number of shots by bit string.
        most: Largest number of outcomes that have a bar. If there are more, the most frequent ones
            have one, and a grey bar has the sum of the others.
        ax: The axes to draw into; None makes a figure.

    Returns:
        The axes. The outcomes are in ascending order.

    Raises:
        ValueError: If `most` is below 1, or there are no outcomes.
    """
    found = samples.counts() if isinstance(samples, Samples) else dict(samples)
    axes = _bars(found, most, ax)
    axes.set_ylabel(f"shots (of {sum(found.values()):,})")
    if isinstance(samples, Samples):
        first, last = (samples.read_flags[k] for k in (0, -1))
        axes.set_xlabel(f"outcome (read flag {last} … {first})" if last != first
                        else f"outcome (read flag {first})")  # fmt: skip
    else:
        axes.set_xlabel("outcome")
    return axes


def probabilities(
    source: DenseSimulator | SparseSimulator | npt.ArrayLike,
    qubits: Qubits | None = None,
    *,
    most: int = _MOST_BARS,
    ax: Axes | None = None,
) -> Axes:
    """Draw the probability of each value of some qubits.

    Args:
        source: A simulator, or the probabilities of the values 0, 1, ..., shape (2**qubits,).
        qubits: The qubits of a simulator; bit k of a value is the k-th of them. Of an array it may
            name them, for the label.
        most: As for `counts`.
        ax: As for `counts`.

    Returns:
        The axes. The values are in ascending order; those of probability 0 have no bar if there
        are more than `most` values.

    Raises:
        ValueError: If `most` is below 1, if the number of probabilities is no power of two, or if
            a simulator is given without qubits.
    """
    listed = [qubits] if isinstance(qubits, int) else None if qubits is None else list(qubits)
    if isinstance(source, Simulator):
        if listed is None:
            raise ValueError("the qubits whose probabilities are drawn must be named")
        simulator: Any = source  # one without probabilities says which have them
        values = np.asarray(simulator.probabilities(listed))
    else:
        values = np.asarray(source, dtype=np.float64)
    width = values.size.bit_length() - 1
    if values.ndim != 1 or values.size != 1 << width:
        raise ValueError(f"{values.size} probabilities are no power of two")
    drawn = range(values.size) if values.size <= most else np.flatnonzero(values).tolist()
    axes = _bars({bits(k, width): float(values[k]) for k in drawn}, most, ax)
    axes.set_ylabel("probability")
    order = " … ".join(map(str, [listed[-1], listed[0]])) if listed else f"{width - 1} … 0"
    axes.set_xlabel(f"qubit {listed[0]}" if listed and len(listed) == 1 else f"qubits {order}")
    return axes


def _bars(heights: Mapping[str, float], most: int, ax: Axes | None) -> Axes:
    if most < 1:
        raise ValueError(f"most must be 1 or more, not {most}")
    if not heights:
        raise ValueError("there are no outcomes to draw")
    chosen = sorted(sorted(heights, key=lambda name: (-heights[name], name))[:most])
    values = [heights[name] for name in chosen]
    colours = [BAR_COLOUR] * len(chosen)
    labels = list(chosen)
    rest = len(heights) - len(chosen)
    if rest:
        labels.append(f"{rest:,} others" if rest > 1 else "1 other")
        values.append(sum(heights.values()) - sum(values))
        colours.append(REST_COLOUR)
    axes = bar_axes(ax, len(labels))
    axes.bar(range(len(labels)), values, width=bar_width(len(labels)), color=colours)
    clean(axes)
    label_bars(axes, labels)
    return axes
