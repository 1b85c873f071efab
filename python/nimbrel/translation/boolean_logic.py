"""Boolean functions of read flags, built of a single AND that a door's records compute."""

from abc import ABC, abstractmethod
from collections.abc import Iterable, Sequence
from typing import Final

__all__ = ["FALSE", "TRUE", "BooleanLogic", "constant_flags"]

TRUE: Final = 1
FALSE: Final = -1


class BooleanLogic(ABC):
    """Functions of flags, which are numbers: -f is the negation of f, and 1 and -1 are constants.

    Constants are folded, and negations cost no record.
    """

    @abstractmethod
    def _store_and(self, a: int, b: int) -> int:
        """Add the record that stores a AND b, and return the flag that it stores."""

    def both(self, a: int, b: int) -> int:
        """The flag of a AND b."""
        if FALSE in (a, b) or a == -b:
            return FALSE
        if a in (TRUE, b):
            return b
        if b == TRUE:
            return a
        return self._store_and(a, b)

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

    def all_of(self, flags: Iterable[int]) -> int:
        """The flag that is 1 if all flags are 1."""
        result = TRUE
        for flag in flags:
            result = self.both(result, flag)
        return result

    def any_of(self, flags: Iterable[int]) -> int:
        """The flag that is 1 if a flag is 1."""
        return -self.all_of(-flag for flag in flags)

    def add(self, a: Sequence[int], b: Sequence[int], carry: int = FALSE) -> list[int]:
        """The flags of a + b + carry modulo 2**width, for numbers of the same width."""
        total: list[int] = []
        for x, y in zip(a, b, strict=True):
            half = self.differ(x, y)
            total.append(self.differ(half, carry))
            carry = self.either(self.both(x, y), self.both(half, carry))
        return total


def constant_flags(value: int, width: int) -> list[int]:
    """An integer as constant flags, modulo 2**width, the least significant bit first."""
    return [TRUE if value >> place & 1 else FALSE for place in range(width)]
