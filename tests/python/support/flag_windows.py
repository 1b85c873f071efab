"""Compares chosen read flags of a filter with those of its model, 32 flags at a time."""

from __future__ import annotations

from collections.abc import Iterable

from models.flags import FlagTable
from support.driver import FilterDriver


class FlagWindows:
    """The first flags of the windows, and the model's last values in them."""

    def __init__(self, first_flags: Iterable[int]) -> None:
        self._words = dict.fromkeys(first_flags, 0)
        self._num_stores = -1

    def compare(self, filter_: FilterDriver, flags: FlagTable) -> None:
        """Asserts that filter and model agree. Each object serves one model only."""
        __tracebackhide__ = True
        if flags.num_stores != self._num_stores:
            self._num_stores = flags.num_stores
            self._words = {first: flags.word(first) for first in self._words}
        for first, word in self._words.items():
            assert filter_.flags(first, 32) == word, f"flags from {first} on"
