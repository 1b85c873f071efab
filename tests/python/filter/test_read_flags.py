"""Read flags: what a read stores where, how flags are fetched, and the NAND of two of them."""

from types import ModuleType

import nimbrel as nb
import pytest
from hypothesis import given
from hypothesis import strategies as st

from models.flags import FlagTable
from models.opcodes import FLAG_NAND, READ
from support.driver import BitFilter, open_bit_filter, raises_engine_error, rec

WORD = 2**64 - 1


@pytest.fixture
def eight(bits: BitFilter) -> BitFilter:
    """Eight qubits, of which 0, 3, 4 and 6 are 1."""
    bits.run(nb.reset(8), nb.x((0, 3, 4, 6)))
    return bits


def nand(a: int, b: int, cond: int, dest: int) -> nb.RecordArray:
    """A flag_nand record from four signed flags, in the order of the operation's arguments."""
    return rec(FLAG_NAND, target_mask=a & WORD, cond_mask=b & WORD, cond_flag=cond, read_flag=dest)


def test_a_read_fills_consecutive_flags_from_the_lowest_qubit(eight: BitFilter) -> None:
    eight.run(rec(READ, target_mask=0b0101_1001, read_flag=10))
    assert eight.flags(10, 8) == 0b1111
    eight.run(rec(READ, target_mask=0b0010_1110, read_flag=10))
    assert eight.flags(10, 8) == 0b0100


def test_a_read_changes_no_qubit(eight: BitFilter) -> None:
    eight.run(nb.read(range(8), 2), nb.read(range(8), -50))
    assert eight.state() == "10011010"


@pytest.mark.parametrize(("start", "shift"), [(0, 2), (1, 1)])
def test_the_constants_are_counted_but_not_stored(eight: BitFilter, start: int, shift: int) -> None:
    eight.run(nb.read(range(8), start))
    assert eight.flags(2, 8) == 0b0101_1001 >> shift
    assert (eight.flag(0), eight.flag(1), eight.flag(-1)) == (0, 1, 0)


def test_a_negative_start_counts_up_toward_zero_and_beyond(eight: BitFilter) -> None:
    eight.run(nb.read(range(8), -4))
    # Qubits 0, 1, 2 go inverted to 4, 3, 2; 3, 4, 5 pass over -1, 0, 1; 6 and 7 go to 2 and 3.
    assert [eight.flag(flag) for flag in (2, 3, 4)] == [1, 0, 0]


def test_a_negative_flag_stores_and_reads_inverted(eight: BitFilter) -> None:
    eight.run(nb.read((0, 1), -9))
    assert (eight.flag(9), eight.flag(-9)) == (0, 1)
    assert (eight.flag(8), eight.flag(-8)) == (1, 0)


def test_flags_a_hundred_million_apart_share_a_bit(eight: BitFilter) -> None:
    eight.run(nb.read(0, 7))
    assert eight.flag(100000007) == 1
    assert eight.flag(-100000007) == 0
    eight.run(rec(READ, target_mask=0b10, read_flag=300000007))
    assert eight.flag(7) == 0
    eight.run(rec(READ, target_mask=0b01, read_flag=-200000007))
    assert eight.flag(7) == 0
    assert eight.flag(-7) == 1


def test_multiples_of_a_hundred_million_are_stored_at_0_and_1(eight: BitFilter) -> None:
    eight.run(nb.read(0, 100000000), nb.read(0, 100000001))
    assert eight.flags(100000000, 2) == 0b11
    assert (eight.flag(0), eight.flag(1)) == (0, 1)
    eight.run(nb.read(1, 100000001))
    assert (eight.flag(1), eight.flag(100000001)) == (1, 0)


@pytest.mark.parametrize("flag", [2**63 - 1, -(2**63), -(2**63) + 1])
def test_the_ends_of_the_range_of_flags(eight: BitFilter, flag: int) -> None:
    eight.run(rec(READ, target_mask=1, read_flag=flag))
    position = abs(flag) % 100000000
    assert eight.flag(position) == (1 if flag > 0 else 0)
    assert eight.flag(-position) == (0 if flag > 0 else 1)
    eight.run(nb.x(7, flag=flag))
    assert eight.state()[7] == "1"


