"""The plan of a run of gates: what goes to the engine, and when ranks exchange amplitudes."""

# ruff: noqa: E402 - mpi4py is set up before anything imports it

import mpi4py
import numpy as np
import pytest

mpi4py.rc.initialize = False  # the plan needs no ranks

import nimbrel as nb
from nimbrel.mpi.operations import plain_form
from nimbrel.mpi.placement import Placement
from nimbrel.mpi.plan import Exchange, Gates, steps
from nimbrel.mpi.rank_plan import Transfer, plan_for_rank
from nimbrel.suspect_search import as_words

QUBITS, RANKS = 8, 4  # qubits 6 and 7 are in the numbers of the ranks


def plan(*parts: nb.RecordArray) -> tuple[list[Gates | Exchange], Placement]:
    words = plain_form(as_words(nb.program(*parts)), QUBITS)
    placement = Placement(QUBITS, RANKS)
    return list(steps(words, placement, words[:0, 0])), placement


def exchanges(*parts: nb.RecordArray) -> list[Exchange]:
    return [step for step in plan(*parts)[0] if isinstance(step, Exchange)]


@pytest.mark.parametrize(
    "gate",
    [
        nb.x(7),
        nb.x(7, controls=[6]),
        nb.x(6, zeros=[7]),
        nb.swap(0, 7),
        nb.swap(6, 7),
        nb.z(7),
        nb.t(6, controls=[0, 7]),
        nb.phase(30, [6, 7]),
        nb.rz(30, 7),
        nb.rz(30, 7, controls=[0]),
        nb.ppr(30, [], [0, 6, 7]),
        nb.h(0, controls=[7], zeros=[6]),
        nb.ppr(30, [0, 3], [7], controls=[6]),
    ],
)
def test_no_exchange(gate: nb.RecordArray) -> None:
    assert exchanges(gate) == []


@pytest.mark.parametrize(
    "gate", [nb.h(7), nb.x(7, controls=[0]), nb.rx(30, 6), nb.rz(360, 7), nb.ppr(30, [6], [])]
)
def test_one_exchange(gate: nb.RecordArray) -> None:
    assert [len(step.pairs) for step in exchanges(gate)] == [1]


def test_qubits_that_are_needed_together_are_exchanged_in_one_step() -> None:
    assert [len(step.pairs) for step in exchanges(nb.ppr(30, [6, 7], [0]))] == [2]


def test_a_qubit_that_is_needed_soon_comes_along() -> None:
    assert [len(step.pairs) for step in exchanges(nb.h(7), nb.h(6), nb.h(0))] == [2]


def test_a_qubit_that_is_needed_later_than_the_local_ones_stays() -> None:
    assert [len(s.pairs) for s in exchanges(nb.h(7), nb.h(range(6)))] == [1, 1]


def test_the_qubit_that_is_mixed_last_leaves() -> None:
    first = exchanges(nb.h(7), nb.h([0, 1, 2]), nb.h(3), nb.h(5), nb.h(4))[0]
    assert first.pairs == ((1, 4),)


def test_a_later_read_of_the_same_qubits_keeps_them_inside() -> None:
    gates = [gate for _ in range(5) for gate in (nb.h(7), nb.h(0))]
    assert len(exchanges(*gates)) == 1


def test_swaps_and_flips_among_the_numbers_part_no_run() -> None:
    gates = [nb.h(0), nb.swap(6, 7), nb.h(1), nb.x(7), nb.rx(3, 2), nb.h(6), nb.h(0)]
    words = plain_form(as_words(nb.program(*gates)), QUBITS)
    found = plan_for_rank(words, Placement(QUBITS, RANKS), words[:0, 0], rank=1)
    assert [type(step) is Transfer for step in found.steps] == [False, True, False]
    assert [len(step) for step in found.steps[::2]] == [3, 2]


def test_a_long_run_of_many_placements_is_one_run() -> None:
    gates = [gate for _ in range(600) for gate in (nb.swap(6, 0), nb.h(0), nb.swap(6, 0), nb.t(1))]
    words = plain_form(as_words(nb.program(*gates)), QUBITS)
    found = plan_for_rank(words, Placement(QUBITS, RANKS), words[:0, 0], rank=1)
    transfer, records = found.steps
    assert isinstance(transfer, Transfer)
    assert isinstance(records, np.ndarray)
    assert np.array_equal(records, np.tile(records[:2], 600))


def test_records_between_two_exchanges_are_one_run() -> None:
    found, _ = plan(nb.h(0), nb.t(7), nb.rx(3, 1), nb.h(7), nb.h(0), nb.z(6), nb.h(7))
    assert [type(step) for step in found] == [Gates, Exchange, Gates]
