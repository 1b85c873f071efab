"""Records that set qubits to a value: write, clear, and free with its check for 0."""

from types import ModuleType

import nimbrel as nb
import pytest
from hypothesis import given
from hypothesis import strategies as st

from models.opcodes import CLEAR, EXTEND, FREE, WRITE
from support.driver import BitFilter, open_bit_filter, rec

CHECK = 16


@pytest.fixture
def eight(bits: BitFilter) -> BitFilter:
    """Eight qubits, of which a gate has set the even ones, with debugging on."""
    bits.run(nb.reset(8), nb.x((0, 2, 4, 6)))
    bits.debug()
    return bits


def codes(bits: BitFilter) -> list[int]:
    """The codes of the events queued so far, the oldest first."""
    return [code for _, _, code, _ in bits.events()]


@pytest.mark.parametrize(
    ("value", "state"),
    [
        (0b1111, "11111010"),
        (0b0000, "00001010"),
        (0b0110, "01101010"),
        (0b1010_0011, "11001010"),  # the value applies to the targets only
        (2**64 - 1, "11111010"),
    ],
)
def test_write_sets_its_targets(eight: BitFilter, value: int, state: str) -> None:
    eight.run(rec(WRITE, target_mask=0b1111, cond_mask=value))
    assert eight.state() == state


def test_value_bits_stand_at_their_qubits_places(eight: BitFilter) -> None:
    eight.run(rec(WRITE, target_mask=0b1100_0000, cond_mask=0b1000_0001))
    assert eight.state() == "10101001"


def test_a_write_without_targets_does_nothing(eight: BitFilter) -> None:
    eight.run(rec(WRITE, cond_mask=255, read_flag=2), rec(CLEAR), rec(FREE, cond_mask=CHECK))
    assert eight.state() == "10101010"
    assert eight.flags(2, 32) == 0
    assert eight.flag(-2) == 0  # nothing was stored, not even a 0
    assert codes(eight) == []


def test_the_value_word_has_an_offset_of_its_own(bits: BitFilter) -> None:
    bits.run(nb.reset(130))
    bits.run(rec(WRITE, target_mask=3, target_offset=64, cond_mask=2, cond_offset=64))
    assert bits.state() == "0" * 65 + "1" + "0" * 64
    # A value for another word leaves the value of the target's word at 0.
    bits.run(rec(WRITE, target_mask=3, target_offset=64, cond_mask=3, cond_offset=0))
    assert bits.state() == "0" * 130


@pytest.mark.parametrize("low", [CLEAR, FREE])
def test_clear_and_free_zero_their_targets(eight: BitFilter, low: int) -> None:
    eight.run(rec(low, target_mask=0b10111))
    assert eight.state() == "00000010"


@pytest.mark.parametrize("low", [CLEAR, FREE])
def test_clear_and_free_publish_nothing_and_have_no_value(eight: BitFilter, low: int) -> None:
    eight.run(rec(low, target_mask=0b11, cond_mask=0b11, read_flag=2, cond_offset=1 << 50))
    assert eight.state() == "00101010"
    assert (eight.flag(2), eight.flag(-2)) == (0, 0)


def test_a_write_publishes_what_it_wrote(eight: BitFilter) -> None:
    eight.run(rec(WRITE, target_mask=0b1111, cond_mask=0b0110, read_flag=10))
    assert eight.flags(10, 8) == 0b0110
    eight.run(rec(WRITE, target_mask=0b1001, cond_mask=0b1000, read_flag=-12))
    # Flag -12 takes qubit 0 inverted and flag -11 takes qubit 3 inverted.
    assert (eight.flag(12), eight.flag(-12)) == (1, 0)
    assert (eight.flag(11), eight.flag(-11)) == (0, 1)


def test_a_write_with_read_flag_1_counts_on_to_flag_2(eight: BitFilter) -> None:
    eight.run(rec(WRITE, target_mask=0b111, cond_mask=0b110, read_flag=1))
    assert eight.flags(2, 3) == 0b011


def test_a_write_with_read_flag_minus_1_counts_over_the_constants(eight: BitFilter) -> None:
    eight.run(rec(WRITE, target_mask=0b1111, cond_mask=0b1000, read_flag=-1))
    assert eight.flags(2, 8) == 1


def test_a_write_with_read_flag_0_publishes_nothing(eight: BitFilter) -> None:
    eight.run(rec(WRITE, target_mask=255, cond_mask=255))
    assert eight.flags(2, 32) == 0
    assert eight.flag(-2) == 0


@pytest.mark.parametrize("low", [WRITE, CLEAR, FREE])
@pytest.mark.parametrize("flag", [-1, 5, -4, 6000, -6000])
def test_a_failed_condition(eight: BitFilter, low: int, flag: int) -> None:
    eight.run(nb.read(0, 4))
    eight.run(
        rec(low, target_mask=255, cond_mask=CHECK, cond_flag=flag, read_flag=9),
        nb.write(1, 1, 9, flag=flag),
    )
    assert eight.state() == "10101010"
    assert eight.flag(9) == 0
    assert codes(eight) == []


