"""How many items a chunk has, and how many chunks are under way."""

import math
import os
from typing import Final

__all__ = ["ChunkSizes"]

_SECONDS: Final = 0.2
"""A chunk aims at this time: a hundred times what it costs to hand it out."""
_LEAST_SECONDS: Final = 0.01
"""The last chunks are shorter, so that all workers end together, but not shorter than this."""
_GROWTH: Final = 16
_LEAST_ITEM: Final = 1e-7
_MOST_UNDER_WAY: Final = 4096


class ChunkSizes:
    """Sizes chunks by the time that the chunks before took.

    The number of workers of an executor is not known. So more and more chunks are handed out, as
    long as a chunk begins soon after it was handed out.

    Attributes:
        under_way: How many chunks may be under way.
    """

    def __init__(self) -> None:
        """Begin with chunks of one item."""
        self.under_way = 2 * (os.cpu_count() or 1)
        self._largest = 0
        self._item_seconds = _LEAST_ITEM

    def next(self, remaining: int) -> int:
        """The size of the next chunk.

        Args:
            remaining: The number of items that have not been handed out, 1 or more.
        """
        full = _SECONDS / self._item_seconds
        least = _LEAST_SECONDS / self._item_seconds
        share = max(math.ceil(remaining / self.under_way), least)
        size = max(1, int(min(full, share, _GROWTH * self._largest)))
        return min(size, remaining)

    def finished(self, items: int, seconds: float, elapsed: float) -> None:
        """Note the time of a chunk.

        Args:
            items: Its size.
            seconds: How long it ran.
            elapsed: How long ago it was handed out.
        """
        # A small chunk tells less than a large one, since its time may be that of a first call.
        each = max(seconds / items, _LEAST_ITEM)
        known = self._item_seconds
        self._item_seconds = each if items > self._largest else (known + each) / 2
        self._largest = max(self._largest, items)
        if elapsed - seconds < seconds / 2:
            self.under_way = min(2 * self.under_way, _MOST_UNDER_WAY)
