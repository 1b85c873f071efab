"""How many items a chunk has, and how many chunks are under way."""

import math
import os
from collections.abc import Hashable
from typing import Final

__all__ = ["ChunkSizes"]

_OVERHEADS: Final = 20
"""A chunk aims at this many times what it costs to hand it out, within the next two limits."""
_SECONDS: Final = 0.2
_MOST_SECONDS: Final = 0.5
_MOST_OVERHEAD: Final = 0.05
"""A worker that has yet to start is no reason for long chunks."""
_LEAST_SECONDS: Final = 0.01
"""The last chunks are shorter, so that all workers end together, but not shorter than this or than
it costs to hand them out."""
_GROWTH: Final = 16
_LEAST_ITEM: Final = 1e-7
_MOST_UNDER_WAY: Final = 4096


class ChunkSizes:
    """Sizes chunks by the time that the chunks before took.

    The number of workers of an executor is not known. So two chunks are under way for each worker
    that has run one. As long as every chunk comes from another worker, there may be more of them.

    Attributes:
        under_way: How many chunks may be under way.
    """

    def __init__(self) -> None:
        """Begin with chunks of one item."""
        self.under_way = 2 * (os.cpu_count() or 1)
        self._largest = 0
        self._workers: set[Hashable] = set()
        self._overhead = math.inf
        self._item_seconds = _LEAST_ITEM

    def next(self, remaining: int) -> int:
        """The size of the next chunk.

        Args:
            remaining: The number of items that have not been handed out, 1 or more.
        """
        overhead = min(self._overhead, _MOST_OVERHEAD) if self._workers else 0.0
        full = min(max(_SECONDS, _OVERHEADS * overhead), _MOST_SECONDS) / self._item_seconds
        least = max(_LEAST_SECONDS, overhead) / self._item_seconds
        share = max(math.ceil(remaining / self.under_way), least)
        # Shorter chunks than it costs to hand them out save nothing.
        grown = max(_GROWTH * self._largest, overhead / self._item_seconds)
        size = max(1, int(min(full, share, grown)))
        return min(size, remaining)

    def finished(self, items: int, seconds: float, elapsed: float, worker: Hashable) -> None:
        """Note the time of a chunk.

        Args:
            items: Its size.
            seconds: How long it ran.
            elapsed: How long ago it was handed out.
            worker: Which worker has run it.
        """
        # A small chunk tells less than a large one, since its time may be that of a first call.
        each = max(seconds / items, _LEAST_ITEM)
        known = self._item_seconds
        self._item_seconds = each if items > self._largest else (known + each) / 2
        self._largest = max(self._largest, items)
        self._overhead = min(self._overhead, max(elapsed - seconds, 0.0))
        self._workers.add(worker)
        # Items so long are chunks of their own anyway, and idle workers would wait for as long.
        begun_at_once = elapsed - seconds < seconds / 2
        double = each > _MOST_SECONDS and begun_at_once
        wanted = 2 * (self.under_way if double else len(self._workers))
        self.under_way = min(max(self.under_way, wanted), _MOST_UNDER_WAY)
