"""Qubit arguments, and the masks and extension records that carry them.

A mask covers one 64-qubit word of the register, and its offset tells which word. An operation on
several words has an extension record for each word after the first. Extension records come before
the main record of the operation:

    x([3, 70, 200])      EXTEND  target_mask 1 << 6  target_offset  64
                         EXTEND  target_mask 1 << 8  target_offset 192
                         X       target_mask 1 << 3  target_offset   0

The main record has the lowest word. So an operation on the first 64 qubits needs neither extension
records nor an offset, and filters without extension records accept it. The engine processes the
main record first and then the extension records in order, so it visits the qubits upward. The read
flags of a measurement follow the same order.
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
        role: The role of the qubits, for the messages: "target", "control", ...
        required: Whether an empty list is refused.

    Raises:
        TypeError: If a qubit is not an integer.
        ValueError: If a qubit is negative or given twice, or if the list is empty and one is
            required.
    """
    if type(qubits) is int and qubits >= 0:
        return [qubits]
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
    """Check the controls and the negated controls of an operation.

    Args:
        controls: The controls.
        zeros: The negated controls.

    Returns:
        The controls and the negated controls, each in the order given.

    Raises:
        TypeError: As `qubit_list`.
        ValueError: As `qubit_list`, or if a qubit is in both.
    """
    plain = qubit_list(controls, "control")
    negated = qubit_list(zeros, "zero-control")
    both = set(plain) & set(negated)
    if both:
        raise ValueError(f"qubit {min(both)} is a control and a zero-control at once")
    return plain, negated


def word_masks(qubits: Iterable[int]) -> dict[int, int]:
    """Group qubits by 64-qubit word.

    Returns:
        The mask of each word by the word's offset, which is the number of its lowest qubit. The
        lowest word comes first.
    """
    masks: dict[int, int] = {}
    for qubit in qubits:
        offset = qubit - qubit % WORD_BITS
        masks[offset] = masks.get(offset, 0) | 1 << (qubit - offset)
    return dict(sorted(masks.items()))


def single_word_mask(qubits: Qubits, role: str) -> int:
    """Make the mask of qubits that must all be below 64.

    Args:
        qubits: The qubits; none gives the mask 0.
        role: As for `qubit_list`.

    Raises:
        TypeError: As `qubit_list`.
        ValueError: As `qubit_list`, or if a qubit is 64 or above.
    """
    checked = qubit_list(qubits, role)
    if checked and max(checked) >= WORD_BITS:
        raise ValueError(f"{role} qubit {max(checked)} is not below {WORD_BITS}")
    return word_masks(checked).get(0, 0)


def spread(
    main: Record, targets: list[int], controls: Iterable[int] = (), negated: Iterable[int] = ()
) -> RecordArray:
    """Make the records of an operation: extension records first, the main record last.

    Args:
        main: The main record without qubits; this function fills in masks and offsets.
        targets: Target qubits.
        controls: Controls.
        negated: Negated controls, none of them among `controls`.

    Raises:
        TypeError: If a word of `main` other than its angle is not an integer.
        ValueError: If a number does not fit its 64-bit word.
    """
    negated = [*negated]
    all_controls = [*controls, *negated]
    if max(targets, default=0) < WORD_BITS and max(all_controls, default=0) < WORD_BITS:
        return _one_word(main, targets, all_controls, negated)
    negated_masks = word_masks(negated)
    return spread_words(main, word_masks(targets), word_masks(all_controls), negated_masks)


def _one_word(
    main: Record, targets: list[int], controls: list[int], negated: list[int]
) -> RecordArray:
    made = main._replace(
        target_mask=sum([1 << qubit for qubit in targets]),
        cond_mask=sum([1 << qubit for qubit in controls]),
        cond_neg_mask=sum([1 << qubit for qubit in negated]),
    )
    return pack([made])


def spread_words(
    main: Record,
    targets: Mapping[int, int],
    controls: Mapping[int, int],
    negated: Mapping[int, int],
) -> RecordArray:
    """Make the records of an operation whose masks are known.

    Extension record k has word k of the targets and word k of the controls, so one record carries
    a target word and a control word.

    Args:
        main: The main record without qubits; this function fills in masks and offsets.
        targets: Target masks by offset, in ascending order.
        controls: Masks of all controls by offset, in ascending order. A write has its value here.
        negated: The bits of `controls` that are negated controls, by offset.

    Raises:
        TypeError: As `spread`.
        ValueError: As `spread`.
    """
    rows = [
        _with_masks(main if number == 0 else Record(Opcode.EXTEND), target, control, negated)
        for number, (target, control) in enumerate(
            zip_longest(targets.items(), controls.items(), fillvalue=(0, 0))
        )
    ]
    return pack([*rows[1:], rows[0]] if rows else [main])


def _with_masks(
    base: Record, target: tuple[int, int], control: tuple[int, int], negated: Mapping[int, int]
) -> Record:
    target_offset, target_mask = target
    cond_offset, cond_mask = control
    return base._replace(
        target_mask=target_mask,
        target_offset=target_offset,
        cond_mask=cond_mask,
        cond_offset=cond_offset,
        cond_neg_mask=negated.get(cond_offset, 0) if cond_mask else 0,
    )
