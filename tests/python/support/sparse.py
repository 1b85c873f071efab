"""Helpers of the sparse filter's tests: a driver of a filter, and its terms at any width."""

from __future__ import annotations

import contextlib
from collections.abc import Iterable
from itertools import pairwise
from types import ModuleType
from typing import Any

import numpy as np

from models.arithmetic import Amplitude
from models.opcodes import X
from models.wire import tagged
from support.dense import StateFilter, Vector, bits_of, opened, to_array, vector


def flip_records(masks: Iterable[int]) -> np.ndarray:
    """One NOT for each mask."""
    return to_array(tagged(X, target_mask=mask) for mask in masks)


class SparseFilter(StateFilter):
    """One "StreamSparseQPU" filter."""

    def __init__(self, engine: ModuleType) -> None:
        super().__init__(engine, "StreamSparseQPU")

    def num_terms(self) -> int:
        """The number of stored terms, those of amplitude 0 included."""
        count: int = self.call("peek_num_nonzero_terms")
        return count

    def biggest(self, count: int) -> tuple[list[int], Vector]:
        """The indices and amplitudes of the `count` most probable terms. Unused entries are 0."""
        # An element that the engine does not write keeps an impossible value.
        indices = np.full(count, 2**63 - 1, dtype=np.uint64)
        values = np.full(count, np.nan, dtype=np.complex128)
        assert self.call("peek_n_biggest_terms", count, indices, values) is None
        return indices.tolist(), values

    def ranked(self) -> list[tuple[int, complex]]:
        """All terms of a probability above 0, the most probable first, equal ones in list order."""
        indices, values = self.biggest(self.num_terms())
        pairs = zip(indices, values.tolist(), strict=True)
        return [(index, amplitude) for index, amplitude in pairs if amplitude]

    def values(self, indices: Iterable[int]) -> Vector:
        """The amplitudes at these indices, which may have more than 32 bits.

        A peek takes 32 bits, so X gates first move the index to 0, and back at the end. They change
        neither the amplitudes nor the order of the list.
        """
        path = [0, *indices, 0]
        flips = flip_records(here ^ there for here, there in pairwise(path))
        values, dest = [], np.empty(1, dtype=np.complex128)
        for place in range(len(flips) - 1):
            self.run(flips[place : place + 1])
            dest[0] = np.nan
            self.call("peek_value", 0, dest)
            values.append(complex(dest[0]))
        self.run(flips[-1:])
        return np.array(values, dtype=np.complex128)

    def flip(self, mask: int) -> None:
        """Inverts these qubits in every term."""
        self.run(flip_records([mask]))

    def probability(self, value: int, mask: int, limit: float = 0.0) -> float:
        found: float = self.call("peek_read_probability", value, mask, limit)
        return found

    def slice(self, mask: int, length: int | None = None) -> Vector:
        """The slice of the masked qubits that contains the most probable term."""
        # An element that the engine does not write stays NaN.
        size = 1 << mask.bit_count() if length is None else length
        dest = np.full(size, np.nan, dtype=np.complex128)
        assert self.call("pull_state_specific", dest, mask) == ""
        return dest

    def check(self, expected: Vector, tolerance: float) -> int:
        answer: int = self.call("check_state", expected, tolerance, 0)
        return answer


def open_sparse(
    engine: ModuleType, num_qubits: int | None = None
) -> contextlib.AbstractContextManager[SparseFilter]:
    """A sparse filter, with a register of `num_qubits` if given. Freed at the end."""
    return opened(SparseFilter(engine), num_qubits)


def plain_bits(state: Vector) -> Any:
    """The raw words of the amplitudes, with one pattern for all NaNs."""
    parts = np.ascontiguousarray(state).view(np.float64).copy()
    parts[np.isnan(parts)] = np.nan
    return bits_of(parts.view(np.complex128))


def assert_same_amplitudes(got: Vector, expected: Vector | Iterable[Amplitude]) -> None:
    """Expects the same bits, signs of zeros included. All NaNs are equal."""
    __tracebackhide__ = True
    wanted = expected if isinstance(expected, np.ndarray) else vector(expected)
    assert len(got) == len(wanted), f"{len(got)} amplitudes instead of {len(wanted)}"
    if got.tobytes() == wanted.tobytes():
        return
    differ = np.flatnonzero((plain_bits(got) != plain_bits(wanted)).reshape(-1, 2).any(axis=1))
    shown = [(int(i), complex(got[i]), complex(wanted[i])) for i in differ[:4]]
    assert not len(differ), f"{len(differ)} amplitudes differ; place, got, expected: {shown}"
