"""A register in the caller's own array."""

import gc
import random
import weakref
from types import ModuleType

import numpy as np
import pytest

from models.dense import NOT_ALLOCATED
from models.opcodes import RY, H, X, Z
from programs.dense import GATES, wild_gate
from support.dense import (
    DenseFilter,
    Setting,
    Vector,
    aligned,
    assert_same_bits,
    basis,
    open_dense,
    random_state,
    reset,
    settings,
)
from support.driver import rec

MISALIGNED = "Error: override_state_buffer() needs a buffer that begins at a multiple of 8 bytes."
TOO_SHORT = "Error: override_state_buffer() needs an array of 2 amplitudes, but was given {}."
READ_ONLY = "Error: override_state_buffer() needs an array that it may write to."
NO_POWER = "Error: override_state_buffer() buffer must be an power of 2 in length"
NO_COMPLEX = "Error: override_state_buffer() buffer must be an array of type complex128"


def over(engine: ModuleType, buffer: Vector, setting: Setting) -> DenseFilter:
    filter_ = DenseFilter(engine, setting)
    filter_.call("override_state_buffer", buffer)
    return filter_


@pytest.fixture(params=settings([1, 2, 4]), ids=str)
def setting(request: pytest.FixtureRequest) -> Setting:
    chosen: Setting = request.param
    return chosen


def test_the_array_is_the_state(engine: ModuleType, rng: random.Random, setting: Setting) -> None:
    buffer = aligned(16)
    state = random_state(rng, 4)
    buffer[:] = state
    filter_ = over(engine, buffer, setting)
    assert_same_bits(filter_.state(4), state)
    filter_.run(rec(Z, target_mask=0b1001))
    assert_same_bits(buffer, filter_.state(4))
    buffer[:] = basis(4, 5)
    assert_same_bits(filter_.state(4), basis(4, 5))
    filter_.close()
    assert_same_bits(buffer, basis(4, 5))


def test_blocks_exchange_their_places_in_the_array(engine: ModuleType) -> None:
    buffer = aligned(16)
    buffer[:] = np.arange(16)
    filter_ = over(engine, buffer, Setting(2))
    filter_.run(rec(X, target_mask=0b1000))
    np.testing.assert_array_equal(buffer, np.arange(16))  # no amplitude moves
    np.testing.assert_array_equal(filter_.state(4), np.roll(np.arange(16), 8))
    filter_.close()


def test_a_limit_does_not_count_an_array(engine: ModuleType) -> None:
    buffer = aligned(1 << 27)  # 2 GB that are never accessed
    with open_dense(engine) as filter_:
        filter_.set(max_ram_size_gb=1)
        filter_.call("override_state_buffer", buffer)
        dest = np.full(1, 7j)
        filter_.call("peek_value", (1 << 27) - 1, dest)
        assert_same_bits(dest, buffer[:1])


@pytest.mark.parametrize("block_size", range(1, 5))
@pytest.mark.parametrize("low", GATES, ids=hex)
def test_nothing_outside_the_array_is_written(
    engine: ModuleType, rng: random.Random, low: int, block_size: int
) -> None:
    whole = aligned(16 * 5)
    whole[:] = np.nan
    whole[32:48] = random_state(rng, 4)
    outside = [*range(32), *range(48, 80)]
    guards = whole[outside]
    filter_ = over(engine, whole[32:48], Setting(block_size))
    for _ in range(40):
        filter_.run_records([wild_gate(rng, low, 4)])
    assert_same_bits(whole[outside], guards)
    assert not np.isnan(whole[32:48]).any()  # and the array was not read
    filter_.close()


def test_no_parameter_touches_the_contents(engine: ModuleType, rng: random.Random) -> None:
    buffer = aligned(16)
    state = random_state(rng, 4)
    buffer[:] = state
    with open_dense(engine) as filter_:
        filter_.set(randomized=1, num_block_qubits=2)
        filter_.call("override_state_buffer", buffer)
        assert_same_bits(filter_.state(4), state)


def test_a_reset_of_the_same_shape_goes_on_in_the_array(
    engine: ModuleType, setting: Setting
) -> None:
    buffer = aligned(16)
    buffer[:] = 3
    filter_ = over(engine, buffer, setting)
    filter_.run(reset(4))
    assert_same_bits(buffer, basis(4, 0))
    filter_.run(rec(H, target_mask=15), reset(3), rec(H, target_mask=7))
    assert np.count_nonzero(buffer) == 16  # another shape uses the engine's memory
    filter_.close()


def test_one_buffer_after_another(engine: ModuleType, setting: Setting) -> None:
    first, second = aligned(16), aligned(16)
    first[:], second[:] = basis(4, 1), basis(4, 2)
    filter_ = over(engine, first, setting)
    filter_.call("override_state_buffer", second)
    filter_.run(rec(Z, target_mask=15))
    assert_same_bits(first, basis(4, 1))
    np.testing.assert_array_equal(second, -basis(4, 2))
    filter_.call("override_state_buffer", first)
    filter_.call("override_state_buffer", first)
    assert_same_bits(filter_.state(4), basis(4, 1))
    filter_.close()


