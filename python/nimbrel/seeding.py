"""The seed of the engine's generator, in a process and in those forked from it.

A forked child begins with its parent's generator as it stood, so without further seeding all
children draw the same outcomes as their parent. Hooks of `os.fork` seed every child anew.
"""

import os
import threading

import _lib_nb_sim
from numpy.random import SeedSequence

from nimbrel._engine import _call, _word32


def seed(value: int) -> None:
    """Seed the generator that all filters of the process share but the Clifford ones.

    A forked process continues from no generator of its parent. After a call of `seed`, child
    number n since that call (from 0, in the order of the forks) is seeded with the first word of
    `numpy.random.SeedSequence(value, spawn_key=(n,))`, and its own children further down that
    tree, so that the same seed repeats a whole sweep. Without a call the system's entropy seeds
    every child.

    Args:
        value: The seed, 32 bits.

    Raises:
        TypeError: If `value` is not an integer.
        ValueError: If `value` does not fit an unsigned 32-bit word.
    """
    _lineage.seed(_word32(value, "seed"))


class _Lineage:
    """Where the seed of this process comes from, and those of its children.

    Any Python thread may seed and fork. The lock is held across a fork, from the hook before it
    to the hook after it, so two threads that fork at once give their children different seeds.
    It is reentrant because a signal handler may fork while its thread is inside.
    """

    def __init__(self) -> None:
        self._lock = threading.RLock()
        self._own: SeedSequence | None = None
        self._child: SeedSequence | None = None

    def seed(self, value: int) -> None:
        """Seed the engine and begin to count children anew."""
        with self._lock:
            _call(_lib_nb_sim.random_seed, 0, value)
            self._own = SeedSequence(value)

    def before_fork(self) -> None:
        """Choose the seed of the child; the sequence counts the children that it has had."""
        self._lock.acquire()
        self._child = self._own.spawn(1)[0] if self._own is not None else None

    def after_fork_in_parent(self) -> None:
        """Let other threads fork."""
        self._lock.release()

    def after_fork_in_child(self) -> None:
        """Seed the child."""
        self._own = self._child
        sequence = self._own if self._own is not None else SeedSequence()
        _call(_lib_nb_sim.random_seed, 0, int(sequence.generate_state(1)[0]))
        self._lock.release()


_lineage = _Lineage()
os.register_at_fork(
    before=_lineage.before_fork,
    after_in_parent=_lineage.after_fork_in_parent,
    after_in_child=_lineage.after_fork_in_child,
)
