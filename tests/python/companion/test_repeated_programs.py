"""A program that has passed the check of `Simulator.run` passes again without the rules."""

from __future__ import annotations

from collections.abc import Iterator
from itertools import count
from unittest import mock

import nimbrel as nb
import pytest
from nimbrel.record_rules import RecordRules

from support.program_check import BIT, CLIFFORD, LONG, outside, refused

lengths = pytest.mark.parametrize("length", [1, 6, 13, 40, 64])


@pytest.fixture
def rules() -> Iterator[mock.Mock]:
    """Counts the records that are checked by the rules, which are slow."""
    with mock.patch.object(
        RecordRules, "check", autospec=True, side_effect=RecordRules.check
    ) as check:
        yield check


def some_program(length: int, qubit: int = 1) -> nb.RecordArray:
    return nb.program(*[nb.x(0)] * (length - 1), nb.x(qubit))


@lengths
def test_a_repeated_program_is_not_checked_again(rules: mock.Mock, length: int) -> None:
    programs = [some_program(length), nb.program(nb.reset(2), *[nb.x(1)] * (length - 1))]
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(2))
        for records in programs:
            sim.run(records)
        rules.reset_mock()
        for records in programs * 3:
            sim.run(records.copy())
        assert rules.call_count == 0


@lengths
def test_an_array_that_has_changed_is_checked_again(length: int) -> None:
    records = some_program(length)
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(2))
        for _ in range(2):
            sim.run(records)
        records["target_mask"][-1] = 4
        refused(sim, outside(length - 1, 2, 2), records)


@lengths
def test_another_register_is_another_check(length: int) -> None:
    records = some_program(length, 5)
    with nb.Simulator(BIT) as sim:
        for _ in range(2):
            sim.run(nb.reset(6))
            sim.run(records)
            sim.run(nb.reset(3))
            refused(sim, outside(length - 1, 5, 3), records)


@lengths
def test_a_repeated_reset_changes_the_register_again(length: int) -> None:
    shrink = nb.program(*[nb.x(0)] * (length - 1), nb.reset(2))
    with nb.Simulator(BIT) as sim:
        for _ in range(3):
            sim.run(nb.reset(6))
            sim.run(shrink)
            refused(sim, outside(0, 5, 2), nb.x(5))


def test_a_repeated_jump_opens_again() -> None:
    with nb.Simulator(BIT) as sim:
        for _ in range(3):
            sim.run(nb.label(7), nb.reset(5))
            sim.run(nb.jump_fwd(7))
            sim.run(nb.reset(2))
            sim.run(nb.label(7), nb.x(4))


def test_of_many_programs_the_oldest_are_checked_again(rules: mock.Mock) -> None:
    programs = [nb.x(qubit) for qubit in range(20)]
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(20))
        for records in programs:
            sim.run(records)
        rules.reset_mock()
        checked = count()
        for records in reversed(programs):
            sim.run(records)
            if rules.call_count == 0:
                next(checked)
        assert 0 < next(checked) < 20
        sim.run(nb.reset(10))
        refused(sim, outside(0, 19, 10), programs[19])


def test_a_z_on_one_control_is_found_exact_without_the_rules(rules: mock.Mock) -> None:
    one = nb.z((), controls=1)
    with nb.Simulator(CLIFFORD) as sim:
        sim.run(nb.reset(2))
        rules.reset_mock()
        sim.run(*[one] * 2, *[nb.phase(180.0, (), controls=0), nb.x(0, controls=1), one] * LONG)
        # The first record of each piece may follow an extension.
        assert rules.call_count < LONG / 100
