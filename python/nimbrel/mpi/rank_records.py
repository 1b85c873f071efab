"""The records that one rank's engine gets for a run of gates.

Controls in the numbers of the ranks are decided by this rank's number and taken off. A diagonal
gate on such a qubit becomes a phase of the whole part. No record gives a whole part a phase, but
two do: one with a qubit as a control, and one with it as a negated control. Every amplitude meets
the arithmetic of the record in the program.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Final, NamedTuple, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.mpi.opcode_words import PHASE, PPR, RZ
from nimbrel.mpi.operations import (
    ANGLE,
    CONTROLS,
    NEGATED,
    PHASES,
    READ_FLAG,
    TARGETS,
    Bools,
)
from nimbrel.mpi.word_bits import ZERO, BitMaps, odd_parity
from nimbrel.register_trace import Words

__all__ = ["Stretch", "records_of_rank"]

Origins: TypeAlias = npt.NDArray[np.intp]

_SIGN: Final = np.uint64(1 << 63)
_HALF: Final = 0.5


class Stretch(NamedTuple):
    """Gates in plain form that run on one placement.

    Attributes:
        words: The gates, shape (n, 11). No qubit that they mix is in the numbers of the ranks.
        places: The places of the qubits.
        number: The number of the rank.
    """

    words: Words
    places: tuple[int, ...]
    number: int


def records_of_rank(stretches: Sequence[Stretch], num_local: int) -> list[Words]:
    """Rewrite gates for one rank.

    Args:
        stretches: The gates, one stretch at least.
        num_local: Qubits inside a part.

    Returns:
        For each stretch the records on the qubits of the part, shape (m, 11).
    """
    words = np.concatenate([stretch.words for stretch in stretches])
    origins = np.repeat(np.arange(len(stretches)), [len(stretch.words) for stretch in stretches])
    rotations = words[:, 0] == PPR
    placed = _Placed(words, rotations, stretches, origins, num_local)
    number = np.array([stretch.number for stretch in stretches], dtype=np.uint64)[origins]
    turns = (words[:, 0] == RZ) & (placed.local[_TARGETS] == 0)
    if turns.any():
        _turns_as_phases(words, turns, placed.number[_TARGETS] & number != 0)
    if rotations.any():
        minus = rotations & odd_parity(placed.number[_LETTERS_Z] & number)
        words[minus, ANGLE] ^= _SIGN
        words[rotations, READ_FLAG] = placed.local[_CONTROLS, rotations]
    words[:, TARGETS] = placed.local[_TARGETS]
    words[:, CONTROLS] = placed.local[_LETTERS_Z if rotations.any() else _CONTROLS]
    words[:, NEGATED] = placed.local[_NEGATED]
    wanted = placed.number[_CONTROLS]
    holds = number & wanted == wanted ^ placed.number[_NEGATED]
    if not holds.all():
        words, origins = words[holds], origins[holds]
    words, origins = _with_whole_phases(words, origins, np.uint64(1 << (num_local - 1)))
    return np.split(words, np.searchsorted(origins, np.arange(1, len(stretches))))


_TARGETS, _CONTROLS, _NEGATED, _LETTERS_Z = range(4)


class _Placed:
    """The masks of records by places, shape (3 or 4, n): rows `_TARGETS` to `_LETTERS_Z`.

    The last row is there if there are rotations.

    Attributes:
        local: The qubits inside the part, as bits of an index.
        number: The others, as bits of a number.
    """

    def __init__(
        self,
        words: Words,
        rotations: Bools,
        stretches: Sequence[Stretch],
        origins: Origins,
        num_local: int,
    ) -> None:
        with_rotations = bool(rotations.any())
        masks = np.empty((4 if with_rotations else 3, len(words)), dtype=np.uint64)
        masks[_TARGETS] = words[:, TARGETS]
        masks[_CONTROLS] = words[:, CONTROLS]
        if with_rotations:
            masks[_LETTERS_Z] = words[:, CONTROLS]
            masks[_CONTROLS, rotations] = words[rotations, READ_FLAG]
        np.bitwise_and(words[:, NEGATED], masks[_CONTROLS], out=masks[_NEGATED])
        move = BitMaps(np.array([stretch.places for stretch in stretches], dtype=np.uint64))
        moved = move(masks, origins)
        self.local: Words = moved & np.uint64((1 << num_local) - 1)
        self.number: Words = moved >> np.uint64(num_local)


def _turns_as_phases(words: Words, turns: Bools, are_one: Bools) -> None:
    """Write rotations about Z of qubits in the numbers as phases of the part."""
    half = words[turns, ANGLE].view(np.float64) * _HALF
    words[turns, 0] = PHASE
    words[turns, ANGLE] = np.where(are_one[turns], half, -half).view(np.uint64)


def _with_whole_phases(words: Words, origins: Origins, pivot: np.uint64) -> tuple[Words, Origins]:
    """Write phases of the whole part as two records on one qubit.

    Args:
        words: Records; those that name no qubit of the part are phases of all of it.
        origins: The stretch of each record.
        pivot: The qubit, as a mask.
    """
    bare = words[:, TARGETS] | words[:, CONTROLS] == 0
    phases = bare & PHASES.among(words[:, 0])
    rotations = bare & (words[:, 0] == PPR)
    if not (phases.any() or rotations.any()):
        return words, origins
    sources = np.repeat(np.arange(len(words)), np.where(phases | rotations, 2, 1))
    is_second = np.append(False, sources[1:] == sources[:-1])
    made: Words = words[sources]
    phases, rotations = phases[sources], rotations[sources]
    made[phases, CONTROLS] = pivot
    made[phases, NEGATED] = np.where(is_second, pivot, ZERO)[phases]
    if not rotations.any():
        return made, origins[sources]
    # Z on the pivot gives the part with the pivot at 1 the other sign, which the angle undoes.
    own = made[:, READ_FLAG] & pivot
    conflict = rotations & (own != 0) & ((made[:, NEGATED] & pivot != 0) != is_second)
    made[rotations, CONTROLS] = pivot
    made[rotations, READ_FLAG] |= pivot
    made[rotations & is_second, NEGATED] |= pivot
    made[rotations & ~is_second, ANGLE] ^= _SIGN
    return made[~conflict], origins[sources[~conflict]]
