"""Arrays for the biggest terms that a state-vector filter refuses or ignores."""

from __future__ import annotations

from typing import Any

import numpy as np
import pytest

from support.arrays import READ_ONLY, too_short
from support.dense import StateFilter, Vector

CALL = "peek_n_biggest_terms"
COUNTS = pytest.mark.parametrize("count", [1, 4, 2**28, 2**32 - 1])


def places(count: int) -> tuple[np.ndarray[Any, Any], Vector]:
    """Arrays for the indices and amplitudes of this many terms, filled with 7s."""
    return np.full(count, 7, dtype=np.uint64), np.full(count, 7j)


def assert_still_7s(indices: np.ndarray[Any, Any], values: Vector) -> None:
    __tracebackhide__ = True
    np.testing.assert_array_equal(indices, np.full(len(indices), 7))
    np.testing.assert_array_equal(values, np.full(len(values), 7j))


def assert_short_refused(filter_: StateFilter, count: int) -> None:
    """Arrays for fewer than the biggest `count` terms are refused, and nothing is written."""
    given = min(count - 1, 3)
    indices, values = places(8)
    needs = f"Error: {CALL}() needs an array of {count} indices, but was given {given}."
    # The indices are checked first.
    filter_.call_fails(needs, CALL, count, indices[:given], values[:given])
    filter_.call_fails(needs, CALL, count, indices[:given], values)
    if count < 8:
        text = too_short(CALL, count, given)
        filter_.call_fails(text, CALL, count, indices, values[:given])
    assert_still_7s(indices, values)


def assert_locked_refused(filter_: StateFilter) -> None:
    """Both arrays of the biggest terms are refused if they are read-only."""
    for which in (0, 1):
        arrays = places(2)
        arrays[which].setflags(write=False)
        filter_.call_fails(READ_ONLY.format(CALL), CALL, 2, *arrays)
        assert_still_7s(*arrays)


def assert_none_touch_nothing(filter_: StateFilter) -> None:
    """A count of 0 accepts empty and read-only arrays."""
    indices, values = places(3)
    filter_.call(CALL, 0, indices, values)
    filter_.call(CALL, 0, indices[:0], values[:0])
    indices.setflags(write=False)
    filter_.call(CALL, 0, indices, values)
    assert_still_7s(indices, values)
