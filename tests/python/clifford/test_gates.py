"""Gates of one qubit on the Clifford filter: their effect on each letter, and their refusals."""

from types import ModuleType

import pytest

from models.opcodes import EXTEND, S_INV, WRITE, H, S, X, Y, Z
from models.program import NO_REGISTER
from support.clifford import open_clifford
from support.clifford_rows import changes
from support.driver import rec

# The image of X, Y and Z under each gate.
IMAGES = {
    X: ("+X1", "-Y1", "-Z1"),
    Y: ("-X1", "+Y1", "-Z1"),
    Z: ("-X1", "-Y1", "+Z1"),
    H: ("+Z1", "-Y1", "+X1"),
    S: ("+Y1", "-X1", "+Z1"),
    S_INV: ("-Y1", "+X1", "+Z1"),
}
REFUSALS = [
    pytest.param(S, "qc.s() can't have conditions in the Clifford sim.", id="s"),
    pytest.param(S_INV, "qc.s_inv() can't have conditions in the Clifford sim.", id="s-inv"),
    pytest.param(Y, "qc.y() cannot have conditions for Clifford sim.", id="y"),
    pytest.param(H, "qc.had() can't have conditions in the Clifford sim.", id="had"),
]

gates = pytest.mark.parametrize("low", sorted(IMAGES), ids=hex)
refusals = pytest.mark.parametrize(("low", "text"), REFUSALS)


def differing(expected: dict[str, str]) -> dict[str, str]:
    """The rows that a gate changes."""
    return {row: image for row, image in expected.items() if image != f"+{row}"}


@gates
def test_the_image_of_x_and_z(engine: ModuleType, low: int) -> None:
    x, _, z = IMAGES[low]
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(low, target_mask=0b010))
        assert changes(filter_) == differing({"X1": x, "Z1": z})


@gates
def test_the_image_of_y(engine: ModuleType, low: int) -> None:
    _, y, z = IMAGES[low]
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(S, target_mask=0b010))
        assert changes(filter_) == {"X1": "+Y1"}
        filter_.run(rec(low, target_mask=0b010))
        assert changes(filter_) == differing({"X1": y, "Z1": z})


@gates
def test_every_target_is_acted_on(engine: ModuleType, low: int) -> None:
    with open_clifford(engine, 64) as one, open_clifford(engine, 64) as other:
        one.run(rec(low, target_mask=1 << 63 | 0b1011))
        for qubit in (63, 3, 0, 1):
            other.run(rec(low, target_mask=1 << qubit))
        assert one.tableau() == other.tableau()


@gates
def test_no_target_is_no_change(engine: ModuleType, low: int) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(low), rec(low, target_offset=1 << 40))
        assert changes(filter_) == {}


@gates
def test_a_gate_needs_a_register_before_all_else(engine: ModuleType, low: int) -> None:
    with open_clifford(engine) as filter_:
        filter_.fails(NO_REGISTER, rec(low, target_mask=1))
        filter_.fails(NO_REGISTER, rec(low))
        filter_.fails(NO_REGISTER, rec(low, target_mask=1, cond_flag=-1))
        filter_.fails(NO_REGISTER, rec(low, target_mask=1, cond_mask=6))


@gates
@pytest.mark.parametrize("flag", [-1, 5, -4, 6000, -6000])
def test_a_failed_condition(engine: ModuleType, low: int, flag: int) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(X, target_mask=1), rec(WRITE, target_mask=1, cond_mask=1, read_flag=4))
        filter_.run(rec(low, target_mask=0b010, cond_flag=flag))
        assert changes(filter_) == {"Z0": "-Z0"}


@gates
@pytest.mark.parametrize("flag", [0, 1, 4, -5, 100000004])
def test_a_condition_that_holds(engine: ModuleType, low: int, flag: int) -> None:
    x, _, z = IMAGES[low]
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(X, target_mask=1), rec(WRITE, target_mask=1, cond_mask=1, read_flag=4))
        filter_.run(rec(low, target_mask=0b010, cond_flag=flag))
        assert changes(filter_) == {"Z0": "-Z0", **differing({"X1": x, "Z1": z})}


@refusals
def test_a_condition_mask_is_refused(engine: ModuleType, low: int, text: str) -> None:
    with open_clifford(engine, 3) as filter_:
        for mask in (1, 0b110, 1 << 63):
            filter_.fails(text, rec(low, target_mask=0b010, cond_mask=mask))
        filter_.fails(text, rec(low, cond_mask=1))
        # The refusal comes before the qubits are checked, also if all controls are negated.
        filter_.fails(text, rec(low, target_mask=0b1000, cond_mask=1, cond_neg_mask=1))
        assert changes(filter_) == {}


@refusals
def test_a_record_that_does_not_act_is_not_refused(engine: ModuleType, low: int, text: str) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(low, target_mask=0b010, cond_mask=1, cond_flag=-1))
        assert changes(filter_) == {}
        filter_.fails(text, rec(low, target_mask=0b010, cond_mask=1, cond_flag=1))


@gates
def test_an_extended_condition_is_no_condition(engine: ModuleType, low: int) -> None:
    x, _, z = IMAGES[low]
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(EXTEND, cond_mask=0b101), rec(low, target_mask=0b010))
        assert changes(filter_) == differing({"X1": x, "Z1": z})


@gates
def test_negated_bits_alone_are_no_condition(engine: ModuleType, low: int) -> None:
    x, _, z = IMAGES[low]
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(low, target_mask=0b010, cond_neg_mask=0b101))
        assert changes(filter_) == differing({"X1": x, "Z1": z})


@refusals
def test_a_refused_gate_leaves_the_extension(engine: ModuleType, low: int, text: str) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.fails(text, rec(EXTEND, target_mask=0b100), rec(low, target_mask=1, cond_mask=2))
        filter_.run(rec(X, target_mask=0b010))
        assert changes(filter_) == {"Z1": "-Z1", "Z2": "-Z2"}


def test_a_refusal_keeps_what_came_before_and_drops_the_rest(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        text = "qc.s() can't have conditions in the Clifford sim."
        bad = rec(S, target_mask=1, cond_mask=2)
        filter_.fails(text, rec(X, target_mask=1), bad, rec(X, target_mask=2))
        assert changes(filter_) == {"Z0": "-Z0"}
        filter_.run(rec(X, target_mask=4))
        assert changes(filter_) == {"Z0": "-Z0", "Z2": "-Z2"}
