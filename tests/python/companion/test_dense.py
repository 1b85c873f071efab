"""The companion's operations on a dense register, against NumPy and plain arithmetic."""

from __future__ import annotations

import re
from collections.abc import Callable, Iterator

import nimbrel as nb
import numpy as np
import numpy.typing as npt
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st
from nimbrel import DenseSimulator, Simulator
from nimbrel.amplitudes import Amplitudes
from nimbrel.sampling import draw_terms

from models.wire import gathered

NO_REGISTER = r"^Error: Simulated state vector data is requested, but not present\."
SQRT_HALF = np.sqrt(0.5)

CALLS: dict[str, Callable[[DenseSimulator], object]] = {
    "state": lambda sim: sim.state(),
    "state_of": lambda sim: sim.state_of(0),
    "push_state": lambda sim: sim.push_state([1, 0]),
    "check_state": lambda sim: sim.check_state([1, 0]),
    "probabilities": lambda sim: sim.probabilities(0),
    "biggest": lambda sim: sim.biggest(1),
    "value_of": lambda sim: sim.value_of(0),
    "normalize": lambda sim: sim.normalize(),
    "set_random": lambda sim: sim.set_random(),
    "pauli_probability": lambda sim: sim.pauli_probability((), 0),
    "sample": lambda sim: sim.sample(1),
}


@pytest.fixture
def sim() -> Iterator[DenseSimulator]:
    """A dense simulator without a register."""
    with Simulator("StreamQPU") as simulator:
        yield simulator


def random_state(num_qubits: int, seed: int = 1) -> Amplitudes:
    """A state of norm 1, shape (2**num_qubits,)."""
    rng = np.random.default_rng(seed)
    parts = rng.normal(size=(2, 1 << num_qubits))
    state: Amplitudes = parts[0] + 1j * parts[1]
    state /= np.linalg.norm(state)
    return state


def fill(sim: DenseSimulator, num_qubits: int, seed: int = 1) -> Amplitudes:
    """Give a simulator a register with a random state, and return the state."""
    state = random_state(num_qubits, seed)
    sim.run(nb.reset(num_qubits))
    sim.push_state(state)
    return state


@pytest.mark.parametrize("num_qubits", [1, 2, 5, 13])
def test_a_state_comes_back_as_it_was_pushed(sim: DenseSimulator, num_qubits: int) -> None:
    state = fill(sim, num_qubits)
    pulled = sim.state()
    assert pulled.dtype == np.complex128
    np.testing.assert_array_equal(pulled, state)


def test_a_register_without_qubits_has_one_term(sim: DenseSimulator) -> None:
    sim.run(nb.reset(1), nb.reset(0))
    assert sim.state().tolist() == [1]
    sim.push_state([1j])
    assert sim.biggest(1) == [(0, 1j)]
    assert sim.sample(2).tolist() == [0, 0]


def test_qubit_0_is_the_least_significant(sim: DenseSimulator) -> None:
    sim.run(nb.reset(3), nb.x([0, 2]))
    assert sim.state().tolist() == [0, 0, 0, 0, 0, 1, 0, 0]


def test_the_size_is_that_of_the_register_and_not_of_the_last_reset_seen(
    sim: DenseSimulator,
) -> None:
    # A jump may skip a reset, and a failing record may prevent it.
    sim.run(nb.reset(2), nb.jump_fwd(7), nb.reset(9), nb.label(7))
    assert sim.state().shape == (4,)
    with pytest.raises(RuntimeError, match=r"^qc\.extend has not been implemented"):
        sim.run(nb.x([0, 70]), nb.reset(9))
    assert sim.state().shape == (4,)
    sim.run(nb.reset(3))
    assert sim.state().shape == (8,)


def test_anything_like_an_array_can_be_pushed(sim: DenseSimulator) -> None:
    sim.run(nb.reset(1))
    sim.push_state([0.6, 0.8])
    assert sim.state().tolist() == [0.6, 0.8]
    sim.push_state(np.array([0, 9, 1, 9], dtype=np.float32)[::2])
    assert sim.state().tolist() == [0, 1]


@pytest.mark.parametrize("shape", [(0,), (1,), (3,), (5,), (8,), (4, 1), (2, 2), ()])
def test_states_of_another_shape_are_refused(sim: DenseSimulator, shape: tuple[int, ...]) -> None:
    before = fill(sim, 2)
    wrong = np.zeros(shape, dtype=np.complex128)
    shown = re.escape(str(shape or (1,)))
    for call in (sim.push_state, sim.check_state):
        with pytest.raises(ValueError, match=rf"^the state must have shape \(4,\), not {shown}$"):
            call(wrong)
    np.testing.assert_array_equal(sim.state(), before)


