"""Splits a program into the arrays that a "StreamConnect" filter sends.

An array contains at most one fetch request, as its last record, because a wait reads only the
first record that has arrived. Between two requests at most `window` records are sent, because the
engine does not notice what the socket does not take. Where the caller's requests are further
apart, an empty request, which fetches no flags, is inserted:

    program      aaaaaaaaaaaaaaaaaaaa?bbb?cc       ? a fetch request, window 8
    arrays       aaaaaaaa+ aaaaaaaa+ aaaa? bbb? cc  + an empty request
"""

from collections.abc import Iterator
from typing import Final

import numpy as np
import numpy.typing as npt

from nimbrel.fetch_requests import fetch_request
from nimbrel.opcodes import Opcode
from nimbrel.records import RecordArray, program

__all__ = ["arrays_of"]

_EMPTY_REQUEST: Final = fetch_request(0, 0)


def arrays_of(records: RecordArray, under_way: int, window: int) -> Iterator[RecordArray]:
    """Split a program into arrays and insert empty requests where they are needed.

    Args:
        records: The program, shape (n,).
        under_way: Records sent since the last reply.
        window: Largest number of records between two requests.

    Returns:
        The arrays, in order. A fetch request is always the last record of its array. No request is
        inserted between an extension record and its operation: a filter that takes extension
        records would drop them there.

    Raises:
        ValueError: If an operation with its extension records is longer than the window, or if
            the last record is an extension record.
    """
    opcodes = records["opcode"]
    ends = np.flatnonzero(opcodes != Opcode.EXTEND) + 1
    _check_operations(ends, len(records), window)
    return _split(records, ends, opcodes, under_way, window)


def _check_operations(ends: npt.NDArray[np.int64], size: int, window: int) -> None:
    if size != (ends[-1] if len(ends) else 0):
        raise ValueError("a program for a service must not end with an extension record")
    longest = int(np.max(np.diff(ends, prepend=0), initial=0))
    if longest > window:
        raise ValueError(
            f"an operation of {longest} records, its extensions among them, does not fit "
            f"the window of {window}"
        )


def _split(
    records: RecordArray,
    ends: npt.NDArray[np.int64],
    opcodes: npt.NDArray[np.uint64],
    under_way: int,
    window: int,
) -> Iterator[RecordArray]:
    start = 0
    requests = np.flatnonzero(opcodes == Opcode.FETCH_REQUEST) + 1
    for stop in [*requests.tolist(), len(records)]:
        while under_way + stop - start > window:
            reach = start + window - under_way
            fitting = int(np.searchsorted(ends, reach, side="right"))
            cut = max(start, int(ends[fitting - 1])) if fitting else start
            yield program(records[start:cut], _EMPTY_REQUEST)
            start, under_way = cut, 0
        if start < stop:
            yield records[start:stop]
        start, under_way = stop, 0
