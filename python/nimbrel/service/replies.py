"""The reply of the service to a fetch request."""

from typing import Final

from nimbrel.opcodes import Opcode
from nimbrel.records import RecordArray, record
from nimbrel.simulator import Simulator

FLAGS_PER_REPLY: Final = 64
FLAG_NUMBERS: Final = range(-(2**31), 2**31)


def reply_to(first_word: int, requested: int, sim: Simulator) -> RecordArray:
    """Make the reply to a fetch request.

    Args:
        first_word: The request's `target_mask`: the first flag, as an unsigned word.
        requested: The request's `cond_mask`: the number of flags.
        sim: The client's filter.

    Returns:
        One record, shape (1,), dtype `QPU_OP`.
    """
    first = signed(first_word)
    count = min(requested, FLAGS_PER_REPLY)
    values = stored = 0
    if count > 0 and first in FLAG_NUMBERS and first + count - 1 in FLAG_NUMBERS:
        values = sim.flags(first, count)
        stored = values | opposite_flags(first, count, sim)
    return record(
        Opcode.FETCH_REPLY,
        target_mask=first_word,
        cond_mask=count,
        cond_flag=signed(stored),
        read_flag=signed(values),
    )


def opposite_flags(first: int, count: int, sim: Simulator) -> int:
    """Read the flags of the negated numbers: bit i is flag `-(first + i)`.

    A stored flag reads 1 either by its number or by the negated number. A flag that no record has
    stored reads 0 by both. So a bit that is 0 here and in the value belongs to a flag that the
    client must not store: once stored, it would read 1 by the negated number.

    Args:
        first: The first flag.
        count: The number of flags, 1 or more.
        sim: The client's filter.
    """
    # The lowest flag number has no negated number; its flag is reported as stored.
    first_has_no_opposite = first == FLAG_NUMBERS.start
    text = format(sim.flags(1 - first - count, count - first_has_no_opposite), f"0{count}b")
    return int(text[::-1], 2) | first_has_no_opposite


def signed(word: int) -> int:
    """The signed number in an unsigned 64-bit word."""
    return word - (1 << 64) if word >> 63 else word
