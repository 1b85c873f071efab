"""The rules that refuse one record of a program before it runs. `program_check` applies them.

Qubits outside the register are refused, because filters drop or change them without an error. On a
Clifford filter, controls that this filter does not carry out exactly are refused.
"""

import struct
from collections.abc import Collection, Sequence
from typing import Final, Protocol, TypeAlias

from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import Opcode
from nimbrel.register_trace import UNKNOWN

__all__ = ["CONTROL_MASK", "MASKS", "RecordRules", "Rows"]

TARGETS, CONTROLS, ANGLE, READ_FLAG, NEGATED, TARGET_OFFSET, CONTROL_OFFSET = (
    1,
    2,
    3,
    5,
    6,
    7,
    8,
)
"""Positions of the words in a record."""

Masks: TypeAlias = tuple[tuple[int, int | None], ...]
"""Positions of an operation's masks, each with the position of its offset, or None without one."""


class Rows(Protocol):
    """A program whose records are sequences of unsigned words."""

    def __len__(self) -> int:
        """Number of records."""
        ...

    def __getitem__(self, index: int, /) -> Sequence[int]:
        """The words of one record."""
        ...


TARGET_MASK: Final = (TARGETS, TARGET_OFFSET)
CONTROL_MASK: Final = (CONTROLS, CONTROL_OFFSET)
_ONLY_TARGETS: Final = (Opcode.READ, Opcode.WRITE, Opcode.CLEAR, Opcode.FREE)
_TARGETS_AND_CONTROLS: Final = (
    *(Opcode.X, Opcode.Y, Opcode.PHASE, Opcode.H, Opcode.SWAP, Opcode.PPM, Opcode.PCP),
    *(Opcode.LELBOW, Opcode.RELBOW, Opcode.RX, Opcode.RY, Opcode.RZ, Opcode.Z),
    *(Opcode.S, Opcode.S_INV, Opcode.T, Opcode.T_INV, Opcode.EXTEND),
    *(Opcode.ROOTX, Opcode.ROOTX_INV, Opcode.ROOTY, Opcode.ROOTY_INV),
)
MASKS: Final[dict[int, Masks]] = {
    **{int(opcode): (TARGET_MASK,) for opcode in _ONLY_TARGETS},
    **{int(opcode): (TARGET_MASK, CONTROL_MASK) for opcode in _TARGETS_AND_CONTROLS},
    int(Opcode.PPR): (TARGET_MASK, CONTROL_MASK, (READ_FLAG, None)),
}
"""The masks of each operation that name qubits, by opcode. Both masks of a Pauli product do."""

JUMP_FAMILY_BYTE: Final = int(Opcode.JUMP_FAMILY) & 0xFF
HALF_TURN: Final = struct.unpack("<Q", struct.pack("<d", 180.0))[0]
_ALLOWED_BY: Final = "or make the simulator with allow_inexact_controls=True"
_INSTEAD_OF_RZ: Final = "write cz(a, b) and s_inv(a), a being the control"


