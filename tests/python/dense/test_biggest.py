"""The largest terms of a state, and single amplitudes."""

import random
from types import ModuleType
from typing import Any

import numpy as np
import pytest

from models.arithmetic import Generator
from models.dense import DenseModel
from models.opcodes import X
from support import biggest_arrays
from support.dense import (
    DenseFilter,
    Setting,
    Vector,
    amplitudes,
    assert_same_bits,
    basis,
    holed_state,
    open_dense,
    reset_record,
    settings,
    vector,
)
from support.driver import rec

QUBITS = 4


@pytest.fixture(params=settings([1, 3, 4]), ids=str)
def setting(request: pytest.FixtureRequest) -> Setting:
    chosen: Setting = request.param
    return chosen


def biggest(filter_: DenseFilter, count: int) -> tuple[list[int], Vector]:
    """The indices and amplitudes of the largest terms. The arrays are filled beforehand."""
    indices: np.ndarray[Any, Any] = np.full(count, 99, dtype=np.uint64)
    values = np.full(count, 99j)
    filter_.call("peek_n_biggest_terms", count, indices, values)
    return indices.tolist(), values


@pytest.mark.parametrize("count", [1, 2, 5, 16, 20])
def test_the_order_is_the_models(
    engine: ModuleType, rng: random.Random, setting: Setting, count: int
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for _ in range(10):
            state = holed_state(rng, QUBITS)
            # Equal probabilities from different amplitudes, and one repeated amplitude.
            state[rng.sample(range(16), 4)] = 0.25, -0.25, 0.25j, 0.25
            model = DenseModel(Generator(0))
            model.run([reset_record(QUBITS)])
            model.load(amplitudes(state))
            assert model.block
            expected = model.block.biggest(count)
            filter_.load(state)
            indices, values = biggest(filter_, count)
            assert indices == expected[0]
            assert_same_bits(values, vector(expected[1]))


def test_among_equals_the_first_is_first(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(np.full(16, 0.25 + 0j))
        assert biggest(filter_, 5)[0] == [0, 1, 2, 3, 4]
        filter_.load(np.arange(16) // 4 * (1 + 0j))
        assert biggest(filter_, 6)[0] == [12, 13, 14, 15, 8, 9]


def test_places_not_filled_are_zero(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(0.6 * basis(QUBITS, 9) + 0.8j * basis(QUBITS, 2))
        indices, values = biggest(filter_, 5)
        assert indices == [2, 9, 0, 0, 0]
        np.testing.assert_array_equal(values, [0.8j, 0.6, 0, 0, 0])
        filter_.load(vector([(-0.0, 0.0)] * 16))
        indices, values = biggest(filter_, 3)
        assert indices == [0, 0, 0]
        assert_same_bits(values, vector([(0.0, 0.0)] * 3))


def test_a_probability_that_vanishes_is_not_listed(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(basis(QUBITS, 3) + 1e-200 * basis(QUBITS, 12))
        assert biggest(filter_, 3)[0] == [3, 0, 0]


def test_indices_hold_when_blocks_were_exchanged(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(np.arange(16) * (1 + 0j))
        filter_.run(rec(X, target_mask=0b1100))
        assert biggest(filter_, 3)[0] == [15 ^ 12, 14 ^ 12, 13 ^ 12]


def test_only_the_first_entries_are_written(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        indices: np.ndarray[Any, Any] = np.full(5, 7, dtype=np.int64)
        values = np.full(6, 7j)
        filter_.call("peek_n_biggest_terms", 2, indices, values)
        assert indices.tolist() == [0, 0, 7, 7, 7]
        np.testing.assert_array_equal(values, [1, 0, 7j, 7j, 7j, 7j])


def test_a_count_of_0_touches_nothing(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        biggest_arrays.assert_none_touch_nothing(filter_)


def test_single_values(engine: ModuleType, rng: random.Random, setting: Setting) -> None:
    state = holed_state(rng, QUBITS)
    state[:4] = 0  # at some block sizes, a block of zeros
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(state)
        filter_.run(rec(X, target_mask=0b1000))
        got = np.full(16, 9j)
        for index in range(16):
            filter_.call("peek_value", index, got[index : index + 1])
        assert_same_bits(got, np.roll(state, 8))


def test_a_value_goes_to_the_first_place_alone(engine: ModuleType) -> None:
    with open_dense(engine, 2) as filter_:
        dest = np.full(3, 9j)
        filter_.call("peek_value", 0, dest)
        np.testing.assert_array_equal(dest, [1, 9j, 9j])
