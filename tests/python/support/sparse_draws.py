"""Sparse states in which the draws of a seed select known terms."""

from __future__ import annotations

import contextlib
import math
from collections.abc import Iterator
from types import ModuleType

import numpy as np
import pytest

from models.arithmetic import Generator
from models.opcodes import FLAG_NAND, READ, X
from support.dense import reset
from support.driver import rec
from support.sparse import SparseFilter, open_sparse

# Four terms of one probability.
QUARTERS = np.array([0.5, 0.5j, -0.5, 0.5]) + 0j
SEEDS = pytest.mark.parametrize("seed", range(10))


def draws(seed: int, count: int = 1) -> list[float]:
    generator = Generator(seed)
    return [generator.zero_to_one() for _ in range(count)]


def quarter(draw: float) -> int:
    """The index that the draw selects in a list of four equal terms."""
    return next(place for place in range(4) if (place + 1) / 4 >= draw)


@contextlib.contextmanager
def seeded_quarters(engine: ModuleType, seed: int) -> Iterator[SparseFilter]:
    """A filter of two qubits in the state `QUARTERS`, with a new seed."""
    with open_sparse(engine, 2) as filter_:
        filter_.load(QUARTERS)
        engine.random_seed(0, seed)
        yield filter_


def next_read_is(engine: ModuleType, draw: float) -> bool:
    """Whether the next read uses this draw, which selects one of 16 equal terms."""
    with open_sparse(engine, 4) as filter_:
        filter_.load(np.full(16, 0.25 + 0j))
        filter_.run(rec(READ, target_mask=15, read_flag=2))
        return filter_.flags(2, 4) == math.ceil(draw * 16) - 1


def prepared(filter_: SparseFilter, num_qubits: int, index: int) -> None:
    """A register in a basis state, with a stored word of flags that are 0."""
    store_0_in_flag_2 = rec(FLAG_NAND, target_mask=1, cond_mask=1, read_flag=2)
    filter_.run(store_0_in_flag_2, reset(num_qubits), rec(X, target_mask=index))
