"""The bytes sent: all records unchanged, and nothing else."""

import math
import random
from collections.abc import Iterator
from types import ModuleType
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from models.opcodes import (
    CALLBACK,
    FETCH_REPLY,
    FETCH_REQUEST,
    FLAG_NAND,
    JUMP_BACK,
    JUMP_FWD,
    LABEL,
    PHASE,
    RESET,
    WRITE,
    X,
)
from models.wire import RECORD_BYTES
from support.driver import op, rec
from support.remote import LONG, SHORT, TIMED_OUT, Remote, open_remote, reply

ONES = 2**64 - 1
# Records that a simulating filter would refuse or would use to end a jump.
REFUSED_ELSEWHERE = [
    rec(0x07),
    rec(CALLBACK, read_flag=5),
    rec(JUMP_BACK),
    rec(LABEL, cond_mask=1),
    rec(JUMP_FWD, target_mask=9),
    rec(RESET, target_mask=ONES),
    nb.record(0),
    nb.record(ONES),
    nb.record(op(X) ^ 1 << 63),
]


@pytest.fixture
def remote(engine: ModuleType, capfd: Any) -> Iterator[Remote]:
    with open_remote(engine, capfd) as pair:
        yield pair


def filled(opcode: int, rng: random.Random) -> np.ndarray:
    """A record of this opcode with arbitrary other words."""
    return np.frombuffer(opcode.to_bytes(8, "little") + rng.randbytes(80), dtype=nb.QPU_OP)


def sent_by(remote: Remote, *records: np.ndarray) -> bytes:
    """The bytes that the service receives. The call must print nothing."""
    assert remote.run(*records).printed == ""
    received: bytes = remote.peer.ask("receive", sum(map(len, records)) * RECORD_BYTES)
    return received


def test_records_of_all_opcodes_go_as_they_stand(remote: Remote, rng: random.Random) -> None:
    remote.join()
    remote.peer.ask("send", reply(2, 1, 1))  # one of them is a request
    records = nb.program(*[filled(opcode, rng) for opcode in nb.Opcode])
    assert sent_by(remote, records) == records.tobytes()


def test_the_words_in_their_order_are_little_endian(remote: Remote) -> None:
    remote.join()
    record = nb.record(
        0x0807060504030201,
        target_mask=1,
        cond_mask=2,
        angle=-2.0,
        cond_flag=-2,
        read_flag=3,
        cond_neg_mask=4,
        target_offset=5,
        cond_offset=6,
        reserved_a=7,
        reserved_b=1 << 63,
    )
    first, minus_two = bytes(range(1, 9)), b"\xfe" + b"\xff" * 7
    numbers = [bytes([number]) + bytes(7) for number in range(1, 8)]
    angle, last = bytes(7) + b"\xc0", bytes(7) + b"\x80"
    words = [first, *numbers[:2], angle, minus_two, *numbers[2:], last]
    assert sent_by(remote, record) == b"".join(words)


def test_records_that_others_refuse_are_sent(remote: Remote) -> None:
    remote.join()
    program = nb.program(*REFUSED_ELSEWHERE)
    assert sent_by(remote, program) == program.tobytes()


def test_calls_follow_each_other_without_anything_between(
    remote: Remote, rng: random.Random
) -> None:
    remote.join()
    calls = [nb.program(*[filled(rng.getrandbits(64), rng)] * size) for size in (1, 3, 0, 40)]
    for call in calls:
        assert remote.run(call).printed == ""
    expected = b"".join(call.tobytes() for call in calls)
    assert remote.peer.ask("receive", len(expected)) == expected
    remote.filter.disconnect()
    assert remote.peer.ask("receive_rest") == b""


def test_the_callers_records_are_left_as_they_are(remote: Remote, rng: random.Random) -> None:
    remote.join()
    records = filled(op(X), rng)
    records.flags.writeable = False
    before = records.tobytes()
    assert sent_by(remote, records) == records.tobytes() == before


@pytest.mark.parametrize("angle", [math.nan, -math.nan, math.inf, -0.0, 5e-324])
def test_an_angle_goes_as_its_bits(remote: Remote, angle: float) -> None:
    remote.join()
    record = rec(PHASE, angle=angle)
    assert sent_by(remote, record) == record.tobytes()


def test_nothing_is_carried_out_here(remote: Remote) -> None:
    """A write and a flag operation set flags on every simulating filter."""
    remote.join()
    simulated = (rec(WRITE, target_mask=1, cond_mask=1, read_flag=2), rec(FLAG_NAND, read_flag=3))
    sent_by(remote, rec(RESET, target_mask=4), *simulated)
    assert remote.filter.flags(2, 32) == 0


@pytest.mark.parametrize(
    "records",
    [
        pytest.param(rec(X), id="gate"),
        pytest.param(nb.program(), id="nothing"),
        pytest.param(nb.record(op(FETCH_REQUEST) ^ 1 << 32), id="request-with-a-foreign-tag"),
        pytest.param(nb.record(FETCH_REQUEST), id="request-without-a-tag"),
        pytest.param(nb.record(op(FETCH_REPLY)), id="reply"),
        pytest.param(rec(X, target_mask=op(FETCH_REQUEST)), id="request-in-another-word"),
    ],
)
def test_an_array_without_requests_reads_nothing(remote: Remote, records: np.ndarray) -> None:
    remote.join(LONG)
    remote.peer.ask("send", reply(2, 8, 0xFF))
    assert sent_by(remote, records) == records.tobytes()
    assert remote.bytes_read() == 0
    assert remote.filter.flags(2, 8) == 0


@pytest.mark.parametrize("place", [0, 3, 6])
def test_a_request_anywhere_in_the_array_is_waited_for(remote: Remote, place: int) -> None:
    remote.join(SHORT)
    records = [rec(X)] * 6
    records.insert(place, rec(FETCH_REQUEST))
    assert remote.run(*records).printed == TIMED_OUT
    assert remote.peer.ask("receive", 7 * RECORD_BYTES) == nb.program(*records).tobytes()


def test_a_request_behind_a_jump_is_waited_for(remote: Remote) -> None:
    remote.join(SHORT)
    jump, label = rec(JUMP_FWD, target_mask=9), rec(LABEL, target_mask=9)
    assert remote.run(jump, rec(FETCH_REQUEST), label).printed == TIMED_OUT


def test_the_service_has_the_array_before_it_answers(remote: Remote) -> None:
    """The peer answers the last byte of an array that is longer than one segment."""
    remote.join()
    others = 3000
    size = (others + 1) * RECORD_BYTES
    remote.peer.start("play", size, [reply(2, 4, 0b0110)], "")
    program = nb.program(*[rec(X)] * others, rec(FETCH_REQUEST))
    assert remote.run(program).printed == ""
    assert remote.filter.flags(2, 4) == 0b0110
    assert len(remote.peer.ask("report")) == 1


def test_what_the_sockets_do_not_take_is_lost_without_a_word(
    engine: ModuleType, capfd: Any
) -> None:
    records = np.zeros(1 << 18, dtype=nb.QPU_OP)
    records["opcode"] = op(X)
    records["target_mask"] = np.arange(len(records))
    with open_remote(engine, capfd, receive_buffer=4096) as remote:
        remote.join()
        assert remote.run(records).printed == ""
        remote.filter.disconnect()
        received = remote.peer.ask("receive_rest")
    assert 0 < len(received) < records.nbytes
    assert records.tobytes().startswith(received)
