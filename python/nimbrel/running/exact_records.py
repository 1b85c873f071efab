"""Which records have the same meaning on another filter as on the dense one.

The dense filter is the reference: it carries out every record that it accepts as docs/records.md
describes it. The tables here say which records a bit, a Clifford or a sparse filter carries out
with the same outcomes. An opcode that no filter carries out, or that all ignore, is in no table and
is no reason against a filter.
"""

from collections.abc import Callable
from typing import Final, NamedTuple, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.opcodes import Opcode
from nimbrel.register_trace import Words
from nimbrel.running.record_columns import MOST_SPARSE_QUBITS, Bools, RecordColumns, traits_of

__all__ = ["CLASSICAL", "CLIFFORD", "SPARSE", "Objection", "first_objection"]

_Rule: TypeAlias = Callable[["RecordColumns"], Bools]

_GATES: Final = (
    *(Opcode.X, Opcode.Y, Opcode.PHASE, Opcode.H, Opcode.LELBOW, Opcode.RELBOW),
    *(Opcode.RX, Opcode.RY, Opcode.RZ, Opcode.T, Opcode.T_INV, Opcode.S, Opcode.S_INV, Opcode.Z),
    *(Opcode.ROOTX, Opcode.ROOTX_INV, Opcode.ROOTY, Opcode.ROOTY_INV),
)
_PHASES: Final = (Opcode.PHASE, Opcode.T, Opcode.T_INV, Opcode.S, Opcode.S_INV)
_QUARTER, _HALF = 90.0, 180.0
_PAULI_STEP: Final = 45.0
_MOST_DEGREES: Final = 1e6  # the Clifford filter doubles the angle in 32 bits
_FIRST_STORED_FLAG: Final = 2


def _half_turn(rows: RecordColumns) -> Bools:
    alone = (rows.targets == 0) & rows.one_control()
    return rows.without_controls() | alone


def _clifford_phase(rows: RecordColumns) -> Bools:
    quarter = (np.abs(rows.angles) == _QUARTER) & rows.without_controls()
    return (quarter | ((rows.angles == _HALF) & _half_turn(rows))) & rows.plain_targets()


def _clifford_rotation(rows: RecordColumns) -> Bools:
    turned = (np.abs(rows.angles) == _QUARTER) | (rows.angles == _HALF)
    return turned & rows.without_controls()


def _first_word_letters(rows: RecordColumns) -> Bools:
    # The Clifford filter takes the number of its pivot from the first word, without its offset.
    letters = (rows.targets | rows.controls) != 0
    return letters & (rows.target_offsets == 0) & (rows.control_offsets == 0)


def _clifford_product_rotation(rows: RecordColumns) -> Bools:
    with np.errstate(invalid="ignore"):
        steps = np.abs(rows.angles) <= _MOST_DEGREES
        steps &= np.remainder(rows.angles, _PAULI_STEP) == 0
    return steps & (rows.flags == 0) & _first_word_letters(rows)


def _one_sign(rows: RecordColumns) -> Bools:
    # A measurement into negative flags may end above 1, where filters differ.
    first = rows.flags.view(np.int64)
    return (
        (first >= 0) | (first + _counts(rows.targets) <= _FIRST_STORED_FLAG) | rows.program.extended
    )


def _counts(masks: Words) -> npt.NDArray[np.int64]:
    octets = np.ascontiguousarray(masks).view(np.uint8).reshape(-1, 8)
    counts: npt.NDArray[np.int64] = np.unpackbits(octets, axis=1).sum(axis=1, dtype=np.int64)
    return counts


def _counts_no_flags(rows: RecordColumns) -> Bools:
    # A bit filter counts from flag 0 on, where others store nothing.
    return (rows.flags != 0) | (rows.at_most_two_targets() & (not rows.program.extended))


def _sparse_product(rows: RecordColumns) -> Bools:
    letters = rows.targets | rows.controls
    return (letters != 0) & (letters & rows.flags == 0)


def _extends_a_value(rows: RecordColumns) -> Bools:
    # A gate of the Clifford filter drops controls that come by extension records alone.
    takers = np.isin(rows.following, [Opcode.WRITE, Opcode.PPR, Opcode.PPM])
    return rows.without_controls() | takers


_NEVER: Final = None