class RecordRules:
    """The rules for one filter.

    Attributes:
        qubits: Whether qubits outside the register are refused.
        controls: Whether controlled Z and negated controls are refused.
    """

    def __init__(self, filter_type: str, *, qubits: bool, controls: bool) -> None:
        """Choose the rules.

        Args:
            filter_type: The engine's name of the filter type.
            qubits: The attribute `qubits`.
            controls: The attribute `controls`.
        """
        self.qubits = qubits
        self.controls = controls
        # The other filters act on whole words and ignore the low bits of an offset.
        whole_words = filter_type != "StreamCliffordQPU"
        self._offset_mask = ~(WORD_BITS - 1) if whole_words else -1
        self._masks = dict(MASKS)
        if filter_type in ("StreamQPU", "StreamSparseQPU"):
            # These filters refuse every extension record.
            del self._masks[int(Opcode.EXTEND)]
        if filter_type == "StreamSparseQPU":
            # On a sparse filter, `target_offset` of a write is its first read flag.
            self._masks[int(Opcode.WRITE)] = ((TARGETS, None),)

    def check(self, rows: Rows, index: int, limit: int, open_labels: Collection[int]) -> None:
        """Check one record of a program.

        Args:
            rows: The program.
            index: The index of the record.
            limit: Qubits of the largest possible register at this record, or `UNKNOWN`.
            open_labels: Labels of the jumps that may be open before the program.

        Raises:
            ValueError: If the record is refused.
        """
        if self.qubits and limit != UNKNOWN:
            self._check_qubits(rows, index, limit)
        if self.controls:
            self._check_controls(rows, index, open_labels)

    def _check_qubits(self, rows: Rows, index: int, limit: int) -> None:
        row = rows[index]
        for mask_word, offset_word in self._masks.get(row[0], ()):
            mask = row[mask_word]
            if not mask:
                continue
            base = 0 if offset_word is None else row[offset_word] & self._offset_mask
            if base + mask.bit_length() <= limit or _is_value(rows, index, mask_word):
                continue
            inside = max(limit - base, 0)
            qubit = base + inside + _lowest_bit(mask >> inside)
            raise ValueError(
                f"record {index}: qubit {qubit} lies outside the register of {limit} qubits"
            )

    def _check_controls(self, rows: Rows, index: int, open_labels: Collection[int]) -> None:
        row = rows[index]
        opcode, controls = row[0], row[CONTROLS]
        if not controls or not (opcode == Opcode.X or _is_half_turn(row)):
            return
        if controls & row[NEGATED]:
            raise ValueError(
                f"record {index}: a negated control counts as a control on a Clifford filter; "
                "write x(control) before and after the gate and leave the control plain, "
                f"{_ALLOWED_BY}"
            )
        if opcode == Opcode.X:
            return
        targets, controls = _qubit_counts(rows, index, open_labels)
        # Without a target, one control is a Z without a control. The engine refuses more controls.
        if controls == (1 if targets else 2):
            instead = _INSTEAD_OF_RZ if opcode == Opcode.RZ and targets else "write cz(a, b)"
            raise ValueError(
                f"record {index}: a controlled Z changes no sign on a Clifford filter; "
                f"{instead}, {_ALLOWED_BY}"
            )


def _lowest_bit(mask: int) -> int:
    return (mask & -mask).bit_length() - 1


def _is_value(rows: Rows, index: int, mask_word: int) -> bool:
    # An extension record has controls in this word, except before a write, where it has the value.
    if rows[index][0] != Opcode.EXTEND or mask_word != CONTROLS:
        return False
    for following in range(index + 1, len(rows)):
        opcode = rows[following][0]
        if opcode == Opcode.JUMP_FWD:
            return True  # what takes the extension may be skipped
        if opcode != Opcode.EXTEND and not _is_jump_family(opcode):
            return opcode in _ONLY_TARGETS
    return True


def _is_jump_family(opcode: int) -> bool:
    # The engine looks at this byte only. These records neither take nor end extensions.
    return opcode & 0xFF == JUMP_FAMILY_BYTE


def _is_half_turn(row: Sequence[int]) -> bool:
    turned = row[0] in (Opcode.PHASE, Opcode.RZ) and row[ANGLE] == HALF_TURN
    return turned or row[0] == Opcode.Z


def _qubit_counts(rows: Rows, index: int, open_labels: Collection[int]) -> tuple[int, int]:
    """Count targets and controls of a record with those extensions that certainly reach it."""
    targets, controls = rows[index][TARGETS].bit_count(), rows[index][CONTROLS].bit_count()
    for number in range(index - 1, -1, -1):
        row = rows[number]
        if row[0] == Opcode.EXTEND:
            targets += row[TARGETS].bit_count()
            controls += row[CONTROLS].bit_count()
        elif not _is_jump_family(row[0]) or _may_end_a_jump(rows, number, open_labels):
            break
    return targets, controls


def _may_end_a_jump(rows: Rows, index: int, open_labels: Collection[int]) -> bool:
    """Whether a record is a label, and a jump to it may skip the records before it."""
    if rows[index][0] != Opcode.LABEL:
        return False
    wanted = rows[index][TARGETS]
    for number in range(index - 1, -1, -1):
        opcode, operand = rows[number][:2]
        if operand == wanted and opcode in (Opcode.JUMP_FWD, Opcode.LABEL):
            return opcode == Opcode.JUMP_FWD
    return wanted in open_labels
