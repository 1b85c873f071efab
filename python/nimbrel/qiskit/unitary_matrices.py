"""Rows of unitary matrices of any number of qubits.

A matrix of one qubit is Qiskit's U gate with a phase. One of two qubits is taken apart in the Weyl
chamber (J. Zhang et al., https://doi.org/10.1103/PhysRevA.67.042313) into gates of one qubit and
three Pauli rotations. Larger ones are taken apart by the cosine-sine decomposition (M. Möttönen et
al., https://doi.org/10.1103/PhysRevLett.93.130502) into multiplexed gates of one qubit, about 4**n
rows with controls. Qiskit's synthesis needs as many gates and takes minutes for ten qubits.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
from qiskit.synthesis import OneQubitEulerDecomposer, TwoQubitWeylDecomposition

from nimbrel.opcodes import Opcode
from nimbrel.qiskit.cosine_sine import Matrices, cosine_sine
from nimbrel.qiskit.multiplexers import Floats, multiplexed, turned_once
from nimbrel.qiskit.rows import Angle, Rows, When, general_turn, global_phase, product_rotation

_RY, _PHASE = int(Opcode.RY), int(Opcode.PHASE)

_ZERO = 1e-15
"""Elements of a unitary matrix that are smaller are rounding errors."""


def unitary_rows(rows: Rows, matrix: Any, qubits: Sequence[int], when: When) -> Angle | None:
    """Add the rows of a unitary matrix.

    Args:
        rows: The list to which the rows are added.
        matrix: The matrix, shape (2**n, 2**n); the first qubit is the least significant.
        qubits: The mask of each of the n qubits.
        when: The conditions of the rows.

    Returns:
        The global phase that the rows lack, in radians, or None.
    """
    array: Matrices = np.asarray(matrix, dtype=np.complex128)
    if len(qubits) == 0:
        phase = float(np.angle(array[0, 0]))
    elif len(qubits) == 1:
        phase = _one_qubit(rows, array, qubits[0], when)
    elif len(qubits) == 2:
        phase = _two_qubits(rows, array, qubits, when)
    else:
        return _multiplexed_matrices(rows, array[np.newaxis], qubits, len(qubits), when) or None
    return global_phase(rows, phase, when)


def _one_qubit(rows: Rows, matrix: Matrices, qubit: int, when: When) -> float:
    """Add a matrix of one qubit. Returns the phase that the rows lack, in radians."""
    *angles, phase = OneQubitEulerDecomposer("U").angles_and_phase(matrix)
    theta, phi, lam = angles
    general_turn(rows, qubit, theta, phi, lam, when)
    return float(phase)


def _two_qubits(rows: Rows, matrix: Matrices, qubits: Sequence[int], when: When) -> float:
    """Add a matrix of two qubits. Returns the phase that the rows lack, in radians."""
    low, high = qubits
    both = low | high
    parts = TwoQubitWeylDecomposition(matrix, fidelity=None)
    phase = float(parts.global_phase)
    phase += _one_qubit(rows, parts.K2r, low, when) + _one_qubit(rows, parts.K2l, high, when)
    for angle, xs, zs in ((parts.a, both, 0), (parts.b, both, both), (parts.c, 0, both)):
        if angle != 0:
            product_rotation(rows, xs, zs, -2 * angle, when)
    return phase + _one_qubit(rows, parts.K1r, low, when) + _one_qubit(rows, parts.K1l, high, when)


def _multiplexed_matrices(
    rows: Rows, blocks: Matrices, qubits: Sequence[int], width: int, when: When
) -> float:
    """Add one of several matrices of the lowest qubits, as the qubits above them choose.

    Args:
        rows: The list to which the rows are added.
        blocks: The matrix for each value of the qubits above, shape (values, 2**width, 2**width).
        qubits: The mask of each qubit.
        width: The number of the lowest qubits on which the matrices act.
        when: The conditions of the rows.

    Returns:
        The global phase that the rows lack, in radians.
    """
    if width == 1:
        return _multiplexed_gates(rows, blocks, qubits, when)
    # Of the new matrices, 2 v + b is quarter b of matrix v: qubit `width - 1` chooses b.
    left, angles, right = cosine_sine(blocks)
    phase = _multiplexed_matrices(rows, right, qubits, width - 1, when)
    controls = [*qubits[: width - 1], *qubits[width:]]
    multiplexed(rows, _RY, 2 * angles.ravel(), qubits[width - 1], controls, when)
    return phase + _multiplexed_matrices(rows, left, qubits, width - 1, when)


def _multiplexed_gates(rows: Rows, gates: Matrices, qubits: Sequence[int], when: When) -> float:
    """Add one of several gates of the lowest qubit, as the others choose; as for matrices."""
    target, *controls = qubits
    theta, phi, lam, phase = _euler_angles(gates)
    multiplexed(rows, _PHASE, turned_once(lam), target, controls, when)
    multiplexed(rows, _RY, theta, target, controls, when)
    multiplexed(rows, _PHASE, turned_once(phi), target, controls, when)
    return multiplexed(rows, _PHASE, turned_once(phase), 0, controls, when) or 0.0


def _euler_angles(gates: Matrices) -> tuple[Floats, Floats, Floats, Floats]:
    """theta, phi, lambda and phase of gates exp(i phase) U(theta, phi, lambda).

    Args:
        gates: Unitary matrices, shape (n, 2, 2).

    Returns:
        Four arrays of shape (n,), in radians.
    """
    a, b, c, d = gates[:, 0, 0], gates[:, 0, 1], gates[:, 1, 0], gates[:, 1, 1]
    diagonal, crossed = np.abs(c) < _ZERO, np.abs(a) < _ZERO
    theta = 2 * np.arctan2(np.abs(c), np.abs(a))
    theta = np.where(diagonal, 0.0, np.where(crossed, np.pi, theta))
    phase = np.where(crossed, 0.0, np.angle(a))
    phi = np.where(diagonal, 0.0, np.angle(c) - phase)
    # The larger of the two elements that have lambda tells it with the smaller error.
    lam = np.where(np.abs(a) >= np.abs(c), np.angle(d) - phi, np.angle(-b)) - phase
    return theta, phi, lam, phase
