"""Reads and writes: outcomes, read flags, draws from the generator and the state afterwards."""

import random
from types import ModuleType

import numpy as np
import pytest

from models import matrices as full
from models.arithmetic import Generator
from models.dense import NOT_ALLOCATED
from models.opcodes import CLEAR, FLAG_NAND, FREE, PPM, READ, WRITE, H, X
from support.dense import (
    DenseFilter,
    Setting,
    assert_same_bits,
    basis,
    open_dense,
    random_state,
    reset,
    settings,
    vector,
)
from support.driver import rec

QUBITS = 4
EVERY = settings([1, 3, 4])


@pytest.fixture(params=EVERY, ids=str)
def setting(request: pytest.FixtureRequest) -> Setting:
    chosen: Setting = request.param
    return chosen


def draws_used(filter_: DenseFilter, *parts: np.ndarray) -> int:
    """How many draws the records take from the generator, found from the next outcome."""
    engine = filter_.engine
    engine.random_seed(0, 7)
    filter_.run(*parts)
    with open_dense(engine, 1) as coin:
        for flag in range(2, 32):
            coin.load(np.array([0.6, 0.8], dtype=np.complex128))
            coin.run(rec(READ, target_mask=1, read_flag=flag))
        outcomes = coin.flags(2, 30)
    generator = Generator(7)
    drawn = [generator.zero_to_one() for _ in range(40)]
    for used in range(10):
        if all(outcomes >> k & 1 == (drawn[used + k] > 0.36) for k in range(30)):
            return used
    raise AssertionError("the outcomes follow no run of draws")


def test_outcomes_follow_the_draws(engine: ModuleType, rng: random.Random) -> None:
    state = random_state(rng, QUBITS)
    cumulative = np.cumsum(abs(state) ** 2)
    with open_dense(engine, QUBITS) as filter_:
        for seed in range(100):
            engine.random_seed(0, seed)
            filter_.load(state)
            filter_.run(rec(READ, target_mask=15, read_flag=2))
            draw = Generator(seed).zero_to_one()
            assert filter_.flags(2, 4) == np.searchsorted(cumulative, draw)


