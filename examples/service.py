"""Run programs for others: a service that "StreamConnect" filters connect to.

    python examples/service.py [--filter TYPE] [--host HOST] [--port PORT] [--max-clients N]
                               [--max-qubits N] [--max-records N] [--idle-seconds N]
                               [--until-eof] [--quiet]

There is NO AUTHENTICATION and no encryption: whoever reaches the port can use it. So it listens
on this machine's loopback address unless HOST names another one; keep that inside a network
that you trust. It prints a line "listening on HOST:PORT" for each address that HOST has; port 0
takes a free one.

Each client gets a filter of TYPE to itself, which its records run on in order and which ends
with its connection. A fetch request (opcode 10000011) is answered by one reply (10004011), also
in a stretch that a jump skips:

    request   target_mask   first read flag, signed
              cond_mask     number of flags; above 64 it counts as 64
    reply     target_mask   first read flag, as asked
              cond_mask     number of flags, 64 at most
              cond_flag     bit i: the value has bit i, because flag first + i has been stored;
                            no bit when a flag's number does not fit 32 bits
              read_flag     bit i: flag first + i

A client is told nothing else. It is cut off, and the reason logged, when a record fails, when
it sizes a register above --max-qubits, when it sends more than --max-records, more than 65536
records that open an event or more than 4096 extensions of one operation, when it sends nothing
or leaves replies unread for --idle-seconds, and when it closes in the middle of a record. Of its
bytes less than a megabyte is held at a time, and nothing more is read while it leaves replies
unread. All limits but --max-clients hold for each client: sixteen with a gigabyte each need
sixteen.

All clients share one thread and take turns of 50 milliseconds, or of one record where that takes
longer; nothing ends a record. The log, and what the engine prints, go to standard error. With
--until-eof the service ends with its standard input, which has to be a pipe or a terminal.
"""

import argparse
import asyncio
import ipaddress
import logging
import os
import select
import signal
import socket
import sys
from collections.abc import Awaitable, Callable, Coroutine, Iterable, Sequence
from typing import Any, Final, TypeVar

from nimbrel import Simulator
from service_session import QUICK_QUBITS, Limits, RefusalError, Session

DEFAULT_PORT: Final = 7376
READ_BYTES: Final = 1 << 17
CLOSE_SECONDS: Final = 5.0  # for a client that has been cut off to read the rest

# Registers of about a gigabyte. A bit filter has four bytes a qubit for reservations alone.
MAX_QUBITS: Final = {
    "StreamQPU": 26,
    "StreamSparseQPU": 24,
    "StreamBitQPU": 1 << 27,
    "StreamCliffordQPU": 1 << 15,
}

T = TypeVar("T")

log = logging.getLogger("service")


