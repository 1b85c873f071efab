"""Random streams from the service in random chunks, beside the model of the client."""

import math
import random
from collections.abc import Iterator
from itertools import accumulate, pairwise
from types import ModuleType
from typing import Any

import pytest

from models.flags import CAPACITY
from models.opcodes import FETCH_REPLY
from models.remote import ClientModel
from models.wire import RECORD_BYTES
from programs.drawn import DrawnRandom, check_programs, steps
from support.driver import rec
from support.remote import LONG, ONE_POLL, POLL_SECONDS, TIMED_OUT, Remote, open_remote, reply

SHORT = 0.05  # seconds
READ_SIZE = 4096  # a piece of this size may need one poll or two
FIRST_FLAGS = [
    2, 3, 60, 64, 100, -2, -3, -64, -70, -1, 0, 1, CAPACITY, -CAPACITY, CAPACITY + 5, 99_999_990,
    2**63 - 1, 2**63 - 20, -(2**63), -(2**63) + 3,
]  # fmt: skip
COUNTS = [0, 1, 2, 3, 31, 32, 33, 63, 64, 65, 200, 2**32 + 1, 2**63, 2**64 - 1]


def random_reply(rng: random.Random) -> bytes:
    valid = rng.choice((2**64 - 1, rng.getrandbits(64), 0, 1 << 63))
    first = rng.choice((*FIRST_FLAGS, rng.randint(-200, 200)))
    return reply(first, rng.choice(COUNTS), rng.getrandbits(64), valid)


def random_piece(rng: random.Random) -> bytes:
    """A piece of a stream: mostly a reply, else another record or random bytes."""
    kind = rng.random()
    if kind < 0.6:
        return random_reply(rng)
    if kind < 0.7:
        return rec(rng.choice((0x10000011, 0x05, 0x10000000)), cond_mask=64).tobytes()
    if kind < 0.8:
        return FETCH_REPLY.to_bytes(8, "little") + rng.randbytes(RECORD_BYTES - 8)
    if kind < 0.9:
        changed = bytearray(random_reply(rng))
        changed[rng.randrange(8)] ^= 1 << rng.randrange(8)
        return bytes(changed)
    return rng.randbytes(rng.choice((1, 7, 87, 88, 500)))


def random_stream(rng: random.Random, pieces: int) -> bytes:
    stream = b"".join(random_piece(rng) for _ in steps(rng, pieces)) or random_piece(rng)
    if rng.random() < 0.5:
        stream = random_reply(rng) + stream
    return stream[: rng.choice((rng.randint(1, 100), len(stream), len(stream)))]


def random_chunks(rng: random.Random, stream: bytes, cuts: int) -> list[bytes]:
    """The stream in chunks. No chunk's size is a multiple of the read size."""
    edges = [0, *sorted(rng.randrange(len(stream) + 1) for _ in range(cuts)), len(stream)]
    chunks = [stream[begin:end] for begin, end in pairwise(edges)]
    return [chunk if len(chunk) % READ_SIZE else chunk + b"\0" for chunk in chunks if chunk]


def touched_flags(stream: bytes) -> list[int]:
    """The flags that a reply at the head may have stored, and some next to them."""
    first = int.from_bytes(stream[8:16].ljust(8, b"\0"), "little", signed=True)
    near = [abs(first + i) % CAPACITY for i in range(-1, 66)]
    return [flag for flag in (*near, 2, 63, 64, 65) if flag >= 2]


def assert_same_flags(remote: Remote, model: ClientModel, flags: list[int]) -> None:
    # A negative number shows whether a flag with the value 0 is stored.
    numbers = [sign * flag for flag in flags for sign in (1, -1)]
    got = [remote.filter.flag(number) for number in numbers]
    expected = [model.flags.get(number) for number in numbers]
    differ = [case for case in zip(numbers, got, expected, strict=True) if case[1] != case[2]]
    assert not differ, "number, got, expected"


