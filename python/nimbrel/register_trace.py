"""Tracks the largest register that a program may have at each of its records.

A reset sets the size of the register, but a jump may skip the reset. Whether a jump is taken
depends on read flags, which are unknown before the program runs. So a trace keeps the largest
possible register. A trace belongs to one `Simulator`; the caller's thread uses it.
"""

from collections.abc import Iterable, Sequence
from typing import Final, NamedTuple, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.opcodes import Opcode

Words: TypeAlias = npt.NDArray[np.uint64]
Positions: TypeAlias = npt.NDArray[np.intp]

UNKNOWN: Final = 2**64 - 1
"""The limit while a register of any size is possible. No register is that large."""

_NEVER: Final = 2**64 - 1  # the classical condition -1 as an unsigned word
_RESET: Final = int(Opcode.RESET)
_LABEL: Final = int(Opcode.LABEL)
_JUMP: Final = int(Opcode.JUMP_FWD)


class Register(NamedTuple):
    """What is known about the register between two programs.

    Attributes:
        limit: Qubits of the largest possible register, or `UNKNOWN`.
        open_labels: Labels of the jumps that may be open.
    """

    limit: int = UNKNOWN
    open_labels: frozenset[int] = frozenset()

    def joined(self, other: "Register") -> "Register":
        """What is known if either of the two is the register."""
        limit = max(self.limit, other.limit)
        return Register(limit, self.open_labels | other.open_labels)


class RegisterTrace:
    """The largest possible register, and the labels of the jumps that may be open.

    A jump is open between its record and its label. A reset in between may be skipped.

    Attributes:
        limit: Qubits of the largest possible register, or `UNKNOWN`.
        open_labels: Labels of the jumps that may be open.
    """

    __slots__ = ("_size_mask", "limit", "open_labels")

    def __init__(self, size_mask: int, start: Register) -> None:
        """Start before the first record of a program.

        Args:
            size_mask: The bits of a reset's size that the filter uses.
            start: The register before the program.
        """
        self._size_mask = size_mask
        self.limit = start.limit
        self.open_labels = set(start.open_labels)

    @property
    def register(self) -> Register:
        """The register after the records that were followed."""
        return Register(self.limit, frozenset(self.open_labels))

    def follow(self, row: Sequence[int]) -> None:
        """Update the trace by one record. Only resets, jumps and labels change it.

        Args:
            row: The words of the record.
        """
        opcode, operand = row[0], row[1]
        if opcode == _LABEL:
            self.open_labels.discard(operand)
        elif opcode == _JUMP:
            # The engine ignores a jump to label 0.
            if operand and row[4] != _NEVER:
                self.open_labels.add(operand)
        elif opcode == _RESET:
            size = operand & self._size_mask
            self.limit = max(self.limit, size) if self.open_labels else size

    def follow_closed_jumps(self, words: Words, positions: Positions) -> bool:
        """Update the trace by a part of a program whose jumps are each followed by their label.

        The part may begin with a label and end with a jump.

        Args:
            words: The part of the program, shape (n, 11).
            positions: Ascending indices of all records in it that may change the trace.

        Returns:
            Whether these records are such jumps and labels. If not, the trace is unchanged.
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

    def follow_resets(self, words: Words, positions: Positions) -> Words | None:
        """Update the trace by a part of a program that has only resets and no open jump.

        Args:
            words: The part of the program, shape (n, 11).
            positions: Ascending indices of all records in it that may change the trace.

        Returns:
            The limit before the first and after each of these records. None if they are not such
            resets; then the trace is unchanged.
        """
        if self.open_labels or not (words[positions, 0] == _RESET).all():
            return None
        sizes = words[positions, 1] & np.uint64(self._size_mask)
        limits = np.append(np.array([self.limit], dtype=np.uint64), sizes)
        self.limit = int(limits[-1])
        return limits

    def follow_up_to_anywhere(self, rows: Iterable[Sequence[int]]) -> None:
        """Update the trace by records of which an unknown number has run.

        Args:
            rows: The resets, jumps and labels among these records.
        """
        for row in rows:
            if row[0] == _RESET:
                self.limit = max(self.limit, row[1] & self._size_mask)
            elif row[0] == _JUMP and row[1]:
                self.open_labels.add(row[1])
