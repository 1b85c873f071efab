"""Pauli products on the sparse filter: rotations, measurements, and batches that it ignores."""

import math
import random
from types import ModuleType

import numpy as np
import pytest

from models import matrices as full
from models.arithmetic import ROOT_HALF, Generator, probability, scaled, times
from models.opcodes import FLAG_NAND, PCP, PHASE, PPR, READ, RZ, H, X
from models.sparse import NO_MATCH
from models.wire import tagged
from support.dense import basis, random_state, reset, state_after, vector
from support.driver import rec
from support.pauli_records import ppm, ppr
from support.sparse import assert_same_amplitudes, open_sparse
from support.textbook import assert_textbook

QUBITS = 3
S_INV = (6.123233995736766e-17, -1.0)


# Rotations.


def test_every_product_rotates(engine: ModuleType, rng: random.Random) -> None:
    state = random_state(rng, QUBITS)
    with open_sparse(engine, QUBITS) as filter_:
        for x in range(8):
            for z in range(0 if x else 1, 8):
                gate = tagged(PPR, x, z, rng.uniform(-180, 180))
                assert_textbook(filter_, state, gate)


def test_a_quarter_turn_is_minus_i_times_the_product(engine: ModuleType) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        for x, z, onto, factor in ((4, 0, 4, -1j), (1, 1, 1, 1), (0, 2, 0, -1j), (6, 4, 6, 1)):
            got = state_after(filter_, basis(QUBITS, 0), ppr(90.0, x, z))
            np.testing.assert_allclose(got, factor * basis(QUBITS, onto), rtol=0, atol=1e-15)


def test_conditions_stand_in_the_read_flag_word(engine: ModuleType, rng: random.Random) -> None:
    state = random_state(rng, QUBITS)
    with open_sparse(engine, QUBITS) as filter_:
        for conds, negs in ((0b010, 0), (0b010, 0b010), (0b010, 0b100), (0, 0b010)):
            words = {"read_flag": conds, "cond_neg_mask": negs}
            gate = tagged(PPR, 0b101, 0b100, 35.0, **words)
            assert_textbook(filter_, state, gate)


@pytest.mark.parametrize("beyond", [1 << QUBITS, 1 << 62, -(1 << 63)])
def test_conditions_outside_the_register_do_not_count(
    engine: ModuleType, rng: random.Random, beyond: int
) -> None:
    state = random_state(rng, QUBITS)
    with open_sparse(engine, QUBITS) as filter_:
        plain = state_after(filter_, state, ppr(35.0, 5, 4))
        under_them = ppr(35.0, 5, 4, read_flag=beyond)
        assert_same_amplitudes(state_after(filter_, state, under_them), plain)


@pytest.mark.parametrize(("x", "z"), [(0, 0), (1 << QUBITS, 0), (0, 1 << 63), (8, 16)])
def test_an_empty_product_rotates_qubit_0(engine: ModuleType, x: int, z: int) -> None:
    c, s = math.cos(math.pi / 2), math.sin(math.pi / 2)
    with open_sparse(engine, QUBITS) as filter_:
        filter_.run(ppr(90.0, x, z))
        assert filter_.state(QUBITS)[0] == complex(c, -s)
        assert filter_.num_terms() == 2
        got = state_after(filter_, basis(QUBITS, 1), ppr(90.0, x, z))
        assert got[1] == complex(c, s)
        # Also with controls.
        got = state_after(filter_, basis(QUBITS, 3), ppr(90.0, x, z, read_flag=4))
        assert got[3] == 1


def test_a_product_on_the_lowest_qubit_alone(engine: ModuleType) -> None:
    c, s = math.cos(math.radians(20)), math.sin(math.radians(20))
    with open_sparse(engine, QUBITS) as filter_:
        got = state_after(filter_, basis(QUBITS, 1), ppr(20.0, 0, 1))
        np.testing.assert_allclose(got, complex(c, s) * basis(QUBITS, 1), rtol=0, atol=1e-15)


