"""Rotations whose angle depends on the values of other qubits, by rows with controls.

A control on which the angles do not depend is left out.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.qiskit.rows import Angle, Rows, When, global_phase

Floats: TypeAlias = npt.NDArray[np.float64]
Bools: TypeAlias = npt.NDArray[np.bool_]

_SAME = 1e-14
"""Angles in radians that differ by less are taken as equal."""
_NOTHING = 1e-15
"""Smaller angles in radians are rounding errors of 0."""


def turned_once(angles: Floats) -> Floats:
    """The same angles of phases in radians, above -pi and up to pi, but for rounding."""
    turns = np.ceil(angles / (2 * np.pi) - 0.5 - _SAME)
    return angles - 2 * np.pi * turns


def multiplexed(
    rows: Rows,
    opcode: int,
    angles: Floats,
    target: int,
    controls: Sequence[int],
    when: When,
    matters: Bools | None = None,
) -> Angle | None:
    """Add a rotation whose angle depends on the values of other qubits.

    Args:
        rows: The list to which the rows are added.
        opcode: The rotation.
        angles: The angle for each value of the m controls, in radians, shape (2**m,).
        target: The mask of the target; 0 for a phase of all terms that the controls choose.
        controls: The mask of each control; the first one is the least significant.
        when: The conditions of the rows.
        matters: Which angles matter, shape (2**m,); others may be changed. None means all.

    Returns:
        The global phase that the rows lack, in radians, or None.
    """
    values = angles
    cared = np.ones(len(angles), dtype=np.bool_) if matters is None else matters
    chosen = list(controls)
    for place in reversed(range(len(chosen))):
        merged = _without_control(values, cared, place)
        if merged is not None:
            values, cared = merged
            del chosen[place]
    if not target and not chosen:
        return global_phase(rows, float(values[0]), when)
    every, flag = when.controls | sum(chosen), when.flag
    ones = [0]
    for mask in chosen:
        ones += [known | mask for known in ones]
    degrees = np.degrees(values).tolist()
    for pattern in np.flatnonzero(cared & (np.abs(values) > _NOTHING)).tolist():
        zeros = when.zeros | (ones[-1] ^ ones[pattern])
        rows.append((opcode, target, every, degrees[pattern], flag, 0, zeros, 0, 0, 0, 0))
    return None


def _without_control(values: Floats, matters: Bools, place: int) -> Any:
    """Values and `matters` without a control, or None if the values depend on it."""
    shape = (-1, 2, 1 << place)
    v, m = values.reshape(shape), matters.reshape(shape)
    both = m[:, 0] & m[:, 1]
    if np.any(np.abs(v[:, 0] - v[:, 1])[both] > _SAME):
        return None
    return np.where(m[:, 0], v[:, 0], v[:, 1]).ravel(), (m[:, 0] | m[:, 1]).ravel()
