"""Pauli products: rotations, measurements, probabilities and batches."""

import math
import random
from types import ModuleType

import numpy as np
import pytest

from models import matrices as full
from models.arithmetic import Generator
from models.opcodes import FLAG_NAND, PCP, PPM, PPR, READ, X
from models.wire import signed, tagged
from support.dense import (
    Setting,
    assert_same_bits,
    basis,
    holed_state,
    model_of,
    open_dense,
    random_state,
    settings,
    state_after,
    to_array,
    vector,
)
from support.driver import rec
from support.pauli_records import ppm, ppr
from support.textbook import assert_textbook

QUBITS = 4
NO_COMMUTE = "Error: qc.pcp() masks do not commute."


@pytest.fixture(params=settings([1, 2, 3, 4]), ids=str)
def setting(request: pytest.FixtureRequest) -> Setting:
    chosen: Setting = request.param
    return chosen


def pcp(position: float, x: int, z: int, cond_flag: int = 0) -> np.ndarray:
    return rec(PCP, angle=position, target_mask=x, cond_mask=z, cond_flag=cond_flag)


def test_every_product_rotates(engine: ModuleType, rng: random.Random, setting: Setting) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, setting) as filter_:
        for x in range(16):
            for z in range(16):
                gate = tagged(PPR, x, z, rng.uniform(-180, 180))
                if x | z:
                    assert_textbook(filter_, state, gate)
                else:
                    got = state_after(filter_, state, to_array([gate]))
                    np.testing.assert_allclose(got, state, rtol=0, atol=1e-12)


def test_a_quarter_turn_is_minus_i_times_the_product(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        got = state_after(filter_, basis(QUBITS, 0), ppr(90.0, 0b1000, 0))
        np.testing.assert_allclose(got, -1j * basis(QUBITS, 8), rtol=0, atol=1e-15)


def test_conditions_stand_in_the_read_flag_word(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, setting) as filter_:
        for conds, negs in ((0b1010, 0), (0b1010, 0b1000), (0b0010, 0b0111), (0b1000, 0b1000)):
            words = {"read_flag": conds, "cond_neg_mask": negs}
            gate = tagged(PPR, 0b0101, 0b0100, 35.0, **words)
            assert_textbook(filter_, state, gate)


@pytest.mark.parametrize("beyond", [1 << QUBITS, signed(1 << 63)])
def test_conditions_outside_the_register_are_not_dropped(
    engine: ModuleType, rng: random.Random, setting: Setting, beyond: int
) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, setting) as filter_:
        never = ppr(35.0, 5, 4, read_flag=beyond)
        assert_same_bits(state_after(filter_, state, never), state)
        negated = ppr(35.0, 5, 4, read_flag=beyond, cond_neg_mask=beyond & 2**64 - 1)
        plain = ppr(35.0, 5, 4)
        assert_same_bits(state_after(filter_, state, negated), state_after(filter_, state, plain))


