"""Gates bit for bit on the smallest and largest doubles, infinities and NaNs."""

import math
import random
from types import ModuleType

import numpy as np
import pytest

from models.opcodes import PHASE, PPR, ROOTX, ROOTX_INV, RX, RY, RZ, H, X, Y
from models.wire import Record
from programs.dense import as_record, some_of, with_product
from support.dense import Setting, Vector, assert_same_bits, model_of, open_dense, to_array, vector

QUBITS = 4
STATES = 150
ONE_BLOCK = [Setting(QUBITS, 0, 0), Setting(QUBITS, 0, 1)]

ORDINARY = (1.0, -0.5, 0.3, -0.7)
# The smallest double, one without a full mantissa, squares that vanish, are the largest ones and
# overflow, and sums that overflow.
SIZES = (0.0, 5e-324, 1e-310, 1e-200, 1e154, 1e160, 1.7e308)
FINITE = (*ORDINARY, *SIZES, *(-size for size in SIZES))
POOLS = {
    "finite": FINITE,
    "anything": (*FINITE, math.inf, -math.inf, math.nan),
    "tiny": (0.0, -0.0, 5e-324, -5e-324, 1e-310, -1e-310),
}

GATES = (X, Y, H, RX, RY, RZ, ROOTX, ROOTX_INV, PHASE, PPR)
ANGLES = (37.0, -200.0, 90.0, 180.0, -180.0, 360.0, 720.0, 1e-320, 1e300, math.nan)


def drawn_state(rng: random.Random, pool: tuple[float, ...]) -> Vector:
    return vector((rng.choice(pool), rng.choice(pool)) for _ in range(1 << QUBITS))


def drawn_gate(rng: random.Random, low: int) -> Record:
    """A gate on one or two qubits, under conditions on up to two others."""
    qubits = [1 << qubit for qubit in rng.sample(range(QUBITS), QUBITS)]
    targets, conds = sum(qubits[: rng.choice((1, 1, 2))]), sum(qubits[2 : rng.choice((2, 3, 4))])
    record = as_record(low, rng.choice(ANGLES), targets, conds, some_of(rng, conds), 0)
    return with_product(rng, record, QUBITS) if low == PPR else record


def with_one_nan(state: Vector) -> Vector:
    """The state with one bit pattern for all NaNs: their sign and payload are unspecified."""
    parts = state.view(np.float64)
    return np.where(np.isnan(parts), np.nan, parts).view(np.complex128)


@pytest.mark.parametrize("setting", ONE_BLOCK)
@pytest.mark.parametrize("pool", POOLS)
@pytest.mark.parametrize("low", GATES, ids=hex)
def test_gates_on_extreme_amplitudes(
    engine: ModuleType, rng: random.Random, low: int, pool: str, setting: Setting
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for _ in range(STATES):
            state, gate = drawn_state(rng, POOLS[pool]), drawn_gate(rng, low)
            print(gate)
            model = model_of(state)
            model.run([gate])
            filter_.load(state)
            filter_.run(to_array([gate]))
            got, expected = filter_.state(QUBITS), vector(model.terms)
            assert_same_bits(with_one_nan(got), with_one_nan(expected))
