"""Which read flags a program stores, and which it may read before it has stored them."""

from collections.abc import Iterable
from typing import Final, NamedTuple

import numpy as np

from nimbrel.opcodes import Opcode
from nimbrel.record_rules import JUMP_FAMILY_BYTE
from nimbrel.records import Program
from nimbrel.running.stored_flags import FLAG_NUMBERS, stored_place
from nimbrel.suspect_search import as_words

__all__ = ["FlagUse", "flag_use"]

_STORING: Final = (Opcode.READ, Opcode.WRITE, Opcode.PPM, Opcode.FLAG_NAND)
_FIRST_STORED: Final = 2


class FlagUse(NamedTuple):
    """The read flags of a program.

    Attributes:
        stored: The flags that it may store, positive, ascending.
        certain: Those that every run stores.
        reads_older: Whether a record may read a flag that this run has not stored, or the program
            ends with an open jump.
    """

    stored: list[int]
    certain: frozenset[int]
    reads_older: bool

    def needs_fresh_flags(self, wanted: Iterable[int]) -> bool:
        """Whether flags of the run before could show in a run.

        Args:
            wanted: The flags that are read after the run.
        """
        places = {stored_place(flag) for flag in wanted} - {None}
        return self.reads_older or not places <= self.certain


def flag_use(records: Program) -> FlagUse:
    """Find the read flags that a program uses.

    Args:
        records: The program, contiguous, shape (n,).
    """
    words = as_words(records)
    opcodes = words[:, 0]
    chosen = words[:, 4] > 1
    for opcode in (*_STORING, Opcode.EXTEND):
        chosen |= opcodes == opcode
    # These records neither take nor end extensions.
    chosen |= opcodes & np.uint64(0xFF) == JUMP_FAMILY_BYTE
    walk = _Walk()
    indices = np.flatnonzero(chosen)
    for index, row in zip(indices.tolist(), words[indices].view(np.int64).tolist(), strict=True):
        walk.follow(index, row)
    stored = sorted(map(_flag_of, walk.stored))
    return FlagUse(stored, frozenset(walk.certain), walk.reads_older or bool(walk.open))


def _flag_of(place: int) -> int:
    # The flags 0 and 1 are constants, and the bits of these places have other names.
    return place if place >= _FIRST_STORED else place + FLAG_NUMBERS


class _Walk:
    """The flags up to a record."""

    def __init__(self) -> None:
        self.stored: set[int] = set()
        self.certain: set[int] = set()
        self.open: set[int] = set()
        self.reads_older = False
        self._extended = 0
        self._all_extended = True
        self._last = -1

    def follow(self, index: int, row: list[int]) -> None:
        """Take one record, as signed words. Gates without a condition are left out."""
        opcode, targets, controls, _, condition, flag = row[:6]
        # A gate that was left out has ended the extensions before it.
        if index != self._last + 1:
            self._extended, self._all_extended = 0, True
        self._last = index
        if opcode == Opcode.EXTEND:
            self._reads(condition)
            self._extended += _count(targets)
            self._all_extended &= condition in (0, 1) and not self.open
            return
        if opcode == Opcode.LABEL:
            self.open.discard(targets)
            return
        if opcode & 0xFF == JUMP_FAMILY_BYTE and opcode != Opcode.JUMP_FWD:
            return
        self._reads(condition)
        if opcode == Opcode.JUMP_FWD:
            self.open |= {targets} if targets and condition != -1 else set()
            return
        certain = condition in (0, 1) and not self.open and self._all_extended
        extended, self._extended, self._all_extended = self._extended, 0, True
        if opcode == Opcode.READ:
            self._stores(flag, _count(targets) + extended, certain=certain)
        elif opcode == Opcode.WRITE:
            # Filters differ in what a write stores.
            self._stores(flag, _count(targets) + extended, certain=False)
        elif opcode == Opcode.PPM:
            self._stores(flag, 1, certain=certain and bool(targets or controls))
        elif opcode == Opcode.FLAG_NAND:
            self._reads(targets)
            self._reads(controls)
            self._stores(abs(flag), 1, certain=certain)

    def _reads(self, flag: int) -> None:
        place = stored_place(flag)
        self.reads_older |= place is not None and place not in self.certain

    def _stores(self, first: int, count: int, *, certain: bool) -> None:
        if not first:
            return
        crosses_zero = first < 0 <= first + count - 1
        places = {stored_place(first + number) for number in range(count)} - {None}
        self.stored |= places  # type: ignore[arg-type]
        if certain and not crosses_zero:
            self.certain |= places  # type: ignore[arg-type]


def _count(mask: int) -> int:
    return (mask & 2**64 - 1).bit_count()