CLASSICAL: Final[dict[int, _Rule | None]] = {
    **dict.fromkeys(map(int, (*_GATES, Opcode.PPR, Opcode.PPM, Opcode.PCP)), _NEVER),
    **dict.fromkeys(
        map(int, (Opcode.X, Opcode.LELBOW, Opcode.RELBOW)),
        lambda rows: rows.apart() & rows.negated_controls_only(),
    ),
    int(Opcode.SWAP): lambda rows: rows.plain_swap() & rows.apart() & rows.negated_controls_only(),
    int(Opcode.READ): _counts_no_flags,
    int(Opcode.WRITE): lambda rows: (
        rows.without_flags() & rows.control_words() & rows.value_of_targets()
    ),
    int(Opcode.RESET): RecordColumns.size,
}
"""The records of a bit filter: the rule that a record must pass, or None if none passes."""

CLIFFORD: Final[dict[int, _Rule | None]] = {
    **dict.fromkeys(map(int, (*_GATES, Opcode.PCP)), _NEVER),
    **dict.fromkeys(
        map(int, (Opcode.Y, Opcode.H)),
        lambda rows: rows.without_controls() & rows.target_words(),
    ),
    **dict.fromkeys(
        map(int, (Opcode.S, Opcode.S_INV)),
        lambda rows: rows.without_controls() & rows.plain_targets() & rows.target_words(),
    ),
    int(Opcode.X): lambda rows: (
        (rows.without_controls() | (rows.one_control() & rows.apart()))
        & rows.target_words()
        & rows.control_words()
    ),
    int(Opcode.Z): lambda rows: _half_turn(rows) & rows.target_words() & rows.control_words(),
    int(Opcode.PHASE): lambda rows: (
        _clifford_phase(rows) & rows.target_words() & rows.control_words()
    ),
    int(Opcode.RZ): lambda rows: _clifford_rotation(rows) & rows.target_words(),
    int(Opcode.SWAP): lambda rows: (
        rows.without_controls() & rows.plain_swap() & rows.target_words()
    ),
    int(Opcode.PPR): _clifford_product_rotation,
    int(Opcode.PPM): _first_word_letters,
    int(Opcode.READ): lambda rows: _one_sign(rows) & rows.target_words(),
    int(Opcode.WRITE): lambda rows: (
        rows.without_flags() & rows.target_words() & rows.control_words() & rows.value_of_targets()
    ),
    **dict.fromkeys(map(int, (Opcode.CLEAR, Opcode.FREE)), RecordColumns.target_words),
    int(Opcode.EXTEND): _extends_a_value,
    int(Opcode.RESET): lambda rows: rows.size() & (rows.targets < 2**32),
}
"""The records of a Clifford filter."""

SPARSE: Final[dict[int, _Rule | None]] = {
    **dict.fromkeys(map(int, _GATES), RecordColumns.apart),
    **dict.fromkeys(map(int, _PHASES), lambda rows: rows.apart() & rows.plain_phases()),
    int(Opcode.SWAP): lambda rows: rows.two_targets() & rows.plain_targets() & rows.apart(),
    int(Opcode.PCP): _NEVER,
    int(Opcode.EXTEND): _NEVER,
    int(Opcode.PPR): _sparse_product,
    int(Opcode.PPM): lambda rows: (rows.targets | rows.controls) != 0,
    # The sparse filter stores the flags of a write from another word, and reads the condition of
    # a free from the word of its event code.
    int(Opcode.WRITE): lambda rows: rows.without_flags() & (rows.target_offsets == 0),
    int(Opcode.FREE): lambda rows: rows.always() & (rows.flags <= 1),
    int(Opcode.RESET): lambda rows: rows.targets <= MOST_SPARSE_QUBITS,
}
"""The records of a sparse filter."""


def _takers(words: Words) -> npt.NDArray[np.intp]:
    """The next record behind each one that is no extension; the last one stands for none."""
    takers = np.flatnonzero(words[:, 0] != Opcode.EXTEND)
    following = np.searchsorted(takers, np.arange(len(words)), side="right")
    found: npt.NDArray[np.intp] = takers[np.minimum(following, len(takers) - 1)]
    return found


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
    program = traits_of(words, positions)
    takers = _takers(words) if program.extended else None
    for opcode, places in positions.items():
        if opcode not in rules:
            continue
        rule = rules[opcode]
        if rule is None:
            found.append(Objection(int(places[0]), opcode))
            continue
        following = words[places if takers is None else takers[places], 0]
        passed = rule(RecordColumns(words[places], following, program))
        if not passed.all():
            found.append(Objection(int(places[np.argmin(passed)]), opcode))
    return min(found, default=None)
