"""The filter that a process keeps from one piece of work to the next.

All filters of a process share one generator, and every call of the engine holds the interpreter
lock. So the threads of a process take turns, for as long as one piece of work seeds and draws. They
lose nothing by this, and one filter serves them all.
"""

import os
import threading
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import Final, TypeVar

from nimbrel.opcodes import Opcode
from nimbrel.records import Program
from nimbrel.simulator import Simulator

__all__ = ["KeptFilter", "leaves_nothing_open"]

Result = TypeVar("Result")

_LASTING: Final = (Opcode.JUMP_FWD, Opcode.PCP)


class _Turn:
    """The lock of a process. A forked child has a new one, since nobody would release the old."""

    def __init__(self) -> None:
        self.lock = threading.Lock()

    def renew(self) -> None:
        self.lock = threading.Lock()


_turn = _Turn()
os.register_at_fork(after_in_child=_turn.renew)


def leaves_nothing_open(records: Program) -> bool:
    """Whether a program ends without an open jump, batch or extension, which the next would meet.

    Args:
        records: The program.
    """
    opcodes = records["opcode"]
    lasting = any(bool((opcodes == opcode).any()) for opcode in _LASTING)
    return not lasting and (len(records) == 0 or int(opcodes[-1]) != Opcode.EXTEND)


class KeptFilter:
    """At most one filter, of the type that was used last.

    Attributes:
        max_num_threads: The parameter of that name of every filter that is made here.
        state: Names the state that the filter has; None if nobody relies on it.
    """

    def __init__(self, max_num_threads: int) -> None:
        """Keep no filter yet.

        Args:
            max_num_threads: The parameter of that name of every filter that is made here.
        """
        self.max_num_threads = max_num_threads
        self.state: str | None = None
        self._simulator: Simulator | None = None
        self._in_use = threading.Lock()
        self._retired = False

    def in_turn(self, work: Callable[[], Result]) -> Result:
        """Do some work while all other users of such filters in this process wait.

        Args:
            work: The work.

        Returns:
            What the work returns.
        """
        # No context manager of our own: Ctrl-C between its lines and the block would leave the
        # locks to the traceback, which a notebook keeps, and the next run would wait for ever.
        try:
            with _turn.lock, self._in_use:
                return work()
        finally:
            if self._retired:
                self._close_if_idle()

    @contextmanager
    def opened(self, name: str, state: str | None = None) -> Iterator[Simulator]:
        """A filter of a type; an error in the block ends it.

        Requires: the caller has the turn of the process.

        Args:
            name: The engine's name of the filter type.
            state: The state that the caller wants. If the filter has another one, `self.state` is
                None in the block.
        """
        if self.state != state:
            self.state = None
        kept = self._simulator
        if kept is None or kept.filter_type != name:
            self.close()
            kept = self._simulator = Simulator(name, max_num_threads=self.max_num_threads)
        try:
            yield kept
        except BaseException:
            self.close()  # it may have stopped between two records
            raise

    def retire(self) -> None:
        """Free the filter now, or when the thread that uses it has ended its turn."""
        self._retired = True
        self._close_if_idle()

    def _close_if_idle(self) -> None:
        if self._in_use.acquire(blocking=False):
            try:
                self.close()
            finally:
                self._in_use.release()

    def close(self) -> None:
        """Free the filter. Requires: nobody uses it."""
        self.state = None
        kept, self._simulator = self._simulator, None
        if kept is not None:
            kept.close()
