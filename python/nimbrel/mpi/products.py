"""Pauli products on one rank's part of a state: their projectors, and the probability of +1.

On the amplitudes, a product P acts as (P a)[i] = phase * (-1)**parity(i & z) * a[i ^ x] with the
phase (-i)**k for k letters Y. So the walk visits the indices i and i ^ x together, in blocks that
fit a cache.
"""

from __future__ import annotations

from collections.abc import Iterator
from typing import Final, NamedTuple

import numpy as np
import numpy.typing as npt

from nimbrel.amplitudes import Amplitudes
from nimbrel.mpi.word_bits import odd_parity

__all__ = ["PartProduct", "plus_probability", "project"]

_BLOCK_BITS: Final = 14


class PartProduct(NamedTuple):
    """A Pauli product as a part sees it.

    Attributes:
        x_mask: Letters X and Y, as bits of an index into the part.
        z_mask: Letters Z and Y, likewise.
        minus: Whether the letters in the number of the rank give the sign -1.
    """

    x_mask: int
    z_mask: int
    minus: bool


def plus_probability(part: Amplitudes, product: PartProduct) -> float:
    """The sum over the part of |(a + P a) / 2|**2."""
    total = 0.0
    for block, image in _blocks(part, product):
        sums = (block + image).view(np.float64)
        total += float(np.einsum("i,i->", sums, sums))
    return 0.25 * total


def project(part: Amplitudes, product: PartProduct, outcome: int) -> None:
    """Replace the amplitudes by a + P a for the outcome 0 and by a - P a for 1, in place."""
    pending: list[tuple[Amplitudes, Amplitudes]] = []
    for block, image in _blocks(part, product):
        pending.append((block, block - image if outcome else block + image))
        # The image of a block needs the amplitudes of its partner as they were.
        if len(pending) == 2 or not product.x_mask >> _block_bits(part):
            for target, values in pending:
                target[:] = values
            pending = []


def _block_bits(part: Amplitudes) -> int:
    return min(_BLOCK_BITS, len(part).bit_length() - 1)


def _blocks(part: Amplitudes, product: PartProduct) -> Iterator[tuple[Amplitudes, Amplitudes]]:
    """Each block with its image under the product; a block and its partner follow each other."""
    bits = _block_bits(part)
    blocks = part.reshape(-1, 1 << bits)
    inside = np.arange(1 << bits, dtype=np.uint64)
    places = (inside ^ np.uint64(product.x_mask & (1 << bits) - 1)).astype(np.intp)
    signs = np.where(odd_parity(inside & np.uint64(product.z_mask & (1 << bits) - 1)), -1.0, 1.0)
    factors: npt.NDArray[np.float64] = signs
    turn = (product.x_mask & product.z_mask).bit_count() % 4
    partner_bits = product.x_mask >> bits
    for number in range(len(blocks)):
        partner = number ^ partner_bits
        if partner < number:
            continue
        for own, other in ((number, partner), (partner, number))[: 1 + (partner != number)]:
            negative = product.minus ^ ((own << bits & product.z_mask).bit_count() % 2 == 1)
            yield (
                blocks[own],
                _turned(blocks[other][places], -factors if negative else factors, turn),
            )


def _turned(values: Amplitudes, factors: npt.NDArray[np.float64], quarter_turns: int) -> Amplitudes:
    """Multiply by signs and by (-i)**quarter_turns, without rounding."""
    image = np.empty_like(values)
    real, imaginary = values.real * factors, values.imag * factors
    if quarter_turns in (2, 3):
        real, imaginary = -real, -imaginary
    if quarter_turns % 2:
        real, imaginary = imaginary, -real
    image.real, image.imag = real, imaginary
    return image
