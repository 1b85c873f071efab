"""Controlled X and Z on the Clifford filter: which controls are accepted, and their effect."""

from types import ModuleType

import pytest

from models.opcodes import EXTEND, H, S, X, Z
from support.clifford import open_clifford
from support.clifford_rows import changes
from support.driver import rec

X_TEXT = "qc.x() can only have one condition for Clifford sim."
Z_TEXT = "qc.z() can only have one condition for Clifford sim."


def test_x_with_a_condition_is_a_controlled_not_on_each_target(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(X, target_mask=0b110, cond_mask=0b001))
        assert changes(filter_) == {"X0": "+X0 X1 X2", "Z1": "+Z0 Z1", "Z2": "+Z0 Z2"}


def test_z_with_a_condition_is_a_controlled_z_on_each_target(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(Z, target_mask=0b101, cond_mask=0b010))
        assert changes(filter_) == {"X0": "+X0 Z1", "X1": "+Z0 X1 Z2", "X2": "+Z1 X2"}


def test_a_condition_without_a_target(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(X, cond_mask=0b010))
        assert changes(filter_) == {}
        filter_.run(rec(Z, cond_mask=0b010))
        assert changes(filter_) == {"X1": "-X1"}


def test_two_conditions_of_z_without_a_target(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(Z, cond_mask=0b101))
        assert changes(filter_) == {"X0": "+X0 Z2", "X2": "+Z0 X2"}


@pytest.mark.parametrize(
    "words",
    [{"target_mask": 2, "cond_mask": 1}, {"target_mask": 1, "cond_mask": 2}, {"cond_mask": 3}],
)
def test_a_controlled_z_leaves_the_sign(engine: ModuleType, words: dict[str, int]) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(H, target_mask=1), rec(X, target_mask=2, cond_mask=1))
        filter_.run(rec(S, target_mask=2))
        assert changes(filter_)["Z0"] == "+X0 Y1"
        filter_.run(rec(Z, **words))
        # The full conjugation would give this row a minus.
        assert changes(filter_)["Z0"] == "+Y0 X1"
        filter_.run(rec(Z, **words))
        assert changes(filter_)["Z0"] == "+X0 Y1"


@pytest.mark.parametrize("negated", [0b001, 0b100, 0b111, 2**64 - 1])
def test_negated_bits_do_not_count(engine: ModuleType, negated: int) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(X, target_mask=0b010, cond_mask=0b001, cond_neg_mask=negated))
        assert changes(filter_) == {"X0": "+X0 X1", "Z1": "+Z0 Z1"}
        filter_.run(rec(Z, cond_mask=0b100, cond_neg_mask=negated))
        assert changes(filter_)["X2"] == "-X2"


@pytest.mark.parametrize("conditions", [0b011, 0b111, 1 << 63 | 1, 2**64 - 1])
@pytest.mark.parametrize("targets", [0b100, 0])
def test_x_refuses_more_conditions(engine: ModuleType, conditions: int, targets: int) -> None:
    with open_clifford(engine, 64) as filter_:
        filter_.fails(X_TEXT, rec(X, target_mask=targets, cond_mask=conditions))
        assert changes(filter_) == {}


@pytest.mark.parametrize(
    ("conditions", "targets"),
    [(0b011, 0b100), (0b111, 0b1000), (0b111, 0), (2**64 - 1, 0), (1 << 63 | 1, 1)],
)
def test_z_refuses_more_conditions(engine: ModuleType, conditions: int, targets: int) -> None:
    with open_clifford(engine, 64) as filter_:
        filter_.fails(Z_TEXT, rec(Z, target_mask=targets, cond_mask=conditions))
        assert changes(filter_) == {}


@pytest.mark.parametrize("low", [X, Z], ids=["x", "z"])
def test_a_record_that_does_not_act_counts_nothing(engine: ModuleType, low: int) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(low, target_mask=0b100, cond_mask=0b011, cond_flag=-1))
        assert changes(filter_) == {}


def test_extended_conditions_are_counted_with_the_records_own(engine: ModuleType) -> None:
    more = rec(EXTEND, cond_mask=0b10, cond_offset=64)
    with open_clifford(engine, 128) as filter_:
        filter_.fails(X_TEXT, more, rec(X, target_mask=1, cond_mask=0b10))
        filter_.fails(Z_TEXT, more, rec(Z, target_mask=1, cond_mask=0b10))
        filter_.fails(Z_TEXT, more, more, rec(Z, cond_mask=0b10))
        assert changes(filter_) == {}
        filter_.run(more, rec(Z, cond_mask=0b10))
        assert changes(filter_) == {"X1": "+X1 Z65", "X65": "+Z1 X65"}


def test_the_same_condition_twice_counts_twice(engine: ModuleType) -> None:
    again = rec(EXTEND, cond_mask=0b10)
    with open_clifford(engine, 2) as filter_:
        filter_.fails(X_TEXT, again, rec(X, target_mask=1, cond_mask=0b10))
        # As a symmetric controlled Z of a qubit with itself, it toggles that Z twice.
        filter_.run(again, rec(Z, cond_mask=0b10))
        assert changes(filter_) == {}


@pytest.mark.parametrize(
    ("low", "expected"), [(X, {"Z0": "-Z0"}), (Z, {"X0": "-X0"})], ids=["x", "z"]
)
def test_conditions_by_extension_alone_do_not_count(
    engine: ModuleType, low: int, expected: dict[str, str]
) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(EXTEND, cond_mask=0b110), rec(low, target_mask=1))
        assert changes(filter_) == expected


def test_z_without_masks_of_its_own(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(EXTEND, cond_mask=0b010), rec(Z))
        assert changes(filter_) == {}
        filter_.run(rec(EXTEND, target_mask=0b010, cond_mask=0b100), rec(Z))
        assert changes(filter_) == {"X1": "-X1"}


def test_an_extended_target_makes_two_conditions_too_many(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.fails(Z_TEXT, rec(EXTEND, target_mask=0b100), rec(Z, cond_mask=0b011))
        # The failed record has used up the extension.
        filter_.run(rec(Z, cond_mask=0b011))
        assert changes(filter_) == {"X0": "+X0 Z1", "X1": "+Z0 X1"}


def test_a_condition_that_is_its_own_target(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(S, target_mask=1))
        filter_.run(rec(Z, target_mask=1, cond_mask=1))
        assert changes(filter_) == {"X0": "+Y0"}
        filter_.run(rec(X, target_mask=1, cond_mask=1))
        # Both bits are cleared, and a Y flips the sign.
        assert changes(filter_) == {"X0": "-1", "Z0": "+1"}