def check_wait(
    remote: Remote, model: ClientModel, chunks: list[bytes], requests: int, completes: bool
) -> None:
    """Sends the chunks to a wait and compares the result with the model."""
    already_read = remote.bytes_read()
    wait, _ = remote.fetch_from(chunks, requests)
    size = remote.bytes_read() - already_read
    sizes = [0, *accumulate(map(len, chunks))]
    read = chunks[: sizes.index(size)]
    # The model has no empty polls. Each would count again and end the wait earlier.
    most_polls = model.wait(read, requests)
    assert wait.printed == ("" if completes else TIMED_OUT)
    if completes:
        assert size >= RECORD_BYTES
        assert most_polls is None or most_polls == len(read), "went on when it had enough"
        polls = math.ceil(requests / (size // RECORD_BYTES))
        assert wait.seconds >= (polls - 1) * POLL_SECONDS
    else:
        assert wait.seconds >= SHORT


@pytest.fixture
def remote(engine: ModuleType, capfd: Any) -> Iterator[Remote]:
    with open_remote(engine, capfd) as pair:
        yield pair


def compare_chunks(remote: Remote, chunks: list[bytes], requests: int, model: ClientModel) -> None:
    """Sends the chunks over a new connection."""
    stream = b"".join(chunks)
    # With enough empty polls, a wait completes exactly if the head is a reply.
    completes = ClientModel().wait([stream, *[b""] * requests], requests) is not None
    remote.join(LONG if completes else SHORT)
    check_wait(remote, model, chunks, requests, completes)
    assert_same_flags(remote, model, touched_flags(stream))


def test_streams_in_chunks(remote: Remote) -> None:
    def compare(rng: DrawnRandom) -> None:
        remote.renew_filter()
        model = ClientModel()
        for _ in rng.steps(3):
            chunks = random_chunks(rng, random_stream(rng, 5), rng.randint(0, 12))
            compare_chunks(remote, chunks, rng.choice((1, 2, 3, 5, 20)), model)

    check_programs(compare, 60)


@pytest.mark.parametrize("cuts", [0, 1, 3, 8, 30])
def test_long_streams_in_chunks(remote: Remote, rng: random.Random, cuts: int) -> None:
    model = ClientModel()
    for pieces in (30, 120):
        chunks = random_chunks(rng, random_stream(rng, pieces), cuts)
        compare_chunks(remote, chunks, rng.choice((1, 2, 3, 5, 20)), model)


def compare_one_poll(remote: Remote, stream: bytes, model: ClientModel) -> None:
    """Sends the stream before the wait. The wait times out before its second poll."""
    requests = len(stream) // RECORD_BYTES or 1
    completes = model.wait([stream], requests) is not None
    remote.join(ONE_POLL)
    remote.peer.ask("send", stream)
    assert remote.fetch(requests).printed == ("" if completes else TIMED_OUT)
    assert remote.bytes_read() == len(stream)
    assert_same_flags(remote, model, touched_flags(stream))


def test_streams_that_are_there_before_the_wait(remote: Remote) -> None:
    def compare(rng: DrawnRandom) -> None:
        remote.renew_filter()
        model = ClientModel()
        for _ in rng.steps(3):
            compare_one_poll(remote, random_stream(rng, 3), model)

    check_programs(compare, 30)


def test_long_streams_that_are_there_before_the_wait(remote: Remote, rng: random.Random) -> None:
    model = ClientModel()
    for _ in range(8):
        compare_one_poll(remote, random_stream(rng, 120), model)


def test_waits_one_after_the_other(remote: Remote) -> None:
    """Each wait starts where the last one stopped reading, possibly inside a record."""

    def compare(rng: DrawnRandom) -> None:
        remote.renew_filter()
        model = ClientModel()
        remote.join(LONG)
        for _ in rng.steps(5):
            stream = random_reply(rng) + b"".join(
                random_piece(rng) for _ in range(rng.choice((0, 2)))
            )
            check_wait(remote, model, [stream], rng.choice((1, 2, 3, 5)), completes=True)
            assert_same_flags(remote, model, touched_flags(stream))

    check_programs(compare, 20)
