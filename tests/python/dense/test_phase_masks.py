"""Phases with several targets of which some are negated.

The pattern of each target contains the negations of all targets, so it may have bits outside the
mask. In a block with a single mask bit, the walk then starts at a higher slot.
"""

import math
import random
from types import ModuleType

import numpy as np
import pytest

from models.arithmetic import radians
from models.dense_block import Block
from models.opcodes import PHASE, Z
from models.wire import set_bits
from support.dense import (
    Setting,
    Vector,
    amplitudes,
    assert_same_bits,
    open_dense,
    random_state,
    settings,
    vector,
)
from support.driver import rec

QUBITS = 4


def phased(
    state: Vector, block_size: int, degrees: float, targets: int, conds: int, negs: int
) -> Vector:
    """The state after the phase, computed block by block."""
    slots, angle = (1 << block_size) - 1, radians(degrees)
    blocks = [Block(slots + 1) for _ in range(1 << (QUBITS - block_size))]
    for number, block in enumerate(blocks):
        block.set_all(amplitudes(state[number * len(block.terms) :][: len(block.terms)]))
    for target in set_bits(targets):
        mask, pattern = conds | target, (conds | targets) & negs
        for number, block in enumerate(blocks):
            if number & mask >> block_size == pattern >> block_size ^ mask >> block_size:
                block.phase(mask & slots, math.sin(angle), math.cos(angle), pattern & slots)
    return vector(term for block in blocks for term in block.terms)


def run(engine: ModuleType, setting: Setting, state: Vector, low: int, **words: float) -> Vector:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(state)
        filter_.run(rec(low, **words))
        return filter_.state(QUBITS)


@pytest.mark.parametrize("setting", settings([1, 2, 3, 4]))
@pytest.mark.parametrize("degrees", [180.0, 25.0])
def test_any_negations_at_each_block_size(
    engine: ModuleType, rng: random.Random, setting: Setting, degrees: float
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for _ in range(60):
            state = random_state(rng, QUBITS)
            targets, conds, negs = rng.randint(1, 15), rng.getrandbits(4), rng.getrandbits(4)
            conds &= rng.getrandbits(4)
            masks = {"target_mask": targets, "cond_mask": conds, "cond_neg_mask": negs}
            filter_.load(state)
            filter_.run(rec(PHASE, **masks, angle=degrees))
            expected = phased(state, setting.num_block_qubits, degrees, targets, conds, negs)
            assert_same_bits(filter_.state(QUBITS), expected)


@pytest.mark.parametrize(
    ("targets", "conds", "negs", "flipped"),
    [
        # The walk of target 0 begins at slot 3; target 1 acts where it is 0.
        (0b0011, 0, 0b0010, [[3, 5, 7, 9, 11, 13, 15], [0, 1, 4, 5, 8, 9, 12, 13]]),
        # The run of target 3 begins at slot 10 and ends with the block.
        (0b1010, 0, 0b0010, [[10, 11, 12, 13, 14, 15], [0, 1, 4, 5, 8, 9, 12, 13]]),
        (0b1001, 0, 0b1000, [[9, 11, 13, 15], [0, 1, 2, 3, 4, 5, 6, 7]]),
        # With a control, the pattern of target 0 never matches.
        (0b0011, 0b0100, 0b0010, [[4, 5, 12, 13]]),
        # A single negated target acts where it is 0.
        (0b0100, 0, 0b0100, [[0, 1, 2, 3, 8, 9, 10, 11]]),
        # All targets negated.
        (0b0011, 0, 0b0011, [[2, 4, 6, 8, 10, 12, 14], [1, 2, 5, 6, 9, 10, 13, 14]]),
    ],
)
def test_which_terms_of_one_block_are_flipped(
    engine: ModuleType, targets: int, conds: int, negs: int, flipped: list[list[int]]
) -> None:
    masks = {"target_mask": targets, "cond_mask": conds, "cond_neg_mask": negs}
    result = run(engine, Setting(QUBITS), np.ones(16) + 1j, PHASE, **masks, angle=180.0)
    expected = np.ones(16) + 1j
    for slots in flipped:
        expected[slots] *= -1
    np.testing.assert_array_equal(result, expected)


@pytest.mark.parametrize("setting", settings([1, 2, 4]))
def test_z_keeps_the_negations_of_its_own_mask(engine: ModuleType, setting: Setting) -> None:
    state = np.ones(16) + 1j
    result = run(engine, setting, state, Z, target_mask=0b1010, cond_neg_mask=0b0010)
    index = np.arange(16)
    expected = np.where(index & 8 != 0, -state, state)
    expected = np.where(index & 2 == 0, -expected, expected)
    np.testing.assert_array_equal(result, expected)
