"""The cosine-sine decomposition of many unitary matrices at once.

    U = (L0 0 ; 0 L1) (C -S ; S C) (R0 0 ; 0 R1)     C = diag(cos t), S = diag(sin t)

See C. Paige and M. Wei, https://doi.org/10.1016/0024-3795(94)90446-4. The singular values of the
upper left quarter are the cosines. Where sines are small but not 0, their vectors cannot be told
from the cosines, and SciPy's decomposition takes that matrix.
"""

from __future__ import annotations

from typing import TypeAlias

import numpy as np
import numpy.typing as npt
from scipy.linalg import cossin

Matrices: TypeAlias = npt.NDArray[np.complex128]
Floats: TypeAlias = npt.NDArray[np.float64]

_SMALL = 1e-3
"""Vectors of smaller sines have an error above 1e-13."""
_ZERO = 1e-14
"""A sine that is smaller is a rounding error of 0."""


def cosine_sine(blocks: Matrices) -> tuple[Matrices, Floats, Matrices]:
    """Take unitary matrices apart.

    Args:
        blocks: The matrices, shape (n, 2m, 2m).

    Returns:
        L0 and L1 of each matrix in turn, shape (2n, m, m); t, shape (n, m), in radians; R0 and R1
        of each matrix in turn, shape (2n, m, m).
    """
    count, size, _ = blocks.shape
    half = size // 2
    upper, lower = blocks[:, :half], blocks[:, half:]
    left0, cosines, right0 = np.linalg.svd(upper[:, :, :half])
    # The sines fall from the last column to the first, as the decomposition in order needs it.
    scaled = lower[:, :, :half] @ _adjoint(right0)
    left1, triangle = np.linalg.qr(scaled[:, :, ::-1])
    diagonal = np.diagonal(triangle, axis1=1, axis2=2)[:, ::-1]
    sines = np.abs(diagonal)
    phases = np.where(sines > _ZERO, diagonal / np.maximum(sines, _ZERO), 1.0)
    left1 = left1[:, :, ::-1] * phases[:, np.newaxis, :]
    right1 = cosines[:, :, np.newaxis] * (_adjoint(left1) @ lower[:, :, half:])
    right1 -= sines[:, :, np.newaxis] * (_adjoint(left0) @ upper[:, :, half:])
    left = np.stack([left0, left1], axis=1)
    right = np.stack([right0, right1], axis=1)
    angles = np.arctan2(sines, cosines)
    identity = np.eye(half)
    for certain, zero_or_right, blocks0, blocks1 in (
        (sines.max(axis=1) < _ZERO, 0.0, upper[:, :, :half], lower[:, :, half:]),
        (cosines.max(axis=1) < _ZERO, np.pi / 2, lower[:, :, :half], -upper[:, :, half:]),
    ):
        # Nothing to divide, so the whole matrix goes to the right.
        left[certain], angles[certain] = identity, zero_or_right
        right[certain, 0], right[certain, 1] = blocks0[certain], blocks1[certain]
    unclear = ((sines > _ZERO) & (sines < _SMALL)).any(axis=1)
    for place in np.flatnonzero(unclear).tolist():
        left[place], angles[place], right[place] = cossin(
            blocks[place], p=half, q=half, separate=True
        )
    return left.reshape(2 * count, half, half), angles, right.reshape(2 * count, half, half)


def _adjoint(matrices: Matrices) -> Matrices:
    adjoint: Matrices = matrices.conj().transpose(0, 2, 1)
    return adjoint
