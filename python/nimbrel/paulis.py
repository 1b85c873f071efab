"""Builders of the Pauli-product operations, for qubits below 64.

A Pauli product is given by two sets of qubits: `xs` alone carry X, `zs` alone carry Z,
qubits in both carry Y. The record words that other operations use for controls hold
the second set here, and no extension record applies, so 64 qubits is the limit.
"""

import operator
from typing import Final, SupportsIndex

from nimbrel.layout import Qubits, control_lists, single_word_mask
from nimbrel.opcodes import Opcode
from nimbrel.records import Record, RecordArray, pack

__all__ = ["pcp", "ppm", "ppr"]

MAX_BATCH: Final = 1000
"""Most products in a `pcp` batch: the record holds 1000 n + k in one number."""


def _product_masks(xs: Qubits, zs: Qubits) -> tuple[int, int]:
    x_mask = single_word_mask(xs, "X")
    z_mask = single_word_mask(zs, "Z")
    if not x_mask | z_mask:
        raise ValueError("a Pauli product needs at least one qubit")
    return x_mask, z_mask


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
        controls: Qubits that must be 1 for the rotation to act.
        zeros: Qubits that must be 0 for the rotation to act.
        flag: The classical condition.

    Returns:
        One record, shape (1,), dtype `QPU_OP`.

    Raises:
        TypeError: If a qubit or `flag` is not an integer.
        ValueError: If there is no qubit, or a qubit is negative, 64 or above, given
            twice in one argument, or both a control and a zero-control.
    """
    x_mask, z_mask = _product_masks(xs, zs)
    ones, negated = control_lists(controls, zeros)
    conditions = single_word_mask([*ones, *negated], "control")
    own = Record(
        Opcode.PPR,
        target_mask=x_mask,
        cond_mask=z_mask,
        angle=float(angle),
        cond_flag=flag,
        read_flag=_as_signed(conditions),
        cond_neg_mask=single_word_mask(negated, "zero-control"),
    )
    return pack([own])


def ppm(xs: Qubits, zs: Qubits, read_flag: int = 0, *, sign: int = 1, flag: int = 0) -> RecordArray:
    """Measure a Pauli product.

    Args:
        xs: Qubits that carry X, or Y when they are in `zs` as well.
        zs: Qubits that carry Z.
        read_flag: Flag that takes the outcome; 0 stores none.
        sign: -1 to report the opposite outcome, otherwise 1.
        flag: The classical condition.

    Returns:
        One record, shape (1,), dtype `QPU_OP`.

    Raises:
        TypeError: If a qubit or a flag is not an integer.
        ValueError: If there is no qubit, a qubit is negative, 64 or above or given
            twice in one argument, or `sign` is neither 1 nor -1.
    """
    if sign not in (1, -1):
        raise ValueError(f"sign must be 1 or -1, not {sign}")
    x_mask, z_mask = _product_masks(xs, zs)
    own = Record(
        Opcode.PPM,
        target_mask=x_mask,
        cond_mask=z_mask,
        angle=float(sign),
        cond_flag=flag,
        read_flag=read_flag,
    )
    return pack([own])


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
    x_mask, z_mask = _product_masks(xs, zs)
    own = Record(
        Opcode.PCP,
        target_mask=x_mask,
        cond_mask=z_mask,
        angle=float(MAX_BATCH * batch + number),
        cond_flag=flag,
    )
    return pack([own])


def _as_signed(mask: int) -> int:
    # The word that carries this mask is a signed one; the bits are what counts.
    return mask - 2**64 if mask >= 2**63 else mask
