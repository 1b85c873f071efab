"""The read flags of a conversion: who has which number, and which need an initial value.

The flags of classical bits come first, from `FIRST_FLAG` on in the circuit's order. Variables,
loops and intermediate results follow. Read flags keep their values from run to run, and a condition
on a flag that was never stored is an error. So a flag gets the value 0 at the start of the program,
unless every run stores it before anything looks at it.

A literal is a flag number with a sign: -f is the negation of flag f. `TRUE` and `FALSE` are the
engine's constants, so negation is a change of sign for them too.
"""

from __future__ import annotations

from typing import Final

from nimbrel.opcodes import Opcode
from nimbrel.qiskit.rows import Row
from nimbrel.translation.boolean_logic import FALSE as FALSE
from nimbrel.translation.boolean_logic import TRUE as TRUE

FIRST_FLAG: Final = 2
"""The lowest flag number that stores a value."""

_NAND: Final = int(Opcode.FLAG_NAND)
_WORD: Final = 2**64 - 1


def nand_row(a: int, b: int, dest: int) -> Row:
    """The row of dest = NAND(a, b), or of -dest = AND(a, b) if `dest` is negative."""
    return (_NAND, a & _WORD, b & _WORD, 0.0, 0, dest, 0, 0, 0, 0, 0)


def clearing_row(flag: int) -> Row:
    """The row that stores 0 in a flag."""
    return nand_row(TRUE, TRUE, flag)


class Flags:
    """Numbers and initial values of the flags of one conversion.

    Attributes:
        conditional_depth: Conditional blocks and loops that are open. What is stored inside one
            may stay unstored.
    """

    def __init__(self, num_clbits: int) -> None:
        self.conditional_depth = 0
        self._next = FIRST_FLAG + num_clbits
        self._stored: set[int] = set()
        self._initialised: set[int] = set()
        self._last_variable = 0

    def allocate(self) -> int:
        """Return a new flag for an intermediate result, which is stored before it is read."""
        flag = self._next
        self._next += 1
        if self.conditional_depth:
            # `sample` makes a new filter for each shot if it is not certain that a flag is stored.
            self.note_read(flag)
        return flag

    def allocate_variable(self) -> int:
        """Return a new flag that is 0 at the start of the program."""
        flag = self.allocate()
        self._initialised.add(flag)
        self._last_variable = flag
        return flag

    def mark(self) -> int:
        """Return a mark for `release`."""
        return self._next

    def release(self, mark: int) -> None:
        """Let the flags that were allocated since a mark be allocated again."""
        self._next = max(mark, self._last_variable + 1)

    def note_read(self, flag: int) -> None:
        """Note that an operation looks at a flag."""
        if flag not in self._stored:
            self._initialised.add(flag)

    def note_stored(self, flag: int) -> None:
        """Note that an operation stores a flag."""
        if self.conditional_depth == 0:
            self._stored.add(flag)
        else:
            self.note_read(flag)

    def initial_rows(self) -> list[Row]:
        """The rows that give the flags their initial value."""
        return [clearing_row(flag) for flag in sorted(self._initialised)]

    def always_stored(self) -> set[int]:
        """The flags that have a value at the end of every run."""
        return self._stored | self._initialised
