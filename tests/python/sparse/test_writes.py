"""Records of the sparse filter that set qubits: write, clear and free."""

import math
from types import ModuleType

import numpy as np
import pytest

from models.opcodes import CLEAR, FLAG_NAND, FREE, WRITE, X
from models.wire import WORD
from support.dense import array, basis, reset
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


@pytest.mark.parametrize(
    ("targets", "value", "expected"),
    [
        (0b011, 0b010, 0b110),
        (0b011, 0b011, 0b111),
        (0b011, 0b000, 0b100),
        (0b110, 0b000, 0b001),
        (0b001, 0b110, 0b100),  # the value applies to the targets only
        (0b010, 2**64 - 1, 0b111),
        (0b011 | 1 << 63, 0b001, 0b101),
        (0b000, 0b111, 0b101),
        (1 << 3, 1 << 3, 0b101),
    ],
)
def test_a_write_flips_what_it_measured_to_the_value(
    engine: ModuleType, targets: int, value: int, expected: int
) -> None:
    with open_sparse(engine) as filter_:
        prepared(filter_, 3, 0b101)
        filter_.run(rec(WRITE, target_mask=targets, cond_mask=value))
        assert filter_.ranked() == [(expected, 1.0)]


@pytest.mark.parametrize(
    ("target_offset", "flags"),
    [
        (10, {10: 1, 11: 0, 12: 0}),
        (64, {64: 1, 65: 0}),
        (2**64 - 12, {12: 0, 11: 1, 10: 0}),  # the word is signed: from -12 upwards
        (1, {2: 0, 3: 0}),
        (0, {2: 0, 10: 0}),
    ],
)
def test_a_write_stores_the_measured_bits_from_its_offset_word(
    engine: ModuleType, target_offset: int, flags: dict[int, int]
) -> None:
    with open_sparse(engine) as filter_:
        prepared(filter_, 3, 0b101)
        filter_.run(
            rec(WRITE, target_mask=3, cond_mask=2, target_offset=target_offset, read_flag=30)
        )
        assert {flag: filter_.flag(flag) for flag in flags} == flags
        assert filter_.flags(20, 32) == 0  # nothing is stored at `read_flag`
        assert filter_.ranked() == [(0b110, 1.0)]


@SEEDS
def test_a_write_of_a_superposed_qubit(engine: ModuleType, seed: int) -> None:
    measured = quarter(*draws(seed)) & 1
    with seeded_quarters(engine, seed) as filter_:
        filter_.run(rec(WRITE, target_mask=1, cond_mask=1, target_offset=7))
        assert filter_.flag(7) == measured
        # The projected terms move to where qubit 0 is 1 and the zeros to where they were.
        expected = np.zeros(4) + 0j
        expected[[1, 3]] = QUARTERS[[measured, measured + 2]] * (1.0 / math.sqrt(0.5))
        np.testing.assert_array_equal(filter_.state(2), expected)
        assert filter_.num_terms() == 4


@pytest.mark.parametrize("targets", [0b11, 0b111, WORD])
@pytest.mark.parametrize("value", [0b00, 0b01, 0b10, 0b11, 0b101, WORD])
def test_a_write_of_the_whole_register_replaces_the_state(
    engine: ModuleType, targets: int, value: int
) -> None:
    with open_sparse(engine, 2) as filter_:
        for state in (QUARTERS, 3 * QUARTERS, array(math.nan), array(0), array(*range(16))):
            filter_.load(state)
            engine.random_seed(0, 9)
            filter_.run(
                rec(WRITE, target_mask=targets, cond_mask=value, target_offset=5, read_flag=6)
            )
            assert filter_.num_terms() == 1
            assert_same_amplitudes(filter_.state(2), basis(2, value & 3))
            assert (filter_.flags(5, 4), filter_.flag(-5)) == (0, 0)
            assert next_read_is(engine, *draws(9))


@pytest.mark.parametrize("low", [WRITE, CLEAR, FREE])
def test_a_register_of_no_qubits_is_replaced_whole(engine: ModuleType, low: int) -> None:
    with open_sparse(engine) as filter_:
        assert filter_.num_terms() == 0
        filter_.run(rec(low, cond_mask=3))
        assert filter_.ranked() == [(0, 1.0)]
        filter_.run(reset(0), rec(low, target_mask=3, cond_mask=3))
        assert filter_.ranked() == [(0, 1.0)]


# Clearing and freeing.


@pytest.mark.parametrize("low", [CLEAR, FREE])
@pytest.mark.parametrize(
    ("targets", "expected"),
    [(0b001, 0b100), (0b010, 0b101), (0b110, 0b001), (0b000, 0b101), (0b1001, 0b100)],
)
def test_clear_and_free_zero_their_targets(
    engine: ModuleType, low: int, targets: int, expected: int
) -> None:
    with open_sparse(engine) as filter_:
        prepared(filter_, 3, 0b101)
        filter_.run(rec(low, target_mask=targets, cond_mask=7))
        assert filter_.ranked() == [(expected, 1.0)]


@SEEDS
@pytest.mark.parametrize("low", [CLEAR, FREE])
def test_clear_and_free_measure_and_flip_every_term(
    engine: ModuleType, low: int, seed: int
) -> None:
    measured = quarter(*draws(seed)) & 1
    with seeded_quarters(engine, seed) as filter_:
        filter_.run(rec(low, target_mask=1))
        expected = np.zeros(4) + 0j
        expected[[0, 2]] = QUARTERS[[measured, measured + 2]] * (1.0 / math.sqrt(0.5))
        np.testing.assert_array_equal(filter_.state(2), expected)
        assert filter_.num_terms() == 4


@pytest.mark.parametrize("low", [CLEAR, FREE])
@pytest.mark.parametrize("targets", [0b11, 0b111, WORD])
def test_clear_and_free_of_the_whole_register_replace_the_state(
    engine: ModuleType, low: int, targets: int
) -> None:
    with open_sparse(engine, 2) as filter_:
        for state in (QUARTERS, array(0, math.nan), array(0)):
            filter_.load(state)
            engine.random_seed(0, 9)
            filter_.run(rec(low, target_mask=targets, cond_mask=3))
            assert filter_.num_terms() == 1
            assert_same_amplitudes(filter_.state(2), basis(2, 0))
            assert next_read_is(engine, *draws(9))


def test_a_clear_stores_no_flags(engine: ModuleType) -> None:
    with open_sparse(engine) as filter_:
        filter_.run(rec(FLAG_NAND, target_mask=1, cond_mask=1, read_flag=9))
        filter_.run(reset(2), rec(X, target_mask=3))
        filter_.run(rec(CLEAR, target_mask=1, read_flag=9, target_offset=9))
        filter_.run(rec(FREE, target_mask=2, target_offset=9))
        assert filter_.ranked() == [(0, 1.0)]
        assert filter_.flags(2, 32) == 0


def test_a_free_asserts_nothing(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.call("enable_qubit_debugging", 1)
        for targets in (1, 3):
            filter_.run(rec(X, target_mask=targets), rec(FREE, target_mask=targets, cond_mask=16))
            assert filter_.ranked() == [(0, 1.0)]
        assert filter_.events() == []
