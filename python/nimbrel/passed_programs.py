"""The short programs of one filter that have passed the check, so that repeats need no check.

`program_check` uses it. Several threads may call it at the same time: an entry that a thread loses
to another is checked again.
"""

from typing import Final

from nimbrel.register_trace import Register

__all__ = ["PassedPrograms"]

_MOST_RECORDS: Final = 64
"""Longest program that is remembered. The search of a longer one costs little for each record."""
_OF_ONE_LENGTH: Final = 8


class PassedPrograms:
    """Programs by their content, each with the register before and after it.

    The caller may change an array between two runs, so the content is compared. Comparing with all
    programs of the same length takes less time than a hash of the content.
    """

    def __init__(self) -> None:
        """Start without programs."""
        self._by_length: dict[int, tuple[tuple[bytes, Register, Register], ...]] = {}

    @staticmethod
    def accepts(count: int) -> bool:
        """Whether programs of so many records are remembered."""
        return count <= _MOST_RECORDS

    def find(self, content: bytes, before: Register) -> Register | None:
        """Return the register after a program, or None if the program is not known.

        Args:
            content: The records.
            before: The register before the program.
        """
        for known, start, after in self._by_length.get(len(content), ()):
            if known == content and start == before:
                return after
        return None

    def add(self, content: bytes, before: Register, after: Register) -> None:
        """Remember a program. The oldest one of its length is forgotten if there are too many.

        Args:
            content: The records.
            before: The register before the program.
            after: The register after it.
        """
        others = self._by_length.get(len(content), ())[: _OF_ONE_LENGTH - 1]
        self._by_length[len(content)] = ((content, before, after), *others)
