"""What `Simulator.run` refuses when other threads or exceptions interrupt its steps."""

from __future__ import annotations

from collections.abc import Callable
from threading import Thread
from typing import Any
from unittest import mock

import nimbrel as nb
import pytest
from nimbrel import operations
from nimbrel._engine import call
from nimbrel.program_check import ProgramCheck

from support.program_check import BIT, outside, refused


def run_elsewhere(sim: nb.Simulator, records: nb.RecordArray) -> None:
    """Runs a program in another thread."""
    thread = Thread(target=sim.run, args=(records,))
    thread.start()
    thread.join()


def run_around(
    sim: nb.Simulator,
    records: nb.RecordArray,
    before: Callable[[], object],
    after: Callable[[], object],
) -> None:
    """Runs a program, with something else right before and after it in the engine."""

    def surrounded(*args: Any) -> Any:
        with mock.patch.object(operations, "call", call):
            before()
            call(*args)
            after()

    with mock.patch.object(operations, "call", surrounded):
        sim.run(records)


def nothing() -> None:
    pass


def test_a_larger_register_of_another_thread_is_possible() -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(4))
        run_around(sim, nb.reset(2), nothing, lambda: run_elsewhere(sim, nb.reset(6)))
        sim.run(nb.x(5))
        refused(sim, outside(0, 6, 6), nb.x(6))


def test_the_own_larger_register_is_possible_after_a_smaller_one_elsewhere() -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(4))
        run_around(sim, nb.reset(6), lambda: run_elsewhere(sim, nb.reset(2)), nothing)
        sim.run(nb.x(5))
        refused(sim, outside(0, 6, 6), nb.x(6))


def test_a_repeated_reset_is_possible_beside_another_thread() -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(6))
        run_around(sim, nb.reset(6), lambda: run_elsewhere(sim, nb.reset(2)), nothing)
        sim.run(nb.x(5))


def test_a_jump_of_another_thread_may_be_open() -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(6))
        jump = nb.jump_fwd(7)
        run_around(sim, nb.reset(5), lambda: run_elsewhere(sim, jump), nothing)
        sim.run(nb.reset(2))
        sim.run(nb.label(7), nb.x(5))


def test_a_reset_alone_ends_the_doubt() -> None:
    with nb.Simulator(BIT) as sim:
        run_around(sim, nb.reset(2), nothing, lambda: run_elsewhere(sim, nb.reset(6)))
        sim.run(nb.reset(3))
        refused(sim, outside(0, 3, 3), nb.x(3))


@pytest.mark.parametrize("size", [2, 6])
def test_an_interrupt_behind_the_engine_leaves_both_registers_possible(size: int) -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(4))
        with (
            mock.patch.object(ProgramCheck, "ran", side_effect=KeyboardInterrupt),
            mock.patch.object(ProgramCheck, "failed", side_effect=KeyboardInterrupt),
            pytest.raises(KeyboardInterrupt),
        ):
            sim.run(nb.reset(size))
        largest = max(4, size)
        refused(sim, outside(0, largest, largest), nb.x(largest))
        sim.run(nb.reset(size), nb.x(size - 1))
        if size == 6:
            sim.run(nb.x(5))


def test_an_interrupt_behind_a_larger_reset_refuses_nothing_wrongly() -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(2))
        with (
            mock.patch.object(ProgramCheck, "ran", side_effect=KeyboardInterrupt),
            pytest.raises(KeyboardInterrupt),
        ):
            sim.run(nb.reset(6))
        sim.run(nb.x(5))
