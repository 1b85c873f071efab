"""Arrays that are too short or read-only, and indices outside: refused, nothing changed."""

import random
from types import ModuleType
from typing import Any

import numpy as np
import pytest

from models.dense import NOT_ALLOCATED
from support import biggest_arrays
from support.arrays import READ_ONLY, assert_array_refused, guarded, locked, too_short
from support.dense import (
    DenseFilter,
    Setting,
    Vector,
    assert_same_bits,
    open_dense,
    random_state,
    reset,
    settings,
)

QUBITS = 3


@pytest.fixture(params=settings([1, 3]), ids=str)
def setting(request: pytest.FixtureRequest) -> Setting:
    chosen: Setting = request.param
    return chosen


def assert_refused(filter_: DenseFilter, text: str, name: str, array: Vector, *rest: Any) -> None:
    __tracebackhide__ = True
    state = filter_.state(QUBITS)
    assert_array_refused(filter_, text, name, array, *rest)
    assert_same_bits(filter_.state(QUBITS), state)


@pytest.fixture
def at_work(engine: ModuleType, rng: random.Random, setting: Setting) -> Any:
    """A filter with a random state."""
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(random_state(rng, QUBITS))
        yield filter_


@pytest.mark.parametrize("given", [0, 1, 7])
def test_whole_states(at_work: DenseFilter, given: int) -> None:
    for name, rest in (
        ("pull_state", ()),
        ("pull_state_specific", (0,)),
        ("push_state", (0,)),
        ("check_state", (9.0, 1)),
    ):
        assert_refused(at_work, too_short(name, 8, given), name, guarded(given)[0], *rest)


@pytest.mark.parametrize(("selector", "needed"), [(1, 2), (4, 2), (3, 4), (5, 4), (7, 8)])
def test_selected_qubits(at_work: DenseFilter, selector: int, needed: int) -> None:
    for name in ("pull_state_specific", "push_state"):
        for given in {0, 1, needed - 1}:
            text = too_short(name, needed, given)
            assert_refused(at_work, text, name, guarded(given)[0], selector)


def test_a_pull_counts_the_registers_qubits_alone(at_work: DenseFilter) -> None:
    beyond = 0xFFFFFFF8
    name = "pull_state_specific"
    assert_refused(at_work, too_short(name, 2, 1), name, guarded(1)[0], beyond | 2)
    dest, whole = guarded(2)
    at_work.call(name, dest, beyond | 2)
    assert np.count_nonzero(whole != 7j) == 2


@pytest.mark.parametrize("selector", [8, 9, 24, 2**31, 2**31 + 3])
def test_a_push_to_qubits_outside(at_work: DenseFilter, selector: int) -> None:
    text = f"Error: push_state() selector {selector} names qubits outside the register of 3 qubits."
    assert_refused(at_work, text, "push_state", np.zeros(8, dtype=np.complex128), selector)


@pytest.mark.parametrize("index", [8, 9, 2**31, 2**32 - 1])
def test_a_value_outside(at_work: DenseFilter, index: int) -> None:
    text = f"Error: peek_value() index {index} lies outside the register of 8 terms."
    assert_refused(at_work, text, "peek_value", guarded(1)[0], index)


def test_a_value_without_a_place(at_work: DenseFilter) -> None:
    assert_refused(at_work, too_short("peek_value", 1, 0), "peek_value", guarded(0)[0], 2)


@biggest_arrays.COUNTS
def test_biggest_terms(at_work: DenseFilter, count: int) -> None:
    biggest_arrays.assert_short_refused(at_work, count)


@pytest.mark.parametrize(
    ("name", "rest"),
    [
        ("pull_state", ()),
        ("pull_state_specific", (0,)),
        ("pull_state_specific", (2,)),
        ("peek_value", (1,)),
    ],
)
def test_arrays_not_to_be_written(at_work: DenseFilter, name: str, rest: tuple[int, ...]) -> None:
    assert_refused(at_work, READ_ONLY.format(name), name, locked(8), *rest)


def test_biggest_terms_into_arrays_not_to_be_written(at_work: DenseFilter) -> None:
    biggest_arrays.assert_locked_refused(at_work)


def test_sources_need_not_be_written(at_work: DenseFilter, rng: random.Random) -> None:
    state = random_state(rng, QUBITS)
    state.setflags(write=False)
    at_work.call("push_state", state, 0)
    assert at_work.call("check_state", state, 0.0, 1) == 1
    at_work.call("push_state", state[:2], 1)


def test_narrow_amplitudes_count_by_their_memory(at_work: DenseFilter) -> None:
    # complex64 passes the engine's test of the first stride, but the last element is cut short.
    narrow = np.zeros(16, dtype=np.complex64)[::2]
    assert_refused_narrow(at_work, "pull_state", narrow)
    assert_refused_narrow(at_work, "push_state", narrow, 0)


def assert_refused_narrow(filter_: DenseFilter, name: str, array: Any, *rest: int) -> None:
    __tracebackhide__ = True
    filter_.call_fails(too_short(name, 8, 7), name, array, *rest)
    assert not array.any()


def test_rows_of_amplitudes_count_all_that_lies_there(at_work: DenseFilter) -> None:
    dest = np.full((8, 1), 7j)
    at_work.call("pull_state", dest)
    assert_same_bits(dest.reshape(-1), at_work.state(QUBITS))


def test_memory_before_the_first_element_does_not_count(at_work: DenseFilter) -> None:
    whole = np.full((8, 2), 7j, order="F")
    dest = whole[:, ::-1]  # its second column lies before its first
    at_work.call("pull_state", dest)
    assert_same_bits(whole[:, 1], at_work.state(QUBITS))
    assert (whole[:, 0] == 7j).all()


def test_a_missing_register_is_told_first(engine: ModuleType) -> None:
    empty = np.zeros(2, dtype=np.complex128)[:0]
    no_indices: np.ndarray[Any, Any] = np.zeros(2, dtype=np.uint64)[:0]
    locked = np.zeros(8, dtype=np.complex128)
    locked.setflags(write=False)
    with open_dense(engine) as filter_:
        for array in (empty, locked):
            filter_.call_fails(NOT_ALLOCATED, "pull_state", array)
            filter_.call_fails(NOT_ALLOCATED, "pull_state_specific", array, 1)
            filter_.call_fails(NOT_ALLOCATED, "push_state", array, 2**31)
            filter_.call_fails(NOT_ALLOCATED, "check_state", array, 0.0, 0)
            filter_.call_fails(NOT_ALLOCATED, "peek_value", 99, array)
            filter_.call_fails(NOT_ALLOCATED, "peek_n_biggest_terms", 5, no_indices, array)


def test_a_register_that_grew_needs_more(engine: ModuleType) -> None:
    dest = np.zeros(8, dtype=np.complex128)
    with open_dense(engine, QUBITS) as filter_:
        filter_.call("pull_state", dest)
        filter_.run(reset(4))
        filter_.call_fails(too_short("pull_state", 16, 8), "pull_state", dest)
        filter_.run(reset(2))
        filter_.call("pull_state", dest)
