"""Records of the Clifford filter that name a qubit outside the register."""

import math
from types import ModuleType
from typing import Any

import numpy as np
import pytest

from models.clifford import outside
from models.opcodes import (
    CLEAR,
    EXTEND,
    FREE,
    PHASE,
    PPM,
    PPR,
    READ,
    RZ,
    S_INV,
    SWAP,
    WRITE,
    H,
    S,
    X,
    Y,
    Z,
)
from models.program import NO_REGISTER
from support.clifford import CliffordFilter, open_clifford
from support.clifford_rows import changes
from support.driver import rec

ONE_TARGET = {
    "x": (X, {}),
    "y": (Y, {}),
    "z": (Z, {}),
    "had": (H, {}),
    "s": (S, {}),
    "s-inv": (S_INV, {}),
    "phase-90": (PHASE, {"angle": 90.0}),
    "phase-180": (PHASE, {"angle": 180.0}),
    "rz--90": (RZ, {"angle": -90.0}),
    "read": (READ, {"read_flag": 5}),
    "write": (WRITE, {"cond_mask": 1, "read_flag": 5}),
    "clear": (CLEAR, {}),
    "free": (FREE, {}),
    "x-cond": (X, {"cond_mask": 1}),
    "z-cond": (Z, {"cond_mask": 1}),
    "ppr": (PPR, {"angle": 45.0}),
    "ppm": (PPM, {"read_flag": 5}),
}

everything = pytest.mark.parametrize(("low", "words"), ONE_TARGET.values(), ids=ONE_TARGET)


