"""Phase and rz on the Clifford filter: three angles are carried out, all others are refused."""

import math
from types import ModuleType

import pytest

from models.opcodes import PHASE, RZ, H
from models.program import NO_REGISTER
from support.clifford import open_clifford
from support.clifford_rows import changes
from support.driver import rec

TEXTS = {
    PHASE: "qc.phase() has not been implemented for the Clifford sim.",
    RZ: "qc.rz() has not been implemented for the Clifford sim.",
}
ACTING = {90.0: "+Y1", -90.0: "-Y1", 180.0: "-X1"}
REFUSED = [
    0.0, -0.0, 45.0, -45.0, 90.5, 89.99999999999999, 90.00000000000001, -180.0, 270.0, -270.0,
    360.0, 450.0, 1e300, 5e-324, math.inf, -math.inf, math.nan,
]  # fmt: skip

both = pytest.mark.parametrize("low", [PHASE, RZ], ids=["phase", "rz"])


@both
@pytest.mark.parametrize("angle", ACTING)
def test_angles_that_act(engine: ModuleType, low: int, angle: float) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(low, target_mask=0b010, angle=angle))
        assert changes(filter_) == {"X1": ACTING[angle]}
        filter_.run(rec(low, target_mask=0b010, angle=angle, cond_flag=-1))
        assert changes(filter_) == {"X1": ACTING[angle]}


@both
@pytest.mark.parametrize("angle", REFUSED)
def test_angles_that_are_refused(engine: ModuleType, low: int, angle: float) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.fails(TEXTS[low], rec(low, target_mask=0b010, angle=angle))
        # For any other words of the record.
        filter_.fails(TEXTS[low], rec(low, angle=angle, cond_flag=-1))
        filter_.fails(TEXTS[low], rec(low, target_mask=1 << 60, cond_mask=7, angle=angle))
        assert changes(filter_) == {}


@both
def test_an_angle_is_refused_before_a_missing_register(engine: ModuleType, low: int) -> None:
    with open_clifford(engine) as filter_:
        filter_.fails(TEXTS[low], rec(low, target_mask=1, angle=45.0))
        for angle in ACTING:
            filter_.fails(NO_REGISTER, rec(low, target_mask=1, angle=angle))


@both
def test_quarter_turns_refuse_conditions_as_the_gates_do(engine: ModuleType, low: int) -> None:
    with open_clifford(engine, 3) as filter_:
        for angle, name in ((90.0, "s"), (-90.0, "s_inv")):
            text = f"qc.{name}() can't have conditions in the Clifford sim."
            filter_.fails(text, rec(low, target_mask=0b010, cond_mask=1, angle=angle))
        assert changes(filter_) == {}


@both
def test_a_half_turn_takes_conditions_as_z_does(engine: ModuleType, low: int) -> None:
    half_turn = {"angle": 180.0, "cond_neg_mask": 7}
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(low, cond_mask=0b001, **half_turn))
        assert changes(filter_) == {"X0": "-X0"}
        filter_.run(rec(low, cond_mask=0b110, **half_turn))
        assert changes(filter_) == {"X0": "-X0", "X1": "+X1 Z2", "X2": "+Z1 X2"}
        filter_.run(rec(low, target_mask=0b100, cond_mask=0b010, **half_turn))
        assert changes(filter_) == {"X0": "-X0"}
        text = "qc.z() can only have one condition for Clifford sim."
        filter_.fails(text, rec(low, cond_mask=0b111, **half_turn))
        filter_.fails(text, rec(low, target_mask=0b100, cond_mask=0b011, **half_turn))


@both
def test_a_turn_reaches_a_far_qubit(engine: ModuleType, low: int) -> None:
    with open_clifford(engine, 128) as filter_:
        filter_.run(rec(low, target_mask=0b10, target_offset=99, angle=90.0))
        filter_.run(rec(low, cond_mask=1, cond_offset=64, angle=180.0))
        assert changes(filter_) == {"X100": "+Y100", "X64": "-X64"}


@both
def test_two_quarter_turns_are_a_half_turn(engine: ModuleType, low: int) -> None:
    with open_clifford(engine, 1) as one, open_clifford(engine, 1) as other:
        for filter_ in (one, other):
            filter_.run(rec(H, target_mask=1))
        one.run(rec(low, target_mask=1, angle=90.0), rec(low, target_mask=1, angle=90.0))
        other.run(rec(low, target_mask=1, angle=180.0))
        assert one.tableau() == other.tableau()
        assert changes(one) == {"Z0": "-X0", "X0": "+Z0"}
