"""The sparse state: its size, its number of terms, and single values."""

from types import ModuleType
from typing import Any

import numpy as np
import pytest

from models.opcodes import RESET, RZ, H, X, Y, Z
from models.sparse import TOO_MANY_QUBITS
from support.dense import Vector, basis, reset
from support.driver import rec
from support.sparse import SparseFilter, assert_same_amplitudes, open_sparse


def array(*values: complex) -> Vector:
    return np.array(values, dtype=np.complex128)


def value_at(filter_: SparseFilter, index: int) -> complex:
    dest = np.full(1, np.nan, dtype=np.complex128)
    assert filter_.call("peek_value", index, dest) is None
    return complex(dest[0])


# The size of the register.


def test_63_qubits_are_taken(engine: ModuleType) -> None:
    with open_sparse(engine, 63) as filter_:
        assert filter_.ranked() == [(0, 1.0)]
        filter_.run(rec(X, target_mask=1 << 62))
        assert filter_.ranked() == [(1 << 62, 1.0)]


@pytest.mark.parametrize("num_qubits", [64, 65, 128, 2**32, 2**63, 2**64 - 1])
def test_more_qubits_are_refused_and_leave_the_old_register(
    engine: ModuleType, num_qubits: int
) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.run(rec(X, target_mask=2))
        filter_.fails(TOO_MANY_QUBITS, reset(num_qubits), rec(X, target_mask=1))
        filter_.run(rec(X, target_mask=4))  # still outside
        assert filter_.ranked() == [(2, 1.0)]


def test_the_text_of_the_refusal() -> None:
    assert TOO_MANY_QUBITS == "This quick sparse_sv prototype just handles 64 qubits."


def test_a_reset_leaves_one_term(engine: ModuleType) -> None:
    with open_sparse(engine, 3) as filter_:
        assert filter_.num_terms() == 1
        filter_.run(rec(H, target_mask=7), reset(3))
        assert filter_.num_terms() == 1
        assert_same_amplitudes(filter_.state(3), basis(3, 0))


def test_a_reset_changes_which_qubits_exist(engine: ModuleType) -> None:
    every_qubit = rec(X, target_mask=2**64 - 1)
    with open_sparse(engine) as filter_:
        for num_qubits in (3, 1, 5, 0):
            filter_.run(reset(num_qubits), every_qubit)
            assert filter_.ranked() == [(2**num_qubits - 1, 1.0)]


def test_a_reset_obeys_no_condition(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.run(rec(X, target_mask=3), rec(RESET, target_mask=1, cond_flag=-1, read_flag=-1))
        filter_.run(rec(X, target_mask=3))
        assert filter_.ranked() == [(1, 1.0)]


def test_before_the_first_reset_there_are_no_terms_and_no_qubits(engine: ModuleType) -> None:
    with open_sparse(engine) as filter_:
        filter_.run(rec(X, target_mask=1), rec(H, target_mask=1), rec(Z, target_mask=1))
        assert filter_.num_terms() == 0
        assert value_at(filter_, 0) == 0
        assert filter_.call("normalize") == 0.0
        assert filter_.probability(0, 1) == 0.0
        assert filter_.biggest(2)[0] == [0, 0]
        assert filter_.check(array(1, 1), 0.0) == 1
        assert_same_amplitudes(filter_.state(1), array(0, 0))
        assert_same_amplitudes(filter_.slice(1), array(0, 0))


# Counting.


@pytest.mark.parametrize(
    ("gates", "count"),
    [
        ([(H, 1)], 2),
        ([(H, 1), (H, 1)], 2),  # one of the two is 0
        ([(H, 7)], 8),
        ([(X, 7)], 1),
        ([(Z, 7)], 1),
        ([(RZ, 1)], 2),
        ([(Y, 1)], 2),
        ([(Y, 1), (Y, 1)], 2),
        ([(RZ, 3), (RZ, 3)], 4),
    ],
)
def test_every_stored_term_is_counted(
    engine: ModuleType, gates: list[tuple[int, int]], count: int
) -> None:
    with open_sparse(engine, 3) as filter_:
        filter_.run(*(rec(low, target_mask=targets, angle=30.0) for low, targets in gates))
        assert filter_.num_terms() == count


# Single values, and operations that are not implemented.


def test_single_values(engine: ModuleType) -> None:
    with open_sparse(engine, 3) as filter_:
        values = np.arange(1, 9) + 0.5j
        filter_.load(values)
        filter_.run(rec(X, target_mask=5))  # the list is now unordered
        got = [value_at(filter_, index) for index in range(8)]
        assert got == [values[index ^ 5] for index in range(8)]
        for beyond in (8, 16, 2**31, 2**32 - 1):
            assert value_at(filter_, beyond) == 0


def test_a_value_that_is_not_stored_is_plus_zero(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        dest = np.full(3, complex(-7, -7))
        filter_.call("peek_value", 3, dest)
        assert_same_amplitudes(dest, array(0, complex(-7, -7), complex(-7, -7)))


@pytest.mark.parametrize("masks", [(0, 0), (1, 0), (0, 1), (3, 3), (2**32 - 1, 2**32 - 1)])
def test_the_probability_of_a_product_is_0(engine: ModuleType, masks: tuple[int, int]) -> None:
    with open_sparse(engine) as filter_:
        assert filter_.call("pps", *masks) == 0.0
        filter_.run(reset(2), rec(H, target_mask=1))
        assert filter_.call("pps", *masks) == 0.0


@pytest.mark.parametrize(
    ("name", "result"),
    [("finish", None), ("set_random", None), ("get_status", ""), ("disconnect", "")],
)
def test_calls_that_change_nothing(engine: ModuleType, name: str, result: Any) -> None:
    with open_sparse(engine) as filter_:
        assert filter_.call(name) == result
        filter_.run(reset(2), rec(X, target_mask=3))
        assert filter_.call(name) == result
        assert filter_.ranked() == [(3, 1.0)]


def test_a_buffer_of_the_callers_is_refused(engine: ModuleType) -> None:
    text = "Error: override_state_buffer is not implemented for this filter type."
    with open_sparse(engine, 2) as filter_:
        filter_.call_fails(text, "override_state_buffer", array(0, 0, 0, 1))
        assert filter_.ranked() == [(0, 1.0)]


def test_simulator_parameters_are_taken_and_mean_nothing(engine: ModuleType) -> None:
    with open_sparse(engine) as filter_:
        filter_.call("setup_sim_params", 1, 1, 1, 1, 1, 0, 1)
        filter_.run(reset(40), rec(X, target_mask=1 << 39))
        assert filter_.ranked() == [(1 << 39, 1.0)]