def test_probabilities_of_every_product(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(state)
        for x in range(16):
            for z in range(16):
                got = filter_.call("pps", x, z)
                expected = full.probability_of_plus(state, x, z) if x | z else 0.0
                assert math.isclose(got, expected, abs_tol=1e-12), (x, z)
                assert got == filter_.call("pps", x | 1 << 30, z | 1 << 31)
        assert_same_bits(filter_.state(QUBITS), state)
        assert filter_.call("pps", 1 << QUBITS, 1 << 31) == 0.0


def test_probabilities_are_bit_for_bit_the_models(engine: ModuleType, rng: random.Random) -> None:
    with open_dense(engine, QUBITS, Setting(QUBITS)) as filter_:
        for _ in range(60):
            state, x, z = holed_state(rng, QUBITS), rng.getrandbits(4), rng.getrandbits(4)
            filter_.load(state)
            assert filter_.call("pps", x, z) == model_of(state).pauli_probability(x, z), (x, z)
        filter_.load(vector([(0.0, 0.0)] * 16))
        assert filter_.call("pps", 3, 5) == 0.0


def test_measuring_projects_on_the_outcome(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    seen = set()
    with open_dense(engine, QUBITS, setting) as filter_:
        for x in range(16):
            for z in range(0 if x else 1, 16):
                state = random_state(rng, QUBITS)
                got = state_after(filter_, state, ppm(x, z, read_flag=2))
                outcome = filter_.flags(2, 1)
                seen.add(outcome)
                product = full.pauli_product(QUBITS, x, z)
                projected = state + (-1) ** outcome * product @ state
                expected = projected / np.linalg.norm(projected)
                np.testing.assert_allclose(got, expected, rtol=0, atol=1e-9)
    assert seen == {0, 1}


def test_measuring_with_any_masks_is_bit_for_bit_the_models(
    engine: ModuleType, rng: random.Random
) -> None:
    beyond = (0, 0, 0, 1 << QUBITS, 3 << QUBITS, 1 << 63, 2**64 - 16)
    with open_dense(engine, QUBITS, Setting(QUBITS)) as filter_:
        for seed in range(80):
            state = holed_state(rng, QUBITS)
            x, z = (rng.getrandbits(4) & rng.getrandbits(4) | rng.choice(beyond) for _ in range(2))
            record = tagged(PPM, x, z, rng.choice((1.0, -1.0)), read_flag=2)
            model = model_of(state, seed)
            model.run([record])
            engine.random_seed(0, seed)
            got = state_after(filter_, state, to_array([record]))
            assert_same_bits(got, vector(model.terms))
            assert filter_.flags(2, 1) == model.flags.get(2)


def test_measuring_with_letters_above_the_register_is_the_same_at_each_block_size(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for seed in range(40):
            state = random_state(rng, QUBITS)
            x, z = (rng.getrandbits(4) | rng.choice((0, 1 << 4, 1 << 63)) for _ in range(2))
            record = tagged(PPM, x, z, 1.0, read_flag=2)
            model = model_of(state, seed)
            model.run([record])
            engine.random_seed(0, seed)
            got = state_after(filter_, state, to_array([record]))
            np.testing.assert_allclose(got, vector(model.terms), rtol=0, atol=1e-12)


def test_certain_outcomes(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for index in range(16):
            for z in range(1, 16):
                parity = (index & z).bit_count() % 2
                state = basis(QUBITS, index) * 1j
                assert_same_bits(state_after(filter_, state, ppm(0, z, read_flag=2)), state)
                assert filter_.flags(2, 1) == parity


@pytest.mark.parametrize(
    ("sign", "read_flag", "stored"),
    [
        (1.0, 5, 1), (-1.0, 5, 0), (-1.9, 5, 0), (-0.9, 5, 1), (2.0, 5, 1), (-2.0, 5, 1),
        (0.0, 5, 1), (1.0, -5, 0), (-1.0, -5, 1), (1.0, 100_000_005, 1),
    ],
)  # fmt: skip
def test_the_sign_inverts_the_report_and_not_the_state(
    engine: ModuleType, setting: Setting, sign: float, read_flag: int, stored: int
) -> None:
    state = basis(QUBITS, 0b1000)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.run(rec(FLAG_NAND, target_mask=stored, cond_mask=1, read_flag=5))
        measured = state_after(filter_, state, ppm(0, 0b1000, sign, read_flag=read_flag))
        assert_same_bits(measured, state)
        assert filter_.flags(5, 1) == stored


@pytest.mark.parametrize("read_flag", [0, 1, -1])
def test_outcomes_that_are_stored_nowhere(engine: ModuleType, read_flag: int) -> None:
    with open_dense(engine, QUBITS) as filter_:
        filter_.run(rec(X, target_mask=1), ppm(0, 1, read_flag=read_flag))
        assert filter_.flags(0, 32) == 0b10  # the constant flag 1 alone


def test_a_false_condition_measures_nothing(engine: ModuleType, rng: random.Random) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, Setting(2)) as filter_:
        never = ppm(3, 5, read_flag=2, cond_flag=-1)
        engine.random_seed(0, 1)
        assert_same_bits(state_after(filter_, state, never), state)
        assert filter_.flags(2, 1) == 0
        filter_.run(rec(READ, target_mask=15, read_flag=2))
        drawn = np.searchsorted(np.cumsum(abs(state) ** 2), Generator(1).zero_to_one())
        assert filter_.flags(2, 4) == drawn


def test_measuring_nothing_leaves_nothing(engine: ModuleType, setting: Setting) -> None:
    # Without a norm the probability of +1 is 0, so the outcome is -1 and the projection is empty.
    with open_dense(engine, QUBITS, setting) as filter_:
        got = state_after(filter_, basis(QUBITS, 3), ppm(0, 0, read_flag=2))
        np.testing.assert_array_equal(got, np.zeros(16))
        assert filter_.flags(2, 1) == 1


# Batches.


def test_two_products(engine: ModuleType, rng: random.Random, setting: Setting) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, setting) as filter_:
        got = state_after(filter_, state, pcp(2000.0, 0b0001, 0), pcp(2001.0, 0, 0b1000))
        steps = [ppr(-45.0, 1, 8), ppr(45.0, 0, 8), ppr(45.0, 1, 0)]
        assert_same_bits(got, state_after(filter_, state, *steps))


def test_one_product(engine: ModuleType, rng: random.Random, setting: Setting) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, setting) as filter_:
        for position in (1000.0, 1000.9):
            got = state_after(filter_, state, pcp(position, 0b1001, 1))
            assert_same_bits(got, state_after(filter_, state, ppr(-90.0, 0b1001, 1)))


def test_batches_are_bit_for_bit_the_models(engine: ModuleType, rng: random.Random) -> None:
    with open_dense(engine, QUBITS, Setting(QUBITS)) as filter_:
        for size in (1, 2, 3, 4, 5):
            batch = [tagged(PCP, 0, rng.randint(1, 15), 1000.0 * size + k) for k in range(size)]
            state = holed_state(rng, QUBITS)
            model = model_of(state)
            model.run(batch)
            filter_.load(state)
            filter_.run_records(batch)
            assert_same_bits(filter_.state(QUBITS), vector(model.terms))


@pytest.mark.parametrize("position", [500.0, 0.0, -1.0, -1000.0, -2001.0, 3001.0, 2000.0])
def test_products_that_run_nothing(engine: ModuleType, rng: random.Random, position: float) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, Setting(2)) as filter_:
        assert_same_bits(state_after(filter_, state, pcp(position, 1, 1)), state)


