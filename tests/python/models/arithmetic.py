"""Double arithmetic as the dense engine does it, and the draws of its generator.

An amplitude is a pair of floats, real part first. Every product and every sum is rounded by
itself, except where a fused multiply-add is named: Python never fuses on its own.
"""

from __future__ import annotations

import math
import random
from typing import TypeAlias

Amplitude: TypeAlias = tuple[float, float]

ZERO: Amplitude = (0.0, 0.0)
BELOW_ONE = 1.0 - 2.0**-53
# The Hadamard factor of the engine, one unit in the last place below the double of 1/sqrt(2).
ROOT_HALF = float.fromhex("0x1.6a09e667f3bccp-1")


def fma(a: float, b: float, c: float) -> float:
    """a * b + c, rounded once."""
    plain = a * b + c
    if not (math.isfinite(a) and math.isfinite(b) and math.isfinite(c)):
        return plain
    a_num, a_den = a.as_integer_ratio()
    b_num, b_den = b.as_integer_ratio()
    c_num, c_den = c.as_integer_ratio()
    numerator = a_num * b_num * c_den + c_num * a_den * b_den
    if numerator == 0:
        return plain  # only the sign is open, and it is the same without fusing
    try:
        return numerator / (a_den * b_den * c_den)  # Python rounds this quotient correctly
    except OverflowError:
        return math.inf if numerator > 0 else -math.inf


def has_zero_bits(x: Amplitude) -> bool:
    """Whether both parts are plus zero; a negative zero is another bit pattern."""
    return x == ZERO and math.copysign(1.0, x[0]) + math.copysign(1.0, x[1]) == 2.0


def add(x: Amplitude, y: Amplitude) -> Amplitude:
    return x[0] + y[0], x[1] + y[1]


def subtract(x: Amplitude, y: Amplitude) -> Amplitude:
    return x[0] - y[0], x[1] - y[1]


def scaled(x: Amplitude, factor: float) -> Amplitude:
    return x[0] * factor, x[1] * factor


def times(x: Amplitude, m: Amplitude) -> Amplitude:
    """The complex product of four multiplications and two additions, nothing fused."""
    return x[0] * m[0] - x[1] * m[1], x[0] * m[1] + x[1] * m[0]


def flipped(x: Amplitude) -> Amplitude:
    """Both sign bits turned over, also those of zeros."""
    return -x[0], -x[1]


def probability(x: Amplitude) -> float:
    return x[0] * x[0] + x[1] * x[1]


def radians(degrees: float) -> float:
    return degrees * math.pi / 180.0


class Generator:
    """The 32-bit Mersenne Twister from a single seed word, and the doubles drawn from it."""

    def __init__(self, seed: int) -> None:
        words = [seed]
        for i in range(1, 624):
            words.append(((words[-1] ^ words[-1] >> 30) * 1812433253 + i) & 0xFFFFFFFF)
        self._twister = random.Random()
        # The interpreter's own generator is the same twister; only its seeding differs.
        self._twister.setstate((3, (*words, 624), None))

    def word(self) -> int:
        """The next 32-bit output."""
        return self._twister.getrandbits(32)

    def zero_to_one(self) -> float:
        """A double from 0 up to but not including 1, made of two outputs, the low one first."""
        low, high = self.word(), self.word()
        return min((low + high * 2.0**32) / 2.0**64, BELOW_ONE)

    def plus_minus(self) -> float:
        """A double from -1 up to but not including 1."""
        return fma(self.zero_to_one(), 2.0, -1.0)
