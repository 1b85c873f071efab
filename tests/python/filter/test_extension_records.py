"""Mask extension records: what they add to the next record, in which order, and for how long."""

import nimbrel as nb
import pytest

from models.opcodes import (
    CALLBACK,
    EXTEND,
    JUMP_BACK,
    JUMP_FAMILY,
    MARKER_10000000,
    READ,
    SWAP,
    WRITE,
    Z_NOP,
    X,
    Y,
)
from support.driver import BitFilter, rec


def extend(**words: int) -> nb.RecordArray:
    return rec(EXTEND, **words)


@pytest.fixture
def wide(bits: BitFilter) -> BitFilter:
    """A filter with 200 qubits at 0: three full words and eight qubits of a fourth."""
    bits.run(nb.reset(200))
    return bits


def ones(bits: BitFilter) -> list[int]:
    """The qubits that are 1."""
    return [qubit for qubit, value in enumerate(bits.state()) if value == "1"]


def test_a_target_offset_reaches_a_later_word(wide: BitFilter) -> None:
    wide.run(rec(X, target_mask=0b101, target_offset=128))
    assert ones(wide) == [128, 130]


@pytest.mark.parametrize("low_bits", [0, 1, 17, 63])
def test_the_low_six_bits_of_an_offset_are_ignored(wide: BitFilter, low_bits: int) -> None:
    wide.run(rec(X, target_mask=2, target_offset=64 + low_bits))
    wide.run(rec(X, target_mask=1, cond_mask=2, cond_offset=64 + low_bits))
    assert ones(wide) == [0, 65]


def test_an_extension_adds_targets(wide: BitFilter) -> None:
    wide.run(extend(target_mask=3, target_offset=64), rec(X, target_mask=1))
    assert ones(wide) == [0, 64, 65]


def test_a_record_of_no_mask_acts_through_its_extension_alone(wide: BitFilter) -> None:
    wide.run(extend(target_mask=3, target_offset=64), rec(X))
    assert ones(wide) == [64, 65]


def test_an_extension_adds_conditions(wide: BitFilter) -> None:
    conditioned = (
        extend(cond_mask=0b11, cond_neg_mask=0b10, cond_offset=128),
        rec(X, target_mask=1, cond_mask=1, cond_offset=64),
    )
    wide.run(*conditioned)
    assert ones(wide) == []
    wide.run(nb.x((64, 128, 129)))
    wide.run(*conditioned)
    assert ones(wide) == [64, 128, 129]
    wide.run(nb.x(129))
    wide.run(*conditioned)
    assert ones(wide) == [0, 64, 128]


def test_an_extension_without_cond_mask_brings_no_condition(wide: BitFilter) -> None:
    wide.run(extend(cond_neg_mask=1, cond_offset=128), rec(X, target_mask=1))
    assert ones(wide) == [0]


def test_several_extensions_add_up(wide: BitFilter) -> None:
    wide.run(
        extend(target_mask=1, target_offset=64),
        extend(target_mask=2, target_offset=128),
        extend(target_mask=4, target_offset=192),
        rec(X, target_mask=8),
    )
    assert ones(wide) == [3, 64, 129, 194]


def test_pairs_are_taken_own_first_and_then_in_the_order_given(wide: BitFilter) -> None:
    wide.run(nb.x((5, 64, 130)))
    wide.run(
        extend(target_mask=0b11, target_offset=64),
        extend(target_mask=0b101, target_offset=128),
        rec(READ, target_mask=0b110000, read_flag=2),
    )
    # From bit 0 of the flags on: qubits 4, 5, 64, 65, 128, 130.
    assert wide.flags(2, 8) == 0b100110


def test_the_same_target_twice_is_flipped_twice(wide: BitFilter) -> None:
    wide.run(extend(target_mask=3), rec(X, target_mask=1))
    assert ones(wide) == [1]


def test_a_swap_over_two_words(wide: BitFilter) -> None:
    wide.run(nb.x(70))
    wide.run(extend(target_mask=1 << 6, target_offset=64), rec(SWAP, target_mask=2))
    assert ones(wide) == [1]


def test_only_the_next_record_takes_the_extension(wide: BitFilter) -> None:
    wide.run(extend(target_mask=1, target_offset=64), rec(X, target_mask=1), rec(X, target_mask=2))
    assert ones(wide) == [0, 1, 64]


def test_an_extension_waits_for_the_next_call(wide: BitFilter) -> None:
    wide.run(extend(target_mask=1, target_offset=64))
    wide.run(rec(X, target_mask=1))
    assert ones(wide) == [0, 64]


def test_a_failed_condition_adds_nothing_and_drops_nothing(wide: BitFilter) -> None:
    wide.run(
        extend(target_mask=1, target_offset=64),
        extend(target_mask=2, target_offset=64, cond_mask=1, cond_flag=-1),
        rec(X),
    )
    assert ones(wide) == [64]


@pytest.mark.parametrize("flag", [2, -3, 1])
def test_a_condition_that_holds_adds(wide: BitFilter, flag: int) -> None:
    wide.run(nb.write((0, 1), 1, 2), nb.clear((0, 1)))
    wide.run(extend(target_mask=2, target_offset=64, cond_flag=flag), rec(X))
    assert ones(wide) == [65]


