"""Calls that the socket filter does not implement: the answers of the base class."""

from collections.abc import Iterator
from types import ModuleType
from typing import Any

import numpy as np
import pytest

from support.remote import Remote, open_remote

AMPLITUDES = np.full(4, 0.5, dtype=np.complex128)


@pytest.fixture(params=["not connected", "connected"])
def remote(request: pytest.FixtureRequest, engine: ModuleType, capfd: Any) -> Iterator[Remote]:
    """The base class has no state, so its answers do not depend on a connection."""
    with open_remote(engine, capfd) as pair:
        if request.param == "connected":
            pair.join()
        yield pair


@pytest.mark.parametrize(
    ("name", "arguments", "text"),
    [
        ("pull_state", (AMPLITUDES,), "Error: no QPU data for qc.pull_state()"),
        (
            "pull_state_specific",
            (AMPLITUDES, 0),
            "Error: no QPU data for qc.pull_state_specific()",
        ),
        ("push_state", (AMPLITUDES, 0), "Error: no QPU data for qc.push_state()"),
        (
            "override_state_buffer",
            (AMPLITUDES,),
            "Error: override_state_buffer is not implemented for this filter type.",
        ),
        (
            "peek_read_probability",
            (0, 1, 0.0),
            "Error: no QPU data for qc.peek_read_probability()",
        ),
        ("peek_num_nonzero_terms", (), "Error: no QPU data for qc.peek_read_probability()"),
    ],
)
def test_calls_for_data_that_is_elsewhere(
    remote: Remote, name: str, arguments: tuple[Any, ...], text: str
) -> None:
    remote.filter.call_fails(text, name, *arguments)


def test_calls_that_answer_without_looking(remote: Remote) -> None:
    filter_ = remote.filter
    assert filter_.call("normalize") == 1.0
    assert filter_.call("check_state", AMPLITUDES, 0.0, 1) == 1
    assert filter_.call("pps", 3, 1) == 0.0
    for name in ("finish", "set_random"):
        assert filter_.call(name) is None
    assert filter_.call("postselect", 0, 0) is None
    assert filter_.call("get_next_event") is None
    assert filter_.call("enable_qubit_debugging", 1) is None
    assert filter_.call("setup_sim_params", 0, 0, 0, 0, 0, 1, 0) is None


def test_peeks_leave_their_arrays_alone(remote: Remote) -> None:
    indices = np.arange(4, dtype=np.uint64)
    amplitudes = AMPLITUDES.copy()
    assert remote.filter.call("peek_n_biggest_terms", 4, indices, amplitudes) is None
    assert remote.filter.call("peek_value", 1, amplitudes) is None
    assert indices.tolist() == [0, 1, 2, 3]
    assert np.array_equal(amplitudes, AMPLITUDES)
