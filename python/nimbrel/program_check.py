"""What `Simulator.run` does before the engine sees a program: refuse it, or let it pass.

The rules stand in `record_rules`, for one record at a time. A longer program is searched with NumPy
for the records that may break one, and only those go through the rules.
"""

from collections.abc import Iterable, Sequence
from typing import Final, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import Opcode
from nimbrel.record_rules import (
    ANGLE,
    CONDITION_OFFSET,
    CONDITIONS,
    CONTROL,
    HALF_TURN,
    MASKS,
    NEGATED,
    READ_FLAG,
    TARGET_OFFSET,
    TARGETS,
    RecordRules,
    Rows,
)
from nimbrel.records import QPU_OP, RecordArray
from nimbrel.register_trace import UNKNOWN, RegisterTrace

__all__ = ["ProgramCheck"]

Words: TypeAlias = npt.NDArray[np.uint64]
"""Unsigned words; those of records have the shape (n, 11)."""
Bytes: TypeAlias = npt.NDArray[np.uint8]
Choice: TypeAlias = npt.NDArray[np.bool_]
Positions: TypeAlias = npt.NDArray[np.intp]

_SHORT: Final = 12
"""Records up to which the rules alone are faster than the calls of NumPy."""
_CHUNK: Final = 4096
"""Records searched at once: their 360 kB stay in the cache while the columns are read."""
_ROWS_JOINED: Final = 64
"""Records that are one row of the first pass, since NumPy is slow on rows of eleven words."""

_WORDS_PER_RECORD: Final = QPU_OP.itemsize // 8
_META: Final = 1 << 28
"""The bit of an opcode that is no gate."""
_Z_BIT: Final = 1 << 12
"""The bit of an opcode that no gate but Z has."""
_RESET_BYTE: Final = np.uint8(Opcode.RESET & 0xFF)
_JUMP_BYTE: Final = np.uint8(Opcode.JUMP_FWD & 0xFF)
_STEERING_WORDS: Final = 5


def _byte_table(opcodes: Iterable[int]) -> bytes:
    chosen = {opcode & 0xFF for opcode in opcodes}
    return bytes(byte in chosen for byte in range(256))


# An opcode's lowest byte tells its family. A search by it finds some records too many and none too
# few, and the rules look at the whole opcode.
_HAS_TARGETS: Final = _byte_table(MASKS)
_HAS_CONTROLS: Final = _byte_table(opcode for opcode, masks in MASKS.items() if CONTROL in masks)
_IS_ROTATION: Final = _byte_table([Opcode.PPR])
_IS_X: Final = _byte_table([Opcode.X])
_MAY_BE_Z: Final = _byte_table([Opcode.Z, Opcode.RZ, Opcode.PHASE])


class ProgramCheck:
    """The checks of one filter's programs.

    It follows the registers from program to program, so every program of the filter must be shown
    to it.
    """

    def __init__(self, filter_type: str, *, qubits: bool, inexact_controls: bool) -> None:
        """Choose the checks.

        Args:
            filter_type: The engine's name of the filter.
            qubits: Whether qubits outside the register are refused.
            inexact_controls: Whether a Clifford filter's own rules for controls are let pass.
        """
        is_clifford = filter_type == "StreamCliffordQPU"
        controls = is_clifford and not inexact_controls
        self._rules = RecordRules(filter_type, qubits=qubits, controls=controls)
        # A Clifford filter takes the low half of a reset's size.
        self._trace = RegisterTrace(2**32 - 1 if is_clifford else 2**64 - 1)

    def stop_following(self) -> None:
        """Refuse no qubit any more, since programs may run that are not shown."""
        self._rules.qubits = False

    def resize(self, num_qubits: int) -> None:
        """Take note of a register that was made without a record."""
        self._trace.limit = num_qubits

    def check(self, records: RecordArray) -> RegisterTrace:
        """Check a program that has not run yet.

        Args:
            records: The program, contiguous, shape (n,).

        Returns:
            What to hand to `ran` once it has run.

        Raises:
            ValueError: If a record is refused.
        """
        if not (self._rules.qubits or self._rules.controls):
            return self._trace
        words = _as_words(records)
        trace = self._trace.copy()
        # Most programs begin with a reset, and a search goes faster without one.
        is_short = len(words) <= _SHORT
        short = len(words) if is_short else 1
        self._check_rows(words.tolist() if is_short else _LazyRows(words), short, trace)
        for first in range(short, len(words), _CHUNK):
            self._check_chunk(words, first, trace)
        return trace

    def ran(self, trace: RegisterTrace) -> None:
        """Take note that the program has run to its end."""
        self._trace = trace

    def failed(self, records: RecordArray) -> None:
        """Take note that the program has stopped after an unknown number of records."""
        words = _as_words(records)
        self._trace.stop_anywhere(words[_steering(words)].tolist())

    def _check_rows(self, rows: Rows, count: int, trace: RegisterTrace) -> None:
        for index in range(count):
            trace.follow(rows[index])
            self._rules.check(rows, index, trace.limit)

    def _check_chunk(self, words: Words, first: int, trace: RegisterTrace) -> None:
        chunk = words[first : first + _CHUNK]
        every = _joined(chunk)
        limits = _limits(chunk, trace) if every[0] & _META else _one(trace.limit)
        suspects: set[int] = set()
        if self._rules.qubits and _any_may_lie_outside(every, int(limits.min())):
            suspects.update(_may_lie_outside(chunk, limits).tolist())
        if self._rules.controls and _any_may_be_inexact(every):
            suspects.update(_may_be_inexact(chunk).tolist())
        rows = _LazyRows(words)
        for number in sorted(suspects):
            limit = limits[number] if len(limits) > 1 else limits[0]
            self._rules.check(rows, first + number, int(limit))