def test_a_flag_never_stored_reads_0_through_either_sign(eight: BitFilter) -> None:
    assert [eight.flag(flag) for flag in (2, -2, 5, -5, 7000, -7000)] == [0] * 6
    eight.run(nb.read(1, 2))
    assert (eight.flag(2), eight.flag(-2), eight.flag(63), eight.flag(-63)) == (0, 1, 0, 1)
    assert (eight.flag(64), eight.flag(-64)) == (0, 0)


def test_the_table_grows_by_the_words_needed(eight: BitFilter) -> None:
    eight.run(nb.read(0, 200))
    assert [eight.flag(flag) for flag in (200, -200, -63, -64, -255, -256)] == [1, 0, 1, 1, 1, 0]


def test_fetching_never_grows_the_table(eight: BitFilter) -> None:
    eight.run(nb.read(0, 2))
    eight.flags(1000, 32)
    assert eight.flag(-1000) == 0


def test_a_read_whose_condition_fails_stores_nothing(eight: BitFilter) -> None:
    eight.run(nb.read(0, 2, flag=-1), nb.read(0, 2, flag=9), nb.read(0, 2, flag=-9))
    assert (eight.flag(2), eight.flag(-2)) == (0, 0)


def test_a_read_has_no_quantum_condition(eight: BitFilter) -> None:
    eight.run(rec(READ, target_mask=1, cond_mask=2, cond_offset=1 << 60, read_flag=2))
    assert eight.flag(2) == 1


def test_a_read_over_words_counts_on(bits: BitFilter) -> None:
    bits.run(nb.reset(200), nb.x((63, 64, 199)))
    bits.run(nb.read((62, 63, 64, 65, 198, 199), 60))
    assert bits.flags(60, 6) == 0b100110


def test_flags_survive_a_reset(eight: BitFilter) -> None:
    eight.run(nb.read((0, 1), 2), nb.reset(0))
    assert eight.flags(2, 2) == 1


def test_fetch_gives_one_bit_for_each_flag_from_the_first(eight: BitFilter) -> None:
    eight.run(nb.read(range(8), 2))
    assert eight.flags(2, 8) == 0b0101_1001
    assert eight.flags(2, 5) == 0b1_1001
    # Flags -4 to 3: three inverted ones, the constants 0, 0 and 1, then flags 2 and 3.
    assert eight.flags(-4, 8) == 0b01_100_011
    assert eight.flags(2, 0) == 0


@pytest.mark.parametrize("count", [33, 40, 64])
def test_fetch_is_cut_to_32_bits(eight: BitFilter, count: int) -> None:
    eight.run(nb.write(range(8), 255, 2), nb.write(range(8), 255, 30), nb.write(range(8), 255, 38))
    assert eight.flags(2, count) == 0xF00000FF
    assert eight.flags(5, count) == 0xFE00001F


@pytest.mark.parametrize("count", [65, 100, 2**31, 2**32 - 1])
def test_fetch_of_more_than_its_result_holds(
    engine: ModuleType, bits: BitFilter, count: int
) -> None:
    text = (
        f"Error: fetch_read_result() was asked for {count} read flags, "
        "but its result holds 64 at most."
    )
    with raises_engine_error(text):
        engine.fetch_read_result(bits.handle, 0, count)


def test_fetch_at_the_ends_of_its_argument(eight: BitFilter) -> None:
    eight.run(rec(READ, target_mask=0b1001, read_flag=2**31 - 1))
    assert eight.flags(2**31 - 1, 2) == 0b11  # the numbers continue beyond 32 bits
    assert eight.flags(-(2**31) + 1, 1) == 0
    assert eight.flags(-(2**31), 1) == 0


