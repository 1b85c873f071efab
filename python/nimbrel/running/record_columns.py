"""The records of one opcode as columns of words, and the questions that `exact_records` asks."""

from typing import Any, Final, NamedTuple, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import Opcode
from nimbrel.register_trace import Words

__all__ = ["MOST_SPARSE_QUBITS", "Bools", "ProgramTraits", "RecordColumns", "traits_of"]

Bools: TypeAlias = Any
"""An array of booleans, one a record. The stubs of NumPy give comparisons no narrower type."""

MOST_SPARSE_QUBITS: Final = 63
_HOLDS: Final = np.ones(1, dtype=np.bool_)
"""A rule that all records pass."""


class ProgramTraits(NamedTuple):
    """What the rules ask about the whole program.

    Attributes:
        extended: Whether it has extension records.
        narrow: Whether a dense filter could hold it, so that its meaning there counts.
        one_register: Whether the register is known at every record.
        has_offsets: Whether a record has an offset.
    """

    extended: bool
    narrow: bool
    one_register: bool
    has_offsets: bool


def traits_of(words: Words, positions: dict[int, npt.NDArray[np.intp]]) -> ProgramTraits:
    """Tell what the rules ask about a program.

    Args:
        words: The program, shape (n, 11).
        positions: The indices of the records of each opcode; a reset is among them.
    """
    sizes = words[positions[int(Opcode.RESET)], 1]
    extended = int(Opcode.EXTEND) in positions
    narrow = not extended and int(sizes.max()) <= MOST_SPARSE_QUBITS
    return ProgramTraits(
        extended=extended,
        narrow=narrow,
        one_register=int(Opcode.JUMP_FWD) not in positions or bool((sizes == sizes[0]).all()),
        has_offsets=bool(words[:, 7:9].any()),
    )


class RecordColumns:
    """All records of one opcode, word by word.

    Attributes:
        following: The opcodes of the records that may take these as their extensions.
        program: The program of the records.
    """

    def __init__(
        self, words: Words, following: npt.NDArray[np.uint64], program: ProgramTraits
    ) -> None:
        """Take the records apart.

        Args:
            words: The records, shape (k, 11).
            following: The attribute `following`, shape (k,).
            program: The attribute `program`.
        """
        self.targets: Words = words[:, 1]
        self.controls: Words = words[:, 2]
        self.angles = np.ascontiguousarray(words[:, 3]).view(np.float64)
        self.conditions: Words = words[:, 4]
        self.flags: Words = words[:, 5]
        self.negated: Words = words[:, 6]
        self.target_offsets: Words = words[:, 7]
        self.control_offsets: Words = words[:, 8]
        self.following = following
        self.program = program

    def without_controls(self) -> Bools:
        """Whether the record has no controls."""
        return self.controls == 0

    def one_control(self) -> Bools:
        """Whether it has one control, which is not negated."""
        single = (self.controls != 0) & (self.controls & (self.controls - np.uint64(1)) == 0)
        return single & (self.controls & self.negated == 0)

    def apart(self) -> Bools:
        """Whether no target is a control."""
        apart = self.targets & self.controls == 0
        if not self.program.has_offsets:
            return apart
        # The low bits of an offset name no word.
        return apart | ((self.target_offsets ^ self.control_offsets) >= WORD_BITS)

    def two_targets(self) -> Bools:
        """Whether it has two targets."""
        rest = self.targets & (self.targets - np.uint64(1))
        return (self.targets != 0) & (rest != 0) & (rest & (rest - np.uint64(1)) == 0)

    def at_most_two_targets(self) -> Bools:
        """Whether it has two targets or fewer."""
        rest = self.targets & (self.targets - np.uint64(1))
        return rest & (rest - np.uint64(1)) == 0

    def plain_swap(self) -> Bools:
        """Whether it exchanges two targets."""
        # A dense filter lets a negated target control the other target.
        if self.program.narrow:
            return self.two_targets() & (self.targets & self.negated == 0)
        return self.at_most_two_targets()

    def plain_targets(self) -> Bools:
        """Whether no target is negated."""
        # A diagonal gate acts where a negated target is 0.
        return self.targets & self.negated == 0

    def plain_phases(self) -> Bools:
        """Whether the targets are not negated, or there is one target."""
        # A dense filter lets a negated target stop the phases of the other targets.
        return self.plain_targets() | (self.targets & (self.targets - np.uint64(1)) == 0)

    def negated_controls_only(self) -> Bools:
        """Whether all negated qubits are controls."""
        # A bit filter never carries out a gate with other negated qubits.
        return (self.controls == 0) | (self.negated & ~self.controls == 0)

    def target_words(self) -> Bools:
        """Whether the offset of the targets means the same on all filters."""
        # A Clifford filter adds the low bits of an offset, and a dense one ignores the offset.
        if not (self.program.has_offsets and self.program.narrow):
            return _HOLDS
        return (self.targets == 0) | (self.target_offsets == 0)

    def control_words(self) -> Bools:
        """Whether the offset of the controls does so."""
        if not (self.program.has_offsets and self.program.narrow):
            return _HOLDS
        return (self.controls == 0) | (self.control_offsets == 0)

    def value_of_targets(self) -> Bools:
        """Whether a written value has bits of the targets alone."""
        # A dense filter may refuse a value that has bits outside the targets.
        return (self.controls & ~self.targets == 0) | (not self.program.narrow)

    def size(self) -> Bools:
        """Whether a reset makes a register of known size."""
        # Qubits outside the register are dropped by a dense filter only, and a jump over a reset
        # leaves the register unknown.
        return (self.targets != 0) & (self.program.one_register or not self.program.narrow)

    def without_flags(self) -> Bools:
        """Whether no flag is named."""
        return self.flags == 0

    def always(self) -> Bools:
        """Whether the classical condition always holds."""
        return self.conditions <= 1
