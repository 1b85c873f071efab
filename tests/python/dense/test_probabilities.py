"""Probabilities, postselection, norms and random states."""

import math
import random
from types import ModuleType

import numpy as np
import pytest

from models import matrices as full
from models.arithmetic import Generator
from models.dense import NO_MATCH
from models.opcodes import CLEAR, READ, H, X
from support.dense import (
    Setting,
    assert_same_bits,
    basis,
    holed_state,
    model_of,
    open_dense,
    random_state,
    reset,
    settings,
    vector,
)
from support.driver import rec

QUBITS = 4
ONE_BLOCK = Setting(QUBITS, 0, 1)
EMPTY_PEEK = "qc.peek_read_probability() must specify at least one qubit to measure."
EMPTY_POSTSELECT = "qc.postselect() must specify at least one qubit to postselect."


@pytest.fixture(params=settings([1, 3, 4]), ids=str)
def setting(request: pytest.FixtureRequest) -> Setting:
    chosen: Setting = request.param
    return chosen


def test_an_empty_mask_is_refused_before_the_register_is_asked(engine: ModuleType) -> None:
    with open_dense(engine) as filter_:
        for num_qubits in (None, 2):
            if num_qubits is not None:
                filter_.run(reset(num_qubits))
            filter_.call_fails(EMPTY_PEEK, "peek_read_probability", 1, 0, 0.0)
            filter_.call_fails(EMPTY_POSTSELECT, "postselect", 1, 0)


@pytest.mark.parametrize("limit", [0.0, -1.0, 1e-300, 0.1, 0.5, 0.9999, 1.0, 50.0])
def test_probabilities_are_summed_as_the_model_sums(
    engine: ModuleType, rng: random.Random, limit: float
) -> None:
    with open_dense(engine, QUBITS, ONE_BLOCK) as filter_:
        for _ in range(40):
            state = rng.choice((random_state, holed_state))(rng, QUBITS)
            value, mask = rng.getrandbits(32), rng.getrandbits(QUBITS) | rng.choice((1, 16))
            filter_.load(state)
            got = filter_.call("peek_read_probability", value, mask, limit)
            assert got == model_of(state).peek_probability(value, mask, limit), (value, mask)


def test_a_limit_stops_each_block_and_not_the_total(engine: ModuleType) -> None:
    state = np.full(16, 0.5 + 0j)
    with open_dense(engine, QUBITS, Setting(2)) as filter_:
        filter_.load(state)
        # Four blocks of four terms of 0.25; each stops at its second.
        assert filter_.call("peek_read_probability", 0, 1 << 31, 0.3) == 4 * 0.5
        assert filter_.call("peek_read_probability", 0, 0b0001, 0.3) == 4 * 0.5
        assert filter_.call("peek_read_probability", 0, 0b1000, 0.2) == 2 * 0.25
        assert filter_.call("peek_read_probability", 0, 0b1000, 9.0) == 2.0
        filter_.run(rec(CLEAR, target_mask=0xF))
        assert filter_.call("peek_read_probability", 0, 0b1000, 0.2) == 1.0


def test_a_peek_leaves_the_state_and_the_generator(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(state)
        engine.random_seed(0, 5)
        total = sum(filter_.call("peek_read_probability", value, 15, 0.0) for value in range(16))
        assert math.isclose(total, 1.0)
        assert_same_bits(filter_.state(QUBITS), state)
        filter_.run(rec(READ, target_mask=15, read_flag=2))
        drawn = np.searchsorted(np.cumsum(abs(state) ** 2), Generator(5).zero_to_one())
        assert filter_.flags(2, 4) == drawn


def test_postselection_projects(engine: ModuleType, rng: random.Random, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for mask in range(1, 16):
            state, value = random_state(rng, QUBITS), rng.getrandbits(QUBITS)
            filter_.load(state)
            # Bits of the value outside the mask are ignored.
            filter_.call("postselect", value | 1 << 31, mask | 1 << 20)
            kept = np.where((np.arange(16) ^ value) & mask == 0, state, 0)
            expected = kept / np.linalg.norm(kept)
            np.testing.assert_allclose(filter_.state(QUBITS), expected, rtol=0, atol=1e-12)


def test_postselection_is_bit_for_bit_the_models(engine: ModuleType, rng: random.Random) -> None:
    with open_dense(engine, QUBITS, ONE_BLOCK) as filter_:
        for _ in range(30):
            state, value, mask = random_state(rng, QUBITS), rng.getrandbits(4), rng.randint(1, 15)
            model = model_of(state)
            model.postselect(value, mask)
            filter_.load(state)
            filter_.call("postselect", value, mask)
            assert_same_bits(filter_.state(QUBITS), vector(model.terms))


def test_postselection_on_what_cannot_be(engine: ModuleType, setting: Setting) -> None:
    zeros = vector([(0.0, 0.0)] * 16)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.run(rec(H, target_mask=0b0011))
        filter_.call_fails(NO_MATCH, "postselect", 0b1000, 0b1000)
        assert_same_bits(filter_.state(QUBITS), zeros)
        filter_.call_fails(NO_MATCH, "postselect", 0, 1)
        filter_.run(rec(H, target_mask=15), rec(X, target_mask=8))
        np.testing.assert_array_equal(filter_.state(QUBITS), zeros)
        filter_.run(reset(QUBITS))
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 0))


