"""The bit filter in plain Python: records in; register, flags, events and failure texts out.

Written out independently of the engine and as directly as possible, so that the two can be driven
side by side. The register is a list of 64-bit words, since masks may touch the unused bits of the
last word.
"""

from __future__ import annotations

import math
import struct
from collections.abc import Iterable, Iterator
from typing import NamedTuple

from models.flags import FlagTable

TAG = 0x4E6D6272
WORD = (1 << 64) - 1
NO_REGISTER = "qc.reset() has not been called or did not succeed."

JUMP, LABEL, JUMP_BACK, EXTEND, CALLBACK = (
    0x10000216,
    0x10000316,
    0x10000516,
    0x10000010,
    0x10000018,
)
X, SWAP, READ, WRITE, LEFT_ELBOW, RIGHT_ELBOW = 0x05, 0x0C, 0x0A, 0x0B, 0x14, 0x4014
RESET, CLEAR, FREE, FLAG_NAND = 0x10000001, 0x10000003, 0x10004003, 0x1000000F
OPEN_EVENTS, CLOSE_EVENTS = (0x10000112, 0x10000212), (0x10004112, 0x10004212)
IGNORED = (
    0x09, 0x207, 0x10000000, 0x10000002, 0x10000011, 0x10000012, 0x10000015, 0x10000017,
    0x10000412, 0x10004011, 0x10004012, 0x10004015, 0x10004412, 0x10008003, 0x1000C003,
)  # fmt: skip
REFUSED = {
    0x06: "qc.y", 0x08: "qc.phase", 0x0D: "qc.ppr", 0x0E: "qc.ppm", 0x13: "qc.pcp",
    0x105: "qc.rx", 0x106: "qc.ry", 0x107: "qc.t", 0x407: "qc.t", 0x807: "qc.s", 0x1007: "qc.z",
    0x2005: "qc.rootx", 0x2006: "qc.rooty", 0x4407: "qc.t_inv", 0x4807: "qc.OP_qc_s_inv",
    0x6005: "qc.rootx_inv", 0x6006: "qc.rooty_inv",
}  # fmt: skip
ONLY_FILTER = "is experimental, and currently requires use of the >>jump-control>> filter."


class Record(NamedTuple):
    """The eleven words of a record in their order; `opcode` is the whole 64-bit value."""

    opcode: int
    target_mask: int = 0
    cond_mask: int = 0
    angle: float = 0.0
    cond_flag: int = 0
    read_flag: int = 0
    cond_neg_mask: int = 0
    target_offset: int = 0
    cond_offset: int = 0
    reserved_a: int = 0
    reserved_b: int = 0


def tagged(low: int, **words: int | float) -> Record:
    """A record of the engine's tag."""
    return Record(TAG << 32 | low, **words)  # type: ignore[arg-type]


def pack(records: Iterable[Record]) -> bytes:
    """The records as the engine takes them: 88 little-endian bytes each."""
    return b"".join(struct.pack("<QQQdqqQQQQQ", *record) for record in records)


class ModelError(Exception):
    """A failure of the modelled filter; its text is the one expected of the engine."""


class Pair(NamedTuple):
    """A mask and the bit offset at which it stands; `negated` belongs to conditions only."""

    mask: int
    offset: int
    negated: int = 0


def event_id(angle: float) -> int:
    """A double as an unsigned 64-bit id, truncated; a negative one wraps around."""
    return math.trunc(angle) & WORD


def signed(word: int) -> int:
    """An unsigned 64-bit word read as a signed one."""
    return (word & WORD) - ((word & 1 << 63) << 1)


def set_bits(mask: int) -> Iterator[int]:
    """The single-bit masks of `mask`, the lowest first."""
    while mask:
        lowest = mask & -mask
        yield lowest
        mask ^= lowest


class ProgramModel:
    """What filters share: the way through a program, the read flags and the open events."""

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
            if low == JUMP and self.flags.holds(record.cond_flag):
                self.open_label = record.target_mask
        else:
            self._perform(low, record)

    def _pass_label(self, record: Record) -> None:
        if record.cond_mask:
            raise ModelError(f"qc.jump_fwd() with quantum conditions {ONLY_FILTER}")
        if self.open_label == record.target_mask:
            self.open_label = 0

    def _perform(self, low: int | None, record: Record) -> None:
        """Carries out a record that is no part of the control flow; `low` is None for a bad tag."""
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
        """Does what the filter does with an opcode; says whether there is such an opcode."""
        raise NotImplementedError

    def _close_event(self, closed: int) -> None:
        for index in reversed(range(len(self.open_ids))):
            if self.open_ids[index] == closed:
                del self.open_ids[index]
                return


class WideProgramModel(ProgramModel):
    """Beyond that what filters of wide registers share: masks that wait for the next record."""

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


