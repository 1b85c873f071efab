"""Builders of the operations on Pauli products.

Two sets of qubits give a Pauli product: a qubit in `xs` has a factor X, a qubit in `zs` has a
factor Z, and a qubit in both has a factor Y. `xs` goes into the target words of the records and
`zs` into the words that other operations use for controls.

Extension records carry the qubits from 64 on. The Clifford filter accepts them; the dense and the
sparse filter refuse them. The Clifford filter looks for the lowest qubit of a product in the masks
of the main record, without an offset. So the main record always has the masks of qubits 0 to 63,
and a product needs a qubit among them.
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
"""Largest number of products in a batch: one number of the record holds 1000 n + k."""

_NO_QUBIT: Final = "a Pauli product needs at least one qubit"


def _product(main: Record, xs: Qubits, zs: Qubits) -> list[Record]:
    x_qubits, z_qubits = qubit_list(xs, "X"), qubit_list(zs, "Z")
    _check_lowest([*x_qubits, *z_qubits])
    x_masks, z_masks = word_masks(x_qubits), word_masks(z_qubits)
    main = main._replace(target_mask=x_masks.pop(0, 0), cond_mask=z_masks.pop(0, 0))
    extensions = [
        Record(Opcode.EXTEND, x_mask, z_mask, target_offset=x_offset, cond_offset=z_offset)
        for (x_offset, x_mask), (z_offset, z_mask) in zip_longest(
            x_masks.items(), z_masks.items(), fillvalue=(0, 0)
        )
    ]
    return [*extensions, main]


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
    """Rotate about a Pauli product P: exp(-i angle P) = cos(angle) - i sin(angle) P.

    The rotation is that of D. Litinski, "A Game of Surface Codes",
    https://doi.org/10.22331/q-2019-03-05-128.

    Args:
        angle: The angle in degrees; `ppr(angle, (), q)` is the same gate as `rz(2 * angle, q)`.
        xs: Qubits with a factor X, or Y if they are in `zs` too.
        zs: Qubits with a factor Z.
        controls: Controls, below 64: qubits that must be 1 for the rotation to act.
        zeros: Negated controls, below 64: qubits that must be 0 for the rotation to act.
        flag: The classical condition.

    Returns:
        Records, shape (n,), dtype `QPU_OP`: an extension record for each 64-qubit word after the
        first, the rotation last.

    Raises:
        TypeError: If a qubit or `flag` is not an integer.
        ValueError: If the product has no qubit below 64; if a qubit is negative, given twice in
            one argument, or both a control and a negated control; or if a control is above 63.
    """
    plain, negated = control_lists(controls, zeros)
    all_controls = single_word_mask([*plain, *negated], "control")
    main = Record(
        Opcode.PPR,
        angle=float(angle),
        cond_flag=flag,
        read_flag=_as_signed(all_controls),
        cond_neg_mask=single_word_mask(negated, "zero-control"),
    )
    return pack(_product(main, xs, zs))


def ppm(xs: Qubits, zs: Qubits, read_flag: int = 0, *, sign: int = 1, flag: int = 0) -> RecordArray:
    """Measure a Pauli product.

    Args:
        xs: Qubits with a factor X, or Y if they are in `zs` too.
        zs: Qubits with a factor Z.
        read_flag: Flag that stores the outcome; 0 stores no outcome.
        sign: -1 inverts the stored outcome; otherwise 1.
        flag: The classical condition.

    Returns:
        Records, shape (n,), dtype `QPU_OP`: an extension record for each 64-qubit word after the
        first, the measurement last.

    Raises:
        TypeError: If a qubit or a flag is not an integer.
        ValueError: If the product has no qubit below 64, a qubit is negative or given
            twice in one argument, or `sign` is neither 1 nor -1.
    """
    if sign not in (1, -1):
        raise ValueError(f"sign must be 1 or -1, not {sign}")
    main = Record(Opcode.PPM, angle=float(sign), cond_flag=flag, read_flag=read_flag)
    return pack(_product(main, xs, zs))


def pcp(
    k: SupportsIndex, n: SupportsIndex, xs: Qubits, zs: Qubits, *, flag: int = 0
) -> RecordArray:
    """Give the engine product number `k` of a batch of `n` commuting products.

    The engine collects the products and acts on the last one, `k == n - 1`.

    Args:
        k: Number of this product, from 0.
        n: Number of products in the batch.
        xs: Qubits with a factor X, or Y if they are in `zs` too.
        zs: Qubits with a factor Z.
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
    main = Record(
        Opcode.PCP,
        target_mask=single_word_mask(xs, "X"),
        cond_mask=single_word_mask(zs, "Z"),
        angle=float(MAX_BATCH * batch + number),
        cond_flag=flag,
    )
    if not main.target_mask | main.cond_mask:
        raise ValueError(_NO_QUBIT)
    return pack([main])


def _as_signed(mask: int) -> int:
    # The mask goes into a signed word of the record, with the same bits.
    return mask - 2**64 if mask >= 2**63 else mask
