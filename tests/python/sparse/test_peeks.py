"""Probabilities, the largest terms, normalising and postselection on the sparse filter."""

import math
from types import ModuleType

import numpy as np
import pytest

from models.arithmetic import Generator
from models.opcodes import READ, H, X
from models.sparse import NO_MATCH, NO_PEEK_MASK, NO_POSTSELECT_MASK
from support.dense import Vector, basis, reset
from support.driver import rec
from support.sparse import assert_same_amplitudes, open_sparse

QUARTERS = np.array([0.5, 0.5j, -0.5, 0.5]) + 0j
UNEVEN = np.array([0.25, 0.5, 0.75j, 1.0, -0.125, 0, 0.375 - 0.5j, 0.0625]) + 0j


def array(*values: complex) -> Vector:
    return np.array(values, dtype=np.complex128)


# Probabilities.


def test_the_texts_for_an_empty_mask() -> None:
    assert NO_PEEK_MASK == "qc.peek_read_probability() must specify at least one qubit to measure."
    assert NO_POSTSELECT_MASK == "qc.postselect() must specify at least one qubit to measure."


def test_a_probability_needs_a_qubit(engine: ModuleType) -> None:
    with open_sparse(engine) as filter_:
        for _ in range(2):
            filter_.call_fails(NO_PEEK_MASK, "peek_read_probability", 0, 0, 0.0)
            filter_.call_fails(NO_PEEK_MASK, "peek_read_probability", 1, 0, 0.5)
            filter_.call_fails(NO_PEEK_MASK, "peek_read_probability", 1, 1 << 32, 0.0)
            filter_.run(reset(2))


@pytest.mark.parametrize(
    ("value", "mask", "expected"),
    [
        (0b000, 0b001, 0.0625 + 0.5625 + 0.015625 + 0.390625),
        (0b001, 0b001, 0.25 + 1.0 + 0.00390625),
        (0b110, 0b110, 0.390625 + 0.00390625),
        (0b101, 0b111, 0.0),
        (0b110, 0b111, 0.390625),
        # A value with bits outside the mask matches nothing. Bits outside the register are ignored.
        (0b010, 0b001, 0.0),
        (0b1000, 0b001, 0.0625 + 0.5625 + 0.015625 + 0.390625),
        (0b1001, 0b1001, 0.25 + 1.0 + 0.00390625),
        # No qubit of the mask exists: every term matches the value 0.
        (0b1000, 0b1000, 2.28515625),
        (0b0001, 0b1000, 0.0),
    ],
)
def test_probabilities(engine: ModuleType, value: int, mask: int, expected: float) -> None:
    with open_sparse(engine, 3) as filter_:
        filter_.load(UNEVEN)  # not normalised, and all squares exact
        assert filter_.probability(value, mask) == expected
        assert_same_amplitudes(filter_.state(3), UNEVEN)


@pytest.mark.parametrize(
    ("limit", "expected"),
    [
        (0.0, 1.0),
        (-0.0, 1.0),
        (0.5, 0.5),
        (0.5000001, 0.75),
        (0.25, 0.25),
        (1e-9, 0.25),
        (5e-324, 0.25),
        (-1.0, 0.25),  # tested only after a first term
        (-math.inf, 0.25),
        (1.0, 1.0),
        (2.0, 1.0),
        (math.inf, 1.0),
        (math.nan, 1.0),
    ],
)
def test_the_limit_ends_the_sum(engine: ModuleType, limit: float, expected: float) -> None:
    with open_sparse(engine, 3) as filter_:
        filter_.load(QUARTERS)
        assert filter_.probability(0, 4, limit) == expected
        assert filter_.probability(4, 4, limit) == 0.0  # no term matches, so no limit is met


