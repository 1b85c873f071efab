"""Ranks that compare what they are about to do, so that all go on or all fail with one text."""

from __future__ import annotations

import hashlib
import sys
import traceback
from collections.abc import Callable
from typing import Any, NoReturn, TypeVar

from mpi4py import MPI

__all__ = ["agree", "agreed_call", "end_all", "happened_everywhere", "mark"]

R = TypeVar("R")
E = TypeVar("E", bound=BaseException)


def mark(error: E) -> E:
    """Note that all ranks raise this error, so that none of them must end the others."""
    error.__dict__["_on_all_ranks"] = True
    return error


def happened_everywhere(error: BaseException) -> bool:
    """Whether `mark` has noted the error."""
    return bool(error.__dict__.get("_on_all_ranks"))


def agree(comm: MPI.Comm, action: str, content: bytes | memoryview) -> bytes:
    """Check that all ranks are about to do the same.

    Args:
        comm: The ranks.
        action: What this rank is about to do.
        content: What it does it with, such as a program.

    Returns:
        A digest of the content.

    Raises:
        ValueError: On all ranks, if they differ; it names the ranks.
    """
    digest = hashlib.blake2b(content, digest_size=16).digest()
    if comm.size == 1:
        return digest
    found: list[tuple[str, bytes]] = comm.allgather((action, digest))
    groups: dict[tuple[str, bytes], list[int]] = {}
    for rank, entry in enumerate(found):
        groups.setdefault(entry, []).append(rank)
    if len(groups) == 1:
        return digest
    texts = [
        f"rank{'s' if len(ranks) > 1 else ''} {', '.join(map(str, ranks))}: {name} "
        f"({compared.hex()[:8]})"
        for (name, compared), ranks in groups.items()
    ]
    raise mark(ValueError(f"the ranks were given different work: {'; '.join(texts)}"))


def agreed_call(comm: MPI.Comm, function: Callable[[], R]) -> R:
    """Call a function on all ranks; if it fails on one, raise that rank's error on all.

    Raises:
        Exception: The error of this rank, or one of the same type as that of the first rank that
            failed, with the rank and its text.
    """
    error: Exception | None = None
    result: Any = None
    try:
        result = function()
    except Exception as raised:
        error = raised
    if comm.size == 1:
        if error is not None:
            raise error
        return result  # type: ignore[no-any-return]
    told = None if error is None else (type(error).__name__, str(error))
    found: list[tuple[str, str] | None] = comm.allgather(told)
    failed = [(rank, entry) for rank, entry in enumerate(found) if entry is not None]
    if not failed:
        return result  # type: ignore[no-any-return]
    if error is not None:
        raise mark(error)
    rank, (name, text) = failed[0]
    kind = {"MemoryError": MemoryError, "ValueError": ValueError}.get(name, RuntimeError)
    raise mark(kind(f"rank {rank}: {text}"))


def end_all(comm: MPI.Comm, error: BaseException) -> NoReturn:
    """Write an error of this rank alone to standard error, and end all ranks."""
    lines = traceback.format_exception(type(error), error, error.__traceback__)
    sys.stderr.write(f"rank {comm.rank} ends all ranks:\n{''.join(lines)}")
    sys.stderr.flush()
    comm.Abort(1)
    raise SystemExit(1)
