"""Programs that run at a service: the connection of a "StreamConnect" filter.

The engine hands an array to the socket in one write that does not wait, and what the socket
does not take is lost without a word. It then waits for a reply to each fetch request of that
array, but looks only at the first record that has come, again and again; and when none comes
in time it prints a line and goes on with the flags as they were. Bytes that come meanwhile put
that time off, so a wait is as long as the peer likes: connect only to a service that you trust.

So an array here has one fetch request at most, as its last record. That request is answered by
one record or not at all, and a wait that ended before its timeout has found it. Whatever is
left over after a wait that did not would answer the next request, so the connection is closed.
Between requests of the caller's own, empty ones are put in wherever more records would be under
way than a socket takes:

    program      aaaaaaaaaaaaaaaaaaaa?bbb?cc       ? a fetch request, window 8
    arrays       aaaaaaaa+ aaaaaaaa+ aaaa? bbb? cc  + one of count 0, which fetches no flags
"""

import json
import math
import operator
import time
from collections.abc import Iterator
from typing import Final

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import _call, _flag_range
from nimbrel.filter_handle import FilterHandle
from nimbrel.opcodes import Opcode
from nimbrel.records import Record, RecordArray, pack, program

__all__ = ["FLAGS_PER_REQUEST", "WINDOW", "RemoteOperations", "arrays_of", "fetch_request"]

FLAGS_PER_REQUEST: Final = 64
"""Flags that one reply carries at most."""

WINDOW: Final = 512
"""Records under way that a new connection takes on any network: 45 kB, of 78 kB measured."""

_CONNECT: Final = "StreamConnect"
_WORD: Final = 2**64 - 1
_ENGINE_TIMEOUT: Final = 1800.0
_DEFAULT_TIMEOUT: Final = 30.0


def fetch_request(first: int, count: int) -> RecordArray:
    """Ask the service for consecutive read flags.

    The protocol itself gives a request no operands: which flags a reply carries is the
    service's choice. Here `target_mask` is the first flag and `cond_mask` the number of flags,
    as `examples/service.py` takes them.

    Args:
        first: First flag, a signed 32-bit number.
        count: Number of flags, from 0, for a reply that tells only that the service has come
            this far, to 64.

    Returns:
        One record, shape (1,), dtype `QPU_OP`.

    Raises:
        TypeError: If a number is not an integer.
        ValueError: If `count` is not from 0 to 64, or a flag's number does not fit a signed
            32-bit word.
    """
    number, flags = operator.index(first), operator.index(count)
    _flag_range(number, flags)
    if flags > FLAGS_PER_REQUEST:
        raise ValueError(f"a reply carries {FLAGS_PER_REQUEST} flags at most, not {flags}")
    return pack([Record(Opcode.FETCH_REQUEST, target_mask=number & _WORD, cond_mask=flags)])


_EMPTY_REQUEST: Final = fetch_request(0, 0)


def arrays_of(records: RecordArray, under_way: int, window: int) -> Iterator[RecordArray]:
    """Cut a program into the arrays that are sent, with empty requests where they are needed.

    Args:
        records: The program, shape (n,).
        under_way: Records sent since the last reply.
        window: Most records between two requests.

    Returns:
        The arrays, in order. A fetch request is always the last record of its array, and
        never stands between an extension record and its operation: filters that know
        extensions would drop them there.

    Raises:
        ValueError: If an operation with its extension records is longer than the window, or
            the last one is not complete.
    """
    opcodes = records["opcode"]
    ends = np.flatnonzero(opcodes != Opcode.EXTEND) + 1
    _check_operations(ends, len(records), window)
    return _cut(records, ends, opcodes, under_way, window)


def _check_operations(ends: npt.NDArray[np.int64], size: int, window: int) -> None:
    if size != (ends[-1] if len(ends) else 0):
        raise ValueError("a program for a service must not end with an extension record")
    longest = int(np.max(np.diff(ends, prepend=0), initial=0))
    if longest > window:
        raise ValueError(
            f"an operation of {longest} records, its extensions among them, does not fit "
            f"the window of {window}"
        )


