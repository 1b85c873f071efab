"""A model of the read-flag table, written independently of the engine."""

from __future__ import annotations

CAPACITY = 100_000_000


class FlagTable:
    """Flags as a set of the positions that hold a 1, with the number of 64-bit words stored so far.

    The word count matters because a negative flag reads inverted only where a word has been stored.
    """

    def __init__(self) -> None:
        self.num_words = 0
        self.num_stores = 0
        self.ones: set[int] = set()

    def is_stored(self, flag: int) -> bool:
        return (abs(flag) % CAPACITY) // 64 < self.num_words

    def get(self, flag: int) -> int:
        """The value of a flag; 0, 1 and -1 are the constants 0, 1 and 0."""
        if flag in (-1, 0, 1):
            return 1 if flag == 1 else 0
        if not self.is_stored(flag):
            return 0
        bit = abs(flag) % CAPACITY in self.ones
        return int(bit) if flag > 0 else int(not bit)

    def set(self, flag: int, value: int) -> None:
        """Stores a value; a negative flag stores it inverted and the constants store nothing."""
        if flag in (-1, 0, 1):
            return
        position = abs(flag) % CAPACITY
        self.num_stores += 1
        self.num_words = max(self.num_words, position // 64 + 1)
        if bool(value) != (flag < 0):
            self.ones.add(position)
        else:
            self.ones.discard(position)

    def word(self, first: int) -> int:
        """The values of the 32 flags from `first` on, the first in bit 0."""
        return sum(1 << flag - first for flag in range(first, first + 32) if self.get(flag))

    def holds(self, cond_flag: int) -> bool:
        """Whether a record with this classical condition acts."""
        if cond_flag in (0, 1):
            return True
        if cond_flag == -1:
            return False
        return self.get(cond_flag) == 1

    def store_nand(self, flag_a: int, flag_b: int, cond_flag: int, dest_flag: int) -> None:
        """NAND of two flags into a positive destination, AND into a negative one."""
        if dest_flag == 0 or not self.holds(cond_flag):
            return
        if flag_b not in (-1, 0, 1) and not self.is_stored(flag_b):
            both = 0
        else:
            both = self.get(flag_a) & self.get(flag_b)
        # A negative destination selects AND and inverts nothing, so the bit is set as it is.
        self.set(abs(dest_flag), both if dest_flag < 0 else 1 - both)
