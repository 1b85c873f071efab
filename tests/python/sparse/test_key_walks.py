"""X, the elbows and swap on the sparse filter: only keys change, and the list keeps its order."""

from types import ModuleType

import numpy as np
import pytest

from models.opcodes import FLAG_NAND, LELBOW, RELBOW, SWAP, X
from support.dense import Vector, reset
from support.driver import rec
from support.flag_conditions import CONDITIONS
from support.sparse import SparseFilter, assert_same_amplitudes, open_sparse

NOT_GATES = pytest.mark.parametrize(
    "low",
    [
        pytest.param(X, id="x"),
        pytest.param(LELBOW, id="lelbow"),
        pytest.param(RELBOW, id="relbow"),
    ],
)


def numbered(num_qubits: int) -> Vector:
    """The amplitude i + 1 at index i, so that every term is known by its amplitude."""
    return np.arange(1, (1 << num_qubits) + 1) + 0j


def after(engine: ModuleType, num_qubits: int, low: int, **words: int) -> list[float]:
    """The real parts in order of the index after one gate on the numbered terms."""
    with open_sparse(engine, num_qubits) as filter_:
        filter_.load(numbered(num_qubits))
        filter_.run(rec(low, **words))
        state = filter_.state(num_qubits)
        assert not state.imag.any()
        parts: list[float] = state.real.tolist()
        return parts


def order(filter_: SparseFilter) -> list[int]:
    """The list in its order; requires terms of one magnitude."""
    return [index for index, _ in filter_.ranked()]


@NOT_GATES
def test_all_targets_flip_at_once(engine: ModuleType, low: int) -> None:
    assert after(engine, 3, low, target_mask=0b001) == [2, 1, 4, 3, 6, 5, 8, 7]
    assert after(engine, 3, low, target_mask=0b101) == [6, 5, 8, 7, 2, 1, 4, 3]
    assert after(engine, 3, low, target_mask=0b111) == [8, 7, 6, 5, 4, 3, 2, 1]


@NOT_GATES
@pytest.mark.parametrize(
    ("conds", "negs", "expected"),
    [
        (0b010, 0b000, [1, 2, 4, 3, 5, 6, 8, 7]),
        (0b110, 0b000, [1, 2, 3, 4, 5, 6, 8, 7]),
        (0b110, 0b100, [1, 2, 4, 3, 5, 6, 7, 8]),
        (0b110, 0b110, [2, 1, 3, 4, 5, 6, 7, 8]),
        (0b010, 0b010, [2, 1, 3, 4, 6, 5, 7, 8]),
        (0b010, 0b100, [1, 2, 4, 3, 5, 6, 8, 7]),  # a negation outside the conditions
        (0b000, 0b110, [2, 1, 4, 3, 6, 5, 8, 7]),  # negations without conditions
        (0b010, 0b001, [1, 2, 4, 3, 5, 6, 8, 7]),  # a negation on the target
    ],
)
def test_conditions(
    engine: ModuleType, low: int, conds: int, negs: int, expected: list[float]
) -> None:
    got = after(engine, 3, low, target_mask=1, cond_mask=conds, cond_neg_mask=negs)
    assert got == expected


@NOT_GATES
@pytest.mark.parametrize("beyond", [1 << 3, 1 << 62, 1 << 63, 2**64 - 8])
def test_qubits_outside_the_register_do_not_count(
    engine: ModuleType, low: int, beyond: int
) -> None:
    flipped = [2, 1, 4, 3, 6, 5, 8, 7]
    assert after(engine, 3, low, target_mask=1 | beyond) == flipped
    assert after(engine, 3, low, target_mask=1, cond_mask=beyond) == flipped
    assert after(engine, 3, low, target_mask=1, cond_mask=beyond, cond_neg_mask=beyond) == flipped
    assert after(engine, 3, low, target_mask=beyond) == [1, 2, 3, 4, 5, 6, 7, 8]


