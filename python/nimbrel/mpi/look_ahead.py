"""Which qubits the gates of a program mix, and when each of them is mixed next.

A gate mixes a qubit if it adds amplitudes that differ in it. Such a qubit must be inside the parts
of the state. Diagonal gates and controls mix nothing.
"""

from __future__ import annotations

import math
from typing import Final

import numpy as np

from nimbrel.mpi.opcode_words import RZ, SWAP, X
from nimbrel.mpi.operations import ANGLE, CONTROLS, PAIR_GATES, TARGETS, Bools, OpcodeSet
from nimbrel.opcodes import Opcode
from nimbrel.register_trace import Words

__all__ = ["NEVER", "Uses", "ahead_masks", "phase_like", "plain_masks"]

NEVER: Final = 2**62
"""The place of a use that does not come."""

_MIXING: Final = OpcodeSet(*PAIR_GATES.opcodes, Opcode.PPR)
_PROBABLY_MIXING: Final = OpcodeSet(*_MIXING.opcodes, Opcode.PPM, Opcode.PCP)
_NEAR_ONE: Final = 1 - 1e-12


def phase_like(words: Words) -> Bools:
    """Which rotations about Z a phase gate can replace bit for bit on one value of their target.

    The engine leaves out a phase whose cosine rounds to 1, and flips signs for one of -1. A
    rotation does neither.

    Args:
        words: Records, shape (n, 11).
    """
    turns: Bools = words[:, 0] == RZ
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
    swaps = opcodes == SWAP
    free = (opcodes == X) | swaps
    mixes = (mixes & (opcodes != RZ) & ~free) | (free & (words[:, CONTROLS] != 0))
    masks: Words = np.where(mixes, words[:, TARGETS], np.uint64(0))
    return masks


class Uses:
    """Finds when each qubit is mixed next, from any record of a program on."""

    def __init__(self, masks: Words, num_qubits: int) -> None:
        """Sort the uses by qubit, then by record.

        Args:
            masks: The mixed qubits of each record, in program order, shape (n,).
            num_qubits: Qubits of the register.
        """
        mixing = np.flatnonzero(masks)
        octets = masks[mixing].astype("<u8").view(np.uint8).reshape(len(mixing), 8)
        bits = np.unpackbits(octets, axis=1, count=num_qubits, bitorder="little")
        qubits, rows = np.nonzero(bits.T)
        self._stride = len(masks) + 1
        self._firsts = np.arange(num_qubits) * self._stride
        self._uses = np.append(self._firsts[qubits] + mixing[rows], NEVER)

    def behind(self, start: int) -> list[int]:
        """The first record from `start` on that mixes each qubit, or `NEVER`."""
        next_ones = self._uses[np.searchsorted(self._uses, self._firsts + start)] - self._firsts
        # A qubit without a further use finds one of the next qubit.
        next_ones[next_ones >= self._stride] = NEVER
        found: list[int] = next_ones.tolist()
        return found
