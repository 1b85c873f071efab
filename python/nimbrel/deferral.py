"""Finds the programs whose outcomes can be drawn from the state after the last gate.

The principle of deferred measurement (Nielsen and Chuang, "Quantum Computation and Quantum
Information", section 4.4): a measurement of qubits that no later gate acts on can be moved behind
all gates. If this holds for all measurements of a program, one simulation of its gates gives the
distribution of all outcomes. A clear, free or write of qubits that nothing uses afterwards changes
no outcome either, and is left out.
"""

from collections.abc import Iterator
from typing import Final, NamedTuple, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import TAG, Opcode
from nimbrel.record_rules import JUMP_FAMILY_BYTE
from nimbrel.records import Program
from nimbrel.register_trace import Words
from nimbrel.stored_flags import FlagSources, QubitBit
from nimbrel.suspect_search import as_words

__all__ = ["Deferred", "NotDeferred", "defer"]

_NO_GATE: Final = np.uint64(1 << 28)
_TAG_SHIFT: Final = np.uint64(32)
_MEASURING_GATES: Final = (Opcode.READ, Opcode.WRITE, Opcode.PPM)
_SETTERS: Final = (Opcode.READ, Opcode.CLEAR, Opcode.FREE, Opcode.WRITE)
_CHECK_ZERO: Final = 1 << 4

Mask: TypeAlias = tuple[int, int]
"""A mask of qubits and the offset of its word."""


class Deferred(NamedTuple):
    """A program whose outcomes can be drawn from a state.

    Attributes:
        gates: The records that make the state.
        flags: What the read flags hold at the end.
        measuring: The index of the first record that measures or sets qubits at the end, or None.
    """

    gates: Program
    flags: FlagSources
    measuring: int | None


class NotDeferred(NamedTuple):
    """A program that must run once a shot.

    Attributes:
        record: The index of the first record that prevents a single simulation.
        reason: What it does.
    """

    record: int
    reason: str


class _CannotDeferError(Exception):
    """Carries the reason out of the walk over the records."""


def defer(records: Program) -> Deferred | NotDeferred:
    """Split a program into the gates and the sources of its read flags, if that is possible.

    Args:
        records: The program, contiguous, shape (n,). The first record is its reset.
    """
    words = as_words(records)
    conditional = np.flatnonzero(words[:, 4] > 1)
    if len(conditional):
        return NotDeferred(int(conditional[0]), "has a classical condition")
    walk = _Walk(words)
    for index in walk.special[1:].tolist():
        try:
            walk.visit(index)
        except _CannotDeferError as error:
            return NotDeferred(index, str(error))
    return Deferred(walk.gates(records), walk.flags, walk.measuring)


class _Walk:
    """The state of a walk over the records that are not plain gates."""

    def __init__(self, words: Words) -> None:
        self._words = words
        opcodes = words[:, 0]
        is_special = (opcodes & _NO_GATE != 0) | (opcodes >> _TAG_SHIFT != TAG)
        for opcode in _MEASURING_GATES:
            is_special |= opcodes == opcode
        self.special: npt.NDArray[np.intp] = np.flatnonzero(is_special)
        self.flags = FlagSources()
        self.measuring: int | None = None
        self._touches = _Touches(words, is_special)
        self._left_out: list[int] = []
        self._extensions: list[int] = []
        self._measured: dict[int, int] = {}
        self._dropped: dict[int, int] = {}

    def visit(self, index: int) -> None:
        """Take one record that is not a plain gate.

        Raises:
            _CannotDeferError: If the program must run once a shot.
        """
        opcode = int(self._words[index, 0])
        extensions = self._extensions_before(index)
        if opcode == Opcode.EXTEND:
            self._extensions.append(index)
        elif opcode == Opcode.READ:
            self._read(index, extensions)
        elif opcode in (Opcode.CLEAR, Opcode.FREE, Opcode.WRITE):
            self._write(index, opcode, extensions)
        elif opcode == Opcode.FLAG_NAND:
            self._nand(index)
        elif opcode == Opcode.RESET:
            raise _CannotDeferError("is a further reset")
        elif opcode == Opcode.PPM:
            raise _CannotDeferError("measures a Pauli product")
        elif opcode == Opcode.JUMP_FWD or (extensions and opcode & 0xFF == JUMP_FAMILY_BYTE):
            raise _CannotDeferError("is a jump, or a label behind an extension record")
        # All others run with the gates: they do nothing to the state, or fail with their own error.

    def gates(self, records: Program) -> Program:
        """The records that make the state."""
        if not self._left_out:
            return records
        first = min(self._left_out)
        if len(self._left_out) == len(records) - first:
            return records[:first]  # type: ignore[no-any-return]
        kept = np.ones(len(records), dtype=bool)
        kept[self._left_out] = False
        return records[kept]  # type: ignore[no-any-return]

    def _extensions_before(self, index: int) -> list[int]:
        # Extension records whose gate is no special record are gates for this walk.
        pending, self._extensions = self._extensions, []
        if not pending or pending[-1] != index - 1:
            return []
        if int(self._words[index, 0]) == Opcode.EXTEND:
            self._extensions = pending
        return pending

    def _targets(self, index: int, extensions: list[int]) -> list[Mask]:
        rows = self._words[[index, *extensions]]
        return [(int(row[1]), int(row[7]) & -WORD_BITS) for row in rows if row[1]]

    def _require_unused(self, index: int, targets: list[Mask], text: str) -> None:
        if any(self._touches.after(index, mask, offset) for mask, offset in targets):
            raise _CannotDeferError(text)

    def _read(self, index: int, extensions: list[int]) -> None:
        targets = self._targets(index, extensions)
        self._require_unused(index, targets, "measures a qubit before a gate on it")
        if _overlap(self._dropped, targets):
            raise _CannotDeferError("measures a qubit after it was set")
        _add(self._measured, targets)
        first = int(self._words[index, 5].astype(np.int64))
        qubits = list(_qubits(targets))
        if first < 0 <= first + len(qubits) - 1:
            # Filters differ in what they store behind flag 0.
            raise _CannotDeferError("measures into flags of both signs")
        if first:
            for number, qubit in enumerate(qubits):
                self.flags.store(first + number, QubitBit(qubit))
        self._leave_out(index, extensions)

    def _write(self, index: int, opcode: int, extensions: list[int]) -> None:
        row = self._words[index]
        targets = self._targets(index, extensions)
        stores_flags = row[5] or (opcode == Opcode.WRITE and row[7] and not extensions)
        if stores_flags or (opcode == Opcode.FREE and int(row[2]) & _CHECK_ZERO):
            raise _CannotDeferError("measures the qubits that it sets")
        if not _overlap(self._measured, targets) and not any(
            self._touches.before(index, mask, offset) for mask, offset in targets
        ):
            return  # The qubits have certain values, so this is a gate.
        self._require_unused(index, targets, "sets qubits between gates")
        _add(self._dropped, targets)
        self._leave_out(index, extensions)

    def _leave_out(self, index: int, extensions: list[int]) -> None:
        self._left_out += [*extensions, index]
        self.measuring = index if self.measuring is None else self.measuring

    def _nand(self, index: int) -> None:
        _, a, b, _, _, dest = self._words[index, :6].astype(np.int64).tolist()
        if not self.flags.nand(a, b, dest):
            raise _CannotDeferError("combines measured read flags")
        self._left_out.append(index)


