"""The check of a program before `Simulator.run` passes it to the engine.

`record_rules` has the rules for one record. In a long program, a search with NumPy finds the
records that may break a rule, and only these are checked by the rules.
"""

from collections.abc import Callable, Iterable, Sequence
from typing import Final, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import Opcode
from nimbrel.passed_programs import PassedPrograms
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
from nimbrel.register_trace import UNKNOWN, Register, RegisterTrace

__all__ = ["ProgramCheck"]

Words: TypeAlias = npt.NDArray[np.uint64]
"""Unsigned words; those of records have the shape (n, 11)."""
Bytes: TypeAlias = npt.NDArray[np.uint8]
Choice: TypeAlias = npt.NDArray[np.bool_]
Positions: TypeAlias = npt.NDArray[np.intp]
Entry: TypeAlias = list[Register]
"""A list of one register. Its identity tells who has stored it."""

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
_JUMP_BYTE: Final = np.uint8(JUMP_FAMILY_BYTE)
_EXTENDS_OR_JUMPS: Final = (np.uint8(Opcode.EXTEND & 0xFF), _JUMP_BYTE)
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

    Several threads may run programs of one filter at the same time. The interpreter may switch
    threads between any two calls here, but not between a comparison and the assignment behind it.
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
        self._size_mask = 2**32 - 1 if is_clifford else 2**64 - 1
        self._passed = PassedPrograms()
        self._current: Entry = [Register()]

    def stop_following(self) -> None:
        """Refuse no qubits from now on, because programs may run that are not seen here."""
        self._rules.qubits = False

    def resize(self, num_qubits: int) -> None:
        """Note a register that was made without a record.

        Args:
            num_qubits: Its size.
        """
        self._change(lambda register: register._replace(limit=num_qubits))

    def begin(self, records: RecordArray) -> tuple[Entry, Register]:
        """Check a program that is about to run.

        If an exception prevents `ran` and `failed`, nothing is wrongly refused afterwards: from
        here to `ran`, the register before the program and the one after it are both possible.

        Args:
            records: The program, contiguous, shape (n,).

        Returns:
            The arguments of `ran`.

        Raises:
            ValueError: If a record is refused.
        """
        while True:
            before = self._current
            if not (self._rules.qubits or self._rules.controls):
                return before, before[0]
            after = self._register_after(records, before[0])
            if after == before[0]:
                return before, after
            marked = [before[0].joined(after)]
            if self._current is before:
                self._current = marked
                return marked, after

    def ran(self, entry: Entry, after: Register) -> None:
        """Note that a program has run to its end.

        Args:
            entry: As `begin` returned it.
            after: As `begin` returned it.
        """
        if entry[0] == after and self._current is entry:
            return
        new = [after]
        if self._current is entry:
            self._current = new
        else:
            # A program of another thread ran before or after this one.
            self._change(after.joined)

    def failed(self, records: RecordArray) -> None:
        """Note that a program has failed after an unknown number of records.

        Args:
            records: The program, contiguous, shape (n,).
        """
        words = _as_words(records)
        rows = words[_flow_records(words)].tolist()

        def up_to_anywhere(register: Register) -> Register:
            trace = RegisterTrace(self._size_mask, register)
            trace.follow_up_to_anywhere(rows)
            return trace.register

        self._change(up_to_anywhere)

    def _change(self, change: Callable[[Register], Register]) -> None:
        while True:
            before = self._current
            new = [change(before[0])]
            if self._current is before:
                self._current = new
                return

    def _register_after(self, records: RecordArray, register: Register) -> Register:
        """Check a program, unless the same one has passed before.

        Args:
            records: The program.
            register: The register before it.

        Returns:
            The register after it.
        """
        if not PassedPrograms.accepts(len(records)):
            return self._examine(_as_words(records), register)
        content = records.tobytes()
        after = self._passed.find(content, register)
        if after is None:
            words = np.frombuffer(content, dtype=np.uint64).reshape(-1, _WORDS_PER_RECORD)
            after = self._examine(words, register)
            self._passed.add(content, register, after)
        return after

    def _examine(self, words: Words, register: Register) -> Register:
        trace = RegisterTrace(self._size_mask, register)
        # The first record is checked without a search: it is mostly a reset, which slows a search.
        is_short = len(words) <= _SHORT
        short = len(words) if is_short else 1
        rows = words.tolist() if is_short else _LazyRows(words)
        for index in range(short):
            trace.follow(rows[index])
            self._rules.check(rows, index, trace.limit, register.open_labels)
        for first in range(short, len(words), _CHUNK):
            self._check_chunk(words, first, trace, register)
        return trace.register

    def _check_chunk(
        self, words: Words, first: int, trace: RegisterTrace, register: Register
    ) -> None:
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
            limit = int(limits[number] if len(limits) > 1 else limits[0])
            self._rules.check(rows, first + number, limit, register.open_labels)


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