def test_a_rotation_about_z_is_an_rz_of_twice_the_angle(engine: ModuleType) -> None:
    state = vector([(0.1 * i - 0.3, 0.2 * i + 0.1) for i in range(8)])
    with open_sparse(engine, QUBITS) as filter_:
        expected = state_after(filter_, state, rec(RZ, target_mask=4, angle=71.0))
        assert_same_amplitudes(state_after(filter_, state, ppr(35.5, 0, 4)), expected)


def test_the_ladder_takes_the_parity_into_the_highest_qubit(engine: ModuleType) -> None:
    state = vector([(0.1 * i - 0.3, 0.2 * i + 0.1) for i in range(8)])
    ladder = [rec(X, target_mask=4, cond_mask=1), rec(X, target_mask=4, cond_mask=2)]
    steps = [*ladder, rec(RZ, target_mask=4, angle=71.0, cond_mask=2), *ladder[::-1]]
    with open_sparse(engine, QUBITS) as filter_:
        expected = state_after(filter_, state, *steps)
        got = state_after(filter_, state, ppr(35.5, 0, 7, read_flag=2))
        assert_same_amplitudes(got, expected)


def test_a_rotation_is_its_steps_bit_for_bit_and_in_list_order(engine: ModuleType) -> None:
    # Y on qubit 0, X on qubit 1, Z on qubit 2.
    had = [rec(H, target_mask=1), rec(H, target_mask=2)]
    ladder = [rec(X, target_mask=4, cond_mask=1), rec(X, target_mask=4, cond_mask=2)]
    phase = [rec(PHASE, target_mask=1, angle=angle) for angle in (-90.0, 90.0)]
    turn = rec(RZ, target_mask=4, angle=50.0)
    steps = [phase[0], *had, *ladder, turn, *ladder[::-1], *had[::-1], phase[1]]
    with open_sparse(engine, QUBITS) as one, open_sparse(engine, QUBITS) as other:
        for filter_ in (one, other):
            filter_.run(rec(X, target_mask=6))
        one.run(ppr(25.0, 3, 5))
        other.run(*steps)
        assert one.num_terms() == other.num_terms() == 8
        assert_same_amplitudes(one.state(QUBITS), other.state(QUBITS))
        assert one.ranked() == other.ranked()


def test_a_rotation_whose_condition_fails_cancels(engine: ModuleType, rng: random.Random) -> None:
    state = random_state(rng, QUBITS)
    state[4:] = 0
    with open_sparse(engine, QUBITS) as filter_:
        got = state_after(filter_, state, ppr(35.0, 3, 1, read_flag=4))
        np.testing.assert_allclose(got, state, rtol=0, atol=1e-15)
        # The basis changes around the rotation have run: they change the last bits.
        assert got.tolist() != state.tolist()


def test_a_rotation_under_a_false_flag_does_nothing(engine: ModuleType, rng: random.Random) -> None:
    state = random_state(rng, QUBITS)
    with open_sparse(engine, QUBITS) as filter_:
        for flag in (-1, 5, -5):
            never = ppr(35.0, 3, 5, cond_flag=flag)
            assert_same_amplitudes(state_after(filter_, state, never), state)
        assert filter_.num_terms() == 8


# Measurements.


def test_measuring_projects_on_the_outcome(engine: ModuleType, rng: random.Random) -> None:
    seen = set()
    with open_sparse(engine, QUBITS) as filter_:
        for x in range(8):
            for z in range(0 if x else 1, 8):
                state = random_state(rng, QUBITS)
                engine.random_seed(0, 8 * x + z)
                got = state_after(filter_, state, ppm(x, z, read_flag=2))
                outcome = filter_.flag(2)
                seen.add(outcome)
                product = full.pauli_product(QUBITS, x, z)
                projected = state + (-1) ** outcome * product @ state
                expected = projected / np.linalg.norm(projected)
                np.testing.assert_allclose(got, expected, rtol=0, atol=1e-9)
    assert seen == {0, 1}


@pytest.mark.parametrize("sign", [1.0, -1.0])
def test_certain_outcomes(engine: ModuleType, sign: float) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        for index in range(8):
            for z in range(1, 8):
                parity = (index & z).bit_count() % 2
                state = basis(QUBITS, index) * 1j
                got = state_after(filter_, state, ppm(0, z, sign, read_flag=2))
                assert_same_amplitudes(got, state)
                assert filter_.flag(2) == (parity if sign == 1.0 else 1 - parity)


