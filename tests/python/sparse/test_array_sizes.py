"""Arrays that are too short or read-only, on the sparse filter: refused, nothing changed."""

from collections.abc import Iterator
from types import ModuleType
from typing import Any

import numpy as np
import pytest

from models.opcodes import H, X
from support import biggest_arrays
from support.arrays import READ_ONLY, assert_array_refused, guarded, locked, too_short
from support.dense import Vector, reset
from support.driver import rec
from support.sparse import SparseFilter, assert_same_amplitudes, open_sparse

QUBITS = 3
# Qubit 1 is 0 in both terms; the larger one is at 5.
AT_0_AND_5 = np.array([0.6, 0, 0, 0, 0, 0.8j, 0, 0])


def assert_refused(filter_: SparseFilter, text: str, name: str, array: Vector, *rest: Any) -> None:
    __tracebackhide__ = True
    terms = filter_.ranked()
    assert_array_refused(filter_, text, name, array, *rest)
    assert filter_.ranked() == terms


@pytest.fixture
def at_work(engine: ModuleType) -> Iterator[SparseFilter]:
    """A filter whose terms are at 0 and 5."""
    with open_sparse(engine, QUBITS) as filter_:
        filter_.load(AT_0_AND_5)
        yield filter_


@pytest.mark.parametrize("given", [0, 1, 5])
def test_a_whole_state_needs_room_up_to_its_highest_term(at_work: SparseFilter, given: int) -> None:
    text = too_short("pull_state", 6, given)
    assert_refused(at_work, text, "pull_state", guarded(given)[0])


def test_a_shorter_array_that_holds_every_term_will_do(at_work: SparseFilter) -> None:
    dest, whole = guarded(6)
    at_work.call("pull_state", dest)
    assert_same_amplitudes(dest, AT_0_AND_5[:6])
    assert np.count_nonzero(whole != 7j) == 6


def test_the_highest_term_need_not_be_the_last_of_the_list(at_work: SparseFilter) -> None:
    at_work.run(rec(X, target_mask=5))
    assert_refused(at_work, too_short("pull_state", 6, 5), "pull_state", guarded(5)[0])


def test_stored_zeros_need_room(engine: ModuleType) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        filter_.run(rec(H, target_mask=4), rec(H, target_mask=4))
        assert_refused(filter_, too_short("pull_state", 5, 4), "pull_state", guarded(4)[0])
        assert_refused(
            filter_, too_short("check_state", 5, 4), "check_state", np.ones(4) + 0j, 0.1, 0
        )
        name = "pull_state_specific"
        assert_refused(filter_, too_short(name, 2, 1), name, guarded(1)[0], 4)
        filter_.call("pull_state", guarded(5)[0])


def test_terms_beyond_the_register_need_room(engine: ModuleType) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.load(AT_0_AND_5)
        assert_refused(filter_, too_short("pull_state", 6, 2), "pull_state", guarded(2)[0])


@pytest.mark.parametrize(
    ("selector", "needed"),
    [
        (0b000, 1),
        (0b001, 2),
        (0b100, 2),
        (0b010, 1),  # qubit 1 is 0 in the only term of the slice
        (0b101, 4),
        (0b011, 2),
        (0b111, 6),
        (0xFFFFFFF8, 1),
        (0xFFFFFFF9, 2),
    ],
)
def test_a_slice_needs_room_up_to_its_highest_term(
    at_work: SparseFilter, selector: int, needed: int
) -> None:
    name = "pull_state_specific"
    for given in {0, 1, needed - 1} - {needed}:
        assert_refused(at_work, too_short(name, needed, given), name, guarded(given)[0], selector)
    dest, whole = guarded(needed)
    at_work.call(name, dest, selector)
    assert dest[-1] == 0.8j
    assert np.count_nonzero(whole != 7j) == needed


def test_terms_outside_the_slice_need_no_room(at_work: SparseFilter) -> None:
    at_work.run(rec(X, target_mask=5))  # the larger term is now at 0, the other at 5
    dest, whole = guarded(1)
    at_work.call("pull_state_specific", dest, 0b100)
    assert dest[0] == 0.8j
    assert np.count_nonzero(whole != 7j) == 1


@pytest.mark.parametrize("given", [1, 2, 5])
def test_a_check_needs_room_up_to_the_highest_term(at_work: SparseFilter, given: int) -> None:
    text = too_short("check_state", 6, given)
    assert_refused(at_work, text, "check_state", AT_0_AND_5[:given], 0.0, 0)
    assert at_work.check(AT_0_AND_5[:6], 0.0) == 1


