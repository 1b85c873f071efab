"""Gates of the sparse filter that mix pairs of terms: Hadamard, the matrices and ry."""

import math
import random
from collections.abc import Callable
from types import ModuleType

import numpy as np
import pytest

from models.arithmetic import (
    ROOT_HALF,
    Amplitude,
    add,
    flipped,
    fma,
    radians,
    scaled,
    subtract,
    times,
)
from models.opcodes import ROOTX, ROOTX_INV, ROOTY, ROOTY_INV, RX, RY, RZ, H, X, Y
from support.dense import Vector, vector
from support.driver import rec
from support.sparse import SparseFilter, assert_same_amplitudes, open_sparse

ANGLE = 52.3
COSINE, SINE = math.cos(radians(ANGLE) * 0.5), math.sin(radians(ANGLE) * 0.5)
ZERO = (0.0, 0.0)

# Elements in the order m00, m01, m10, m11.
MATRICES: dict[int, tuple[Amplitude, Amplitude, Amplitude, Amplitude]] = {
    Y: (ZERO, (0.0, -1.0), (0.0, 1.0), ZERO),
    RX: ((COSINE, 0.0), (0.0, -SINE), (0.0, -SINE), (COSINE, 0.0)),
    RZ: ((COSINE, -SINE), ZERO, ZERO, (COSINE, SINE)),
    ROOTX: ((0.5, 0.5), (0.5, -0.5), (0.5, -0.5), (0.5, 0.5)),
    ROOTX_INV: ((0.5, -0.5), (0.5, 0.5), (0.5, 0.5), (0.5, -0.5)),
    ROOTY: ((0.5, 0.5), (-0.5, -0.5), (0.5, 0.5), (0.5, 0.5)),
    ROOTY_INV: ((0.5, -0.5), (0.5, -0.5), (-0.5, 0.5), (0.5, -0.5)),
}
NAMES = {
    Y: "y", RX: "rx", RZ: "rz", ROOTX: "rootx", ROOTX_INV: "rootx_inv", ROOTY: "rooty",
    ROOTY_INV: "rooty_inv", H: "hadamard", RY: "ry",
}  # fmt: skip
MATRIX_GATES = pytest.mark.parametrize("low", [pytest.param(g, id=NAMES[g]) for g in MATRICES])
ALL_GATES = pytest.mark.parametrize("low", [pytest.param(g, id=NAMES[g]) for g in NAMES])

Pair = tuple[Amplitude, Amplitude]

# Such that a fused and a plain sum of their products differ in all four parts.
A0: Amplitude = (0.59, -0.73)
A1: Amplitude = (-0.26, -0.39)


def hadamard_pair(a0: Amplitude, a1: Amplitude) -> Pair:
    return scaled(add(a1, a0), ROOT_HALF), scaled(subtract(a0, a1), ROOT_HALF)


def matrix_pair(low: int) -> Callable[[Amplitude, Amplitude], Pair]:
    m00, m01, m10, m11 = MATRICES[low]

    def pair(a0: Amplitude, a1: Amplitude) -> Pair:
        zero_side = add(times(a0, m00), times(a1, m01))
        return zero_side, add(times(a0, m10), times(a1, m11))

    return pair


def ry_pair(a0: Amplitude, a1: Amplitude) -> Pair:
    """Each line's second product is fused with the sum."""
    zero_side = tuple(fma(-SINE, y, COSINE * x) for x, y in zip(a0, a1, strict=True))
    one_side = tuple(fma(COSINE, y, SINE * x) for x, y in zip(a0, a1, strict=True))
    return (zero_side[0], zero_side[1]), (one_side[0], one_side[1])


def pair_of(low: int) -> Callable[[Amplitude, Amplitude], Pair]:
    return {H: hadamard_pair, RY: ry_pair}.get(low) or matrix_pair(low)


def one_qubit(engine: ModuleType, low: int, a0: Amplitude, a1: Amplitude) -> Vector:
    """Both amplitudes after the gate; one that is zero before it is not stored then."""
    with open_sparse(engine, 1) as filter_:
        filter_.load(vector([a0, a1]))
        filter_.run(rec(low, target_mask=1, angle=ANGLE))
        assert filter_.num_terms() == 2
        return filter_.state(1)


def order(filter_: SparseFilter) -> list[int]:
    """The list in its order without its zeros; requires terms of one magnitude."""
    return [index for index, _ in filter_.ranked()]


# The formulas.


@ALL_GATES
def test_a_pair(engine: ModuleType, low: int) -> None:
    assert_same_amplitudes(one_qubit(engine, low, A0, A1), pair_of(low)(A0, A1))
    assert_same_amplitudes(one_qubit(engine, low, A1, A0), pair_of(low)(A1, A0))