def expect_refused(filter_: CliffordFilter, qubit: int, *records: np.ndarray) -> None:
    """Expects that a refusal names this qubit and that nothing changes."""
    before = filter_.tableau()
    filter_.fails(outside(qubit, before.count("\n") // 2), *records)
    assert filter_.tableau() == before
    assert filter_.flags(2, 32) == 0


@everything
def test_a_target_outside(engine: ModuleType, low: int, words: dict[str, Any]) -> None:
    with open_clifford(engine, 3) as filter_:
        expect_refused(filter_, 3, rec(low, target_mask=0b1000, **words))
        expect_refused(filter_, 3, rec(low, target_mask=0b1011, **words))
        expect_refused(filter_, 63, rec(low, target_mask=1 << 63, **words))
        # The first one outside.
        expect_refused(filter_, 4, rec(low, target_mask=0b110100, **words))


@everything
def test_a_far_target_outside(engine: ModuleType, low: int, words: dict[str, Any]) -> None:
    with open_clifford(engine, 70) as filter_:
        expect_refused(filter_, 70, rec(low, target_mask=0b110, target_offset=68, **words))
        far = 2**63 + 2
        expect_refused(filter_, far, rec(low, target_mask=0b100, target_offset=2**63, **words))
        last = 2**64 - 1
        expect_refused(filter_, last, rec(low, target_mask=1, target_offset=last, **words))
        # Also if the low half of the number is a valid qubit.
        expect_refused(filter_, 2**32, rec(low, target_mask=1, target_offset=2**32, **words))


@everything
def test_no_qubit_is_inside_no_register(
    engine: ModuleType, low: int, words: dict[str, Any]
) -> None:
    with open_clifford(engine, 0) as filter_:
        expect_refused(filter_, 0, rec(low, target_mask=1, **words))


@everything
def test_an_extended_target_outside(engine: ModuleType, low: int, words: dict[str, Any]) -> None:
    far = rec(EXTEND, target_mask=0b110, target_offset=68)
    with open_clifford(engine, 70) as filter_:
        expect_refused(filter_, 70, far, rec(low, target_mask=1, **words))
        # The refused record has used up the extension.
        filter_.run(rec(X, target_mask=0b10))
        assert filter_.probability(0b10, 0b10) == 1.0
        filter_.run(rec(READ, target_mask=1, target_offset=69, read_flag=9))
        assert filter_.flag(9) == 0


@everything
def test_a_failed_condition_hides_it(engine: ModuleType, low: int, words: dict[str, Any]) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(low, target_mask=0b1000, cond_flag=-1, **words))
        assert changes(filter_) == {}


@everything
def test_a_missing_register_comes_first(
    engine: ModuleType, low: int, words: dict[str, Any]
) -> None:
    with open_clifford(engine) as filter_:
        filter_.fails(NO_REGISTER, rec(low, target_mask=1 << 63, **words))


def test_records_before_it_have_acted(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        bad = rec(H, target_mask=0b1001)
        filter_.fails(outside(3, 3), rec(X, target_mask=1), bad, rec(X, target_mask=2))
        assert changes(filter_) == {"Z0": "-Z0"}
        filter_.run(rec(X, target_mask=4))
        assert changes(filter_) == {"Z0": "-Z0", "Z2": "-Z2"}


@pytest.mark.parametrize(
    ("low", "words"),
    [(X, {}), (Z, {}), (PHASE, {"angle": 180.0})],
    ids=["x", "z", "phase"],
)
def test_a_condition_outside(engine: ModuleType, low: int, words: dict[str, Any]) -> None:
    with open_clifford(engine, 3) as filter_:
        expect_refused(filter_, 3, rec(low, target_mask=1, cond_mask=0b1000, **words))
        expect_refused(filter_, 3, rec(low, cond_mask=0b1000, **words))
        far = {"target_mask": 1, "cond_mask": 1, "cond_offset": 2**40, **words}
        expect_refused(filter_, 2**40, rec(low, **far))
        # Targets are checked before controls.
        expect_refused(filter_, 4, rec(low, target_mask=0b10000, cond_mask=0b1000, **words))


def test_either_condition_outside(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        for conditions in (0b1001, 0b11000):
            expect_refused(filter_, 3, rec(Z, cond_mask=conditions))


@pytest.mark.parametrize("targets", [0b1001, 0b11000])
def test_a_swap_outside(engine: ModuleType, targets: int) -> None:
    with open_clifford(engine, 3) as filter_:
        expect_refused(filter_, 3, rec(SWAP, target_mask=targets))


@pytest.mark.parametrize("low", [PPR, PPM], ids=["ppr", "ppm"])
def test_a_letter_outside(engine: ModuleType, low: int) -> None:
    with open_clifford(engine, 3) as filter_:
        for words in (
            {"cond_mask": 0b1000},
            {"cond_mask": 0b1001},
            {"target_mask": 1, "cond_mask": 0b1000},
            {"target_mask": 0b1001, "cond_mask": 0b1001},
            {"target_mask": 1, "cond_mask": 1, "cond_offset": 3},
        ):
            expect_refused(filter_, 3, rec(low, angle=45.0, **words))
        extension = rec(EXTEND, cond_mask=0b10, cond_offset=2)
        expect_refused(filter_, 3, extension, rec(low, target_mask=1, angle=45.0))


@pytest.mark.parametrize("low", [PPR, PPM], ids=["ppr", "ppm"])
def test_the_pivot_comes_before_the_letters(engine: ModuleType, low: int) -> None:
    with open_clifford(engine, 3) as filter_:
        # The pivot is the bit's number without the offset: 2 is inside, 3 and 5 are not.
        words = {"target_mask": 0b100, "target_offset": 9, "angle": 45.0}
        expect_refused(filter_, 11, rec(low, **words))
        words = {"target_mask": 0b1000, "target_offset": 9, "angle": 45.0}
        expect_refused(filter_, 3, rec(low, **words))
        # The letter is on qubit 0.
        words = {"target_mask": 1 << 5, "target_offset": 2**64 - 5, "angle": 45.0}
        expect_refused(filter_, 5, rec(low, **words))


@pytest.mark.parametrize("angle", [45.5, math.nan])
def test_a_product_is_refused_before_its_angle(engine: ModuleType, angle: float) -> None:
    with open_clifford(engine, 3) as filter_:
        expect_refused(filter_, 3, rec(PPR, target_mask=0b1001, angle=angle))


# A refusal of the gate comes before that of the qubit.


@pytest.mark.parametrize(
    ("low", "text"),
    [
        (S, "qc.s() can't have conditions in the Clifford sim."),
        (S_INV, "qc.s_inv() can't have conditions in the Clifford sim."),
        (Y, "qc.y() cannot have conditions for Clifford sim."),
        (H, "qc.had() can't have conditions in the Clifford sim."),
        (SWAP, "qc.swap() can't have conditions in the Clifford sim."),
    ],
    ids=["s", "s-inv", "y", "had", "swap"],
)
def test_refused_conditions_come_first(engine: ModuleType, low: int, text: str) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.fails(text, rec(low, target_mask=0b11000, cond_mask=0b100000))


@pytest.mark.parametrize(("low", "name"), [(X, "x"), (Z, "z")], ids=["x", "z"])
@pytest.mark.parametrize("words", [{"target_mask": 0b1000}, {"target_mask": 1}], ids=str)
def test_the_count_of_conditions_comes_first(
    engine: ModuleType, low: int, name: str, words: dict[str, int]
) -> None:
    text = f"qc.{name}() can only have one condition for Clifford sim."
    with open_clifford(engine, 3) as filter_:
        filter_.fails(text, rec(low, cond_mask=0b110000, **words))
        filter_.fails(text, rec(low, cond_mask=0b110, **words))


@pytest.mark.parametrize("targets", [0b1000, 0b111000])
def test_the_count_of_a_swap_comes_first(engine: ModuleType, targets: int) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.fails(
            "qc.swap() must specify exactly two target qubits.", rec(SWAP, target_mask=targets)
        )


def test_a_mask_that_is_not_used_may_name_anything(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        everywhere = {"cond_mask": 2**64 - 1, "cond_offset": 2**63}
        filter_.run(rec(READ, target_mask=1, read_flag=5, **everywhere))
        filter_.run(rec(WRITE, target_mask=1, **everywhere))
        filter_.run(rec(CLEAR, target_mask=1, **everywhere))
        filter_.run(rec(FREE, target_mask=1, **everywhere))
        extension = rec(EXTEND, **everywhere)
        for low in (X, Y, Z, H, S, S_INV, READ, WRITE, CLEAR):
            filter_.run(extension, rec(low, target_mask=0b10))
        filter_.run(extension, rec(SWAP, target_mask=0b101))
        filter_.run(rec(PPR, angle=0.0, target_mask=8), rec(PPR, cond_mask=8, cond_flag=-1))
        filter_.run(rec(X, cond_neg_mask=2**64 - 1, target_mask=1))
        filter_.run(extension)  # has no qubit in its own masks
        assert filter_.probability(1, 1) == 1.0
