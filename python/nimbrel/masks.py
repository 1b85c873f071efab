"""How the qubits of one operation spread over records.

A mask covers one 64-qubit word of the register and its offset tells which. An
operation that reaches into more words carries the others in extension records that
stand before it:

    x([3, 70, 200])      EXTEND  target_mask 1 << 6  target_offset  64
                         EXTEND  target_mask 1 << 8  target_offset 192
                         X       target_mask 1 << 3  target_offset   0

The lowest word goes into the operation's own record, so an operation inside the first
64 qubits needs no extension and no offset, and filters that know only the masks take
it as well. The engine joins the own record first and then the extensions in order:
qubits are walked upward, which is also the order of the read flags of a measurement.
"""

import operator
from collections.abc import Iterable, Mapping
from itertools import zip_longest
from typing import Final, TypeAlias

from nimbrel.opcodes import Opcode
from nimbrel.records import Record, RecordArray, pack

Qubits: TypeAlias = int | Iterable[int]
"""One qubit number or several; qubit 0 is the least significant."""

WORD_BITS: Final = 64


def qubit_list(qubits: Qubits, role: str, *, required: bool = False) -> list[int]:
    """Check a qubit argument and return it as a list, in the order given.

    Args:
        qubits: One qubit number or an iterable of them.
        role: What the qubits are, for the messages: "target", "control", ...
        required: Whether an empty list is refused.

    Raises:
        TypeError: If a qubit is not an integer.
        ValueError: If a qubit is negative or given twice, or none is given where one
            is required.
    """
    numbers = qubits if isinstance(qubits, Iterable) else (qubits,)
    checked = [operator.index(number) for number in numbers]
    if required and not checked:
        raise ValueError(f"at least one {role} qubit is needed")
    if checked and min(checked) < 0:
        raise ValueError(f"{role} qubit {min(checked)} is negative")
    if len(set(checked)) != len(checked):
        repeated = next(qubit for qubit in checked if checked.count(qubit) > 1)
        raise ValueError(f"{role} qubit {repeated} is given twice")
    return checked


def control_lists(controls: Qubits, zeros: Qubits) -> tuple[list[int], list[int]]:
    """Check the two kinds of controls: those that must be 1 and those that must be 0.

    Raises:
        TypeError: As `qubit_list`.
        ValueError: As `qubit_list`, or if a qubit is in both.
    """
    ones = qubit_list(controls, "control")
    negated = qubit_list(zeros, "zero-control")
    both = set(ones) & set(negated)
    if both:
        raise ValueError(f"qubit {min(both)} is a control and a zero-control at once")
    return ones, negated


def word_masks(qubits: Iterable[int]) -> dict[int, int]:
    """Group qubits by register word: bit offset of the word -> mask, lowest word first."""
    masks: dict[int, int] = {}
    for qubit in qubits:
        offset = qubit - qubit % WORD_BITS
        masks[offset] = masks.get(offset, 0) | 1 << (qubit - offset)
    return dict(sorted(masks.items()))


def single_word_mask(qubits: Qubits, role: str) -> int:
    """The mask of qubits that must all lie below 64; 0 for none.

    Raises:
        TypeError: As `qubit_list`.
        ValueError: As `qubit_list`, or if a qubit is 64 or above.
    """
    checked = qubit_list(qubits, role)
    if checked and max(checked) >= WORD_BITS:
        raise ValueError(f"{role} qubit {max(checked)} is not below {WORD_BITS}")
    return word_masks(checked).get(0, 0)


def spread(
    own: Record, targets: list[int], ones: Iterable[int] = (), negated: Iterable[int] = ()
) -> RecordArray:
    """Lay an operation out: extension records first, its own record last.

    Args:
        own: The operation without its qubits; masks and offsets are filled in.
        targets: Target qubits.
        ones: Controls that must be 1.
        negated: Controls that must be 0, none of them among `ones`.

    Raises:
        TypeError: If a word of `own` other than its angle is not an integer.
        ValueError: If a number does not fit its 64-bit word.
    """
    negated_masks = word_masks(negated)
    return spread_words(own, word_masks(targets), word_masks([*ones, *negated]), negated_masks)


def spread_words(
    own: Record,
    targets: Mapping[int, int],
    conditions: Mapping[int, int],
    negated: Mapping[int, int],
) -> RecordArray:
    """Lay an operation out whose masks are known, each as bit offset -> mask.

    `targets` and `conditions` are in ascending order of offset; `negated` tells which
    bits of `conditions` must be 0. Extension number k carries the k-th further word of
    both, so one record serves a target word and a condition word together.
    """
    rows = [
        _placed(own if number == 0 else Record(Opcode.EXTEND), target, condition, negated)
        for number, (target, condition) in enumerate(
            zip_longest(targets.items(), conditions.items(), fillvalue=(0, 0))
        )
    ]
    return pack([*rows[1:], rows[0]] if rows else [own])


def _placed(
    base: Record, target: tuple[int, int], condition: tuple[int, int], negated: Mapping[int, int]
) -> Record:
    target_offset, target_mask = target
    cond_offset, cond_mask = condition
    return base._replace(
        target_mask=target_mask,
        target_offset=target_offset,
        cond_mask=cond_mask,
        cond_offset=cond_offset,
        cond_neg_mask=negated.get(cond_offset, 0) if cond_mask else 0,
    )
