"""What the read flags hold after a program whose measurements are drawn from its final state."""

from typing import Final, NamedTuple, TypeAlias

__all__ = ["FLAG_NUMBERS", "FlagSources", "QubitBit", "Source", "stored_place"]

FLAG_NUMBERS: Final = 100_000_000
"""Two flag numbers share a bit if they differ by a multiple of this."""

_WORD_BITS: Final = 64


class QubitBit(NamedTuple):
    """The measured value of a qubit.

    Attributes:
        qubit: The qubit.
        inverted: Whether the flag holds the opposite of the value.
    """

    qubit: int
    inverted: bool = False


Source: TypeAlias = QubitBit | int
"""A measured value, or 0 or 1."""


def stored_place(flag: int) -> int | None:
    """The number of the bit that a flag names; None for the constants -1, 0 and 1."""
    return None if -1 <= flag <= 1 else abs(flag) % FLAG_NUMBERS


def _inverted(source: Source) -> Source:
    return source ^ 1 if isinstance(source, int) else QubitBit(source.qubit, not source.inverted)


class FlagSources:
    """The source of every bit that a program has stored, in an engine without older bits."""

    def __init__(self) -> None:
        """Start without stored bits."""
        self._sources: dict[int, Source] = {}
        self._stored_words = 0

    @property
    def places(self) -> list[int]:
        """The numbers of the stored bits, ascending."""
        return sorted(self._sources)

    @property
    def has_measured(self) -> bool:
        """Whether a bit comes from a measurement."""
        return any(isinstance(source, QubitBit) for source in self._sources.values())

    def store(self, flag: int, source: Source) -> None:
        """Store a value in a flag; a negative number stores the opposite.

        Args:
            flag: The flag, signed. The constants store nothing.
            source: The value.
        """
        place = stored_place(flag)
        if place is not None:
            self._sources[place] = _inverted(source) if flag < 0 else source
            self._stored_words = max(self._stored_words, place // _WORD_BITS + 1)

    def read(self, flag: int) -> Source:
        """The value of a flag as the engine returns it.

        A flag in a word that no store has reached is 0, whatever its sign.

        Args:
            flag: The flag, signed.
        """
        place = stored_place(flag)
        if place is None:
            return int(flag == 1)
        if place // _WORD_BITS >= self._stored_words:
            return 0
        source = self._sources.get(place, 0)
        return _inverted(source) if flag < 0 else source

    def nand(self, a: int, b: int, dest: int) -> bool:
        """Carry out a flag operation whose operands are known.

        Args:
            a: First operand, signed.
            b: Second operand, signed.
            dest: The destination; a negative number selects AND.

        Returns:
            Whether the operands are known. If not, nothing has changed.
        """
        first, second = self.read(a), self.read(b)
        if isinstance(first, QubitBit) or isinstance(second, QubitBit):
            return False
        both = first & second
        self.store(abs(dest), both if dest < 0 else both ^ 1)
        return True
