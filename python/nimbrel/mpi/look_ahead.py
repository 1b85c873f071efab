"""Which qubits the gates of a program mix, and when each of them is mixed next.

A gate mixes a qubit if it adds amplitudes that differ in it. Such a qubit must be inside the parts
of the state. Diagonal gates and controls mix nothing.
"""

from __future__ import annotations

import math
from collections.abc import Iterable
from typing import Final

import numpy as np

from nimbrel.mpi.operations import ANGLE, CONTROLS, PAIR_GATES, TARGETS, Bools, OpcodeSet
from nimbrel.opcodes import Opcode
from nimbrel.register_trace import Words

__all__ = ["NEVER", "ahead_masks", "next_uses", "phase_like", "plain_masks"]

NEVER: Final = 2**62
"""The distance of a use that does not come."""

_MIXING: Final = OpcodeSet(*PAIR_GATES.opcodes, Opcode.PPR)
_PROBABLY_MIXING: Final = OpcodeSet(*_MIXING.opcodes, Opcode.PPM, Opcode.PCP)
_WINDOW: Final = 1 << 14
"""Most records that are looked at."""
_NEAR_ONE: Final = 1 - 1e-12


def phase_like(words: Words) -> Bools:
    """Which rotations about Z a phase gate can replace bit for bit on one value of their target.

    The engine leaves out a phase whose cosine rounds to 1, and flips signs for one of -1. A
    rotation does neither.

    Args:
        words: Records, shape (n, 11).
    """
    turns: Bools = words[:, 0] == Opcode.RZ
    if not turns.any():
        return turns
    found: Bools = turns.copy()
    # The engine rounds, and overflows, in this order.
    with np.errstate(over="ignore", invalid="ignore"):
        half = words[turns, ANGLE].view(np.float64) * math.pi / 180.0 * 0.5
        found[turns] = np.abs(np.cos(half)) < _NEAR_ONE
    return found


def plain_masks(words: Words) -> Words:
    """The qubits that each record in plain form mixes, shape (n,)."""
    opcodes = words[:, 0]
    mixes = _MIXING.among(opcodes)
    mixes &= ~phase_like(words)
    masks: Words = np.where(mixes, words[:, TARGETS], np.uint64(0))
    return masks


def ahead_masks(words: Words) -> Words:
    """The qubits that each record of a program will probably mix, whatever its form, shape (n,).

    A flip without controls moves no amplitude, so it counts as mixing nothing.
    """
    opcodes = words[:, 0]
    mixes = _PROBABLY_MIXING.among(opcodes)
    swaps = opcodes == Opcode.SWAP
    free = (opcodes == Opcode.X) | swaps
    mixes = (mixes & (opcodes != Opcode.RZ) & ~free) | (free & (words[:, CONTROLS] != 0))
    masks: Words = np.where(mixes, words[:, TARGETS], np.uint64(0))
    return masks


def next_uses(masks: Iterable[Words], num_qubits: int) -> list[int]:
    """How many records pass until each qubit is mixed, or `NEVER`.

    Args:
        masks: Masks of mixed qubits, in program order, in pieces.
        num_qubits: Qubits of the register.
    """
    uses = [NEVER] * num_qubits
    seen, everything, count = 0, (1 << num_qubits) - 1, 0
    for piece in masks:
        for mask in piece[: _WINDOW - count].tolist():
            new = mask & everything & ~seen
            seen |= new
            while new:
                bit = new & -new
                uses[bit.bit_length() - 1] = count
                new ^= bit
            count += 1
            if seen == everything:
                return uses
        if count >= _WINDOW:
            break
    return uses
