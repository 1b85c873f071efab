"""The instruction record, its NumPy dtype, and programs of records.

A program is a one-dimensional array of `QPU_OP` records of 88 bytes each, without gaps. The engine
reads this buffer in place. Qubit 0 is the least significant bit of a mask; angles are in degrees.
"""

import operator
import struct
from collections.abc import Sequence
from typing import Any, Final, NamedTuple, SupportsFloat, SupportsIndex, TypeAlias, cast

import numpy as np
import numpy.typing as npt

RecordArray: TypeAlias = npt.NDArray[np.void]
"""A one-dimensional array of dtype `QPU_OP`, shape (n,)."""

QPU_OP: Final = np.dtype(
    [
        ("opcode", "<u8"),
        ("target_mask", "<u8"),
        ("cond_mask", "<u8"),
        ("angle", "<f8"),
        ("cond_flag", "<i8"),
        ("read_flag", "<i8"),
        ("cond_neg_mask", "<u8"),
        ("target_offset", "<u8"),
        ("cond_offset", "<u8"),
        ("reserved_a", "<u8"),
        ("reserved_b", "<u8"),
    ]
)
"""The dtype of one instruction record: eleven little-endian 64-bit words, 88 bytes, no padding."""

RECORD_FORMAT: Final = 1
"""Version of the record format.

It increases when the engine would read an existing program differently: when the fields, the number
of an opcode or the meaning of a word changes. A new opcode does not change it, because no existing
program uses the opcode.
"""


class Program(np.ndarray[Any, np.dtype[np.void]]):
    """A program: a one-dimensional array of dtype `QPU_OP` that prints as a disassembly.

    `program` and the builders of many gates return it. It is an ordinary array in every other
    respect: the engine takes it without a copy, and its records and words can be read and changed
    in place. `program["angle"]` is the plain array of that word. The builders of one operation
    return plain arrays, which NumPy makes in half the time.
    """

    __slots__ = ()

    def __getitem__(self, key: Any, /) -> Any:
        """Records are a `Program`; a word of all records is a plain array."""
        found = super().__getitem__(key)
        if type(found) is Program and found.dtype is not QPU_OP and found.dtype != QPU_OP:
            return found.view(np.ndarray)
        return found

    # Comparisons are plain arrays of booleans.
    def __eq__(self, other: object, /) -> Any:
        return self.view(np.ndarray) == other

    def __ne__(self, other: object, /) -> Any:
        return self.view(np.ndarray) != other

    def __str__(self) -> str:
        """One line a record; in a long program, a line for the records in the middle."""
        if not is_program(self):
            return str(self.view(np.ndarray))
        from nimbrel.disassembly import disassembly

        return disassembly(self)

    def _repr_html_(self) -> str | None:
        """A table with a row a record, for notebooks."""
        if not is_program(self):
            return None
        from nimbrel.disassembly import html_table

        return html_table(self)


def is_program(array: object) -> bool:
    """Whether an object is a one-dimensional array of records."""
    return isinstance(array, np.ndarray) and array.dtype == QPU_OP and array.ndim == 1


class Record(NamedTuple):
    """One instruction record as Python numbers, in the order of the fields of `QPU_OP`."""

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


_UNSIGNED = (0, 2**64 - 1)
_SIGNED = (-(2**63), 2**63 - 1)
_LIMITS: Final = tuple(
    (name, position, *(_SIGNED if name in ("cond_flag", "read_flag") else _UNSIGNED))
    for position, name in enumerate(Record._fields)
    if name != "angle"
)


RECORD_BYTES: Final = QPU_OP.itemsize
_pack_words: Final = struct.Struct("<3Qd2q5Q").pack


def _check_words(record: Record) -> Record:
    # NumPy drops a fraction without an error, and NumPy 1.x wraps an integer that does not fit.
    # Either would give a different program.
    words: list[Any] = list(record)
    for name, position, low, high in _LIMITS:
        try:
            word = operator.index(words[position])
        except TypeError:
            raise TypeError(f"{name} must be an integer, not {words[position]!r}") from None
        if not low <= word <= high:
            raise ValueError(f"{name} must be from {low} to {high}, not {word}")
        words[position] = word
    return Record(*words)


def _packed(record: Record) -> bytes:
    try:
        return _pack_words(*record)
    except struct.error:
        return _pack_words(*_check_words(record))


def pack(records: Sequence[Record]) -> RecordArray:
    """Convert records to an array that the engine takes.

    Args:
        records: Any number of records, in program order. Every word except `angle` may be any
            integer type, including NumPy's.

    Returns:
        The records, shape (len(records),), dtype `QPU_OP`.

    Raises:
        TypeError: If a word other than `angle` is not an integer.
        ValueError: If a number does not fit its 64-bit word.
    """
    memory = bytearray().join([_packed(entry) for entry in records])
    made: RecordArray = np.ndarray((len(records),), QPU_OP, memory)
    return made


def record(opcode: SupportsIndex, **fields: SupportsFloat | SupportsIndex) -> RecordArray:
    """Make a single record of any opcode; fields that are not given are 0.

    Args:
        opcode: The full 64-bit opcode, tag included: an `Opcode` or any number.
        **fields: Other words by their names in `QPU_OP`. All are integers, except `angle`, which is
            a number of degrees.

    Returns:
        The record, shape (1,), dtype `QPU_OP`.

    Raises:
        TypeError: If a field has no such name, or a word other than `angle` is not an
            integer.
        ValueError: If a number does not fit its 64-bit word.
    """
    angle = float(fields.pop("angle", 0.0))
    words: dict[str, Any] = {"opcode": opcode, **fields}
    return pack([Record(angle=angle, **words)])


def program(*parts: RecordArray) -> Program:
    """Join arrays of records into one contiguous program.

    Args:
        *parts: Arrays of dtype `QPU_OP` and shape (k,), in program order. No parts give an empty
            program.

    Returns:
        All records, shape (n,), dtype `QPU_OP`, C-contiguous. A single contiguous part is returned
        without a copy.

    Raises:
        ValueError: If a part is not a one-dimensional `QPU_OP` array.
    """
    try:
        for part in parts:
            # The identity comes first: comparing two structured dtypes takes microseconds.
            if (part.dtype is not QPU_OP and part.dtype != QPU_OP) or part.ndim != 1:
                raise AttributeError
    except AttributeError:
        raise ValueError("a program is made of one-dimensional arrays of dtype QPU_OP") from None
    if len(parts) == 1:
        return _as_program(parts[0])
    try:
        memory = bytearray().join(cast("tuple[memoryview, ...]", parts))
    except (BufferError, TypeError, ValueError):  # a part is not contiguous
        return _as_program(np.concatenate(parts))
    joined: Program = Program((len(memory) // RECORD_BYTES,), QPU_OP, memory)
    return joined


def _as_program(array: RecordArray) -> Program:
    if isinstance(array, Program) and array.flags.c_contiguous:
        return array
    made: Program = np.ascontiguousarray(array).view(Program)
    return made
