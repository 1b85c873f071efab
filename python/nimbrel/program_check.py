"""The check of a program before `Simulator.run` passes it to the engine.

`record_rules` has the rules for one record. In a long program, a search with NumPy finds the
records that may break a rule, and only these are checked by the rules.
"""

from collections.abc import Iterable, Sequence
from typing import Final, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import Opcode
from nimbrel.record_rules import (
    ANGLE,
    CONTROL_MASK,
    CONTROL_OFFSET,
    CONTROLS,
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
"""Longest program for which the rules without a search are faster."""
_CHUNK: Final = 4096
"""Records of one search. Their 360 kB stay in the cache while the columns are read."""
_ROWS_COMBINED: Final = 64
"""Records in one row of the first pass. NumPy is slow on rows of eleven words."""

_WORDS_PER_RECORD: Final = QPU_OP.itemsize // 8
_NO_GATE: Final = 1 << 28
"""The opcode bit of an operation that is not a gate."""
_Z_BIT: Final = 1 << 12
"""The opcode bit that only Z has among the gates."""
_RESET_BYTE: Final = np.uint8(Opcode.RESET & 0xFF)
_JUMP_BYTE: Final = np.uint8(Opcode.JUMP_FWD & 0xFF)
_FLOW_WORDS: Final = 5


def _byte_table(opcodes: Iterable[int]) -> bytes:
    chosen = {opcode & 0xFF for opcode in opcodes}
    return bytes(byte in chosen for byte in range(256))


# For each lowest byte of an opcode, whether the operation may be of this kind. Several operations
# share a lowest byte, so a search may find too many records but never too few. The rules read the
# whole opcode.
_HAS_TARGETS: Final = _byte_table(MASKS)
_HAS_CONTROLS: Final = _byte_table(
    opcode for opcode, masks in MASKS.items() if CONTROL_MASK in masks
)
_IS_ROTATION: Final = _byte_table([Opcode.PPR])
_IS_X: Final = _byte_table([Opcode.X])
_MAY_BE_Z: Final = _byte_table([Opcode.Z, Opcode.RZ, Opcode.PHASE])


class ProgramCheck:
    """Checks all programs of one filter.

    It tracks the register from program to program, so it must see every program of the filter.
    """

    def __init__(self, filter_type: str, *, qubits: bool, inexact_controls: bool) -> None:
        """Choose the checks.

        Args:
            filter_type: The engine's name of the filter.
            qubits: Whether qubits outside the register are refused.
            inexact_controls: Whether controls that are not exact on a Clifford filter are allowed.
        """
        is_clifford = filter_type == "StreamCliffordQPU"
        controls = is_clifford and not inexact_controls
        self._rules = RecordRules(filter_type, qubits=qubits, controls=controls)
        # A Clifford filter uses the low 32 bits of a reset's size.
        self._trace = RegisterTrace(2**32 - 1 if is_clifford else 2**64 - 1)

    def stop_following(self) -> None:
        """Refuse no qubits from now on, because programs may run that are not seen here."""
        self._rules.qubits = False

    def resize(self, num_qubits: int) -> None:
        """Note a register that was made without a record.

        Args:
            num_qubits: Its size.
        """
        self._trace.limit = num_qubits

    def check(self, records: RecordArray) -> RegisterTrace:
        """Check a program that has not run yet.

        Args:
            records: The program, contiguous, shape (n,).

        Returns:
            The trace at the end of the program. Pass it to `ran` when the program has run.

        Raises:
            ValueError: If a record is refused.
        """
        if not (self._rules.qubits or self._rules.controls):
            return self._trace
        words = _as_words(records)
        trace = self._trace.copy()
        # The first record is checked without a search: it is mostly a reset, which slows a search.
        is_short = len(words) <= _SHORT
        short = len(words) if is_short else 1
        self._check_rows(words.tolist() if is_short else _LazyRows(words), short, trace)
        for first in range(short, len(words), _CHUNK):
            self._check_chunk(words, first, trace)
        return trace

    def ran(self, trace: RegisterTrace) -> None:
        """Note that a program has run to its end.

        Args:
            trace: The trace that `check` returned for it.
        """
        self._trace = trace

    def failed(self, records: RecordArray) -> None:
        """Note that a program has failed after an unknown number of records.

        Args:
            records: The program, contiguous, shape (n,).
        """
        words = _as_words(records)
        self._trace.follow_up_to_anywhere(words[_flow_records(words)].tolist())

    def _check_rows(self, rows: Rows, count: int, trace: RegisterTrace) -> None:
        for index in range(count):
            trace.follow(rows[index])
            self._rules.check(rows, index, trace.limit)

    def _check_chunk(self, words: Words, first: int, trace: RegisterTrace) -> None:
        chunk = words[first : first + _CHUNK]
        combined = _combined(chunk)
        limits = _limits(chunk, trace) if combined[0] & _NO_GATE else _single_limit(trace.limit)
        suspects: set[int] = set()
        if self._rules.qubits and _any_may_lie_outside(combined, int(limits.min())):
            suspects.update(_may_lie_outside(chunk, limits).tolist())
        if self._rules.controls and _any_may_be_inexact(combined):
            suspects.update(_may_be_inexact(chunk).tolist())
        rows = _LazyRows(words)
        for number in sorted(suspects):
            limit = limits[number] if len(limits) > 1 else limits[0]
            self._rules.check(rows, first + number, int(limit))


class _LazyRows:
    """The records of a long program. Each access converts one record to Python numbers."""

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


def _flow_records(words: Words) -> Positions:
    low = _low_bytes(words)
    return np.flatnonzero((low == _RESET_BYTE) | (low == _JUMP_BYTE))


def _matches(low: Bytes, table: bytes) -> Choice:
    return np.frombuffer(low.tobytes().translate(table), dtype=np.bool_)


def _single_limit(limit: int) -> Words:
    return np.array([limit], dtype=np.uint64)


def _combined(chunk: Words) -> list[int]:
    """Combine the words of all records by a bitwise or."""
    whole = len(chunk) - len(chunk) % _ROWS_COMBINED
    combined = np.bitwise_or.reduce(chunk[whole:], axis=0)
    if whole:
        rows = chunk[:whole].reshape(-1, _ROWS_COMBINED * _WORDS_PER_RECORD)
        row = np.bitwise_or.reduce(rows, axis=0).reshape(_ROWS_COMBINED, _WORDS_PER_RECORD)
        combined |= np.bitwise_or.reduce(row, axis=0)
    words: list[int] = combined.tolist()
    return words


def _limits(chunk: Words, trace: RegisterTrace) -> Words:
    """Update the trace by a chunk, and return the limit at each record, or one for all."""
    positions = _flow_records(chunk)
    if trace.follow_closed_jumps(chunk, positions):
        return _single_limit(trace.limit)
    limits = trace.follow_resets(chunk, positions)
    if limits is None:
        limits = _limits_row_by_row(chunk[positions, :_FLOW_WORDS], trace)
    if (limits == limits[0]).all():
        return limits[:1]
    return limits.repeat(np.diff(positions, prepend=0, append=len(chunk)))


def _limits_row_by_row(flow_records: Words, trace: RegisterTrace) -> Words:
    limits = [trace.limit]
    for row in flow_records.tolist():
        trace.follow(row)
        limits.append(trace.limit)
    return np.array(limits, dtype=np.uint64)


def _any_may_lie_outside(combined: Sequence[int], limit: int) -> bool:
    # In most chunks no mask reaches outside, and the combined words show this in one pass.
    masks = combined[TARGETS] | combined[CONTROLS] | combined[READ_FLAG]
    offsets = combined[TARGET_OFFSET] | combined[CONTROL_OFFSET]
    return limit != UNKNOWN and (masks.bit_length() > limit or offsets != 0)


def _may_lie_outside(chunk: Words, limits: Words) -> Positions:
    lowest = int(limits.min())
    if lowest < WORD_BITS:
        return np.flatnonzero(_reaches_outside(chunk, limits))
    # A word that ends before the end of the register cannot reach outside.
    last = np.uint64(lowest - WORD_BITS)
    far = (chunk[:, TARGET_OFFSET] > last) | (chunk[:, CONTROL_OFFSET] > last)
    positions = np.flatnonzero(far)
    if len(positions):
        limits = limits[positions] if len(limits) > 1 else limits
        positions = positions[_reaches_outside(chunk[positions], limits)]
    return positions


def _reaches_outside(chunk: Words, limits: Words) -> Choice:
    low = _low_bytes(chunk)
    inside = _low_masks(limits)
    target_inside = _low_masks(limits - np.minimum(limits, chunk[:, TARGET_OFFSET]))
    control_inside = _low_masks(limits - np.minimum(limits, chunk[:, CONTROL_OFFSET]))
    outside: Choice = (chunk[:, TARGETS] > target_inside) & _matches(low, _HAS_TARGETS)
    outside |= (chunk[:, CONTROLS] > control_inside) & _matches(low, _HAS_CONTROLS)
    outside |= (chunk[:, READ_FLAG] > inside) & _matches(low, _IS_ROTATION)
    return outside


def _low_masks(counts: Words) -> Words:
    """Masks of the lowest `counts` qubits; 64 and more give all ones."""
    masks: Words = (np.uint64(1) << counts) - np.uint64(1)
    return masks


def _any_may_be_inexact(combined: Sequence[int]) -> bool:
    may_be_z = combined[0] & _Z_BIT or combined[ANGLE] & HALF_TURN == HALF_TURN
    return combined[CONTROLS] != 0 and bool(combined[NEGATED] or may_be_z)


def _may_be_inexact(chunk: Words) -> Positions:
    low = _low_bytes(chunk)
    controls = chunk[:, CONTROLS]
    negated = (controls & chunk[:, NEGATED]).astype(np.bool_) & _matches(low, _IS_X)
    return np.flatnonzero(negated | ((controls != 0) & _matches(low, _MAY_BE_Z)))
