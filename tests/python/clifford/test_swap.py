"""Swaps on the Clifford filter: two targets in any masks."""

from types import ModuleType

import pytest

from models.opcodes import EXTEND, SWAP, H, S, X
from models.program import NO_REGISTER
from support.clifford import open_clifford
from support.clifford_rows import changes
from support.driver import rec

TWO_TARGETS = "qc.swap() must specify exactly two target qubits."
NO_CONDITIONS = "qc.swap() can't have conditions in the Clifford sim."


def test_letters_change_places_with_their_signs(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(X, target_mask=1), rec(H, target_mask=4), rec(S, target_mask=4))
        assert changes(filter_) == {"Z0": "-Z0", "Z2": "+Y2", "X2": "+Z2"}
        filter_.run(rec(SWAP, target_mask=0b101))
        assert changes(filter_) == {"Z0": "-Z2", "X0": "+X2", "Z2": "+Y0", "X2": "+Z0"}
        filter_.run(rec(SWAP, target_mask=0b101))
        assert changes(filter_) == {"Z0": "-Z0", "Z2": "+Y2", "X2": "+Z2"}


@pytest.mark.parametrize("mask", [0b11, 1 << 63 | 1, 1 << 63 | 1 << 62])
def test_any_two_qubits_of_a_word(engine: ModuleType, mask: int) -> None:
    high, low = mask.bit_length() - 1, (mask & -mask).bit_length() - 1
    with open_clifford(engine, 64) as filter_:
        filter_.run(rec(SWAP, target_mask=mask))
        assert changes(filter_) == {
            f"Z{low}": f"+Z{high}",
            f"X{low}": f"+X{high}",
            f"Z{high}": f"+Z{low}",
            f"X{high}": f"+X{low}",
        }


@pytest.mark.parametrize("mask", [0, 1, 0b111, 1 << 63, 2**64 - 1])
def test_another_number_of_targets_is_refused(engine: ModuleType, mask: int) -> None:
    with open_clifford(engine, 64) as filter_:
        filter_.fails(TWO_TARGETS, rec(SWAP, target_mask=mask))
        assert changes(filter_) == {}
        filter_.run(rec(SWAP, target_mask=mask, cond_flag=-1))
        assert changes(filter_) == {}


def test_extended_targets_are_counted(engine: ModuleType) -> None:
    far = rec(EXTEND, target_mask=0b10, target_offset=99)
    exchanged = {"Z3": "+Z100", "X3": "+X100", "Z100": "+Z3", "X100": "+X3"}
    with open_clifford(engine, 128) as filter_:
        filter_.run(far, rec(SWAP, target_mask=0b1000))
        assert changes(filter_) == exchanged
        filter_.run(far, rec(EXTEND, target_mask=0b1000), rec(SWAP))
        assert changes(filter_) == {}
        filter_.fails(TWO_TARGETS, far, rec(SWAP))
        filter_.fails(TWO_TARGETS, far, rec(SWAP, target_mask=0b11))
        assert changes(filter_) == {}


def test_a_wrong_count_has_used_the_extension(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.fails(TWO_TARGETS, rec(EXTEND, target_mask=0b110), rec(SWAP, target_mask=1))
        filter_.run(rec(X, target_mask=1))
        assert changes(filter_) == {"Z0": "-Z0"}


def test_conditions_are_refused_before_targets_are_counted(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        for targets in (0b011, 0, 0b111):
            filter_.fails(NO_CONDITIONS, rec(SWAP, target_mask=targets, cond_mask=0b100))
        assert changes(filter_) == {}
        filter_.run(rec(SWAP, target_mask=0b011, cond_mask=0b100, cond_flag=-1))
        assert changes(filter_) == {}


def test_a_refused_condition_leaves_the_extension(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.fails(
            NO_CONDITIONS, rec(EXTEND, target_mask=0b110), rec(SWAP, target_mask=1, cond_mask=2)
        )
        filter_.run(rec(X, target_mask=1))
        assert changes(filter_) == {"Z0": "-Z0", "Z1": "-Z1", "Z2": "-Z2"}


def test_an_extended_condition_is_no_condition(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(EXTEND, cond_mask=0b100), rec(SWAP, target_mask=0b011))
        assert changes(filter_) == {"Z0": "+Z1", "X0": "+X1", "Z1": "+Z0", "X1": "+X0"}


def test_a_register_is_needed_first(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        for words in ({}, {"target_mask": 7}, {"cond_mask": 1}, {"cond_flag": -1}):
            filter_.fails(NO_REGISTER, rec(SWAP, **words))


def test_one_qubit_named_twice_is_two_targets(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(EXTEND, target_mask=1), rec(SWAP, target_mask=1))
        # The first controlled NOT of the qubit with itself clears both of its bits.
        assert changes(filter_) == {"Z0": "+1", "X0": "+1"}
