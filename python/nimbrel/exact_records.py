"""Which records have the same meaning on another filter as on the dense one.

The dense filter is the reference: it carries out every record that it accepts as docs/records.md
describes it. The tables here say which records a bit, a Clifford or a sparse filter carries out
with the same outcomes. An opcode that no filter carries out, or that all ignore, is in no table and
is no reason against a filter.
"""

from collections.abc import Callable
from typing import Any, Final, NamedTuple, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import Opcode
from nimbrel.register_trace import Words

__all__ = ["CLASSICAL", "CLIFFORD", "SPARSE", "Objection", "first_objection"]

_Bools: TypeAlias = Any
"""An array of booleans, one a record. The stubs of NumPy give comparisons no narrower type."""
_Rule: TypeAlias = Callable[["_Rows"], _Bools]

_GATES: Final = (
    *(Opcode.X, Opcode.Y, Opcode.PHASE, Opcode.H, Opcode.LELBOW, Opcode.RELBOW),
    *(Opcode.RX, Opcode.RY, Opcode.RZ, Opcode.T, Opcode.T_INV, Opcode.S, Opcode.S_INV, Opcode.Z),
    *(Opcode.ROOTX, Opcode.ROOTX_INV, Opcode.ROOTY, Opcode.ROOTY_INV),
)
_QUARTER, _HALF = 90.0, 180.0
_PAULI_STEP: Final = 45.0
_MOST_DEGREES: Final = 1e6  # the Clifford filter doubles the angle in 32 bits
_MOST_SPARSE_QUBITS: Final = 63


class _Rows:
    """All records of one opcode, word by word."""

    def __init__(self, words: Words, following: npt.NDArray[np.uint64]) -> None:
        self.targets: Words = words[:, 1]
        self.controls: Words = words[:, 2]
        self.angles = np.ascontiguousarray(words[:, 3]).view(np.float64)
        self.conditions: Words = words[:, 4]
        self.flags: Words = words[:, 5]
        self.negated: Words = words[:, 6]
        self.target_offsets: Words = words[:, 7]
        self.control_offsets: Words = words[:, 8]
        self.following = following

    def everything(self) -> _Bools:
        return np.ones(len(self.targets), dtype=bool)

    def without_controls(self) -> _Bools:
        return self.controls == 0

    def one_control(self) -> _Bools:
        single = (self.controls != 0) & (self.controls & (self.controls - np.uint64(1)) == 0)
        return single & (self.controls & self.negated == 0)

    def apart(self) -> _Bools:
        same_word = self.target_offsets == self.control_offsets
        return ~same_word | (self.targets & self.controls == 0)

    def two_targets(self) -> _Bools:
        rest = self.targets & (self.targets - np.uint64(1))
        return (self.targets != 0) & (rest != 0) & (rest & (rest - np.uint64(1)) == 0)

    def one_or_two_targets(self) -> _Bools:
        rest = self.targets & (self.targets - np.uint64(1))
        return (self.targets != 0) & (rest & (rest - np.uint64(1)) == 0)

    def without_flags(self) -> _Bools:
        return self.flags == 0

    def always(self) -> _Bools:
        return self.conditions <= 1


def _half_turn(rows: _Rows) -> _Bools:
    alone = (rows.targets == 0) & rows.one_control()
    return rows.without_controls() | alone


def _clifford_phase(rows: _Rows) -> _Bools:
    quarter = (np.abs(rows.angles) == _QUARTER) & rows.without_controls()
    return quarter | ((rows.angles == _HALF) & _half_turn(rows))


def _clifford_rotation(rows: _Rows) -> _Bools:
    turned = (np.abs(rows.angles) == _QUARTER) | (rows.angles == _HALF)
    return turned & rows.without_controls()


def _first_word_letters(rows: _Rows) -> _Bools:
    # The Clifford filter takes the number of its pivot from the first word, without its offset.
    letters = (rows.targets | rows.controls) != 0
    return letters & (rows.target_offsets == 0) & (rows.control_offsets == 0)


def _clifford_product_rotation(rows: _Rows) -> _Bools:
    with np.errstate(invalid="ignore"):
        steps = np.abs(rows.angles) <= _MOST_DEGREES
        steps &= np.remainder(rows.angles, _PAULI_STEP) == 0
    return steps & (rows.flags == 0) & _first_word_letters(rows)


def _one_sign(rows: _Rows) -> _Bools:
    # A measurement into negative flags may end above 0, where filters differ.
    first = rows.flags.view(np.int64)
    return (first >= 0) | (first <= -WORD_BITS)