@pytest.mark.parametrize("qubits", [[1], [2, 1], range(1, 4), [0, 1, 2, 3]])
def test_some_qubits_can_be_pushed(sim: DenseSimulator, qubits: list[int]) -> None:
    sim.run(nb.reset(4), nb.h(0))
    part = random_state(len(qubits), seed=7)
    sim.push_state(part, qubits)
    found, entangled = sim.state_of(qubits)
    assert not entangled
    # The other qubits are a factor with its own norm and phase.
    factor = found[0] / part[0]
    np.testing.assert_allclose(found, factor * part, atol=1e-14)


def test_a_gap_in_pushed_qubits_is_refused(sim: DenseSimulator) -> None:
    before = fill(sim, 4)
    with pytest.raises(ValueError, match=r"^qubits \[0, 1, 3\] do not lie side by side$"):
        sim.push_state(np.zeros(8), [3, 0, 1])
    np.testing.assert_array_equal(sim.state(), before)


def test_a_part_of_another_length_is_refused(sim: DenseSimulator) -> None:
    sim.run(nb.reset(4))
    with pytest.raises(ValueError, match=r"^the state must have shape \(4,\), not \(8,\)$"):
        sim.push_state(np.zeros(8), [1, 2])


def test_the_state_of_a_factor(sim: DenseSimulator) -> None:
    low, high = random_state(2, seed=3), random_state(2, seed=4)
    sim.run(nb.reset(4))
    sim.push_state(np.kron(high, low))
    found, entangled = sim.state_of([1, 0])
    assert not entangled
    assert found.shape == (4,)
    np.testing.assert_allclose(np.abs(found) / np.linalg.norm(found), np.abs(low), atol=1e-14)


def test_entangled_qubits_are_told(sim: DenseSimulator) -> None:
    sim.run(nb.reset(3), nb.h(0), nb.x(2, controls=0))
    found, entangled = sim.state_of(2)
    assert entangled
    np.testing.assert_allclose(found, [SQRT_HALF, 0])
    assert sim.state_of(1)[1] is False


def test_a_state_is_checked_within_a_tolerance(sim: DenseSimulator) -> None:
    state = fill(sim, 5)
    assert sim.check_state(state) is True
    state[17] += 1e-6j
    assert sim.check_state(state) is False
    assert sim.check_state(state, tolerance=2e-6) is True


@settings(deadline=None)
@given(
    qubits=st.lists(st.integers(0, 4), min_size=1, max_size=5, unique=True),
    seed=st.integers(0, 2**32 - 1),
)
def test_probabilities_sum_up_the_terms(qubits: list[int], seed: int) -> None:
    with Simulator("StreamQPU") as sim:
        state = fill(sim, 5, seed)
        expected = np.zeros(1 << len(qubits))
        for index, amplitude in enumerate(state):
            expected[gathered(index, qubits)] += abs(amplitude) ** 2
        found = sim.probabilities(qubits)
        assert found.dtype == np.float64
        np.testing.assert_allclose(found, expected, atol=1e-14)
        np.testing.assert_array_equal(sim.state(), state)


def test_the_biggest_terms_come_first(sim: DenseSimulator) -> None:
    state = fill(sim, 6)
    order = np.argsort(-np.abs(state))
    for count in (0, 1, 7, 64):
        expected = [(int(index), complex(state[index])) for index in order[:count]]
        assert sim.biggest(count) == expected


def test_terms_that_are_zero_are_left_out(sim: DenseSimulator) -> None:
    sim.run(nb.reset(3), nb.x(1), nb.h(2))
    assert [index for index, _ in sim.biggest(8)] == [2, 6]


@pytest.mark.parametrize("count", [-1, 9, 2**32])
def test_more_terms_than_there_are_cannot_be_asked_for(sim: DenseSimulator, count: int) -> None:
    sim.run(nb.reset(3))
    with pytest.raises(ValueError, match=rf"^count must be from 0 to 8, not {count}$"):
        sim.biggest(count)


def test_one_value(sim: DenseSimulator) -> None:
    state = fill(sim, 4)
    assert [sim.value_of(index) for index in range(16)] == state.tolist()
    with pytest.raises(RuntimeError, match="index 16 lies outside the register of 16 terms"):
        sim.value_of(16)
    with pytest.raises(ValueError, match=r"^index must be an unsigned 32-bit number, not -1$"):
        sim.value_of(-1)
    with pytest.raises(ValueError, match=r"^index must be an unsigned 32-bit number"):
        sim.value_of(2**32)


def test_normalize_answers_the_norm_before(sim: DenseSimulator) -> None:
    sim.run(nb.reset(1))
    sim.push_state([3, 4j])
    assert sim.normalize() == 25.0
    np.testing.assert_allclose(sim.state(), [0.6, 0.8j])


