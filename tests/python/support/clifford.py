"""Helpers of the Clifford simulator's tests: a filter to drive, and its tableau as text."""

from __future__ import annotations

import contextlib
from types import ModuleType

import numpy as np

from support.dense import RecordFilter, opened, reset_record

NO_PEEK_MASK = "qc.peek_read_probability() must specify at least one qubit to measure."
ONE_QUBIT_ONLY = (
    "qc.peek_read_probability() in Clifford sim must specify exactly one qubit to measure."
)
NO_POSTSELECT_MASK = "qc.postselect() must specify at least one qubit to postselect."
NO_MATCH = "qc.postselect() no non-zero terms have the desired value."
NO_PUSH = "qc.push_state() has not been implemented for the Clifford sim."


def outside(qubit: int, num_qubits: int) -> str:
    """The text of a refusal to touch a qubit that the register does not have."""
    return f"Error: qubit {qubit} lies outside the register of {num_qubits} qubits."


class CliffordFilter(RecordFilter):
    """One "StreamCliffordQPU" filter."""

    def __init__(self, engine: ModuleType) -> None:
        super().__init__(engine, "StreamCliffordQPU")

    def reset(self, num_qubits: int) -> None:
        self.run_records([reset_record(num_qubits)])

    def tableau(self) -> str:
        """The printed tableau: destabilizers, a line of dashes, generators; qubit 0 last."""
        text: str = self.call("pull_state", np.zeros(1, dtype=np.complex128))
        return text

    def probability(self, value: int, mask: int, limit: float = 0.0) -> float:
        found: float = self.call("peek_read_probability", value, mask, limit)
        return found

    def postselect(self, value: int, mask: int) -> None:
        self.call("postselect", value, mask)


def open_clifford(
    engine: ModuleType, num_qubits: int | None = None
) -> contextlib.AbstractContextManager[CliffordFilter]:
    """A Clifford filter, with a register of `num_qubits` if that is given; freed at the end."""
    return opened(CliffordFilter(engine), num_qubits)
