"""States moved in and out: whole, by qubits, and compared."""

import itertools
import random
from types import ModuleType

import numpy as np
import pytest

from models.arithmetic import Generator
from models.dense import DenseModel
from models.opcodes import H, X, Z
from support.dense import (
    Setting,
    Vector,
    amplitudes,
    assert_same_bits,
    basis,
    holed_state,
    open_dense,
    random_state,
    reset_record,
    settings,
    vector,
)
from support.driver import rec

QUBITS = 4
ENTANGLED = " entangled with the overall state of the circuit."


@pytest.fixture(params=settings([1, 3, 4]), ids=str)
def setting(request: pytest.FixtureRequest) -> Setting:
    chosen: Setting = request.param
    return chosen


def spread(k: int, mask: int) -> int:
    """The bits of `k` at the positions of the mask, the lowest first."""
    positions = [q for q in range(mask.bit_length()) if mask >> q & 1]
    return sum(1 << q for place, q in enumerate(positions) if k >> place & 1)


def slice_of(engine: ModuleType, setting: Setting, state: Vector, mask: int) -> tuple[Vector, str]:
    """The amplitudes and the text that a pull of the mask's qubits returns."""
    with open_dense(engine, len(state).bit_length() - 1, setting) as filter_:
        filter_.load(state)
        dest = np.full(1 << mask.bit_count(), np.nan, dtype=np.complex128)
        return dest, filter_.call("pull_state_specific", dest, mask)