def test_a_read_projects_and_normalises(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for mask in range(16):
            state = random_state(rng, QUBITS)
            filter_.load(state)
            filter_.run(rec(READ, target_mask=mask, read_flag=2))
            flags = iter(f"{filter_.flags(2, 4):04b}"[::-1])
            value = sum(1 << q for q in range(QUBITS) if mask >> q & 1 and next(flags) == "1")
            kept = np.where((np.arange(16) & mask) == value, state, 0)
            expected = kept / np.linalg.norm(kept)
            np.testing.assert_allclose(filter_.state(QUBITS), expected, rtol=0, atol=1e-12)


def test_a_basis_state_is_read_without_a_trace(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for index in range(16):
            state = basis(QUBITS, index) * 1j
            filter_.load(state)
            filter_.run(rec(READ, target_mask=15, read_flag=40))
            assert filter_.flags(40, 4) == index
            assert_same_bits(filter_.state(QUBITS), state)


@pytest.mark.parametrize(
    ("read_flag", "stored"),
    [
        (5, {5: 1, 6: 0, 7: 1}),
        (-5, {-5: 1, -4: 0, -3: 1}),
        (1, {2: 0, 3: 1}),
        (-1, {}),
        (-2, {-2: 1}),
        (-3, {-3: 1, -2: 0}),
        (0, {}),
        (100_000_005, {5: 1, 6: 0, 7: 1}),
    ],
)
def test_flags_run_over_the_measured_qubits(
    engine: ModuleType, setting: Setting, read_flag: int, stored: dict[int, int]
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        # All flags from 2 on start at 1, so that a stored 0 shows as well.
        filter_.run(*(rec(FLAG_NAND, read_flag=flag) for flag in range(2, 16)))
        filter_.load(basis(QUBITS, 0b1010))
        filter_.run(rec(READ, target_mask=0b1110, read_flag=read_flag))
        expected = dict.fromkeys(range(2, 16), 1)
        for flag, value in stored.items():
            place = abs(flag) % 100_000_000
            expected[place] = value if flag > 0 else 1 - value
        word = filter_.flags(2, 14)
        assert {flag: word >> (flag - 2) & 1 for flag in range(2, 16)} == expected


def test_a_false_condition_reads_nothing(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.run(rec(H, target_mask=15))
        state = filter_.state(QUBITS)
        never = rec(READ, target_mask=15, read_flag=2, cond_flag=-1)
        write = rec(WRITE, target_mask=15, cond_mask=3, read_flag=2, cond_flag=-1)
        clear = rec(CLEAR, target_mask=3, cond_flag=-9)
        assert draws_used(filter_, never, write, clear) == 0
        assert filter_.flags(2, 20) == 0
        assert_same_bits(filter_.state(QUBITS), state)


def test_an_empty_read_draws_and_normalises(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(basis(QUBITS, 3) * 2)
        assert draws_used(filter_, rec(READ, target_mask=0xF0, read_flag=2)) == 1
        assert filter_.flags(2, 20) == 0
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 3))


def test_how_many_draws_a_record_takes(engine: ModuleType, setting: Setting) -> None:
    whole, part = rec(WRITE, target_mask=15, cond_mask=6), rec(WRITE, target_mask=7, cond_mask=6)
    with open_dense(engine, QUBITS, setting) as filter_:
        assert draws_used(filter_, rec(READ, target_mask=15)) == 1
        assert draws_used(filter_, whole) == 0
        assert draws_used(filter_, part) == 1
        assert draws_used(filter_, rec(CLEAR, target_mask=15), rec(CLEAR, target_mask=1)) == 1
        assert draws_used(filter_, rec(PPM, target_mask=1), rec(PPM, cond_mask=3)) == 2
        assert draws_used(filter_, rec(FREE, target_mask=1)) == 1


def test_a_read_of_nothing_left_gives_the_highest_term(
    engine: ModuleType, setting: Setting
) -> None:
    zeros = vector([(0.0, 0.0)] * 16)
    with open_dense(engine, QUBITS, setting) as filter_:
        for state in (zeros, -zeros):
            filter_.load(state)
            filter_.run(rec(READ, target_mask=0b1010, read_flag=2))
            assert filter_.flags(2, 2) == 3
            np.testing.assert_array_equal(filter_.state(QUBITS), zeros)


def test_a_read_of_no_numbers_gives_the_highest_term(engine: ModuleType, setting: Setting) -> None:
    state = np.full(16, np.nan, dtype=np.complex128)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(state)
        filter_.run(rec(READ, target_mask=0b1010, read_flag=2))
        assert filter_.flags(2, 2) == 3
        kept = ~np.isnan(filter_.state(QUBITS))
        np.testing.assert_array_equal(kept, np.arange(16) & 0b1010 != 0b1010)


def test_a_whole_write_is_exact_and_ignores_its_flag(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.run(rec(H, target_mask=15))
        for value in range(16):
            filter_.run(rec(WRITE, target_mask=0xFF, cond_mask=value, read_flag=2))
            assert_same_bits(filter_.state(QUBITS), basis(QUBITS, value))
        assert filter_.flags(2, 20) == 0
        filter_.run(rec(CLEAR, target_mask=15, read_flag=2, cond_mask=15))
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 0))


def test_a_partial_write_measures_and_flips(engine: ModuleType, setting: Setting) -> None:
    bell = np.zeros(16, dtype=np.complex128)
    bell[[0b0000, 0b1001]] = 0.6, 0.8
    seen = set()
    with open_dense(engine, QUBITS, setting) as filter_:
        for seed in range(20):
            engine.random_seed(0, seed)
            filter_.load(bell)
            # Bits of the value outside the targets are ignored.
            filter_.run(rec(WRITE, target_mask=0b0001, cond_mask=0b0111, read_flag=2))
            outcome = filter_.flags(2, 1)  # the measured bit, not the written one
            seen.add(outcome)
            expected = basis(QUBITS, 0b1001 if outcome else 0b0001)
            np.testing.assert_allclose(filter_.state(QUBITS), expected, rtol=0, atol=1e-12)
    assert seen == {0, 1}


def test_a_partial_clear_stores_no_flag(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.run(rec(X, target_mask=15), rec(CLEAR, target_mask=3, read_flag=2))
        assert filter_.flags(2, 20) == 0
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 12))


@pytest.mark.parametrize("value", [16, 31, 2**32, 2**64 - 1])
def test_a_whole_write_of_a_value_above_the_register(
    engine: ModuleType, setting: Setting, value: int
) -> None:
    text = f"Error: qc.write() value {value} lies outside the register of 4 qubits."
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.run(rec(H, target_mask=15))
        state = filter_.state(QUBITS)
        filter_.fails(text, rec(WRITE, target_mask=15, cond_mask=value))
        assert_same_bits(filter_.state(QUBITS), state)
        filter_.run(rec(WRITE, target_mask=15, cond_mask=value, cond_flag=-1))
        filter_.run(rec(WRITE, target_mask=7, cond_mask=value | 7))


def test_a_write_on_a_register_of_no_qubits(engine: ModuleType) -> None:
    with open_dense(engine, 1) as filter_:
        filter_.run(reset(0), rec(WRITE, target_mask=1), rec(READ, target_mask=1, read_flag=2))
        text = "Error: qc.write() value 1 lies outside the register of 0 qubits."
        filter_.fails(text, rec(WRITE, cond_mask=1))
        assert_same_bits(filter_.state(0), basis(0, 0))


def test_the_same_seed_gives_the_same_outcomes(engine: ModuleType, setting: Setting) -> None:
    outcomes = []
    for seed in (0, 0, 2**32 - 1, 2**32 - 1):
        with open_dense(engine, QUBITS, setting) as filter_:
            engine.random_seed(99, seed)
            filter_.run(*(part for k in range(30) for part in flipped_coin(k + 2)))
            outcomes.append(filter_.flags(2, 30))
    assert outcomes[0] == outcomes[1] != outcomes[2] == outcomes[3]


def flipped_coin(flag: int) -> tuple[np.ndarray, np.ndarray]:
    return rec(H, target_mask=15), rec(READ, target_mask=15 & flag or 1, read_flag=flag)


def test_outcomes_condition_later_gates(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for seed in range(10):
            engine.random_seed(0, seed)
            filter_.run(reset(QUBITS), rec(H, target_mask=8))
            filter_.run(rec(READ, target_mask=8, read_flag=3))
            outcome = filter_.flags(3, 1)
            filter_.run(rec(X, target_mask=1, cond_flag=3), rec(X, target_mask=2, cond_flag=-3))
            index = 8 + 1 if outcome else 2
            np.testing.assert_allclose(abs(filter_.state(QUBITS)), basis(QUBITS, index).real)


@pytest.mark.parametrize("low", [READ, WRITE, CLEAR])
def test_no_register(engine: ModuleType, low: int) -> None:
    with open_dense(engine) as filter_:
        filter_.fails(NOT_ALLOCATED, rec(low, target_mask=1, cond_mask=99, cond_flag=-1))


def test_probabilities_of_a_read(engine: ModuleType, rng: random.Random, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        state = random_state(rng, QUBITS)
        filter_.load(state)
        for mask in range(1, 16):
            value = rng.getrandbits(QUBITS)
            got = filter_.call("peek_read_probability", value, mask, 0.0)
            assert abs(got - full.probability_of(state, value, mask)) < 1e-12
