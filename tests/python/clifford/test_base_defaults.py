"""Calls that the Clifford filter does not implement: the answers of the base class."""

from collections.abc import Iterator
from types import ModuleType

import numpy as np
import pytest

from models.opcodes import H, X
from support.clifford import CliffordFilter, open_clifford
from support.driver import rec

AMPLITUDES = np.full(4, 0.5, dtype=np.complex128)


@pytest.fixture(params=["no register", "two qubits"])
def filter_(request: pytest.FixtureRequest, engine: ModuleType) -> Iterator[CliffordFilter]:
    """The base class has no state, so its answers do not depend on a register."""
    with open_clifford(engine, None if request.param == "no register" else 2) as driver:
        if request.param == "two qubits":
            driver.run(rec(H, target_mask=1), rec(X, target_mask=2, cond_mask=1))
        yield driver


def test_normalize_is_one(filter_: CliffordFilter) -> None:
    assert filter_.call("normalize") == 1.0


def test_pps_is_zero(filter_: CliffordFilter) -> None:
    assert filter_.call("pps", 3, 1) == 0.0
    assert filter_.call("pps", 0, 0) == 0.0


@pytest.mark.parametrize("flag", [0, 1, -5])
def test_check_state_is_one_whatever_is_expected(filter_: CliffordFilter, flag: int) -> None:
    assert filter_.call("check_state", AMPLITUDES, 0.0, flag) == 1


def test_pull_state_specific_has_no_data(filter_: CliffordFilter) -> None:
    text = "Error: no QPU data for qc.pull_state_specific()"
    filter_.call_fails(text, "pull_state_specific", AMPLITUDES, 0)


def test_override_state_buffer_is_not_implemented(filter_: CliffordFilter) -> None:
    text = "Error: override_state_buffer is not implemented for this filter type."
    filter_.call_fails(text, "override_state_buffer", AMPLITUDES)


def test_peek_num_nonzero_terms_borrows_the_text_of_another_call(filter_: CliffordFilter) -> None:
    text = "Error: no QPU data for qc.peek_read_probability()"
    filter_.call_fails(text, "peek_num_nonzero_terms")


def test_peeks_leave_their_arrays_alone(filter_: CliffordFilter) -> None:
    indices = np.arange(4, dtype=np.uint64)
    amplitudes = AMPLITUDES.copy()
    assert filter_.call("peek_n_biggest_terms", 4, indices, amplitudes) is None
    assert filter_.call("peek_value", 1, amplitudes) is None
    assert indices.tolist() == [0, 1, 2, 3]
    assert np.array_equal(amplitudes, AMPLITUDES)


@pytest.mark.parametrize("name", ["finish", "set_random"])
def test_calls_that_do_nothing(filter_: CliffordFilter, name: str) -> None:
    assert filter_.call(name) is None


def test_connection_calls_of_a_filter_without_a_connection(filter_: CliffordFilter) -> None:
    assert filter_.call("connect", "localhost", 1, 0.1) == ""
    assert filter_.call("get_status") == ""
    assert filter_.call("disconnect") == ""


@pytest.mark.parametrize("values", [(0, 0, 0, 0, 0, 1, 0), (2**32 - 1,) * 7])
def test_parameters_are_taken_and_change_nothing(
    engine: ModuleType, values: tuple[int, ...]
) -> None:
    with open_clifford(engine) as driver:
        assert driver.call("setup_sim_params", *values) is None
        driver.reset(1)
        assert driver.tableau() == "0 1|0\n-----\n0 0|1\n"


@pytest.mark.parametrize("on", [0, 1, 7])
def test_debugging_can_be_switched(filter_: CliffordFilter, on: int) -> None:
    assert filter_.call("enable_qubit_debugging", on) is None


def test_no_event_is_queued(filter_: CliffordFilter) -> None:
    assert filter_.call("get_next_event") is None


def test_none_of_them_changes_the_tableau(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as driver:
        driver.run(rec(H, target_mask=1), rec(X, target_mask=2, cond_mask=1))
        before = driver.tableau()
        for name in ("normalize", "finish", "set_random"):
            driver.call(name)
        driver.call("pps", 3, 3)
        driver.call("check_state", AMPLITUDES, 0.0, 1)
        driver.call("peek_value", 0, AMPLITUDES.copy())
        assert driver.tableau() == before