@pytest.mark.parametrize(
    ("sign", "outcome"),
    [
        (1.0, 1), (-1.0, 0), (-1.9, 0), (-0.9, 1), (2.0, 1), (-2.0, 1), (0.0, 1),
        (math.nan, 1), (-math.inf, 1), (2.0**32 - 1.0, 1),
    ],
)  # fmt: skip
def test_the_sign_is_a_truncated_number_and_only_minus_1_inverts(
    engine: ModuleType, sign: float, outcome: int
) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.run(rec(X, target_mask=1), ppm(0, 1, sign, read_flag=5))
        assert (filter_.flag(5), filter_.flag(-5)) == (outcome, 1 - outcome)
        assert filter_.ranked() == [(1, 1.0)]


@pytest.mark.parametrize(
    ("read_flag", "stored"),
    [(5, 1), (-5, 0), (100_000_005, 1), (-100_000_005, 0)],
)
def test_a_negative_flag_stores_the_inverse(
    engine: ModuleType, read_flag: int, stored: int
) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.run(rec(FLAG_NAND, target_mask=stored, cond_mask=1, read_flag=5))
        assert filter_.flag(5) == 1 - stored
        filter_.run(rec(X, target_mask=1), ppm(0, 1, read_flag=read_flag))
        assert filter_.flag(5) == stored


@pytest.mark.parametrize("read_flag", [0, 1, -1])
def test_outcomes_that_are_stored_nowhere(engine: ModuleType, read_flag: int) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.run(rec(X, target_mask=1), ppm(0, 1, read_flag=read_flag))
        assert filter_.flags(0, 32) == 0b10  # the constant flag 1 alone


@pytest.mark.parametrize("seed", range(6))
def test_the_sign_turns_the_outcome_of_the_same_draw(engine: ModuleType, seed: int) -> None:
    outcome = 0 if Generator(seed).zero_to_one() <= ROOT_HALF * ROOT_HALF else 1
    states = []
    with open_sparse(engine, 2) as filter_:
        for sign, expected in ((1.0, outcome), (-1.0, 1 - outcome)):
            engine.random_seed(0, seed)
            filter_.run(reset(2), ppm(1, 0, sign, read_flag=2))
            assert filter_.flag(2) == expected
            states.append(filter_.state(2))
            assert filter_.num_terms() == 2
    assert_same_amplitudes(states[0], states[1])
    plus_or_minus = np.array([1, 1 - 2 * outcome, 0, 0]) / math.sqrt(2)
    np.testing.assert_allclose(states[0], plus_or_minus, rtol=0, atol=1e-15)


@pytest.mark.parametrize("seed", range(4))
def test_a_measured_y_to_the_last_bit(engine: ModuleType, seed: int) -> None:
    # On |0> the first factor has no term to act on, so both amplitudes are those of H; one is kept.
    outcome = 0 if Generator(seed).zero_to_one() <= ROOT_HALF * ROOT_HALF else 1
    left = ROOT_HALF * (1.0 / math.sqrt(ROOT_HALF * ROOT_HALF))
    half = (
        ((0.0 + left) * ROOT_HALF, (left - 0.0) * ROOT_HALF)
        if outcome == 0
        else (left * ROOT_HALF, (0.0 - left) * ROOT_HALF)
    )
    engine.random_seed(0, seed)
    with open_sparse(engine, 1) as filter_:
        filter_.run(ppm(1, 1, read_flag=2))
        assert filter_.flag(2) == outcome
        expected = [complex(half[0]), complex(half[1] * 6.123233995736766e-17, half[1])]
        assert filter_.state(1).tolist() == expected


def test_the_factors_around_a_measured_y_are_fixed(engine: ModuleType) -> None:
    # So small that no draw is reached: the sampled key is then the count of terms less 1, which
    # has no qubit set, so the outcome is 0 and the term at 0 is left, scaled to 1.
    small = 2.0**-30
    kept = scaled(scaled(S_INV, small), ROOT_HALF)
    left = scaled(scaled(kept, 1.0 / math.sqrt(probability(kept))), ROOT_HALF)
    with open_sparse(engine, 1) as filter_:
        filter_.load(np.array([0, small]) + 0j)
        engine.random_seed(0, 1)
        filter_.run(ppm(1, 1, read_flag=-2))
        assert filter_.flag(-2) == 0
        assert_same_amplitudes(filter_.state(1), [left, times(left, (S_INV[0], 1.0))])


