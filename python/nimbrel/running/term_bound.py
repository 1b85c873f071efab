"""A bound on the number of terms of a sparse state, from the gates alone.

A gate that mixes pairs at most doubles the list, and no list is longer than the number of values
of those qubits that may differ between its terms. Permutations keep the length, but let more qubits
differ.
"""

from typing import Final

from nimbrel.opcodes import Opcode
from nimbrel.register_trace import Words

__all__ = ["log2_terms"]

_MIXING: Final = frozenset(
    map(
        int,
        (
            *(Opcode.H, Opcode.Y, Opcode.RX, Opcode.RY, Opcode.RZ),
            *(Opcode.ROOTX, Opcode.ROOTX_INV, Opcode.ROOTY, Opcode.ROOTY_INV),
        ),
    )
)
_FLIPPING: Final = frozenset(map(int, (Opcode.X, Opcode.LELBOW, Opcode.RELBOW)))
_PRODUCTS: Final = frozenset(map(int, (Opcode.PPR, Opcode.PPM)))


def log2_terms(words: Words, limit: int) -> int:
    """Bound the length of the list of terms at any time of a program.

    Args:
        words: The program, shape (n, 11). Conditions are taken as holding.
        limit: The walk over the records ends when the bound exceeds this number.

    Returns:
        k, if the list never has more than 2**k terms; above `limit`, any number above it.
    """
    most = doublings = 0
    differing = 0  # the qubits that may differ between two terms
    may_skip = False  # whether a jump may skip a reset
    for row in words[:, :3].tolist():
        opcode, targets, controls = row
        if opcode in _MIXING:
            differing |= targets
            doublings = min(doublings + targets.bit_count(), differing.bit_count())
        elif opcode in _FLIPPING:
            # A flip without differing controls is the same for all terms.
            differing |= targets if controls & differing else 0
        elif opcode == Opcode.SWAP:
            # Terms that differ in a control have their targets exchanged or not.
            differing |= targets if (targets | controls) & differing else 0
        elif opcode in _PRODUCTS:
            # Basis changes there and back, and a rotation of one qubit that gathers the parity.
            letters = targets | controls
            differing |= letters
            doublings = min(doublings + 2 * targets.bit_count() + 1, differing.bit_count())
        elif opcode == Opcode.RESET and not may_skip:
            doublings = differing = 0
        elif opcode == Opcode.JUMP_FWD:
            may_skip = True
        most = max(most, doublings)
        if most > limit:
            break
    return most
