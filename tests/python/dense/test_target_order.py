"""Which target of a record a gate works on first."""

import random
from types import ModuleType

import pytest

from models.opcodes import H
from support.dense import (
    DenseFilter,
    Setting,
    Vector,
    assert_same_bits,
    bits_of,
    open_dense,
    random_state,
    settings,
)
from support.driver import rec

QUBITS = 5


def after_hadamards(filter_: DenseFilter, start: Vector, *target_masks: int) -> Vector:
    """The state after one Hadamard record for each mask."""
    filter_.load(start)
    filter_.run(*(rec(H, target_mask=mask) for mask in target_masks))
    return filter_.state(QUBITS)


@pytest.mark.parametrize("setting", settings(range(1, QUBITS)), ids=str)
def test_a_hadamard_works_on_block_number_bits_before_slot_bits(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    """Both orders are the same gate but round differently."""
    block_qubits = setting.num_block_qubits
    with open_dense(engine, QUBITS, setting) as filter_:
        for number_bit in (1 << qubit for qubit in range(block_qubits, QUBITS)):
            for slot_bit in (1 << qubit for qubit in range(block_qubits)):
                start = random_state(rng, QUBITS)
                together = after_hadamards(filter_, start, number_bit | slot_bit)
                assert_same_bits(together, after_hadamards(filter_, start, number_bit, slot_bit))
                other_order = after_hadamards(filter_, start, slot_bit, number_bit)
                assert (bits_of(together) != bits_of(other_order)).any()
