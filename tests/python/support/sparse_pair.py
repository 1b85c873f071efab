"""A sparse filter and its model, compared in everything observable."""

from __future__ import annotations

import contextlib
import math
from collections.abc import Callable, Iterable, Iterator, Sequence
from itertools import pairwise
from types import ModuleType
from typing import Any

import numpy as np

from models.arithmetic import Amplitude, Generator, probability
from models.opcodes import SWAP
from models.sparse import SparseModel
from models.wire import Record, set_bits, tagged
from programs.drawn import noting
from support.dense import Vector, amplitudes, reset_record, to_array, vector
from support.driver import failure_of
from support.flag_windows import FlagWindows
from support.sparse import SparseFilter, assert_same_amplitudes, flip_records

# If all indices are below this, every comparison pulls the whole state.
NARROW = 256
# The order of the whole list is compared if the terms differ in at most this many qubits.
ORDER_QUBITS = 12
# The first flags of the windows that are compared.
FLAG_WINDOWS = (-64, -32, 0, 32, 99_999_990, -100_000_010)


class Gathering:
    """Swaps and flips of qubits that move all terms to low indices.

    They change only the keys: the list keeps its order and its amplitudes.
    """

    def __init__(self, indices: list[int]) -> None:
        first = indices[0]
        differing = 0
        for index in indices:
            differing |= index ^ first
        self.num_qubits = differing.bit_count()
        self.swaps = [
            (1 << low, bit) for low, bit in enumerate(set_bits(differing)) if bit != 1 << low
        ]
        self.flipped = self._swapped(first) >> self.num_qubits << self.num_qubits

    def _swapped(self, index: int) -> int:
        for a, b in self.swaps:
            if bool(index & a) != bool(index & b):
                index ^= a | b
        return index

    def moved(self, index: int) -> int:
        return self._swapped(index) ^ self.flipped

    def records(self) -> np.ndarray:
        swaps = [tagged(SWAP, target_mask=a | b) for a, b in self.swaps]
        return np.concatenate([to_array(swaps), flip_records([self.flipped])])


NOWHERE = complex(math.nan, math.nan)


def blank(length: int) -> Vector:
    """An array of NaNs. In a check, no term differs from NaN. A pull must overwrite all of it."""
    # A slice because NumPy's versions differ in the stride of an array that is made empty.
    return np.full(length + 1, NOWHERE, dtype=np.complex128)[:length]


def same(what: str, got: object, expected: object) -> None:
    __tracebackhide__ = True
    assert got == expected, f"{what}: {got} instead of {expected}"


