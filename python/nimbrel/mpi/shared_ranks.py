"""One private communicator for all simulators of a communicator.

Ranks compare on it what they are about to do. With a communicator for each simulator, two ranks
that use two simulators in different order would wait for each other for ever.
"""

from __future__ import annotations

import atexit
from functools import cache
from typing import Any

from mpi4py import MPI

from nimbrel.mpi.leaving import at_exit

__all__ = ["SharedRanks", "shared_ranks"]


class SharedRanks:
    """The private communicator of a communicator.

    It is freed with the communicator that it belongs to, or when the last simulator closes after
    that.

    Attributes:
        comm: The ranks. Messages of the caller do not meet those on it.
        created: Number of simulators that were created on it so far.
    """

    def __init__(self, comm: MPI.Comm) -> None:
        """Duplicate a communicator; all of its ranks do so together."""
        self.comm = comm.Dup()
        self.created = 0
        self._open = 0
        self._is_left = False
        # Until it is freed: a rank may end while another begins with a further simulator.
        self._at_exit = at_exit(self.comm)

    def enter(self) -> int:
        """Note a new simulator and return its number, from 1."""
        self.created += 1
        self._open += 1
        return self.created

    def leave(self) -> None:
        """Note that a simulator has been closed."""
        self._open -= 1
        self._free_if_left()

    def abandon(self) -> None:
        """Note that the communicator it belongs to is being freed."""
        self._is_left = True
        self._free_if_left()

    def _free_if_left(self) -> None:
        if self._is_left and not self._open and not MPI.Is_finalized():
            atexit.unregister(self._at_exit)
            self.comm.Free()


def _abandon(_comm: MPI.Comm, _keyval: int, shared: Any) -> None:
    shared.abandon()


@cache
def _keyval() -> int:
    return MPI.Comm.Create_keyval(delete_fn=_abandon)  # needs MPI, which an import need not start


def shared_ranks(comm: MPI.Comm) -> SharedRanks:
    """The private communicator of a communicator; all ranks ask for it together the first time."""
    shared = comm.Get_attr(_keyval())
    if not isinstance(shared, SharedRanks):
        shared = SharedRanks(comm)
        comm.Set_attr(_keyval(), shared)
    return shared
