"""Records that fix qubits on the Clifford filter: write, clear and free."""

from types import ModuleType

import pytest

from models.opcodes import CLEAR, EXTEND, FREE, READ, WRITE, H, X
from models.program import NO_REGISTER
from support.clifford import CliffordFilter, open_clifford
from support.clifford_rows import changes
from support.driver import rec

zeroing = pytest.mark.parametrize("low", [CLEAR, FREE], ids=["clear", "free"])


def ones(filter_: CliffordFilter) -> set[int]:
    """The qubits that are 1, in a register whose qubits are all settled."""
    found = changes(filter_)
    assert all(row[0] == "Z" and image == f"-{row}" for row, image in found.items())
    return {int(row[1:]) for row in found}


@pytest.mark.parametrize(
    ("value", "expected"),
    [
        (0b1111, {0, 1, 2, 3, 5}),
        (0b0000, {5}),
        (0b0110, {1, 2, 5}),
        (0b1010_0011, {0, 1, 5}),  # the value applies to the targets only
        (2**64 - 1, {0, 1, 2, 3, 5}),
    ],
)
def test_write_sets_its_targets(engine: ModuleType, value: int, expected: set[int]) -> None:
    with open_clifford(engine, 8) as filter_:
        filter_.run(rec(X, target_mask=0b101010))
        filter_.run(rec(WRITE, target_mask=0b1111, cond_mask=value))
        assert ones(filter_) == expected


def test_flags_hold_what_was_measured(engine: ModuleType) -> None:
    with open_clifford(engine, 4) as filter_:
        filter_.run(rec(X, target_mask=0b0011))
        filter_.run(rec(WRITE, target_mask=0b1111, cond_mask=0b0101, read_flag=5))
        assert filter_.flags(2, 30) == 0b0011 << 3
        assert ones(filter_) == {0, 2}


def test_writing_1_and_0_to_a_1(engine: ModuleType) -> None:
    with open_clifford(engine, 1) as filter_:
        filter_.run(rec(X, target_mask=1))
        filter_.run(rec(WRITE, target_mask=1, cond_mask=1, read_flag=5))
        assert (filter_.flag(5), ones(filter_)) == (1, {0})
        filter_.run(rec(WRITE, target_mask=1, read_flag=6))
        assert (filter_.flag(6), ones(filter_)) == (1, set())
        filter_.run(rec(WRITE, target_mask=1, read_flag=7))
        assert (filter_.flag(7), ones(filter_)) == (0, set())


@pytest.mark.parametrize("value", [0, 1])
def test_a_drawn_outcome_is_stored_and_then_corrected(engine: ModuleType, value: int) -> None:
    seen = set()
    with open_clifford(engine) as filter_:
        for _ in range(64):
            filter_.reset(2)
            filter_.run(rec(H, target_mask=1), rec(X, target_mask=2, cond_mask=1))
            filter_.run(rec(WRITE, target_mask=1, cond_mask=value, read_flag=5))
            outcome = filter_.flag(5)
            filter_.run(rec(READ, target_mask=0b11, read_flag=6))
            # The partner keeps the measured row.
            assert filter_.flags(6, 2) == value | outcome << 1
            seen.add(outcome)
    assert seen == {0, 1}


@pytest.mark.parametrize(
    ("flag", "stored"),
    [(1, 0b110), (0, 0), (-1, 0), (-2, 0), (-3, 0b01), (-4, 0b010)],
)
def test_flag_runs_over_the_constants(engine: ModuleType, flag: int, stored: int) -> None:
    with open_clifford(engine, 4) as filter_:
        filter_.run(rec(X, target_mask=0b1101))
        # Outcomes 1, 0, 1, 1 of qubits 0 to 3, all written to 1.
        filter_.run(rec(WRITE, target_mask=0b1111, cond_mask=0b1111, read_flag=flag))
        assert filter_.flags(2, 30) == stored
        assert ones(filter_) == {0, 1, 2, 3}


def test_the_value_has_an_offset_of_its_own(engine: ModuleType) -> None:
    with open_clifford(engine, 128) as filter_:
        # Bit 2 of the value is qubit 64, bit 4 is qubit 66.
        words = {"target_mask": 0b111, "target_offset": 64, "cond_offset": 62}
        filter_.run(rec(WRITE, cond_mask=0b10100, **words))
        assert ones(filter_) == {64, 66}
        # A qubit below or above the bits of the value is written to 0.
        words["cond_offset"] = 65
        filter_.run(rec(WRITE, cond_mask=0b111, **words))
        assert ones(filter_) == {65, 66}
        words["cond_offset"] = 2
        filter_.run(rec(WRITE, cond_mask=2**64 - 1, **words))
        assert ones(filter_) == {64, 65}


