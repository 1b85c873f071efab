"""A TCP service on loopback in its own process, which the tests control by commands.

The engine holds the interpreter lock while it waits for replies, so a thread of the tests' process
could not reply. The service does not wait by the clock: the kernel tells it what the client has
received and read.

Usage: remote_peer.py DESCRIPTOR RECEIVE_BUFFER, the descriptor of a pipe to the tests. First it
writes its port to the pipe. A command is the name of a method of `Service` and its arguments. All
but `play` are answered.
"""

from __future__ import annotations

import socket
import struct
import sys
import time
from collections.abc import Callable
from multiprocessing.connection import Connection
from typing import Any, NamedTuple

LIMIT = 30.0  # seconds, after which a failing test gives up
LOOK_AGAIN = 0.0005  # seconds

# The kernel's numbers of connection states.
TCP_CLOSE, TCP_CLOSE_WAIT = 7, 8


class View(NamedTuple):
    """One end of a connection: its state, its received bytes, and its unread bytes."""

    state: int
    arrived: int
    unread: int


class ClientEnd:
    """The client's end of a connection, found by its addresses among the kernel's sockets."""

    GONE = View(TCP_CLOSE, 0, 0)

    def __init__(self, connection: socket.socket) -> None:
        self.kernel = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 4)  # NETLINK_SOCK_DIAG
        (client, client_port), (own, own_port) = connection.getpeername(), connection.getsockname()
        addresses = [socket.inet_aton(host).ljust(16, b"\0") for host in (client, own)]
        identity = struct.pack("!HH16s16sI8s", client_port, own_port, *addresses, 0, b"\xff" * 8)
        any_state, statistics = 2**32 - 1, 2
        wanted = struct.pack("=BBBxI", socket.AF_INET, socket.IPPROTO_TCP, statistics, any_state)
        length = 16 + len(wanted) + len(identity)
        by_family, is_request = 20, 1
        self.query = struct.pack("=IHHII", length, by_family, is_request, 0, 0) + wanted + identity

    def look(self) -> View:
        self.kernel.send(self.query)
        answer = self.kernel.recv(8192)
        (kind,) = struct.unpack_from("=H", answer, 4)
        if kind == 2:  # an error: the socket no longer exists
            return self.GONE
        (unread,) = struct.unpack_from("=I", answer, 72)
        return View(answer[17], self._arrived(answer), unread)

    @staticmethod
    def _arrived(answer: bytes) -> int:
        """The received bytes as the attribute of kind 2, the TCP statistics, counts them."""
        place = 88
        while place < len(answer):
            length, kind = struct.unpack_from("=HH", answer, place)
            if kind == 2:
                count: int = struct.unpack_from("=Q", answer, place + 4 + 128)[0]
                return count
            place += (length + 3) & ~3
        return 0  # a socket in TIME_WAIT has no statistics


class Service:
    """A listening socket and its latest connection."""

    def __init__(self, orders: Connection[Any, Any], receive_buffer: int) -> None:
        self.orders = orders
        self.listener = socket.socket()
        self.listener.settimeout(LIMIT)
        if receive_buffer:
            self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.listener.bind(("127.0.0.1", 0))
        self.listener.listen(64)
        self.connection: socket.socket | None = None
        self.sent = 0
        self.sent_at: list[float] = []

    def accept(self) -> None:
        if self.connection is not None:
            self.connection.close()
        self.connection, _ = self.listener.accept()
        self.connection.settimeout(LIMIT)
        self.connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.client = ClientEnd(self.connection)
        self.sent = 0

    def receive(self, size: int) -> bytes:
        """So many bytes, or fewer if the client closes earlier."""
        assert self.connection is not None
        received = bytearray()
        while len(received) < size:
            piece = self.connection.recv(min(size - len(received), 1 << 20))
            if not piece:
                break
            received += piece
        return bytes(received)

    def receive_rest(self) -> bytes:
        """All bytes until the client's end is closed."""
        return self.receive(sys.maxsize)

    def send(self, data: bytes) -> None:
        """Sends, and waits until the client's end has received everything."""
        assert self.connection is not None
        self.connection.sendall(data)
        self.sent += len(data)
        self._wait_until(lambda view: view.arrived >= self.sent)

    def count_read(self) -> int:
        """Bytes of this connection that the client has read so far."""
        view = self.client.look()
        return view.arrived - view.unread

    def close(self) -> None:
        """Closes regularly. All received bytes must have been read, else this is a reset."""
        assert self.connection is not None
        self.connection.close()
        self._wait_until(lambda view: view.state == TCP_CLOSE_WAIT)

    def reset(self) -> None:
        assert self.connection is not None
        at_once = struct.pack("ii", 1, 0)
        self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, at_once)
        self.connection.close()
        self.wait_until_gone()

    def wait_until_gone(self) -> None:
        """Waits until the client's end knows that the connection has ended."""
        self._wait_until(lambda view: view.state == TCP_CLOSE)

    def play(self, size: int, chunks: list[bytes], ending: str) -> None:
        """Receives `size` bytes and sends the chunks, then runs the command `ending` if given.

        Each is sent after the client has read everything before it. The next command stops this.
        """
        self.sent_at = []
        self.receive(size)
        for chunk in chunks:
            if not self._is_read_out():
                return
            self.sent_at.append(time.monotonic())
            self.send(chunk)
        if ending and self._is_read_out():
            getattr(self, ending)()

    def report(self) -> list[float]:
        """The times at which chunks of the latest `play` were sent."""
        return self.sent_at

    def _is_read_out(self) -> bool:
        """Waits for the client to read everything sent. False if a command comes earlier."""
        while self.count_read() < self.sent:
            if self.orders.poll(LOOK_AGAIN):
                return False
        return True

    def _wait_until(self, holds: Callable[[View], bool]) -> None:
        deadline = time.monotonic() + LIMIT
        while not holds(view := self.client.look()):
            if time.monotonic() > deadline:
                raise TimeoutError(f"the client's end stays {view}")
            time.sleep(LOOK_AGAIN)


def main() -> None:
    orders: Connection[Any, Any] = Connection(int(sys.argv[1]))
    service = Service(orders, int(sys.argv[2]))
    orders.send(service.listener.getsockname()[1])
    while True:
        try:
            name, *arguments = orders.recv()
        except EOFError:  # no more commands
            return
        answer = getattr(service, name)(*arguments)
        if name != "play":
            orders.send(answer)


if __name__ == "__main__":
    main()
