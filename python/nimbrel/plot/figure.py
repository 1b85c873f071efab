"""What all pictures share: axes, colours and labels of basis states."""

from __future__ import annotations

from collections.abc import Sequence
from typing import TYPE_CHECKING, Final

import matplotlib.pyplot as plt
import numpy as np
from matplotlib.colors import ListedColormap

if TYPE_CHECKING:
    from matplotlib.axes import Axes

BAR_COLOUR: Final = "#3b6ea5"
REST_COLOUR: Final = "#b8bec7"
_PHASE_COLOURS: Final = 256
_LONGEST_BITS: Final = 12
_LONGEST_DIGITS: Final = 16
_LONGEST_LEVEL: Final = 3
"""Characters of the longest labels that stand side by side without being turned."""


def new_axes(ax: Axes | None, *, width: float = 6.4, height: float = 3.8) -> Axes:
    """The axes to draw into: those given, or those of a new figure."""
    if ax is not None:
        return ax
    _, made = plt.subplots(figsize=(width, height), layout="constrained")
    return made


def bar_axes(ax: Axes | None, num_bars: int) -> Axes:
    """Axes that are wide enough for some bars."""
    return new_axes(ax, width=min(max(3.6, 1.6 + 0.32 * num_bars), 12.0))


def clean(ax: Axes) -> None:
    """Leave out the frame's upper and right line, and put faint lines behind the bars."""
    ax.spines[["top", "right"]].set_visible(False)
    ax.grid(axis="y", color="0.88", linewidth=0.8)
    ax.set_axisbelow(True)


def label_bars(ax: Axes, labels: Sequence[str]) -> None:
    """Write a label under each bar, turned if they would touch."""
    labels = [short(label) for label in labels]
    turned = max(map(len, labels), default=0) > _LONGEST_LEVEL or len(labels) > 12
    ax.set_xticks(
        range(len(labels)),
        labels,
        rotation=90 if turned else 0,
        family="monospace",
        fontsize="small" if len(labels) > 24 else "medium",
    )
    margin = 0.6 if len(labels) > 4 else 0.75
    ax.set_xlim(-margin, len(labels) - 1 + margin)


def phase_colours() -> ListedColormap:
    """A cyclic map of colours that are all equally light, for phases from -pi to pi.

    The colours are a circle in the space Oklab: B. Ottosson, "A perceptual color space for image
    processing", https://bottosson.github.io/posts/oklab/.
    """
    hues = np.linspace(-np.pi, np.pi, _PHASE_COLOURS) + np.deg2rad(25)
    lightness, chroma = 0.70, 0.125
    a, b = chroma * np.cos(hues), chroma * np.sin(hues)
    cube_roots = np.stack(
        [
            lightness + 0.3963377774 * a + 0.2158037573 * b,
            lightness - 0.1055613458 * a - 0.0638541728 * b,
            lightness - 0.0894841775 * a - 1.2914855480 * b,
        ]
    )
    to_rgb = np.array(
        [
            [4.0767416621, -3.3077115913, 0.2309699292],
            [-1.2684380046, 2.6097574011, -0.3413193965],
            [-0.0041960863, -0.7034186147, 1.7076147010],
        ]
    )
    linear = np.clip(to_rgb @ cube_roots**3, 0, 1)
    rgb = np.where(linear <= 0.0031308, 12.92 * linear, 1.055 * linear ** (1 / 2.4) - 0.055)
    return ListedColormap(np.clip(rgb, 0, 1).T, "phase")


def bits(index: int, num_qubits: int) -> str:
    """A basis state, qubit 0 rightmost."""
    return f"{index:0{num_qubits}b}" if num_qubits else ""


def short(name: str) -> str:
    """A bit string as a label: in hexadecimal if it is long, without its middle if it is longer."""
    if len(name) <= _LONGEST_BITS or set(name) - {"0", "1"}:
        return name
    digits = f"{int(name, 2):0{-(-len(name) // 4)}x}"
    if len(digits) > _LONGEST_DIGITS:
        digits = f"{digits[: _LONGEST_DIGITS // 2]}…{digits[-_LONGEST_DIGITS // 2 :]}"
    return f"0x{digits}"


def bar_width(num_bars: int) -> float:
    """The width of each bar, as a part of the distance of two."""
    return 0.78 if num_bars > 4 else 0.5
