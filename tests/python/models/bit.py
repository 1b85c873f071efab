"""A model of the bit filter: runs records; has its register, flags, events and error texts.

The model is written independently of the engine and as directly as possible, so that a test can run
both on the same records. The register is a list of 64-bit words, since masks may reach the unused
bits of the last word.
"""

from __future__ import annotations

from models.opcodes import (
    CLEAR,
    EXTEND,
    FREE,
    LELBOW,
    MARKERS,
    READ,
    RELBOW,
    RESET,
    SWAP,
    WRITE,
    H,
    X,
)
from models.program import NO_REGISTER, ModelError, Pair, WideProgramModel
from models.wire import Record, set_bits, signed

IGNORED = (H, *MARKERS)
REFUSED = {
    0x06: "qc.y", 0x08: "qc.phase", 0x0D: "qc.ppr", 0x0E: "qc.ppm", 0x13: "qc.pcp",
    0x105: "qc.rx", 0x106: "qc.ry", 0x107: "qc.t", 0x407: "qc.t", 0x807: "qc.s", 0x1007: "qc.z",
    0x2005: "qc.rootx", 0x2006: "qc.rooty", 0x4407: "qc.t_inv", 0x4807: "qc.OP_qc_s_inv",
    0x6005: "qc.rootx_inv", 0x6006: "qc.rooty_inv",
}  # fmt: skip


class BitModel(WideProgramModel):
    """One bit filter: its register, its read flags, its events and its open jump."""

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
        if low in (X, LELBOW, RELBOW, SWAP):
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
