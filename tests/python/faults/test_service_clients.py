"""A service under 200 clients at once, of which some are slow and some are broken."""

from __future__ import annotations

import asyncio
import random
from collections.abc import Awaitable, Callable

import nimbrel as nb
import numpy as np
import pytest

from models.wire import RECORD_BYTES
from support.remote import LONG, LOOPBACK
from support.service import service_of

CLIENTS = 200
QUBITS = 60
FEW_RECORDS = 300
WIDEST = 1000

Streams = tuple[asyncio.StreamReader, asyncio.StreamWriter]
Client = Callable[[int, random.Random], Awaitable[str]]


def program_of(value: int) -> bytes:
    """Sets the qubits to a value, reads them, and asks for the flags."""
    flips = [nb.x(qubit) for qubit in range(QUBITS) if value >> qubit & 1]
    asked = nb.fetch_request(2, QUBITS)
    return nb.program(nb.reset(QUBITS), *flips, nb.read(range(QUBITS), 2), asked).tobytes()


async def value_in_reply(reader: asyncio.StreamReader) -> int:
    reply = np.frombuffer(await reader.readexactly(RECORD_BYTES), dtype=nb.QPU_OP)[0]
    return int(reply["read_flag"]) & int(reply["cond_flag"])


async def opened(port: int) -> Streams:
    return await asyncio.open_connection(LOOPBACK, port)


async def quick(port: int, rng: random.Random) -> str:
    """Sends whole programs and compares every reply."""
    reader, writer = await opened(port)
    for _ in range(3):
        value = rng.randrange(1 << QUBITS)
        writer.write(program_of(value))
        if await value_in_reply(reader) != value:
            return "a wrong reply"
    writer.close()
    return "served"


async def slow(port: int, rng: random.Random) -> str:
    """Sends one byte at a time, and lets all others go on after each."""
    reader, writer = await opened(port)
    value = rng.randrange(1 << 5)
    for byte in program_of(value):
        writer.write(bytes([byte]))
        await writer.drain()
        await asyncio.sleep(0)
    result = "served" if await value_in_reply(reader) == value else "a wrong reply"
    writer.close()
    return result


async def is_cut_off(port: int, data: bytes) -> str:
    """Sends what the service refuses and waits for the end of the connection."""
    reader, writer = await opened(port)
    writer.write(data)
    try:
        rest = await reader.read()
    except ConnectionResetError:
        rest = b""
    writer.close()
    return "served" if rest else "cut off"


async def half_a_record(port: int, rng: random.Random) -> str:
    """Closes in the middle of a record."""
    _, writer = await opened(port)
    writer.write(program_of(1)[: rng.randrange(1, RECORD_BYTES)])
    writer.close()
    await writer.wait_closed()
    return "gone"


async def gone_with_replies_unread(port: int, rng: random.Random) -> str:
    """Asks for many replies and ends the connection without reading them."""
    _, writer = await opened(port)
    writer.write(nb.fetch_request(2, 1).tobytes() * rng.randrange(1, FEW_RECORDS))
    await writer.drain()
    writer.transport.abort()
    return "gone"


async def garbage(port: int, rng: random.Random) -> str:
    return await is_cut_off(port, rng.randbytes(10 * RECORD_BYTES))


async def huge_register(port: int, rng: random.Random) -> str:
    return await is_cut_off(port, nb.reset(rng.randrange(WIDEST + 1, 2**63)).tobytes())


async def huge_count_of_flags(port: int, rng: random.Random) -> str:
    """A count above 64 counts as 64, and so one reply comes."""
    reader, writer = await opened(port)
    request = nb.fetch_request(2, 1)
    request["cond_mask"] = rng.randrange(65, 2**64)
    writer.write(nb.program(nb.reset(1), request).tobytes())
    reply = np.frombuffer(await reader.readexactly(RECORD_BYTES), dtype=nb.QPU_OP)[0]
    writer.close()
    return "served" if int(reply["cond_mask"]) == 64 else "a wrong reply"


async def too_many_records(port: int, rng: random.Random) -> str:
    return await is_cut_off(port, nb.x(0).tobytes() * (FEW_RECORDS + rng.randrange(1, 50)))


KINDS: dict[Client, str] = {
    quick: "served",
    slow: "served",
    half_a_record: "gone",
    gone_with_replies_unread: "gone",
    garbage: "cut off",
    huge_register: "cut off",
    huge_count_of_flags: "served",
    too_many_records: "cut off",
}
LIMITS = ("--max-qubits", str(WIDEST), "--max-records", str(FEW_RECORDS), "--filter")


def drawn_clients(rng: random.Random) -> list[Client]:
    """Half of them quick, the others of all kinds."""
    others = [kind for kind in KINDS if kind is not quick]
    clients = [quick] * (CLIENTS // 2) + rng.choices(others, k=CLIENTS - CLIENTS // 2)
    rng.shuffle(clients)
    return clients


async def results_of(clients: list[Client], port: int, rng: random.Random) -> list[str]:
    work = asyncio.gather(*(client(port, random.Random(rng.random())) for client in clients))
    return list(await asyncio.wait_for(work, LONG))


def test_each_client_of_many_gets_what_is_told(rng: random.Random) -> None:
    clients = drawn_clients(rng)
    with service_of(*LIMITS, "StreamBitQPU", "--max-clients", str(CLIENTS)) as service:
        for _ in range(2):  # the places of the first crowd are free for the second
            results = asyncio.run(results_of(clients, service.port, rng))
            wrong = [
                (client.__name__, result)
                for client, result in zip(clients, results, strict=True)
                if result != KINDS[client]
            ]
            assert wrong == []


def test_one_client_more_is_refused_and_the_others_are_served() -> None:
    async def scene(port: int) -> list[str]:
        crowd = [await opened(port) for _ in range(CLIENTS)]
        for _, writer in crowd:
            writer.write(program_of(5))
        served = [await value_in_reply(reader) for reader, _ in crowd]
        assert served == [5] * CLIENTS
        refused = await is_cut_off(port, program_of(5))
        for _, writer in crowd:
            writer.write(nb.fetch_request(2, QUBITS).tobytes())
        assert [await value_in_reply(reader) for reader, _ in crowd] == served
        for _, writer in crowd:
            writer.close()
        return [refused]

    with service_of("--filter", "StreamBitQPU", "--max-clients", str(CLIENTS)) as service:
        assert asyncio.run(asyncio.wait_for(scene(service.port), LONG)) == ["cut off"]


@pytest.mark.parametrize("filter_type", ["StreamQPU", "StreamCliffordQPU"])
def test_other_filters_serve_a_crowd_too(filter_type: str) -> None:
    async def one(port: int, value: int) -> int:
        reader, writer = await opened(port)
        flips = [nb.x(qubit) for qubit in range(4) if value >> qubit & 1]
        writer.write(
            nb.program(nb.reset(4), *flips, nb.read(range(4), 2), nb.fetch_request(2, 4)).tobytes()
        )
        got = await value_in_reply(reader)
        writer.close()
        return got

    async def scene(port: int) -> list[int]:
        return list(await asyncio.gather(*(one(port, value % 16) for value in range(CLIENTS))))

    with service_of("--filter", filter_type, "--max-clients", str(CLIENTS)) as service:
        assert asyncio.run(scene(service.port)) == [value % 16 for value in range(CLIENTS)]
