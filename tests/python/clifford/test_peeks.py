"""Probabilities and postselection on the Clifford filter."""

import math
from types import ModuleType

import pytest

from models.clifford import NO_MATCH, NO_PEEK_MASK, NO_POSTSELECT_MASK, ONE_QUBIT_ONLY, outside
from models.opcodes import READ, H, S, X
from models.program import NO_REGISTER
from support.clifford import open_clifford
from support.clifford_rows import changes
from support.driver import rec

BELL = [rec(H, target_mask=1), rec(X, target_mask=2, cond_mask=1)]


def test_a_fixed_qubit(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        assert filter_.probability(0, 1) == 1.0
        assert filter_.probability(1, 1) == 0.0
        filter_.run(rec(X, target_mask=0b100))
        assert filter_.probability(0, 0b100) == 0.0
        assert filter_.probability(0b100, 0b100) == 1.0


def test_a_qubit_in_doubt(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        for gate in (rec(H, target_mask=1), rec(S, target_mask=1)):
            filter_.run(gate)
            assert filter_.probability(0, 1) == 0.5
            assert filter_.probability(1, 1) == 0.5
            assert filter_.probability(0, 2) == 1.0


def test_a_product_of_generators_settles_a_qubit(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(X, target_mask=1), rec(X, target_mask=0b110, cond_mask=1))
        for mask in (1, 2, 4):
            assert filter_.probability(mask, mask) == 1.0


def test_only_the_masked_bit_of_the_value_counts(engine: ModuleType) -> None:
    with open_clifford(engine, 32) as filter_:
        top = 1 << 31
        filter_.run(rec(X, target_mask=top))
        assert filter_.probability(2**32 - 1, top) == 1.0
        assert filter_.probability(top - 1, top) == 0.0
        assert filter_.probability(2**32 - 2, 1) == 1.0


@pytest.mark.parametrize("limit", [0.0, 1.0, -3.5, math.nan, math.inf])
def test_the_limit_is_not_used(engine: ModuleType, limit: float) -> None:
    with open_clifford(engine, 1) as filter_:
        assert filter_.probability(0, 1, limit) == 1.0
        filter_.run(rec(H, target_mask=1))
        assert filter_.probability(0, 1, limit) == 0.5


def test_a_peek_changes_nothing(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(*BELL)
        before = filter_.tableau()
        for _ in range(20):
            assert filter_.probability(0, 1) == 0.5
            assert filter_.probability(2, 2) == 0.5
        assert filter_.tableau() == before


def test_refused_peeks(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        for mask in (0, 1, 3):
            filter_.call_fails(NO_REGISTER, "peek_read_probability", 0, mask, 0.0)
        filter_.reset(3)
        for value in (0, 1):
            filter_.call_fails(NO_PEEK_MASK, "peek_read_probability", value, 0, 0.0)
            for mask in (0b11, 0b101, 2**32 - 1, 0b11000):
                filter_.call_fails(ONE_QUBIT_ONLY, "peek_read_probability", value, mask, 0.0)
        filter_.call_fails(outside(3, 3), "peek_read_probability", 0, 0b1000, 0.0)
        filter_.call_fails(outside(31, 3), "peek_read_probability", 0, 1 << 31, 0.0)
        assert changes(filter_) == {}


@pytest.mark.parametrize("value", [0, 1])
def test_a_postselected_qubit_reads_its_value(engine: ModuleType, value: int) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(H, target_mask=1))
        filter_.postselect(value, 1)
        assert filter_.probability(value, 1) == 1.0
        assert changes(filter_) == ({"Z0": "-Z0"} if value else {})
        for _ in range(20):
            filter_.run(rec(READ, target_mask=1, read_flag=5))
            assert filter_.flag(5) == value


@pytest.mark.parametrize("value", [0, 2])
def test_a_postselected_bell_pair(engine: ModuleType, value: int) -> None:
    sign = "-" if value else "+"
    with open_clifford(engine, 2) as filter_:
        filter_.run(*BELL)
        assert changes(filter_) == {"Z0": "+X0 X1", "Z1": "+Z0 Z1", "X0": "+Z0"}
        filter_.postselect(value, 0b10)
        # The old generator 0 becomes partner 0, and partner 1 is multiplied by it.
        expected = {"Z0": f"{sign}Z1", "Z1": "+Z0 Z1", "X0": "+X0 X1", "X1": "+X0"}
        assert changes(filter_) == expected
        assert filter_.probability(value >> 1, 1) == 1.0


def test_a_fixed_qubit_of_the_right_value_stays(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(X, target_mask=2))
        before = filter_.tableau()
        filter_.postselect(0, 1)
        filter_.postselect(2, 2)
        filter_.postselect(0xFFFFFFFE, 1)
        assert filter_.tableau() == before


def test_a_fixed_qubit_of_the_wrong_value_is_refused(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(X, target_mask=2))
        before = filter_.tableau()
        filter_.call_fails(NO_MATCH, "postselect", 1, 1)
        filter_.call_fails(NO_MATCH, "postselect", 0, 2)
        filter_.call_fails(NO_MATCH, "postselect", 1, 2)
        assert filter_.tableau() == before


def test_refused_postselections(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        # A missing mask is reported before a missing register, several qubits after it.
        filter_.call_fails(NO_POSTSELECT_MASK, "postselect", 1, 0)
        filter_.call_fails(NO_REGISTER, "postselect", 0, 1)
        filter_.call_fails(NO_REGISTER, "postselect", 0, 3)
        filter_.reset(2)
        filter_.call_fails(NO_POSTSELECT_MASK, "postselect", 0, 0)
        filter_.call_fails(ONE_QUBIT_ONLY, "postselect", 0, 3)
        filter_.call_fails(ONE_QUBIT_ONLY, "postselect", 3, 0b1100)
        filter_.call_fails(outside(2, 2), "postselect", 0, 0b100)
        assert changes(filter_) == {}
