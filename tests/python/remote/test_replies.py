"""What a wait does with the received bytes: only the first record matters."""

import math
from collections.abc import Iterator
from types import ModuleType
from typing import Any

import nimbrel as nb
import pytest

from models.flags import CAPACITY
from models.opcodes import FETCH_REPLY, FETCH_REQUEST, MARKER_10000000
from models.wire import RECORD_BYTES
from support.driver import op, rec
from support.remote import ONE_POLL, POLL_SECONDS, SHORT, TIMED_OUT, Remote, open_remote, reply

MARKER = rec(MARKER_10000000, target_mask=5, cond_mask=64, cond_flag=-1, read_flag=-1).tobytes()
ONES = 2**64 - 1


@pytest.fixture
def remote(engine: ModuleType, capfd: Any) -> Iterator[Remote]:
    with open_remote(engine, capfd) as pair:
        yield pair


def polls(seconds: float) -> float:
    """The most polls that fit into the time. A pause follows each but the last."""
    return seconds / POLL_SECONDS + 1


def test_a_reply_ends_the_wait_and_sets_its_flags(remote: Remote) -> None:
    remote.join()
    assert remote.fetch_sent(reply(5, 4, 0b1010)).printed == ""
    assert remote.filter.flags(4, 6) == 0b010100


def test_the_other_words_of_a_reply_mean_nothing(remote: Remote) -> None:
    remote.join()
    others: dict[str, Any] = {
        "angle": math.nan,
        "cond_neg_mask": ONES,
        "target_offset": 3,
        "cond_offset": 9,
    }
    reserved: dict[str, Any] = {"reserved_a": ONES, "reserved_b": 7}
    assert remote.fetch_sent(reply(5, 3, 0b101, **others, **reserved)).printed == ""
    assert remote.filter.flags(4, 6) == 0b1010


def test_one_reply_completes_a_wait_for_many(remote: Remote) -> None:
    remote.join()
    wait = remote.fetch_sent(reply(2, 2, 0b11), requests=5)
    assert wait.printed == ""
    assert polls(wait.seconds) >= 5
    assert remote.filter.flags(2, 2) == 0b11


def test_every_whole_record_counts_again_at_every_poll(remote: Remote) -> None:
    remote.join()
    wait = remote.fetch_sent(reply(2, 1, 1) + MARKER * 2, requests=12)
    assert wait.printed == ""
    assert polls(wait.seconds) >= 12 / 3


def test_a_part_of_a_record_behind_the_first_counts_nothing(remote: Remote) -> None:
    remote.join()
    wait = remote.fetch_sent(reply(2, 1, 1) + MARKER[:-1], requests=4)
    assert wait.printed == ""
    assert polls(wait.seconds) >= 4


def test_records_behind_a_reply_count_in_one_walk_and_do_nothing(remote: Remote) -> None:
    records = 300
    remote.join(ONE_POLL)  # so one walk must count them all
    behind = [reply(2 + i % 64, 64, ONES) if i % 3 else MARKER for i in range(records - 1)]
    wait = remote.fetch_sent(b"".join([reply(2, 2, 0b10), *behind]), requests=records)
    assert wait.printed == ""
    assert remote.filter.flags(2, 32) == 0b10


@pytest.mark.parametrize(
    "head",
    [
        pytest.param(MARKER, id="marker"),
        pytest.param(rec(FETCH_REQUEST).tobytes(), id="request"),
        pytest.param(nb.record(op(FETCH_REPLY) ^ 1 << 63).tobytes(), id="foreign-tag"),
        pytest.param(nb.record(FETCH_REPLY).tobytes(), id="no-tag"),
        pytest.param(nb.record(op(FETCH_REPLY) | 0x8000).tobytes(), id="another-number"),
        pytest.param(op(FETCH_REPLY).to_bytes(8, "big") + bytes(80), id="big-endian"),
        pytest.param(bytes(RECORD_BYTES), id="zeros"),
        pytest.param(b"\xff" * RECORD_BYTES, id="ones"),
        pytest.param(b'{"connected":true}' * 5, id="text"),
    ],
)
def test_a_reply_behind_another_record_is_never_applied(remote: Remote, head: bytes) -> None:
    remote.join(SHORT)
    wait = remote.fetch_sent(head + reply(2, 8, 0xFF) * 3)
    assert wait.printed == TIMED_OUT
    assert wait.seconds >= SHORT
    assert remote.filter.flags(2, 8) == 0


def test_a_count_of_zero_counts_and_stores_nothing(remote: Remote) -> None:
    remote.join()
    assert remote.fetch_sent(reply(-5, 0, ONES)).printed == ""
    assert remote.filter.flag(-5) == 0, "the table has not grown, or this would read inverted"


@pytest.mark.parametrize("count", [64, 65, 127, 2**32, 2**63, 2**64 - 1])
def test_a_count_stores_no_more_than_the_word_holds(remote: Remote, count: int) -> None:
    remote.join()
    value = 0x8000_0001_C000_0003
    assert remote.fetch_sent(reply(64, count, value)).printed == ""
    assert remote.filter.flags(64, 32) | remote.filter.flags(96, 32) << 32 == value
    # Flags after the word: nothing is stored for them.
    assert remote.filter.flag(-128) == 0
    assert remote.filter.flags(128, 32) == 0


