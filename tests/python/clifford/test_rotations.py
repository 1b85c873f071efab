"""Pauli product rotations on the Clifford filter: angles, products, pivots and refusals."""

import math
from types import ModuleType

import numpy as np
import pytest

from models.opcodes import EXTEND, H, X
from models.program import NO_REGISTER
from support.clifford import open_clifford
from support.clifford_rows import changes
from support.driver import rec
from support.pauli_records import ppr

WRONG_ANGLE = "qc.ppr() angles must be multiples of pi/4 for Clifford sim."
CONDITIONS = "qc.ppr() cannot have condition masks in the Clifford sim."

# The image of X under a rotation about Z.
NOTHING: dict[str, str] = {}
S, Z, S_INV = {"X0": "+Y0"}, {"X0": "-X0"}, {"X0": "-Y0"}

TURNS = [
    (45, S), (90, Z), (135, S_INV), (180, NOTHING), (225, S), (270, Z), (315, S_INV),
    (360, NOTHING), (405, S), (3600045, S), (1073741805, S),
    (-45, S_INV), (-90, Z), (-135, S), (-180, NOTHING), (-225, S_INV), (-270, Z), (-315, S),
    (-360, NOTHING), (-405, S_INV),
]  # fmt: skip

# From 2^30 on the doubled angle wraps in 32 bits. 2^32 is 256 more than a multiple of 360, so
# the angles that act are then 38 more than a multiple of 45, or 38 less below zero.
WRAPPED = [
    (1073741843, S_INV), (1073741888, NOTHING), (1073741933, S), (1073741978, Z),
    (2147483468, NOTHING), (2147483513, S), (2147483558, Z), (2147483603, S_INV),
    (-1073741843, S), (-1073741888, NOTHING), (-1073741933, S_INV), (-1073741978, Z),
    (-2147483648, NOTHING),
]  # fmt: skip

REFUSED = [
    45.5, 1.0, 30.0, -1.0, 44.0, 46.0, 44.99999999999999, 45.00000000000001, 0.5, -0.5, 5e-324,
    1073741805.5,
    # Multiples of 45 whose doubling wraps.
    1073741850.0, 2147483610.0, -1073741850.0,
    # Beyond 32 bits.
    2147483648.0, -2147483649.0, -2147483648.5, 4294967296.0, 45e9, 1e300,
    math.inf, -math.inf, math.nan,
]  # fmt: skip


@pytest.mark.parametrize(("angle", "expected"), TURNS + WRAPPED)
def test_a_rotation_about_z(engine: ModuleType, angle: int, expected: dict[str, str]) -> None:
    with open_clifford(engine, 1) as filter_:
        filter_.run(ppr(angle, 0, 1))
        assert changes(filter_) == expected


@pytest.mark.parametrize(
    ("x", "z", "expected"),
    [
        (1, 0, {"Z0": "-Y0"}),
        (1, 1, {"Z0": "+X0", "X0": "-Z0"}),
        (0, 1, {"X0": "+Y0"}),
    ],
    ids=["x", "y", "z"],
)
def test_an_eighth_about_each_letter(
    engine: ModuleType, x: int, z: int, expected: dict[str, str]
) -> None:
    with open_clifford(engine, 1) as filter_:
        filter_.run(ppr(45.0, x, z))
        assert changes(filter_) == expected
        filter_.run(ppr(-45.0, x, z))
        assert changes(filter_) == {}


def test_an_eighth_about_two_letters(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(ppr(45.0, 0, 0b11))
        assert changes(filter_) == {"X0": "+Y0 Z1", "X1": "+Z0 Y1"}
        filter_.run(ppr(135.0, 0, 0b11))
        assert changes(filter_) == {}


@pytest.mark.parametrize("angle", [90.0, -90.0, 270.0])
def test_a_quarter_turns_the_signs_of_what_anticommutes(engine: ModuleType, angle: float) -> None:
    with open_clifford(engine, 4) as filter_:
        # X on qubit 0, Y on qubit 2, Z on qubit 3.
        filter_.run(ppr(angle, 0b0101, 0b1100))
        assert changes(filter_) == {"Z0": "-Z0", "Z2": "-Z2", "X2": "-X2", "X3": "-X3"}


@pytest.mark.parametrize("angle", [180.0, -180.0, 360.0, -2147483648.0])
def test_a_half_turn_changes_nothing(engine: ModuleType, angle: float) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(H, target_mask=0b010), rec(X, target_mask=1, cond_mask=2))
        before = filter_.tableau()
        filter_.run(ppr(angle, 0b011, 0b110))
        assert filter_.tableau() == before