def test_the_sum_goes_in_list_order(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(array(0.5, 0.25, 0, 0))
        assert filter_.probability(0, 2, 0.01) == 0.25
        filter_.run(rec(X, target_mask=1))  # the larger term is still the first one
        assert filter_.probability(0, 2, 0.01) == 0.25
        filter_.load(array(0.25, 0.5, 0, 0))
        assert filter_.probability(0, 2, 0.01) == 0.0625


def test_terms_that_do_not_match_are_not_counted_for_the_limit(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(array(1.0, 0.25, 1.0, 0.5))
        assert filter_.probability(1, 1, 0.0625) == 0.0625
        assert filter_.probability(1, 1, 0.1) == 0.3125


def test_a_peek_draws_nothing(engine: ModuleType) -> None:
    with open_sparse(engine, 4) as filter_:
        filter_.load(np.full(16, 0.25 + 0j))
        engine.random_seed(0, 21)
        filter_.probability(3, 7)
        filter_.biggest(3)
        filter_.call("normalize")
        filter_.call("postselect", 0, 1 << 5)
        filter_.run(rec(READ, target_mask=15, read_flag=2))
        assert filter_.flags(2, 4) == math.ceil(Generator(21).zero_to_one() * 16) - 1


def test_probabilities_of_no_terms(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(array(0))
        assert filter_.probability(0, 1) == 0.0
        assert filter_.probability(0, 1, 0.5) == 0.0


# The largest terms.


@pytest.mark.parametrize("count", [1, 2, 3, 5, 7, 8, 12])
def test_the_largest_come_first(engine: ModuleType, count: int) -> None:
    ranking = [3, 2, 6, 1, 0, 4, 7]  # 5 is not stored
    with open_sparse(engine, 3) as filter_:
        filter_.load(UNEVEN)
        indices, values = filter_.biggest(count)
        expected = (ranking + [0] * count)[:count]
        assert indices == expected
        amplitudes = [UNEVEN[index] for index in ranking] + [0] * count
        assert_same_amplitudes(values, array(*amplitudes[:count]))


def test_among_equals_the_earlier_of_the_list_is_first(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(QUARTERS)
        assert filter_.biggest(4)[0] == [0, 1, 2, 3]
        assert filter_.biggest(2)[0] == [0, 1]
        filter_.run(rec(X, target_mask=3))
        assert filter_.biggest(4)[0] == [3, 2, 1, 0]
        assert filter_.biggest(2)[0] == [3, 2]
        filter_.load(array(0.5, 1.0, 0.5, 1.0))
        assert filter_.biggest(3)[0] == [1, 3, 0]


def test_a_term_of_no_magnitude_never_enters(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.run(rec(H, target_mask=2), rec(H, target_mask=2))
        indices, values = filter_.biggest(3)
        assert indices == [0, 0, 0]
        assert_same_amplitudes(values, array(0.9999999999999998, 0, 0))
        filter_.load(array(math.nan, 0.5, complex(1, math.nan), 0.25))
        assert filter_.num_terms() == 4
        assert filter_.biggest(4)[0] == [1, 3, 0, 0]


def test_a_square_that_vanishes_is_not_listed(engine: ModuleType) -> None:
    with open_sparse(engine) as filter_:  # without a threshold
        filter_.load(array(0, 1e-200, 1e-100, 0))
        assert filter_.num_terms() == 2
        assert filter_.biggest(2)[0] == [2, 0]


def test_infinite_terms_lead(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(array(1e300, 1.0, complex(0, -math.inf), 1e200))
        # All three squares are infinite.
        assert filter_.biggest(4)[0] == [0, 2, 3, 1]


def test_the_largest_of_no_terms(engine: ModuleType) -> None:
    with open_sparse(engine) as filter_:
        indices, values = filter_.biggest(3)
        assert indices == [0, 0, 0]
        assert_same_amplitudes(values, array(0, 0, 0))


def test_indices_are_as_wide_as_the_register(engine: ModuleType) -> None:
    with open_sparse(engine, 63) as filter_:
        filter_.run(rec(X, target_mask=2**63 - 2), rec(H, target_mask=1))
        assert filter_.biggest(2)[0] == [2**63 - 2, 2**63 - 1]


# Normalising.


@pytest.mark.parametrize(
    ("state", "total"),
    [
        ((1.0,), 1.0),
        ((2.0,), 4.0),
        ((0.3, 0.4 - 0.7j), None),
        ((3e-10, 1e-11j, 2e-10), None),
        ((1e150, 1e149), None),
    ],
)
def test_normalising_multiplies_by_one_factor(
    engine: ModuleType, state: tuple[complex, ...], total: float | None
) -> None:
    summed = 0.0
    for term in map(complex, state):
        summed += term.real * term.real + term.imag * term.imag
    factor = 1.0 / math.sqrt(summed)
    with open_sparse(engine, 2) as filter_:
        filter_.load(array(*state))
        assert filter_.call("normalize") == summed
        assert total in (None, summed)
        expected = np.zeros(4) + 0j
        expected[: len(state)] = [
            complex(a.real * factor, a.imag * factor) for a in map(complex, state)
        ]
        assert_same_amplitudes(filter_.state(2), expected)


def test_normalising_the_reset_state_and_nothing(engine: ModuleType) -> None:
    with open_sparse(engine) as filter_:
        assert filter_.call("normalize") == 0.0
        filter_.run(reset(2))
        assert filter_.call("normalize") == 1.0
        assert_same_amplitudes(filter_.state(2), basis(2, 0))
        filter_.load(array(0))
        assert filter_.call("normalize") == 0.0
        assert filter_.num_terms() == 0


def test_a_total_that_is_0_or_no_number_rescales_nothing(engine: ModuleType) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.load(array(math.nan, 3.0))
        assert math.isnan(filter_.call("normalize"))
        assert filter_.state(1)[1] == 3.0
        filter_.load(array(0.6, 0.8))
        filter_.call_fails(NO_MATCH, "postselect", 2 | 1, 2)
        assert filter_.call("normalize") == 0.0
        assert_same_amplitudes(filter_.state(1), array(0, 0))


def test_an_infinite_total_leaves_zeros(engine: ModuleType) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.load(array(1e200, -1.0))
        assert filter_.call("normalize") == math.inf
        assert_same_amplitudes(filter_.state(1), array(0, complex(-0.0, 0.0)))


# Postselection.


def test_a_postselection_needs_a_qubit(engine: ModuleType) -> None:
    with open_sparse(engine) as filter_:
        for _ in range(2):
            filter_.call_fails(NO_POSTSELECT_MASK, "postselect", 0, 0)
            filter_.call_fails(NO_POSTSELECT_MASK, "postselect", 1, 0)
            filter_.run(reset(2))
        assert filter_.ranked() == [(0, 1.0)]


@pytest.mark.parametrize(
    ("value", "mask", "kept"),
    [
        (0b000, 0b001, [0, 2, 4, 6]),
        (0b001, 0b001, [1, 3, 7]),
        (0b110, 0b110, [6, 7]),
        (0b110, 0b111, [6]),
        (0b1001, 0b0001, [1, 3, 7]),  # bits outside the register are ignored
        (0b0001, 0b1001, [1, 3, 7]),
        (0b1000, 0b1000, [0, 1, 2, 3, 4, 6, 7]),
    ],
)
def test_a_postselection_projects_and_rescales(
    engine: ModuleType, value: int, mask: int, kept: list[int]
) -> None:
    total = 0.0
    for index in kept:
        re, im = UNEVEN[index].real, UNEVEN[index].imag
        total += re * re + im * im
    factor = 1.0 / math.sqrt(total)
    expected = np.zeros(8) + 0j
    for index in kept:
        expected[index] = complex(UNEVEN[index].real * factor, UNEVEN[index].imag * factor)
    with open_sparse(engine, 3) as filter_:
        filter_.load(UNEVEN)
        assert filter_.call("postselect", value, mask) is None
        assert_same_amplitudes(filter_.state(3), expected)
        assert filter_.num_terms() == 7


@pytest.mark.parametrize(("value", "mask"), [(2, 1), (3, 1), (3, 2), (1, 4), (5, 7)])
def test_a_postselection_of_nothing_has_zeroed_every_term(
    engine: ModuleType, value: int, mask: int
) -> None:
    with open_sparse(engine, 3) as filter_:
        filter_.load(UNEVEN)
        filter_.call_fails(NO_MATCH, "postselect", value, mask)
        assert filter_.num_terms() == 7
        assert_same_amplitudes(filter_.state(3), np.zeros(8) + 0j)
        filter_.call_fails(NO_MATCH, "postselect", 0, 1)  # a match, but of terms of 0


def test_a_postselection_of_no_terms(engine: ModuleType) -> None:
    with open_sparse(engine) as filter_:
        filter_.call_fails(NO_MATCH, "postselect", 0, 1)
        filter_.run(reset(1))
        filter_.load(array(0))
        filter_.call_fails(NO_MATCH, "postselect", 0, 1)


def test_a_total_that_is_no_number_is_not_rescaled(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(array(math.nan, 2.0, 3.0, 4.0))
        assert filter_.call("postselect", 0, 1) is None
        state = filter_.state(2)
        assert math.isnan(state[0].real)
        assert state[1:].tolist() == [0, 3.0, 0]
        # A NaN term that does not match is removed like any other.
        filter_.call("postselect", 2, 2)
        assert_same_amplitudes(filter_.state(2), array(0, 0, 1, 0))


def test_an_infinite_total_is_rescaled_to_zeros(engine: ModuleType) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.load(array(1e200, 1.0))
        filter_.call("postselect", 0, 1)
        assert_same_amplitudes(filter_.state(1), array(0, 0))
        assert filter_.num_terms() == 2
