"""Records of the sparse filter that measure: how they sample, and what a read leaves."""

import math
from types import ModuleType

import numpy as np
import pytest

from models.opcodes import CLEAR, FLAG_NAND, FREE, READ, WRITE, H, X
from models.sparse import NO_MATCH
from models.wire import WORD
from support.dense import array, basis
from support.driver import rec
from support.sparse import assert_same_amplitudes, open_sparse
from support.sparse_draws import (
    QUARTERS,
    SEEDS,
    draws,
    next_read_is,
    prepared,
    quarter,
    seeded_quarters,
)

# Sampling.


@SEEDS
def test_a_read_takes_the_first_term_that_reaches_the_draw(engine: ModuleType, seed: int) -> None:
    index = quarter(*draws(seed))
    with seeded_quarters(engine, seed) as filter_:
        filter_.run(rec(READ, target_mask=3, read_flag=5))
        assert filter_.flags(5, 2) == index
        expected = np.zeros(4) + 0j
        expected[index] = 2 * QUARTERS[index]
        np.testing.assert_array_equal(filter_.state(2), expected)
        assert filter_.num_terms() == 4


def amplitude_of(probability: float) -> complex:
    """Parts whose squares sum to exactly this double."""
    for step in range(1, 1000):
        im = step / 4096
        near = math.sqrt(probability - im * im)
        for re in (near, math.nextafter(near, 0.0), math.nextafter(near, 1.0)):
            if re * re + im * im == probability:
                return complex(re, im)
    raise AssertionError(f"nothing found for {probability}")


def test_a_draw_that_is_met_exactly_is_reached(engine: ModuleType) -> None:
    (draw,) = draws(0)
    assert draw > 0.5
    with open_sparse(engine, 1) as filter_:
        filter_.load(array(amplitude_of(draw), 1.0))
        engine.random_seed(0, 0)
        filter_.run(rec(READ, target_mask=1, read_flag=-2))
        assert filter_.flag(-2) == 0
        filter_.load(array(amplitude_of(math.nextafter(draw, 0.0)), 1.0))
        engine.random_seed(0, 0)
        filter_.run(rec(READ, target_mask=1, read_flag=-2))
        assert filter_.flag(-2) == 1


@SEEDS
def test_sampling_walks_the_list_in_its_order(engine: ModuleType, seed: int) -> None:
    place = quarter(*draws(seed))
    with seeded_quarters(engine, seed) as filter_:
        filter_.run(rec(X, target_mask=3), rec(READ, target_mask=3, read_flag=5))
        assert filter_.flags(5, 2) == 3 - place


def test_the_seeds_reach_every_term() -> None:
    assert {quarter(*draws(seed)) for seed in range(10)} == {0, 1, 2, 3}


@SEEDS
def test_a_read_of_one_qubit_keeps_the_others(engine: ModuleType, seed: int) -> None:
    bit = quarter(*draws(seed)) >> 1
    with seeded_quarters(engine, seed) as filter_:
        filter_.run(rec(READ, target_mask=2, read_flag=5))
        assert filter_.flag(5) == bit
        expected = np.zeros(4) + 0j
        expected[2 * bit : 2 * bit + 2] = QUARTERS[2 * bit : 2 * bit + 2] * (1.0 / math.sqrt(0.5))
        np.testing.assert_array_equal(filter_.state(2), expected)


@pytest.mark.parametrize(
    ("indices", "targets", "measured"),
    [
        # The count of terms less 1 is taken for a key, whose lowest bit is no qubit.
        ((0,), 0b111, 0),
        ((0, 1), 0b111, 0),
        ((0, 1, 2), 0b111, 1),
        ((0, 1, 2), 0b110, 0),
        ((0, 1, 3, 5), 0b111, 1),
        ((0, 1, 2, 3, 4), 0b111, 2),
        ((0, 1, 2, 3, 4, 5), 0b010, 2),
        ((0, 1, 2, 3, 4, 5, 6, 7), 0b111, 3),
        ((0, 1, 2, 3, 4, 5, 6, 7), 0b101, 1),
    ],
)
def test_a_draw_that_no_term_reaches_takes_the_count_for_a_key(
    engine: ModuleType, indices: tuple[int, ...], targets: int, measured: int
) -> None:
    with open_sparse(engine, 3) as filter_:
        state = np.zeros(8) + 0j
        state[list(indices)] = 2.0**-20
        filter_.load(state)
        engine.random_seed(0, 3)
        filter_.run(rec(READ, target_mask=targets, read_flag=8))
        kept = [index for index in indices if index & targets == measured]
        assert [index for index, _ in filter_.ranked()] == kept
        assert filter_.call("normalize") == pytest.approx(1.0)
        shifts = [place for place in range(3) if targets >> place & 1]
        packed = sum((measured >> place & 1) << k for k, place in enumerate(shifts))
        assert filter_.flags(8, 3) == packed


