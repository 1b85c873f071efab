"""Gate records in one plain form, which a plan for many ranks can move around.

The plain form of a program has these records only. All have the classical condition 0, and all
masks lie inside the register.

pair gates    X, Y, Hadamard, roots, rotations: one target, which is not among the controls
diagonal      phases, S, T, Z: no target; they act where all controls hold, and the target has
              become one more control
swap          two targets without controls
rotation      a Pauli product rotation, as it was
"""

from __future__ import annotations

from typing import Final, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.mpi.opcode_words import PPR, RZ, SWAP, X
from nimbrel.mpi.word_bits import ONE, ZERO, bit_counts, highest_bits, lowest_bits
from nimbrel.opcodes import Opcode
from nimbrel.register_trace import Words

__all__ = [
    "ANGLE",
    "COND_FLAG",
    "CONTROLS",
    "FLIPS",
    "NEGATED",
    "PAIR_GATES",
    "PHASES",
    "READ_FLAG",
    "TARGETS",
    "Bools",
    "OpcodeSet",
    "plain_form",
]

Bools: TypeAlias = npt.NDArray[np.bool_]

TARGETS, CONTROLS, ANGLE, COND_FLAG, READ_FLAG, NEGATED = 1, 2, 3, 4, 5, 6
"""Positions of the words in a record."""


class OpcodeSet:
    """Some opcodes, found in arrays of opcodes by one search."""

    def __init__(self, *opcodes: int) -> None:
        """Take the opcodes, one at least."""
        self.opcodes = opcodes
        self._sorted = np.array(sorted(opcodes), dtype=np.uint64)

    def among(self, opcodes: Words) -> Bools:
        """Which opcodes are in the set, shape (n,)."""
        places = np.searchsorted(self._sorted, opcodes)
        np.minimum(places, len(self._sorted) - 1, out=places)
        found: Bools = self._sorted[places] == opcodes
        return found


FLIPS: Final = OpcodeSet(Opcode.X, Opcode.LELBOW, Opcode.RELBOW)
PAIR_GATES: Final = OpcodeSet(
    *FLIPS.opcodes,
    *(Opcode.Y, Opcode.H, Opcode.RX, Opcode.RY, Opcode.RZ),
    *(Opcode.ROOTX, Opcode.ROOTX_INV, Opcode.ROOTY, Opcode.ROOTY_INV),
)
PHASES: Final = OpcodeSet(
    *(Opcode.PHASE, Opcode.Z, Opcode.S, Opcode.S_INV, Opcode.T, Opcode.T_INV),
)
_SWAP_STEPS: Final = 3


def plain_form(words: Words, num_qubits: int) -> Words:
    """Rewrite gate records in the plain form.

    Args:
        words: Gate records whose classical conditions hold, shape (n, 11). There is no batch of
            Pauli products among them, and `refusals` accepts them.
        num_qubits: Qubits of the register.

    Returns:
        The same gates, shape (m, 11).
    """
    made = words.copy()
    made[:, COND_FLAG] = 0
    opcodes = made[:, 0]
    rotations = opcodes == PPR
    register = np.uint64((1 << num_qubits) - 1)
    made[:, TARGETS] &= register
    made[:, CONTROLS] &= register
    if rotations.any():
        made = _inside(made, rotations, register)
        opcodes = made[:, 0]
    swaps = opcodes == SWAP
    if swaps.any():
        made = _swaps_as_flips(made, swaps)
        opcodes = made[:, 0]
    made = _one_target_each(made)
    return _without_own_controls(made)


def _inside(words: Words, rotations: Bools, register: np.uint64) -> Words:
    """Take qubits outside the register off the controls of Pauli product rotations.

    The engine counts such a control as a qubit that is 0.
    """
    controls, negated = words[:, READ_FLAG], words[:, NEGATED]
    never = rotations & (controls & ~negated & ~register != 0)
    never |= rotations & (words[:, TARGETS] | words[:, CONTROLS] == 0)
    words[rotations, READ_FLAG] &= register
    words[rotations, NEGATED] &= words[rotations, READ_FLAG]
    kept: Words = words[~never]
    return kept


def _swaps_as_flips(words: Words, swaps: Bools) -> Words:
    """Write swaps with controls, or with other than two targets, as the engine's three flips."""
    targets = words[:, TARGETS]
    low = lowest_bits(targets)
    high = lowest_bits(targets & ~low)
    is_plain = (high != 0) & (words[:, CONTROLS] == 0) & (words[:, NEGATED] & (low | high) == 0)
    split = swaps & ~is_plain
    words[swaps & is_plain, TARGETS] = (low | high)[swaps & is_plain]
    counts = np.where(split, _SWAP_STEPS, 1)
    sources = np.repeat(np.arange(len(words)), counts)
    step = np.arange(len(sources)) - np.repeat(np.cumsum(counts) - counts, counts)
    made: Words = words[sources]
    is_flip = split[sources]
    low, high = low[sources], high[sources]
    is_middle = step == 1
    made[is_flip, 0] = X
    made[is_flip, TARGETS] = np.where(is_middle, low, high)[is_flip]
    made[is_flip, CONTROLS] |= np.where(is_middle, high, low)[is_flip]
    return made


def _one_target_each(words: Words) -> Words:
    """Split records with several targets, in the engine's order."""
    opcodes, targets = words[:, 0], words[:, TARGETS]
    phases = PHASES.among(opcodes)
    pairs = PAIR_GATES.among(opcodes)
    # A diagonal gate without a target takes its lowest control as the target.
    lowest = lowest_bits(words[:, CONTROLS])
    targets = np.where(phases & (targets == 0), lowest, targets)
    counts = np.where(phases | pairs, bit_counts(targets), 1)
    made: Words = words
    if (counts != 1).any():
        sources = np.repeat(np.arange(len(words)), counts)
        made = words[sources]
        step = np.arange(len(sources)) - np.repeat(np.cumsum(counts) - counts, counts)
        phases, pairs = phases[sources], pairs[sources]
        targets = _nth_bits(targets[sources], step, upward=phases)
    made[pairs, TARGETS] = targets[pairs]
    made[pairs, NEGATED] &= made[pairs, CONTROLS]
    own = made[:, CONTROLS] | targets
    made[phases, CONTROLS] = own[phases]
    made[phases, TARGETS] = 0
    made[phases, NEGATED] &= own[phases]
    return made


def _nth_bits(masks: Words, numbers: npt.NDArray[np.intp], *, upward: Bools) -> Words:
    """One set bit of each mask: that of a number, counted upward or downward from 0."""
    rest = masks.copy()
    for level in range(int(numbers.max(initial=0))):
        drop = np.where(upward, lowest_bits(rest), highest_bits(rest))
        rest ^= np.where(numbers > level, drop, ZERO)
    bits: Words = np.where(upward, lowest_bits(rest), highest_bits(rest))
    return bits


def _without_own_controls(words: Words) -> Words:
    """Settle pair gates whose target is a control: never done, or done as if it were none."""
    pairs = PAIR_GATES.among(words[:, 0])
    own = words[:, TARGETS] & words[:, CONTROLS]
    own[~pairs] = 0
    if own.any():
        never = own & ~words[:, NEGATED] != 0
        words[:, CONTROLS] &= ~own
        words[:, NEGATED] &= np.where(pairs, ~own, ~ZERO)
        words, pairs = words[~never], pairs[~never]
    words[FLIPS.among(words[:, 0]), 0] = X
    zero_turns = (words[:, 0] == RZ) & (words[:, ANGLE] << ONE == 0)
    return words[~zero_turns] if zero_turns.any() else words