@NOT_GATES
def test_a_target_may_be_its_own_condition(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.run(rec(X, target_mask=1), rec(low, target_mask=3, cond_mask=1))
        assert filter_.ranked() == [(2, 1.0)]
        filter_.run(rec(low, target_mask=3, cond_mask=1))
        assert filter_.ranked() == [(2, 1.0)]
        filter_.run(rec(low, target_mask=1, cond_mask=1, cond_neg_mask=1))
        assert filter_.ranked() == [(3, 1.0)]


@NOT_GATES
def test_two_terms_may_come_to_one_index(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.load(numbered(1))
        filter_.run(rec(low, target_mask=1, cond_mask=1))
        assert filter_.num_terms() == 2
        assert_same_amplitudes(filter_.state(1), np.array([2, 0]) + 0j)  # the later one is written
        dest = np.zeros(1, dtype=np.complex128)
        filter_.call("peek_value", 0, dest)
        assert dest[0] == 1  # the earlier one is found


@NOT_GATES
def test_flips_keep_the_order_of_the_list(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(np.full(4, 0.5 + 0j))
        filter_.run(rec(low, target_mask=1))
        assert order(filter_) == [1, 0, 3, 2]
        filter_.run(rec(low, target_mask=2, cond_mask=1))
        assert order(filter_) == [3, 0, 1, 2]


@NOT_GATES
def test_every_qubit_of_the_widest_register_flips(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, 63) as filter_:
        filter_.run(rec(low, target_mask=2**64 - 1))
        assert filter_.ranked() == [(2**63 - 1, 1.0)]
        filter_.run(rec(low, target_mask=1, cond_mask=1 << 62))
        assert filter_.ranked() == [(2**63 - 2, 1.0)]
        filter_.run(rec(low, target_mask=2, cond_mask=1 << 62, cond_neg_mask=1 << 62))
        assert filter_.ranked() == [(2**63 - 2, 1.0)]


@NOT_GATES
def test_without_targets_or_terms_nothing_happens(engine: ModuleType, low: int) -> None:
    assert after(engine, 2, low) == [1, 2, 3, 4]
    assert after(engine, 2, low, cond_mask=3) == [1, 2, 3, 4]
    with open_sparse(engine, 2) as filter_:
        filter_.load(np.zeros(4, dtype=np.complex128))
        filter_.run(rec(low, target_mask=3), rec(SWAP, target_mask=3))
        assert filter_.num_terms() == 0


@CONDITIONS
@pytest.mark.parametrize("low", [X, LELBOW, RELBOW, SWAP])
def test_classical_conditions(engine: ModuleType, low: int, flag: int, acts: bool) -> None:
    with open_sparse(engine) as filter_:
        filter_.run(rec(FLAG_NAND, read_flag=2), reset(2), rec(X, target_mask=1))
        filter_.run(rec(low, target_mask=3, cond_flag=flag))
        assert filter_.ranked() == [(2 if acts else 1, 1.0)]


# Swap.


@pytest.mark.parametrize(
    ("targets", "expected"),
    [
        (0b011, [1, 3, 2, 4, 5, 7, 6, 8]),
        (0b101, [1, 5, 3, 7, 2, 6, 4, 8]),
        (0b110, [1, 2, 5, 6, 3, 4, 7, 8]),
        (0b001, [1, 2, 3, 4, 5, 6, 7, 8]),
        (0b100, [1, 2, 3, 4, 5, 6, 7, 8]),
        (0b000, [1, 2, 3, 4, 5, 6, 7, 8]),
        # Qubit 0 stands against both others: 001 with 110, and 011 with 101.
        (0b111, [1, 7, 3, 6, 5, 4, 2, 8]),
        # Targets outside the register do not count.
        (0b1011, [1, 3, 2, 4, 5, 7, 6, 8]),
        (0b1001, [1, 2, 3, 4, 5, 6, 7, 8]),
        (0b11000, [1, 2, 3, 4, 5, 6, 7, 8]),
    ],
)
def test_swap(engine: ModuleType, targets: int, expected: list[float]) -> None:
    assert after(engine, 3, SWAP, target_mask=targets) == expected


@pytest.mark.parametrize(
    ("conds", "negs", "expected"),
    [
        (0b100, 0b000, [1, 2, 3, 4, 5, 7, 6, 8]),
        (0b100, 0b100, [1, 3, 2, 4, 5, 6, 7, 8]),
        (0b001, 0b000, [1, 3, 2, 4, 5, 7, 6, 8]),  # the lowest target is a condition anyway
        (0b000, 0b100, [1, 3, 2, 4, 5, 7, 6, 8]),  # a negation outside the conditions
        (0b000, 0b010, [1, 3, 2, 4, 5, 7, 6, 8]),  # and on the upper target
        (0b1000, 0b1000, [1, 3, 2, 4, 5, 7, 6, 8]),  # outside the register
        # Negated, the lowest target makes it an exchange of both 0 with both 1.
        (0b000, 0b001, [4, 2, 3, 1, 8, 6, 7, 5]),
        (0b100, 0b001, [1, 2, 3, 4, 8, 6, 7, 5]),
    ],
)
def test_a_swap_with_conditions(
    engine: ModuleType, conds: int, negs: int, expected: list[float]
) -> None:
    got = after(engine, 3, SWAP, target_mask=3, cond_mask=conds, cond_neg_mask=negs)
    assert got == expected


def test_a_swap_under_its_upper_target_moves_one_way_only(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(numbered(2))
        filter_.run(rec(SWAP, target_mask=3, cond_mask=2))
        assert_same_amplitudes(filter_.state(2), np.array([1, 3, 0, 4]) + 0j)
        dest = np.zeros(1, dtype=np.complex128)
        filter_.call("peek_value", 1, dest)
        assert (dest[0], filter_.num_terms()) == (2, 4)


def test_a_swap_keeps_the_order_of_the_list(engine: ModuleType) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(np.full(4, 0.5 + 0j))
        filter_.run(rec(SWAP, target_mask=3))
        assert order(filter_) == [0, 2, 1, 3]
        filter_.run(rec(SWAP, target_mask=1), rec(SWAP, target_mask=2))
        assert order(filter_) == [0, 2, 1, 3]


def test_swaps_at_the_ends_of_the_widest_register(engine: ModuleType) -> None:
    with open_sparse(engine, 63) as filter_:
        filter_.run(rec(X, target_mask=1), rec(SWAP, target_mask=1 | 1 << 62))
        assert filter_.ranked() == [(1 << 62, 1.0)]
        filter_.run(rec(SWAP, target_mask=1 | 1 << 63))
        assert filter_.ranked() == [(1 << 62, 1.0)]
