"""Edge cases of gates: empty and unusual masks, false conditions, zeros of either sign."""

import random
from types import ModuleType

import numpy as np
import pytest

from models.arithmetic import ROOT_HALF
from models.dense import NOT_ALLOCATED
from models.opcodes import FLAG_NAND, PHASE, RESET, RX, RZ, S_INV, SWAP, T_INV, H, S, T, X, Y, Z
from programs.dense import GATES
from support.dense import (
    DenseFilter,
    Setting,
    assert_same_bits,
    basis,
    open_dense,
    random_state,
    settings,
    vector,
)
from support.driver import rec

DIAGONAL = [PHASE, Z, T, S, T_INV, S_INV]
QUBITS = 4
ALL_SETTINGS = settings([1, 2, 4])


def changes(
    filter_: DenseFilter, rng: random.Random, gate: np.ndarray, num_qubits: int = QUBITS
) -> bool:
    """Whether the gate alters a random state in any bit."""
    state = random_state(rng, num_qubits)
    filter_.load(state)
    filter_.run(gate)
    return not np.array_equal(filter_.state(num_qubits), state)


@pytest.mark.parametrize("low", GATES, ids=hex)
def test_classical_conditions(engine: ModuleType, rng: random.Random, low: int) -> None:
    words = {"target_mask": 3, "angle": 30.0}
    with open_dense(engine, QUBITS, Setting(2)) as filter_:
        for flag, acts in ((0, True), (1, True), (-1, False), (-5, False), (5, False)):
            assert changes(filter_, rng, rec(low, **words, cond_flag=flag)) == acts, flag
        # A store into the word of flag 5 stores a 0 for flag 5 too.
        filter_.run(rec(FLAG_NAND, target_mask=1, cond_mask=1, read_flag=7))
        for flag, acts in ((5, False), (-5, True), (-100_000_005, True), (100_000_005, False)):
            assert changes(filter_, rng, rec(low, **words, cond_flag=flag)) == acts, flag
        # No word of the table holds this flag.
        assert not changes(filter_, rng, rec(low, **words, cond_flag=-64))


@pytest.mark.parametrize("low", GATES, ids=hex)
@pytest.mark.parametrize("flag", [0, -1, -5])
def test_a_gate_needs_a_register_whatever_its_condition(
    engine: ModuleType, low: int, flag: int
) -> None:
    with open_dense(engine) as filter_:
        filter_.fails(NOT_ALLOCATED, rec(low, cond_flag=flag))