@pytest.mark.parametrize(
    "between",
    [
        pytest.param(nb.h(0), id="hadamard"),
        pytest.param(rec(Z_NOP), id="z-nop"),
        pytest.param(rec(MARKER_10000000), id="marker"),
        pytest.param(nb.open_event(1), id="open-event"),
        pytest.param(nb.close_event(1), id="close-event"),
        pytest.param(nb.flag_nand(0, 0, 0), id="flag-nand"),
        pytest.param(nb.reset(200), id="reset"),
        pytest.param(nb.x(9, flag=-1), id="x-not-acting"),
        pytest.param(nb.read(9, flag=-1), id="read-not-acting"),
        pytest.param(nb.clear(9, flag=-1), id="clear-not-acting"),
    ],
)
def test_any_dispatched_record_drops_the_extension(
    wide: BitFilter, between: nb.RecordArray
) -> None:
    wide.run(extend(target_mask=1, target_offset=64, cond_mask=2), between, rec(X, target_mask=1))
    assert ones(wide) == [0]


@pytest.mark.parametrize(
    "between",
    [
        pytest.param(nb.label(3), id="label"),
        pytest.param(nb.jump_fwd(3, flag=-1), id="jump-not-taken"),
        pytest.param(rec(JUMP_FAMILY), id="jump-family"),
        pytest.param(nb.record(0x16), id="foreign-jump-family"),
        pytest.param(nb.program(nb.jump_fwd(3), nb.h(0), nb.x(9), nb.label(3)), id="jump-taken"),
    ],
)
def test_jumps_labels_and_skipped_records_keep_the_extension(
    wide: BitFilter, between: nb.RecordArray
) -> None:
    wide.run(extend(target_mask=1, target_offset=64), between, rec(X, target_mask=1))
    assert ones(wide) == [0, 64]


def test_a_skipped_extension_adds_nothing(wide: BitFilter) -> None:
    wide.run(nb.jump_fwd(3), extend(target_mask=1, target_offset=64), nb.label(3), nb.x(0))
    assert ones(wide) == [0]


@pytest.mark.parametrize(
    ("failing", "text"),
    [
        (rec(Y), "qc.y has not been implemented for the Bit sim."),
        (nb.record(5), "Error: Unknown opcode: 0x5\n"),
        (rec(CALLBACK), "Unhandled callback:[lookup:(0)]"),
        (
            rec(JUMP_BACK),
            "qc.jump_back() is experimental, "
            "and currently requires use of the >>jump-control>> filter.",
        ),
    ],
)
def test_a_record_that_failed_unread_leaves_the_extension(
    wide: BitFilter, failing: nb.RecordArray, text: str
) -> None:
    wide.fails(text, extend(target_mask=1, target_offset=64), failing)
    wide.run(rec(X, target_mask=1))
    assert ones(wide) == [0, 64]


def test_a_swap_that_failed_has_used_the_extension(wide: BitFilter) -> None:
    text = "qc.swap() has more than two target bits, must have exactly two."
    wide.fails(text, extend(target_mask=3, target_offset=64), rec(SWAP, target_mask=1))
    wide.run(rec(X, target_mask=1))
    assert ones(wide) == [0]


def test_a_read_ignores_extended_conditions(wide: BitFilter) -> None:
    wide.run(nb.x(3))
    wide.run(
        extend(cond_mask=1, cond_offset=64), rec(READ, target_mask=8, cond_mask=1, read_flag=2)
    )
    assert wide.flag(2) == 1


def test_a_write_takes_its_values_from_the_conditions(wide: BitFilter) -> None:
    wide.run(
        extend(target_mask=0b111, target_offset=64, cond_mask=0b101, cond_offset=64),
        rec(WRITE, target_mask=0b11, cond_mask=0b10),
    )
    assert ones(wide) == [1, 64, 66]


def test_a_later_value_replaces_an_earlier_one_for_the_same_word(wide: BitFilter) -> None:
    wide.run(extend(cond_mask=0b010), rec(WRITE, target_mask=0b111, cond_mask=0b101))
    assert ones(wide) == [1]
    wide.run(extend(cond_mask=4), extend(cond_mask=1), rec(WRITE, target_mask=0b111, cond_mask=2))
    assert ones(wide) == [0]


@pytest.mark.parametrize("low", [0x10000003, 0x10004003])
def test_clear_and_free_write_an_extended_value(wide: BitFilter, low: int) -> None:
    wide.run(extend(cond_mask=0b110), rec(low, target_mask=0b011))
    assert ones(wide) == [1]


def test_extensions_survive_until_a_reset_record_only(wide: BitFilter) -> None:
    wide.run(extend(target_mask=1, target_offset=64))
    wide.run(nb.reset(70))
    wide.run(rec(X, target_mask=1))
    assert ones(wide) == [0]


def test_builders_lay_out_qubits_of_many_words(wide: BitFilter) -> None:
    wide.run(nb.x((3, 66, 199)), nb.x(130, controls=(3, 66), zeros=198), nb.swap(66, 131))
    assert ones(wide) == [3, 130, 131, 199]
