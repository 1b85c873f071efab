"""The names of the operations, as the builders have them."""

from typing import Final

from nimbrel.opcodes import Opcode

__all__ = ["record_name"]

_MARKER: Final = "MARKER_"


def record_name(opcode: int) -> str:
    """The name of an operation; a marker's and an unknown opcode's is its number.

    Args:
        opcode: The full 64-bit opcode.
    """
    try:
        name = Opcode(opcode).name
    except ValueError:
        return f"0x{opcode:016x}"
    return f"marker {name.removeprefix(_MARKER)}" if name.startswith(_MARKER) else name.lower()