def test_the_first_value_that_spans_a_qubit_counts(engine: ModuleType) -> None:
    with open_clifford(engine, 128) as filter_:
        # Qubits 0 to 63 by the record's own value, 64 to 73 by the first extension, 74 and on by
        # the second.
        filter_.run(
            rec(EXTEND, cond_mask=2**64 - 1, cond_offset=10),
            rec(EXTEND, cond_mask=0b11 << 62, cond_offset=12),
            rec(EXTEND, target_mask=0b1111 << 8, target_offset=64),
            rec(WRITE, target_mask=0b110 | 1 << 20, cond_mask=0b010),
        )
        assert ones(filter_) == {1, 72, 73, 74, 75}


def test_values_by_extension_alone(engine: ModuleType) -> None:
    with open_clifford(engine, 4) as filter_:
        filter_.run(rec(EXTEND, cond_mask=0b0101), rec(WRITE, target_mask=0b1111))
        assert ones(filter_) == {0, 2}
        # A value of 0 in the record is ignored even at the same offset; any other value is used.
        filter_.run(rec(EXTEND, cond_mask=0b0101), rec(WRITE, target_mask=0b1111, cond_mask=2))
        assert ones(filter_) == {1}


def test_negated_bits_play_no_part(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(WRITE, target_mask=0b11, cond_mask=0b01, cond_neg_mask=0b11))
        filter_.run(rec(EXTEND, cond_mask=0b10, cond_neg_mask=0b10), rec(WRITE, target_mask=0b10))
        assert ones(filter_) == {0, 1}


def test_a_target_named_twice_is_measured_twice(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(EXTEND, target_mask=1))
        filter_.run(rec(WRITE, target_mask=1, cond_mask=1, read_flag=5))
        assert filter_.flags(5, 2) == 0b10
        assert ones(filter_) == {0}


@zeroing
def test_clear_and_free_zero_their_targets(engine: ModuleType, low: int) -> None:
    with open_clifford(engine, 8) as filter_:
        filter_.run(rec(X, target_mask=0b111011), rec(H, target_mask=0b10))
        filter_.run(rec(low, target_mask=0b10111))
        assert filter_.probability(0, 0b10) == 1.0
        filter_.run(rec(READ, target_mask=0xFF, read_flag=5))
        assert filter_.flags(5, 8) == 0b101000


@zeroing
def test_clear_and_free_store_nothing_and_have_no_value(engine: ModuleType, low: int) -> None:
    with open_clifford(engine, 8) as filter_:
        filter_.debug()
        filter_.run(rec(X, target_mask=0b111))
        for flag in (5, -5):
            words = {"cond_mask": 0b10011, "cond_offset": 1 << 50, "read_flag": flag}
            filter_.run(rec(low, target_mask=0b011, **words))
        assert filter_.flags(2, 30) == 0
        assert ones(filter_) == {2}
        assert filter_.events() == []


@zeroing
def test_clear_and_free_write_an_extended_value(engine: ModuleType, low: int) -> None:
    with open_clifford(engine, 4) as filter_:
        filter_.run(rec(EXTEND, cond_mask=0b110), rec(low, target_mask=0b011))
        assert ones(filter_) == {1}


@zeroing
def test_clear_and_free_reach_far_qubits(engine: ModuleType, low: int) -> None:
    with open_clifford(engine, 128) as filter_:
        filter_.run(rec(X, target_mask=0b1111, target_offset=98))
        filter_.run(rec(low, target_mask=0b101, target_offset=99))
        assert ones(filter_) == {98, 100}


@pytest.mark.parametrize("low", [WRITE, CLEAR, FREE], ids=["write", "clear", "free"])
@pytest.mark.parametrize("flag", [-1, 9, -9])
def test_a_failed_condition(engine: ModuleType, low: int, flag: int) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(X, target_mask=1), rec(H, target_mask=2))
        before = filter_.tableau()
        filter_.run(rec(low, target_mask=3, read_flag=5, cond_flag=flag))
        assert filter_.tableau() == before
        assert filter_.flags(2, 30) == 0


@pytest.mark.parametrize("low", [WRITE, CLEAR, FREE], ids=["write", "clear", "free"])
def test_a_register_is_needed_first(engine: ModuleType, low: int) -> None:
    with open_clifford(engine) as filter_:
        for words in ({}, {"target_mask": 1}, {"cond_flag": -1}):
            filter_.fails(NO_REGISTER, rec(low, **words))


@pytest.mark.parametrize("low", [WRITE, CLEAR, FREE], ids=["write", "clear", "free"])
def test_no_target_is_no_change(engine: ModuleType, low: int) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(X, target_mask=3), rec(low, cond_mask=3, read_flag=-5))
        assert ones(filter_) == {0, 1}
        assert filter_.flag(5) == 0
