"""The draws of measurements: the same numbers as the engine draws after the same seed."""

from __future__ import annotations

import math
from typing import Final

import numpy as np

__all__ = ["Draws"]

_SCALE: Final = 2.0**64


class Draws:
    """A generator that every rank has a copy of."""

    def __init__(self, seed: int) -> None:
        """Seed the generator.

        Args:
            seed: 32 bits, the same on all ranks.
        """
        # The engine's generator is the 32-bit Mersenne Twister, seeded by one word (M. Matsumoto
        # and T. Nishimura, https://doi.org/10.1145/272991.272995). NumPy's legacy class is that.
        self._generator = np.random.RandomState(seed)

    def zero_to_one(self) -> float:
        """Draw a number from 0 up to 1, without 1: two words, the first least significant."""
        number = int.from_bytes(self._generator.bytes(8), "little") / _SCALE
        return min(number, math.nextafter(1.0, 0.0))
