"""Reads on the Clifford filter: outcomes, flag numbers, and the state afterwards."""

from types import ModuleType

import pytest

from models.opcodes import EXTEND, READ, H, X
from models.program import NO_REGISTER
from support.clifford import CliffordFilter, open_clifford
from support.clifford_rows import changes
from support.driver import rec


def run_ones(filter_: CliffordFilter, ones: int, num_qubits: int = 8) -> None:
    filter_.reset(num_qubits)
    filter_.run(rec(X, target_mask=ones))


def test_targets_take_consecutive_flags(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        run_ones(filter_, 0b0110_0010)
        filter_.run(rec(READ, target_mask=0b0111_0010, read_flag=5))
        # Qubits 1, 4, 5 and 6.
        assert filter_.flags(2, 30) == 0b1101 << 3


def test_a_read_of_three_targets(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        run_ones(filter_, 0b111)
        filter_.run(rec(READ, target_mask=0b111, read_flag=5))
        assert filter_.flags(2, 30) == 0b111 << 3


def test_read_flag_1_drops_the_first_outcome(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        run_ones(filter_, 0b0111)
        filter_.run(rec(READ, target_mask=0b1111, read_flag=1))
        assert filter_.flags(2, 30) == 0b011  # qubits 1, 2 and 3


def test_read_flag_0_stores_nothing(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        run_ones(filter_, 0b1111)
        filter_.run(rec(READ, target_mask=0b1111))
        assert filter_.flags(2, 32) == 0
        assert filter_.flag(-2) == 0  # no flag was stored


def test_a_negative_run_stores_inverses_and_ends_at_0(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        run_ones(filter_, 0b1111_0010)
        filter_.run(rec(READ, target_mask=0b1111_1111, read_flag=-4))
        # Qubits 0, 1 and 2 at flags 4, 3 and 2; the fourth is dropped at -1, the rest at 0.
        assert filter_.flags(2, 30) == 0b101
        assert (filter_.flag(-4), filter_.flag(-3), filter_.flag(-2)) == (0, 1, 0)


def test_read_flag_minus_2(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        run_ones(filter_, 0b11110)
        filter_.run(rec(READ, target_mask=0b11111, read_flag=-2))
        assert filter_.flags(2, 30) == 1


def test_flag_numbers_wrap_at_the_tables_size(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        run_ones(filter_, 0b101)
        filter_.run(rec(READ, target_mask=0b111, read_flag=100000007))
        assert filter_.flags(7, 3) == 0b101


def test_a_fixed_outcome_changes_nothing(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        run_ones(filter_, 0b0110)
        before = filter_.tableau()
        filter_.run(rec(READ, target_mask=0xFF, read_flag=5))
        assert filter_.tableau() == before
        assert changes(filter_) == {"Z1": "-Z1", "Z2": "-Z2"}


def test_a_drawn_outcome_stays(engine: ModuleType) -> None:
    seen = set()
    with open_clifford(engine) as filter_:
        for _ in range(64):
            filter_.reset(2)
            filter_.run(rec(H, target_mask=0b10), rec(READ, target_mask=0b10, read_flag=5))
            outcome = filter_.flag(5)
            sign = "-" if outcome else "+"
            expected = {"Z1": f"{sign}Z1"} if outcome else {}
            assert changes(filter_) == expected
            for _ in range(3):
                filter_.run(rec(READ, target_mask=0b10, read_flag=6))
                assert filter_.flag(6) == outcome
            seen.add(outcome)
    assert seen == {0, 1}


def test_a_bell_pair_reads_equal(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        seen = set()
        for _ in range(64):
            filter_.reset(2)
            filter_.run(rec(H, target_mask=1), rec(X, target_mask=2, cond_mask=1))
            filter_.run(rec(READ, target_mask=3, read_flag=5))
            seen.add(filter_.flags(5, 2))
        assert seen == {0b00, 0b11}


def test_conditions_are_not_looked_at(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        run_ones(filter_, 0b11)
        words = {"cond_mask": 2**64 - 1, "cond_offset": 2**63, "cond_neg_mask": 1, "angle": 45.5}
        filter_.run(rec(EXTEND, cond_mask=1), rec(READ, target_mask=1, read_flag=5, **words))
        assert filter_.flags(2, 30) == 1 << 3


@pytest.mark.parametrize("flag", [-1, 9, -9])
def test_a_failed_condition(engine: ModuleType, flag: int) -> None:
    with open_clifford(engine) as filter_:
        run_ones(filter_, 0b11)
        filter_.run(rec(H, target_mask=2))
        before = filter_.tableau()
        filter_.run(rec(READ, target_mask=3, read_flag=5, cond_flag=flag))
        assert filter_.flags(2, 30) == 0
        assert filter_.tableau() == before


def test_a_condition_by_an_earlier_outcome(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        run_ones(filter_, 0b01)
        filter_.run(rec(READ, target_mask=0b11, read_flag=5))
        for flag in (5, -6):
            filter_.run(rec(X, target_mask=0b100, cond_flag=flag))
        for flag in (-5, 6):
            filter_.run(rec(X, target_mask=0b1000, cond_flag=flag))
        filter_.run(rec(X, target_mask=0b10000, cond_flag=5))
        assert changes(filter_) == {"Z0": "-Z0", "Z4": "-Z4"}


def test_no_target_stores_nothing(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        run_ones(filter_, 0b11)
        filter_.run(rec(READ, read_flag=-5))
        assert filter_.flag(5) == 0


def test_a_register_is_needed_first(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        for words in ({}, {"target_mask": 1}, {"cond_flag": -1}):
            filter_.fails(NO_REGISTER, rec(READ, read_flag=5, **words))