def test_postselection_outside_the_register_keeps_all(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.call("postselect", 0xFFFFFFFF, 0xFFFFFFF0)
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 0))


def test_normalize_returns_the_old_norm(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(3 * state)
        assert math.isclose(filter_.call("normalize"), 9.0)
        np.testing.assert_allclose(filter_.state(QUBITS), state, rtol=0, atol=1e-12)
        filter_.load(basis(QUBITS, 9) * 1j)
        assert filter_.call("normalize") == 1.0
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 9) * 1j)


def test_normalize_of_nothing_leaves_it(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for state in (vector([(0.0, 0.0)] * 16), vector([(-0.0, 0.0)] * 16)):
            filter_.load(state)
            assert filter_.call("normalize") == 0.0
            assert_same_bits(filter_.state(QUBITS), state)


def test_normalize_keeps_zeros_and_passes_on_nan(engine: ModuleType, setting: Setting) -> None:
    state = basis(QUBITS, 2) * 4
    state[5] = complex(-0.0, 0.0)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(state)
        assert filter_.call("normalize") == 16.0
        assert_same_bits(filter_.state(QUBITS), state * 0.25)
        state[3] = np.nan
        filter_.load(state)
        assert math.isnan(filter_.call("normalize"))
        result = filter_.state(QUBITS)
        assert_same_bits(result[6:], state[6:])
        assert np.isnan(result[[2, 3]]).all()


def test_normalize_is_bit_for_bit_the_models(engine: ModuleType, rng: random.Random) -> None:
    with open_dense(engine, QUBITS, ONE_BLOCK) as filter_:
        for _ in range(30):
            state = holed_state(rng, QUBITS)
            model = model_of(state)
            filter_.load(state)
            assert filter_.call("normalize") == model.normalize()
            assert_same_bits(filter_.state(QUBITS), vector(model.terms))


@pytest.mark.parametrize("seed", [0, 1, 2**32 - 1])
@pytest.mark.parametrize("is_async", [0, 1])
def test_a_random_state_follows_the_seed(engine: ModuleType, seed: int, is_async: int) -> None:
    model = model_of(basis(QUBITS, 0), seed)
    model.set_random()
    with open_dense(engine, QUBITS, Setting(QUBITS, 0, is_async)) as filter_:
        engine.random_seed(0, seed)
        filter_.call("set_random")
        assert_same_bits(filter_.state(QUBITS), vector(model.terms))


@pytest.mark.parametrize("block_size", [1, 2, 3])
def test_a_random_state_without_threads_is_the_same_at_each_block_size(
    engine: ModuleType, block_size: int
) -> None:
    model = model_of(basis(QUBITS, 0), 11)
    model.set_random()
    with open_dense(engine, QUBITS, Setting(block_size, 0, 0)) as filter_:
        engine.random_seed(0, 11)
        filter_.call("set_random")
        np.testing.assert_allclose(filter_.state(QUBITS), vector(model.terms), rtol=0, atol=1e-12)


def test_a_random_state_is_normalised(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for prepare in (basis(QUBITS, 3), vector([(0.0, 0.0)] * 16)):
            filter_.load(prepare)
            filter_.call("set_random")
            state = filter_.state(QUBITS)
            assert math.isclose(np.linalg.norm(state), 1.0)
            assert np.count_nonzero(state) == 16


def test_randomized_registers(engine: ModuleType) -> None:
    with open_dense(engine) as filter_:
        filter_.set(randomized=1, is_async=0)
        model = model_of(basis(QUBITS, 0), 4)
        engine.random_seed(0, 4)
        for _ in range(3):  # the first reset creates the register, the others reuse it
            model.set_random()
            filter_.run(reset(QUBITS))
            assert_same_bits(filter_.state(QUBITS), vector(model.terms))
        filter_.set()
        filter_.run(reset(QUBITS))
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 0))


def test_probability_of_nothing(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(vector([(0.0, 0.0)] * 16))
        assert filter_.call("peek_read_probability", 0, 15, 0.0) == 0.0
        assert full.probability_of(vector([(0.0, 0.0)] * 16), 0, 15) == 0.0
