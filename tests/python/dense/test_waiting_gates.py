"""Gates of a large register wait for their arithmetic; nothing that Python can see depends on it.

Gates wait from 14 qubits on. A register of more than 64 blocks lets none wait, so it serves as the
reference for gates that act at once.
"""

import random
from collections.abc import Callable, Iterator
from types import ModuleType

import hypothesis
import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

from models.opcodes import RESET, WRITE, H, X
from models.wire import Record, tagged
from programs.dense import ProgramSource, gate_program
from programs.drawn import DrawnRandom, drawn_randoms
from support.dense import (
    DenseFilter,
    Setting,
    Vector,
    aligned,
    assert_same_bits,
    basis,
    open_dense,
    reset,
    settings,
    to_array,
)

QUBITS = 17
AT_ONCE = Setting(QUBITS - 7, 0, 0)
WAITING = [Setting(), Setting(0, 0, 0), *settings([QUBITS]), Setting(13), Setting(QUBITS - 6, 1)]
SEED = 11

Calls = Callable[[list[Record]], Iterator[list[Record]]]


def full_state(seed: int) -> Vector:
    """A state without zeros, so that no block is passed by."""
    rng = np.random.default_rng(seed)
    parts = rng.standard_normal((1 << QUBITS, 2)) / (1 << QUBITS // 2)
    return parts.view(np.complex128).reshape(-1)


def after(engine: ModuleType, setting: Setting, state: Vector, program: list[Record]) -> Vector:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(state)
        filter_.run_records(program)
        return filter_.state(QUBITS)


@hypothesis.settings(max_examples=60)
@given(rng=drawn_randoms(), seed=st.integers(0, 99))
def test_gates_that_wait_give_the_bits_of_gates_that_do_not(
    engine: ModuleType, rng: DrawnRandom, seed: int
) -> None:
    program = gate_program(rng, QUBITS, 40)
    state = full_state(seed)
    expected = after(engine, AT_ONCE, state, program)
    assert_same_bits(after(engine, rng.choice(WAITING), state, program), expected)


@pytest.mark.parametrize("setting", WAITING, ids=str)
def test_a_long_program_at_every_setting(engine: ModuleType, setting: Setting) -> None:
    rng = random.Random(3)
    program = gate_program(rng, QUBITS, 300)
    state = full_state(5)
    expected = after(engine, AT_ONCE, state, program)
    assert_same_bits(after(engine, setting, state, program), expected)


def one_by_one(program: list[Record]) -> Iterator[list[Record]]:
    return ([record] for record in program)


def cut_at_random(program: list[Record]) -> Iterator[list[Record]]:
    rng = random.Random(len(program))
    first = 0
    while first < len(program):
        last = first + rng.randint(1, 12)
        yield program[first:last]
        first = last


def run_calls(
    engine: ModuleType, setting: Setting, program: list[Record], calls: Calls, *, look: bool
) -> tuple[Vector, tuple[int, int], list[tuple[str, str, int, list[int]]]]:
    with open_dense(engine, QUBITS, setting) as filter_:
        engine.random_seed(0, SEED)
        term = np.zeros(1, dtype=np.complex128)
        for records in calls(program):
            filter_.run_records(records)
            if look:
                filter_.call("peek_value", 3, term)
        flags = filter_.flags(0, 32), filter_.flags(32, 32)
        return filter_.state(QUBITS), flags, filter_.events()


@pytest.mark.parametrize("setting", [Setting(), Setting(0, 0, 0), Setting(13)], ids=str)
@pytest.mark.parametrize("seed", range(20))
def test_the_cut_into_calls_changes_nothing(
    engine: ModuleType, setting: Setting, seed: int
) -> None:
    program = ProgramSource(random.Random(seed), QUBITS).program(40)
    whole = run_calls(engine, setting, program, lambda p: iter([p]), look=False)
    others: list[tuple[Calls, bool]] = [
        (one_by_one, False),
        (cut_at_random, False),
        (one_by_one, True),
    ]
    for calls, look in others:
        got = run_calls(engine, setting, program, calls, look=look)
        assert_same_bits(got[0], whole[0])
        assert got[1:] == whole[1:]


def test_lent_memory_shows_every_gate_when_the_call_ends(engine: ModuleType) -> None:
    memory = aligned(1 << QUBITS)
    memory[0] = 1
    with open_dense(engine) as filter_:
        filter_.call("override_state_buffer", memory)
        filter_.run_records([tagged(X, target_mask=0b100)])
        assert_same_bits(memory, basis(QUBITS, 0b100))
        refused = tagged(WRITE, target_mask=(1 << QUBITS) - 1, cond_mask=1 << QUBITS)
        with pytest.raises(SystemError):
            filter_.run_records([tagged(X, target_mask=0b001), refused])
        assert_same_bits(memory, basis(QUBITS, 0b101))


def test_a_reset_drops_what_waits(engine: ModuleType) -> None:
    with open_dense(engine, QUBITS) as filter_:
        filter_.run_records([tagged(H, target_mask=0b11), tagged(RESET, target_mask=QUBITS)])
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 0))
        filter_.run_records([tagged(H, target_mask=0b11)])
        filter_.run(reset(QUBITS + 1))
        assert_same_bits(filter_.state(QUBITS + 1), basis(QUBITS + 1, 0))


def test_a_filter_is_deleted_while_gates_wait(engine: ModuleType) -> None:
    filter_ = DenseFilter(engine)
    filter_.run(reset(QUBITS), to_array([tagged(H, target_mask=0b11)] * 20))
    filter_.close()
