"""A Clifford filter and its model, compared in everything observable."""

from __future__ import annotations

import contextlib
from collections.abc import Iterator
from itertools import zip_longest
from types import ModuleType

from models.clifford import CliffordModel
from models.flags import CAPACITY
from models.opcodes import EXTEND, RESET, SWAP
from models.tableau import Row, Tableau, visible_qubits
from models.wire import Record, tagged
from programs.drawn import noting
from support.clifford import CliffordFilter
from support.driver import failure_of
from support.flag_windows import FlagWindows

# The first flags of the windows that are compared.
FLAG_WINDOWS = (*range(-32, 224, 32), 99_999_980, 47_483_640, 54_775_790)


def place_of(flag: int) -> int:
    """The positive flag number at the same place in the table, which reads the stored bit."""
    place = abs(flag) % CAPACITY
    return place if place > 1 else place + CAPACITY


class Draws:
    """Solved linear equations on draws: each has a pivot draw that no other equation has."""

    def __init__(self) -> None:
        self._solved: dict[int, tuple[int, int]] = {}

    def add(self, mask: int, bit: int) -> None:
        """Adds an equation: the draws of the mask have this parity. Ignores a contradiction."""
        for pivot, (other_mask, other_bit) in self._solved.items():
            if mask & pivot:
                mask, bit = mask ^ other_mask, bit ^ other_bit
        if not mask:
            return
        own = mask & -mask
        for pivot, (other_mask, other_bit) in self._solved.items():
            if other_mask & own:
                self._solved[pivot] = other_mask ^ mask, other_bit ^ bit
        self._solved[own] = mask, bit

    def shown(self) -> list[int]:
        """The values of the draws that are determined."""
        return [bit for pivot, (mask, bit) in self._solved.items() if mask == pivot]

    def ones(self) -> int:
        """The mask of the draws that gave 1. Undetermined draws count as 0."""
        return sum(pivot for pivot, (_, bit) in self._solved.items() if bit)


def phases(text: str) -> list[int]:
    """The phases of the printed rows, the destabilizers first."""
    return [int(line[0]) for line in text.splitlines() if line[0] != "-"]


def difference(text: str, expected: str) -> str:
    """The first line in which two printed tableaus differ."""
    for number, (got, wanted) in enumerate(
        zip_longest(text.splitlines(), expected.splitlines(), fillvalue="nothing")
    ):
        if got != wanted:
            return f"line {number} is {got} instead of {wanted}"
    return "the ends of lines differ"


def swap_records(a: int, b: int) -> list[Record]:
    """A swap of two qubits at any distance."""
    extension = tagged(EXTEND, target_mask=1, target_offset=b)
    return [extension, tagged(SWAP, target_mask=1, target_offset=a)]


class CliffordPair:
    """A filter and a model. The model finds the engine's draws from printed signs and flags."""

    def __init__(self, engine: ModuleType) -> None:
        self.filter = CliffordFilter(engine)
        self.model = CliffordModel()
        self.drawn: list[int] = []  # every drawn outcome that was determined
        self.failures: list[str] = []
        self.history: list[Record] = []
        self._flag_windows = FlagWindows(FLAG_WINDOWS)

    def rows(self) -> list[Row]:
        """All rows of the model, none without a register."""
        return self.model.state.all_rows() if self.model.state else []

    def run(self, records: list[Record]) -> str | None:
        """Runs one call on both sides and compares. Returns the error, if any."""
        __tracebackhide__ = True
        self.history += records
        answer = failure_of(lambda: self.filter.run_records(records))
        expected = failure_of(lambda: self.model.run(records))
        assert answer == expected, f"{answer} instead of {expected}"
        self.compare()
        if not isinstance(expected, str):
            return None
        self.failures.append(expected)
        return expected

    @property
    def num_qubits(self) -> int:
        return self.model.state.num_qubits if self.model.state else 0

    @property
    def num_rows(self) -> int:
        return len(self.model.state.stabilizers) if self.model.state else 0

    def compare(self) -> None:
        """Compares the printed text, once the draws are known, and the flags."""
        __tracebackhide__ = True
        text = failure_of(self.filter.tableau)
        if self.model.state is not None and self.model.state.num_draws:
            self._settle(self.model.state, text)
        self.model.settle(0)
        expected = failure_of(self.model.text)
        assert text == expected, difference(text, expected)
        self._flag_windows.compare(self.filter, self.model.flags)

    def _settle(self, tableau: Tableau, text: str) -> None:
        """Tells the model the engine's draws, as far as signs and flags determine them."""
        draws = Draws()
        for row, phase in zip(tableau.all_rows(), phases(text), strict=True):
            draws.add(row.draws, (phase - row.phase) >> 1 & 1)
        # A later outcome overwrites an earlier one in the same flag.
        stored = {place_of(flag): (flag, out) for flag, out in self.model.stored if abs(flag) != 1}
        for place, (flag, outcome) in stored.items():
            draws.add(outcome.draws, self.filter.flag(place) ^ (flag < 0) ^ outcome.bit)
        self.drawn += draws.shown()
        self.model.settle(draws.ones())

    def compare_hidden(self) -> None:
        """Swaps every hidden qubit to a printed column, compares, and swaps back.

        Above 64 qubits the text leaves out the high qubits of the first word.
        """
        shown = visible_qubits(self.num_qubits)
        hidden = sorted(set(range(self.num_qubits)) - set(shown))
        for start in range(0, len(hidden), max(len(shown), 1)):
            pairs = zip(shown, hidden[start:], strict=False)
            swaps = [record for a, b in pairs for record in swap_records(a, b)]
            self.run(swaps)
            self.run(swaps)

    def compare_peek(self, value: int, mask: int) -> None:
        answer = failure_of(lambda: self.filter.probability(value, mask, 0.25))
        assert answer == failure_of(lambda: self.model.probability(value, mask))

    def postselect(self, value: int, mask: int) -> None:
        answer = failure_of(lambda: self.filter.postselect(value, mask))
        assert answer == failure_of(lambda: self.model.postselect(value, mask))
        self.compare()


@contextlib.contextmanager
def open_clifford_pair(engine: ModuleType, num_qubits: int | None = None) -> Iterator[CliffordPair]:
    """A filter and its model, with a register of `num_qubits` if given. Freed at the end."""
    pair = CliffordPair(engine)
    try:
        if num_qubits is not None:
            pair.filter.reset(num_qubits)
            pair.model.run([tagged(RESET, target_mask=num_qubits)])
        with noting(pair.history):
            yield pair
    finally:
        pair.filter.close()