def _cut(
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


class _Link:
    """One filter's connection, and how much has been sent since the service was last heard of."""

    def __init__(self, handle: int) -> None:
        self._handle = handle
        self._timeout = _ENGINE_TIMEOUT
        self._window = WINDOW
        self._under_way = 0

    def open(self, host: str, port: int, timeout: float, window: int) -> None:
        self._timeout = timeout
        self._window = window
        self._under_way = 0
        refusal = _call(_lib_nb_sim.connect, self._handle, host, port, timeout)
        if refusal:
            raise ConnectionError(refusal)

    def close(self) -> None:
        _call(_lib_nb_sim.disconnect, self._handle)

    def is_open(self) -> bool:
        status: dict[str, bool] = json.loads(_call(_lib_nb_sim.get_status, self._handle))
        return status["connected"]

    def send(self, records: RecordArray) -> None:
        if not len(records):
            self._put(records)  # sends nothing, but looks for a connection
        for array in arrays_of(records, self._under_way, self._window):
            if array["opcode"][-1] == Opcode.FETCH_REQUEST:
                self._ask(array)
                self._under_way = 0
            else:
                self._put(array)
                self._under_way += len(array)

    def _put(self, array: RecordArray) -> None:
        _call(_lib_nb_sim.put_instructions, self._handle, array, len(array))

    def _ask(self, array: RecordArray) -> None:
        # The engine's clock is the system's, which may be set while it waits. It would have to
        # be set twice in one wait to make a wait without a reply look short on both clocks.
        system, steady = time.time_ns(), time.monotonic_ns()
        self._put(array)
        waited = max(time.time_ns() - system, time.monotonic_ns() - steady)
        if waited < self._timeout * 1e9:
            return
        if not self.is_open():
            raise ConnectionError("the connection to the service was lost")
        self.close()
        # A reply that came with the last poll has been stored; whether one did, nothing tells.
        raise TimeoutError(
            f"waited {self._timeout:g} seconds or more for a reply; the connection is closed, and "
            "unless one came at the very end the read flags are those of the replies before"
        )


def _checked_host(host: object) -> str:
    if not isinstance(host, str):
        raise TypeError(f"host must be a string, not {type(host).__name__}")
    try:
        encoded = host.encode()
    except UnicodeEncodeError:
        raise ValueError(f"host cannot be encoded: {host!r}") from None
    if b"\0" in encoded:
        raise ValueError(f"host must not hold a null character: {host!r}")
    return host


def _checked_timeout(timeout: float) -> float:
    try:
        seconds = float(timeout)
    except OverflowError:
        seconds = math.inf if timeout > 0 else -math.inf  # an integer beyond all floats
    if not 0 < seconds < math.inf:
        raise ValueError(f"timeout must be a number of seconds above 0, not {seconds}")
    return seconds


class RemoteOperations(FilterHandle):
    """The connection of a "StreamConnect" filter to the service that runs its programs.

    On a filter of another type, and after `close`, every method raises `ValueError`.
    """

    def __init__(self, filter_type: str = "StreamBitQPU", **params: int) -> None:
        """Create the filter, not connected; see `FilterHandle`."""
        super().__init__(filter_type, **params)
        self._link = _Link(self._open_handle()) if filter_type == _CONNECT else None

    def connect(
        self, host: str, port: int, timeout: float = _DEFAULT_TIMEOUT, *, window: int = WINDOW
    ) -> None:
        """Connect to a service by TCP over IPv4; an open connection is closed first.

        The system's own limit holds for how long this takes. Nothing is asked of the service,
        so any program that listens there is taken for one.

        Connect only to a service that you trust: one that keeps sending holds the whole
        interpreter for as long as it likes.

        The engine prints "Connected ok." to C's standard output, which has a buffer of its own:
        redirecting `sys.stdout` does not catch the line, and in a file or a pipe it may stand
        behind what Python printed later.

        Args:
            host: Name or address of the service.
            port: Its port, 1 to 65535.
            timeout: Seconds without a reply after which a wait ends, above 0. They begin anew
                whenever further bytes come and there is a whole record, be it no reply, so this
                is no bound on the wait. The whole interpreter stands still during a wait and no
                signal ends it.
            window: Most records that are sent before the service is asked whether it keeps
                up, which takes 10 milliseconds; at least 1. What the socket does not take is
                lost without a word, so this must be what it takes at once. The default holds
                for any new connection. On loopback 40,000 were measured to fit while the
                service reads nothing (3.9 MB, on a system that grants 4 MB by
                `net.ipv4.tcp_wmem`), and 16,384 leave room.

        Raises:
            ConnectionError: If there is no connection, with the engine's text.
            TypeError: If `host` is not a string, or `port` or `window` not an integer.
            ValueError: If `host` holds a null character or cannot be encoded in UTF-8, or
                `port`, `timeout` or `window` is out of range.
        """
        link = self._remote()
        name, seconds = _checked_host(host), _checked_timeout(timeout)
        number, most = operator.index(port), operator.index(window)
        if not 1 <= number <= 65535:
            raise ValueError(f"port must be from 1 to 65535, not {number}")
        if most < 1:
            raise ValueError(f"window must be 1 or more, not {most}")
        link.open(name, number, seconds, most)

    def disconnect(self) -> None:
        """Close the connection; without one, do nothing. The read flags stay."""
        self._remote().close()

    @property
    def connected(self) -> bool:
        """Whether there is a connection, as far as this side knows.

        A service that has gone is noticed only when a fetch gets no reply.
        """
        return self._remote().is_open()

    def _remote(self) -> _Link:
        _ = self._open_handle()  # refuses a closed simulator
        if self._link is None:
            raise ValueError(f'a "{self._filter_type}" filter has no connection')
        return self._link
