"""Compares a gate of a state-vector filter with its textbook matrix."""

from __future__ import annotations

import numpy as np

from models.matrices import gate_matrix
from models.wire import Record
from support.dense import StateFilter, Vector, state_after, to_array


def assert_textbook(filter_: StateFilter, state: Vector, gate: Record, atol: float = 1e-12) -> None:
    """Runs the gate on the state and compares the result with that of the full matrix."""
    __tracebackhide__ = True
    num_qubits = len(state).bit_length() - 1
    expected = gate_matrix(num_qubits, gate) @ state
    got = state_after(filter_, state, to_array([gate]))
    np.testing.assert_allclose(got, expected, rtol=0, atol=atol, err_msg=str(gate))
