"""The record by which a program asks a service for read flags."""

import operator
from typing import Final

from nimbrel._engine import check_flag_range
from nimbrel.opcodes import Opcode
from nimbrel.records import Record, RecordArray, pack

__all__ = ["FLAGS_PER_REQUEST", "fetch_request"]

FLAGS_PER_REQUEST: Final = 64
"""Largest number of flags in one reply."""

_WORD: Final = 2**64 - 1


def fetch_request(first: int, count: int) -> RecordArray:
    """Ask the service for consecutive read flags.

    The engine gives the words of a request no meaning, so a service chooses which flags it sends.
    Here `target_mask` is the first flag and `cond_mask` is the number of flags. `nimbrel.service`
    reads them in this way.

    Args:
        first: First flag, a signed 32-bit number.
        count: Number of flags, 0 to 64. A reply to 0 flags tells only that the service has run
            the records before the request.

    Returns:
        One record, shape (1,), dtype `QPU_OP`.

    Raises:
        TypeError: If a number is not an integer.
        ValueError: If `count` is not from 0 to 64, or a flag number does not fit a signed 32-bit
            word.
    """
    number, flags = operator.index(first), operator.index(count)
    check_flag_range(number, flags)
    if flags > FLAGS_PER_REQUEST:
        raise ValueError(f"a reply carries {FLAGS_PER_REQUEST} flags at most, not {flags}")
    return pack([Record(Opcode.FETCH_REQUEST, target_mask=number & _WORD, cond_mask=flags)])
