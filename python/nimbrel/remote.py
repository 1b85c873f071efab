"""The operations that only a "StreamConnect" filter has: its connection to a service.

The engine passes an array to the socket in one write that does not wait, and it does not report
the bytes that the socket does not take. Then it waits for a reply to each fetch request of the
array, but reads only the first record that has arrived. If no reply comes in time, it prints a
line and continues with the old flags. Bytes that arrive during the wait restart the timeout, so
the peer can make a wait as long as it wants: connect only to a service that you trust.

So an array contains at most one fetch request here, as its last record (see `send_window`). One
record answers it, or none does. A wait that ended before its timeout has found the reply. After a
wait that reached its timeout, a late reply would answer the next request. So the connection is
closed then.
"""

import json
import math
import operator
import time
from typing import Final

import _lib_nb_sim

from nimbrel._engine import call, check_flag_range
from nimbrel.fetch_requests import FLAGS_PER_REQUEST, fetch_request
from nimbrel.opcodes import Opcode
from nimbrel.records import RecordArray, program
from nimbrel.send_window import arrays_of
from nimbrel.simulator import FilterSimulator

__all__ = ["WINDOW", "RemoteSimulator"]

WINDOW: Final = 512
"""Records that a new connection takes on any network without a reply: 45 kB of 78 kB measured."""

_ENGINE_TIMEOUT: Final = 1800.0
_DEFAULT_TIMEOUT: Final = 30.0


class RemoteSimulator(FilterSimulator, filter_type="StreamConnect"):
    """A filter that sends its records to a service by TCP and receives read flags."""

    def __init__(
        self,
        filter_type: str | None = None,
        *,
        check_qubits: bool = True,
        allow_inexact_controls: bool = False,
        **params: int,
    ) -> None:
        """Create the filter without a connection; see `Simulator`.

        Args:
            filter_type: "StreamConnect", which is also the default.
            check_qubits: Without effect: the register of the service is not known here.
            allow_inexact_controls: Without effect, likewise.
            **params: As for `Simulator`.

        Raises:
            TypeError: As `Simulator`.
            ValueError: As `Simulator`, or if `filter_type` is another filter type.
        """
        super().__init__(
            filter_type,
            check_qubits=check_qubits,
            allow_inexact_controls=allow_inexact_controls,
            **params,
        )
        self._connection = _Connection(self._require_open())

    def run(self, *parts: RecordArray) -> None:
        """Send a program to the service.

        The engine is called once for each fetch request and once for each window of records (see
        `connect`), and waits for a reply each time. Without a fetch request at the end, nothing
        tells whether the service has run the last records, or whether it still exists.

        Args:
            *parts: `QPU_OP` arrays of shape (k,), joined in this order.

        Raises:
            ValueError: If a part is not a one-dimensional `QPU_OP` array; if the program ends with
                an extension record; if an operation is longer than the window; or if the simulator
                is closed.
            RuntimeError: If there is no connection.
            TimeoutError: If no reply comes in time, also because the service has gone. The
                connection is closed then, because a late reply would answer the next request. A
                reply in the last moment of the wait counts as late, but its flags are stored.
            ConnectionError: If the connection was lost during a wait.
        """
        records = program(*parts)
        self._require_open()
        self._connection.send(records)

    def fetch(self, first: int, count: int, *parts: RecordArray) -> int:
        """Run a program at the service and fetch read flags.

        There is one request for every 64 flags. The last records of the program are in the same
        array as the first request. Each request takes a multiple of 10 milliseconds.

        Args:
            first: First flag, a signed 32-bit number; a negative number reads the flag inverted.
            count: Number of flags. With 0, no flag is fetched, but the service has run the
                program when this method returns.
            *parts: The program, as for `run`.

        Returns:
            An integer whose bit i is flag `first + i`. `flags` returns the same from now on. A
            flag that the service marks as not present keeps its value. `nimbrel.service` marks
            flags that no record has stored; such a flag reads 0, as in a local run, unless an
            earlier connection has fetched it.

        Raises:
            ValueError: As `run` and `flags`.
            RuntimeError: If there is no connection.
            TimeoutError: As `run`. The flags of the requests before have been stored.
            ConnectionError: As `run`.
        """
        self._require_open()
        check_flag_range(first, count)
        starts = range(0, max(count, 1), FLAGS_PER_REQUEST)
        requests = [
            fetch_request(first + done, min(FLAGS_PER_REQUEST, count - done)) for done in starts
        ]
        self.run(*parts, *requests)
        return self.flags(first, count)

    def connect(
        self, host: str, port: int, timeout: float = _DEFAULT_TIMEOUT, *, window: int = WINDOW
    ) -> None:
        """Connect to a service by TCP over IPv4. An open connection is closed first.

        The operating system limits how long this takes. The service is not asked for anything, so
        any program that listens at this address is accepted.

        Connect only to a service that you trust: a service that keeps sending blocks the whole
        interpreter as long as it wants.

        The engine prints "Connected ok." to C's standard output. Redirecting `sys.stdout` does not
        catch this line. In a file or a pipe it may appear after text that Python printed later.

        Args:
            host: Name or address of the service.
            port: Its port, 1 to 65535.
            timeout: Seconds without a reply after which a wait ends, above 0. When a whole record
                has arrived, even one that is no reply, further bytes restart the timeout; so this
                does not limit the wait. During a wait the whole interpreter is blocked, and no
                signal ends the wait.
            window: Largest number of records that are sent before a fetch request asks whether the
                service keeps up, at least 1. The request takes 10 milliseconds. Bytes that the
                socket does not take are lost without an error, so the socket must take this many
                records at once. The default is right for any new connection. On loopback, 40,000
                records were measured while the service read nothing (3.9 MB where
                `net.ipv4.tcp_wmem` allows 4 MB), so 16,384 is safe there.

        Raises:
            ConnectionError: If the connection fails, with the engine's text.
            TypeError: If `host` is not a string, or `port` or `window` is not an integer.
            ValueError: If `host` contains a null character or cannot be encoded in UTF-8; if
                `port`, `timeout` or `window` is out of range; or if the simulator is closed.
        """
        self._require_open()
        name, seconds = _checked_host(host), _checked_timeout(timeout)
        number, records = operator.index(port), operator.index(window)
        if not 1 <= number <= 65535:
            raise ValueError(f"port must be from 1 to 65535, not {number}")
        if records < 1:
            raise ValueError(f"window must be 1 or more, not {records}")
        self._connection.open(name, number, seconds, records)

    def disconnect(self) -> None:
        """Close the connection, if there is one. The read flags stay.

        Raises:
            ValueError: If the simulator is closed.
        """
        self._require_open()
        self._connection.close()

    @property
    def connected(self) -> bool:
        """Whether there is a connection, as far as this side knows.

        If the service has gone, only a fetch without a reply shows it.

        Raises:
            ValueError: If the simulator is closed.
        """
        self._require_open()
        return self._connection.is_open()


