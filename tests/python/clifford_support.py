"""Helpers of the Clifford simulator's tests: a filter to drive, and its tableau as text."""

from __future__ import annotations

import contextlib
from collections.abc import Iterable, Iterator
from types import ModuleType

import numpy as np
from bit_model import TAG, Record
from dense_support import reset_record, to_array
from support import FilterDriver

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


def tagged(low: int, **words: int | float) -> Record:
    """A plain record of the engine's tag."""
    return Record(TAG << 32 | low, **words)  # type: ignore[arg-type]


class CliffordFilter(FilterDriver):
    """One "StreamCliffordQPU" filter."""

    def __init__(self, engine: ModuleType) -> None:
        super().__init__(engine, "StreamCliffordQPU")

    def run_records(self, records: Iterable[Record]) -> None:
        """Runs plain records in one call."""
        self.run(to_array(records))

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


@contextlib.contextmanager
def open_clifford(engine: ModuleType, num_qubits: int | None = None) -> Iterator[CliffordFilter]:
    """A Clifford filter, with a register of `num_qubits` if that is given; freed at the end."""
    driver = CliffordFilter(engine)
    try:
        if num_qubits is not None:
            driver.reset(num_qubits)
        yield driver
    finally:
        driver.close()
