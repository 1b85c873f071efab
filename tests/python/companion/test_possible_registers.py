"""Which registers a program may have, as `Simulator.run` judges qubits by them."""

from __future__ import annotations

import random

import nimbrel as nb
import numpy as np
import pytest

from support.program_check import BIT, DENSE, LONG, SPARSE, filler, outside, refused

lengths = pytest.mark.parametrize("count", [0, LONG], ids=["short", "long"])


def test_before_the_first_reset_the_engine_reports() -> None:
    with nb.Simulator(BIT) as sim, pytest.raises(RuntimeError, match="has not been called"):
        sim.run(nb.x(63))


def test_an_empty_program_changes_nothing() -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(2))
        sim.run()
        refused(sim, outside(0, 2, 2), nb.x(2))


@lengths
def test_the_last_reset_counts(count: int) -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(2), nb.x(1), filler(count), nb.reset(5), nb.x(4))
        sim.run(nb.x(4))
        refused(sim, outside(count + 1, 4, 3), filler(count), nb.reset(3), nb.x(4), nb.reset(9))
        sim.run(nb.x(4))  # the refused program has not run
        refused(sim, outside(count + 3, 1, 1), filler(count), *[nb.reset(1)] * 3, nb.x(1))


@lengths
def test_a_jump_may_skip_a_reset(count: int) -> None:
    skip = nb.program(nb.jump_fwd(7, flag=5), nb.reset(5), filler(count), nb.label(7))
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(2), skip)
        sim.run(nb.jump_fwd(8), nb.x(4), nb.label(8))
        refused(sim, outside(0, 5, 5), nb.x(5))
        skip["target_mask"][1] = 1
        refused(sim, outside(count + 3, 5, 5), skip, nb.x(5))


@lengths
def test_a_skipped_smaller_reset_leaves_the_larger_register(count: int) -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(5), nb.jump_fwd(7), nb.reset(2), filler(count), nb.label(7), nb.x(4))
        assert sim.bits() == "00001"
        refused(sim, outside(0, 5, 5), nb.x(5))


@lengths
def test_a_label_ends_its_own_jump_only(count: int) -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(5))
        # The jump to 7 may be open at the reset, with or without the jump to 8.
        sim.run(
            nb.jump_fwd(7), nb.jump_fwd(8), filler(count), nb.label(8), nb.reset(2), nb.label(7)
        )
        sim.run(nb.x(4))
        sim.run(nb.jump_fwd(7), filler(count), nb.label(7), nb.reset(2))
        refused(sim, outside(0, 4, 2), nb.x(4))


@lengths
@pytest.mark.parametrize("jump", [nb.jump_fwd(0), nb.jump_fwd(7, flag=-1), nb.label(7)])
def test_what_skips_nothing(jump: nb.RecordArray, count: int) -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(5), filler(count), jump)
        refused(sim, outside(count + 2, 4, 2), filler(count), jump, nb.reset(2), nb.x(4))


@lengths
def test_an_open_jump_reaches_into_the_next_program(count: int) -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(5), filler(count), nb.jump_fwd(7))
        sim.run(nb.reset(2), filler(count), nb.x(4))
        sim.run(nb.label(7), nb.x(4))
        assert sim.bits()[4] == "1"
        refused(sim, outside(count + 1, 4, 2), filler(count), nb.reset(2), nb.x(4))


