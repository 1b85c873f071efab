"""Records of Pauli products: the Xs of one in the target word, its Zs in the condition word."""

from __future__ import annotations

import numpy as np

from models.opcodes import PPM, PPR
from support.driver import rec


def ppr(degrees: float, x: int, z: int, **words: int) -> np.ndarray:
    """A rotation about a product."""
    return rec(PPR, angle=degrees, target_mask=x, cond_mask=z, **words)


def ppm(x: int, z: int, sign: float = 1.0, **words: int) -> np.ndarray:
    """A measurement of a product, or of its negative if the sign is negative."""
    return rec(PPM, angle=sign, target_mask=x, cond_mask=z, **words)
