"""Checks of arrays: element type, first stride and length, in this order."""

from types import ModuleType
from typing import Any

import numpy as np
import pytest

from models.program import NO_REGISTER
from support.driver import raises_engine_error

Array = np.ndarray[Any, Any]

PULL_BUFFER = "Error: pull_state() dest buffer must be an array of type complex128"
PUSH_BUFFER = "Error: push_state() dest buffer must be an array of type complex128"
OVERRIDE_BUFFER = "Error: override_state_buffer() buffer must be an array of type complex128"
OVERRIDE_LENGTH = "Error: override_state_buffer() buffer must be an power of 2 in length"
OVERRIDE_PASSED = "Error: override_state_buffer is not implemented for this filter type."
PEEK_VALUE = "Error: peek_value() dest_amplitude must be an array of type complex128"
BIGGEST_INDICES = "Error: peek_n_biggest_terms() dest_indoces must be an array of type int"
BIGGEST_AMPLITUDES = (
    "Error: peek_n_biggest_terms() dest_amplitudes must be an array of type complex128"
)

NOT_AMPLITUDES: dict[str, Array] = {
    "float64": np.zeros(4),
    "float64 16 bytes apart": np.zeros(8)[::2],
    "uint64": np.zeros(4, dtype=np.uint64),
    "complex64": np.zeros(4, dtype=np.complex64),
    "clongdouble": np.zeros(4, dtype=np.clongdouble),
    "strided": np.zeros(8, dtype=np.complex128)[::2],
    "reversed": np.zeros(4, dtype=np.complex128)[::-1],
    "broadcast": np.broadcast_to(np.complex128(0), (4,)),
    "rows of two": np.zeros((4, 2), dtype=np.complex128),
    "no dimension": np.zeros((), dtype=np.complex128),
    "object": np.zeros(4, dtype=object),
}

# An empty array is a slice here because NumPy's versions differ in the stride of one made empty.
AMPLITUDES: dict[str, Array] = {
    "plain": np.zeros(4, dtype=np.complex128),
    "one element": np.zeros(1, dtype=np.complex128),
    "empty": np.zeros(4, dtype=np.complex128)[:0],
    "rows of one": np.zeros((4, 1), dtype=np.complex128),
    "read-only": np.broadcast_to(np.zeros(4, dtype=np.complex128), (4,)),
    # Type and stride are checked separately, and the element size is not checked.
    "complex64 16 bytes apart": np.zeros(8, dtype=np.complex64)[::2],
}

NOT_INDICES: dict[str, Array] = {
    "complex128": np.zeros(4, dtype=np.complex128),
    "complex64": np.zeros(4, dtype=np.complex64),
    "uint32": np.zeros(4, dtype=np.uint32),
    "strided": np.zeros(8, dtype=np.uint64)[::2],
    "reversed": np.zeros(4, dtype=np.uint64)[::-1],
    "no dimension": np.zeros((), dtype=np.uint64),
}

INDICES: dict[str, Array] = {
    "uint64": np.zeros(4, dtype=np.uint64),
    "int64": np.zeros(4, dtype=np.int64),
    "float64": np.zeros(4),
    "uint32 8 bytes apart": np.zeros(8, dtype=np.uint32)[::2],
    "empty": np.zeros(4, dtype=np.uint64)[:0],
}


def each(arrays: dict[str, Array]) -> pytest.MarkDecorator:
    """One test case for each named array."""
    return pytest.mark.parametrize("array", [pytest.param(a, id=n) for n, a in arrays.items()])


GOOD = AMPLITUDES["plain"]


@each(NOT_AMPLITUDES)
@pytest.mark.parametrize(
    ("name", "text", "rest"),
    [
        ("pull_state", PULL_BUFFER, ()),
        ("pull_state_specific", PULL_BUFFER, (0,)),
        ("push_state", PUSH_BUFFER, (0,)),
        ("check_state", PUSH_BUFFER, (0.1, 1)),
    ],
)
def test_buffers_that_are_no_amplitudes(
    engine: ModuleType, bit_filter: int, name: str, text: str, rest: tuple[Any, ...], array: Array
) -> None:
    with raises_engine_error(text):
        getattr(engine, name)(bit_filter, array, *rest)


@each(NOT_AMPLITUDES)
def test_peek_value_refuses_other_buffers(
    engine: ModuleType, bit_filter: int, array: Array
) -> None:
    with raises_engine_error(PEEK_VALUE):
        engine.peek_value(bit_filter, 0, array)


@each(AMPLITUDES)
def test_amplitude_buffers_pass(engine: ModuleType, bit_filter: int, array: Array) -> None:
    assert engine.check_state(bit_filter, array, 0.1, 1) == 1
    assert engine.peek_value(bit_filter, 0, array) is None
    with raises_engine_error(NO_REGISTER):
        engine.pull_state(bit_filter, array)
    with raises_engine_error("Error: no QPU data for qc.pull_state_specific()"):
        engine.pull_state_specific(bit_filter, array, 0)
    with raises_engine_error("qc.push_state() has not been implemented for the Clifford sim."):
        engine.push_state(bit_filter, array, 0)


@pytest.mark.parametrize("length", [3, 5, 6, 7, 12, 1023])
@pytest.mark.parametrize("dtype", [np.complex128, np.float64])
def test_override_wants_a_power_of_two_before_anything_else(
    engine: ModuleType, bit_filter: int, length: int, dtype: type
) -> None:
    with raises_engine_error(OVERRIDE_LENGTH):
        engine.override_state_buffer(bit_filter, np.zeros(length, dtype=dtype))


@each({name: array for name, array in NOT_AMPLITUDES.items() if name != "no dimension"})
def test_override_refuses_other_buffers(engine: ModuleType, bit_filter: int, array: Array) -> None:
    with raises_engine_error(OVERRIDE_BUFFER):
        engine.override_state_buffer(bit_filter, array)


@pytest.mark.parametrize("length", [0, 1, 2, 4, 8, 1024])
def test_override_passes_powers_of_two_and_an_empty_buffer(
    engine: ModuleType, bit_filter: int, length: int
) -> None:
    with raises_engine_error(OVERRIDE_PASSED):
        engine.override_state_buffer(bit_filter, np.zeros(1024, dtype=np.complex128)[:length])


def test_override_counts_the_first_dimension_alone(engine: ModuleType, bit_filter: int) -> None:
    with raises_engine_error(OVERRIDE_LENGTH):
        engine.override_state_buffer(bit_filter, np.zeros((3, 4), dtype=np.complex128))
    with raises_engine_error(OVERRIDE_PASSED):
        engine.override_state_buffer(bit_filter, np.zeros((4, 1), dtype=np.complex128))


@each(NOT_INDICES)
@pytest.mark.parametrize("amplitudes", [GOOD, NOT_AMPLITUDES["float64"]])
def test_biggest_terms_checks_the_indices_first(
    engine: ModuleType, bit_filter: int, array: Array, amplitudes: Array
) -> None:
    with raises_engine_error(BIGGEST_INDICES):
        engine.peek_n_biggest_terms(bit_filter, 1, array, amplitudes)


@each(NOT_AMPLITUDES)
def test_biggest_terms_then_checks_the_amplitudes(
    engine: ModuleType, bit_filter: int, array: Array
) -> None:
    with raises_engine_error(BIGGEST_AMPLITUDES):
        engine.peek_n_biggest_terms(bit_filter, 1, INDICES["uint64"], array)


@each(INDICES)
def test_index_arrays_pass(engine: ModuleType, bit_filter: int, array: Array) -> None:
    assert engine.peek_n_biggest_terms(bit_filter, 1, array, GOOD) is None
