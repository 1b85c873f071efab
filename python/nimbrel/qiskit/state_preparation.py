"""Rows that prepare a state from qubits that are 0.

From the highest qubit down, each qubit is rotated about Y, controlled by the qubits above it, so
that it divides the probability of every term of those as the state does; a phase follows. This is
the method of M. Möttönen et al., https://arxiv.org/abs/quant-ph/0407010, with controlled rotations
as they are: a record may have any number of controls. A product state takes two rows a qubit.
"""

from __future__ import annotations

from collections.abc import Sequence

import numpy as np

from nimbrel.opcodes import Opcode
from nimbrel.qiskit.multiplexers import Floats, multiplexed, turned_once
from nimbrel.qiskit.rows import Angle, Rows, When, global_phase

_RY, _PHASE = int(Opcode.RY), int(Opcode.PHASE)


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
        above = qubits[target + 1 :]
        multiplexed(rows, _RY, turns, qubits[target], above, when, (low > 0) | (high > 0))
        steps = turned_once(phases[1::2] - phases[0::2])
        multiplexed(rows, _PHASE, steps, qubits[target], above, when, (low > 0) & (high > 0))
    return global_phase(rows, float(levels[-1][1][0]), when)


def _halved(norms: Floats, phases: Floats) -> tuple[Floats, Floats]:
    """Norm and phase of each pair of neighbours; the phase is that of the first that is not 0."""
    pairs = norms.reshape(-1, 2)
    chosen = np.where(pairs[:, 0] > 0, phases[0::2], phases[1::2])
    return np.hypot(pairs[:, 0], pairs[:, 1]), chosen
