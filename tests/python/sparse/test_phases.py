"""Diagonal gates on the sparse filter that only multiply: phase, T, S, their inverses and Z."""

import math
from types import ModuleType

import numpy as np
import pytest

from models.arithmetic import Amplitude, flipped, radians, times
from models.opcodes import FLAG_NAND, PHASE, RZ, S_INV, T_INV, H, S, T, X, Z
from support.dense import amplitudes, reset, vector
from support.driver import rec
from support.sparse import assert_same_amplitudes, open_sparse

QUBITS = 3
# Eight amplitudes, none of them another one times a gate's factor.
STATE = vector([(0.5, -0.25), (0.75, 0.125), (-0.3, 0.7), (1.5, 0.1)] * 2) * np.repeat((1, 3), 4)

FIXED_FACTORS: dict[int, Amplitude] = {
    T_INV: (0.7071067811865476, -0.7071067811865475),
    S_INV: (6.123233995736766e-17, -1.0),
}


def turn(degrees: float) -> Amplitude:
    return math.cos(radians(degrees)), math.sin(radians(degrees))


def factor_of(low: int, degrees: float = 0.0) -> Amplitude:
    """The factor of a gate. Z has none, it flips signs."""
    if low in FIXED_FACTORS:
        return FIXED_FACTORS[low]
    return turn({T: 45.0, S: 90.0}.get(low, degrees))


def applied(low: int, terms: list[Amplitude], acts: list[int]) -> list[Amplitude]:
    """The terms after the gate has acted on each of these indices in turn."""
    result = list(terms)
    for index in acts:
        old = result[index]
        result[index] = flipped(old) if low == Z else times(old, factor_of(low, ANGLE))
    return result


ANGLE = 37.0
GATES = pytest.mark.parametrize(
    "low",
    [
        pytest.param(low, id=name)
        for name, low in (
            ("phase", PHASE),
            ("t", T),
            ("s", S),
            ("t_inv", T_INV),
            ("s_inv", S_INV),
            ("z", Z),
        )
    ],
)


@GATES
@pytest.mark.parametrize(
    ("targets", "conds", "negs", "acts"),
    [
        (0b001, 0b000, 0b000, [1, 3, 5, 7]),
        (0b100, 0b000, 0b000, [4, 5, 6, 7]),
        # Each target multiplies, so a term may be multiplied several times.
        (0b011, 0b000, 0b000, [1, 3, 5, 7, 2, 3, 6, 7]),
        (0b111, 0b000, 0b000, [1, 3, 5, 7, 2, 3, 6, 7, 4, 5, 6, 7]),
        (0b001, 0b010, 0b000, [3, 7]),
        (0b001, 0b110, 0b010, [5]),
        (0b001, 0b110, 0b110, [1]),
        (0b011, 0b100, 0b000, [5, 7, 6, 7]),
        (0b001, 0b001, 0b000, [1, 3, 5, 7]),  # the target as its own condition
        (0b011, 0b001, 0b000, [1, 3, 5, 7, 3, 7]),
        (0b001, 0b010, 0b100, [3, 7]),  # a negation without effect
        # A negated target must be 0.
        (0b001, 0b000, 0b001, [0, 2, 4, 6]),
        (0b011, 0b000, 0b001, [0, 2, 4, 6, 2, 3, 6, 7]),
        (0b001, 0b010, 0b011, [0, 4]),
        # Without targets, the lowest control is the target.
        (0b000, 0b011, 0b000, [3, 7]),
        (0b000, 0b100, 0b000, [4, 5, 6, 7]),
        (0b000, 0b110, 0b010, [4, 5]),
        (0b000, 0b110, 0b110, [0, 1]),
        (0b000, 0b111, 0b100, [3]),
        (0b000, 0b000, 0b111, []),
        # Qubits outside the register are ignored.
        (0b1001, 0b10000, 0b10000, [1, 3, 5, 7]),
        (0b1000, 0b011, 0b000, [3, 7]),
        (0b1000, 0b000, 0b000, []),
        (0b0000, 0b1000, 0b000, []),
        (0b1000, 0b10000, 0b000, []),
        (0b000, 0b1010, 0b1000, [2, 3, 6, 7]),
    ],
)
def test_which_terms_are_multiplied(
    engine: ModuleType, low: int, targets: int, conds: int, negs: int, acts: list[int]
) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        filter_.load(STATE)
        masks = {"target_mask": targets, "cond_mask": conds, "cond_neg_mask": negs}
        filter_.run(rec(low, angle=ANGLE, **masks))
        expected = applied(low, amplitudes(STATE), acts)
        assert_same_amplitudes(filter_.state(QUBITS), expected)
        assert filter_.num_terms() == 8