def test_a_mismatch_met_before_the_end_of_the_array_answers(at_work: SparseFilter) -> None:
    # The term at 0 comes first in the list and does not match.
    assert at_work.check(np.array([9j]), 0.5) == 0
    assert_refused(at_work, too_short("check_state", 6, 0), "check_state", AT_0_AND_5[:0], 0.5, 0)
    # Flipped, the first term of the list is the one at 5.
    at_work.run(rec(X, target_mask=5))
    assert_refused(at_work, too_short("check_state", 6, 1), "check_state", np.array([9j]), 0.5, 0)


def test_no_terms_need_no_room(engine: ModuleType) -> None:
    nothing = AT_0_AND_5[:0]
    with open_sparse(engine) as filter_:
        for _ in range(2):
            assert filter_.call("pull_state", nothing) == ""
            assert filter_.call("pull_state_specific", nothing, 1) == ""
            assert filter_.call("check_state", nothing, 0.0, 0) == 1
            filter_.run(reset(QUBITS))
            filter_.load(nothing)


def test_a_value_without_a_place(at_work: SparseFilter) -> None:
    for index in (0, 1, 99):
        text = too_short("peek_value", 1, 0)
        assert_refused(at_work, text, "peek_value", guarded(0)[0], index)


@biggest_arrays.COUNTS
def test_biggest_terms(at_work: SparseFilter, count: int) -> None:
    biggest_arrays.assert_short_refused(at_work, count)


def test_only_as_many_places_as_asked_for_are_written(at_work: SparseFilter) -> None:
    indices: np.ndarray[Any, Any] = np.full(5, 7, dtype=np.int64)
    values = np.full(6, 7j)
    at_work.call("peek_n_biggest_terms", 3, indices, values)
    assert indices.tolist() == [5, 0, 0, 7, 7]
    np.testing.assert_array_equal(values, [0.8j, 0.6, 0, 7j, 7j, 7j])


def test_a_count_of_0_touches_nothing(at_work: SparseFilter) -> None:
    biggest_arrays.assert_none_touch_nothing(at_work)


@pytest.mark.parametrize(
    ("name", "rest"),
    [
        ("pull_state", ()),
        ("pull_state_specific", (0,)),
        ("pull_state_specific", (2,)),
        ("peek_value", (0,)),
        ("peek_value", (1,)),
    ],
)
def test_arrays_not_to_be_written(at_work: SparseFilter, name: str, rest: tuple[int, ...]) -> None:
    assert_refused(at_work, READ_ONLY.format(name), name, locked(8), *rest)


def test_an_array_that_would_only_be_cleared_must_be_writable(engine: ModuleType) -> None:
    dest = locked(4)
    with open_sparse(engine) as filter_:
        for name, rest in (("pull_state", ()), ("pull_state_specific", (1,))):
            filter_.call_fails(READ_ONLY.format(name), name, dest, *rest)
    np.testing.assert_array_equal(dest, [7j] * 4)


def test_biggest_terms_into_arrays_not_to_be_written(at_work: SparseFilter) -> None:
    biggest_arrays.assert_locked_refused(at_work)


def test_sources_need_not_be_written_and_may_have_any_length(at_work: SparseFilter) -> None:
    source = np.array([0, 0.5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1j])
    source.setflags(write=False)
    for length, terms in ((12, 2), (3, 1), (1, 0)):
        at_work.load(source[:length])
        assert at_work.num_terms() == terms
        assert at_work.check(source[:length], 0.0) == 1


def test_narrow_amplitudes_count_by_their_memory(at_work: SparseFilter) -> None:
    # complex64 passes the engine's test of the first stride, but the last element is cut short.
    narrow = np.zeros(12, dtype=np.complex64)[::2]
    assert len(narrow) == 6
    at_work.call_fails(too_short("pull_state", 6, 5), "pull_state", narrow)
    assert not narrow.any()


def test_a_state_that_grew_needs_more(engine: ModuleType) -> None:
    dest = np.zeros(4, dtype=np.complex128)
    with open_sparse(engine, 60) as filter_:
        filter_.call("pull_state", dest)
        filter_.run(rec(X, target_mask=1 << 59))
        text = too_short("pull_state", 2**59 + 1, 4)
        filter_.call_fails(text, "pull_state", dest)
        filter_.call_fails(too_short("check_state", 2**59 + 1, 4), "check_state", dest, 0.0, 0)
        filter_.run(rec(X, target_mask=1 << 59))
        filter_.call("pull_state", dest)
        assert_same_amplitudes(dest, np.array([1, 0, 0, 0]) + 0j)
