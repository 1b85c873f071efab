"""What runs on the workers of an executor.

A process keeps its filter, and the last jobs that came to it: a job is sent to each worker once, if
it is large, and named afterwards. In threads of the process that hands the work out, jobs and
filter are found where that process has put them.
"""

import atexit
import os
import pickle
import secrets
import threading
import time
import uuid
from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from typing import Any, Final, NamedTuple, Protocol, TypeAlias

import _lib_nb_sim

from nimbrel.running.kept_filters import KeptFilter

__all__ = [
    "WORKER_THREADS",
    "ChunkDone",
    "ChunkFailed",
    "Job",
    "JobMissing",
    "handed_out",
    "portable",
    "run_chunk",
]

_MOST_JOBS: Final = 2
WORKER_THREADS: Final = 1
"""A worker uses one core: the executor has as many workers as there are cores to use."""


class Job(Protocol):
    """Work on many items, of which chunks are run in any order and on any worker."""

    @property
    def seed(self) -> int | None:
        """The master seed of the draws; None if the draws are not seeded."""
        ...

    def run(self, first: int, items: Sequence[Any], kept: KeptFilter) -> list[Any]:
        """Do the work on some items.

        The results of all chunks are joined in the order of the items.

        Args:
            first: The number of the first item among all.
            items: The items.
            kept: The filter of this process.
        """
        ...


class ChunkDone(NamedTuple):
    """The result of a chunk.

    Attributes:
        worker: The process and the thread that have run it.
        seconds: How long it took.
        results: What the job returned.
    """

    worker: tuple[str, int]
    seconds: float
    results: list[Any]


class ChunkFailed(NamedTuple):
    """The error of a chunk.

    Attributes:
        error: The error.
    """

    error: Exception


class JobMissing(NamedTuple):
    """The worker does not have the job."""


Outcome: TypeAlias = ChunkDone | ChunkFailed | JobMissing


class _HandedOut(NamedTuple):
    job: Job
    kept: KeptFilter


class _Process:
    """What this process keeps. A forked child begins with nothing."""

    def __init__(self) -> None:
        self.name = uuid.uuid4().hex
        self.handed_out: dict[str, _HandedOut] = {}
        self.jobs: dict[str, Job] = {}
        self.kept = KeptFilter(WORKER_THREADS)

    def forget(self) -> None:
        for kept in (self.kept, *(each.kept for each in self.handed_out.values())):
            kept.close()
        self.name = uuid.uuid4().hex
        self.handed_out = {}
        self.jobs = {}
        self.kept = KeptFilter(WORKER_THREADS)


_process = _Process()
os.register_at_fork(after_in_child=_process.forget)
atexit.register(_process.forget)


@contextmanager
def handed_out(job: Job, max_num_threads: int) -> Iterator[str]:
    """Let threads of this process find a job while the block hands it out.

    Args:
        job: The job.
        max_num_threads: The parameter of that name for the filters of these threads.

    Yields:
        The name of the job.
    """
    name = uuid.uuid4().hex
    entry = _process.handed_out[name] = _HandedOut(job, KeptFilter(max_num_threads))
    try:
        yield name
    finally:
        _process.handed_out.pop(name, None)  # a forked child has lost it already
        entry.kept.retire()


def run_chunk(
    name: str, job: Job | None, attempt: int, first: int, items: Sequence[Any]
) -> Outcome:
    """Run a chunk of a job.

    Args:
        name: The name of the job.
        job: The job; None if the worker may have it.
        attempt: Tells two attempts apart where an executor would return the result of the first.
        first: The number of the first item among all.
        items: The items.

    Returns:
        The result, the error, or that the worker lacks the job.
    """
    del attempt
    here = _process.handed_out.get(name)
    found, kept = here if here is not None else (_own_job(name, job), _process.kept)
    if found is None:
        return JobMissing()
    begin = time.perf_counter()
    try:
        results = found.run(first, items, kept)
    except Exception as error:
        return ChunkFailed(error if here is not None else portable(error))
    finally:
        if here is None and found.seed is not None:
            # Or else later draws of this worker without a seed would repeat too.
            _lib_nb_sim.random_seed(0, secrets.randbits(32))
    seconds = time.perf_counter() - begin
    return ChunkDone((_process.name, threading.get_ident()), seconds, results)


def _own_job(name: str, job: Job | None) -> Job | None:
    """The job of this name, which is kept for later chunks if it has come with this one."""
    jobs = _process.jobs
    if job is not None and name not in jobs:
        jobs[name] = job
        for older in list(jobs)[:-_MOST_JOBS]:
            jobs.pop(older, None)
    return job if job is not None else jobs.get(name)


def portable(error: Exception) -> Exception:
    """An error as another process can receive it.

    Args:
        error: The error.

    Returns:
        The error itself, if a copy of it can be made by `pickle`; otherwise a `RuntimeError` with
        its type and text.
    """
    try:
        pickle.loads(pickle.dumps(error))
    except Exception:
        return RuntimeError(f"{type(error).__name__}: {error}")
    return error
