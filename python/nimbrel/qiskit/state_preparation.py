"""Rows that prepare a state from qubits that are 0.

From the highest qubit down, each qubit is rotated about Y, controlled by the qubits above it, so
that it divides the probability of every term of those as the state does; a phase follows. This is
the method of M. Möttönen et al., https://arxiv.org/abs/quant-ph/0407010, with controlled rotations
as they are: a record may have any number of controls. A control on which the angles do not depend
is left out, so a product state takes two rows a qubit.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.opcodes import Opcode
from nimbrel.qiskit.rows import Angle, Rows, When, global_phase, row

_RY, _PHASE = int(Opcode.RY), int(Opcode.PHASE)

Floats: TypeAlias = npt.NDArray[np.float64]
Bools: TypeAlias = npt.NDArray[np.bool_]

_SAME = 1e-14
"""Angles in radians that differ by less are taken as equal."""


def preparation_rows(
    rows: Rows, amplitudes: Sequence[complex], qubits: Sequence[int], when: When
) -> Angle | None:
    """Add rows that turn qubits from 0 to a state.

    Args:
        rows: The list to which the rows are added.
        amplitudes: The state, shape (2**n,); the first qubit is the least significant.
        qubits: The mask of each of the n qubits.
        when: The conditions of the rows.

    Returns:
        The global phase that the rows lack, in radians, or None.
    """
    state = np.asarray(amplitudes, dtype=np.complex128)
    levels = [(np.abs(state), np.angle(state))]
    while len(levels[-1][0]) > 1:
        levels.append(_halved(*levels[-1]))
    for target in reversed(range(len(qubits))):
        norms, phases = levels[target]
        low, high = norms[0::2], norms[1::2]
        turns = 2 * np.arctan2(high, low)
        multiplexed(rows, _RY, (turns, (low > 0) | (high > 0)), target, qubits, when)
        steps = turned_once(phases[1::2] - phases[0::2])
        multiplexed(rows, _PHASE, (steps, (low > 0) & (high > 0)), target, qubits, when)
    return global_phase(rows, float(levels[-1][1][0]), when)


def turned_once(angles: Floats) -> Floats:
    """The same angles of phases in radians, above -pi and up to pi, but for rounding."""
    turns = np.ceil(angles / (2 * np.pi) - 0.5 - _SAME)
    return angles - 2 * np.pi * turns


def _halved(norms: Floats, phases: Floats) -> tuple[Floats, Floats]:
    """Norm and phase of each pair of neighbours; the phase is that of the first that is not 0."""
    pairs = norms.reshape(-1, 2)
    chosen = np.where(pairs[:, 0] > 0, phases[0::2], phases[1::2])
    return np.hypot(pairs[:, 0], pairs[:, 1]), chosen


def multiplexed(
    rows: Rows,
    opcode: int,
    angles: tuple[Floats, Bools],
    target: int,
    qubits: Sequence[int],
    when: When,
) -> None:
    """Add a rotation whose angle depends on the qubits above the target.

    Args:
        rows: The list to which the rows are added.
        opcode: The rotation.
        angles: The angle for each value of the qubits above, in radians, shape (2**m,), and whether
            it matters; other angles may be changed.
        target: The number of the target among `qubits`.
        qubits: The mask of each qubit; those above the target are the controls.
        when: The conditions of the rows.
    """
    values, matters = angles
    controls: list[int] = list(qubits[target + 1 :])
    for place in reversed(range(len(controls))):
        merged = _without_control(values, matters, place)
        if merged is not None:
            values, matters = merged
            del controls[place]
    every = sum(controls)
    for pattern in np.flatnonzero(matters & (values != 0.0)).tolist():
        ones = sum(mask for place, mask in enumerate(controls) if pattern >> place & 1)
        inner = When(when.controls | every, when.zeros | (every ^ ones), when.flag)
        rows.append(row(opcode, qubits[target], inner, float(np.degrees(values[pattern]))))


def _without_control(values: Floats, matters: Bools, place: int) -> Any:
    """Values and `matters` without a control, or None if the values depend on it."""
    shape = (-1, 2, 1 << place)
    v, m = values.reshape(shape), matters.reshape(shape)
    both = m[:, 0] & m[:, 1]
    if np.any(np.abs(v[:, 0] - v[:, 1])[both] > _SAME):
        return None
    return np.where(m[:, 0], v[:, 0], v[:, 1]).ravel(), (m[:, 0] | m[:, 1]).ravel()
