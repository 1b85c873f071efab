"""Run programs for others: a service that "StreamConnect" filters connect to.

    python examples/service.py [--filter TYPE] [--host HOST] [--port PORT] [--max-clients N]
                               [--max-qubits N] [--max-records N] [--until-eof] [--quiet]

There is NO AUTHENTICATION and no encryption: whoever reaches the port can use it. So it listens
on this machine's loopback address unless HOST names another one; keep that inside a network
that you trust. It prints one line, "listening on HOST:PORT"; port 0 takes a free one.

Each client gets a filter of TYPE to itself, which its records run on in order and which ends
with its connection. A fetch request (opcode 10000011) is answered by one reply (10004011), also
in a stretch that a jump skips:

    request   target_mask   first read flag, signed
              cond_mask     number of flags; above 64 it counts as 64
    reply     target_mask   first read flag, as asked
              cond_mask     number of flags, 64 at most
              cond_flag     bit i: the value has bit i; all of them, or none when a flag's number
                            does not fit 32 bits
              read_flag     bit i: flag first + i

A client is told nothing else. It is cut off, and the reason logged, when a record fails, when
it sizes a register above --max-qubits, when it has sent --max-records, and when it closes in
the middle of a record. Of its bytes less than a megabyte is held at a time, and nothing more is
read while it leaves replies unread. All clients share one thread: a long array of one makes the
others wait. The log, and what the engine prints, go to standard error. With --until-eof the
service ends with its standard input, which has to be a pipe or a terminal.
"""

import argparse
import asyncio
import ipaddress
import logging
import os
import signal
import socket
import sys
from collections.abc import Callable, Coroutine, Sequence
from dataclasses import dataclass
from typing import Any, Final

import numpy as np
from nimbrel import QPU_OP, Opcode, RecordArray, Simulator, record

DEFAULT_PORT: Final = 7376
READ_BYTES: Final = 1 << 17
FLAGS_PER_REPLY: Final = 64
FLAG_NUMBERS: Final = range(-(2**31), 2**31)

# Registers of about a gigabyte.
MAX_QUBITS: Final = {
    "StreamQPU": 26,
    "StreamSparseQPU": 24,
    "StreamBitQPU": 1 << 32,
    "StreamCliffordQPU": 1 << 15,
}

log = logging.getLogger("service")


class RefusalError(Exception):
    """A client has sent what is not served; the text tells what."""


@dataclass(frozen=True)
class Limits:
    """What one client may have, and how many clients there may be."""

    clients: int
    qubits: int
    records: int


class Session:
    """One client's filter, and the bytes of a record that has not come whole yet."""

    def __init__(self, sim: Simulator, limits: Limits) -> None:
        """Serve records on `sim`, which stays the caller's."""
        self._sim = sim
        self._limits = limits
        self._partial = b""
        self._replies = bytearray()
        self.num_records = 0

    def feed(self, data: bytes) -> None:
        """Run the records that are whole now.

        Raises:
            RefusalError: If one is not served. Those before it have run, and their replies wait.
        """
        held = self._partial + data
        whole = len(held) - len(held) % QPU_OP.itemsize
        self._partial = held[whole:]
        records = np.frombuffer(held[:whole], dtype=QPU_OP)
        served, refusal = self._served(records)
        try:
            self._run(served)
        except (RuntimeError, MemoryError) as error:
            raise RefusalError(f"a record failed: {str(error).strip()}") from None
        if refusal:
            raise RefusalError(refusal)

    def take_replies(self) -> bytes:
        """The replies made since the last call."""
        replies, self._replies = bytes(self._replies), bytearray()
        return replies

    def end(self) -> None:
        """The client sends no more.

        Raises:
            RefusalError: If it has stopped inside a record.
        """
        if self._partial:
            raise RefusalError(f"closed after {len(self._partial)} bytes of a record")

    def _served(self, records: RecordArray) -> tuple[RecordArray, str]:
        """The records before the first one over a limit, and that limit in words, if any."""
        sizes = records["target_mask"]
        too_wide = sizes > np.uint64(self._limits.qubits)
        over = np.flatnonzero((records["opcode"] == Opcode.RESET) & too_wide)
        left = self._limits.records - self.num_records
        if len(over) and over[0] < left:
            return records[: over[0]], f"a register of {sizes[over[0]]} qubits"
        if len(records) > left:
            return records[:left], f"more than {self._limits.records} records"
        return records, ""

    def _run(self, records: RecordArray) -> None:
        start = 0
        for stop in (np.flatnonzero(records["opcode"] == Opcode.FETCH_REQUEST) + 1).tolist():
            self._sim.run(records[start:stop])
            words = int(records["target_mask"][stop - 1]), int(records["cond_mask"][stop - 1])
            self._replies += reply_to(*words, self._sim).tobytes()
            start = stop
        self._sim.run(records[start:])
        self.num_records += len(records)