def test_a_count_above_the_word_is_no_second_round(remote: Remote) -> None:
    remote.join()
    assert remote.fetch_sent(reply(2, 64, ONES)).printed == ""
    assert remote.fetch_sent(reply(2, 2**64 - 1, 0, valid=1)).printed == ""
    assert remote.filter.flags(2, 32) == ONES - 1 & 0xFFFFFFFF
    assert remote.filter.flags(34, 32) == 0xFFFFFFFF
    assert remote.filter.flags(66, 32) == 0


@pytest.mark.parametrize("count", [1, 31, 32, 33, 63])
def test_bits_above_the_count_are_left_out(remote: Remote, count: int) -> None:
    remote.join()
    assert remote.fetch_sent(reply(100, count, ONES)).printed == ""
    stored = remote.filter.flags(100, 32) | remote.filter.flags(132, 32) << 32
    assert stored == (1 << count) - 1


def test_bits_that_are_not_valid_keep_their_flags(remote: Remote) -> None:
    remote.join()
    assert remote.fetch_sent(reply(2, 8, 0b0011_0011)).printed == ""
    assert remote.fetch_sent(reply(2, 8, 0b0101_0101, valid=0b0000_1111)).printed == ""
    assert remote.filter.flags(2, 8) == 0b0011_0101
    assert remote.fetch_sent(reply(2, 8, ONES, valid=0)).printed == ""
    assert remote.filter.flags(2, 8) == 0b0011_0101


def test_the_highest_bit_of_the_masks_is_a_bit_like_any(remote: Remote) -> None:
    remote.join()
    assert remote.fetch_sent(reply(2, 64, ONES, valid=1 << 63)).printed == ""
    assert remote.filter.flags(2, 32) == 0
    assert remote.filter.flags(34, 32) == 1 << 31


def test_negative_flags_store_the_inverse(remote: Remote) -> None:
    remote.join()
    assert remote.fetch_sent(reply(-10, 4, 0b0110)).printed == ""
    assert remote.filter.flags(-10, 4) == 0b0110
    assert [remote.filter.flag(number) for number in (10, 9, 8, 7)] == [1, 0, 0, 1]


@pytest.mark.parametrize("constant", [-1, 0, 1])
def test_the_constant_flags_store_nothing(remote: Remote, constant: int) -> None:
    remote.join()
    for value in (0, 1):
        assert remote.fetch_sent(reply(constant, 1, value)).printed == ""
    assert [remote.filter.flag(number) for number in (-1, 0, 1)] == [0, 0, 1]
    assert remote.filter.flag(-2) == 0, "the table has not grown, or this would read inverted"


def test_a_run_across_zero_changes_its_sense(remote: Remote) -> None:
    remote.join()
    assert remote.fetch_sent(reply(-4, 7, ONES)).printed == ""  # flags -4 to 2
    assert [remote.filter.flag(number) for number in (4, 3, 2)] == [0, 0, 1]
    assert [remote.filter.flag(number) for number in (-1, 0, 1)] == [0, 0, 1]


@pytest.mark.parametrize(
    ("first", "stored_at"),
    [
        pytest.param(CAPACITY + 7, (7, 8), id="beyond-the-capacity"),
        pytest.param(2**63 - 2, (2**63 - 2, 2**63 - 1), id="largest"),
        pytest.param(CAPACITY - 1, (CAPACITY - 1, 0), id="last-and-first"),
    ],
)
def test_flag_numbers_wrap_at_the_capacity(
    remote: Remote, first: int, stored_at: tuple[int, int]
) -> None:
    remote.join()
    assert remote.fetch_sent(reply(first, 2, 0b11)).printed == ""
    for number in stored_at:
        assert remote.filter.flag(number % CAPACITY + CAPACITY) == 1


def test_a_run_past_the_largest_number_goes_on_at_the_lowest(remote: Remote) -> None:
    remote.join()
    assert remote.fetch_sent(reply(2**63 - 1, 2, 0b11)).printed == ""
    assert remote.filter.flag((2**63 - 1) % CAPACITY) == 1
    assert remote.filter.flag(2**63 % CAPACITY) == 0, "stored through a negative number"
    assert remote.filter.flag(-(2**63 % CAPACITY)) == 1


def test_the_head_is_kept_for_one_wait_only(remote: Remote) -> None:
    remote.join(SHORT)
    assert remote.fetch_sent(reply(2, 1, 1) * 10).printed == ""
    assert remote.fetch().printed == TIMED_OUT, (
        "neither bytes nor counts of the first wait are left"
    )
    assert remote.fetch_sent(reply(3, 1, 1)).printed == ""
    assert remote.filter.flags(2, 2) == 0b11


def test_a_timeout_keeps_the_flags(remote: Remote) -> None:
    remote.join(SHORT)
    assert remote.fetch_sent(reply(2, 4, 0b1001)).printed == ""
    assert remote.fetch_sent(MARKER + reply(2, 4, 0b0110)).printed == TIMED_OUT
    assert remote.filter.flags(2, 4) == 0b1001


def test_too_few_replies_time_out_although_their_flags_are_set(remote: Remote) -> None:
    remote.join(ONE_POLL)
    assert remote.fetch_sent(reply(2, 4, 0b1001), requests=2).printed == TIMED_OUT
    assert remote.filter.flags(2, 4) == 0b1001
