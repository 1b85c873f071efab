"""Hands out the items of a job in chunks and puts the results in order.

A chunk that is lost with its worker runs again on a new executor, if one can be made. It runs while
no other chunk is under way, so that a chunk that ends every worker is found.
"""

import pickle
import time
from collections import deque
from collections.abc import Callable, Sequence
from concurrent.futures import FIRST_COMPLETED, BrokenExecutor, CancelledError, Future, wait
from dataclasses import dataclass
from typing import Any, Final, NamedTuple

from nimbrel.running.chunk_sizes import ChunkSizes
from nimbrel.running.executor_source import AnyExecutor, CallingThread, ExecutorSource
from nimbrel.running.progress import ProgressBar
from nimbrel.running.run_errors import WorkerLostError
from nimbrel.running.worker import (
    WORKER_THREADS,
    ChunkFailed,
    Job,
    JobMissing,
    handed_out,
    run_chunk,
)

__all__ = ["Work", "distribute"]

_SMALL_JOB: Final = 1 << 16
"""Bytes of a job that goes with every chunk. A larger one goes to the workers that ask for it."""
_MOST_LOSSES: Final = 3
_CANNOT_PICKLE: Final = (pickle.PicklingError, AttributeError, TypeError, ImportError)
"""What executors raise for work that cannot be sent. Errors of the work itself are results."""


class Work(NamedTuple):
    """Items to be worked on.

    Attributes:
        job: The work.
        items: The items.
        noun: What an item is called, in the singular.
        when_lost: The result of one item whose worker was lost; None if this ends the whole run.
    """

    job: Job
    items: Sequence[Any]
    noun: str
    when_lost: Callable[[int, Exception], Any] | None = None


def distribute(work: Work, executor: AnyExecutor | None, *, progress: bool) -> list[Any]:
    """Run a job on all items.

    Args:
        work: The job and its items.
        executor: As for `sample`.
        progress: Whether a bar shows the progress.

    Returns:
        The results of all chunks, in the order of the items.

    Raises:
        Exception: What the job raised.
        TypeError: If the work cannot be sent to a worker.
        WorkerLostError: If a worker was lost.
    """
    source = ExecutorSource(CallingThread() if executor is None else executor)
    threads = 0 if executor is None else WORKER_THREADS
    with (
        ProgressBar(len(work.items), work.noun, shown=progress) as bar,
        source,
        handed_out(work.job, threads) as name,
    ):
        is_sent = executor is not None
        return _Distribution(work, name, source, bar, is_sent=is_sent).results()


@dataclass
class _Chunk:
    """Consecutive items.

    Attributes:
        first: The number of the first one.
        count: How many they are.
        attempts: How often the chunk was handed out.
        losses: How often it was lost.
        source_number: The executor that has it.
        handed_out_at: When it was handed out.
    """

    first: int
    count: int
    attempts: int = 0
    losses: int = 0
    source_number: int = 0
    handed_out_at: float = 0.0

    def single_items(self) -> "list[_Chunk]":
        """The chunk as chunks of one item."""
        numbers = range(self.first, self.first + self.count)
        return [_Chunk(number, 1, self.attempts, self.losses) for number in numbers]


