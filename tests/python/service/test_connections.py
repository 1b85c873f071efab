"""The service's connections, in this process: their number, their ends, the addresses."""

from __future__ import annotations

import asyncio
import contextlib
import signal
import socket
import subprocess
import sys
from collections.abc import AsyncIterator, Awaitable, Callable, Coroutine
from pathlib import Path
from typing import Any, TypeVar

import nimbrel as nb
import pytest
from nimbrel.service import connections, process, server
from nimbrel.service.__main__ import MAX_QUBITS
from nimbrel.service.connections import Service
from nimbrel.service.session import Limits

from models.wire import RECORD_BYTES
from support.remote import LONG, LOOPBACK

Streams = tuple[asyncio.StreamReader, asyncio.StreamWriter]
T = TypeVar("T")
Connect = Callable[[], Awaitable[Streams]]

REQUESTS = 20_000  # more than the buffers of the service and both sockets
AT_ONCE = 0.01
NEVER = 1e6


def small_socket() -> socket.socket:
    """A socket with small buffers. The sockets that it accepts have them too."""
    made = socket.socket()
    made.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 4096)
    made.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
    return made


@contextlib.asynccontextmanager
async def listening(clients: int = 2, idle_seconds: float = NEVER) -> AsyncIterator[Connect]:
    """Yields what connects a client that takes no replies by itself."""
    limits = Limits(clients, 100, 10**9, idle_seconds)
    service = Service("StreamBitQPU", limits)
    listener = small_socket()
    listener.bind((LOOPBACK, 0))
    server = await asyncio.start_server(service.serve_client, sock=listener, limit=1 << 17)

    async def connect() -> Streams:
        client = small_socket()
        client.connect(listener.getsockname())
        return await asyncio.open_connection(sock=client, limit=1)

    try:
        yield connect
    finally:
        server.close()
        await service.end()


def in_time(scene: Coroutine[Any, Any, T]) -> T:
    """The result of a coroutine, with a timeout."""
    return asyncio.run(asyncio.wait_for(scene, LONG))


def warnings_of(caplog: pytest.LogCaptureFixture) -> list[str]:
    return [entry.getMessage().split(": ", 1)[1] for entry in caplog.records]


async def ask_without_reading(writer: asyncio.StreamWriter) -> None:
    """Sends requests until the service reads no more of them, or has ended the connection."""
    writer.write(nb.fetch_request(1, 1).tobytes() * REQUESTS)
    with contextlib.suppress(OSError):
        await writer.drain()