@MATRIX_GATES
def test_a_lone_term_takes_its_column_of_the_matrix(engine: ModuleType, low: int) -> None:
    m00, m01, m10, m11 = MATRICES[low]
    assert_same_amplitudes(one_qubit(engine, low, A0, ZERO), [times(A0, m00), times(A0, m10)])
    assert_same_amplitudes(one_qubit(engine, low, ZERO, A1), [times(A1, m01), times(A1, m11)])


def test_a_lone_term_of_a_hadamard(engine: ModuleType) -> None:
    same = scaled(A0, ROOT_HALF)
    assert_same_amplitudes(one_qubit(engine, H, A0, ZERO), [same, same])
    zero_side = scaled(A1, ROOT_HALF)
    one_side = flipped(zero_side)
    assert_same_amplitudes(one_qubit(engine, H, ZERO, A1), [zero_side, one_side])


def test_a_lone_term_of_an_ry(engine: ModuleType) -> None:
    got = one_qubit(engine, RY, A0, ZERO)
    assert_same_amplitudes(got, [scaled(A0, COSINE), scaled(A0, SINE)])
    got = one_qubit(engine, RY, ZERO, A1)
    assert_same_amplitudes(got, [scaled(A1, -SINE), scaled(A1, COSINE)])


def test_the_fused_step_of_ry_can_be_seen() -> None:
    plain = (
        subtract(scaled(A0, COSINE), scaled(A1, SINE)),
        add(scaled(A0, SINE), scaled(A1, COSINE)),
    )
    assert all(fused != unfused for fused, unfused in zip(ry_pair(A0, A1), plain, strict=True))


@pytest.mark.parametrize(
    ("low", "on_0", "on_1"),
    [
        (Y, (0, 1j), (-1j, 0)),
        (ROOTX, (0.5 + 0.5j, 0.5 - 0.5j), (0.5 - 0.5j, 0.5 + 0.5j)),
        (ROOTX_INV, (0.5 - 0.5j, 0.5 + 0.5j), (0.5 + 0.5j, 0.5 - 0.5j)),
        (ROOTY, (0.5 + 0.5j, 0.5 + 0.5j), (-0.5 - 0.5j, 0.5 + 0.5j)),
        (ROOTY_INV, (0.5 - 0.5j, -0.5 + 0.5j), (0.5 - 0.5j, 0.5 - 0.5j)),
        (H, (ROOT_HALF, ROOT_HALF), (ROOT_HALF, -ROOT_HALF)),
        (RX, (COSINE, -1j * SINE), (-1j * SINE, COSINE)),
        (RY, (COSINE, SINE), (-SINE, COSINE)),
        (RZ, (complex(COSINE, -SINE), 0), (0, complex(COSINE, SINE))),
    ],
)
def test_what_becomes_of_0_and_of_1(
    engine: ModuleType, low: int, on_0: tuple[complex, ...], on_1: tuple[complex, ...]
) -> None:
    assert one_qubit(engine, low, (1.0, 0.0), ZERO).tolist() == list(on_0)
    assert one_qubit(engine, low, ZERO, (1.0, 0.0)).tolist() == list(on_1)


@pytest.mark.parametrize("low", [RX, RY, RZ])
@pytest.mark.parametrize("angle", [90.0, -180.0, 360.0, 1e-12, 720.5])
def test_rotations_turn_by_half_their_angle(engine: ModuleType, low: int, angle: float) -> None:
    half = angle * math.pi / 180.0 * 0.5
    c, s = math.cos(half), math.sin(half)
    column = {RX: [c, -1j * s], RY: [c, s], RZ: [complex(c, -s), 0]}[low]
    with open_sparse(engine, 1) as filter_:
        filter_.run(rec(low, target_mask=1, angle=angle))
        assert filter_.state(1).tolist() == column


# Zeros.


def test_two_hadamards_leave_a_term_of_exactly_0(engine: ModuleType) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.run(rec(H, target_mask=1))
        assert_same_amplitudes(filter_.state(1), [(ROOT_HALF, 0.0), (ROOT_HALF, 0.0)])
        filter_.run(rec(H, target_mask=1))
        assert_same_amplitudes(
            filter_.state(1), [((ROOT_HALF + ROOT_HALF) * ROOT_HALF, 0.0), (0.0, 0.0)]
        )
        assert filter_.num_terms() == 2
        assert filter_.ranked() == [(0, 0.9999999999999998)]


@pytest.mark.parametrize("low", [RZ, Y])
def test_a_zero_element_doubles_the_list(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, 8) as filter_:
        for qubit in range(8):
            filter_.run(rec(low, target_mask=1 << qubit, angle=ANGLE))
            assert filter_.num_terms() == 2 << qubit
        filter_.run(rec(low, target_mask=255, angle=ANGLE))
        assert filter_.num_terms() == 256
        assert len(filter_.ranked()) == 1


