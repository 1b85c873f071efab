"""The probabilities of all values of some bits of the index, from one pass over a part."""

# ruff: noqa: E402 - mpi4py is set up before anything imports it

from collections.abc import Sequence

import mpi4py
import numpy as np
import pytest

mpi4py.rc.initialize = False  # sums of one part need no ranks

from nimbrel.mpi.parts import PIECE
from nimbrel.mpi.value_sums import value_sums

SIZES = (1, 6, PIECE.bit_length() + 1)  # the last one has four pieces


@pytest.mark.parametrize("size", SIZES)
@pytest.mark.parametrize("choice", [slice(0, 0), slice(1), slice(3), slice(None, None, -3)])
def test_sums(size: int, choice: slice) -> None:
    rng = np.random.default_rng(size)
    part = rng.normal(size=1 << size) + 1j * rng.normal(size=1 << size)
    bits = rng.permutation(size).tolist()[choice]
    for chosen in (bits, sorted(bits), [*bits, size - 1] if size - 1 not in bits else bits):
        np.testing.assert_allclose(value_sums(part, chosen), expected(part, chosen), 1e-13)


def expected(part: np.ndarray, bits: Sequence[int]) -> np.ndarray:
    indices = np.arange(len(part))
    values = sum(((indices >> bit & 1) << place for place, bit in enumerate(bits)), 0 * indices)
    return np.bincount(values, np.abs(part) ** 2, 1 << len(bits))
