"""Builders of many gates of one kind from arrays: `h.each`, `rx.each`, `swap.each`.

Row i of the arrays gives gate i, with one target and at most one control and one negated control.
The records are those of a loop over the builder of one gate, in the same order.
"""

from collections.abc import Callable, Sequence
from typing import Final, NamedTuple, Protocol, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import Opcode
from nimbrel.records import QPU_OP, Program, RecordArray, program

__all__ = ["AngleGates", "Gates", "Numbers", "Swaps", "angle_gates", "gates", "swaps"]

Numbers: TypeAlias = npt.ArrayLike
"""One number for all gates, or one a gate, shape (n,)."""

_Integers: TypeAlias = npt.NDArray[np.int64]
_Words: TypeAlias = npt.NDArray[np.uint64]

_DOC: Final = """Build many gates of this kind, one gate a row.

Args:
    {leading}
    controls: A control of each gate, shape (n,), or one number for all; None for none.
    zeros: A negated control of each gate, likewise.
    flag: The classical condition of each gate, shape (n,), or one number for all.

Returns:
    The records of all gates in order, dtype `QPU_OP`. A gate has one record, and an extension
    record before it if its two controls, or its two targets, are in different 64-qubit words.

Raises:
    TypeError: As the builder of one gate. The text names the first bad gate by its index.
    ValueError: Likewise, or if the arrays differ in length.
"""


class Gates(Protocol):
    """A builder of many gates without parameters."""

    __qualname__: str

    def __call__(
        self,
        targets: Numbers,
        *,
        controls: Numbers | None = None,
        zeros: Numbers | None = None,
        flag: Numbers = 0,
    ) -> Program:
        """Build the records of all gates."""
        ...


class AngleGates(Protocol):
    """A builder of many gates with an angle in degrees each."""

    __qualname__: str

    def __call__(
        self,
        angles_degrees: Numbers,
        targets: Numbers,
        *,
        controls: Numbers | None = None,
        zeros: Numbers | None = None,
        flag: Numbers = 0,
    ) -> Program:
        """Build the records of all gates."""
        ...


class Swaps(Protocol):
    """A builder of many swaps."""

    __qualname__: str

    def __call__(
        self,
        a: Numbers,
        b: Numbers,
        *,
        controls: Numbers | None = None,
        zeros: Numbers | None = None,
        flag: Numbers = 0,
    ) -> Program:
        """Build the records of all swaps."""
        ...


def gates(opcode: Opcode, build: Callable[..., RecordArray]) -> Gates:
    """Make the builder of many gates.

    Args:
        opcode: The opcode of the gate.
        build: The builder of one gate. It builds what the arrays cannot, and gives the errors.
    """

    def each(
        targets: Numbers,
        *,
        controls: Numbers | None = None,
        zeros: Numbers | None = None,
        flag: Numbers = 0,
    ) -> Program:
        rows = _Rows(build, opcode, {"targets": targets}, controls, zeros, flag)
        return rows.records()

    each.__doc__ = _DOC.format(leading="targets: The target of each gate, integers, shape (n,).")
    return each


def angle_gates(opcode: Opcode, build: Callable[..., RecordArray]) -> AngleGates:
    """Make the builder of many gates with angles; see `gates`."""

    def each(
        angles_degrees: Numbers,
        targets: Numbers,
        *,
        controls: Numbers | None = None,
        zeros: Numbers | None = None,
        flag: Numbers = 0,
    ) -> Program:
        qubits = {"targets": targets}
        return _Rows(build, opcode, qubits, controls, zeros, flag, angles_degrees).records()

    each.__doc__ = _DOC.format(
        leading="angles_degrees: The angle of each gate in degrees, shape (n,), or one for all.\n"
        "    targets: The target of each gate, integers, shape (n,)."
    )
    return each


def swaps(opcode: Opcode, build: Callable[..., RecordArray]) -> Swaps:
    """Make the builder of many swaps; see `gates`."""

    def each(
        a: Numbers,
        b: Numbers,
        *,
        controls: Numbers | None = None,
        zeros: Numbers | None = None,
        flag: Numbers = 0,
    ) -> Program:
        return _Rows(build, opcode, {"a": a, "b": b}, controls, zeros, flag).records()

    each.__doc__ = _DOC.format(
        leading="a: One qubit of each swap, integers, shape (n,).\n"
        "    b: The other qubit of each swap, likewise."
    )
    return each