@pytest.mark.parametrize(
    ("a", "b", "result"),
    [
        (1, 1, 0),
        (0, 1, 1),
        (1, 0, 1),
        (0, 0, 1),
        (-1, 1, 1),
        (1, -1, 1),
        (10, 1, 0),
        (1, 10, 0),
        (10, 10, 0),
        (11, 1, 1),
        (-11, 1, 0),
        (1, -11, 0),
        (-10, 1, 1),
        (10, -11, 0),
        (-11, -11, 0),
        (100000010, -300000011, 0),
        (500, 1, 1),
        (-500, 1, 1),  # a flag beyond the stored words is 0 with either sign
        (1, 500, 1),
        (1, -500, 1),
        (10, -500, 1),
        (-(2**63), 1, 1),
        (1, -(2**63), 1),
    ],
)
def test_flag_nand(eight: BitFilter, a: int, b: int, result: int) -> None:
    eight.run(nb.read((0, 1), 10))  # flag 10 is 1, flag 11 is 0
    eight.run(nand(a, b, 0, 20), nand(a, b, 0, -21))
    assert eight.flags(20, 2) == result | (1 - result) << 1


def test_a_negative_destination_selects_and_without_inversion(bits: BitFilter) -> None:
    bits.run(nand(1, 1, 0, 7))
    assert (bits.flag(7), bits.flag(-7)) == (0, 1)
    bits.run(nand(1, 1, 0, -7))
    assert (bits.flag(7), bits.flag(-7)) == (1, 0)


@pytest.mark.parametrize("dest", [0, 1, -1])
def test_a_constant_destination_stores_nothing(bits: BitFilter, dest: int) -> None:
    bits.run(nand(0, 0, 0, dest))
    assert (bits.flag(0), bits.flag(1), bits.flag(-1)) == (0, 1, 0)
    assert [bits.flag(flag) for flag in (2, -2, -63, 100000000, -100000001)] == [0] * 5


def test_a_destination_of_0_comes_before_the_condition(bits: BitFilter) -> None:
    bits.run(nand(1, 1, -1, 0), nand(1, 1, 0, 0))
    assert bits.flag(-2) == 0


@pytest.mark.parametrize(
    ("cond", "acts"),
    [(0, 1), (1, 1), (-1, 0), (10, 1), (-10, 0), (11, 0), (-11, 1), (500, 0), (-500, 0)],
)
def test_flag_nand_obeys_its_condition(eight: BitFilter, cond: int, acts: int) -> None:
    eight.run(nb.read((0, 1), 10), nand(0, 0, cond, 20))
    assert eight.flag(20) == acts


def test_flag_nand_grows_the_table_and_wraps_its_destination(bits: BitFilter) -> None:
    bits.run(nand(0, 0, 0, 200), nand(0, 0, 0, 100000005), nand(1, 1, 0, -100000006))
    assert [bits.flag(flag) for flag in (200, -255, -256, 5, 6)] == [1, 1, 0, 1, 1]


def test_flag_nand_may_read_its_destination(bits: BitFilter) -> None:
    invert = nand(5, 5, 0, 5)
    bits.run(nand(0, 0, 0, 5), invert)
    assert bits.flag(5) == 0
    bits.run(invert)
    assert bits.flag(5) == 1


small_flags = st.integers(-140, 140)
flags = small_flags | st.integers(-(2**63), 2**63 - 1)


@given(st.lists(st.tuples(flags, flags, small_flags, small_flags), max_size=20))
def test_flag_nand_beside_a_plain_table(
    engine: ModuleType, operations: list[tuple[int, int, int, int]]
) -> None:
    table = FlagTable()
    for operation in operations:
        table.store_nand(*operation)
    with open_bit_filter(engine) as bits:
        bits.run(*(nand(*operation) for operation in operations))
        seen = [bits.flags(first, 20) for first in range(-200, 200, 20)]
    for first, word in zip(range(-200, 200, 20), seen, strict=True):
        assert word == sum(table.get(first + bit) << bit for bit in range(20))
