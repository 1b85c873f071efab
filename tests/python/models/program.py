"""The common part of the filters' models: record loop, read flags, open events, extensions."""

from __future__ import annotations

from collections.abc import Iterable
from typing import NamedTuple

from models.flags import FlagTable
from models.opcodes import (
    CALLBACK,
    CLOSE_EVENTS,
    EXTEND,
    FLAG_NAND,
    JUMP_BACK,
    JUMP_FWD,
    LABEL,
    OPEN_EVENTS,
)
from models.wire import TAG, Record, event_id, signed

NO_REGISTER = "qc.reset() has not been called or did not succeed."
ONLY_FILTER = "is experimental, and currently requires use of the >>jump-control>> filter."


class ModelError(Exception):
    """An error of the modelled filter, with the text expected of the engine."""


class Pair(NamedTuple):
    """A mask and the qubit number of its bit 0; only masks of controls have a `negated` mask."""

    mask: int
    offset: int
    negated: int = 0


class ProgramModel:
    """The common part of all filters: the record loop, the read flags and the open events."""

    def __init__(self) -> None:
        self.flags = FlagTable()
        self.open_ids: list[int] = []
        self.open_label = 0

    def run(self, records: Iterable[Record]) -> None:
        """Runs the records in order; raises ModelError at the first that fails, none undone."""
        for record in records:
            self._step(record)

    def _step(self, record: Record) -> None:
        low = record.opcode & 0xFFFFFFFF if record.opcode >> 32 == TAG else None
        if low == LABEL:
            self._pass_label(record)
        elif low == JUMP_BACK:
            raise ModelError(f"qc.jump_back() {ONLY_FILTER}")
        elif self.open_label:
            return
        elif record.opcode & 0xFF == 0x16:
            if low == JUMP_FWD and self.flags.holds(record.cond_flag):
                self.open_label = record.target_mask
        else:
            self._perform(low, record)

    def _pass_label(self, record: Record) -> None:
        if record.cond_mask:
            raise ModelError(f"qc.jump_fwd() with quantum conditions {ONLY_FILTER}")
        if self.open_label == record.target_mask:
            self.open_label = 0

    def _perform(self, low: int | None, record: Record) -> None:
        """Runs a record that is not control flow. `low` is None if the tag is wrong."""
        if low == CALLBACK:
            raise ModelError(f"Unhandled callback:[lookup:({record.read_flag})]")
        if low in OPEN_EVENTS:
            self.open_ids.append(event_id(record.angle))
        elif low in CLOSE_EVENTS:
            self._close_event(event_id(record.angle))
        elif low == FLAG_NAND:
            a, b = signed(record.target_mask), signed(record.cond_mask)
            self.flags.store_nand(a, b, record.cond_flag, record.read_flag)
        elif low is None or not self._operate(low, record):
            raise ModelError(f"Error: Unknown opcode: 0x{record.opcode:x}\n")

    def _operate(self, low: int, record: Record) -> bool:
        """Runs one operation of the filter and returns whether the filter knows the opcode."""
        raise NotImplementedError

    def _close_event(self, closed: int) -> None:
        for index in reversed(range(len(self.open_ids))):
            if self.open_ids[index] == closed:
                del self.open_ids[index]
                return


class WideProgramModel(ProgramModel):
    """The common part of filters with wide registers: extensions for the next record."""

    def __init__(self) -> None:
        super().__init__()
        self.extra_targets: list[Pair] = []
        self.extra_conds: list[Pair] = []

    def _perform(self, low: int | None, record: Record) -> None:
        super()._perform(low, record)
        if low != EXTEND:
            self._drop_extensions()

    def _drop_extensions(self) -> None:
        self.extra_targets, self.extra_conds = [], []

    def _extend(self, record: Record) -> None:
        if not self.flags.holds(record.cond_flag):
            return
        if record.target_mask:
            self.extra_targets.append(Pair(record.target_mask, record.target_offset))
        if record.cond_mask:
            self.extra_conds.append(
                Pair(record.cond_mask, record.cond_offset, record.cond_neg_mask)
            )

    def _take_targets(self, record: Record) -> list[Pair]:
        own = [Pair(record.target_mask, record.target_offset)] if record.target_mask else []
        return own + self.extra_targets

    def _take_conds(self, mask: int, negated: int, offset: int) -> list[Pair]:
        own = [Pair(mask, offset, negated)] if mask else []
        return own + self.extra_conds