def reply_to(first_word: int, asked: int, sim: Simulator) -> RecordArray:
    """The reply to a fetch request with these words, one record."""
    first = signed(first_word)
    count = min(asked, FLAGS_PER_REPLY)
    has_flags = count > 0 and first in FLAG_NUMBERS and first + count - 1 in FLAG_NUMBERS
    return record(
        Opcode.FETCH_REPLY,
        target_mask=first_word,
        cond_mask=count,
        cond_flag=signed((1 << count) - 1) if has_flags else 0,
        read_flag=signed(sim.flags(first, count)) if has_flags else 0,
    )


def signed(word: int) -> int:
    """The signed number in an unsigned 64-bit word."""
    return word - (1 << 64) if word >> 63 else word


class Service:
    """Answers clients, each on a filter of its own."""

    def __init__(self, filter_type: str, limits: Limits) -> None:
        """Serve no one yet."""
        self._filter_type = filter_type
        self._limits = limits
        self._clients: dict[asyncio.Task[None], asyncio.StreamWriter] = {}

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
            log.warning("%s: %s", name, error)
        finally:
            self._clients.pop(task, None)
            writer.close()

    async def end(self) -> None:
        """Cut all clients off."""
        for writer in self._clients.values():
            writer.transport.abort()
        await asyncio.gather(*self._clients, return_exceptions=True)

    async def _serve_admitted(
        self, name: str, reader: asyncio.StreamReader, writer: asyncio.StreamWriter
    ) -> None:
        # A machine that has vanished shall not keep its place for ever.
        connection: socket.socket = writer.get_extra_info("socket")
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_KEEPALIVE, 1)
        with Simulator(self._filter_type) as sim:
            session = Session(sim, self._limits)
            log.info("%s: connected", name)
            await exchange(session, reader, writer)
            log.info("%s: closed after %d records", name, session.num_records)


async def exchange(
    session: Session, reader: asyncio.StreamReader, writer: asyncio.StreamWriter
) -> None:
    """Feed a session from its connection until that ends.

    Raises:
        RefusalError: If a record is not served.
        OSError: If the connection breaks.
    """
    while data := await reader.read(READ_BYTES):
        try:
            session.feed(data)
        finally:
            # Together: a client that has asked several times at once counts what it finds.
            writer.write(session.take_replies())
            await writer.drain()
    session.end()


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
    address, number = server.sockets[0].getsockname()
    if not ipaddress.ip_address(address).is_loopback:
        log.warning("no authentication: whoever reaches %s:%d can use it", address, number)
    print(f"listening on {address}:{number}", flush=True)
    os.dup2(sys.stderr.fileno(), sys.stdout.fileno())  # whoever has read that may read no more
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
    add("--host", default="127.0.0.1", help="address to listen on (default: loopback)")
    add("--port", type=number_from(0, 65535), default=DEFAULT_PORT, help=f"({DEFAULT_PORT})")
    add("--max-clients", type=number_from(1), default=16, metavar="N", help="at a time (16)")
    add("--max-qubits", type=number_from(0), metavar="N", help="(what fits a gigabyte)")
    add("--max-records", type=number_from(1), default=10**8, metavar="N", help="(100 million)")
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
    limits = Limits(settings.max_clients, qubits, settings.max_records)
    service = Service(settings.filter, limits)
    try:
        asyncio.run(serve(service, settings.host, settings.port, until_eof=settings.until_eof))
    except (OSError, ValueError) as error:  # an address or an input that cannot be used
        print(f"service.py: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