def test_a_client_that_reads_no_replies_is_idle(
    caplog: pytest.LogCaptureFixture, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(connections, "CLOSE_SECONDS", AT_ONCE)

    async def scene() -> None:
        async with listening(idle_seconds=0.1) as connect:
            _, writer = await connect()
            await ask_without_reading(writer)
            with contextlib.suppress(OSError):
                await writer.wait_closed()  # the service has reset it

    in_time(scene())
    assert warnings_of(caplog) == ["idle for 0.1 seconds"]


def test_a_client_keeps_its_place_until_it_has_read_its_replies(
    caplog: pytest.LogCaptureFixture, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(connections, "CLOSE_SECONDS", NEVER)
    closing = asyncio.Event()
    close = connections.close_in_time

    async def close_and_tell(*arguments: Any) -> None:
        closing.set()
        await close(*arguments)

    async def scene() -> None:
        async with listening(clients=1, idle_seconds=0.1) as connect:
            reader, writer = await connect()
            asking = asyncio.ensure_future(ask_without_reading(writer))
            monkeypatch.setattr(connections, "close_in_time", close_and_tell)
            await closing.wait()
            assert await is_refused(connect)
            with contextlib.suppress(OSError):
                while await reader.read(RECORD_BYTES):
                    pass
            await asking
            while await is_refused(connect):
                await asyncio.sleep(0)

    in_time(scene())
    assert warnings_of(caplog)[:2] == ["idle for 0.1 seconds", "1 clients are served already"]


async def is_refused(connect: Connect) -> bool:
    reader, writer = await connect()
    try:
        writer.write(nb.fetch_request(1, 1).tobytes())
        return await reader.read(1) == b""
    except OSError:
        return True
    finally:
        writer.close()


@pytest.mark.parametrize("reads", [True, False])
def test_a_connection_is_closed_in_time(reads: bool) -> None:
    data = bytes(10**7)

    async def scene() -> bytes:
        ours, theirs = socket.socketpair()
        with theirs:
            reader, writer = await asyncio.open_connection(sock=ours)
            writer.write(data)
            reading = asyncio.to_thread(read_all, theirs) if reads else None
            task = asyncio.ensure_future(reading) if reading else None
            await connections.close_in_time(writer, NEVER if reads else AT_ONCE)
            assert writer.transport.get_write_buffer_size() == 0
            assert reader.at_eof() or not reads
            return await (task or asyncio.to_thread(read_all, theirs))

    assert (in_time(scene()) == data) is reads


def read_all(connection: socket.socket) -> bytes:
    return b"".join(iter(lambda: connection.recv(1 << 16), b""))


def test_a_filter_that_cannot_be_made_is_one_line(
    caplog: pytest.LogCaptureFixture, monkeypatch: pytest.MonkeyPatch
) -> None:
    def fail(*_: object) -> None:
        raise RuntimeError("no room for it\n")

    async def scene() -> None:
        async with listening() as connect:
            assert await is_refused(connect)

    monkeypatch.setattr(connections, "Simulator", fail)
    in_time(scene())
    assert warnings_of(caplog) == ["no filter for it: no room for it"]


def test_every_address_is_told_and_looked_at(
    capsys: pytest.CaptureFixture[str], caplog: pytest.LogCaptureFixture
) -> None:
    server.announce([(LOOPBACK, 1), ("192.0.2.1", 2), ("127.0.1.1", 3), ("0.0.0.0", 4)])
    assert capsys.readouterr().out.splitlines() == [
        f"listening on {LOOPBACK}:1",
        "listening on 192.0.2.1:2",
        "listening on 127.0.1.1:3",
        "listening on 0.0.0.0:4",
    ]
    assert warnings_of(caplog) == [
        "whoever reaches 192.0.2.1:2 can use it",
        "whoever reaches 0.0.0.0:4 can use it",
    ]


def test_the_service_tells_all_that_it_listens_on(monkeypatch: pytest.MonkeyPatch) -> None:
    """A host may have several addresses."""
    told: list[Any] = []
    start = asyncio.start_server

    async def start_on_two(callback: Any, host: str, port: int, **options: Any) -> Any:
        return await start(callback, [host, "127.0.0.2"], port, **options)

    def announce(addresses: Any) -> None:
        told.extend(addresses)
        signal.raise_signal(signal.SIGTERM)

    limits = Limits(1, 1, 1, 1)
    service = Service("StreamBitQPU", limits)
    with monkeypatch.context() as patch:  # pytest's capture needs the stream that is removed here
        patch.setattr(asyncio, "start_server", start_on_two)
        patch.setattr(server, "announce", announce)
        patch.setattr(server, "redirect_standard_output", lambda: None)
        in_time(server.serve(service, LOOPBACK, 0, until_eof=False))
    assert sorted(address for address, _ in told) == [LOOPBACK, "127.0.0.2"]


def test_a_bit_register_is_no_wider_than_its_memory_allows() -> None:
    assert MAX_QUBITS["StreamBitQPU"] == 2**27


def test_a_service_that_does_not_end_is_killed(
    monkeypatch: pytest.MonkeyPatch, tmp_path: Path
) -> None:
    deaf = tmp_path / "deaf.py"
    deaf.write_text(
        "import signal\n"
        "signal.alarm(20)\n"  # so that it ends in any case
        "print('listening on 127.0.0.1:1', flush=True)\n"
        "signal.pause()\n",
        encoding="utf-8",
    )
    started: list[subprocess.Popen[str]] = []
    popen = subprocess.Popen

    def start(*arguments: Any, **options: Any) -> subprocess.Popen[str]:
        started.append(popen(*arguments, **options))
        return started[0]

    monkeypatch.setattr(process, "COMMAND", (sys.executable, str(deaf)))
    monkeypatch.setattr(process, "END_SECONDS", AT_ONCE)
    monkeypatch.setattr(subprocess, "Popen", start)
    with process.running_service() as address:
        assert address == (LOOPBACK, 1)
    assert started[0].returncode == -signal.SIGKILL
