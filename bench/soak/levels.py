"""What a process holds, and whether it grows: resident memory, descriptors and threads."""

import ctypes
import gc
import os
import statistics
from collections.abc import Sequence
from pathlib import Path
from typing import Final, NamedTuple

MOST_GROWTH: Final = 1 << 20
"""Bytes by which the memory of a level series may differ from its second quarter to its last."""


class Level(NamedTuple):
    """What one process holds at one time.

    Attributes:
        resident: Resident memory in bytes.
        descriptors: Open file descriptors.
        threads: Threads.
    """

    resident: int
    descriptors: int
    threads: int


def level_of(process: int | None = None) -> Level:
    """Read what a process holds.

    Args:
        process: Its number; this process, whose free memory is given back before, if None.
    """
    if process is None:
        gc.collect()
        ctypes.CDLL(None).malloc_trim(0)
    entry = Path("/proc") / str(process or "self")
    resident_pages = int((entry / "statm").read_text(encoding="ascii").split()[1])
    # The listing of this process has an open descriptor of its own, once in each series.
    descriptors = len(list((entry / "fd").iterdir()))
    threads = len(list((entry / "task").iterdir()))
    return Level(resident_pages * os.sysconf("SC_PAGE_SIZE"), descriptors, threads)


def growth_of(numbers: Sequence[int]) -> int:
    """How far the median of the last quarter of a series lies above that of the second quarter.

    The first quarter is left out: caches and allocators fill up in it.

    Raises:
        ValueError: If there are fewer than 8 numbers.
    """
    quarter = len(numbers) // 4
    if quarter < 2:
        raise ValueError(f"{len(numbers)} samples are too few; 8 are needed")
    early = statistics.median(numbers[quarter : 2 * quarter])
    return int(statistics.median(numbers[-quarter:]) - early)


def trends_of(levels: Sequence[Level], most_growth: int = MOST_GROWTH) -> list[str]:
    """Tell what grows in a series of samples, one text each; none if the series is level.

    Memory is level if it grows by no more than `most_growth` bytes; descriptors and threads are
    if they do not grow at all.

    Raises:
        ValueError: If there are fewer than 8 samples.
    """
    limits = Level(most_growth, 0, 0)
    columns = zip(Level._fields, zip(*levels, strict=True), limits, strict=True)
    growths = [(name, growth_of(column), limit) for name, column, limit in columns]
    return [f"{name} has grown by {growth}" for name, growth, limit in growths if growth > limit]