@pytest.mark.parametrize("setting", ALL_SETTINGS)
def test_targets_among_block_numbers_and_slots(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.run(rec(H, target_mask=0b1001))
        half = ROOT_HALF * ROOT_HALF
        expected = np.zeros(16, dtype=np.complex128)
        expected[[0, 1, 8, 9]] = half
        np.testing.assert_array_equal(filter_.state(QUBITS), expected)


@pytest.mark.parametrize("setting", ALL_SETTINGS)
def test_not_and_its_controls_move_whole_blocks(engine: ModuleType, setting: Setting) -> None:
    state = np.arange(1, 17) * (1 + 1j)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(state)
        filter_.run(rec(X, target_mask=0b1000))
        assert_same_bits(filter_.state(QUBITS), np.roll(state, 8))
        filter_.run(rec(X, target_mask=0b1000), rec(X, target_mask=0b1000, cond_mask=0b0100))
        expected = np.concatenate((state[:4], state[12:], state[8:12], state[4:8]))
        assert_same_bits(filter_.state(QUBITS), expected)
        # Qubit 0 separates terms inside every block.
        filter_.load(state)
        filter_.run(rec(X, target_mask=0b1000, cond_mask=1, cond_neg_mask=1))
        expected = np.where(np.arange(16) % 2 == 0, np.roll(state, 8), state)
        assert_same_bits(filter_.state(QUBITS), expected)


@pytest.mark.parametrize("setting", ALL_SETTINGS)
def test_a_block_number_target_that_is_also_a_control(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for low in (X, Y, H, RX):
            gate = rec(low, target_mask=8, cond_mask=8, angle=50.0)
            assert not changes(filter_, rng, gate)


@pytest.mark.parametrize("setting", ALL_SETTINGS)
@pytest.mark.parametrize("low", DIAGONAL, ids=hex)
def test_a_diagonal_gate_without_target_takes_the_lowest_control(
    engine: ModuleType, rng: random.Random, low: int, setting: Setting
) -> None:
    state = random_state(rng, QUBITS)
    results = []
    with open_dense(engine, QUBITS, setting) as filter_:
        for words in ({"cond_mask": 0b1010}, {"target_mask": 0b0010, "cond_mask": 0b1000}):
            filter_.load(state)
            filter_.run(rec(low, **words, angle=70.0, cond_neg_mask=0b1000))
            results.append(filter_.state(QUBITS))
        assert_same_bits(*results)
        assert not np.array_equal(results[0], state)


@pytest.mark.parametrize("setting", ALL_SETTINGS)
@pytest.mark.parametrize("low", GATES, ids=hex)
def test_masks_outside_the_register_are_dropped(
    engine: ModuleType, rng: random.Random, low: int, setting: Setting
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        beyond = 1 << 63 | 0b11 << QUBITS
        assert not changes(filter_, rng, rec(low, target_mask=0, angle=70.0))
        # A swap is settled by the two lowest bits, which must then lie outside.
        assert not changes(filter_, rng, rec(low, target_mask=beyond, angle=70.0))
        if low not in (0x0C, 0x0D):
            state = random_state(rng, QUBITS)
            results = []
            for mask in (0, beyond):
                filter_.load(state)
                masks = {"target_mask": 2 | mask, "cond_mask": 1 | mask, "cond_neg_mask": mask}
                filter_.run(rec(low, **masks, angle=70.0))
                results.append(filter_.state(QUBITS))
            assert_same_bits(*results)


@pytest.mark.parametrize("setting", ALL_SETTINGS)
def test_swaps_of_more_or_fewer_than_two_targets(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    pairs = [
        (rec(SWAP, target_mask=0b1101), rec(SWAP, target_mask=0b0101)),
        (rec(SWAP, target_mask=0b0100), rec(X, target_mask=0b0100)),
        (rec(SWAP, target_mask=0b0100, cond_mask=2), rec(X, target_mask=0b0100, cond_mask=2)),
    ]
    with open_dense(engine, QUBITS, setting) as filter_:
        for odd, usual in pairs:
            state = random_state(rng, QUBITS)
            filter_.load(state)
            filter_.run(odd)
            result = filter_.state(QUBITS)
            filter_.load(state)
            filter_.run(usual)
            assert_same_bits(result, filter_.state(QUBITS))
        assert not changes(filter_, rng, rec(SWAP, target_mask=0, cond_mask=2))


@pytest.mark.parametrize("setting", ALL_SETTINGS)
def test_a_half_turn_flips_signs_exactly(engine: ModuleType, setting: Setting) -> None:
    state = vector([(0.1, -0.0), (0.0, 0.3)] * 8)
    with open_dense(engine, QUBITS, setting) as filter_:
        for low in (Z, PHASE):
            filter_.load(state)
            filter_.run(rec(low, target_mask=0b0001, angle=180.0))
            # -0.0 has its sign bit set: the flip also applies to zeros.
            assert_same_bits(filter_.state(QUBITS), vector([(0.1, -0.0), (-0.0, -0.3)] * 8))


@pytest.mark.parametrize("degrees", [0.0, -0.0, 360.0])
@pytest.mark.parametrize("setting", ALL_SETTINGS)
def test_a_whole_turn_touches_nothing(engine: ModuleType, setting: Setting, degrees: float) -> None:
    state = vector([(-0.0, 0.3), (0.7, -0.0)] * 8)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(state)
        filter_.run(rec(PHASE, target_mask=0b1011, angle=degrees))
        assert_same_bits(filter_.state(QUBITS), state)


def test_zeros_stay_zeros_under_matrices_alone(engine: ModuleType) -> None:
    with open_dense(engine, 2, Setting(2)) as filter_:
        zeros = vector([(0.0, 0.0), (0.0, 0.0), (1.0, 0.0), (0.0, 0.0)])
        for low in (Y, RX, 0x106, RZ, 0x2005, 0x6006):
            filter_.load(zeros)
            filter_.run(rec(low, target_mask=1, angle=200.0))
            assert_same_bits(filter_.state(2)[:2], zeros[:2])
        filter_.load(vector([(-0.0, 0.0), (0.0, 0.0), (1.0, 0.0), (0.0, 0.0)]))
        filter_.run(rec(H, target_mask=1))
        assert_same_bits(filter_.state(2)[:2], vector([(0.0, 0.0), (-0.0, 0.0)]))
        # A negative zero is not skipped.
        filter_.load(vector([(-0.0, -0.0), (-0.0, -0.0), (1.0, 0.0), (0.0, 0.0)]))
        filter_.run(rec(Y, target_mask=1))
        assert np.signbit(filter_.state(2)[:2].view(np.float64)).sum() < 4


@pytest.mark.parametrize("num_qubits", [1, 2])
@pytest.mark.parametrize("low", GATES, ids=hex)
def test_the_smallest_registers(
    engine: ModuleType, rng: random.Random, low: int, num_qubits: int
) -> None:
    with open_dense(engine, num_qubits, Setting(1)) as filter_:
        assert changes(filter_, rng, rec(low, target_mask=1, angle=30.0), num_qubits)
        assert not changes(
            filter_, rng, rec(low, target_mask=1, angle=30.0, cond_flag=-1), num_qubits
        )


def test_a_register_of_no_qubits(engine: ModuleType) -> None:
    with open_dense(engine, 2) as filter_:
        filter_.run(rec(RESET, target_mask=0))
        for low in GATES:
            filter_.run(rec(low, target_mask=1, cond_mask=1, angle=30.0))
        assert_same_bits(filter_.state(0), basis(0, 0))
