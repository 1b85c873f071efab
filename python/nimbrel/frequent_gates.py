"""Prepared records of the gates that programs mostly have: one target, at most one control.

A gate on qubits below 64 without further conditions has few different records. For each of them
there is an iterator over copies that nobody has yet, views of one block of memory. Taking the next
copy is faster than writing a record. Every copy is given out once, so the caller may change it. It
keeps its block alive, which has up to `_COPIES` records.
"""

import struct
from collections.abc import Callable, Iterator
from itertools import repeat
from typing import Any, Final, Generic, TypeAlias, TypeVar

import numpy as np

from nimbrel.masks import WORD_BITS, Qubits
from nimbrel.records import QPU_OP, RECORD_BYTES, RecordArray

__all__ = ["ALWAYS", "NO_QUBITS", "FrequentAngleGates", "FrequentGates", "put_angle"]

NO_QUBITS: Final[tuple[int, ...]] = ()
"""The default of a builder's qubits, so that builders can test for it by identity."""
ALWAYS: Final = 0
"""The default of a builder's classical condition, likewise."""

put_angle: Final = struct.Struct("<d").pack_into

_ANGLE_PLACE: Final = 24
_COPIES: Final = 64
_FEW_COPIES: Final = 8
_MANY_BLOCKS: Final = 1024
"""From here on blocks are small, so that the blocks of one builder stay below 10 MB."""

AngleCopy: TypeAlias = tuple[RecordArray, bytearray, int]
"""A record, the memory that holds it, and the place of its angle there."""
Copy = TypeVar("Copy", RecordArray, AngleCopy)


_ByTarget: TypeAlias = dict[int, Callable[[], Copy]]


class _Blocks(Generic[Copy]):
    """The iterators of one builder.

    Attributes:
        without_control: The next copy by the target.
        by_control: The next copy by the control and the target.
        by_zero: The next copy by the negated control and the target.
    """

    _copies: Callable[[bytearray], Iterator[Copy]]

    def __init__(self, copies: Callable[[bytearray], Iterator[Copy]]) -> None:
        self.without_control: _ByTarget[Copy] = {}
        self.by_control: dict[int, _ByTarget[Copy]] = {q: {} for q in range(WORD_BITS)}
        self.by_zero: dict[int, _ByTarget[Copy]] = {q: {} for q in range(WORD_BITS)}
        self._copies = copies
        self._records: dict[tuple[int, Qubits, Qubits], bytes] = {}

    def _refill(
        self, target: int, control: Qubits, zero: Qubits, general: Callable[[], RecordArray]
    ) -> Copy | None:
        """Start a new block. Returns its first copy, or None for qubits without a block."""
        by_target = self._by_target(control, zero)
        if by_target is None or not 0 <= target < WORD_BITS:
            return None
        key = target, control, zero
        record = self._records.get(key)
        if record is None:
            record = self._records[key] = general().tobytes()
        count = _COPIES if len(self._records) < _MANY_BLOCKS else _FEW_COPIES
        copies = self._copies(bytearray(record * count))
        by_target[target] = copies.__next__
        return next(copies)

    def _by_target(self, control: Qubits, zero: Qubits) -> _ByTarget[Copy] | None:
        if isinstance(zero, int):
            return self.by_zero.get(zero)
        return self.by_control.get(control) if isinstance(control, int) else self.without_control


def _views(memory: bytearray) -> Iterator[RecordArray]:
    records: Any = np.frombuffer(memory, QPU_OP)
    return iter(records.reshape(-1, 1))


def _angle_views(memory: bytearray) -> Iterator[AngleCopy]:
    places = range(_ANGLE_PLACE, len(memory), RECORD_BYTES)
    return zip(_views(memory), repeat(memory), places)


class FrequentGates(_Blocks[RecordArray]):
    """The prepared records of a gate without parameters."""

    def __init__(self, general: Callable[[int, Qubits, Qubits], RecordArray]) -> None:
        """Start without blocks.

        Args:
            general: Builds the gate on a target with these controls and negated controls.
        """
        super().__init__(_views)
        self._general = general

    def prepare(self, target: int, control: Qubits, zero: Qubits) -> RecordArray:
        """Build a gate and prepare more of it.

        Args:
            target: The target.
            control: The control, or `NO_QUBITS`.
            zero: The negated control, or `NO_QUBITS`, if there is no control.
        """
        made = self._refill(target, control, zero, lambda: self._general(target, control, zero))
        return self._general(target, control, zero) if made is None else made


class FrequentAngleGates(_Blocks[AngleCopy]):
    """The prepared records of a gate with an angle."""

    def __init__(self, general: Callable[[float, int, Qubits, Qubits], RecordArray]) -> None:
        """Start without blocks.

        Args:
            general: Builds the gate with an angle on a target with these controls and negated
                controls.
        """
        super().__init__(_angle_views)
        self._general = general

    def prepare(
        self, angle_degrees: float, target: int, control: Qubits, zero: Qubits
    ) -> RecordArray:
        """Build a gate and prepare more of it.

        Args:
            angle_degrees: The angle in degrees.
            target: The target.
            control: The control, or `NO_QUBITS`.
            zero: The negated control, or `NO_QUBITS`, if there is no control.
        """
        angle = float(angle_degrees)
        made = self._refill(
            target, control, zero, lambda: self._general(0.0, target, control, zero)
        )
        if made is None:
            return self._general(angle, target, control, zero)
        record, memory, place = made
        put_angle(memory, place, angle)
        return record