class BitModel(WideProgramModel):
    """One bit filter: its register, its read flags, its events and its place in the program."""

    def __init__(self, debug_qubits: bool = False) -> None:
        super().__init__()
        self.debug_qubits = debug_qubits
        self.num_qubits = 0
        self.bits: list[int] = []
        self.settled: list[int] = []
        self.events: list[tuple[str, str, int, list[int]]] = []

    def state(self) -> str:
        """What `pull_state` answers: one character for each qubit, qubit 0 first."""
        if not self.bits:
            raise ModelError(NO_REGISTER)
        return "".join("01"[self.bits[q >> 6] >> (q & 63) & 1] for q in range(self.num_qubits))

    def _operate(self, low: int, record: Record) -> bool:
        if low in REFUSED:
            raise ModelError(f"{REFUSED[low]} has not been implemented for the Bit sim.")
        if low in (X, LEFT_ELBOW, RIGHT_ELBOW, SWAP):
            self._gate(record)
        elif low == READ:
            self._read(record)
        elif low in (WRITE, CLEAR, FREE):
            self._write(low, record)
        elif low == RESET:
            self._reset(record.target_mask)
        elif low == EXTEND:
            self._extend(record)
        else:
            return low in IGNORED
        return True

    def _reset(self, num_qubits: int) -> None:
        self.num_qubits = num_qubits
        self.bits = [0] * ((num_qubits + 63) // 64)
        self.settled = self.bits.copy()

    def _acts(self, record: Record) -> bool:
        if not self.bits:
            raise ModelError(NO_REGISTER)
        return self.flags.holds(record.cond_flag)

    def _check_offsets(self, pairs: list[Pair]) -> None:
        self._drop_extensions()
        for pair in pairs:
            if pair.offset >> 6 >= len(self.bits):
                register = f"the register of {self.num_qubits} qubits."
                raise ModelError(f"Error: qubit offset {pair.offset} lies outside {register}")

    def _gate(self, record: Record) -> None:
        if not self._acts(record):
            return
        targets = self._take_targets(record)
        conds = self._take_conds(record.cond_mask, record.cond_neg_mask, record.cond_offset)
        self._check_offsets(targets + conds)
        if any(
            pair.mask & self.bits[pair.offset >> 6] != pair.mask ^ pair.negated for pair in conds
        ):
            return
        if record.opcode & 0xFFFFFFFF == SWAP:
            self._swap([(pair.offset >> 6, bit) for pair in targets for bit in set_bits(pair.mask)])
        else:
            for pair in targets:
                self.bits[pair.offset >> 6] ^= pair.mask
                self.settled[pair.offset >> 6] &= ~pair.mask

    def _swap(self, places: list[tuple[int, int]]) -> None:
        if len(places) != 2:
            amount = "more" if len(places) > 2 else "less"
            raise ModelError(f"qc.swap() has {amount} than two target bits, must have exactly two.")
        differ = len({bool(self.bits[word] & bit) for word, bit in places}) == 2
        for word, bit in places:
            if differ:
                self.bits[word] ^= bit
            self.settled[word] &= ~bit

    def _read(self, record: Record) -> None:
        if not self._acts(record):
            return
        targets = self._take_targets(record)
        self._check_offsets(targets)
        self._publish(targets, record.read_flag)
        for pair in targets:
            self.settled[pair.offset >> 6] |= pair.mask

    def _publish(self, targets: list[Pair], flag: int) -> None:
        for pair in targets:
            for bit in set_bits(pair.mask):
                self.flags.set(flag, 1 if self.bits[pair.offset >> 6] & bit else 0)
                flag = signed(flag + 1)

    def _write(self, low: int, record: Record) -> None:
        if not self._acts(record):
            return
        targets = self._take_targets(record)
        values = self._take_conds(record.cond_mask if low == WRITE else 0, 0, record.cond_offset)
        self._check_offsets(targets + values)
        scratch = [0] * len(self.bits)
        for pair in values:
            scratch[pair.offset >> 6] = pair.mask
        checked = low == FREE and self.debug_qubits and bool(record.cond_mask & 16)
        for mask, offset, _ in targets:
            word = offset >> 6
            if checked and mask & self.bits[word] & ~self.settled[word]:
                self._queue_event(record.read_flag)
            self.bits[word] = (self.bits[word] & ~mask) | (scratch[word] & mask)
            self.settled[word] |= mask
        if low == WRITE and record.read_flag:
            self._publish(targets, record.read_flag)

    def _queue_event(self, code: int) -> None:
        message = "Error: assert zero check failed."
        self.events.append(
            ("free_nonzero_qubits", message, code & 0xFFFFFFFF, self.open_ids.copy())
        )