class Service:
    """Answers clients, each on a filter of its own."""

    def __init__(self, filter_type: str, limits: Limits) -> None:
        """Serve no one yet."""
        self._filter_type = filter_type
        self._limits = limits
        self._clients: dict[asyncio.Task[None], asyncio.StreamWriter] = {}
        self._is_ending = False

    async def serve_client(
        self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter
    ) -> None:
        """Serve one connection to its end; what goes wrong ends this one alone."""
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
        """Cut all clients off."""
        self._is_ending = True
        for writer in self._clients.values():
            writer.transport.abort()
        await asyncio.gather(*self._clients, return_exceptions=True)

    async def _serve_admitted(
        self, name: str, reader: asyncio.StreamReader, writer: asyncio.StreamWriter
    ) -> None:
        # A machine that has vanished shall not keep its place for ever.
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
    """Feed a session from its connection until that ends.

    Args:
        session: What runs the records.
        reader: The connection's input.
        writer: Its output.
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
        # Together: a client that has asked several times at once counts what it finds.
        writer.write(session.take_replies())
        await in_time(writer.drain(), seconds)
        if refusal is not None:
            raise refusal
    session.end()


async def in_time(wait: Awaitable[T], seconds: float) -> T:
    """The result of a wait for a client.

    Raises:
        RefusalError: If it takes longer.
    """
    # Not `wait_for`: a connection that has timed out raises the same error as it does.
    task = asyncio.ensure_future(wait)
    done, _ = await asyncio.wait([task], timeout=seconds)
    if not done:
        task.cancel()
        raise RefusalError(f"idle for {seconds:g} seconds")
    return task.result()


def require_connection(writer: asyncio.StreamWriter) -> None:
    """Look whether a client whose records run is still there.

    While input waits unread, nobody else looks. A client that has closed in an orderly way may
    still read, which only a reply finds out.

    Raises:
        ConnectionResetError: If it is not, or the service has cut it off.
    """
    if not writer.transport.is_closing():
        poll = select.poll()
        poll.register(writer.get_extra_info("socket"), 0)  # a reset is told unasked
        if not poll.poll(0):
            return
    raise ConnectionResetError("the connection was lost while its records ran")


async def close_in_time(writer: asyncio.StreamWriter, seconds: float) -> None:
    """Close a connection; what the client has not read by then is lost."""
    writer.close()
    try:
        await asyncio.wait_for(writer.wait_closed(), seconds)
    except asyncio.TimeoutError:
        writer.transport.abort()
    except OSError:
        pass  # it has broken, which is told elsewhere


async def serve(service: Service, host: str, port: int, *, until_eof: bool) -> None:
    """Listen and serve until a signal to end, or the end of standard input.

    Raises:
        OSError: If the address cannot be listened on.
        ValueError: If there is no telling when the input ends.
    """
    stopped = asyncio.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        asyncio.get_running_loop().add_signal_handler(number, stopped.set)
    # The engine's client knows IPv4 only.
    server = await asyncio.start_server(
        service.serve_client, host, port, family=socket.AF_INET, limit=READ_BYTES
    )
    announce(listener.getsockname() for listener in server.sockets)
    leave_standard_output()
    ends: list[Coroutine[Any, Any, object]] = [stopped.wait()]
    if until_eof:
        ends.append(end_of_input())
    done, _ = await asyncio.wait(
        [asyncio.ensure_future(end) for end in ends], return_when=asyncio.FIRST_COMPLETED
    )
    for end in done:
        await end
    server.close()
    await service.end()


def announce(addresses: Iterable[tuple[str, int]]) -> None:
    """Print where the service listens, and warn where others can reach it."""
    for address, number in addresses:
        if not ipaddress.ip_address(address).is_loopback:
            log.warning("no authentication: whoever reaches %s:%d can use it", address, number)
        print(f"listening on {address}:{number}", flush=True)


def leave_standard_output() -> None:
    """Send what is still to be printed to standard error: whoever read the address may be gone."""
    os.dup2(sys.stderr.fileno(), sys.stdout.fileno())


async def end_of_input() -> None:
    """Wait for the end of standard input.

    Raises:
        ValueError: If it is neither a pipe nor a terminal.
    """
    reader = asyncio.StreamReader()
    protocol = asyncio.StreamReaderProtocol(reader)
    await asyncio.get_running_loop().connect_read_pipe(lambda: protocol, sys.stdin)
    while await reader.read(READ_BYTES):
        pass


def require_streams(*, until_eof: bool) -> None:
    """Look for the standard streams that the service needs.

    Without them the first sockets would take their places, and what is printed would go there.

    Raises:
        ValueError: If one is closed.
    """
    needed = {"output": sys.stdout, "error": sys.stderr}
    if until_eof:
        needed["input"] = sys.stdin
    for name, stream in needed.items():
        if stream is None:
            raise ValueError(f"standard {name} is closed")


def host_name(text: str) -> str:
    """Read the address to listen on; an empty one would mean all that there are."""
    if not text:
        raise argparse.ArgumentTypeError("empty; 0.0.0.0 stands for all addresses")
    return text


def number_from(low: int, high: int = 2**63 - 1) -> Callable[[str], int]:
    """A reader of integer arguments within bounds."""

    def parse(text: str) -> int:
        if text.isascii() and text.isdigit() and len(text) < 20 and low <= int(text) <= high:
            return int(text)
        raise argparse.ArgumentTypeError(f"not a number from {low} to {high}: {text[:60]!r}")

    return parse


def parse_arguments(argv: Sequence[str]) -> argparse.Namespace:
    """The settings; exits with status 2 on bad ones."""
    parser = argparse.ArgumentParser(prog="service.py", description=__doc__, allow_abbrev=False)
    parser.formatter_class = argparse.RawDescriptionHelpFormatter
    add = parser.add_argument
    add("--filter", choices=MAX_QUBITS, default="StreamQPU", help="what runs the records")
    add("--host", type=host_name, default="127.0.0.1", help="where to listen (default: loopback)")
    add("--port", type=number_from(0, 65535), default=DEFAULT_PORT, help=f"({DEFAULT_PORT})")
    add("--max-clients", type=number_from(1), default=16, metavar="N", help="at a time (16)")
    add("--max-qubits", type=number_from(0), metavar="N", help="of each (what fits a gigabyte)")
    add("--max-records", type=number_from(1), default=10**8, metavar="N", help="(100 million)")
    add("--idle-seconds", type=number_from(1), default=3600, metavar="N", help="(3600)")
    add("--quiet", action="store_true", help="log only what goes wrong")
    add("--until-eof", action="store_true", help="end when standard input does")
    return parser.parse_args(argv)


def main(argv: Sequence[str]) -> int:
    """Run the service; returns the exit status."""
    settings = parse_arguments(argv)
    level = logging.WARNING if settings.quiet else logging.INFO
    logging.basicConfig(format="%(asctime)s %(message)s", level=level)
    qubits = settings.max_qubits
    if qubits is None:
        qubits = MAX_QUBITS[settings.filter]
    limits = Limits(settings.max_clients, qubits, settings.max_records, settings.idle_seconds)
    service = Service(settings.filter, limits)
    until_eof: bool = settings.until_eof
    try:
        require_streams(until_eof=until_eof)
        asyncio.run(serve(service, settings.host, settings.port, until_eof=until_eof))
    except (OSError, ValueError) as error:  # an address or a stream that cannot be used
        print(f"service.py: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