def test_a_state_comes_back_bit_for_bit(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for state in (holed_state(rng, QUBITS), vector([(-0.0, np.nan), (np.inf, 5e-324)] * 8)):
            filter_.load(state)
            assert_same_bits(filter_.state(QUBITS), state)


def test_terms_stay_in_order_when_blocks_are_exchanged(
    engine: ModuleType, setting: Setting
) -> None:
    state = np.arange(16) * (1 - 2j)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(state)
        filter_.run(rec(X, target_mask=0b1100), rec(X, target_mask=0b1000, cond_mask=0b0100))
        order = [i ^ 0b1100 ^ (0b1000 if i & 0b0100 else 0) for i in range(16)]
        assert_same_bits(filter_.state(QUBITS), state[order])
        filter_.load(state)
        assert_same_bits(filter_.state(QUBITS), state)


def test_arrays_longer_than_the_state(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        long = np.full(20, 7j)
        long[:16] = np.arange(16)
        filter_.call("push_state", long, 0)
        dest = np.full(20, 9j)
        filter_.call("pull_state", dest)
        np.testing.assert_array_equal(dest, [*range(16), 9j, 9j, 9j, 9j])
        dest = np.full(20, 9j)
        filter_.call("pull_state_specific", dest, 0b0010)
        np.testing.assert_array_equal(dest[2:], np.full(18, 9j))


def test_a_state_of_zeros(engine: ModuleType, setting: Setting) -> None:
    zeros = vector([(0.0, 0.0)] * 16)
    with open_dense(engine, QUBITS, setting) as filter_:
        for _ in range(2):
            filter_.load(zeros)
            assert_same_bits(filter_.state(QUBITS), zeros)
        filter_.run(rec(H, target_mask=15), rec(X, target_mask=15), rec(Z, target_mask=8))
        assert_same_bits(filter_.state(QUBITS), zeros)


def test_a_later_array_does_not_reach_back(engine: ModuleType, setting: Setting) -> None:
    state = np.arange(16) * (1 + 0j)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(state)
        state[:] = 99
        np.testing.assert_array_equal(filter_.state(QUBITS), np.arange(16))


# Pulling some qubits.


def test_every_set_of_unentangled_qubits(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    parts = [random_state(rng, 1) for _ in range(QUBITS)]
    state = parts[3]
    for part in (parts[2], parts[1], parts[0]):
        state = np.kron(state, part)
    for mask in range(1, 16):
        got, text = slice_of(engine, setting, state, mask)
        assert text == ""
        expected = np.array([1 + 0j])
        for qubit in range(QUBITS):
            if mask >> qubit & 1:
                expected = np.kron(parts[qubit], expected)
        # The slice has the magnitude and the phase of the largest term of the other qubits.
        overlap = abs(np.vdot(expected, got)) / np.linalg.norm(got)
        assert abs(overlap - 1) < 1e-9


def test_the_heaviest_slice_is_not_normalised(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    for mask in range(1, 16):
        state = random_state(rng, QUBITS)
        bases = [base for base in range(15) if not base & mask]
        places = [spread(k, mask) for k in range(1 << mask.bit_count())]
        slices = [state[[base | place for place in places]] for base in bases]
        got, text = slice_of(engine, setting, state, mask)
        assert_same_bits(got, max(slices, key=np.linalg.norm))
        assert text == ("" if mask == 15 else ENTANGLED)


def test_the_last_slice_is_not_looked_at(engine: ModuleType, setting: Setting) -> None:
    # The walk ends below the highest term, which is a base only if the mask is empty.
    got, text = slice_of(engine, setting, basis(QUBITS, 15), 0b0111)
    assert_same_bits(got, basis(3, 7))
    assert text == ""
    with open_dense(engine, 1, setting) as filter_:
        dest = np.zeros(2, dtype=np.complex128)
        assert filter_.call("pull_state_specific", dest, 1) == ""
        assert_same_bits(dest, basis(1, 0))


@pytest.mark.parametrize("mask", [0b0001, 0b1000])
def test_a_bell_pair_gives_its_earlier_half(
    engine: ModuleType, setting: Setting, mask: int
) -> None:
    state = (basis(QUBITS, 0) + basis(QUBITS, 0b1001)) * np.sqrt(0.5)
    got, text = slice_of(engine, setting, state, mask)
    assert text == ENTANGLED
    assert_same_bits(got, basis(1, 0) * np.sqrt(0.5))
    state[0] *= 0.5
    got, text = slice_of(engine, setting, state, mask)
    assert_same_bits(got, basis(1, 1) * np.sqrt(0.5))
    got, text = slice_of(engine, setting, state, 0b1001)
    assert text == ""


def test_on_a_tie_the_slice_with_more_terms_wins(engine: ModuleType, setting: Setting) -> None:
    state = np.zeros(16, dtype=np.complex128)
    state[[0, 4, 5, 8, 9]] = 5.0, 3.0, 4.0, 4.0, 3.0
    got, text = slice_of(engine, setting, state, 0b0001)
    assert text == ENTANGLED
    assert_same_bits(got, np.array([3.0 + 0j, 4.0]))


def test_a_phase_between_slices_goes_unnoticed(engine: ModuleType, setting: Setting) -> None:
    state = np.full(16, 0.25 + 0j)
    state[[3, 5, 6]] = -0.25
    state[12] = 0.25j
    for mask in range(1, 15):
        assert slice_of(engine, setting, state, mask)[1] == ""


@pytest.mark.parametrize(("share", "text"), [(0.500009, ""), (0.500011, ENTANGLED)])
def test_how_unlike_slices_may_be(
    engine: ModuleType, setting: Setting, share: float, text: str
) -> None:
    state = np.zeros(16, dtype=np.complex128)
    state[[0, 1]] = np.sqrt(0.5)
    state[[8, 9]] = np.sqrt(share), np.sqrt(1 - share)
    assert slice_of(engine, setting, state, 0b0001)[1] == text


def test_selector_0_pulls_everything(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(state)
        dest = np.zeros(16, dtype=np.complex128)
        assert filter_.call("pull_state_specific", dest, 0) == ""
        assert_same_bits(dest, state)


def test_the_text_does_not_stay_for_the_next_pull(engine: ModuleType) -> None:
    with open_dense(engine, 2, Setting(1)) as filter_:
        filter_.load(np.sqrt(0.5) * (basis(2, 0) + basis(2, 3)))
        dest = np.zeros(4, dtype=np.complex128)
        assert filter_.call("pull_state_specific", dest, 1) == ENTANGLED
        assert filter_.call("pull_state_specific", dest, 3) == ""
        assert filter_.call("pull_state", dest) == ""


def test_selector_bits_above_the_register_are_no_qubits(
    engine: ModuleType, setting: Setting
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(basis(QUBITS, 0b0010))
        dest = np.zeros(2, dtype=np.complex128)
        assert filter_.call("pull_state_specific", dest, 1 << 31 | 0b0010) == ""
        assert_same_bits(dest, basis(1, 1))


# Replacing some qubits.

RUNS = [
    ((1 << width) - 1) << low for width, low in itertools.product(range(1, 5), range(4))
    if width + low <= QUBITS
]  # fmt: skip


@pytest.mark.parametrize("mask", RUNS)
def test_a_push_of_qubits_is_the_models(
    engine: ModuleType, rng: random.Random, mask: int, setting: Setting
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for seed in range(4):
            state, source = random_state(rng, QUBITS), random_state(rng, mask.bit_count())
            model = DenseModel(Generator(seed))
            model.run([reset_record(QUBITS)])
            model.load(amplitudes(state))
            model.push(amplitudes(source), mask)
            engine.random_seed(0, seed)
            filter_.load(state)
            filter_.call("push_state", source, mask)
            got = filter_.state(QUBITS)
            np.testing.assert_allclose(got, vector(model.terms), rtol=0, atol=1e-12)
            if setting.num_block_qubits == QUBITS:
                assert_same_bits(got, vector(model.terms))


@pytest.mark.parametrize("qubit", range(QUBITS))
def test_a_push_into_state_0_writes_the_source(
    engine: ModuleType, setting: Setting, qubit: int
) -> None:
    source = np.array([0.6, 0.8j])
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.call("push_state", source, 1 << qubit)
        expected = 0.6 * basis(QUBITS, 0) + 0.8j * basis(QUBITS, 1 << qubit)
        np.testing.assert_array_equal(filter_.state(QUBITS), expected)


def test_a_push_is_not_normalised(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.call("push_state", np.array([3 + 0j, 4j, 0, 0]), 0b1100)
        expected = np.zeros(16, dtype=np.complex128)
        expected[[0, 4]] = 3, 4j
        np.testing.assert_array_equal(filter_.state(QUBITS), expected)


def test_a_push_after_blocks_were_exchanged(engine: ModuleType, setting: Setting) -> None:
    source = np.array([0.6, 0.8j])
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.run(rec(X, target_mask=0b1111), rec(X, target_mask=0b0100))
        filter_.call("push_state", source, 0b0001)
        filter_.call("push_state", source, 0b1000)
        expected = np.zeros(16, dtype=np.complex128)
        expected[[0b0010, 0b1010, 0b0011, 0b1011]] = 0.6 * 0.6, 0.6 * 0.8j, 0.6 * 0.8j, -0.8 * 0.8
        np.testing.assert_allclose(filter_.state(QUBITS), expected, rtol=0, atol=1e-15)


def test_a_push_of_zeros_empties_the_register(engine: ModuleType, setting: Setting) -> None:
    zeros = vector([(0.0, 0.0)] * 16)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.call("push_state", zeros[:2], 0b1000)
        np.testing.assert_array_equal(filter_.state(QUBITS), zeros)
        filter_.load(zeros)
        filter_.call("push_state", np.array([1 + 0j, 1]), 0b0001)
        assert_same_bits(filter_.state(QUBITS), zeros)
        filter_.call("push_state", basis(QUBITS, 6), 0b1111)
        np.testing.assert_array_equal(filter_.state(QUBITS), basis(QUBITS, 6))


# Comparison.


def test_states_within_the_tolerance(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    state = random_state(rng, QUBITS)
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.load(state)
        assert filter_.call("check_state", state, 0.0, 0) == 1
        for index in range(16):
            for change in (0.25, -0.25, 0.25j, -0.25j):
                near = state.copy()
                near[index] += change
                for tolerance, same in ((0.26, 1), (0.24, 0)):
                    assert filter_.call("check_state", near, tolerance, index % 2) == same


def test_a_difference_equal_to_the_tolerance_passes(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        near = basis(QUBITS, 0)
        near[[0, 15]] = 1.5, 0.5j
        assert filter_.call("check_state", near, 0.5, 0) == 1
        assert filter_.call("check_state", near, np.nextafter(0.5, 0), 0) == 0
        assert filter_.call("check_state", basis(QUBITS, 0), -1.0, 0) == 0


def test_what_is_no_number_passes(engine: ModuleType, setting: Setting) -> None:
    nans = np.full(16, complex(np.nan, np.nan))
    with open_dense(engine, QUBITS, setting) as filter_:
        assert filter_.call("check_state", nans, 0.0, 0) == 1
        assert filter_.call("check_state", basis(QUBITS, 1), np.nan, 0) == 1
        filter_.load(nans)
        assert filter_.call("check_state", basis(QUBITS, 1), 0.0, 0) == 1


def test_a_comparison_that_failed_leaves_the_register_at_work(
    engine: ModuleType, setting: Setting
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        for _ in range(3):
            assert filter_.call("check_state", basis(QUBITS, 1), 0.1, 0) == 0
        filter_.run(rec(X, target_mask=9))
        assert filter_.call("check_state", basis(QUBITS, 9), 0.0, 0) == 1