def test_a_sampled_value_that_no_term_has_fails_and_leaves_zeros(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.run(rec(FLAG_NAND, read_flag=5))
        filter_.load(array(0, 2.0**-20, 0, 2.0**-20))  # two terms, so the sampled value is 0
        engine.random_seed(0, 3)
        filter_.fails(NO_MATCH, rec(READ, target_mask=1, read_flag=5), rec(X, target_mask=1))
        assert filter_.num_terms() == 2
        assert filter_.ranked() == []
        assert filter_.flag(5) == 1  # not stored over


def test_a_probability_that_is_no_number_reaches_no_draw(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(array(math.nan, 0.5, 0.5, 0.5))  # four terms, so the sampled key is 3
        filter_.run(rec(READ, target_mask=3, read_flag=5))
        assert filter_.flags(5, 2) == 1
        np.testing.assert_array_equal(filter_.state(2), [0, 1, 0, 0])


@pytest.mark.parametrize("low", [READ, WRITE, CLEAR, FREE])
def test_without_terms_a_draw_is_taken_and_the_projection_fails(
    engine: ModuleType, low: int
) -> None:
    first, second = draws(11, 2)
    assert math.ceil(first * 16) != math.ceil(second * 16)
    with open_sparse(engine, 2) as filter_:
        filter_.load(np.zeros(4) + 0j)
        engine.random_seed(0, 11)
        filter_.fails(NO_MATCH, rec(low, target_mask=1, target_offset=5, cond_mask=1))
        assert filter_.flag(5) == 0
        assert next_read_is(engine, second)


# Reading.


def test_a_read_of_the_reset_state_stores_0(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.run(rec(READ, target_mask=1, read_flag=3))
        assert (filter_.flag(3), filter_.flag(-3)) == (0, 1)  # the inverse of a stored 0
        assert filter_.num_terms() == 1
        assert_same_amplitudes(filter_.state(2), basis(2, 0))


def test_after_a_hadamard_and_a_read_a_zero_remains(engine: ModuleType) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.run(rec(H, target_mask=1), rec(READ, target_mask=1, read_flag=3))
        assert filter_.num_terms() == 2
        assert filter_.ranked() == [(filter_.flag(3), 1.0)]


@pytest.mark.parametrize(
    ("read_flag", "stored"),
    [
        # Qubits 0, 2 and 3 are 1 and qubit 1 is 0. Flags by number: those that change.
        (5, {5: 1, 6: 0, 7: 1, 8: 1}),
        (1, {2: 0, 3: 1, 4: 1}),
        (0, {}),
        (-1, {2: 1}),
        (-2, {2: 0}),
        (-3, {3: 0, 2: 1}),
        (-4, {4: 0, 3: 1, 2: 0}),
        (-9, {9: 0, 8: 1, 7: 0, 6: 0}),
        (100_000_005, {5: 1, 6: 0, 7: 1, 8: 1}),
    ],
)
def test_flags_are_stored_upwards_from_the_lowest_qubit(
    engine: ModuleType, read_flag: int, stored: dict[int, int]
) -> None:
    for background in (0, 1):
        with open_sparse(engine, 4) as filter_:
            # NAND of 1 with the other value: its inverse.
            fill = [
                rec(FLAG_NAND, target_mask=1, cond_mask=1 - background, read_flag=flag)
                for flag in range(2, 12)
            ]
            filter_.run(*fill, rec(X, target_mask=0b1101))
            filter_.run(rec(READ, target_mask=15, read_flag=read_flag))
            got = {flag: filter_.flag(flag) for flag in range(2, 12)}
            assert got == {flag: stored.get(flag, background) for flag in range(2, 12)}


def test_only_masked_qubits_take_a_flag(engine: ModuleType) -> None:
    with open_sparse(engine, 4) as filter_:
        prepared(filter_, 4, 0b1001)
        filter_.run(rec(READ, target_mask=0b1101 | 1 << 40 | 1 << 63, read_flag=10))
        assert filter_.flags(10, 8) == 0b101


@pytest.mark.parametrize("targets", [0, 1 << 2, 1 << 63])
def test_a_read_of_no_qubits_draws_nothing(engine: ModuleType, targets: int) -> None:
    with seeded_quarters(engine, 5) as filter_:
        filter_.run(rec(READ, target_mask=targets, read_flag=2))
        assert_same_amplitudes(filter_.state(2), QUARTERS)
        assert filter_.flag(-2) == 0
        assert next_read_is(engine, *draws(5))


def test_a_read_on_the_widest_register(engine: ModuleType) -> None:
    with open_sparse(engine, 63) as filter_:
        filter_.run(rec(X, target_mask=1 << 62 | 1), rec(READ, target_mask=WORD, read_flag=64))
        ones = [flag for flag in range(60, 130) if filter_.flag(flag)]
        assert ones == [64, 126]
        assert filter_.ranked() == [(1 << 62 | 1, 1.0)]
