"""Expectation values of programs that write qubits or change the register."""

from __future__ import annotations

import nimbrel as nb
import pytest


@pytest.mark.parametrize("filter_", ["auto", "StreamQPU", "StreamSparseQPU", "StreamCliffordQPU"])
def test_a_qubit_that_no_gate_touches_may_be_written(filter_: str) -> None:
    records = nb.program(nb.reset(2), nb.write(1, 1), nb.h(0))
    assert nb.expectation(records, {"ZX": 1.0}, filter=filter_) == pytest.approx(-1)


def test_the_last_register_counts() -> None:
    grown = nb.program(nb.reset(1), nb.reset(2), nb.x(1))
    assert nb.expectation(grown, {"ZI": 1.0}) == -1


def test_a_letter_outside_the_last_register_is_refused() -> None:
    shrunk = nb.program(nb.reset(2), nb.reset(1))
    with pytest.raises(ValueError, match="outside the last register of 1 qubits"):
        nb.expectation(shrunk, {"ZI": 1.0})
