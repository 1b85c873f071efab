"""Pauli product measurements on the Clifford filter."""

import math
from types import ModuleType

import numpy as np
import pytest

from models.opcodes import EXTEND, FLAG_NAND, WRITE, H, S, X
from models.program import NO_REGISTER
from support import pauli_records
from support.clifford import open_clifford
from support.clifford_rows import changes
from support.driver import rec

FLAG = 7
BELL = [rec(H, target_mask=1), rec(X, target_mask=2, cond_mask=1)]


def ppm(x: int, z: int, sign: float = 1.0, flag: int = FLAG, **words: int) -> np.ndarray:
    return pauli_records.ppm(x, z, sign, read_flag=flag, **words)


@pytest.mark.parametrize(
    ("ones", "z", "outcome"),
    [(0, 1, 0), (1, 1, 1), (0b010, 0b011, 1), (0b011, 0b011, 0), (0b111, 0b111, 1), (4, 3, 0)],
)
def test_a_product_of_z_is_a_parity(engine: ModuleType, ones: int, z: int, outcome: int) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(X, target_mask=ones))
        before = filter_.tableau()
        filter_.run(ppm(0, z))
        assert filter_.flags(2, 30) == outcome << FLAG - 2
        filter_.run(ppm(0, z, -1.0))
        assert filter_.flags(2, 30) == (1 - outcome) << FLAG - 2
        assert filter_.tableau() == before


def test_a_fixed_y(engine: ModuleType) -> None:
    with open_clifford(engine, 1) as filter_:
        filter_.run(rec(H, target_mask=1), rec(S, target_mask=1))
        for sign, outcome in ((1.0, 0), (-1.0, 1)):
            filter_.run(ppm(1, 1, sign))
            assert filter_.flag(FLAG) == outcome
            assert changes(filter_) == {"Z0": "+Y0", "X0": "+Z0"}


@pytest.mark.parametrize(
    ("x", "z", "outcome"), [(0b11, 0, 0), (0, 0b11, 0), (0b11, 0b11, 1)], ids=["xx", "zz", "yy"]
)
def test_a_bell_pair_has_all_three_products(
    engine: ModuleType, x: int, z: int, outcome: int
) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(*BELL, ppm(x, z))
        assert filter_.flag(FLAG) == outcome
        assert changes(filter_) == {"Z0": "+X0 X1", "X0": "+Z0", "Z1": "+Z0 Z1"}


@pytest.mark.parametrize("sign", [1.0, -1.0])
def test_a_drawn_product_becomes_a_generator(engine: ModuleType, sign: float) -> None:
    seen = set()
    with open_clifford(engine, 2) as filter_:
        for _ in range(64):
            filter_.reset(2)
            filter_.run(ppm(0b11, 0, sign))
            outcome = filter_.flag(FLAG)
            minus = outcome == (1 if sign > 0 else 0)
            generator = "-X0 X1" if minus else "+X0 X1"
            assert changes(filter_) == {"Z0": generator, "X0": "+Z0", "Z1": "+Z0 Z1"}
            filter_.run(ppm(0b11, 0, sign, flag=FLAG + 1), ppm(0b11, 0, -sign, flag=FLAG + 2))
            assert filter_.flags(FLAG + 1, 2) == outcome | (1 - outcome) << 1
            seen.add(outcome)
    assert seen == {0, 1}


@pytest.mark.parametrize(
    ("sign", "inverted"),
    [
        (-1.0, True), (-1.9, True), (-1.0000001, True), (-2.0, False), (-0.9999999, False),
        (0.0, False), (-0.0, False), (1.0, False), (2.0, False), (4294967295.0, False),
        (-4294967297.0, False), (math.nan, False), (math.inf, False), (-math.inf, False),
    ],
)  # fmt: skip
def test_only_a_word_that_truncates_to_minus_1_inverts(
    engine: ModuleType, sign: float, inverted: bool
) -> None:
    with open_clifford(engine, 1) as filter_:
        filter_.run(ppm(0, 1, sign))
        assert filter_.flag(FLAG) == int(inverted)
        assert changes(filter_) == {}


def test_a_negative_flag_stores_the_inverse(engine: ModuleType) -> None:
    with open_clifford(engine, 1) as filter_:
        filter_.run(ppm(0, 1, flag=-FLAG))
        assert filter_.flag(FLAG) == 1
        filter_.run(ppm(0, 1, -1.0, flag=-FLAG))
        assert filter_.flag(FLAG) == 0


@pytest.mark.parametrize("flag", [0, 1, -1])
def test_the_constant_flags_store_nothing(engine: ModuleType, flag: int) -> None:
    with open_clifford(engine, 1) as filter_:
        filter_.run(rec(X, target_mask=1), ppm(0, 1, flag=flag))
        assert filter_.flags(-3, 32) == 0b10000  # the constant 1 alone
        filter_.run(rec(H, target_mask=1), ppm(0, 1, flag=flag))
        assert changes(filter_) in ({"Z0": "-Z0", "X0": "-X0"}, {"X0": "-X0"})


def test_no_mask_measures_nothing(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(WRITE, target_mask=1, cond_mask=1), rec(FLAG_NAND, read_flag=FLAG))
        assert filter_.flag(FLAG) == 1
        filter_.run(ppm(0, 0), rec(EXTEND, target_mask=1, cond_mask=1), ppm(0, 0))
        assert filter_.flag(FLAG) == 1
        assert changes(filter_) == {"Z0": "-Z0"}


@pytest.mark.parametrize("flag", [-1, 5, -5])
def test_a_failed_condition(engine: ModuleType, flag: int) -> None:
    with open_clifford(engine, 1) as filter_:
        filter_.run(ppm(1, 0, -1.0, flag=-FLAG, cond_flag=flag))
        assert filter_.flags(2, 32) == 0
        assert changes(filter_) == {}


def test_a_register_is_needed_first(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        for record in (ppm(1, 1), ppm(0, 0), ppm(1, 0, cond_flag=-1)):
            filter_.fails(NO_REGISTER, record)


def test_far_letters(engine: ModuleType) -> None:
    with open_clifford(engine, 128) as filter_:
        filter_.run(rec(X, target_mask=0b101, target_offset=64))
        measured = ppm(0, 1, cond_offset=0)
        filter_.run(rec(EXTEND, cond_mask=0b001, cond_offset=64), measured)
        assert filter_.flag(FLAG) == 1
        filter_.run(rec(EXTEND, cond_mask=0b101, cond_offset=64), measured)
        assert filter_.flag(FLAG) == 0
        assert changes(filter_) == {"Z64": "-Z64", "Z66": "-Z66"}


def test_a_pivot_outside_the_product_is_measured_with_it(engine: ModuleType) -> None:
    with open_clifford(engine, 128) as filter_:
        # Z on qubit 66 has its pivot on qubit 2.
        filter_.run(ppm(0, 0b100, cond_offset=64))
        assert filter_.flag(FLAG) == 0
        filter_.run(rec(X, target_mask=0b100), ppm(0, 0b100, cond_offset=64))
        assert filter_.flag(FLAG) == 1
        filter_.run(rec(X, target_mask=0b100, target_offset=64), ppm(0, 0b100, cond_offset=64))
        assert filter_.flag(FLAG) == 0
