"""Helpers of the socket filter's tests: the filter, and its peer in another process."""

from __future__ import annotations

import contextlib
import multiprocessing
import subprocess
import sys
import time
from collections.abc import Callable, Iterator, Sequence
from functools import partial
from pathlib import Path
from types import ModuleType
from typing import Any, NamedTuple, TypeVar

import numpy as np

from models.opcodes import FETCH_REPLY, FETCH_REQUEST
from models.wire import RECORD_BYTES
from support.dense import flush_native_output
from support.driver import FilterDriver, rec

POLL_SECONDS = 0.01

NOT_CONNECTED = "Error: instructions pushed while there is no connection."
CONNECTED_OK = "Connected ok.\n"
TIMED_OUT = (
    "Error: Timeout waiting to fetch measurement results. Measurement results are not valid.\n"
)
STATUS_CONNECTED = '{"connected":true}'
STATUS_NOT_CONNECTED = '{"connected":false}'

LOOPBACK = "127.0.0.1"
LONG = 30.0  # seconds; timeout of a wait that should end by its replies
SHORT = 0.1  # seconds; timeout of a wait that should end by it
ONE_POLL = 0.9 * POLL_SECONDS  # seconds; ends at the first poll's pause

Answer = TypeVar("Answer")

PEER_PROGRAM = str(Path(__file__).with_name("remote_peer.py"))


class Peer:
    """The service in the other process. Its commands are the methods of `remote_peer.Service`."""

    def __init__(self, receive_buffer: int = 0) -> None:
        self._orders, theirs = multiprocessing.Pipe()
        descriptor = theirs.fileno()
        command = [sys.executable, "-I", "-S", PEER_PROGRAM, str(descriptor), str(receive_buffer)]
        self._process = subprocess.Popen(command, pass_fds=[descriptor])
        theirs.close()
        self.port: int = self._orders.recv()

    def start(self, order: str, *arguments: Any) -> None:
        """Sends a command without a reply."""
        self._orders.send((order, *arguments))

    def ask(self, order: str, *arguments: Any) -> Any:
        self.start(order, *arguments)
        return self._orders.recv()

    def end(self) -> None:
        self._orders.close()
        self._process.wait()


class ConnectFilter(FilterDriver):
    """One "StreamConnect" filter."""

    def __init__(self, engine: ModuleType) -> None:
        super().__init__(engine, "StreamConnect")

    def connect(self, port: int, timeout: float = LONG, host: str = LOOPBACK) -> str:
        text: str = self.call("connect", host, port, timeout)
        return text

    def disconnect(self) -> str:
        text: str = self.call("disconnect")
        return text

    def status(self) -> str:
        text: str = self.call("get_status")
        return text


class Output(NamedTuple):
    out: str
    err: str


def heard(capfd: Any, action: Callable[[], Answer]) -> tuple[Answer, Output]:
    """The result of the action, and its output on both standard streams."""
    flush_native_output()  # discards earlier output
    capfd.readouterr()
    answer = action()
    flush_native_output()
    return answer, Output(*capfd.readouterr())


class Wait(NamedTuple):
    """A call that may have waited for replies: its output, its duration and the time of its end."""

    printed: str
    seconds: float
    ended_at: float


class Remote:
    """A filter with its peer."""

    def __init__(self, engine: ModuleType, capfd: Any, receive_buffer: int = 0) -> None:
        self.capfd = capfd
        self.peer = Peer(receive_buffer)
        self.filter = ConnectFilter(engine)

    def renew_filter(self) -> None:
        """Replaces the filter by a new one without flags."""
        self.filter.close()
        self.filter = ConnectFilter(self.filter.engine)

    def join(self, timeout: float = LONG) -> None:
        """Connects the two; `timeout` holds for all waits of this connection."""
        assert self.filter.connect(self.peer.port, timeout) == ""
        self.peer.ask("accept")

    def run(self, *records: np.ndarray) -> Wait:
        begun = time.monotonic()
        _, output = heard(self.capfd, partial(self.filter.run, *records))
        ended = time.monotonic()
        assert output.err == ""
        return Wait(output.out, ended - begun, ended)

    def fetch(self, requests: int = 1) -> Wait:
        """Waits for replies to so many requests, from what the peer has sent already."""
        return self.run(*[rec(FETCH_REQUEST)] * requests)

    def fetch_from(
        self, chunks: Sequence[bytes], requests: int = 1, ending: str = ""
    ) -> tuple[Wait, list[float]]:
        """Waits while the peer sends the chunks, each after the previous one has been read.

        Also returns the times at which chunks were sent. The last one may be unread.
        """
        self.peer.start("play", requests * RECORD_BYTES, list(chunks), ending)
        wait = self.fetch(requests)
        sent_at: list[float] = self.peer.ask("report")
        return wait, sent_at

    def fetch_sent(self, data: bytes, requests: int = 1) -> Wait:
        """Waits for replies to so many requests when these bytes have come before it begins."""
        self.peer.ask("send", data)
        return self.fetch(requests)

    def bytes_read(self) -> int:
        """Bytes of this connection that the filter has read so far."""
        count: int = self.peer.ask("count_read")
        return count

    def end(self) -> None:
        self.filter.close()
        self.peer.end()


@contextlib.contextmanager
def open_remote(engine: ModuleType, capfd: Any, receive_buffer: int = 0) -> Iterator[Remote]:
    """A filter and a peer that are not yet connected; both are ended after the block."""
    remote = Remote(engine, capfd, receive_buffer)
    try:
        yield remote
    finally:
        remote.end()


def signed(word: int) -> int:
    """An unsigned 64-bit word reinterpreted as a signed one."""
    return (word + 2**63) % 2**64 - 2**63


def reply(first: int, count: int, value: int, valid: int = 2**64 - 1, **others: Any) -> bytes:
    """A fetch reply: `count` bits of `value` for the flags from `first` on."""
    words: dict[str, Any] = {
        "target_mask": first % 2**64,
        "cond_mask": count,
        "cond_flag": signed(valid),
        "read_flag": signed(value),
    }
    return rec(FETCH_REPLY, **words, **others).tobytes()
