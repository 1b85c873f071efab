"""The companion's operations on a sparse register, against the dense one and plain arithmetic."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from typing import Any

import nimbrel as nb
import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st
from nimbrel import DenseSimulator, Simulator, SparseSimulator

from models.wire import gathered

SQRT_HALF = np.sqrt(0.5)
TOP = 62  # the highest qubit of the largest register

# Operations of the dense filter, and their replacements.
REFUSED: dict[str, str] = {
    "state": "; terms() gives the terms of a sparse filter",
    "state_of": "; terms() gives the terms of a sparse filter",
    "set_random": "",
    "pauli_probability": "; a record of ppm measures a Pauli product",
    "override_state_buffer": "",
}

CALLS: dict[str, Callable[[SparseSimulator], object]] = {
    "terms": lambda sim: sim.terms(),
    "num_stored_terms": lambda sim: sim.num_stored_terms(),
    "push_state": lambda sim: sim.push_state([1, 0]),
    "check_state": lambda sim: sim.check_state([1, 0]),
    "probabilities": lambda sim: sim.probabilities(0),
    "biggest": lambda sim: sim.biggest(1),
    "value_of": lambda sim: sim.value_of(0),
    "normalize": lambda sim: sim.normalize(),
    "sample": lambda sim: sim.sample(1),
}


@pytest.fixture
def sim() -> Iterator[SparseSimulator]:
    """A sparse simulator without a register."""
    with Simulator("StreamSparseQPU") as simulator:
        yield simulator


def listed(sim: SparseSimulator) -> list[tuple[int, complex]]:
    """The terms as pairs of plain numbers."""
    indices, amplitudes = sim.terms()
    assert indices.dtype == np.uint64
    assert amplitudes.dtype == np.complex128
    assert indices.shape == amplitudes.shape == (len(indices),)
    return list(zip(indices.tolist(), amplitudes.tolist(), strict=True))


def wide_state(sim: SparseSimulator) -> dict[int, complex]:
    """Give a register of 63 qubits four terms, whose norm is below 1, and return them."""
    sim.run(nb.reset(63))
    sim.push_state([0.1, 0.3, 0.5j, -0.7])
    # The low qubits move above bit 31.
    sim.run(nb.swap(0, 40), nb.swap(1, TOP))
    places = {0: 0.1, 1 << 40: 0.3, 1 << TOP: 0.5j, 1 << TOP | 1 << 40: -0.7}
    return {index: complex(amplitude) for index, amplitude in places.items()}


def test_terms_are_in_order_of_their_index(sim: SparseSimulator) -> None:
    state = wide_state(sim)
    assert listed(sim) == sorted(state.items())


def test_a_new_register_has_one_term(sim: SparseSimulator) -> None:
    assert listed(sim) == []
    assert sim.num_stored_terms() == 0
    sim.run(nb.reset(63))
    assert listed(sim) == [(0, 1)]
    assert sim.num_stored_terms() == 1


def test_terms_that_have_become_0_are_stored_and_not_listed(sim: SparseSimulator) -> None:
    sim.run(nb.reset(50), nb.h(49), nb.h(49))
    [(index, amplitude)] = listed(sim)
    assert index == 0
    assert amplitude == pytest.approx(1)
    assert sim.num_stored_terms() == 2
    assert len(sim.biggest(2)) == 1


def test_terms_without_a_square_are_not_listed(sim: SparseSimulator) -> None:
    sim.run(nb.reset(2))
    sim.push_state([np.nan, 0.5, 0, complex(0, np.nan)])
    assert sim.num_stored_terms() == 3
    assert listed(sim) == [(1, 0.5)]


@settings(deadline=None)
@given(
    turns=st.lists(st.floats(-180, 180), min_size=6, max_size=6),
    pairs=st.lists(st.lists(st.integers(0, 5), min_size=2, max_size=2, unique=True), max_size=8),
)
def test_terms_are_those_of_the_dense_filter(turns: list[float], pairs: list[list[int]]) -> None:
    gates = [nb.ry(angle, qubit) for qubit, angle in enumerate(turns)]
    gates += [nb.x(target, controls=control) for control, target in pairs]
    found = []
    for simulator in (SparseSimulator, DenseSimulator):
        with simulator() as sim:
            sim.run(nb.reset(6), *gates)
            state = np.zeros(64, dtype=np.complex128)
            indices, amplitudes = sim.terms()
            assert np.all(np.diff(indices.astype(np.int64)) > 0)
            assert np.all(amplitudes != 0)
            state[indices] = amplitudes
            found.append(state)
    np.testing.assert_allclose(found[0], found[1], atol=1e-14)


def test_a_dense_filter_keeps_no_list() -> None:
    with Simulator("StreamQPU") as dense:
        dense.run(nb.reset(3), nb.x(1), nb.h(2))
        indices, amplitudes = dense.terms()
        assert indices.dtype == np.uint64
        assert indices.tolist() == [2, 6]
        np.testing.assert_allclose(amplitudes, SQRT_HALF)
        with pytest.raises(AttributeError) as caught:
            getattr(dense, "num_stored_terms")  # noqa: B009
        assert caught.value.args == (
            'a "StreamQPU" filter has no operation \'num_stored_terms\'; only "StreamSparseQPU" '
            "filters have it; a dense filter keeps no list of terms",
        )


def test_the_biggest_terms_come_first(sim: SparseSimulator) -> None:
    state = wide_state(sim)
    expected = sorted(state.items(), key=lambda term: -abs(term[1]))
    for count in (0, 1, 3, 4, 5, 2**40):
        assert sim.biggest(count) == expected[:count]
    with pytest.raises(ValueError, match=r"^count must be 0 or more, not -1$"):
        sim.biggest(-1)


def test_equals_keep_the_order_of_the_list(sim: SparseSimulator) -> None:
    sim.run(nb.reset(50), nb.x(45), nb.h(3), nb.x(45))
    assert [index for index, _ in sim.biggest(2)] == [0, 8]
    sim.run(nb.x(3))
    assert [index for index, _ in sim.biggest(2)] == [8, 0]
    assert [index for index, _ in listed(sim)] == [0, 8]


def test_one_value_of_any_index(sim: SparseSimulator) -> None:
    state = wide_state(sim)
    for index, amplitude in state.items():
        assert sim.value_of(index) == amplitude
    for absent in (1, 2**32 - 1, 2**32, 2**63 - 1):
        assert sim.value_of(absent) == 0
    assert sim.value_of(np.uint64(1 << 40)) == 0.3
    for index in (-1, 2**63):
        with pytest.raises(
            ValueError, match=rf"^index must be from 0 to 2\*\*63 - 1, not {index}$"
        ):
            sim.value_of(index)
    with pytest.raises(TypeError, match="integer"):
        sim.value_of(1.0)  # type: ignore[arg-type]


def test_a_state_is_pushed_as_the_lowest_terms(sim: SparseSimulator) -> None:
    sim.run(nb.reset(50), nb.h(range(3)))
    sim.push_state([0, 0.6, 1e-13, 0.8j, 1e-12])
    # The squares of the last amplitudes lie on both sides of 1e-25.
    assert listed(sim) == [(1, 0.6), (3, 0.8j), (4, 1e-12)]
    sim.push_state(np.array([0, 9, 1, 9], dtype=np.float32)[::2])
    assert listed(sim) == [(1, 1)]


@pytest.mark.parametrize("shape", [(0,), (2, 2), (4, 1)])
def test_states_of_another_shape_are_refused(sim: SparseSimulator, shape: tuple[int, ...]) -> None:
    sim.run(nb.reset(2))
    wrong = np.zeros(shape, dtype=np.complex128)
    for call in (sim.push_state, sim.check_state):
        with pytest.raises(ValueError, match=r"^the state must have shape \(m,\) with m from 1, "):
            call(wrong)
    assert listed(sim) == [(0, 1)]


def test_a_state_is_checked_where_terms_are_stored(sim: SparseSimulator) -> None:
    sim.run(nb.reset(50), nb.h(1))
    expected = np.array([SQRT_HALF, 0, SQRT_HALF, 0])
    assert sim.check_state(expected) is True
    assert sim.check_state([SQRT_HALF, 7, SQRT_HALF]) is True
    expected[2] += 1e-6
    assert sim.check_state(expected) is False
    assert sim.check_state(expected, tolerance=2e-6) is True


def test_a_check_needs_a_place_for_every_stored_term(sim: SparseSimulator) -> None:
    sim.run(nb.reset(50), nb.h(40))
    text = rf"^Error: check_state\(\) needs an array of {2**40 + 1} amplitudes, but was given 2\.$"
    with pytest.raises(RuntimeError, match=text):
        sim.check_state([SQRT_HALF, 0])
    assert sim.check_state([1, 0]) is False


@pytest.mark.parametrize("qubits", [[40], [TOP], [TOP, 40], [40, 0, TOP], [5]])
def test_probabilities_sum_up_the_terms(sim: SparseSimulator, qubits: list[int]) -> None:
    state = wide_state(sim)
    expected = np.zeros(1 << len(qubits))
    for index, amplitude in state.items():
        expected[gathered(index, qubits)] += abs(amplitude) ** 2
    found = sim.probabilities(qubits)
    assert found.dtype == np.float64
    np.testing.assert_allclose(found, expected, atol=1e-15)
    assert listed(sim) == sorted(state.items())


def test_probabilities_agree_with_the_engine_where_it_has_a_mask(sim: SparseSimulator) -> None:
    sim.run(nb.reset(40), nb.h(35), nb.ry(70, 31), nb.x(4, controls=[31, 35]))
    found = sim.probabilities([4, 31])
    expected = [
        sim.peek_probability(v >> 1 << 31 | (v & 1) << 4, 1 << 31 | 1 << 4) for v in range(4)
    ]
    np.testing.assert_allclose(found, expected, atol=1e-15)


def test_no_terms_have_no_probability(sim: SparseSimulator) -> None:
    assert sim.probabilities([0, 40]).tolist() == [0.0] * 4
    with pytest.raises(ValueError, match=r"^a state of total probability 0 has no outcomes"):
        sim.sample(1)


def test_normalize_answers_the_norm_before(sim: SparseSimulator) -> None:
    state = wide_state(sim)
    norm = sum(abs(amplitude) ** 2 for amplitude in state.values())
    assert sim.normalize() == pytest.approx(norm)
    np.testing.assert_allclose(sim.terms()[1], np.array([*state.values()]) / np.sqrt(norm))


def test_samples_follow_the_state_and_leave_it(sim: SparseSimulator) -> None:
    state = wide_state(sim)
    norm = sum(abs(amplitude) ** 2 for amplitude in state.values())
    drawn = sim.sample(20_000, seed=5)
    assert drawn.dtype == np.int64
    found, counts = np.unique(drawn, return_counts=True)
    assert found.tolist() == sorted(state)
    expected = [abs(state[index]) ** 2 / norm for index in sorted(state)]
    np.testing.assert_allclose(counts / len(drawn), expected, atol=0.02)
    assert listed(sim) == sorted(state.items())


def test_samples_of_qubits_are_bits_of_samples(sim: SparseSimulator) -> None:
    wide_state(sim)
    qubits = [TOP, 7, 40]
    expected = [gathered(index, qubits) for index in sim.sample(200, seed=3).tolist()]
    assert sim.sample(200, qubits, seed=3).tolist() == expected
    assert sim.sample(0, qubits).shape == (0,)
    with pytest.raises(ValueError, match=r"^shots must be 0 or more, not -1$"):
        sim.sample(-1)


@pytest.mark.parametrize(
    ("qubits", "message"),
    [
        ([], r"^at least one selected qubit is needed$"),
        (-1, r"^selected qubit -1 is negative$"),
        ([1, 1], r"^selected qubit 1 is given twice$"),
        ([0, 63], r"^qubit 63 is not below 63$"),
    ],
)
def test_qubits_are_checked(sim: SparseSimulator, qubits: nb.Qubits, message: str) -> None:
    sim.run(nb.reset(63))
    for call in (lambda: sim.probabilities(qubits), lambda: sim.sample(1, qubits)):
        with pytest.raises(ValueError, match=message):
            call()


@pytest.mark.parametrize("call", ["peek_probability", "postselect"])
def test_masks_of_the_engine_end_at_32_bits(sim: SparseSimulator, call: str) -> None:
    sim.run(nb.reset(50), nb.x(40))
    with pytest.raises(ValueError, match=r"^(value|mask) must be an unsigned 32-bit number"):
        getattr(sim, call)(1 << 40, 1 << 40)


def test_terms_left_by_a_postselection(sim: SparseSimulator) -> None:
    sim.run(nb.reset(60), nb.h([1, 59]), nb.x(0, controls=[1, 59]))
    sim.postselect(1, 1)
    [(index, amplitude)] = listed(sim)
    assert index == 1 << 59 | 0b11
    assert amplitude == pytest.approx(1)
    assert sim.num_stored_terms() == 4


@pytest.mark.parametrize("name", REFUSED)
def test_what_a_sparse_filter_cannot_do_is_refused(sim: SparseSimulator, name: str) -> None:
    with pytest.raises(AttributeError) as caught:
        getattr(sim, name)
    assert caught.value.args == (
        f'a "StreamSparseQPU" filter has no operation \'{name}\'; only "StreamQPU" '
        f"filters have it{REFUSED[name]}",
    )


def test_a_state_of_some_qubits_is_no_argument(sim: SparseSimulator) -> None:
    sim.run(nb.reset(2), nb.h(0))
    before = listed(sim)
    push_state: Callable[..., None] = sim.push_state
    with pytest.raises(TypeError, match="positional argument"):
        push_state([1, 0], 0)
    assert listed(sim) == before


@pytest.mark.parametrize("name", CALLS)
def test_an_operation_after_the_end_is_refused(name: str) -> None:
    with Simulator("StreamSparseQPU") as sim:
        sim.run(nb.reset(1))
    with pytest.raises(ValueError, match=r"^the simulator is closed$"):
        CALLS[name](sim)


@pytest.mark.parametrize("name", ["terms", "num_stored_terms"])
def test_a_filter_without_amplitudes_has_no_terms(name: str) -> None:
    owners = {"terms": '"StreamQPU" and "StreamSparseQPU"', "num_stored_terms": '"StreamSparseQPU"'}
    text = f"no operation '{name}'; only {owners[name]} filters have it$"
    sim: Any = Simulator("StreamBitQPU")
    with sim, pytest.raises(AttributeError, match=text):
        CALLS[name](sim)


def test_a_write_stores_no_flags(sim: SparseSimulator) -> None:
    sim.run(nb.reset(50), nb.write([0, 49], 0b11, 2))
    assert listed(sim) == [(1 << 49 | 1, 1)]
    assert sim.flags(2, 2) == 0


def test_a_free_goes_by_its_event_code(sim: SparseSimulator) -> None:
    sim.run(nb.reset(50), nb.x(49), nb.free(49, flag=-1), nb.x(3), nb.free(3, event_code=70))
    # The first ignores its flag; the second depends on flag 70.
    assert listed(sim) == [(8, 1)]
