"""Transfer of a sparse state: pushing, pulling whole or in slices, and checking."""

import math
from types import ModuleType

import numpy as np
import pytest

from models.opcodes import H, X, Y
from models.sparse import PARTIAL_PUSH
from support.dense import Vector, reset
from support.driver import rec
from support.sparse import assert_same_amplitudes, open_sparse

# The squares of its parts sum to the double 1e-25 exactly; those of the other one to the double
# just below.
AT_THE_LIMIT = complex(3.104834939252005e-13, 6e-14)
BELOW_THE_LIMIT = complex(3.162277660168379e-13, 0.0)


def array(*values: complex) -> Vector:
    return np.array(values, dtype=np.complex128)


def empty() -> Vector:
    """An empty array with the stride of an amplitude."""
    return array(0)[:0]


# Pushing.


def test_a_push_replaces_all_terms_in_order_of_their_index(engine: ModuleType) -> None:
    with open_sparse(engine, 3) as filter_:
        filter_.run(rec(H, target_mask=7))
        filter_.load(array(0, 0.5j, -0.5, 0, 0, 0.5, 0, -0.5j))
        assert filter_.num_terms() == 4
        assert filter_.ranked() == [(1, 0.5j), (2, -0.5), (5, 0.5), (7, -0.5j)]


def test_a_push_keeps_what_is_at_the_threshold_and_drops_what_is_below(engine: ModuleType) -> None:
    at, below = AT_THE_LIMIT, BELOW_THE_LIMIT
    assert at.real * at.real + at.imag * at.imag == 1e-25
    assert below.real * below.real == math.nextafter(1e-25, 0.0)
    with open_sparse(engine, 2) as filter_:
        filter_.load(array(below, at, -below, -at))
        assert filter_.num_terms() == 2
        assert_same_amplitudes(filter_.state(2), array(0, at, 0, -at))