class _Connection:
    """The connection of one filter, and the number of records sent since the last reply."""

    def __init__(self, handle: int) -> None:
        self._handle = handle
        self._timeout = _ENGINE_TIMEOUT
        self._window = WINDOW
        self._under_way = 0

    def open(self, host: str, port: int, timeout: float, window: int) -> None:
        self._timeout = timeout
        self._window = window
        self._under_way = 0
        failure = call(_lib_nb_sim.connect, self._handle, host, port, timeout)
        if failure:
            raise ConnectionError(failure)

    def close(self) -> None:
        call(_lib_nb_sim.disconnect, self._handle)

    def is_open(self) -> bool:
        status: dict[str, bool] = json.loads(call(_lib_nb_sim.get_status, self._handle))
        return status["connected"]

    def send(self, records: RecordArray) -> None:
        if not len(records):
            self._put(records)  # sends nothing; the engine checks the connection
        for array in arrays_of(records, self._under_way, self._window):
            if array["opcode"][-1] == Opcode.FETCH_REQUEST:
                self._put_and_wait(array)
                self._under_way = 0
            else:
                self._put(array)
                self._under_way += len(array)

    def _put(self, array: RecordArray) -> None:
        call(_lib_nb_sim.put_instructions, self._handle, array, len(array))

    def _put_and_wait(self, array: RecordArray) -> None:
        # The engine measures its timeout by the system clock, which may be set during the wait.
        # A wait without a reply looks short on both clocks only if it is set twice in one wait.
        system, steady = time.time_ns(), time.monotonic_ns()
        self._put(array)
        waited = max(time.time_ns() - system, time.monotonic_ns() - steady)
        if waited < self._timeout * 1e9:
            return
        if not self.is_open():
            raise ConnectionError("the connection to the service was lost")
        self.close()
        # The last poll may have stored a reply; nothing tells whether it did.
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