def _sparse_product(rows: _Rows) -> _Bools:
    letters = rows.targets | rows.controls
    return (letters != 0) & (letters & rows.flags == 0)


def _extends_a_value(rows: _Rows) -> _Bools:
    # A gate of the Clifford filter drops controls that come by extension records alone.
    takers = np.isin(rows.following, [Opcode.WRITE, Opcode.PPR, Opcode.PPM])
    return rows.without_controls() | takers


_ALWAYS: Final[dict[int, _Rule]] = {
    int(opcode): _Rows.everything
    for opcode in (Opcode.CLEAR, Opcode.FREE, Opcode.FLAG_NAND, Opcode.JUMP_FWD, Opcode.LABEL)
}
_NEVER: Final = None

CLASSICAL: Final[dict[int, _Rule | None]] = {
    **dict.fromkeys(map(int, (*_GATES, Opcode.PPR, Opcode.PPM, Opcode.PCP)), _NEVER),
    **dict.fromkeys(map(int, (Opcode.X, Opcode.LELBOW, Opcode.RELBOW)), _Rows.apart),
    int(Opcode.SWAP): lambda rows: rows.one_or_two_targets() & rows.apart(),
    # A bit filter counts from flag 0 on, where others store nothing.
    int(Opcode.READ): lambda rows: (rows.flags != 0) | rows.one_or_two_targets(),
    int(Opcode.WRITE): _Rows.without_flags,
    int(Opcode.RESET): lambda rows: rows.targets != 0,
}
"""The records of a bit filter: the rule that a record must pass, or None if none passes."""

CLIFFORD: Final[dict[int, _Rule | None]] = {
    **dict.fromkeys(map(int, (*_GATES, Opcode.PCP)), _NEVER),
    **dict.fromkeys(map(int, (Opcode.Y, Opcode.H, Opcode.S, Opcode.S_INV)), _Rows.without_controls),
    int(Opcode.X): lambda rows: rows.without_controls() | (rows.one_control() & rows.apart()),
    int(Opcode.Z): _half_turn,
    int(Opcode.PHASE): _clifford_phase,
    int(Opcode.RZ): _clifford_rotation,
    int(Opcode.SWAP): lambda rows: rows.without_controls() & rows.one_or_two_targets(),
    int(Opcode.PPR): _clifford_product_rotation,
    int(Opcode.PPM): _first_word_letters,
    int(Opcode.READ): _one_sign,
    int(Opcode.WRITE): _Rows.without_flags,
    int(Opcode.EXTEND): _extends_a_value,
    int(Opcode.RESET): lambda rows: (rows.targets != 0) & (rows.targets < 2**32),
}
"""The records of a Clifford filter."""

SPARSE: Final[dict[int, _Rule | None]] = {
    **dict.fromkeys(map(int, _GATES), _Rows.apart),
    int(Opcode.SWAP): lambda rows: rows.two_targets() & rows.apart(),
    int(Opcode.PCP): _NEVER,
    int(Opcode.EXTEND): _NEVER,
    int(Opcode.PPR): _sparse_product,
    int(Opcode.PPM): lambda rows: (rows.targets | rows.controls) != 0,
    # The sparse filter stores the flags of a write from another word, and reads the condition of
    # a free from the word of its event code.
    int(Opcode.WRITE): lambda rows: rows.without_flags() & (rows.target_offsets == 0),
    int(Opcode.FREE): lambda rows: rows.always() & (rows.flags <= 1),
    int(Opcode.RESET): lambda rows: rows.targets <= _MOST_SPARSE_QUBITS,
}
"""The records of a sparse filter."""


class Objection(NamedTuple):
    """The first record that a filter does not carry out as the dense filter does.

    Attributes:
        record: Its index.
        opcode: Its opcode.
    """

    record: int
    opcode: int


def first_objection(
    words: Words, positions: dict[int, npt.NDArray[np.intp]], rules: dict[int, _Rule | None]
) -> Objection | None:
    """Find the first record that speaks against a filter.

    Args:
        words: The program, shape (n, 11).
        positions: The indices of the records of each opcode, ascending.
        rules: The table of the filter.
    """
    found: list[Objection] = []
    for opcode, places in positions.items():
        if opcode not in rules:
            continue
        rule = rules[opcode]
        if rule is None:
            found.append(Objection(int(places[0]), opcode))
            continue
        last = np.minimum(places + 1, len(words) - 1)
        passed = rule(_Rows(words[places], words[last, 0]))
        if not passed.all():
            found.append(Objection(int(places[np.argmin(passed)]), opcode))
    return min(found, default=None)