@pytest.mark.parametrize("angle", REFUSED)
def test_a_refused_angle_leaves_the_product_folded(engine: ModuleType, angle: float) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.fails(WRONG_ANGLE, ppr(angle, 0b01, 0b10))
        # X on qubit 0 has become a Z and was multiplied by the Z on qubit 1.
        assert changes(filter_) == {"Z0": "+X0", "X0": "+Z0 Z1", "X1": "+X0 X1"}


def test_a_refused_angle_leaves_a_y_folded(engine: ModuleType) -> None:
    with open_clifford(engine, 1) as filter_:
        filter_.fails(WRONG_ANGLE, ppr(45.5, 1, 1), rec(X, target_mask=1))
        # Z, S and Hadamard: X goes by -X and -Y to Y, Z goes to X.
        assert changes(filter_) == {"Z0": "+X0", "X0": "+Y0"}


def test_a_refused_angle_has_used_the_extension(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.fails(WRONG_ANGLE, rec(EXTEND, target_mask=0b10), ppr(30.0, 0, 0b01))
        filter_.run(rec(X, target_mask=1))
        assert changes(filter_) == {"Z0": "-Z0 Z1", "Z1": "+X0 X1", "X1": "+Z1"}


@pytest.mark.parametrize("word", [1, 7, -1, -(2**63), 2**63 - 1])
def test_a_condition_mask_is_refused_before_all_else(engine: ModuleType, word: int) -> None:
    with open_clifford(engine) as filter_:
        filter_.fails(CONDITIONS, ppr(45.0, 1, 0, read_flag=word))
        filter_.fails(CONDITIONS, ppr(45.5, 1, 0, read_flag=word, cond_flag=-1))
        filter_.fails(CONDITIONS, ppr(0.0, 0, 0, read_flag=word))
        filter_.reset(2)
        filter_.fails(CONDITIONS, ppr(45.0, 1, 0, read_flag=word))
        filter_.fails(CONDITIONS, ppr(45.0, 8, 0, read_flag=word))
        assert changes(filter_) == {}


def test_a_refused_condition_mask_leaves_the_extension(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.fails(CONDITIONS, rec(EXTEND, target_mask=2), ppr(90.0, 1, 0, read_flag=1))
        filter_.run(rec(X, target_mask=1))
        assert changes(filter_) == {"Z0": "-Z0", "Z1": "-Z1"}


def test_a_register_is_needed_before_the_condition_and_the_angle(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        filter_.fails(NO_REGISTER, ppr(45.0, 1, 0))
        filter_.fails(NO_REGISTER, ppr(45.0, 1, 0, cond_flag=-1))
        filter_.fails(NO_REGISTER, ppr(0.0, 0, 0))
        filter_.fails(NO_REGISTER, ppr(45.5, 1, 0))


@pytest.mark.parametrize(
    "idle",
    [
        ppr(45.5, 1, 1, cond_flag=-1),
        ppr(0.0, 1, 1),
        ppr(-0.0, 1, 1),
        ppr(45.5, 0, 0),
        ppr(math.nan, 0, 0),
        ppr(90.0, 0, 0, target_offset=1 << 40),
    ],
    ids=["condition", "zero", "minus-zero", "no-mask", "no-mask-nan", "no-mask-offset"],
)
def test_what_returns_early_takes_no_extension_and_folds_nothing(
    engine: ModuleType, idle: np.ndarray
) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(EXTEND, target_mask=0b10), idle, rec(X, target_mask=1))
        assert changes(filter_) == {"Z0": "-Z0"}


@pytest.mark.parametrize("flag", [0, 1])
def test_a_condition_that_holds(engine: ModuleType, flag: int) -> None:
    with open_clifford(engine, 1) as filter_:
        filter_.run(ppr(90.0, 1, 0, cond_flag=flag, cond_neg_mask=1))
        assert changes(filter_) == {"Z0": "-Z0"}


# Positions of the letters.


@pytest.mark.parametrize(
    ("words", "flipped"),
    [
        ({"x": 1, "z": 1, "cond_offset": 64}, "Z0 X64"),
        ({"x": 1, "z": 1, "target_offset": 64}, "Z64 X0"),
        # The offset of an empty mask is ignored.
        ({"x": 2, "z": 0, "cond_offset": 2**63}, "Z1"),
        ({"x": 0, "z": 2, "target_offset": 2**63}, "X1"),
    ],
)
def test_each_mask_has_an_offset(engine: ModuleType, words: dict[str, int], flipped: str) -> None:
    with open_clifford(engine, 128) as filter_:
        filter_.run(ppr(90.0, **words))
        assert changes(filter_) == {row: f"-{row}" for row in flipped.split()}


@pytest.mark.parametrize(
    ("words", "flipped"),
    [
        ({"x": 5, "z": 4, "target_offset": 70, "cond_offset": 70}, "Z70 Z72 X72 X0"),
        ({"x": 0b100, "z": 0, "target_offset": 61}, "Z63 X2"),
        ({"x": 0b100, "z": 0, "target_offset": 62}, "Z64 X2"),
        ({"x": 0, "z": 0b100, "cond_offset": 3}, "X5 X2"),
        (
            {"x": 1 << 63, "z": 1 << 62, "target_offset": 64, "cond_offset": 2},
            "Z127 X64 X63",
        ),
    ],
)
def test_a_pivot_outside_the_product_is_one_more_z(
    engine: ModuleType, words: dict[str, int], flipped: str
) -> None:
    # The pivot is the first mask's lowest bit, without the offset.
    with open_clifford(engine, 128) as filter_:
        filter_.run(ppr(90.0, **words))
        assert changes(filter_) == {row: f"-{row}" for row in flipped.split()}


def extend(**words: int) -> np.ndarray:
    return rec(EXTEND, **words)


@pytest.mark.parametrize(
    ("records", "flipped"),
    [
        # A second mask with the same offset replaces the first mask of its kind.
        ([extend(target_mask=0b10), ppr(90.0, 1, 0)], "Z1"),
        ([extend(cond_mask=0b10), ppr(90.0, 0, 1)], "X1"),
        ([extend(target_mask=0b100), extend(target_mask=0b10), ppr(90.0, 1, 0)], "Z1"),
        # The mask of the other kind stays.
        ([extend(cond_mask=1), ppr(90.0, 1, 0)], "Z0 X0"),
        ([extend(target_mask=1), ppr(90.0, 0, 1)], "Z0 X0"),
        ([extend(target_mask=0b10, cond_mask=0b11), ppr(90.0, 1, 1)], "X0 Z1 X1"),
        # Other offsets add letters.
        ([extend(target_mask=3, target_offset=64), ppr(90.0, 1, 0)], "Z0 Z64 Z65"),
        ([extend(cond_mask=3, cond_offset=64), ppr(90.0, 1, 0)], "Z0 X64 X65"),
        (
            [
                extend(target_mask=1, target_offset=64, cond_mask=1, cond_offset=64),
                extend(target_mask=1, target_offset=100, cond_mask=1, cond_offset=101),
                ppr(90.0, 0, 1),
            ],
            "X0 Z64 X64 Z100 X101",
        ),
        # A qubit in two entries is folded twice: its Z, then the Hadamard of its X.
        ([extend(target_mask=1, target_offset=5), ppr(90.0, 0, 1 << 5)], "Z5"),
        # The pivot comes last, so its Hadamard also acts on the parity gathered in it.
        ([extend(target_mask=1), ppr(90.0, 1, 0, target_offset=64)], "Z0"),
    ],
)
def test_extended_products(engine: ModuleType, records: list[np.ndarray], flipped: str) -> None:
    with open_clifford(engine, 128) as filter_:
        filter_.run(*records)
        assert changes(filter_) == {row: f"-{row}" for row in flipped.split()}


def test_an_extension_alone_is_no_product(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(extend(target_mask=1, cond_mask=2), ppr(90.0, 0, 0))
        assert changes(filter_) == {}
