"""Where the executor of a run comes from, and who shuts it down."""

from collections.abc import Callable
from concurrent.futures import Executor, Future
from types import TracebackType
from typing import Any, TypeAlias

from nimbrel.simulator import Simulator

__all__ = [
    "AnyExecutor",
    "CallingThread",
    "ExecutorSource",
    "check_executor",
    "refuse_open_simulator",
]

AnyExecutor: TypeAlias = Executor | Callable[[], Executor]
"""An executor, or a function that makes one."""


def check_executor(executor: AnyExecutor) -> None:
    """Refuse what cannot run work.

    Raises:
        TypeError: If it is neither an executor nor a function.
    """
    if not (_is_executor(executor) or callable(executor)):
        raise TypeError(
            "executor must have the interface of concurrent.futures.Executor, or be a function "
            f"that makes one, not {executor!r}"
        )


def _is_executor(candidate: object) -> bool:
    return hasattr(candidate, "submit") and not isinstance(candidate, type)


def refuse_open_simulator(filter_: str | Simulator) -> None:
    """Refuse an open simulator for workers.

    Raises:
        ValueError: If it is one.
    """
    if isinstance(filter_, Simulator):
        raise ValueError(
            "an open simulator belongs to this process, and workers make their own filters; name "
            f'the type: filter="{filter_.filter_type}"'
        )


class CallingThread(Executor):
    """Runs everything at once in the thread that submits it."""

    def submit(self, fn: Callable[..., Any], /, *args: Any, **kwargs: Any) -> "Future[Any]":
        """Run a function. Unlike a pool, it lets KeyboardInterrupt through."""
        future: Future[Any] = Future()
        future.set_result(fn(*args, **kwargs))
        return future


class ExecutorSource:
    """The executor of a run: the caller's, or one after the other from the caller's function.

    Attributes:
        number: How many executors there were before this one.
        can_renew: Whether another executor can be made.
    """

    def __init__(self, executor: AnyExecutor) -> None:
        """Take the caller's executor or function.

        Args:
            executor: The executor or the function.

        Raises:
            TypeError: If it is neither.
        """
        check_executor(executor)
        self.number = 0
        self._make: Callable[[], Executor] | None = None
        self._current: Executor | None = None
        self._made: list[Executor] = []
        if _is_executor(executor):
            self._current = executor  # type: ignore[assignment]
        else:
            self._make = executor  # type: ignore[assignment]

    @property
    def can_renew(self) -> bool:
        """Whether another executor can be made."""
        return self._make is not None

    def submit(self, function: Callable[..., Any], *args: Any) -> "Future[Any]":
        """Hand a call to the executor. Requires: `ensure` has been called."""
        assert self._current is not None
        return self._current.submit(function, *args)

    def ensure(self) -> None:
        """Make an executor if there is none.

        Raises:
            Exception: What the caller's function raises.
            TypeError: If it does not return an executor.
        """
        if self._current is None:
            assert self._make is not None
            made = self._make()
            if not _is_executor(made):
                raise TypeError(f"the function must return an executor, not {made!r}")
            self._made.append(made)
            self._current = made

    def shut_down_left(self) -> None:
        """Shut down the executors that were left. Requires: no work is under way."""
        while len(self._made) > (self._current is not None):
            self._made.pop(0).shutdown(wait=False)

    def renew(self, number: int) -> None:
        """Leave an executor that has lost a worker.

        Args:
            number: Which one; nothing happens if another has taken its place already.
        """
        if self.can_renew and number == self.number:
            self._current = None
            self.number += 1

    def __enter__(self) -> "ExecutorSource":
        """Return the source itself."""
        return self

    def __exit__(
        self,
        exc_type: type[BaseException] | None,
        exc: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        """Shut down what was made here; after an error without waiting for work under way."""
        for made in self._made:
            made.shutdown(wait=exc_type is None)