def on_one(engine: ModuleType, low: int, amplitude: Amplitude, **words: float) -> Amplitude:
    """The amplitude of 1 after the gate on a qubit in state 1."""
    with open_sparse(engine, 1) as filter_:
        filter_.load(vector([(0.0, 0.0), amplitude]))
        filter_.run(rec(low, target_mask=1, **words))
        assert filter_.num_terms() == 1
        got = filter_.state(1)[1]
        return float(got.real), float(got.imag)


def test_the_inverse_factors_to_the_last_bit(engine: ModuleType) -> None:
    assert on_one(engine, T_INV, (1.0, 0.0)) == (0.7071067811865476, -0.7071067811865475)
    assert on_one(engine, S_INV, (1.0, 0.0)) == (6.123233995736766e-17, -1.0)
    assert on_one(engine, T_INV, (0.0, 1.0)) == (0.7071067811865475, 0.7071067811865476)
    assert on_one(engine, S_INV, (0.0, 1.0)) == (1.0, 6.123233995736766e-17)


def test_t_and_s_are_computed(engine: ModuleType) -> None:
    assert on_one(engine, T, (1.0, 0.0)) == turn(45.0)
    assert on_one(engine, S, (1.0, 0.0)) == turn(90.0)
    assert on_one(engine, PHASE, (1.0, 0.0), angle=45.0) == turn(45.0)
    # T and S ignore the record's angle.
    assert on_one(engine, T, (1.0, 0.0), angle=10.0) == turn(45.0)


@pytest.mark.parametrize(
    "amplitude",
    [(1.0, 0.0), (0.0, 1.0), (-0.0, 2.0), (3.0, -0.0), (1e-300, -1e300), (math.inf, -0.0)],
)
def test_z_turns_signs_over_and_multiplies_nothing(
    engine: ModuleType, amplitude: Amplitude
) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.load(vector([(0.0, 0.0), amplitude]))
        filter_.run(rec(Z, target_mask=1))
        expected = vector([(0.0, 0.0), (-amplitude[0], -amplitude[1])])
        assert_same_amplitudes(filter_.state(1), expected)
        filter_.run(rec(Z, target_mask=1))
        assert_same_amplitudes(filter_.state(1), vector([(0.0, 0.0), amplitude]))


def test_z_turns_over_the_signs_of_a_stored_zero(engine: ModuleType) -> None:
    with open_sparse(engine, 1) as filter_:
        # The second Hadamard leaves a plus zero at 1.
        filter_.run(rec(H, target_mask=1), rec(H, target_mask=1))
        assert_same_amplitudes(filter_.state(1)[1:], [(0.0, 0.0)])
        filter_.run(rec(Z, target_mask=1))
        assert_same_amplitudes(filter_.state(1)[1:], [(-0.0, -0.0)])


# A multiplication by 1 + 0i or 1 - 0i changes a sign of each of the last three or makes it NaN.
DELICATE = vector([(0.5, 0.5), (1.0, -0.0), (-0.0, 1.0), (math.inf, 1.0)])


