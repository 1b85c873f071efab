"""A lent buffer may begin at any address that NumPy calls aligned: same results, bit for bit."""

import random
from types import ModuleType

import numpy as np
import pytest

from models.opcodes import READ, X, Z
from programs.dense import GATES, loose_gate
from support.dense import (
    DenseFilter,
    Setting,
    Vector,
    assert_same_bits,
    holed_state,
    random_state,
    reset,
    settings,
    to_array,
)
from support.driver import rec

CACHE_LINE = 64
OFFSETS = range(0, CACHE_LINE, 8)
NUM_QUBITS = 5


def surrounded(length: int, offset: int) -> tuple[Vector, Vector]:
    """An array that begins `offset` bytes past a cache line, and the larger one around it."""
    raw = np.zeros(16 * (length + 8) + 2 * CACHE_LINE, dtype=np.uint8)
    start = -raw.ctypes.data % CACHE_LINE + offset
    whole: Vector = raw[start : start + 16 * (length + 8)].view(np.complex128)
    inner = whole[4:-4]
    assert inner.ctypes.data % CACHE_LINE == offset
    assert inner.flags.aligned
    whole[:] = np.nan
    return inner, whole


def lent(engine: ModuleType, setting: Setting, buffer: Vector, state: Vector) -> DenseFilter:
    """A filter on the buffer."""
    buffer[:] = state
    filter_ = DenseFilter(engine, setting)
    filter_.call("override_state_buffer", buffer)
    return filter_


def owned(engine: ModuleType, setting: Setting, state: Vector) -> DenseFilter:
    """A filter on memory of the engine."""
    filter_ = DenseFilter(engine, setting)
    filter_.run(reset(len(state).bit_length() - 1))
    filter_.load(state)
    return filter_


@pytest.mark.parametrize("setting", settings([0, 1, 2, 5]), ids=str)
@pytest.mark.parametrize("offset", OFFSETS)
def test_gates_give_the_same_bits(
    engine: ModuleType, rng: random.Random, offset: int, setting: Setting
) -> None:
    buffer, whole = surrounded(1 << NUM_QUBITS, offset)
    state = holed_state(rng, NUM_QUBITS)
    here, there = lent(engine, setting, buffer, state), owned(engine, setting, state)
    for low in GATES:
        program = to_array([loose_gate(rng, low, NUM_QUBITS) for _ in range(8)])
        here.run(program)
        there.run(program)
        assert_same_bits(here.state(NUM_QUBITS), there.state(NUM_QUBITS))
    assert np.isnan(whole[:4]).all()
    assert np.isnan(whole[-4:]).all()
    here.close()
    there.close()


@pytest.mark.parametrize("offset", OFFSETS)
def test_readouts_and_measurements_give_the_same_bits(
    engine: ModuleType, rng: random.Random, offset: int
) -> None:
    state = random_state(rng, NUM_QUBITS)
    buffer, _ = surrounded(len(state), offset)
    setting = Setting(3)
    results = []
    for filter_ in (lent(engine, setting, buffer, state), owned(engine, setting, state)):
        filter_.call("random_seed", 7)
        probability = filter_.call("peek_read_probability", 0b10010, 0b11010, 0.0)
        product = filter_.call("pps", 0b01001, 0b10010)
        filter_.run(rec(READ, target_mask=0b00110))
        filter_.call("postselect", 0, 0b10000)
        norm = filter_.call("normalize")
        indices, amplitudes = np.zeros(8, dtype=np.uint64), np.zeros(8, dtype=np.complex128)
        filter_.call("peek_n_biggest_terms", 8, indices, amplitudes)
        results.append((probability, product, norm, indices.tolist(), amplitudes.tobytes()))
        assert filter_.call("check_state", filter_.state(NUM_QUBITS), 0.0, 0) == 1
        filter_.close()
    assert results[0] == results[1]


@pytest.mark.parametrize("offset", OFFSETS)
def test_the_buffer_itself_changes(engine: ModuleType, rng: random.Random, offset: int) -> None:
    state = random_state(rng, NUM_QUBITS)
    buffer, _ = surrounded(len(state), offset)
    filter_ = lent(engine, Setting(), buffer, state)
    filter_.run(rec(Z, target_mask=0b00001))
    assert_same_bits(buffer, filter_.state(NUM_QUBITS))
    assert (buffer != state).any()
    filter_.close()


def test_an_ordinary_array_of_any_size_is_taken(engine: ModuleType) -> None:
    for num_qubits in range(1, 18):
        buffer = np.zeros(1 << num_qubits, dtype=np.complex128)
        buffer[-1] = 1
        filter_ = DenseFilter(engine)
        filter_.call("override_state_buffer", buffer)
        filter_.run(rec(X, target_mask=1))
        assert filter_.state(num_qubits)[-2] == 1
        filter_.close()
