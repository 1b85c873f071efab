"""How long a wait takes: its timeout, what restarts it, and records that arrive in parts."""

import math
from collections.abc import Iterator
from types import ModuleType
from typing import Any

import pytest

from models.opcodes import FETCH_REQUEST, MARKER_10000000, X
from models.remote import ClientModel
from models.wire import RECORD_BYTES
from support.driver import rec
from support.remote import POLL_SECONDS, SHORT, TIMED_OUT, Remote, open_remote, reply

MARKER = rec(MARKER_10000000).tobytes()
REPLY = reply(2, 4, 0b1101)


@pytest.fixture
def remote(engine: ModuleType, capfd: Any) -> Iterator[Remote]:
    with open_remote(engine, capfd) as pair:
        yield pair


def single_bytes(data: bytes) -> list[bytes]:
    return [data[i : i + 1] for i in range(len(data))]


@pytest.mark.parametrize("timeout", [0.0, -0.0, -1e-9, -5.0, -math.inf, math.nan])
def test_a_timeout_that_has_passed_before_it_begins(remote: Remote, timeout: float) -> None:
    remote.join(timeout)
    wait = remote.fetch_sent(REPLY)
    assert wait.printed == TIMED_OUT
    assert remote.bytes_read() == 0
    assert remote.filter.flags(2, 4) == 0
    assert remote.peer.ask("receive", RECORD_BYTES) == rec(FETCH_REQUEST).tobytes()


@pytest.mark.parametrize("timeout", [math.inf, 1e300])
def test_a_timeout_without_end(remote: Remote, timeout: float) -> None:
    remote.join(timeout)
    assert remote.fetch_sent(REPLY).printed == ""
    assert remote.filter.flags(2, 4) == 0b1101


@pytest.mark.parametrize("timeout", [0.03, 0.2])
def test_a_service_that_never_answers(remote: Remote, timeout: float) -> None:
    remote.join(timeout)
    for _ in range(2):
        wait = remote.fetch()
        assert wait.printed == TIMED_OUT
        assert wait.seconds >= timeout


def test_data_restarts_the_timeout(remote: Remote) -> None:
    """A byte at a time behind a whole record keeps the wait going for longer than the timeout."""
    remote.join(SHORT)
    chunks = [MARKER, *single_bytes(REPLY)[:40]]
    wait, sent_at = remote.fetch_from(chunks)
    assert wait.printed == TIMED_OUT
    newest = sent_at[: 1 + max(0, remote.bytes_read() - RECORD_BYTES)]
    assert wait.ended_at - newest[-1] >= SHORT


@pytest.mark.parametrize(
    "head",
    [
        pytest.param(REPLY, id="reply"),
        pytest.param(MARKER, id="marker"),
        pytest.param(MARKER + REPLY, id="marker-before-a-reply"),
        pytest.param(REPLY[:-1], id="part-of-a-reply"),
    ],
)
def test_only_a_reply_at_the_head_keeps_a_silent_wait_going(remote: Remote, head: bytes) -> None:
    """One reply completes a hundred requests in a hundred polls, twice as long as the timeout."""
    requests, timeout = 100, 0.5
    polls = [head, *[b""] * requests]
    model = ClientModel()
    completes = model.wait(polls, requests, timeout / POLL_SECONDS) is not None
    remote.join(timeout)
    wait = remote.fetch_sent(head, requests)
    assert wait.printed == ("" if completes else TIMED_OUT)
    assert wait.seconds >= timeout
    assert [remote.filter.flag(i) for i in range(2, 6)] == [model.flags.get(i) for i in range(2, 6)]


def test_bytes_of_an_unfinished_first_record_restart_nothing(remote: Remote) -> None:
    parts = 60
    assert parts * POLL_SECONDS > SHORT  # one poll reads one of them at most
    remote.join(SHORT)
    wait, sent_at = remote.fetch_from([*single_bytes(REPLY)[:parts], REPLY[parts:]])
    assert wait.printed == TIMED_OUT
    assert len(sent_at) <= parts
    assert remote.filter.flags(2, 4) == 0


def test_a_reply_in_single_bytes(remote: Remote) -> None:
    remote.join()
    wait, sent_at = remote.fetch_from(single_bytes(REPLY))
    assert wait.printed == ""
    assert len(sent_at) == RECORD_BYTES
    assert wait.seconds >= (RECORD_BYTES - 1) * POLL_SECONDS
    assert remote.filter.flags(2, 4) == 0b1101


@pytest.mark.parametrize("sizes", [(1, 87), (8, 80), (44, 44), (87, 1), (30, 30, 28), (7, 80, 1)])
def test_a_reply_in_parts(remote: Remote, sizes: tuple[int, ...]) -> None:
    remote.join()
    starts = [sum(sizes[:i]) for i in range(len(sizes))]
    chunks = [REPLY[start : start + size] for start, size in zip(starts, sizes, strict=True)]
    wait, sent_at = remote.fetch_from(chunks)
    assert wait.printed == ""
    assert len(sent_at) == len(sizes)
    assert wait.seconds >= (len(sizes) - 1) * POLL_SECONDS
    assert remote.filter.flags(2, 4) == 0b1101


@pytest.mark.parametrize("size", [1, 8, 40, 87])
def test_a_part_of_a_reply_is_none(remote: Remote, size: int) -> None:
    remote.join(SHORT)
    assert remote.fetch_sent(REPLY[:size]).printed == TIMED_OUT
    assert remote.bytes_read() == size
    # The next wait starts with the rest, so later bytes are not at a record boundary.
    assert remote.fetch_sent(REPLY[size:] + REPLY).printed == TIMED_OUT
    assert remote.filter.flags(2, 4) == 0


def test_bytes_that_nobody_waited_for_are_the_next_waits_first(remote: Remote) -> None:
    remote.join()
    remote.peer.ask("send", REPLY)
    assert remote.run(rec(X)).printed == ""
    assert remote.bytes_read() == 0
    assert remote.fetch_sent(reply(2, 4, 0b0010)).printed == ""
    assert remote.filter.flags(2, 4) == 0b1101


@pytest.mark.parametrize("size", [4095, 4096, 4097, 8192, 3 * 4096 + 88])
def test_one_poll_reads_all_that_has_come(remote: Remote, size: int) -> None:
    remote.join()
    stream = (REPLY + bytes(size))[:size]
    assert remote.fetch_sent(stream).printed == ""
    assert remote.bytes_read() == size
    assert remote.filter.flags(2, 4) == 0b1101


def test_the_count_grows_with_the_stream(remote: Remote) -> None:
    """After the polls of 1, 2 and 3 records the count is 6 at least, so the fourth is not read."""
    remote.join()
    wait, sent_at = remote.fetch_from([REPLY, MARKER, MARKER, MARKER], requests=6)
    assert wait.printed == ""
    assert len(sent_at) <= 4
    assert remote.bytes_read() <= 3 * RECORD_BYTES


def test_no_reply_is_applied_that_comes_behind_a_timeout(remote: Remote) -> None:
    remote.join(SHORT)
    assert remote.fetch().printed == TIMED_OUT
    remote.peer.ask("send", REPLY)
    assert remote.filter.flags(2, 4) == 0
    assert remote.fetch().printed == "", "the next wait takes it for its own"
    assert remote.filter.flags(2, 4) == 0b1101
