"""The records that one rank's engine gets for a run of gates.

Controls in the numbers of the ranks are decided by this rank's number and taken off. A diagonal
gate on such a qubit becomes a phase of the whole part. No record gives a whole part a phase, but
two do: one with a qubit as a control, and one with it as a negated control. Every amplitude meets
the arithmetic of the record in the program.
"""

from __future__ import annotations

from typing import Final, NamedTuple

import numpy as np

from nimbrel.mpi.operations import (
    ANGLE,
    CONTROLS,
    NEGATED,
    PHASES,
    READ_FLAG,
    TARGETS,
    Bools,
)
from nimbrel.mpi.placement import Placement
from nimbrel.mpi.word_bits import ZERO, odd_parity
from nimbrel.opcodes import Opcode
from nimbrel.register_trace import Words

__all__ = ["records_of_rank"]

_SIGN: Final = np.uint64(1 << 63)
_HALF: Final = 0.5


class _Controls(NamedTuple):
    """The controls of all records of a run.

    Attributes:
        hold: Whether those in the numbers hold on this rank.
        local: Those inside the part, as bits of an index.
        negated: The negated ones among these.
    """

    hold: Bools
    local: Words
    negated: Words


def records_of_rank(words: Words, placement: Placement, number: int) -> Words:
    """Rewrite gates for one rank.

    Args:
        words: Gates in plain form, shape (n, 11). No qubit that they mix is in the numbers.
        placement: Where the qubits are.
        number: The number of the rank.

    Returns:
        Records on the qubits of the part, shape (m, 11).
    """
    to_local, to_number = placement.maps()
    rotations = words[:, 0] == Opcode.PPR
    controls = _controls(words, rotations, placement, number)
    made = words.copy()
    made[:, TARGETS] = to_local(words[:, TARGETS])
    turns = (words[:, 0] == Opcode.RZ) & (made[:, TARGETS] == 0)
    if turns.any():
        _turns_as_phases(made, words, turns, to_number(words[:, TARGETS]), number)
    made[:, CONTROLS] = controls.local
    made[:, NEGATED] = controls.negated
    if rotations.any():
        z_mask = words[:, CONTROLS]
        minus = rotations & odd_parity(to_number(z_mask) & np.uint64(number))
        made[minus, ANGLE] ^= _SIGN
        made[rotations, CONTROLS] = to_local(z_mask[rotations])
        made[rotations, READ_FLAG] = controls.local[rotations]
    made = made[controls.hold]
    return _with_whole_phases(made, np.uint64(1 << (placement.num_local - 1)))


def _controls(words: Words, rotations: Bools, placement: Placement, number: int) -> _Controls:
    to_local, to_number = placement.maps()
    masks = np.where(rotations, words[:, READ_FLAG], words[:, CONTROLS])
    negated = words[:, NEGATED] & masks
    wanted = to_number(masks)
    hold = np.uint64(number) & wanted == wanted ^ to_number(negated)
    return _Controls(hold, to_local(masks), to_local(negated))


def _turns_as_phases(made: Words, words: Words, turns: Bools, targets: Words, number: int) -> None:
    """Rotations about Z of a qubit in the numbers: the phase of this rank's value of the qubit."""
    half = words[turns, ANGLE].view(np.float64) * _HALF
    is_one = targets[turns] & np.uint64(number) != 0
    made[turns, 0] = Opcode.PHASE
    made[turns, ANGLE] = np.where(is_one, half, -half).view(np.uint64)


def _with_whole_phases(words: Words, pivot: np.uint64) -> Words:
    """Write phases of the whole part as two records on one qubit.

    Args:
        words: Records; those that name no qubit of the part are phases of all of it.
        pivot: The qubit, as a mask.
    """
    bare = words[:, TARGETS] | words[:, CONTROLS] == 0
    phases = bare & PHASES.among(words[:, 0])
    rotations = bare & (words[:, 0] == Opcode.PPR)
    if not (phases.any() or rotations.any()):
        return words
    sources = np.repeat(np.arange(len(words)), np.where(phases | rotations, 2, 1))
    is_second = np.append(False, sources[1:] == sources[:-1])
    made: Words = words[sources]
    phases, rotations = phases[sources], rotations[sources]
    made[phases, CONTROLS] = pivot
    made[phases, NEGATED] = np.where(is_second, pivot, ZERO)[phases]
    if not rotations.any():
        return made
    # Z on the pivot gives the part with the pivot at 1 the other sign, which the angle undoes.
    own = made[:, READ_FLAG] & pivot
    conflict = rotations & (own != 0) & ((made[:, NEGATED] & pivot != 0) != is_second)
    made[rotations, CONTROLS] = pivot
    made[rotations, READ_FLAG] |= pivot
    made[rotations & is_second, NEGATED] |= pivot
    made[rotations & ~is_second, ANGLE] ^= _SIGN
    kept: Words = made[~conflict]
    return kept
