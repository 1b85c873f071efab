"""Calls that the bit filter does not implement: the answers of the base class."""

from types import ModuleType

import nimbrel as nb
import numpy as np
import pytest

from support.driver import BitFilter, raises_engine_error

AMPLITUDES = np.full(4, 0.5, dtype=np.complex128)


@pytest.fixture(params=["no register", "two qubits"])
def handle(request: pytest.FixtureRequest, bits: BitFilter) -> int:
    """The base class has no state, so its answers do not depend on a register."""
    if request.param == "two qubits":
        bits.run(nb.reset(2), nb.x(1))
    handle: int = bits.handle
    return handle


def test_normalize_is_one(engine: ModuleType, handle: int) -> None:
    assert engine.normalize(handle) == 1.0


def test_pps_is_zero(engine: ModuleType, handle: int) -> None:
    assert engine.pps(handle, 3, 1) == 0.0
    assert engine.pps(handle, 0, 0) == 0.0


@pytest.mark.parametrize("flag", [0, 1, -5])
def test_check_state_is_one_whatever_is_expected(
    engine: ModuleType, handle: int, flag: int
) -> None:
    assert engine.check_state(handle, AMPLITUDES, 0.0, flag) == 1


def test_pull_state_specific_has_no_data(engine: ModuleType, handle: int) -> None:
    with raises_engine_error("Error: no QPU data for qc.pull_state_specific()"):
        engine.pull_state_specific(handle, AMPLITUDES, 0)


def test_override_state_buffer_is_not_implemented(engine: ModuleType, handle: int) -> None:
    text = "Error: override_state_buffer is not implemented for this filter type."
    with raises_engine_error(text):
        engine.override_state_buffer(handle, AMPLITUDES)


def test_peek_num_nonzero_terms_borrows_the_text_of_another_call(
    engine: ModuleType, handle: int
) -> None:
    with raises_engine_error("Error: no QPU data for qc.peek_read_probability()"):
        engine.peek_num_nonzero_terms(handle)


def test_peeks_leave_their_arrays_alone(engine: ModuleType, handle: int) -> None:
    indices = np.arange(4, dtype=np.uint64)
    amplitudes = AMPLITUDES.copy()
    assert engine.peek_n_biggest_terms(handle, 4, indices, amplitudes) is None
    assert engine.peek_value(handle, 1, amplitudes) is None
    assert indices.tolist() == [0, 1, 2, 3]
    assert np.array_equal(amplitudes, AMPLITUDES)


@pytest.mark.parametrize("name", ["finish", "set_random"])
def test_calls_that_do_nothing(engine: ModuleType, handle: int, name: str) -> None:
    assert getattr(engine, name)(handle) is None


def test_connection_calls_of_a_filter_without_a_connection(engine: ModuleType, handle: int) -> None:
    assert engine.connect(handle, "localhost", 1, 0.1) == ""
    assert engine.get_status(handle) == ""
    assert engine.disconnect(handle) == ""


@pytest.mark.parametrize("values", [(0, 0, 0, 0, 0, 1, 0), (2**32 - 1,) * 7, (5, 1, 1, 7, 9, 0, 0)])
def test_any_simulator_parameters_are_taken(
    engine: ModuleType, handle: int, values: tuple[int, ...]
) -> None:
    assert engine.setup_sim_params(handle, *values) is None


@pytest.mark.parametrize("on", [0, 1, 7])
def test_debugging_can_be_switched(engine: ModuleType, handle: int, on: int) -> None:
    assert engine.enable_qubit_debugging(handle, on) is None


def test_no_event_is_queued_at_first(engine: ModuleType, handle: int) -> None:
    assert engine.get_next_event(handle) is None