class _Touches:
    """Which gates act on which qubits, by the 64-qubit word."""

    def __init__(self, words: Words, is_special: npt.NDArray[np.bool_]) -> None:
        self._words = words
        self._is_special = is_special
        self._by_offset: dict[int, tuple[npt.NDArray[np.intp], Words, Words]] = {}

    def after(self, index: int, mask: int, offset: int) -> bool:
        """Whether a gate behind a record acts on a qubit of a mask."""
        positions, _, suffixes = self._word(offset)
        place = int(np.searchsorted(positions, index, side="right"))
        return place < len(positions) and bool(int(suffixes[place]) & mask)

    def before(self, index: int, mask: int, offset: int) -> bool:
        """Whether a gate before a record acts on a qubit of a mask."""
        positions, prefixes, _ = self._word(offset)
        place = int(np.searchsorted(positions, index, side="left"))
        return place > 0 and bool(int(prefixes[place - 1]) & mask)

    def _word(self, offset: int) -> tuple[npt.NDArray[np.intp], Words, Words]:
        if offset not in self._by_offset:
            masks = self._masks(offset)
            positions = np.flatnonzero(masks)
            masks = masks[positions]
            prefixes = np.bitwise_or.accumulate(masks)
            suffixes = np.bitwise_or.accumulate(masks[::-1])[::-1]
            self._by_offset[offset] = positions, prefixes, suffixes
        return self._by_offset[offset]

    def _masks(self, offset: int) -> Words:
        """The qubits of one word that each record acts on as a gate."""
        words = self._words
        opcodes = words[:, 0]
        base = np.uint64(2**64 - WORD_BITS)
        masks = np.where(words[:, 7] & base == offset, words[:, 1], np.uint64(0))
        masks |= np.where(words[:, 8] & base == offset, words[:, 2], np.uint64(0))
        if not offset:
            masks |= np.where(opcodes == Opcode.PPR, words[:, 5], np.uint64(0))
            # The last product of a batch lets all of them act.
            batch = opcodes == Opcode.PCP
            masks[batch] = np.bitwise_or.reduce(masks[batch])
        masks[self._is_special & ~self._extends_gate()] = 0
        return masks

    def _extends_gate(self) -> npt.NDArray[np.bool_]:
        """Which extension records do not certainly belong to a measurement or a write."""
        extends = self._words[:, 0] == Opcode.EXTEND
        found: npt.NDArray[np.bool_] = extends.copy()
        for index in np.flatnonzero(extends)[::-1].tolist():
            if index + 1 < len(extends):
                taker = int(self._words[index + 1, 0])
                found[index] = found[index + 1] if extends[index + 1] else taker not in _SETTERS
        return found


def _qubits(masks: list[Mask]) -> Iterator[int]:
    for mask, offset in masks:
        while mask:
            lowest = mask & -mask
            yield offset + lowest.bit_length() - 1
            mask ^= lowest


def _add(chosen: dict[int, int], masks: list[Mask]) -> None:
    for mask, offset in masks:
        chosen[offset] = chosen.get(offset, 0) | mask


def _overlap(chosen: dict[int, int], masks: list[Mask]) -> bool:
    return any(chosen.get(offset, 0) & mask for mask, offset in masks)
