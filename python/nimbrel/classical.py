"""Builders of measurements, writes and the register itself.

Every builder returns a one-dimensional `QPU_OP` array: extension records first, the
operation's own record last. Qubits are an int or an iterable of ints, qubit 0 being the
least significant. `flag` is the classical condition: a read flag that must be 1, or 0
when the number is negative; 0, the default, always holds and -1 never.
"""

import operator
from typing import Final, SupportsIndex

from nimbrel.masks import Qubits, qubit_list, spread, spread_words, word_masks
from nimbrel.opcodes import Opcode
from nimbrel.records import Record, RecordArray, pack

__all__ = ["clear", "flag_nand", "free", "read", "reset", "write"]

_CHECK_ZERO: Final = 1 << 4
_WORD: Final = 2**64 - 1
_MAX_EVENT_CODE: Final = 2**32 - 1


def reset(num_qubits: int) -> RecordArray:
    """Size the register and put every qubit to 0.

    Args:
        num_qubits: Qubits of the register, 0 or more.

    Returns:
        One record, shape (1,), dtype `QPU_OP`.

    Raises:
        TypeError: If `num_qubits` is not an integer.
        ValueError: If `num_qubits` is negative or does not fit 64 bits.
    """
    if num_qubits < 0:
        raise ValueError(f"a register cannot have {num_qubits} qubits")
    return pack([Record(Opcode.RESET, target_mask=num_qubits)])


def read(targets: Qubits, read_flag: int = 0, *, flag: int = 0) -> RecordArray:
    """Measure qubits into consecutive read flags.

    Args:
        targets: Qubits to measure. The lowest one goes to `read_flag`, the next higher
            one to `read_flag + 1` and so on, in whatever order they are given.
        read_flag: First flag. The flags 0, 1 and -1 are constants that take no result;
            a negative flag stores the inverted result.
        flag: The classical condition.

    Returns:
        Records, shape (n,), dtype `QPU_OP`.

    Raises:
        TypeError: If a qubit or a flag is not an integer.
        ValueError: If there is no target, or a qubit is negative or given twice.
    """
    own = Record(Opcode.READ, cond_flag=flag, read_flag=read_flag)
    return spread(own, qubit_list(targets, "target", required=True))


def write(
    targets: Qubits, value: SupportsIndex, read_flag: int = 0, *, flag: int = 0
) -> RecordArray:
    """Set qubits to the bits of an integer.

    Args:
        targets: Qubits to set; bit k of `value` goes to the k-th one in the order given.
        value: The bits, 0 <= value < 2**len(targets).
        read_flag: When not 0, the first flag that takes the written bits, assigned as by
            `read`: from the lowest qubit up, whatever the order of `targets`. A sparse filter
            stores none.
        flag: The classical condition.

    Returns:
        Records, shape (n,), dtype `QPU_OP`.

    Raises:
        TypeError: If a qubit, `value` or a flag is not an integer.
        ValueError: If there is no target, a qubit is negative or given twice, or
            `value` is negative or wider than the targets.
    """
    qubits = qubit_list(targets, "target", required=True)
    number = operator.index(value)
    if number < 0 or number.bit_length() > len(qubits):
        raise ValueError(f"the value does not fit {len(qubits)} qubits")
    bits = f"{number:0{len(qubits)}b}"[::-1]
    ones = word_masks(qubit for qubit, bit in zip(qubits, bits, strict=True) if bit == "1")
    masks = word_masks(qubits)
    own = Record(Opcode.WRITE, cond_flag=flag, read_flag=read_flag)
    # A record's value word stands beside its target word, so both have one offset.
    return spread_words(own, masks, {offset: ones.get(offset, 0) for offset in masks}, {})


def clear(targets: Qubits, *, flag: int = 0) -> RecordArray:
    """Set qubits to 0.

    Args:
        targets: Qubits to clear.
        flag: The classical condition.

    Returns:
        Records, shape (n,), dtype `QPU_OP`.

    Raises:
        TypeError: If a qubit or `flag` is not an integer.
        ValueError: If there is no target, or a qubit is negative or given twice.
    """
    own = Record(Opcode.CLEAR, cond_flag=flag)
    return spread(own, qubit_list(targets, "target", required=True))


def free(
    targets: Qubits, *, check: bool = False, event_code: int = 0, flag: int = 0
) -> RecordArray:
    """Set qubits to 0 that are no longer needed, and on request check that they were 0.

    Args:
        targets: Qubits to free.
        check: Queue an event when a qubit is not 0. The engine checks only while qubit
            debugging is on; some filters never check.
        event_code: The `code` of that event, 32 bits. A sparse filter never checks and takes
            this word for the classical condition instead, so leave it at 0 there.
        flag: The classical condition; without effect on a sparse filter.

    Returns:
        Records, shape (n,), dtype `QPU_OP`.

    Raises:
        TypeError: If a qubit, `event_code` or `flag` is not an integer.
        ValueError: If there is no target, a qubit is negative or given twice, or
            `event_code` does not fit 32 bits.
    """
    if not 0 <= event_code <= _MAX_EVENT_CODE:
        raise ValueError(f"event_code must be from 0 to {_MAX_EVENT_CODE}, not {event_code}")
    own = Record(Opcode.FREE, cond_flag=flag, read_flag=event_code)
    laid_out = spread(own, qubit_list(targets, "target", required=True))
    if check:
        # Flag bits and not qubits, so they are set past the layout of the qubits.
        laid_out["cond_mask"][-1] = _CHECK_ZERO
    return laid_out


def flag_nand(a: int, b: int, dest: int, *, flag: int = 0) -> RecordArray:
    """Combine two read flags: `dest` = NAND of `a` and `b`.

    Args:
        a: First flag, signed: a negative number reads inverted, 0 and 1 are constants.
        b: Second flag, likewise.
        dest: Flag that takes the result; a negative number selects AND instead. 0, 1
            and -1 store nothing.
        flag: The classical condition.

    Returns:
        One record, shape (1,), dtype `QPU_OP`.

    Raises:
        TypeError: If a flag is not an integer.
        ValueError: If a flag does not fit 64 bits.
    """
    own = Record(
        Opcode.FLAG_NAND, _operand_word(a), _operand_word(b), cond_flag=flag, read_flag=dest
    )
    return pack([own])


def _operand_word(flag: SupportsIndex) -> int:
    # The operands are signed numbers in unsigned words.
    number = operator.index(flag)
    if not -(2**63) <= number < 2**63:
        raise ValueError(f"flag {number} does not fit a signed 64-bit word")
    return number & _WORD