def test_a_zero_that_is_stored_is_a_partner(engine: ModuleType) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.run(rec(Y, target_mask=1), rec(H, target_mask=1))
        assert filter_.num_terms() == 2
        # As a pair: (i + 0) h and (0 - i) h.
        assert filter_.state(1).tolist() == [1j * ROOT_HALF, -1j * ROOT_HALF]


# Conditions.

EVEN_ODD = [(0, 1), (2, 3), (4, 5), (6, 7)]
TWO_APART = [(0, 2), (1, 3), (4, 6), (5, 7)]


@ALL_GATES
@pytest.mark.parametrize(
    ("targets", "conds", "negs", "pairs"),
    [
        (0b001, 0b000, 0b000, EVEN_ODD),
        (0b010, 0b000, 0b000, TWO_APART),
        (0b100, 0b000, 0b000, [(0, 4), (1, 5), (2, 6), (3, 7)]),
        (0b011, 0b000, 0b000, [*EVEN_ODD, *TWO_APART]),
        (0b001, 0b010, 0b000, [(2, 3), (6, 7)]),
        (0b001, 0b110, 0b010, [(4, 5)]),
        (0b001, 0b110, 0b110, [(0, 1)]),
        (0b100, 0b001, 0b001, [(0, 4), (2, 6)]),
        (0b001, 0b010, 0b100, [(2, 3), (6, 7)]),  # a negation outside the conditions
        (0b001, 0b000, 0b111, EVEN_ODD),  # negations without conditions
        # The target's own bit is cleared before the controls are tested.
        (0b001, 0b001, 0b000, []),
        (0b001, 0b001, 0b001, EVEN_ODD),
        (0b001, 0b011, 0b001, [(2, 3), (6, 7)]),
        # A control that is one of two targets: ignored for this target, not for the other one.
        (0b011, 0b010, 0b000, [(2, 3), (6, 7)]),
        (0b011, 0b010, 0b010, [(0, 1), (4, 5), *TWO_APART]),
        (0b011, 0b001, 0b000, [(1, 3), (5, 7)]),
        # Qubits outside the register are ignored.
        (0b1001, 0b10000, 0b10000, EVEN_ODD),
        (0b001, 0b1010, 0b1000, [(2, 3), (6, 7)]),
        (0b1000, 0b000, 0b000, []),
        (0b000, 0b111, 0b000, []),
        (0b000, 0b000, 0b000, []),
    ],
)
def test_which_pairs_are_mixed(
    engine: ModuleType,
    low: int,
    targets: int,
    conds: int,
    negs: int,
    pairs: list[tuple[int, int]],
) -> None:
    expected = [(0.1 * i - 0.25, 0.07 * i * i - 1.1) for i in range(8)]
    with open_sparse(engine, 3) as filter_:
        filter_.load(vector(expected))
        masks = {"target_mask": targets, "cond_mask": conds, "cond_neg_mask": negs}
        filter_.run(rec(low, angle=ANGLE, **masks))
        for i0, i1 in pairs:
            expected[i0], expected[i1] = pair_of(low)(expected[i0], expected[i1])
        assert_same_amplitudes(filter_.state(3), expected)
        assert filter_.num_terms() == 8


@ALL_GATES
def test_lone_terms_that_fail_a_condition_stay_as_they_are(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, 3) as filter_:
        state = vector([ZERO, A0, ZERO, ZERO, A1, ZERO, ZERO, ZERO])
        filter_.load(state)
        filter_.run(rec(low, target_mask=1, cond_mask=2, angle=ANGLE))
        filter_.run(rec(low, target_mask=4, cond_mask=3, angle=ANGLE))
        assert_same_amplitudes(filter_.state(3), state)
        assert filter_.num_terms() == 2
        filter_.run(rec(low, target_mask=1, cond_mask=4, angle=ANGLE))
        assert filter_.num_terms() == 3
        assert filter_.state(3)[1] == complex(*A0)


@ALL_GATES
def test_a_failed_classical_condition(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, 1) as filter_:
        filter_.load(vector([A0, A1]))
        filter_.run(rec(X, target_mask=1))
        for flag in (-1, 5, -5):  # no flag is stored
            filter_.run(rec(low, target_mask=1, angle=ANGLE, cond_flag=flag))
        assert_same_amplitudes(filter_.state(1), [A1, A0])
        filter_.run(rec(low, target_mask=1, angle=ANGLE, cond_flag=1))
        assert_same_amplitudes(filter_.state(1), pair_of(low)(A1, A0))