@pytest.mark.parametrize("angle", [0.0, -0.0])
def test_a_phase_of_0_returns_at_once(engine: ModuleType, angle: float) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(DELICATE)
        filter_.run(rec(PHASE, target_mask=3, angle=angle), rec(PHASE, cond_mask=3, angle=angle))
        assert_same_amplitudes(filter_.state(2), DELICATE)


def test_an_rz_of_0_does_not_return_at_once(engine: ModuleType) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.load(vector([(0.0, 0.0), (1.0, 0.0)]))
        filter_.run(rec(RZ, target_mask=1, angle=0.0))
        assert filter_.num_terms() == 2


def test_a_phase_that_is_no_number_goes_on(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(np.full(4, 0.5 + 0.5j))
        filter_.run(rec(PHASE, target_mask=2, cond_mask=1, angle=math.nan))
        state = filter_.state(2)
        assert state[:3].tolist() == [0.5 + 0.5j] * 3
        assert math.isnan(state[3].real)
        assert math.isnan(state[3].imag)
        filter_.run(rec(PHASE, angle=math.nan))  # neither targets nor conditions
        assert filter_.state(2)[0] == 0.5 + 0.5j


@pytest.mark.parametrize("angle", [180.0, -90.0, 360.0, 5e-324, 1e9, -0.001])
def test_the_angle_is_in_degrees(engine: ModuleType, angle: float) -> None:
    got = on_one(engine, PHASE, (0.6, -0.8), angle=angle)
    assert got == times((0.6, -0.8), turn(angle))


def test_an_infinite_angle_has_no_sine(engine: ModuleType) -> None:
    assert all(map(math.isnan, on_one(engine, PHASE, (1.0, 0.0), angle=math.inf)))


@GATES
def test_a_failed_classical_condition(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        filter_.load(STATE)
        for flag in (-1, 5, -5):  # no flag is stored
            filter_.run(rec(low, target_mask=7, angle=ANGLE, cond_flag=flag))
            filter_.run(rec(low, cond_mask=7, angle=ANGLE, cond_flag=flag))
        assert_same_amplitudes(filter_.state(QUBITS), STATE)


@GATES
def test_a_classical_condition_that_holds(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        filter_.run(rec(FLAG_NAND, read_flag=5))
        filter_.load(STATE)
        for flag in (0, 1, 5, -6):
            filter_.run(rec(low, target_mask=1, cond_mask=6, angle=ANGLE, cond_flag=flag))
        expected = applied(low, amplitudes(STATE), [7] * 4)
        assert_same_amplitudes(filter_.state(QUBITS), expected)


@GATES
def test_the_list_keeps_its_order_and_length(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(np.full(4, 0.5 + 0j))
        # The factors change the magnitude in the last bits, so only terms that
        # they pass over, or hit alike, can show the order.
        filter_.run(rec(X, target_mask=3), rec(low, target_mask=2, angle=180.0))
        kept = [index for index, _ in filter_.ranked() if index < 2]
        turned = [index for index, _ in filter_.ranked() if index >= 2]
        assert (kept, turned) == ([1, 0], [3, 2])
        assert filter_.num_terms() == 4


@GATES
def test_an_empty_list(engine: ModuleType, low: int) -> None:
    with open_sparse(engine) as filter_:
        filter_.run(rec(low, target_mask=1, angle=ANGLE), rec(low, cond_mask=1, angle=ANGLE))
        filter_.run(reset(2))
        filter_.load(np.zeros(4, dtype=np.complex128))
        filter_.run(rec(low, target_mask=3, angle=ANGLE))
        assert filter_.num_terms() == 0


@GATES
def test_at_the_ends_of_the_widest_register(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, 63) as filter_:
        filter_.run(rec(X, target_mask=1 | 1 << 62))
        filter_.run(rec(low, target_mask=1 << 62 | 1 << 63, cond_mask=1, angle=ANGLE))
        filter_.run(rec(X, target_mask=1 | 1 << 62))
        assert_same_amplitudes(filter_.state(1), [*applied(low, [(1.0, 0.0)], [0]), (0.0, 0.0)])