def test_a_bell_state_has_certain_products(engine: ModuleType) -> None:
    bell = [rec(H, target_mask=1), rec(X, target_mask=2, cond_mask=1)]
    with open_sparse(engine, 2) as filter_:
        for x, z, outcome in ((0, 3, 0), (3, 0, 0), (3, 3, 1)):
            filter_.run(reset(2), *bell, ppm(x, z, read_flag=-3))
            assert filter_.flag(-3) == outcome
            assert filter_.flag(3) == 1 - outcome
            expected = np.array([1, 0, 0, 1]) / math.sqrt(2)
            np.testing.assert_allclose(filter_.state(2), expected, rtol=0, atol=1e-14)


@pytest.mark.parametrize(("x", "z"), [(0, 0), (1 << 40, 0), (0, 1 << 40), (1 << 63, 1 << 63)])
def test_measuring_nothing_draws_nothing_and_stores_0(engine: ModuleType, x: int, z: int) -> None:
    with open_sparse(engine, 4) as filter_:
        filter_.run(rec(H, target_mask=15))
        before = filter_.state(4)
        engine.random_seed(0, 7)
        filter_.run(ppm(x, z, -1.0, read_flag=-5))
        assert filter_.flag(5) == 1  # the inverse of 0
        assert_same_amplitudes(filter_.state(4), before)
        filter_.run(rec(READ, target_mask=15, read_flag=10))
        shares = np.cumsum(abs(before) ** 2)
        assert filter_.flags(10, 4) == np.searchsorted(shares, Generator(7).zero_to_one())


def test_qubits_outside_the_register_are_not_measured(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.run(rec(X, target_mask=3), ppm(1 << 2, 1 | 1 << 62, read_flag=2))
        assert filter_.flag(2) == 1
        assert filter_.ranked() == [(3, 1.0)]


def test_a_false_condition_measures_nothing(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.run(rec(X, target_mask=1))
        for flag in (-1, 9, -9):
            filter_.run(ppm(3, 0, read_flag=2, cond_flag=flag))
        assert filter_.ranked() == [(1, 1.0)]
        assert filter_.num_terms() == 1
        assert (filter_.flag(2), filter_.flag(-2)) == (0, 0)


def test_measuring_without_terms_fails(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(np.zeros(4, dtype=np.complex128))
        filter_.fails(NO_MATCH, ppm(1, 2, read_flag=-2), rec(X, target_mask=1))
        assert (filter_.flag(2), filter_.num_terms()) == (0, 0)


def test_on_the_widest_register(engine: ModuleType) -> None:
    with open_sparse(engine, 63) as filter_:
        filter_.run(rec(X, target_mask=1 << 62 | 1))
        filter_.run(ppm(0, 2**64 - 1, read_flag=2), ppm(0, 1 << 62, read_flag=3))
        assert filter_.flags(2, 2) == 0b10
        assert filter_.ranked() == [(1 << 62 | 1, 1.0)]
        filter_.run(ppr(180.0, 0, 1 << 62 | 2))
        ((index, amplitude),) = filter_.ranked()
        assert index == 1 << 62 | 1
        assert abs(amplitude + 1) < 1e-15


# Batches.


@pytest.mark.parametrize("position", [1000.0, 2000.0, 2001.0, 0.0, -5.0, math.nan])
def test_batches_are_ignored(engine: ModuleType, position: float) -> None:
    words = {"target_mask": 3, "cond_mask": 5, "read_flag": 2, "cond_neg_mask": 1}
    with open_sparse(engine) as filter_:
        filter_.run(rec(PCP, angle=position, **words))
        filter_.run(reset(2), rec(X, target_mask=2), rec(PCP, angle=position, **words))
        filter_.run(rec(PCP, angle=position, cond_flag=-1, **words))
        assert filter_.ranked() == [(2, 1.0)]
        assert filter_.num_terms() == 1
        assert filter_.flags(2, 8) == 0