class _LazyRows:
    """The records of a long program; one is turned into Python's numbers when it is asked for."""

    def __init__(self, words: Words) -> None:
        self._words = words

    def __len__(self) -> int:
        return len(self._words)

    def __getitem__(self, index: int, /) -> list[int]:
        row: list[int] = self._words[index].tolist()
        return row


def _as_words(records: RecordArray) -> Words:
    return records.view(np.uint64).reshape(-1, _WORDS_PER_RECORD)


def _low_bytes(words: Words) -> Bytes:
    return np.ascontiguousarray(words.view(np.uint8)[:, 0])


def _steering(words: Words) -> Positions:
    low = _low_bytes(words)
    return np.flatnonzero((low == _RESET_BYTE) | (low == _JUMP_BYTE))


def _chosen(low: Bytes, table: bytes) -> Choice:
    return np.frombuffer(low.tobytes().translate(table), dtype=np.bool_)


def _one(limit: int) -> Words:
    return np.array([limit], dtype=np.uint64)


def _joined(chunk: Words) -> list[int]:
    """The words of all records joined by "or"."""
    whole = len(chunk) - len(chunk) % _ROWS_JOINED
    joined = np.bitwise_or.reduce(chunk[whole:], axis=0)
    if whole:
        rows = chunk[:whole].reshape(-1, _ROWS_JOINED * _WORDS_PER_RECORD)
        row = np.bitwise_or.reduce(rows, axis=0).reshape(_ROWS_JOINED, _WORDS_PER_RECORD)
        joined |= np.bitwise_or.reduce(row, axis=0)
    every: list[int] = joined.tolist()
    return every


def _limits(chunk: Words, trace: RegisterTrace) -> Words:
    """The limit at each record, or one for all; the trace has passed the chunk afterwards."""
    positions = _steering(chunk)
    if trace.pass_closed_jumps(chunk, positions):
        return _one(trace.limit)
    limits = trace.pass_resets(chunk, positions)
    if limits is None:
        limits = _followed(chunk[positions, :_STEERING_WORDS], trace)
    if (limits == limits[0]).all():
        return limits[:1]
    return limits.repeat(np.diff(positions, prepend=0, append=len(chunk)))


def _followed(steering: Words, trace: RegisterTrace) -> Words:
    limits = [trace.limit]
    for row in steering.tolist():
        trace.follow(row)
        limits.append(trace.limit)
    return np.array(limits, dtype=np.uint64)


def _any_may_lie_outside(every: Sequence[int], limit: int) -> bool:
    # Joined words tell of the usual chunk that no mask reaches outside, in one pass.
    masks = every[TARGETS] | every[CONDITIONS] | every[READ_FLAG]
    offsets = every[TARGET_OFFSET] | every[CONDITION_OFFSET]
    return limit != UNKNOWN and (masks.bit_length() > limit or offsets != 0)


def _may_lie_outside(chunk: Words, limits: Words) -> Positions:
    lowest = int(limits.min())
    if lowest < WORD_BITS:
        return np.flatnonzero(_reaches_outside(chunk, limits))
    # Whole words before the register's last bits cannot reach outside.
    last = np.uint64(lowest - WORD_BITS)
    far = (chunk[:, TARGET_OFFSET] > last) | (chunk[:, CONDITION_OFFSET] > last)
    positions = np.flatnonzero(far)
    if len(positions):
        limits = limits[positions] if len(limits) > 1 else limits
        positions = positions[_reaches_outside(chunk[positions], limits)]
    return positions


def _reaches_outside(chunk: Words, limits: Words) -> Choice:
    low = _low_bytes(chunk)
    inside = _lowest(limits)
    target_inside = _lowest(limits - np.minimum(limits, chunk[:, TARGET_OFFSET]))
    condition_inside = _lowest(limits - np.minimum(limits, chunk[:, CONDITION_OFFSET]))
    outside: Choice = (chunk[:, TARGETS] > target_inside) & _chosen(low, _HAS_TARGETS)
    outside |= (chunk[:, CONDITIONS] > condition_inside) & _chosen(low, _HAS_CONTROLS)
    outside |= (chunk[:, READ_FLAG] > inside) & _chosen(low, _IS_ROTATION)
    return outside


def _lowest(counts: Words) -> Words:
    """Masks of so many lowest qubits; 64 and more give all ones."""
    masks: Words = (np.uint64(1) << counts) - np.uint64(1)
    return masks


def _any_may_be_inexact(every: Sequence[int]) -> bool:
    may_be_z = every[0] & _Z_BIT or every[ANGLE] & HALF_TURN == HALF_TURN
    return every[CONDITIONS] != 0 and bool(every[NEGATED] or may_be_z)


def _may_be_inexact(chunk: Words) -> Positions:
    low = _low_bytes(chunk)
    conditions = chunk[:, CONDITIONS]
    negated = (conditions & chunk[:, NEGATED]).astype(np.bool_) & _chosen(low, _IS_X)
    return np.flatnonzero(negated | ((conditions != 0) & _chosen(low, _MAY_BE_Z)))