@lengths
def test_conditional_stretches_one_after_another(count: int) -> None:
    stretch = nb.program(nb.jump_fwd(7, flag=5), nb.x(0), nb.label(7))
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(2), np.tile(stretch, 1 + count // 3))
        refused(
            sim,
            outside(3 * (1 + count // 3) + 1, 4, 3),
            np.tile(stretch, 1 + count // 3),
            nb.reset(3),
            nb.x(4),
        )


@lengths
def test_after_a_failure_every_register_so_far_is_possible(count: int) -> None:
    bad = nb.record(12345)
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(2))
        with pytest.raises(RuntimeError, match="Unknown opcode"):
            sim.run(nb.reset(7), filler(count), bad, nb.reset(4), nb.jump_fwd(9))
        sim.run(nb.x(6))
        refused(sim, outside(0, 7, 7), nb.x(7))
        # The jump may be open, so the next reset may be skipped.
        refused(sim, outside(2, 7, 7), nb.reset(3), nb.x(6), nb.x(7))
        refused(sim, outside(2, 6, 3), nb.label(9), nb.reset(3), nb.x(6))


def test_a_refused_reset_leaves_another_register() -> None:
    with nb.Simulator(SPARSE) as sim:
        sim.run(nb.reset(3))
        with pytest.raises(RuntimeError, match="just handles 64 qubits"):
            sim.run(nb.reset(64))
        sim.run(nb.x(2))
        assert sim.value_of(4) == 1


def test_a_first_reset_that_fails_leaves_the_register_unknown() -> None:
    with nb.Simulator(SPARSE) as sim:
        with pytest.raises(RuntimeError, match="just handles 64 qubits"):
            sim.run(nb.reset(64))
        sim.run(nb.x(62))


def test_a_buffer_is_a_register() -> None:
    with nb.Simulator(DENSE) as sim:
        buffer = nb.aligned_buffer(3)
        buffer[0] = 1
        sim.override_state_buffer(buffer)
        sim.run(nb.x(2))
        refused(sim, outside(0, 3, 3), nb.x(3))
        sim.run(nb.reset(4), nb.x(3))
        sim.override_state_buffer(buffer)
        refused(sim, outside(0, 3, 3), nb.x(3))


def test_a_buffer_that_was_refused_is_none() -> None:
    with nb.Simulator(DENSE) as sim:
        sim.run(nb.reset(5))
        buffer = np.zeros(3, dtype=np.complex128)
        with pytest.raises(ValueError, match="2, 4, 8"):
            sim.override_state_buffer(buffer)
        sim.run(nb.x(4))


State = tuple[int, int]
"""A register's size, and the label that an open jump looks for; 0: none is open."""


def states_after(state: State, row: tuple[int, ...]) -> set[State]:
    """The states that may follow one state after one record, for any read flags."""
    size, label = state
    opcode, operand, flag = row[0], row[1], row[4]
    if opcode == nb.Opcode.LABEL and operand == label:
        return {(size, 0)}
    if label == 0 and opcode == nb.Opcode.RESET:
        return {(operand, 0)}
    if label == 0 and opcode == nb.Opcode.JUMP_FWD and flag != -1:
        return {(size, operand)} if flag == 0 else {state, (size, operand)}
    return {state}


def random_record(rng: random.Random) -> nb.RecordArray:
    kind = rng.randrange(12)
    if kind == 0:
        return nb.reset(rng.randrange(1, 9))
    if kind == 1:
        return nb.jump_fwd(rng.randrange(3), flag=rng.choice([5, -5, 0, -1]))
    if kind <= 3:
        return nb.label(rng.randrange(1, 3))
    return nb.x(0)


def test_random_programs_beside_all_their_ways(rng: random.Random) -> None:
    refusals = 0
    for _ in range(300):
        states: set[State] = {(4, 0)}
        with nb.Simulator(BIT) as sim:
            sim.run(nb.reset(4))
            for _ in range(4):
                rows = [random_record(rng) for _ in range(rng.choice([3, 12, 40]))]
                program = nb.program(*rows, nb.x(rng.randrange(9)))
                after = states
                for row in program.tolist():
                    after = {new for state in after for new in states_after(state, row)}
                largest = max(size for size, _ in after)
                qubit = int(program["target_mask"][-1]).bit_length() - 1
                try:
                    sim.run(program)
                except ValueError:
                    refusals += 1
                    assert qubit >= largest
                    continue
                states = after
    assert refusals > 100
