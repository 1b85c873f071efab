"""Every gate against its textbook matrix, on random states, at every block size."""

import random
from types import ModuleType

import numpy as np
import pytest

from models import opcodes
from models.wire import tagged
from programs.dense import GATES, tidy_gate
from support.dense import Setting, open_dense, random_state
from support.textbook import assert_textbook

QUBITS = 5
BLOCK_SIZES = [1, 2, 3, 4, 5]


@pytest.mark.parametrize("is_async", [0, 1])
@pytest.mark.parametrize("block_size", BLOCK_SIZES)
@pytest.mark.parametrize("low", GATES, ids=hex)
def test_gates_with_random_targets_and_conditions(
    engine: ModuleType, rng: random.Random, low: int, block_size: int, is_async: int
) -> None:
    with open_dense(engine, QUBITS, Setting(block_size, 0, is_async)) as filter_:
        for _ in range(12):
            assert_textbook(filter_, random_state(rng, QUBITS), tidy_gate(rng, low, QUBITS))


@pytest.mark.parametrize("block_size", BLOCK_SIZES)
@pytest.mark.parametrize("low", [low for low in GATES if low != opcodes.SWAP], ids=hex)
def test_gates_on_each_qubit_and_on_all(
    engine: ModuleType, rng: random.Random, low: int, block_size: int
) -> None:
    with open_dense(engine, QUBITS, Setting(block_size, 1, 1)) as filter_:
        for targets in (*(1 << qubit for qubit in range(QUBITS)), (1 << QUBITS) - 1):
            gate = tagged(low, targets, angle=rng.uniform(-180, 180))
            assert_textbook(filter_, random_state(rng, QUBITS), gate)


@pytest.mark.parametrize("block_size", BLOCK_SIZES)
def test_swaps_of_every_pair(engine: ModuleType, rng: random.Random, block_size: int) -> None:
    with open_dense(engine, QUBITS, Setting(block_size, 0, 1)) as filter_:
        for a in range(QUBITS):
            for c in range(a):
                assert_textbook(
                    filter_, random_state(rng, QUBITS), tagged(opcodes.SWAP, 1 << a | 1 << c)
                )


@pytest.mark.parametrize("block_size", [2, 4, 8, 12])
def test_a_larger_register(engine: ModuleType, rng: random.Random, block_size: int) -> None:
    num_qubits = 12
    with open_dense(engine, num_qubits, Setting(block_size, 0, int(block_size > 4))) as filter_:
        state = random_state(rng, num_qubits)
        filter_.load(state)
        for qubit in range(num_qubits):
            filter_.run_records([tagged(opcodes.H, 1 << qubit)])
            halves = state.reshape(-1, 2, 1 << qubit)
            upper, lower = halves[:, 0] + halves[:, 1], halves[:, 0] - halves[:, 1]
            state = np.stack((upper, lower), axis=1).reshape(-1) / np.sqrt(2)
        np.testing.assert_allclose(filter_.state(num_qubits), state, rtol=0, atol=1e-9)