def test_a_random_state_has_norm_1_and_no_zeros(sim: DenseSimulator) -> None:
    sim.run(nb.reset(6))
    sim.set_random()
    state = sim.state()
    assert np.linalg.norm(state) == pytest.approx(1)
    assert np.all(state != 0)


@pytest.mark.parametrize(
    ("gates", "xs", "zs", "probability"),
    [
        ([], (), 0, 1.0),
        ([nb.x(0)], (), 0, 0.0),
        ([nb.h(1)], 1, (), 1.0),
        ([nb.h(1), nb.s(1)], 1, 1, 1.0),
        ([nb.h(1), nb.s(1)], 1, (), 0.5),
        ([nb.h(0), nb.x(1, controls=0)], [0, 1], (), 1.0),
        ([nb.h(0), nb.x(1, controls=0)], [0, 1], [0, 1], 0.0),
        ([nb.ry(60, 2)], (), 2, 0.75),
    ],
)
def test_the_probability_of_a_pauli_product(
    sim: DenseSimulator,
    gates: list[nb.RecordArray],
    xs: nb.Qubits,
    zs: nb.Qubits,
    probability: float,
) -> None:
    sim.run(nb.reset(3), *gates)
    assert sim.pauli_probability(xs, zs) == pytest.approx(probability)
    assert sim.pauli_probability(iter(_listed(xs)), iter(_listed(zs))) == pytest.approx(probability)


def _listed(qubits: nb.Qubits) -> list[int]:
    return [qubits] if isinstance(qubits, int) else list(qubits)


def test_samples_follow_the_state_and_leave_it(sim: DenseSimulator) -> None:
    state = fill(sim, 3)
    drawn = sim.sample(20_000, seed=5)
    assert drawn.dtype == np.int64
    frequencies = np.bincount(drawn, minlength=8) / len(drawn)
    np.testing.assert_allclose(frequencies, np.abs(state) ** 2, atol=0.02)
    np.testing.assert_array_equal(sim.state(), state)


def test_a_seed_fixes_the_samples(sim: DenseSimulator) -> None:
    fill(sim, 5)
    first = sim.sample(50, seed=9)
    np.testing.assert_array_equal(sim.sample(50, seed=9), first)
    assert not np.array_equal(sim.sample(50, seed=10), first)


def test_samples_of_qubits_are_bits_of_samples(sim: DenseSimulator) -> None:
    fill(sim, 5)
    qubits = [3, 0, 4]
    expected = [gathered(index, qubits) for index in sim.sample(200, seed=3).tolist()]
    assert sim.sample(200, qubits, seed=3).tolist() == expected


def test_terms_of_probability_0_are_never_drawn(sim: DenseSimulator) -> None:
    sim.run(nb.reset(4), nb.x(1), nb.h([0, 3]))
    assert set(sim.sample(500).tolist()) == {0b0010, 0b0011, 0b1010, 0b1011}


class Highest(np.random.Generator):
    """A generator whose uniform numbers are all the largest one there is."""

    def random(self, size: int) -> npt.NDArray[np.float64]:  # type: ignore[override]
        return np.full(size, np.nextafter(1.0, 0.0))


def test_rounding_does_not_draw_past_the_last_term() -> None:
    rng = Highest(np.random.PCG64(1))
    state = np.array([0.6, 0, 0.8, 0, 0], dtype=np.complex128)
    for scale in (1.0, 3e-3, 1e-150):
        assert draw_terms(scale * state, 2, rng).tolist() == [2, 2]


def test_samples_need_shots_and_a_norm(sim: DenseSimulator) -> None:
    sim.run(nb.reset(2))
    assert sim.sample(0).shape == (0,)
    with pytest.raises(ValueError, match=r"^shots must be 0 or more, not -1$"):
        sim.sample(-1)
    for bad, shown in ((0.0, "0"), (np.nan, "nan"), (np.inf, "inf|nan")):
        sim.push_state(np.full(4, bad))
        with pytest.raises(ValueError, match=rf"^a state of total probability ({shown}) has no"):
            sim.sample(1)


@pytest.mark.parametrize(
    ("qubits", "message"),
    [
        ([], r"^at least one selected qubit is needed$"),
        (-1, r"^selected qubit -1 is negative$"),
        ([1, 1], r"^selected qubit 1 is given twice$"),
        (3, r"^qubit 3 lies outside the register of 3 qubits$"),
        ([0, 40], r"^qubit 40 lies outside the register of 3 qubits$"),
    ],
)
def test_qubits_are_checked(sim: DenseSimulator, qubits: nb.Qubits, message: str) -> None:
    sim.run(nb.reset(3))
    for call in (
        lambda: sim.state_of(qubits),
        lambda: sim.push_state([1, 0], qubits),
        lambda: sim.probabilities(qubits),
        lambda: sim.sample(1, qubits),
    ):
        with pytest.raises(ValueError, match=message):
            call()


