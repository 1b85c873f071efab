"""The read flags of a program on many ranks: every rank has all of them, in a filter of its own."""

from __future__ import annotations

from typing import Final

import _lib_nb_sim
import numpy as np

from nimbrel._engine import call
from nimbrel.classical import flag_nand
from nimbrel.mpi.operations import COND_FLAG, READ_FLAG, Bools
from nimbrel.operations import FilterOperations
from nimbrel.records import QPU_OP
from nimbrel.register_trace import Words
from nimbrel.running.stored_flags import FLAG_NUMBERS, stored_place

__all__ = ["ReadFlags"]

_WORD_BITS: Final = 64
_FIRST_STORED: Final = 2
_SIGN: Final = 2**63


class ReadFlags:
    """The flags, kept by a filter without a register, and the conditions on them."""

    def __init__(self) -> None:
        """Start without stored flags."""
        self._filter = FilterOperations("StreamQPU")
        self._stored_words = 0

    def close(self) -> None:
        """Free the filter."""
        self._filter.close()

    def forget(self) -> None:
        """Start again without stored flags."""
        self._filter.close()
        self._filter = FilterOperations("StreamQPU")
        self._stored_words = 0

    def fetch(self, first: int, count: int) -> int:
        """Read consecutive flags; see `Simulator.flags`."""
        return self._filter.flags(first, count)

    def store(self, first: int, values: list[int]) -> None:
        """Store measured values in consecutive flags, from `first` upward, as a read does.

        Args:
            first: The first flag, signed; 0 stores nothing.
            values: The values.
        """
        if not first:
            return
        flags = [(_wrapped(first + number), value) for number, value in enumerate(values)]
        # A destination that is negative selects another operation, so the value is inverted here.
        rows = [
            # Any number of the bit will do, and the first two are constants.
            flag_nand(operand, operand, place + FLAG_NUMBERS)
            for flag, value in flags
            for place in (stored_place(flag),)
            if place is not None
            for operand in (value ^ (flag > 0),)
        ]
        if rows:
            self._filter.run(*rows)
            for flag, _ in flags:
                self._note(flag)

    def combine(self, words: Words) -> None:
        """Carry out one flag operation, shape (1, 11)."""
        row = np.ascontiguousarray(words).view(QPU_OP).reshape(-1)
        holds = self.holds(int(words[0, COND_FLAG].astype(np.int64)))
        self._filter.run(row)
        if holds:
            self._note(int(words[0, READ_FLAG].astype(np.int64)))

    def hold(self, conditions: Words) -> Bools:
        """Whether each classical condition holds, shape (n,).

        Args:
            conditions: The words `cond_flag`.
        """
        numbers, places = np.unique(conditions.view(np.int64), return_inverse=True)
        held = np.array([self.holds(flag) for flag in numbers.tolist()], dtype=np.bool_)
        found: Bools = held[places.reshape(-1)]
        return found

    def holds(self, flag: int) -> bool:
        """Whether a classical condition holds."""
        place = stored_place(flag)
        if place is None:
            return flag >= 0
        if place // _WORD_BITS >= self._stored_words:
            return False
        # The first numbers are constants, and other numbers name their bits.
        number = place if place >= _FIRST_STORED else place + FLAG_NUMBERS
        bit = call(_lib_nb_sim.fetch_read_result, self._filter._require_open(), number, 1)
        return bool(bit) == (flag > 0)

    def _note(self, flag: int) -> None:
        place = stored_place(flag)
        if place is not None:
            self._stored_words = max(self._stored_words, place // _WORD_BITS + 1)


def _wrapped(flag: int) -> int:
    """A flag number behind the largest one goes on at the smallest."""
    return (flag + _SIGN) % (2 * _SIGN) - _SIGN