@ALL_GATES
def test_an_empty_list(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(np.zeros(4, dtype=np.complex128))
        filter_.run(rec(low, target_mask=3, angle=ANGLE))
        assert filter_.num_terms() == 0


# The order of the list.


@pytest.mark.parametrize(
    ("start", "expected"),
    [(0, [0, 1, 2, 3]), (1, [0, 1, 2, 3]), (2, [2, 3, 0, 1]), (3, [2, 3, 0, 1])],
)
def test_targets_go_lowest_first_and_new_terms_stand_at_the_end(
    engine: ModuleType, start: int, expected: list[int]
) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.run(rec(X, target_mask=start), rec(H, target_mask=3))
        assert order(filter_) == expected


def test_a_lone_1_stands_before_the_0_that_it_makes(engine: ModuleType) -> None:
    with open_sparse(engine, 3) as filter_:
        filter_.run(rec(X, target_mask=4), rec(H, target_mask=4))
        assert order(filter_) == [4, 0]
        filter_.load(vector([ZERO, ZERO, ZERO, A0, A0, ZERO, ZERO, ZERO]))
        filter_.run(rec(H, target_mask=1))
        assert order(filter_) == [3, 4, 2, 5]


@pytest.mark.parametrize(
    ("target", "expected"),
    [
        (1, [0, 1, 2, 3, 4, 5, 6, 7]),
        (2, [0, 2, 1, 3, 4, 6, 5, 7]),
        (4, [0, 4, 1, 5, 2, 6, 3, 7]),
        (7, [0, 4, 1, 5, 2, 6, 3, 7]),  # the last target decides
    ],
)
@pytest.mark.parametrize("low", [RX, RY, RZ])
def test_partners_end_side_by_side(
    engine: ModuleType, low: int, target: int, expected: list[int]
) -> None:
    with open_sparse(engine, 3) as filter_:
        filter_.load(np.full(8, 0.25 + 0j))
        filter_.run(rec(X, target_mask=5))
        assert order(filter_) != expected
        filter_.run(rec(low, target_mask=target, angle=0.0))
        assert order(filter_) == expected


@ALL_GATES
def test_a_condition_that_fails_still_sorts(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(np.array([0.5, 0.5, 0, 0]) + 0j)
        filter_.run(rec(X, target_mask=1))
        assert order(filter_) == [1, 0]
        filter_.run(rec(low, target_mask=1, cond_mask=2, angle=ANGLE))
        assert order(filter_) == [0, 1]


@ALL_GATES
def test_without_targets_nothing_is_sorted(engine: ModuleType, low: int) -> None:
    with open_sparse(engine, 2) as filter_:
        filter_.load(np.full(4, 0.5 + 0j))
        filter_.run(rec(X, target_mask=1), rec(low, cond_mask=3, angle=ANGLE))
        filter_.run(rec(low, target_mask=12, angle=ANGLE))
        filter_.run(rec(low, target_mask=1, angle=ANGLE, cond_flag=-1))
        assert order(filter_) == [1, 0, 3, 2]


def partners_in_order(num_qubits: int, target: int) -> list[int]:
    """Every index, sorted without regard to the target, and then by it."""
    return sorted(range(1 << num_qubits), key=lambda i: (i & ~target, i & target))


@pytest.mark.parametrize("num_qubits", [4, 5, 11, 12])
def test_long_lists_are_sorted_from_any_order(
    engine: ModuleType, rng: random.Random, num_qubits: int
) -> None:
    with open_sparse(engine, num_qubits) as filter_:
        filter_.load(np.full(1 << num_qubits, 2.0**-6 + 0j))
        for _ in range(5):
            for _ in range(3 * num_qubits):
                target = 1 << rng.randrange(num_qubits)
                conds = rng.getrandbits(num_qubits) & rng.getrandbits(num_qubits) & ~target
                filter_.run(rec(X, target_mask=target, cond_mask=conds))
            target = 1 << rng.randrange(num_qubits)
            filter_.run(rec(RZ, target_mask=target, angle=0.0))
            assert order(filter_) == partners_in_order(num_qubits, target)


def test_at_the_end_of_the_widest_register(engine: ModuleType) -> None:
    top = 1 << 62
    with open_sparse(engine, 63) as filter_:
        filter_.run(rec(H, target_mask=top | 1 << 63))
        assert filter_.ranked() == [(0, ROOT_HALF), (top, ROOT_HALF)]
        filter_.run(rec(Y, target_mask=top, cond_mask=1))
        filter_.run(rec(H, target_mask=1, cond_mask=top))
        assert order(filter_)[0] == 0
        assert filter_.num_terms() == 3
        assert sorted(order(filter_)) == [0, top, top | 1]
