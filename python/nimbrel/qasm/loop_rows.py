"""Rows that mark where loops begin and jump back, until the positions of all records are known.

Rows are moved when branches are put together, so a loop has no position before the end.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Final, NamedTuple, TypeAlias

from nimbrel.translation.row_types import Row, Rows

Place: TypeAlias = tuple[str, int, int]
"""A file, a line from 1 and a column from 1."""

# No record has these opcodes.
_BEGIN: Final = -1
_JUMP: Final = -2


class Loop(NamedTuple):
    """A part of the rows that may be repeated.

    Attributes:
        number: The loop's number.
        start: The position of its first row.
        end: The position behind its last row.
        flag: The flag that must be 1 for another repetition.
    """

    number: int
    start: int
    end: int
    flag: int

    def moved(self, starts: Sequence[int]) -> Loop:
        """The loop among other rows.

        Args:
            starts: The new position of each row, and of the end.
        """
        return self._replace(start=starts[self.start], end=starts[self.end])


def begin_row(number: int) -> Row:
    """The row that marks the beginning of a loop."""
    return (_BEGIN, number, 0, 0.0, 0, 0, 0, 0, 0, 0, 0)


def jump_row(number: int, flag: int) -> Row:
    """The row that marks the jump back to the beginning of a loop."""
    return (_JUMP, number, 0, 0.0, flag, 0, 0, 0, 0, 0, 0)


def without_loop_rows(rows: Rows) -> tuple[Rows, list[Loop]]:
    """Remove the marks.

    Returns:
        The other rows, and the loops in the order of their ends.
    """
    kept: Rows = []
    starts: dict[int, int] = {}
    loops: list[Loop] = []
    for row in rows:
        if row[0] == _BEGIN:
            starts[row[1]] = len(kept)
        elif row[0] == _JUMP:
            loops.append(Loop(row[1], starts[row[1]], len(kept), row[4]))
        else:
            kept.append(row)
    return kept, loops