class _Distribution:
    """One run of a job."""

    def __init__(
        self, work: Work, name: str, source: ExecutorSource, bar: ProgressBar, *, is_sent: bool
    ) -> None:
        self._work = work
        self._name = name
        self._source = source
        self._bar = bar
        self._sizes = ChunkSizes()
        self._job_is_small = is_sent and _is_small(work.job)
        self._next = 0
        self._suspects: deque[_Chunk] = deque()
        self._under_way: dict[Future[Any], _Chunk] = {}
        self._results: dict[int, list[Any]] = {}

    def results(self) -> list[Any]:
        """Run everything."""
        try:
            while self._hand_out() or self._under_way:
                done, _ = wait(self._under_way, return_when=FIRST_COMPLETED)
                for future in sorted(done, key=lambda each: self._under_way[each].first):
                    self._take(future)
        except BaseException:
            for future in self._under_way:
                future.cancel()
            raise
        return [result for first in sorted(self._results) for result in self._results[first]]

    def _hand_out(self) -> bool:
        """Hand out chunks, if any are left; whether some are."""
        total = len(self._work.items)
        if self._suspects or any(chunk.losses for chunk in self._under_way.values()):
            if not self._under_way:
                self._submit(self._suspects.popleft())
            return True
        while self._next < total and len(self._under_way) < self._sizes.under_way:
            size = self._sizes.next(total - self._next)
            chunk = _Chunk(self._next, size)
            self._next += size
            if not self._submit(chunk):
                break
        return self._next < total or bool(self._suspects)

    def _submit(self, chunk: _Chunk, *, with_job: bool = False) -> bool:
        """Hand out one chunk; whether the next may follow at once."""
        items = self._work.items[chunk.first : chunk.first + chunk.count]
        job = self._work.job if with_job or self._job_is_small else None
        chunk.attempts += 1
        if not self._under_way:
            self._source.shut_down_left()
        self._source.ensure()
        chunk.source_number = self._source.number
        chunk.handed_out_at = time.perf_counter()
        try:
            future = self._source.submit(
                run_chunk, self._name, job, chunk.attempts, chunk.first, items
            )
        except BrokenExecutor as error:
            self._lost(chunk, error)
            return False
        except _CANNOT_PICKLE as error:
            raise _cannot_send(error) from error
        self._under_way[future] = chunk
        return not future.done()  # a chunk that ran in this thread shows in the progress first

    def _take(self, future: "Future[Any]") -> None:
        """Take what came of a chunk."""
        chunk = self._under_way.pop(future)
        error = _error_of(future)
        if isinstance(error, _CANNOT_PICKLE):
            raise _cannot_send(error) from error
        if isinstance(error, Exception):
            self._lost(chunk, error)
            return
        if error is not None:
            raise error  # the worker was interrupted
        outcome = future.result()
        if isinstance(outcome, JobMissing):
            self._submit(chunk, with_job=True)
        elif isinstance(outcome, ChunkFailed):
            raise outcome.error
        else:
            elapsed = time.perf_counter() - chunk.handed_out_at
            self._sizes.finished(chunk.count, outcome.seconds, elapsed, outcome.worker)
            self._finish(chunk, outcome.results)

    def _finish(self, chunk: _Chunk, results: list[Any]) -> None:
        self._results[chunk.first] = results
        self._bar.update(chunk.count)

    def _lost(self, chunk: _Chunk, error: Exception) -> None:
        """Have a chunk run again, or give it up."""
        chunk.losses += 1
        self._source.renew(chunk.source_number)
        when_lost = self._work.when_lost
        if self._source.can_renew and chunk.losses < _MOST_LOSSES:
            if chunk.losses > 1:  # it was alone, so it is settled first
                self._suspects.appendleft(chunk)
            else:
                self._suspects += [chunk] if when_lost is None else chunk.single_items()
        elif when_lost is None:
            # The whole executor is broken, so all that it has is lost.
            others = self._under_way.values() if isinstance(error, BrokenExecutor) else ()
            raise WorkerLostError(self._text_of_loss([chunk, *others], error)) from error
        else:
            numbers = range(chunk.first, chunk.first + chunk.count)
            self._finish(chunk, [when_lost(number, error) for number in numbers])

    def _text_of_loss(self, chunks: list[_Chunk], error: Exception) -> str:
        ranges: list[list[int]] = []
        for first, count in sorted((chunk.first, chunk.count) for chunk in chunks):
            if ranges and ranges[-1][1] == first - 1:
                ranges[-1][1] += count
            else:
                ranges.append([first, first + count - 1])
        noun = self._work.noun
        named = " and ".join(
            f"{noun} {first}" if first == last else f"{noun}s {first} to {last}"
            for first, last in ranges
        )
        who = f"{_MOST_LOSSES} workers were" if self._source.can_renew else "a worker was"
        return f"{who} lost with {named} ({type(error).__name__}: {error})"


def _is_small(job: Job) -> bool:
    try:
        return len(pickle.dumps(job)) <= _SMALL_JOB
    except Exception:
        return True  # the executor may know another way, and its error tells if not


def _error_of(future: "Future[Any]") -> BaseException | None:
    try:
        return future.exception()
    except CancelledError as error:
        return error


def _cannot_send(error: BaseException) -> TypeError:
    return TypeError(
        f"the work cannot be sent to a worker: {error}; use functions of a module, and parameters "
        "that can be pickled"
    )
