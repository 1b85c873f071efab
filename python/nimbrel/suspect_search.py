"""Searches a part of a long program with NumPy for the records that may break a rule.

`program_check` checks only the records found here by `record_rules`. A search may find too many
records but never too few.
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
    JUMP_FAMILY_BYTE,
    MASKS,
    NEGATED,
    READ_FLAG,
    TARGET_OFFSET,
    TARGETS,
    RecordRules,
)
from nimbrel.records import QPU_OP, RecordArray
from nimbrel.register_trace import UNKNOWN, Positions, RegisterTrace, Words

__all__ = ["WORDS_PER_RECORD", "as_words", "find_suspects", "flow_records"]

Bytes: TypeAlias = npt.NDArray[np.uint8]
Choice: TypeAlias = npt.NDArray[np.bool_]

_ROWS_COMBINED: Final = 64
"""Records in one row of the first pass. NumPy is slow on rows of eleven words."""

WORDS_PER_RECORD: Final = QPU_OP.itemsize // 8
_NO_GATE: Final = 1 << 28
"""The opcode bit of an operation that is not a gate."""
_Z_BIT: Final = 1 << 12
"""The opcode bit that only Z has among the gates."""
_RESET_BYTE: Final = np.uint8(Opcode.RESET & 0xFF)
_JUMP_BYTE: Final = np.uint8(JUMP_FAMILY_BYTE)
_EXTENDS_OR_JUMPS: Final = (np.uint8(Opcode.EXTEND & 0xFF), _JUMP_BYTE)
_FLOW_WORDS: Final = 5


def _byte_table(opcodes: Iterable[int]) -> bytes:
    chosen = {opcode & 0xFF for opcode in opcodes}
    return bytes(byte in chosen for byte in range(256))


# For each lowest byte of an opcode, whether the operation may be of this kind. Several operations
# share a lowest byte. The rules read the whole opcode.
_HAS_TARGETS: Final = _byte_table(MASKS)
_HAS_CONTROLS: Final = _byte_table(
    opcode for opcode, masks in MASKS.items() if CONTROL_MASK in masks
)
_IS_ROTATION: Final = _byte_table([Opcode.PPR])
_IS_X: Final = _byte_table([Opcode.X])
_MAY_BE_Z: Final = _byte_table([Opcode.Z, Opcode.RZ, Opcode.PHASE])


def as_words(records: RecordArray) -> Words:
    """View contiguous records as unsigned words, shape (n, 11)."""
    return records.view(np.uint64).reshape(-1, WORDS_PER_RECORD)


def flow_records(words: Words) -> Positions:
    """Find the records that may change a `RegisterTrace`.

    Args:
        words: Records, shape (n, 11).

    Returns:
        Ascending indices. They contain those of all resets, jumps and labels.
    """
    low = _low_bytes(words)
    return np.flatnonzero((low == _RESET_BYTE) | (low == _JUMP_BYTE))


def find_suspects(chunk: Words, trace: RegisterTrace, rules: RecordRules) -> list[tuple[int, int]]:
    """Update the trace by a part of a program, and find the records that may break a rule.

    Args:
        chunk: The part of the program, shape (n, 11).
        trace: The trace before it.
        rules: The rules that apply.

    Returns:
        The index of each such record in the part, ascending, and the limit of the register there.
    """
    combined = _combined(chunk)
    limits = _limits(chunk, trace) if combined[0] & _NO_GATE else _single_limit(trace.limit)
    suspects: set[int] = set()
    if rules.qubits and _any_may_lie_outside(combined, int(limits.min())):
        suspects.update(_may_lie_outside(chunk, limits).tolist())
    if rules.controls and _any_may_be_inexact(combined):
        suspects.update(_may_be_inexact(chunk).tolist())
    return [
        (number, int(limits[number] if len(limits) > 1 else limits[0]))
        for number in sorted(suspects)
    ]


def _low_bytes(words: Words) -> Bytes:
    return np.ascontiguousarray(words.view(np.uint8)[:, 0])


def _matches(low: Bytes, table: bytes) -> Choice:
    return np.frombuffer(low.tobytes().translate(table), dtype=np.bool_)


def _single_limit(limit: int) -> Words:
    return np.array([limit], dtype=np.uint64)


def _combined(chunk: Words) -> list[int]:
    """Combine the words of all records by a bitwise or."""
    whole = len(chunk) - len(chunk) % _ROWS_COMBINED
    combined = np.bitwise_or.reduce(chunk[whole:], axis=0)
    if whole:
        rows = chunk[:whole].reshape(-1, _ROWS_COMBINED * WORDS_PER_RECORD)
        row = np.bitwise_or.reduce(rows, axis=0).reshape(_ROWS_COMBINED, WORDS_PER_RECORD)
        combined |= np.bitwise_or.reduce(row, axis=0)
    words: list[int] = combined.tolist()
    return words


def _limits(chunk: Words, trace: RegisterTrace) -> Words:
    """Update the trace by a chunk, and return the limit at each record, or one for all."""
    positions = flow_records(chunk)
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
    negated = (controls & chunk[:, NEGATED]).astype(np.bool_)
    may_be_z = (controls != 0) & _matches(low, _MAY_BE_Z)
    if not chunk[:, TARGETS].all():
        may_be_z &= negated | ~_is_on_one_qubit(chunk, low)
    return np.flatnonzero((negated & _matches(low, _IS_X)) | may_be_z)


def _is_on_one_qubit(chunk: Words, low: Bytes) -> Choice:
    """Whether a gate has no target and one control, and no extension can reach it."""
    controls = chunk[:, CONTROLS]
    may_follow_extension = np.ones(len(chunk), dtype=np.bool_)
    extension, jump = _EXTENDS_OR_JUMPS
    may_follow_extension[1:] = (low[:-1] == extension) | (low[:-1] == jump)
    on_one: Choice = (chunk[:, TARGETS] == 0) & (controls & (controls - np.uint64(1)) == 0)
    return on_one & ~may_follow_extension
