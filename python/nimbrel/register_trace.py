"""Which register a program may have at each of its records, as far as records tell.

A reset sizes the register, but an open jump skips it, and whether a jump is taken depends on read
flags that nobody knows beforehand. So a trace keeps the largest register that is possible. It
belongs to one `Simulator` and is used on the caller's thread.
"""

from collections.abc import Sequence
from typing import Final, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.opcodes import Opcode

Words: TypeAlias = npt.NDArray[np.uint64]
Positions: TypeAlias = npt.NDArray[np.intp]

UNKNOWN: Final = 2**64 - 1
"""The limit while any register is possible; no register is that large."""

_NEVER: Final = 2**64 - 1  # the classical condition -1 as an unsigned word
_RESET: Final = int(Opcode.RESET)
_LABEL: Final = int(Opcode.LABEL)
_JUMP: Final = int(Opcode.JUMP_FWD)


class RegisterTrace:
    """The largest register possible now, and the labels that a jump may be looking for.

    Attributes:
        limit: Qubits of that register, or `UNKNOWN`.
        open_labels: Labels of jumps that may be open. A reset may be skipped while there are any.
    """

    __slots__ = ("_size_mask", "limit", "open_labels")

    def __init__(self, size_mask: int) -> None:
        """Know nothing of the register; `size_mask` is what the filter takes of a reset's size."""
        self._size_mask = size_mask
        self.limit = UNKNOWN
        self.open_labels: set[int] = set()

    def copy(self) -> "RegisterTrace":
        """A trace that may go on without changing this one."""
        other = RegisterTrace(self._size_mask)
        other.limit = self.limit
        other.open_labels = set(self.open_labels)
        return other

    def follow(self, row: Sequence[int]) -> None:
        """Pass one record, given as its words; only resets, jumps and labels change the trace."""
        opcode, operand = row[0], row[1]
        if opcode == _LABEL:
            self.open_labels.discard(operand)
        elif opcode == _JUMP:
            # A jump to label 0 opens nothing.
            if operand and row[4] != _NEVER:
                self.open_labels.add(operand)
        elif opcode == _RESET:
            size = operand & self._size_mask
            self.limit = max(self.limit, size) if self.open_labels else size

    def pass_closed_jumps(self, words: Words, positions: Positions) -> bool:
        """Pass records that are nothing but jumps, each followed by its own label.

        A label may come first and a jump last, as in a piece cut out of such records.

        Args:
            words: A program, shape (n, 11).
            positions: The records to pass, ascending: all that may change the trace.

        Returns:
            Whether they are that. Otherwise nothing has changed.
        """
        opcodes, labels = words[positions, 0], words[positions, 1]
        start = int(len(opcodes) > 0 and opcodes[0] == _LABEL)
        stop = len(opcodes) - (len(opcodes) - start) % 2
        jumps, ends = slice(start, None, 2), slice(start + 1, None, 2)
        closed = (
            (opcodes[jumps] == _JUMP).all()
            and (opcodes[ends] == _LABEL).all()
            and (labels[start:stop:2] == labels[ends]).all()
        )
        if closed and self.open_labels:
            self.open_labels.difference_update(labels[:start].tolist(), labels[ends].tolist())
        if closed and stop < len(opcodes):
            self.follow(words[positions[-1]].tolist())
        return bool(closed)

    def pass_resets(self, words: Words, positions: Positions) -> Words | None:
        """Pass records that are nothing but resets, none of which may be skipped.

        Args:
            words: A program, shape (n, 11).
            positions: The records to pass, ascending: all that may change the trace.

        Returns:
            The limit before and after each of them. None if they are something else; then nothing
            has changed.
        """
        if self.open_labels or not (words[positions, 0] == _RESET).all():
            return None
        sizes = words[positions, 1] & np.uint64(self._size_mask)
        limits = np.append(np.array([self.limit], dtype=np.uint64), sizes)
        self.limit = int(limits[-1])
        return limits

    def stop_anywhere(self, rows: Sequence[Sequence[int]]) -> None:
        """Pass records of which an unknown number has run: all that was possible stays so."""
        for row in rows:
            if row[0] == _RESET:
                self.limit = max(self.limit, row[1] & self._size_mask)
            elif row[0] == _JUMP and row[1]:
                self.open_labels.add(row[1])
