"""The rules by which a program is refused before it runs, for one record at a time.

Qubits outside the register are refused, since filters drop or change them without a word, and on a
Clifford filter the controls that it carries out by rules of its own. `program_check` applies them.
"""

import struct
from collections.abc import Sequence
from typing import Final, Protocol, TypeAlias

from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import Opcode
from nimbrel.register_trace import UNKNOWN

__all__ = ["CONTROL", "MASKS", "RecordRules", "Rows"]

TARGETS, CONDITIONS, ANGLE, READ_FLAG, NEGATED, TARGET_OFFSET, CONDITION_OFFSET = (
    1,
    2,
    3,
    5,
    6,
    7,
    8,
)
"""Numbers of the words of a record."""

Masks: TypeAlias = tuple[tuple[int, int | None], ...]
"""The masks of an operation as word numbers, each with that of its offset; None: it has none."""


class Rows(Protocol):
    """Records as lists of unsigned words."""

    def __len__(self) -> int:
        """Number of records."""
        ...

    def __getitem__(self, index: int, /) -> Sequence[int]:
        """The words of one record."""
        ...


TARGET: Final = (TARGETS, TARGET_OFFSET)
CONTROL: Final = (CONDITIONS, CONDITION_OFFSET)
_ONLY_TARGETS: Final = (Opcode.READ, Opcode.WRITE, Opcode.CLEAR, Opcode.FREE)
_TARGETS_AND_CONTROLS: Final = (
    *(Opcode.X, Opcode.Y, Opcode.PHASE, Opcode.H, Opcode.SWAP, Opcode.PPM, Opcode.PCP),
    *(Opcode.LELBOW, Opcode.RELBOW, Opcode.RX, Opcode.RY, Opcode.RZ, Opcode.Z),
    *(Opcode.S, Opcode.S_INV, Opcode.T, Opcode.T_INV, Opcode.EXTEND),
    *(Opcode.ROOTX, Opcode.ROOTX_INV, Opcode.ROOTY, Opcode.ROOTY_INV),
)
MASKS: Final[dict[int, Masks]] = {
    **{int(opcode): (TARGET,) for opcode in _ONLY_TARGETS},
    **{int(opcode): (TARGET, CONTROL) for opcode in _TARGETS_AND_CONTROLS},
    int(Opcode.PPR): (TARGET, CONTROL, (READ_FLAG, None)),
}
"""Which words of an operation name qubits; the second mask of a Pauli product does, too."""

HALF_TURN: Final = struct.unpack("<Q", struct.pack("<d", 180.0))[0]
_ALLOWED_BY: Final = "or make the simulator with allow_inexact_controls=True"
_INSTEAD: Final[dict[int, str]] = {
    int(Opcode.Z): "write cz(a, b)",
    int(Opcode.PHASE): "write cz(a, b)",
    int(Opcode.RZ): "write cz(a, b) and s_inv(a), a being the control",
}


class RecordRules:
    """The rules of one filter.

    Attributes:
        qubits: Whether qubits outside the register are refused.
        controls: Whether controlled Z and negated controls are refused.
    """

    def __init__(self, filter_type: str, *, qubits: bool, controls: bool) -> None:
        """Choose the rules; `filter_type` is the engine's name of the filter."""
        self.qubits = qubits
        self.controls = controls
        # The other filters act on whole words and drop the offset's low bits.
        whole_words = filter_type != "StreamCliffordQPU"
        self._offset_mask = ~(WORD_BITS - 1) if whole_words else -1
        self._masks = dict(MASKS)
        if filter_type in ("StreamQPU", "StreamSparseQPU"):
            # They refuse extensions themselves, whatever these name.
            del self._masks[int(Opcode.EXTEND)]
        if filter_type == "StreamSparseQPU":
            # There a write's target_offset is its first read flag.
            self._masks[int(Opcode.WRITE)] = ((TARGETS, None),)

    def check(self, rows: Rows, index: int, limit: int) -> None:
        """Check one record of a program.

        Args:
            rows: The program.
            index: The record's number.
            limit: Qubits of the largest register possible there, or `UNKNOWN`.

        Raises:
            ValueError: If the record is refused.
        """
        if self.qubits and limit != UNKNOWN:
            self._check_qubits(rows, index, limit)
        if self.controls:
            self._check_controls(rows, index)

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

    def _check_controls(self, rows: Rows, index: int) -> None:
        row = rows[index]
        opcode, controls = row[0], row[CONDITIONS]
        if not controls or not (opcode == Opcode.X or _is_half_turn(row)):
            return
        if controls & row[NEGATED]:
            raise ValueError(
                f"record {index}: a negated control counts as a control on a Clifford filter; "
                "write x(control) before and after the gate and leave the control plain, "
                f"{_ALLOWED_BY}"
            )
        if opcode != Opcode.X and _joins_two_qubits(rows, index):
            raise ValueError(
                f"record {index}: a controlled Z changes no sign on a Clifford filter; "
                f"{_INSTEAD[opcode]}, {_ALLOWED_BY}"
            )


def _lowest_bit(mask: int) -> int:
    return (mask & -mask).bit_length() - 1


def _is_value(rows: Rows, index: int, mask_word: int) -> bool:
    # An extension carries controls, but a value word when it belongs to a write.
    if rows[index][0] != Opcode.EXTEND or mask_word != CONDITIONS:
        return False
    following = index + 1
    while following < len(rows) and rows[following][0] == Opcode.EXTEND:
        following += 1
    return following == len(rows) or rows[following][0] in _ONLY_TARGETS


def _is_half_turn(row: Sequence[int]) -> bool:
    turned = row[0] in (Opcode.PHASE, Opcode.RZ) and row[ANGLE] == HALF_TURN
    return turned or row[0] == Opcode.Z


def _joins_two_qubits(rows: Rows, index: int) -> bool:
    # One control alone is a plain Z, and the engine refuses more controls than these.
    targets, controls = rows[index][TARGETS].bit_count(), rows[index][CONDITIONS].bit_count()
    while index > 0 and rows[index - 1][0] == Opcode.EXTEND:
        index -= 1
        targets += rows[index][TARGETS].bit_count()
        controls += rows[index][CONDITIONS].bit_count()
    return controls == (1 if targets else 2)
