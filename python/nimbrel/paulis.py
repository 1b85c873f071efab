"""Builders of the Pauli-product operations.

A Pauli product is given by two sets of qubits: `xs` alone carry X, `zs` alone carry Z,
qubits in both carry Y. The record words that other operations use for controls hold
the second set here.

Qubits from 64 on go into extension records before the product's own, which the Clifford
filter takes and the dense and the sparse one refuse. That filter gathers a product on its
lowest qubit, which it looks for in the own record's masks without their offset. So those
are always the masks of the lowest word, and a product needs a qubit there.
"""

import operator
from collections.abc import Sequence
from itertools import zip_longest
from typing import Final, SupportsIndex

from nimbrel.masks import (
    WORD_BITS,
    Qubits,
    control_lists,
    qubit_list,
    single_word_mask,
    word_masks,
)
from nimbrel.opcodes import Opcode
from nimbrel.records import Record, RecordArray, pack

__all__ = ["pcp", "ppm", "ppr"]

MAX_BATCH: Final = 1000
"""Most products in a `pcp` batch: the record holds 1000 n + k in one number."""

_NO_QUBIT: Final = "a Pauli product needs at least one qubit"


def _product(own: Record, xs: Qubits, zs: Qubits) -> list[Record]:
    x_qubits, z_qubits = qubit_list(xs, "X"), qubit_list(zs, "Z")
    _check_lowest([*x_qubits, *z_qubits])
    x_masks, z_masks = word_masks(x_qubits), word_masks(z_qubits)
    own = own._replace(target_mask=x_masks.pop(0, 0), cond_mask=z_masks.pop(0, 0))
    extensions = [
        Record(Opcode.EXTEND, x_mask, z_mask, target_offset=x_offset, cond_offset=z_offset)
        for (x_offset, x_mask), (z_offset, z_mask) in zip_longest(
            x_masks.items(), z_masks.items(), fillvalue=(0, 0)
        )
    ]
    return [*extensions, own]


def _check_lowest(qubits: Sequence[int]) -> None:
    if not qubits:
        raise ValueError(_NO_QUBIT)
    if min(qubits) >= WORD_BITS:
        raise ValueError(f"{_NO_QUBIT} below {WORD_BITS}")


def ppr(
    angle: float,
    xs: Qubits,
    zs: Qubits,
    *,
    controls: Qubits = (),
    zeros: Qubits = (),
    flag: int = 0,
) -> RecordArray:
    """Rotate about a Pauli product P: cos(angle) - i sin(angle) P.

    Args:
        angle: The full angle in degrees; `rz(2 * angle, q)` is `ppr(angle, (), q)`.
        xs: Qubits that carry X, or Y when they are in `zs` as well.
        zs: Qubits that carry Z.
        controls: Qubits below 64 that must be 1 for the rotation to act.
        zeros: Qubits below 64 that must be 0 for the rotation to act.
        flag: The classical condition.

    Returns:
        Records, shape (n,), dtype `QPU_OP`: an extension record for each further word of
        qubits, the rotation last.

    Raises:
        TypeError: If a qubit or `flag` is not an integer.
        ValueError: If the product has no qubit below 64, or a qubit is negative, given
            twice in one argument, both a control and a zero-control, or a control from 64 on.
    """
    ones, negated = control_lists(controls, zeros)
    conditions = single_word_mask([*ones, *negated], "control")
    own = Record(
        Opcode.PPR,
        angle=float(angle),
        cond_flag=flag,
        read_flag=_as_signed(conditions),
        cond_neg_mask=single_word_mask(negated, "zero-control"),
    )
    return pack(_product(own, xs, zs))


def ppm(xs: Qubits, zs: Qubits, read_flag: int = 0, *, sign: int = 1, flag: int = 0) -> RecordArray:
    """Measure a Pauli product.

    Args:
        xs: Qubits that carry X, or Y when they are in `zs` as well.
        zs: Qubits that carry Z.
        read_flag: Flag that takes the outcome; 0 stores none.
        sign: -1 to report the opposite outcome, otherwise 1.
        flag: The classical condition.

    Returns:
        Records, shape (n,), dtype `QPU_OP`: an extension record for each further word of
        qubits, the measurement last.

    Raises:
        TypeError: If a qubit or a flag is not an integer.
        ValueError: If the product has no qubit below 64, a qubit is negative or given
            twice in one argument, or `sign` is neither 1 nor -1.
    """
    if sign not in (1, -1):
        raise ValueError(f"sign must be 1 or -1, not {sign}")
    own = Record(Opcode.PPM, angle=float(sign), cond_flag=flag, read_flag=read_flag)
    return pack(_product(own, xs, zs))


def pcp(
    k: SupportsIndex, n: SupportsIndex, xs: Qubits, zs: Qubits, *, flag: int = 0
) -> RecordArray:
    """Deliver product number `k` of a batch of `n` commuting products.

    The engine collects the products and acts when the last one, `k == n - 1`, arrives.

    Args:
        k: Number of this product, from 0.
        n: Products in the batch.
        xs: Qubits that carry X, or Y when they are in `zs` as well.
        zs: Qubits that carry Z.
        flag: The classical condition.

    Returns:
        One record, shape (1,), dtype `QPU_OP`.

    Raises:
        TypeError: If a qubit, `k`, `n` or `flag` is not an integer.
        ValueError: If not 0 <= k < n <= 1000, there is no qubit, or a qubit is
            negative, 64 or above or given twice in one argument.
    """
    number, batch = operator.index(k), operator.index(n)
    if not 0 <= number < batch <= MAX_BATCH:
        raise ValueError(f"product {number} of {batch} is not within a batch of 1 to {MAX_BATCH}")
    own = Record(
        Opcode.PCP,
        target_mask=single_word_mask(xs, "X"),
        cond_mask=single_word_mask(zs, "Z"),
        angle=float(MAX_BATCH * batch + number),
        cond_flag=flag,
    )
    if not own.target_mask | own.cond_mask:
        raise ValueError(_NO_QUBIT)
    return pack([own])


def _as_signed(mask: int) -> int:
    # The word that carries this mask is a signed one; the bits are what counts.
    return mask - 2**64 if mask >= 2**63 else mask
