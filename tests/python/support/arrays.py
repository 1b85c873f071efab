"""Arrays that a state-vector filter refuses: too short or read-only."""

from __future__ import annotations

from typing import Any

import numpy as np

from support.dense import StateFilter, Vector

READ_ONLY = "Error: {}() needs an array that it may write to."


def too_short(name: str, needed: int, given: int) -> str:
    return f"Error: {name}() needs an array of {needed} amplitudes, but was given {given}."


def guarded(length: int) -> tuple[Vector, Vector]:
    """An array inside a larger one. Nothing in either may change."""
    whole = np.full(32, 7j)
    return whole[8 : 8 + length], whole


def locked(length: int) -> Vector:
    dest = np.full(length, 7j)
    dest.setflags(write=False)
    return dest


def assert_array_refused(
    filter_: StateFilter, text: str, name: str, array: Vector, *rest: Any
) -> None:
    """Expects a call with the array to fail with this text and to change nothing around it."""
    __tracebackhide__ = True
    whole = array if array.base is None else array.base
    before = whole.copy()
    arguments = (*rest, array) if name == "peek_value" else (array, *rest)
    filter_.call_fails(text, name, *arguments)
    np.testing.assert_array_equal(whole, before)
