"""Takes the bytes of a fuzzer's input apart."""

from __future__ import annotations

from collections.abc import Sequence
from typing import TypeVar

Choice = TypeVar("Choice")


class ByteReader:
    """Reads values from the front of an input. Past its end every byte is 0."""

    def __init__(self, data: bytes) -> None:
        self._data = data
        self._place = 0

    def __bool__(self) -> bool:
        """Whether bytes are left."""
        return self._place < len(self._data)

    def byte(self) -> int:
        """The next byte."""
        if not self:
            return 0
        self._place += 1
        return self._data[self._place - 1]

    def one_of(self, choices: Sequence[Choice]) -> Choice:
        """One of the choices."""
        return choices[self.byte() % len(choices)]

    def rest(self) -> bytes:
        """All bytes that are left."""
        rest = self._data[self._place :]
        self._place = len(self._data)
        return rest