class SparsePair:
    """A filter and a model, which draw the same numbers from the same seed."""

    def __init__(self, engine: ModuleType, seed: int) -> None:
        self.filter = SparseFilter(engine)
        self.model = SparseModel(Generator(seed))
        self.history: list[Record] = []
        self.failures: list[str] = []
        self._flag_windows = FlagWindows(FLAG_WINDOWS)
        engine.random_seed(0, seed)

    def run(self, records: Iterable[Record]) -> None:
        """Runs the records one by one on both sides and compares after each."""
        for record in records:
            self._run_one(record)

    def _run_one(self, record: Record) -> None:
        self.history.append(record)
        packed = to_array([record])
        answer = self._both(
            lambda: self.filter.call("put_instructions", packed, 1),
            lambda: self.model.run([record]),
        )
        if answer is not None:
            self.failures.append(answer)

    def reset(self, num_qubits: int) -> None:
        self.run([reset_record(num_qubits)])

    def _both(self, real: Callable[[], Any], modelled: Callable[[], Any]) -> Any:
        """Makes a call on both sides and compares. Returns the result or the error."""
        answer = failure_of(modelled)
        same("answer", failure_of(real), answer)
        self.compare()
        return answer

    # Calls that change the state.

    def load(self, state: Vector, mask: int = 0) -> None:
        self._both(
            lambda: self.filter.call("push_state", state, mask),
            lambda: self.model.push(amplitudes(state), mask),
        )

    def postselect(self, value: int, mask: int) -> None:
        self._both(
            lambda: self.filter.call("postselect", value, mask),
            lambda: self.model.postselect(value, mask),
        )

    def normalize(self) -> None:
        # As text: then zeros of both signs differ, and all NaNs are equal.
        self._both(
            lambda: repr(self.filter.call("normalize")), lambda: repr(self.model.normalize())
        )

    # Calls that do not change the state.

    def compare_probability(self, value: int, mask: int, limit: float) -> None:
        got = failure_of(lambda: repr(self.filter.probability(value, mask, limit)))
        wanted = failure_of(lambda: repr(self.model.read_probability(value, mask, limit)))
        same("probability", got, wanted)

    def compare_pull(self, length: int) -> None:
        pulled = blank(length)
        self._compare_array(
            pulled,
            lambda: self.filter.call("pull_state", pulled),
            lambda: self.model.pull(length),
        )

    def compare_slice(self, mask: int, length: int) -> None:
        pulled = blank(length)
        self._compare_array(
            pulled,
            lambda: self.filter.call("pull_state_specific", pulled, mask),
            lambda: self.model.pull_specific(mask, length),
        )

    def _compare_array(
        self, pulled: Vector, real: Callable[[], Any], modelled: Callable[[], list[Amplitude]]
    ) -> None:
        """A refused pull leaves the array unchanged. An accepted one returns an empty text."""
        before, answer, expected = pulled.copy(), failure_of(real), failure_of(modelled)
        if isinstance(expected, str):
            same("refusal", answer, expected)
            assert_same_amplitudes(pulled, before)
        else:
            same("text", answer, "")
            assert_same_amplitudes(pulled, vector(expected))

    def compare_check(self, expected: Vector, tolerance: float) -> None:
        got = failure_of(lambda: self.filter.check(expected, tolerance))
        wanted = failure_of(lambda: self.model.check(amplitudes(expected), tolerance))
        same("check", got, wanted)

    # Comparisons of the whole state.

    def compare(self) -> None:
        """Compares all terms bit for bit, the order of equally likely ones, and the flags."""
        same("stored terms", self.filter.num_terms(), len(self.model.terms))
        self._compare_ranked()
        indices = self._indices()
        if max(indices, default=0) < NARROW:
            self.compare_pull(max(indices, default=0) + 1)
        elif not self.model.open_label:
            self._compare_unranked()
        self._flag_windows.compare(self.filter, self.model.flags)

    def _indices(self) -> list[int]:
        return [term.key >> 1 for term in self.model.terms]

    def _compare_ranked(self) -> None:
        expected = self.model.list.ranked()
        indices, values = self.filter.biggest(len(self.model.terms) + 1)
        left_over = [(0.0, 0.0)] * (len(values) - len(expected))
        ranking = [*(term.key >> 1 for term in expected), *(0 for _ in left_over)]
        same("ranking", indices, ranking)
        assert_same_amplitudes(values, vector([*(t.amplitude for t in expected), *left_over]))

    def _compare_unranked(self) -> None:
        """Compares terms of a probability of 0 or NaN, which the ranking does not contain."""
        hidden = [t.key >> 1 for t in self.model.terms if not probability(t.amplitude) > 0.0]
        if hidden:
            # Of several terms with one key, the engine shows the first.
            shown = {t.key >> 1: t.amplitude for t in reversed(self.model.terms)}
            expected = vector([shown[index] for index in hidden])
            assert_same_amplitudes(self.filter.values(hidden), expected)

    def compare_order(
        self, steps: Sequence[int] | None = None, most_qubits: int = ORDER_QUBITS
    ) -> bool:
        """Compares the order of the list, and returns whether that was possible.

        A check of the state ends at the first term that differs or lies outside the array. For each
        term of `steps`, the array differs at the term, and only its successor lies outside. So the
        check ends at the term exactly if the term comes first. By default, `steps` are all terms
        but the last.
        """
        indices = self._indices()
        if self.model.open_label or len(set(indices)) < max(len(indices), 2):
            return False
        gathering = Gathering(indices)
        if max(indices) > self.model.register or gathering.num_qubits > most_qubits:
            return False
        steps = range(len(indices) - 1) if steps is None else steps
        self.filter.run(gathering.records())
        try:
            self._compare_neighbours([gathering.moved(i) for i in indices], gathering, steps)
        finally:
            self.filter.run(gathering.records()[::-1])
        return True

    def _compare_neighbours(
        self, places: list[int], gathering: Gathering, steps: Sequence[int]
    ) -> None:
        last = (1 << gathering.num_qubits) - 1
        expected = blank(last)
        flips = [places[step + 1] ^ last for step in steps]
        records = flip_records(here ^ there for here, there in pairwise([0, *flips, 0]))
        for number, (step, flip) in enumerate(zip(steps, flips, strict=True)):
            self.filter.run(records[number : number + 1])
            term, following = self.model.terms[step : step + 2]
            if all(map(math.isnan, term.amplitude)):
                continue
            expected[places[step] ^ flip] = 0
            answer = failure_of(lambda: self.filter.check(expected, -1.0))
            expected[places[step] ^ flip] = NOWHERE
            assert answer == 0, f"key {following.key} stands before key {term.key}: {answer}"
        self.filter.run(records[-1:])


@contextlib.contextmanager
def open_sparse_pair(engine: ModuleType, seed: int) -> Iterator[SparsePair]:
    """A sparse filter and its model without a register. The filter is freed at the end."""
    pair = SparsePair(engine, seed)
    try:
        with noting(pair.history):
            yield pair
    finally:
        pair.filter.close()
