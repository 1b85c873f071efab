"""Builders of resets, measurements, writes and flag operations.

Every builder returns a one-dimensional `QPU_OP` array: extension records first, the main record of
the operation last. Qubits are an int or an iterable of ints; qubit 0 is the least significant.
`flag` is the classical condition: the read flag that must be 1 for the operation to run; a negative
number means that it must be 0. 0, the default, always holds; -1 never holds.
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
    """Set the size of the register and set every qubit to 0.

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
        targets: Qubits to measure. The lowest qubit goes to `read_flag`, the next higher one to
            `read_flag + 1` and so on, whatever their order here.
        read_flag: First flag. The flags 0, 1 and -1 are constants and store no result. A negative
            number stores the inverted result.
        flag: The classical condition.

    Returns:
        Records, shape (n,), dtype `QPU_OP`.

    Raises:
        TypeError: If a qubit or a flag is not an integer.
        ValueError: If there is no target, or a qubit is negative or given twice.
    """
    main = Record(Opcode.READ, cond_flag=flag, read_flag=read_flag)
    return spread(main, qubit_list(targets, "target", required=True))


def write(
    targets: Qubits, value: SupportsIndex, read_flag: int = 0, *, flag: int = 0
) -> RecordArray:
    """Set qubits to the bits of an integer.

    Args:
        targets: Qubits to set; bit k of `value` goes to the k-th qubit in the order given.
        value: The bits, 0 <= value < 2**len(targets).
        read_flag: If not 0, the first flag that stores the written bits, as `read` stores its
            results: from the lowest qubit up, whatever the order of `targets`. A sparse filter
            stores no flags here.
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
    main = Record(Opcode.WRITE, cond_flag=flag, read_flag=read_flag)
    # The value of a target word is in the same record, so both have the same offset.
    return spread_words(main, masks, {offset: ones.get(offset, 0) for offset in masks}, {})


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
    main = Record(Opcode.CLEAR, cond_flag=flag)
    return spread(main, qubit_list(targets, "target", required=True))


def free(
    targets: Qubits, *, check: bool = False, event_code: int = 0, flag: int = 0
) -> RecordArray:
    """Set qubits that are no longer needed to 0, with an optional check that they were 0.

    Args:
        targets: Qubits to free.
        check: Queue an event if a qubit is not 0. The engine checks only while qubit debugging is
            on, and some filters never check.
        event_code: The `code` of that event, 32 bits. A sparse filter never checks and reads this
            word as the classical condition, so leave it at 0 there.
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
    main = Record(Opcode.FREE, cond_flag=flag, read_flag=event_code)
    records = spread(main, qubit_list(targets, "target", required=True))
    if check:
        # This word holds option bits and no qubits, so `spread` must not see it.
        records["cond_mask"][-1] = _CHECK_ZERO
    return records


def flag_nand(a: int, b: int, dest: int, *, flag: int = 0) -> RecordArray:
    """Combine two read flags: flag `dest` = NAND of flags `a` and `b`.

    Args:
        a: First flag, signed: a negative number reads the flag inverted, 0 and 1 are constants.
        b: Second flag, likewise.
        dest: Flag that stores the result; a negative number selects AND instead of NAND. 0, 1 and
            -1 store nothing.
        flag: The classical condition.

    Returns:
        One record, shape (1,), dtype `QPU_OP`.

    Raises:
        TypeError: If a flag is not an integer.
        ValueError: If a flag does not fit 64 bits.
    """
    nand = Record(
        Opcode.FLAG_NAND, _operand_word(a), _operand_word(b), cond_flag=flag, read_flag=dest
    )
    return pack([nand])


def _operand_word(flag: SupportsIndex) -> int:
    # Unsigned words carry the operands, which are signed numbers.
    number = operator.index(flag)
    if not -(2**63) <= number < 2**63:
        raise ValueError(f"flag {number} does not fit a signed 64-bit word")
    return number & _WORD