def test_a_push_drops_negative_zeros_and_keeps_what_is_no_number(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(array(complex(-0.0, 0.0), complex(math.nan, 0), complex(0, math.inf), 0))
        assert filter_.num_terms() == 2
        state = filter_.state(2)
        assert math.isnan(state[1].real)
        assert state[2] == complex(0, math.inf)
        assert state[0] == state[3] == 0


def test_no_threshold_is_set_before_the_first_reset(engine: ModuleType) -> None:
    with open_sparse(engine) as filter_:
        terms = array(0, complex(-0.0, 0.0), 1e-300, BELOW_THE_LIMIT)
        filter_.load(terms)
        assert filter_.num_terms() == 3
        assert_same_amplitudes(filter_.state(2), terms)
        filter_.run(reset(2))
        filter_.load(terms)
        assert filter_.num_terms() == 0


def test_a_push_does_not_size_the_register(engine: ModuleType) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.load(array(0, 0, 0, 0, 0, 1))
        filter_.run(rec(X, target_mask=7))  # qubits 1 and 2 do not exist
        assert filter_.ranked() == [(4, 1.0)]
        filter_.load(array(0.5))
        filter_.run(rec(X, target_mask=7))
        assert filter_.ranked() == [(1, 0.5)]


@pytest.mark.parametrize("source", [empty(), array(0), array(0, 0, 0, 0)])
def test_a_push_of_nothing_leaves_no_terms(engine: ModuleType, source: Vector) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(source)
        assert filter_.num_terms() == 0
        assert_same_amplitudes(filter_.state(2), array(0, 0, 0, 0))


@pytest.mark.parametrize("mask", [1, 2, 3, 8, 2**32 - 1])
def test_a_partial_push_is_refused_and_leaves_the_state(engine: ModuleType, mask: int) -> None:
    with open_sparse(engine) as filter_:
        filter_.call_fails(PARTIAL_PUSH, "push_state", array(0.5, 0.5), mask)
        filter_.run(reset(2), rec(X, target_mask=2))
        filter_.call_fails(PARTIAL_PUSH, "push_state", array(0.5, 0.5), mask)
        assert filter_.ranked() == [(2, 1.0)]


def test_the_text_of_a_partial_push() -> None:
    assert PARTIAL_PUSH == "Partial push_state is not yet implemented for sparse_sv."


# Pulling.


def test_a_pull_clears_the_whole_array(engine: ModuleType) -> None:
    dest = np.full(6, 7j)
    with open_sparse(engine, 2) as filter_:
        filter_.run(rec(X, target_mask=2))
        assert filter_.call("pull_state", dest) == ""
        assert_same_amplitudes(dest, array(0, 0, 1, 0, 0, 0))


LARGEST_AT_5 = array(0.1, 0.2, 0.3, 0.4, 0.5j, 0.6 + 0.1j, 0.2j, 0.3j)


@pytest.mark.parametrize(
    ("mask", "expected"),
    [
        (0b001, (0.5j, 0.6 + 0.1j)),
        (0b010, (0.6 + 0.1j, 0.3j)),
        (0b100, (0.2, 0.6 + 0.1j)),
        (0b101, (0.1, 0.2, 0.5j, 0.6 + 0.1j)),
        (0b110, (0.2, 0.4, 0.6 + 0.1j, 0.3j)),
        (0b111, tuple(LARGEST_AT_5.tolist())),
        (0b000, (0.6 + 0.1j,)),
    ],
)
def test_a_slice_is_the_one_around_the_largest_term(
    engine: ModuleType, mask: int, expected: tuple[complex, ...]
) -> None:
    with open_sparse(engine, 3) as filter_:
        filter_.load(LARGEST_AT_5)
        assert_same_amplitudes(filter_.slice(mask), array(*expected))
        beyond = 0xFFFFFFF8
        assert_same_amplitudes(filter_.slice(mask | beyond, len(expected)), array(*expected))
        rest = [0] * (9 - len(expected))
        assert_same_amplitudes(filter_.slice(mask, 9), array(*expected, *rest))


def test_a_slice_knows_only_the_qubits_of_the_register(engine: ModuleType) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.load(array(0.1, 0.2, 0.3, 0.4, 0.5, 0.6))
        assert_same_amplitudes(filter_.slice(0b110), array(0.6, 0, 0, 0))
        assert_same_amplitudes(filter_.slice(0b101), array(0.5, 0.6, 0, 0))


def test_a_slice_of_entangled_qubits_tells_nothing(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(array(0.6, 0, 0, 0.8))
        # Neither a message nor a norm of 1.
        assert_same_amplitudes(filter_.slice(1), array(0, 0.8))


def test_among_equals_the_slice_of_the_first_term_in_the_list_is_taken(engine: ModuleType) -> None:
    h = 0.7071067811865475
    with open_sparse(engine, 2) as filter_:
        filter_.load(array(0.5, -0.5, 0.5j, -0.5j))
        assert_same_amplitudes(filter_.slice(1), array(0.5, -0.5))
        assert_same_amplitudes(filter_.slice(2), array(0.5, 0.5j))
        # The term at 2 keeps its place in the list, and the one at 0 comes behind it.
        filter_.run(reset(2), rec(X, target_mask=2), rec(H, target_mask=2))
        assert_same_amplitudes(filter_.slice(1), array(complex(-h, -0.0), 0))
        filter_.run(rec(X, target_mask=2))
        assert_same_amplitudes(filter_.slice(1), array(complex(-h, -0.0), 0))
        assert filter_.ranked() == [(0, -h), (2, h)]


def test_without_a_magnitude_above_0_the_slice_is_that_of_term_0(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(array(0, 0, complex(math.nan, 0), complex(0, math.nan)))
        assert_same_amplitudes(filter_.slice(1), array(0, 0))
        slice_ = filter_.slice(2)
        assert slice_[0] == 0
        assert math.isnan(slice_[1].real)


# Checking.


def test_only_stored_terms_are_compared(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        assert filter_.check(array(1, 1, 1, 1), 0.0) == 1
        assert filter_.check(array(1, 5j, -7, math.nan), 0.0) == 1
        assert filter_.check(array(0, 1, 1, 1), 0.5) == 0
        filter_.run(rec(X, target_mask=2))
        assert filter_.check(array(9, 9, 1, 9), 0.0) == 1
        assert filter_.check(array(1, 1, 0, 1), 0.5) == 0


def test_a_stored_zero_is_compared(engine: ModuleType) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.run(rec(Y, target_mask=1))  # leaves its old term at 0
        assert filter_.check(array(0, 1j), 0.0) == 1
        assert filter_.check(array(0.5, 1j), 0.25) == 0


@pytest.mark.parametrize(
    ("expected", "tolerance", "answer"),
    [
        (1.25 + 0.5j, 0.0, 1),
        (1.5 + 0.5j, 0.25, 1),  # a difference that equals the tolerance passes
        (1.5 + 0.5j, 0.2499, 0),
        (1.0 + 0.5j, 0.2499, 0),
        (1.25 + 0.75j, 0.25, 1),
        (1.25 + 0.75j, 0.2499, 0),
        (1.25 + 0.25j, 0.2499, 0),
        (1.5 + 0.75j, 0.25, 1),  # each part separately, not the distance
        (1.25 + 0.5j, -1.0, 0),
        (complex(math.nan, 0.5), 0.0, 1),  # compares as not greater
        (complex(math.inf, 0.5), 1e300, 0),
        (9.0 + 9.0j, math.nan, 1),
    ],
)
def test_the_tolerance(
    engine: ModuleType, expected: complex, tolerance: float, answer: int
) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.load(array(1.25 + 0.5j))
        for flag in (0, 1, -1):
            got = filter_.call("check_state", array(expected), tolerance, flag)
            assert (type(got), got) == (int, answer)


def test_no_terms_equal_anything(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(array(0))
        assert filter_.check(array(1, 2, 3, 4), -1.0) == 1
        assert filter_.check(empty(), 0.0) == 1