@pytest.mark.parametrize("flag", [1, 4, -5, 100000004])
def test_a_condition_that_holds(eight: BitFilter, flag: int) -> None:
    eight.run(nb.read(0, 4))
    eight.run(nb.write((0, 1), 2, 9, flag=flag), nb.clear(2, flag=flag), nb.free(4, flag=flag))
    assert eight.state() == "01000010"
    assert eight.flags(9, 2) == 2


def test_a_checked_free_reports_a_1_left_by_a_gate(eight: BitFilter) -> None:
    eight.run(rec(FREE, target_mask=1, cond_mask=CHECK, read_flag=77))
    text = "Error: assert zero check failed."
    assert eight.events() == [("free_nonzero_qubits", text, 77, [])]
    assert eight.state() == "00101010"


def test_a_checked_free_of_a_0_reports_nothing(eight: BitFilter) -> None:
    eight.run(nb.free((1, 3, 5, 7), check=True))
    assert codes(eight) == []


def test_a_free_without_debugging_reports_nothing(eight: BitFilter) -> None:
    eight.debug(0)
    eight.run(nb.free((0, 2), check=True))
    assert codes(eight) == []
    assert eight.state() == "00001010"


@pytest.mark.parametrize("cond_mask", [0, 1, 0b01111, ~CHECK & 0xFFFF])
def test_a_free_without_its_check_bit_reports_nothing(eight: BitFilter, cond_mask: int) -> None:
    eight.run(rec(FREE, target_mask=1, cond_mask=cond_mask))
    assert codes(eight) == []


@pytest.mark.parametrize("cond_mask", [CHECK, 31, 2**64 - 1])
def test_only_the_check_bit_counts(eight: BitFilter, cond_mask: int) -> None:
    eight.run(rec(FREE, target_mask=1, cond_mask=cond_mask, read_flag=3, cond_neg_mask=1))
    assert codes(eight) == [3]
    assert eight.state() == "00101010"


@pytest.mark.parametrize("low", [WRITE, CLEAR])
def test_write_and_clear_do_not_check(eight: BitFilter, low: int) -> None:
    eight.run(rec(low, target_mask=255, cond_mask=CHECK))
    assert codes(eight) == []


@pytest.mark.parametrize(
    "settling",
    [
        pytest.param(nb.read(0), id="read"),
        pytest.param(nb.write(0, 1), id="write"),
        pytest.param(nb.read((0, 1), 2), id="read-with-flag"),
    ],
)
def test_a_settled_1_is_freed_in_silence(eight: BitFilter, settling: nb.RecordArray) -> None:
    eight.run(settling, nb.free(0, check=True))
    assert codes(eight) == []
    assert eight.state()[0] == "0"


def test_a_gate_after_the_read_makes_the_free_report_again(eight: BitFilter) -> None:
    eight.run(nb.read((0, 1)), nb.swap(0, 1), nb.free(1, check=True, event_code=5))
    assert codes(eight) == [5]


def test_a_free_settles_its_qubits(eight: BitFilter) -> None:
    free_twice = nb.free(0, check=True, event_code=1)
    eight.run(free_twice, free_twice, nb.write(0, 1), free_twice)
    assert codes(eight) == [1]


def test_one_event_for_each_offending_pair(bits: BitFilter) -> None:
    bits.run(nb.reset(200), nb.x((0, 1, 64, 192)))
    bits.debug()
    bits.run(nb.free((0, 1, 2, 64, 65, 130, 192), check=True, event_code=9))
    assert codes(bits) == [9, 9, 9]
    assert bits.state() == "0" * 200


def test_a_qubit_in_two_pairs_is_reported_once(eight: BitFilter) -> None:
    eight.run(
        rec(EXTEND, target_mask=0b111),
        rec(FREE, target_mask=1, cond_mask=CHECK, read_flag=4),
    )
    # At the second mask, qubit 0 is already freed but qubit 2 is still 1.
    assert codes(eight) == [4, 4]
    eight.run(nb.x(0))
    eight.run(rec(EXTEND, target_mask=1), rec(FREE, target_mask=1, cond_mask=CHECK, read_flag=4))
    assert codes(eight) == [4]


@pytest.mark.parametrize(
    ("read_flag", "code"),
    [(0, 0), (2**32 - 1, 2**32 - 1), (2**32, 0), (2**32 + 7, 7), (-1, 2**32 - 1)],
)
def test_the_event_code_is_cut_to_32_bits(eight: BitFilter, read_flag: int, code: int) -> None:
    eight.run(rec(FREE, target_mask=1, cond_mask=CHECK, read_flag=read_flag))
    assert codes(eight) == [code]


@given(
    num_qubits=st.integers(1, 300),
    value=st.integers(0, 2**300 - 1),
    mask=st.integers(1, 2**300 - 1),
)
def test_a_wide_write_is_an_integer_in_the_register(
    engine: ModuleType, num_qubits: int, value: int, mask: int
) -> None:
    targets = [qubit for qubit in range(num_qubits) if mask >> qubit & 1] or [0]
    bits_of_value = value & ((1 << len(targets)) - 1)
    with open_bit_filter(engine) as bits:
        bits.run(nb.reset(num_qubits), nb.write(targets, bits_of_value))
        state = bits.state()
    assert int("".join(state[qubit] for qubit in reversed(targets)), 2) == bits_of_value
    assert state.count("1") == bits_of_value.bit_count()
