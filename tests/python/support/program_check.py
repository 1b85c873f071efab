"""Helpers of the tests of the companion's checks: filters, long programs, exact refusals."""

from __future__ import annotations

import re
from typing import Final, TypeAlias

import nimbrel as nb
import numpy as np
import pytest

# Final, so that a type checker knows the class of `Simulator(DENSE)`.
DENSE: Final = "StreamQPU"
SPARSE: Final = "StreamSparseQPU"
BIT: Final = "StreamBitQPU"
CLIFFORD: Final = "StreamCliffordQPU"
AmplitudeSimulator: TypeAlias = type[nb.DenseSimulator] | type[nb.SparseSimulator]
ALL_FILTERS = (DENSE, SPARSE, BIT, CLIFFORD)
LONG = 20000
"""Records enough for several pieces of a long program."""


def outside(index: int, qubit: int, size: int) -> str:
    return f"record {index}: qubit {qubit} lies outside the register of {size} qubits"


def filler(count: int) -> nb.RecordArray:
    """So many records that are valid on every register with a qubit."""
    return np.repeat(nb.x(0), count)


def refused(sim: nb.Simulator, text: str, *parts: nb.RecordArray) -> None:
    """Expects that `run` refuses the parts by exactly this text."""
    with pytest.raises(ValueError, match=f"^{re.escape(text)}$"):
        sim.run(*parts)
