"""The seed of the engine's generator, in a process and in the processes forked from it.

A forked child starts with a copy of its parent's generator. Without a new seed, all children draw
the same outcomes as their parent. Hooks of `os.fork` give every child a new seed.
"""

import os
import threading

import _lib_nb_sim
from numpy.random import SeedSequence

from nimbrel._engine import call, word32


def seed(value: int) -> None:
    """Seed the generator that all filters of the process share, except the Clifford filters.

    A forked process does not continue its parent's generator. After a call of `seed`, child
    number n since that call (from 0, in the order of the forks) is seeded with the first word of
    `numpy.random.SeedSequence(value, spawn_key=(n,))`. The children of a child extend the spawn
    key, so the same seed repeats a whole sweep. Without a call of `seed`, the system's entropy
    seeds every child.

    Args:
        value: The seed, 32 bits.

    Raises:
        TypeError: If `value` is not an integer.
        ValueError: If `value` does not fit an unsigned 32-bit word.
    """
    _lineage.seed(word32(value, "seed"))


class _Lineage:
    """The seed of this process, and the seeds of its children.

    Any Python thread may seed and fork. The hook before a fork takes the lock and the hook after
    it releases the lock, so two threads that fork at the same time give their children different
    seeds. The lock is reentrant, because a signal handler or another hook may fork while its thread
    holds the lock. Such a fork ends before the outer one, so the children's seeds are a stack.
    """

    def __init__(self) -> None:
        self._lock = threading.RLock()
        self._own: SeedSequence | None = None
        self._children: list[SeedSequence | None] = []

    def seed(self, value: int) -> None:
        """Seed the engine and restart the numbering of the children."""
        with self._lock:
            call(_lib_nb_sim.random_seed, 0, value)
            self._own = SeedSequence(value)

    def before_fork(self) -> None:
        """Choose the seed of the child. The sequence counts the children that it has spawned."""
        self._lock.acquire()
        self._children.append(self._own.spawn(1)[0] if self._own is not None else None)

    def after_fork_in_parent(self) -> None:
        """Let other threads fork."""
        self._children.pop()
        self._lock.release()

    def after_fork_in_child(self) -> None:
        """Seed the child."""
        self._own = self._children.pop()
        sequence = self._own if self._own is not None else SeedSequence()
        call(_lib_nb_sim.random_seed, 0, int(sequence.generate_state(1)[0]))
        self._lock.release()


_lineage = _Lineage()
os.register_at_fork(
    before=_lineage.before_fork,
    after_in_parent=_lineage.after_fork_in_parent,
    after_in_child=_lineage.after_fork_in_child,
)
