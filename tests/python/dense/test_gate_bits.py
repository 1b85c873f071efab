"""Every gate bit for bit against the scalar model, one block, with arbitrary masks."""

import random
from types import ModuleType

import pytest

from models.opcodes import PHASE, PPR, RX, RY, RZ
from models.wire import Record, tagged
from programs.dense import GATES, tidy_gate, wild_gate
from support.dense import (
    DenseFilter,
    Setting,
    Vector,
    assert_same_bits,
    holed_state,
    model_of,
    open_dense,
    to_array,
    vector,
)

QUBITS = 4
ONE_BLOCK = [Setting(QUBITS, 0, 0), Setting(QUBITS, 0, 1), Setting(0, 0, 1)]


def assert_agree(filter_: DenseFilter, state: Vector, gate: Record) -> None:
    __tracebackhide__ = True
    print(gate)
    num_qubits = len(state).bit_length() - 1
    model = model_of(state)
    model.run([gate])
    filter_.load(state)
    filter_.run(to_array([gate]))
    assert_same_bits(filter_.state(num_qubits), vector(model.terms))


@pytest.mark.parametrize("setting", ONE_BLOCK)
@pytest.mark.parametrize("low", GATES, ids=hex)
def test_gates_with_wild_masks(
    engine: ModuleType, rng: random.Random, low: int, setting: Setting
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for _ in range(60):
            assert_agree(filter_, holed_state(rng, QUBITS), wild_gate(rng, low, QUBITS))


@pytest.mark.parametrize("low", GATES, ids=hex)
def test_each_target_of_a_longer_register(engine: ModuleType, rng: random.Random, low: int) -> None:
    with open_dense(engine, 7) as filter_:
        for qubit in range(7):
            conds = rng.choice((0, 1, 2, 3, 0x60)) & ~(1 << qubit)
            gate = tagged(low, 1 << qubit, conds, rng.uniform(-400, 400))
            assert_agree(filter_, holed_state(rng, 7), gate)


@pytest.mark.parametrize("low", GATES, ids=hex)
def test_long_runs_of_slots(engine: ModuleType, rng: random.Random, low: int) -> None:
    with open_dense(engine, 10) as filter_:
        for _ in range(3):
            assert_agree(filter_, holed_state(rng, 10), tidy_gate(rng, low, 10))


@pytest.mark.parametrize("low", [PHASE, RX, RY, RZ, PPR], ids=hex)
@pytest.mark.parametrize("degrees", [0.0, -0.0, 90.0, 180.0, -180.0, 360.0, 1e-320, 1e300])
def test_special_angles(engine: ModuleType, rng: random.Random, low: int, degrees: float) -> None:
    with open_dense(engine, QUBITS) as filter_:
        for targets, conds in ((1, 0), (8, 0), (2, 5), (3, 12), (0, 6)):
            gate = tagged(low, targets, conds, degrees)
            assert_agree(filter_, holed_state(rng, QUBITS), gate)


@pytest.mark.parametrize("low", GATES, ids=hex)
def test_a_register_known_to_be_zero_is_passed_by(
    engine: ModuleType, rng: random.Random, low: int
) -> None:
    with open_dense(engine, QUBITS) as filter_:
        for _ in range(10):
            assert_agree(filter_, vector([(0.0, 0.0)] * 16), wild_gate(rng, low, QUBITS))


@pytest.mark.parametrize("low", GATES, ids=hex)
def test_negative_zeros_are_amplitudes(engine: ModuleType, rng: random.Random, low: int) -> None:
    with open_dense(engine, QUBITS) as filter_:
        for _ in range(10):
            assert_agree(filter_, vector([(-0.0, -0.0)] * 16), wild_gate(rng, low, QUBITS))
