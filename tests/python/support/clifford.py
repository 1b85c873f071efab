"""Helpers of the Clifford simulator's tests: a filter to drive, and its tableau as text."""

from __future__ import annotations

import contextlib
from types import ModuleType

import numpy as np

from support.dense import RecordFilter, opened, reset_record


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
    """A Clifford filter, with a register of `num_qubits` if given. Freed at the end."""
    return opened(CliffordFilter(engine), num_qubits)
