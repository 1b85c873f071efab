"""The clients of the service: their number, their turns and their limits of time.

All clients share one thread, the one of the event loop.
"""

import asyncio
import logging
import select
import socket
from collections.abc import Awaitable
from typing import Final, TypeVar

from nimbrel.service.session import QUICK_QUBITS, Limits, RefusalError, Session
from nimbrel.simulator import Simulator

READ_BYTES: Final = 1 << 17
CLOSE_SECONDS: Final = 5.0  # in which a client that is cut off can read its replies

T = TypeVar("T")

log = logging.getLogger("nimbrel.service")


class Service:
    """Serves clients, each on a filter that only this client uses."""

    def __init__(self, filter_type: str, limits: Limits) -> None:
        """Start without clients.

        Args:
            filter_type: The engine's name of the filter type.
            limits: The limits of each client, and the number of clients.
        """
        self._filter_type = filter_type
        self._limits = limits
        self._clients: dict[asyncio.Task[None], asyncio.StreamWriter] = {}
        self._is_ending = False

    async def serve_client(
        self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter
    ) -> None:
        """Serve one connection to its end. An error ends only this connection."""
        name = "client {}:{}".format(*writer.get_extra_info("peername", ("gone", 0)))
        task = asyncio.current_task()
        assert task is not None
        try:
            if len(self._clients) == self._limits.clients:
                raise RefusalError(f"{len(self._clients)} clients are served already")
            self._clients[task] = writer
            await self._serve_admitted(name, reader, writer)
        except (RefusalError, OSError) as error:
            if not self._is_ending:
                log.warning("%s: %s", name, error)
        finally:
            await close_in_time(writer, CLOSE_SECONDS)
            self._clients.pop(task, None)

    async def end(self) -> None:
        """Cut off all clients."""
        self._is_ending = True
        for writer in self._clients.values():
            writer.transport.abort()
        await asyncio.gather(*self._clients, return_exceptions=True)

    async def _serve_admitted(
        self, name: str, reader: asyncio.StreamReader, writer: asyncio.StreamWriter
    ) -> None:
        # Without keepalive, a machine that has vanished would count as a client for ever.
        connection: socket.socket = writer.get_extra_info("socket")
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_KEEPALIVE, 1)
        with self._new_filter() as sim:
            session = Session(sim, self._limits, QUICK_QUBITS[self._filter_type])
            log.info("%s: connected", name)
            await exchange(session, reader, writer, self._limits.idle_seconds)
            log.info("%s: closed after %d records", name, session.num_records)

    def _new_filter(self) -> Simulator:
        try:
            return Simulator(self._filter_type)
        except (RuntimeError, MemoryError) as error:
            raise RefusalError(f"no filter for it: {str(error).strip()}") from None


async def exchange(
    session: Session, reader: asyncio.StreamReader, writer: asyncio.StreamWriter, seconds: float
) -> None:
    """Pass the bytes of a connection to a session and send its replies, until the client closes.

    Args:
        session: Runs the records.
        reader: The connection's input.
        writer: The connection's output.
        seconds: Longest wait for the client.

    Raises:
        RefusalError: If a record is not served, or a wait is too long.
        OSError: If the connection breaks.
    """
    while data := await in_time(reader.read(READ_BYTES), seconds):
        refusal = None
        try:
            for _ in session.feed(data):
                await asyncio.sleep(0)
                require_connection(writer)
                writer.write(session.take_replies())
        except RefusalError as error:
            refusal = error
        # In one write: a client with several requests counts the replies that have arrived.
        writer.write(session.take_replies())
        await in_time(writer.drain(), seconds)
        if refusal is not None:
            raise refusal
    session.end()


async def in_time(wait: Awaitable[T], seconds: float) -> T:
    """Wait for a client and return the result.

    Args:
        wait: What to wait for.
        seconds: The longest wait.

    Raises:
        RefusalError: If the wait takes longer.
    """
    # `asyncio.wait_for` would raise the same error as a connection that has timed out.
    task = asyncio.ensure_future(wait)
    done, _ = await asyncio.wait([task], timeout=seconds)
    if not done:
        task.cancel()
        raise RefusalError(f"idle for {seconds:g} seconds")
    return task.result()


def require_connection(writer: asyncio.StreamWriter) -> None:
    """Check that a client whose records are running is still connected.

    While input waits unread, the event loop does not notice that a connection is lost. A client
    that has closed its sending side may still read; only a write can tell.

    Args:
        writer: The connection's output.

    Raises:
        ConnectionResetError: If the connection is lost, or the service has cut off the client.
    """
    if not writer.transport.is_closing():
        poll = select.poll()
        poll.register(writer.get_extra_info("socket"), 0)  # a reset is always reported
        if not poll.poll(0):
            return
    raise ConnectionResetError("the connection was lost while its records ran")


async def close_in_time(writer: asyncio.StreamWriter, seconds: float) -> None:
    """Close a connection. Replies that the client has not read in this time are lost."""
    writer.close()
    try:
        await asyncio.wait_for(writer.wait_closed(), seconds)
    except asyncio.TimeoutError:
        writer.transport.abort()
    except OSError:
        pass  # the connection is broken, which the caller has logged
