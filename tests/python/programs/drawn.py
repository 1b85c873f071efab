"""A random.Random whose numbers hypothesis draws, so that a failing random program shrinks."""

from __future__ import annotations

import contextlib
import random
from collections.abc import Callable, Iterable, Iterator

from hypothesis import currently_in_test_context, given, note, seed, settings
from hypothesis import strategies as st

from models.wire import Record, described

BLOCK_BYTES = 24


class DrawnRandom(random.Random):
    """Takes all numbers from blocks of bytes that hypothesis draws.

    Hypothesis shrinks by leaving out blocks and by making bytes smaller. A byte of 0 therefore
    gives the first of several choices, the number 0.0 or an empty mask.
    """

    def __init__(self, source: random.Random) -> None:
        super().__init__()
        self._source = source
        self._block = b""
        self._place = 0

    def steps(self, average: int) -> Iterator[None]:
        """Yields once for each step: `average` times on average, 3 * `average` times at most.

        Each step begins with a new block, and the first byte of that tells whether the program
        goes on: so hypothesis can leave out a step and change none of those after it.
        """
        for _ in range(3 * average):
            self._place = len(self._block)
            if self._take(1) * average < 256:
                return
            yield

    def seed(self, *_: object) -> None:  # pyright: ignore[reportIncompatibleMethodOverride]
        """Does nothing: the numbers are drawn."""

    def _take(self, count: int) -> int:
        """The next `count` bytes as a number."""
        if self._place + count > len(self._block):
            self._block, self._place = self._source.randbytes(max(count, BLOCK_BYTES)), 0
        start, self._place = self._place, self._place + count
        return int.from_bytes(self._block[start : self._place], "big")

    def random(self) -> float:
        return self._take(2) * 2.0**-16

    def uniform(self, a: float, b: float) -> float:
        return a + (b - a) * (self._take(7) >> 3) * 2.0**-53

    def getrandbits(self, k: int) -> int:
        count = (k + 7) // 8
        return self._take(count) >> (8 * count - k) if k else 0

    def _randbelow(self, n: int) -> int:
        if n <= 1:
            return 0
        count = n.bit_length() // 8 + 1
        return self._take(count) * n >> 8 * count


def steps(rng: random.Random, count: int) -> Iterable[object]:
    """Iterates `count` times; on average `count` times if hypothesis draws the numbers."""
    return rng.steps(count) if isinstance(rng, DrawnRandom) else range(count)


def drawn_randoms() -> st.SearchStrategy[DrawnRandom]:
    # With spans, hypothesis would repeat old blocks in most examples.
    return st.randoms(use_true_random=False, note_method_calls=False).map(DrawnRandom)


def check_programs(test: Callable[[DrawnRandom], None], max_examples: int, batch: int = 0) -> None:
    """Runs the test with this many random programs. Each batch has different ones.

    The number scales with the profile's `max_examples`, whose default is 100.
    """
    profile = settings()
    chosen = settings(max_examples=max_examples * profile.max_examples // 100)
    runs = chosen(given(drawn_randoms())(test))
    if profile.derandomize:
        runs = seed(batch)(runs)
    runs()


@contextlib.contextmanager
def noting(history: list[Record]) -> Iterator[None]:
    """Adds the records to the report of a failure."""
    try:
        yield
    except AssertionError:
        if currently_in_test_context():
            note("records:\n" + "\n".join(map(described, history)))
        raise