class _Rows:
    """The arguments of many gates."""

    def __init__(
        self,
        build: Callable[..., RecordArray],
        opcode: Opcode,
        qubits: dict[str, Numbers],
        controls: Numbers | None,
        zeros: Numbers | None,
        flag: Numbers,
        angles: Numbers | None = None,
    ) -> None:
        self._build = build
        self._opcode = opcode
        self._leading = {**({} if angles is None else {"angles_degrees": angles}), **qubits}
        named = {"controls": controls, "zeros": zeros, "flag": flag}
        self._named = {name: values for name, values in named.items() if values is not None}
        self._count = self._common_length()

    def _common_length(self) -> int:
        # The qubits come last among the leading arguments, and each gate has its own.
        name, qubits = list(self._leading.items())[-1]
        shape = np.shape(qubits)
        if len(shape) != 1:
            raise ValueError(f"{name} must have shape (n,), not {shape}")
        for other, values in {**self._leading, **self._named}.items():
            if np.shape(values) not in ((), shape):
                raise ValueError(f"{other} must have shape {shape}, not {np.shape(values)}")
        return int(shape[0])

    def records(self) -> Program:
        """Build the records of all gates."""
        try:
            return self._by_arrays()
        except _NotSimpleError:
            return self._one_by_one()

    def _by_arrays(self) -> Program:
        leading = dict(self._leading)
        angles = _angles(leading.pop("angles_degrees", 0.0))
        targets = _Masks.of([_qubits(values) for values in leading.values()])
        controls = {
            name: _qubits(self._named[name])
            for name in ("controls", "zeros")
            if name in self._named
        }
        conditions = _Masks.of(list(controls.values()))
        words = np.zeros((self._count, 11), dtype=np.uint64)
        extensions = np.zeros_like(words) if targets.wide or conditions.wide else words[:0]
        words[:, 0] = self._opcode
        words[:, 3] = angles.view(np.uint64)
        words[:, 4] = _integers(self._named["flag"]).view(np.uint64)
        for masks, position in ((targets, 1), (conditions, 2)):
            masks.put(words, extensions, position)
        if "zeros" in controls:
            _put_negated(controls["zeros"], words, extensions)
        return _interleaved(extensions, words).reshape(-1).view(QPU_OP).view(Program)

    def _one_by_one(self) -> Program:
        columns = {**self._leading, **self._named}
        each = [_items(values, self._count) for values in columns.values()]
        parts = []
        for index, numbers in enumerate(zip(*each, strict=True)):
            leading = numbers[: len(self._leading)]
            named = dict(zip(self._named, numbers[len(self._leading) :], strict=True))
            try:
                parts.append(self._build(*leading, **named))
            except (TypeError, ValueError) as error:
                raise type(error)(f"gate {index}: {error}") from None
        return program(*parts)


class _NotSimpleError(Exception):
    """A number is wrong or of an unusual type, so the builder of one gate must look at it."""


def _integers(values: Numbers) -> _Integers:
    array = np.asarray(values)
    if array.dtype.kind != "i" and not (array.dtype.kind == "u" and array.itemsize < 8):
        raise _NotSimpleError
    return array.astype(np.int64, copy=False)


def _qubits(values: Numbers) -> _Integers:
    array = _integers(values)
    if array.size and array.min() < 0:
        raise _NotSimpleError
    return array


def _angles(values: Numbers) -> npt.NDArray[np.float64]:
    array = np.asarray(values)
    if array.dtype.kind not in "iuf":
        raise _NotSimpleError
    return array.astype(np.float64)


def _items(values: Numbers, count: int) -> Sequence[object]:
    # A list keeps its own items: an array would make one float of all of them.
    if np.ndim(values) == 0:
        return [values] * count
    return list(values)  # type: ignore[arg-type]


def _bits(qubits: _Integers) -> _Words:
    bits: _Words = np.uint64(1) << (qubits & (WORD_BITS - 1)).astype(np.uint64)
    return bits


def _offsets(qubits: _Integers) -> _Words:
    return (qubits & -WORD_BITS).astype(np.uint64)


class _Masks(NamedTuple):
    """The masks of up to two qubits a gate: that of the lower word and that of the higher one.

    Attributes:
        low: The mask of the lower word; it belongs to the main record.
        low_offset: The offset of that word.
        high: The mask of the higher word, 0 without one; it belongs to an extension record.
        high_offset: The offset of that word, 0 without one.
        wide: Whether any gate has a higher word.
    """

    low: _Words
    low_offset: _Words
    high: _Words
    high_offset: _Words
    wide: bool

    @classmethod
    def of(cls, qubits: Sequence[_Integers]) -> "_Masks":
        """Make the masks of one or two qubits a gate, or of none."""
        nothing = np.zeros((), dtype=np.uint64)
        if not qubits:
            return cls(nothing, nothing, nothing, nothing, wide=False)
        first = qubits[0]
        if len(qubits) == 1:
            return cls(_bits(first), _offsets(first), nothing, nothing, wide=False)
        if (first == qubits[1]).any():
            raise _NotSimpleError
        lower, upper = np.minimum(*qubits), np.maximum(*qubits)
        low_offset, high_offset = _offsets(lower), _offsets(upper)
        apart = low_offset != high_offset
        return cls(
            _bits(lower) | np.where(apart, nothing, _bits(upper)),
            low_offset,
            np.where(apart, _bits(upper), nothing),
            np.where(apart, high_offset, nothing),
            wide=bool(apart.any()),
        )

    def put(self, words: _Words, extensions: _Words, position: int) -> None:
        """Write the masks and their offsets, the latter six words behind."""
        words[:, position] = self.low
        words[:, position + 6] = self.low_offset
        if len(extensions):
            extensions[:, position] = self.high
            extensions[:, position + 6] = self.high_offset


def _put_negated(zeros: _Integers, words: _Words, extensions: _Words) -> None:
    bits, offsets = _bits(zeros), _offsets(zeros)
    for records in (words, extensions):
        if len(records):
            inside = (records[:, 8] == offsets) & (records[:, 2] & bits != 0)
            records[:, 6] = np.where(inside, bits, np.uint64(0))


def _interleaved(extensions: _Words, words: _Words) -> _Words:
    """Put each extension record that has a mask before its gate."""
    if not len(extensions):
        return words
    needed = (extensions[:, 1] | extensions[:, 2]) != 0
    extensions[:, 0] = Opcode.EXTEND
    # Every gate is preceded by its extension record, and the empty ones are then left out.
    both = np.stack([extensions, words], axis=1).reshape(-1, words.shape[1])
    keep = np.ones(len(both), dtype=bool)
    keep[::2] = needed
    kept: _Words = both[keep]
    return kept
