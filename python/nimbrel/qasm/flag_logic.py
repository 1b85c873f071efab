"""Logic on read flags: the classical computation that runs while the program runs.

A number of n bits is a list of flags, the lowest bit first. A flag -f is the opposite of the flag
f, so NOT costs no record, and all else is made of the engine's NAND. `TRUE` and `FALSE` are flags
too; operations on them give no record.
"""

from collections.abc import Sequence

from nimbrel.qasm.flag_numbers import FALSE, TRUE
from nimbrel.qasm.record_list import RecordList

Flags = list[int]


class FlagLogic:
    """Adds the records of logical operations to a program."""

    def __init__(self, records: RecordList) -> None:
        self._records = records

    def both(self, a: int, b: int) -> int:
        """The flag of a AND b."""
        if FALSE in (a, b) or a == -b:
            return FALSE
        if a in (TRUE, b):
            return b
        if b == TRUE:
            return a
        [result] = self._records.new_flags(1)
        self._records.store_nand(a, b, -result)
        return result

    def either(self, a: int, b: int) -> int:
        """The flag of a OR b."""
        return -self.both(-a, -b)

    def differ(self, a: int, b: int) -> int:
        """The flag of a XOR b."""
        if a in (TRUE, FALSE):
            return -b if a == TRUE else b
        if b in (TRUE, FALSE):
            return -a if b == TRUE else a
        return self.either(self.both(a, -b), self.both(-a, b))

    def all_of(self, flags: Sequence[int]) -> int:
        """The flag that is 1 if all flags are 1."""
        result = TRUE
        for flag in flags:
            result = self.both(result, flag)
        return result

    def any_of(self, flags: Sequence[int]) -> int:
        """The flag that is 1 if a flag is 1."""
        return -self.all_of([-flag for flag in flags])

    def equal(self, a: Sequence[int], b: Sequence[int]) -> int:
        """The flag of a == b, for numbers of the same width."""
        return self.all_of([-self.differ(x, y) for x, y in zip(a, b, strict=True)])

    def less(self, a: Sequence[int], b: Sequence[int]) -> int:
        """The flag of a < b, for unsigned numbers of the same width."""
        result = FALSE
        for x, y in zip(a, b, strict=True):
            result = self.either(self.both(-x, y), self.both(-self.differ(x, y), result))
        return result

    def add(self, a: Sequence[int], b: Sequence[int], carry: int = FALSE) -> Flags:
        """The flags of a + b + carry modulo 2**width, for numbers of the same width."""
        total: Flags = []
        for x, y in zip(a, b, strict=True):
            half = self.differ(x, y)
            total.append(self.differ(half, carry))
            carry = self.either(self.both(x, y), self.both(half, carry))
        return total

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


def constant_flags(value: int, width: int) -> Flags:
    """An integer as constant flags, modulo 2**width."""
    return [TRUE if value >> place & 1 else FALSE for place in range(width)]


def constant_value(flags: Sequence[int]) -> int | None:
    """The unsigned number of constant flags, or None if a flag is no constant."""
    if any(flag not in (TRUE, FALSE) for flag in flags):
        return None
    return sum(1 << place for place, flag in enumerate(flags) if flag == TRUE)
