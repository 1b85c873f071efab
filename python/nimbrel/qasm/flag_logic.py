"""Logic on read flags: the classical computation that runs while the program runs.

A number of n bits is a list of flags, the lowest bit first. A flag -f is the opposite of the flag
f, so NOT costs no record, and all else is made of the engine's NAND. `TRUE` and `FALSE` are flags
too; operations on them give no record.
"""

from collections.abc import Sequence

from nimbrel.qasm.flag_numbers import FALSE, TRUE
from nimbrel.qasm.record_list import RecordList
from nimbrel.translation.boolean_logic import BooleanLogic

Flags = list[int]


class FlagLogic(BooleanLogic):
    """Adds the records of logical operations to a program."""

    def __init__(self, records: RecordList) -> None:
        self._records = records

    def _store_and(self, a: int, b: int) -> int:
        [result] = self._records.new_flags(1)
        self._records.store_nand(a, b, -result)
        return result

    def equal(self, a: Sequence[int], b: Sequence[int]) -> int:
        """The flag of a == b, for numbers of the same width."""
        return self.all_of([-self.differ(x, y) for x, y in zip(a, b, strict=True)])

    def less(self, a: Sequence[int], b: Sequence[int]) -> int:
        """The flag of a < b, for unsigned numbers of the same width."""
        result = FALSE
        for x, y in zip(a, b, strict=True):
            result = self.either(self.both(-x, y), self.both(-self.differ(x, y), result))
        return result

    def copy(self, flags: Sequence[int]) -> Flags:
        """Flags with the same values that nothing stores in later. Constants stay constants."""
        copied: Flags = []
        for flag in flags:
            if flag in (TRUE, FALSE):
                copied.append(flag)
                continue
            [result] = self._records.new_flags(1)
            self._records.store(flag, result)
            copied.append(result)
        return copied


def constant_value(flags: Sequence[int]) -> int | None:
    """The unsigned number of constant flags, or None if a flag is no constant."""
    if any(flag not in (TRUE, FALSE) for flag in flags):
        return None
    return sum(1 << place for place, flag in enumerate(flags) if flag == TRUE)