def test_sizes(engine: ModuleType) -> None:
    for num_qubits in (1, 2, 3, 8, 13):
        buffer = aligned(1 << num_qubits)
        buffer[0] = 1
        filter_ = over(engine, buffer, Setting())
        filter_.run(rec(X, target_mask=1 << (num_qubits - 1)))
        assert_same_bits(filter_.state(num_qubits), basis(num_qubits, 1 << (num_qubits - 1)))
        filter_.close()


@pytest.mark.parametrize("length", [0, 1])
def test_too_short_for_one_qubit(engine: ModuleType, length: int) -> None:
    with open_dense(engine, 2) as filter_:
        buffer = aligned(2)[:length]
        filter_.call_fails(TOO_SHORT.format(length), "override_state_buffer", buffer)
        assert_same_bits(filter_.state(2), basis(2, 0))


@pytest.mark.parametrize("beyond", [1, 4, 12, 31])
@pytest.mark.parametrize("length", [2, 16])
def test_not_aligned_by_numpy(engine: ModuleType, length: int, beyond: int) -> None:
    with open_dense(engine, 2) as filter_:
        buffer = aligned(length, beyond)
        assert not buffer.flags.aligned
        filter_.call_fails(MISALIGNED, "override_state_buffer", buffer)
        assert_same_bits(filter_.state(2), basis(2, 0))
        assert not buffer.any()


def test_read_only(engine: ModuleType) -> None:
    with open_dense(engine, 2) as filter_:
        buffer = aligned(4)
        buffer.setflags(write=False)
        filter_.call_fails(READ_ONLY, "override_state_buffer", buffer)
        assert_same_bits(filter_.state(2), basis(2, 0))


@pytest.mark.parametrize(
    ("buffer", "text"),
    [
        (aligned(3), NO_POWER),
        (aligned(8)[::2], NO_COMPLEX),
        (aligned(8)[::-1], NO_COMPLEX),
        (np.zeros(4), NO_COMPLEX),
        (np.zeros(4, dtype=np.complex64), NO_COMPLEX),
    ],
)
def test_other_arrays(engine: ModuleType, buffer: Vector, text: str) -> None:
    with open_dense(engine, 2) as filter_:
        filter_.call_fails(text, "override_state_buffer", buffer)
        assert_same_bits(filter_.state(2), basis(2, 0))


def test_rows_of_one_amplitude_are_counted_by_what_lies_there(engine: ModuleType) -> None:
    buffer = aligned(4).reshape(4, 1)
    with open_dense(engine) as filter_:
        filter_.call("override_state_buffer", buffer)
        filter_.run(reset(2))
        assert_same_bits(buffer.reshape(-1), basis(2, 0))


def test_a_buffer_that_python_dropped_stays_as_long_as_it_is_used(engine: ModuleType) -> None:
    with open_dense(engine) as filter_:
        buffer = aligned(16)
        raw = buffer
        while isinstance(raw.base, np.ndarray):
            raw = raw.base
        alive = weakref.ref(raw)
        filter_.call("override_state_buffer", buffer)
        del buffer, raw
        gc.collect()
        assert alive() is not None
        filter_.run(reset(4), rec(X, target_mask=6))
        assert_same_bits(filter_.state(4), basis(4, 6))
        other = aligned(16)
        filter_.call("override_state_buffer", other)
        gc.collect()
        assert alive() is None
    # The filter is freed, and the lent array is not.
    other[:] = 1


def test_a_deleted_filter_lets_its_buffer_go(engine: ModuleType) -> None:
    for _ in range(3):
        buffer = aligned(16)
        alive = weakref.ref(buffer)
        filter_ = over(engine, buffer, Setting(2))
        del buffer
        assert alive() is not None
        filter_.close()
        assert alive() is None


def test_a_refused_buffer_is_not_kept(engine: ModuleType) -> None:
    with open_dense(engine) as filter_:
        buffer = aligned(16, 4)
        alive = weakref.ref(buffer)
        filter_.call_fails(MISALIGNED, "override_state_buffer", buffer)
        del buffer
        gc.collect()  # drops the error's traceback, which refers to the array
        assert alive() is None
        filter_.fails(NOT_ALLOCATED, rec(X, target_mask=1))


def test_threads_work_on_the_array(engine: ModuleType, rng: random.Random) -> None:
    state = random_state(rng, 6)
    results = []
    for setting in settings([1, 3]):
        buffer = aligned(64)
        buffer[:] = state
        filter_ = over(engine, buffer, setting)
        filter_.run(rec(H, target_mask=63), rec(RY, target_mask=45, angle=20.0))
        results.append(filter_.state(6))
        filter_.close()
    for result in results:
        assert_same_bits(result, results[0])