@pytest.mark.parametrize("size", [31, 32, 40, 999])
def test_batches_too_large_to_count_their_parts(
    engine: ModuleType, rng: random.Random, size: int
) -> None:
    state = random_state(rng, QUBITS)
    batch = [pcp(1000.0 * size + k, 0, 1 + k % 15) for k in range(size)]
    with open_dense(engine, QUBITS, Setting(2)) as filter_:
        assert_same_bits(state_after(filter_, state, *batch), state)


def test_products_that_do_not_commute(engine: ModuleType, rng: random.Random) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, Setting(2)) as filter_:
        filter_.load(state)
        filter_.fails(NO_COMMUTE, pcp(2000.0, 1, 0), pcp(2001.0, 0, 1))
        assert_same_bits(filter_.state(QUBITS), state)
        # The batch is unchanged: its first two products still anticommute.
        filter_.fails(NO_COMMUTE, pcp(2001.0, 2, 0))
        filter_.run(pcp(2000.0, 1, 2), pcp(2001.0, 2, 1))


def test_a_batch_that_lacks_products(engine: ModuleType, rng: random.Random) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, Setting(2)) as filter_:
        filter_.load(state)
        text = "Error: qc.pcp() batch of {} products has only {}."
        filter_.fails(text.format(3, 1), pcp(3002.0, 1, 0))
        filter_.fails(text.format(3, 2), pcp(3002.0, 1, 0))
        assert_same_bits(filter_.state(QUBITS), state)
        filter_.run(pcp(3002.0, 1, 0))  # the third product completes it
        assert not np.array_equal(filter_.state(QUBITS), state)
        # Neither an empty product nor one with a false condition is collected.
        filter_.run(pcp(2000.0, 1, 0), pcp(2001.0, 1 << QUBITS, 0), pcp(2001.0, 1, 0, -1))
        filter_.fails(text.format(4, 2), pcp(4003.0, 1, 0))
        filter_.fails(text.format(900, 3), pcp(900899.0, 1, 0))


def test_a_batch_uses_its_first_products(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, setting) as filter_:
        first = [pcp(2000.0, 1, 0), pcp(2001.0, 2, 0)]
        expected = state_after(filter_, state, *first)
        assert_same_bits(state_after(filter_, state, pcp(2001.0, 0, 8)), expected)


def test_batches_do_not_outlive_a_later_first_product(
    engine: ModuleType, rng: random.Random
) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS) as filter_:
        kept = [pcp(2000.0, 1, 0), pcp(2001.0, 0, 8)]
        expected = state_after(filter_, state, *kept)
        filter_.run(pcp(7000.0, 1, 0), pcp(7001.0, 0, 1))
        assert_same_bits(state_after(filter_, state, *kept), expected)


def test_a_negative_flag_that_holds_negates_nothing(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.run(rec(FLAG_NAND, read_flag=3))
        expected = state_after(filter_, state, pcp(1000.0, 1, 4))
        assert_same_bits(state_after(filter_, state, pcp(1000.0, 1, 4, -4)), expected)
