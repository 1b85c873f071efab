"""A program that has been read from OpenQASM."""

from collections.abc import Mapping
from dataclasses import dataclass

from nimbrel.records import Program


@dataclass(frozen=True)
class QasmProgram:
    """A program, and where its qubits and classical bits are.

    Attributes:
        program: The records, shape (n,). They begin with a reset of the register.
        num_qubits: Qubits of the register.
        qubits: The qubits of each register by its name, in the order of their declaration.
        bits: The read flags of each register of classical bits by its name, bit 0 first, in the
            order of their declaration.
    """

    program: Program
    num_qubits: int
    qubits: Mapping[str, range]
    bits: Mapping[str, range]

    @property
    def read_flags(self) -> tuple[int, ...]:
        """The read flags of all classical bits, in ascending order.

        Bit 0 of the register that was declared first has the first flag.
        """
        return tuple(flag for flags in self.bits.values() for flag in flags)
