"""The same random programs under many block sizes and thread settings.

At one block size every setting gives the same bits. Across block sizes, gates differ only in
the sign of zeros in skipped blocks, and sums only by their order of addition.
"""

import random
from types import ModuleType
from typing import NamedTuple

import hypothesis
import numpy as np
from hypothesis import given, note
from hypothesis import strategies as st

from models.arithmetic import Generator
from models.dense import DenseModel
from models.wire import Record, described
from programs.dense import ProgramSource, gate_program, wild_program
from programs.drawn import DrawnRandom, drawn_randoms
from support.dense import (
    Setting,
    Vector,
    amplitudes,
    assert_same_bits,
    basis,
    holed_state,
    open_dense,
    reset_record,
    settings,
    to_array,
    vector,
)

QUBITS = 5
SETTINGS = settings([1, 2, 3, 4, 5])
SEED = 20


class Outcome(NamedTuple):
    """Everything observable from Python after a program."""

    state: Vector
    flags: tuple[int, int]
    events: list[tuple[str, str, int, list[int]]]


def initial_state(rng: DrawnRandom, num_qubits: int) -> Vector:
    """A random state from a drawn seed; the seed 0 gives the simplest state."""
    seed = rng.getrandbits(16)
    return holed_state(random.Random(seed), num_qubits) if seed else basis(num_qubits, 0)


def outcome(engine: ModuleType, setting: Setting, state: Vector, program: list[Record]) -> Outcome:
    note(f"{setting}\n" + "\n".join(map(described, program)))
    num_qubits = len(state).bit_length() - 1
    with open_dense(engine, num_qubits, setting) as filter_:
        filter_.call("enable_qubit_debugging", 1)
        engine.random_seed(0, SEED)
        filter_.load(state)
        filter_.run_records(program)
        flags = filter_.flags(0, 32), filter_.flags(32, 32)
        return Outcome(filter_.state(num_qubits), flags, filter_.events())


def modelled(state: Vector, program: list[Record]) -> Outcome:
    model = DenseModel(Generator(SEED), debug_qubits=True)
    model.run([reset_record(QUBITS)])
    model.load(amplitudes(state))
    model.run(program)
    words = [sum(model.flags.get(first + i) << i for i in range(32)) for first in (0, 32)]
    return Outcome(vector(model.terms), (words[0], words[1]), model.events)


def assert_identical(got: Outcome, expected: Outcome) -> None:
    __tracebackhide__ = True
    assert_same_bits(got.state, expected.state)
    assert got[1:] == expected[1:]


def by_block_size(
    engine: ModuleType, state: Vector, program: list[Record], under: list[Setting] = SETTINGS
) -> dict[int, Outcome]:
    """The outcome at each block size. All thread settings must agree on it."""
    outcomes: dict[int, Outcome] = {}
    for setting in under:
        got = outcome(engine, setting, state, program)
        assert_identical(got, outcomes.setdefault(setting.num_block_qubits, got))
    return outcomes


@hypothesis.settings(max_examples=25)
@given(rng=drawn_randoms())
def test_gates_agree_at_all_settings(engine: ModuleType, rng: DrawnRandom) -> None:
    state = initial_state(rng, QUBITS)
    program = gate_program(rng, QUBITS, 50)
    expected = modelled(state, program)
    outcomes = by_block_size(engine, state, program)
    assert_identical(outcomes[QUBITS], expected)
    for size, got in outcomes.items():
        # By value: a zero of either sign is a zero.
        np.testing.assert_array_equal(got.state, expected.state, err_msg=f"block size {size}")


@hypothesis.settings(max_examples=25)
@given(rng=drawn_randoms())
def test_measurements_agree_at_all_settings(engine: ModuleType, rng: DrawnRandom) -> None:
    state = initial_state(rng, QUBITS)
    program = ProgramSource(rng, QUBITS).program(50)
    expected = modelled(state, program)
    outcomes = by_block_size(engine, state, program)
    assert_identical(outcomes[QUBITS], expected)
    for size, got in outcomes.items():
        assert got[1:] == expected[1:], f"block size {size}"
        np.testing.assert_allclose(got.state, expected.state, rtol=0, atol=1e-9, err_msg=str(size))


# Blocks large enough for worker threads, and the default.
LARGE = 15
LARGE_SETTINGS = [
    *settings([12, 14, LARGE]),
    Setting(0, 0, 1),
    Setting(0, 0, 0),
    Setting(6, 1, 1),
]


@hypothesis.settings(max_examples=5)
@given(rng=drawn_randoms())
def test_gates_on_a_large_register(engine: ModuleType, rng: DrawnRandom) -> None:
    program = gate_program(rng, LARGE, 60)
    state = initial_state(rng, LARGE)
    outcomes = by_block_size(engine, state, program, LARGE_SETTINGS)
    for size, got in outcomes.items():
        np.testing.assert_array_equal(got.state, outcomes[LARGE].state, err_msg=str(size))


@hypothesis.settings(max_examples=5)
@given(rng=drawn_randoms())
def test_measurements_on_a_large_register(engine: ModuleType, rng: DrawnRandom) -> None:
    program = ProgramSource(rng, LARGE).program(60)
    state = initial_state(rng, LARGE)
    outcomes = by_block_size(engine, state, program, LARGE_SETTINGS)
    for size, got in outcomes.items():
        assert got[1:] == outcomes[LARGE][1:], f"block size {size}"
        np.testing.assert_allclose(got.state, outcomes[LARGE].state, rtol=0, atol=1e-9)


@hypothesis.settings(max_examples=15)
@given(rng=drawn_randoms())
def test_wild_masks_agree_with_and_without_threads(engine: ModuleType, rng: DrawnRandom) -> None:
    # Some of these gates differ between block sizes, but none between thread settings.
    program = wild_program(rng, QUBITS, 60)
    by_block_size(engine, initial_state(rng, QUBITS), program)


@hypothesis.settings(max_examples=100)
@given(rng=drawn_randoms(), is_async=st.sampled_from((0, 1)))
def test_one_block_is_the_model_bit_for_bit(
    engine: ModuleType, rng: DrawnRandom, is_async: int
) -> None:
    state = initial_state(rng, QUBITS)
    program = ProgramSource(rng, QUBITS).program(50)
    got = outcome(engine, Setting(QUBITS, 0, is_async), state, program)
    assert_identical(got, modelled(state, program))


@hypothesis.settings(max_examples=25)
@given(rng=drawn_randoms())
def test_a_program_split_over_calls_is_the_same_program(
    engine: ModuleType, rng: DrawnRandom
) -> None:
    program = ProgramSource(rng, QUBITS).program(60)
    whole = outcome(engine, Setting(2), holed_state(random.Random(1), QUBITS), program)
    with open_dense(engine, QUBITS, Setting(2)) as filter_:
        filter_.call("enable_qubit_debugging", 1)
        engine.random_seed(0, SEED)
        filter_.load(holed_state(random.Random(1), QUBITS))
        for record in program:
            filter_.run(to_array([record]))
        assert_same_bits(filter_.state(QUBITS), whole.state)
        assert filter_.events() == whole.events
