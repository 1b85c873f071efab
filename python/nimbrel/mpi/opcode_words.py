"""Opcodes as plain integers, which NumPy compares with arrays in a quarter of an enum's time."""

from typing import Final

from nimbrel.opcodes import Opcode

__all__ = ["PHASE", "PPR", "RZ", "SWAP", "X"]

PHASE: Final = int(Opcode.PHASE)
PPR: Final = int(Opcode.PPR)
RZ: Final = int(Opcode.RZ)
SWAP: Final = int(Opcode.SWAP)
X: Final = int(Opcode.X)