def test_the_qubits_of_a_pauli_product_are_checked(sim: DenseSimulator) -> None:
    sim.run(nb.reset(3))
    with pytest.raises(ValueError, match=r"^at least one selected qubit is needed$"):
        sim.pauli_probability((), ())
    with pytest.raises(ValueError, match=r"^X qubit 1 is given twice$"):
        sim.pauli_probability([1, 1], 0)
    with pytest.raises(ValueError, match=r"^qubit 3 lies outside the register of 3 qubits$"):
        sim.pauli_probability(0, 3)


@pytest.mark.parametrize("name", CALLS)
def test_an_operation_without_a_register_is_the_engines_error(
    sim: DenseSimulator, name: str
) -> None:
    with pytest.raises(RuntimeError, match=NO_REGISTER):
        CALLS[name](sim)


@pytest.mark.parametrize("name", CALLS)
def test_an_operation_after_the_end_is_refused(name: str) -> None:
    with Simulator("StreamQPU") as sim:
        sim.run(nb.reset(1))
    with pytest.raises(ValueError, match=r"^the simulator is closed$"):
        CALLS[name](sim)


@pytest.mark.parametrize("name", [*CALLS, "override_state_buffer"])
def test_a_filter_without_amplitudes_never_sees_an_array(name: str) -> None:
    text = f'^a "StreamBitQPU" filter has no operation \'{name}\'; only "StreamQPU" (and|filters) '
    with Simulator("StreamBitQPU") as sim:
        sim.run(nb.reset(1))
        with pytest.raises(AttributeError, match=text):
            getattr(sim, name)


def test_a_buffer_holds_the_state(sim: DenseSimulator) -> None:
    buffer = nb.aligned_buffer(3)
    buffer[:] = random_state(3)
    before = buffer.copy()
    sim.override_state_buffer(buffer)
    np.testing.assert_array_equal(sim.state(), before)
    sim.run(nb.x(0))
    np.testing.assert_array_equal(buffer.reshape(-1, 2), before.reshape(-1, 2)[:, ::-1])


@pytest.mark.parametrize("first", range(4))
def test_a_buffer_may_begin_at_any_amplitude(sim: DenseSimulator, first: int) -> None:
    buffer = np.zeros(12, dtype=np.complex128)[first : first + 8]
    buffer[:] = random_state(3)
    before = buffer.copy()
    sim.override_state_buffer(buffer)
    np.testing.assert_array_equal(sim.state(), before)


@pytest.mark.parametrize("num_qubits", [1, 2, 7])
def test_an_aligned_buffer_is_aligned(num_qubits: int) -> None:
    buffer = nb.aligned_buffer(num_qubits)
    assert buffer.shape == (2**num_qubits,)
    assert buffer.dtype == np.complex128
    assert buffer.ctypes.data % 64 == 0
    assert not buffer.any()


@pytest.mark.parametrize("num_qubits", [0, -1])
def test_a_buffer_has_at_least_one_qubit(num_qubits: int) -> None:
    text = f"^a state buffer holds at least 1 qubit, not {num_qubits}$"
    with pytest.raises(ValueError, match=text):
        nb.aligned_buffer(num_qubits)


def between_doubles() -> Amplitudes:
    return np.zeros(8 * 16 + 4, dtype=np.uint8)[4:].view(np.complex128)


def read_only() -> Amplitudes:
    buffer = nb.aligned_buffer(3)
    buffer.flags.writeable = False
    return buffer


@pytest.mark.parametrize(
    ("buffer", "message"),
    [
        (nb.aligned_buffer(3)[:0], r"2, 4, 8, \.\.\. amplitudes, not 0$"),
        (nb.aligned_buffer(3)[:1], r"2, 4, 8, \.\.\. amplitudes, not 1$"),
        (nb.aligned_buffer(3)[:6], r"2, 4, 8, \.\.\. amplitudes, not 6$"),
        (nb.aligned_buffer(3)[::2], r"^a state buffer is contiguous and writable$"),
        (read_only(), r"^a state buffer is contiguous and writable$"),
        (between_doubles(), r"^a state buffer begins at a multiple of 8 bytes$"),
        (nb.aligned_buffer(3).reshape(2, 4), r"one-dimensional array of dtype complex128$"),
        (nb.aligned_buffer(3).view(np.float64), r"one-dimensional array of dtype complex128$"),
    ],
)
def test_other_buffers_are_refused(sim: DenseSimulator, buffer: Amplitudes, message: str) -> None:
    before = fill(sim, 2)
    with pytest.raises(ValueError, match=message):
        sim.override_state_buffer(buffer)
    np.testing.assert_array_equal(sim.state(), before)
