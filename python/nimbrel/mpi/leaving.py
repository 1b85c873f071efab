"""The end of a simulator: all ranks leave it together, or all ranks end with a text.

A rank that has left answers no other rank. Without these checks the others would wait for ever,
and the rank itself too, when MPI shuts down.
"""

from __future__ import annotations

import atexit
import sys
from collections.abc import Callable, Iterator
from contextlib import contextmanager

from mpi4py import MPI

from nimbrel.mpi.agreement import agree, end_all, happened_everywhere

__all__ = ["at_exit", "leave", "leave_by", "or_end_all"]


def leave(comm: MPI.Comm, action: str) -> None:
    """Check that all ranks leave; if not, end all of them.

    Args:
        comm: The ranks.
        action: How this rank leaves.
    """
    try:
        agree(comm, action, b"")
    except ValueError as error:
        end_all(comm, error)


def leave_by(comm: MPI.Comm, error: BaseException) -> None:
    """End all ranks by an error that this rank alone may have.

    `sys.exit` is no error, so the ranks may call it together.
    """
    expected = happened_everywhere(error) or isinstance(error, SystemExit)
    if comm.size > 1 and not expected:
        end_all(comm, error)


@contextmanager
def or_end_all(comm: MPI.Comm) -> Iterator[None]:
    """End all ranks if the block raises."""
    try:
        yield
    except BaseException as error:
        leave_by(comm, error)
        raise


def at_exit(comm: MPI.Comm) -> Callable[[], None]:
    """Let all ranks end if this one ends with an open simulator and the others go on.

    Returns:
        The function, for `atexit.unregister`.
    """

    def check() -> None:
        if MPI.Is_finalized():
            return
        # The interpreter notes an error that nothing has caught.
        error = getattr(sys, "last_value", None)
        if error is not None:
            leave_by(comm, error)
        leave(comm, "exit")

    return atexit.register(check)
