"""The errors of runs on many workers."""

from typing import Any

__all__ = ["PointError", "WorkerLostError"]


class WorkerLostError(RuntimeError):
    """A worker ended before its work was done. The text names the work."""


class PointError(Exception):
    """A point of a sweep that has no result.

    `sweep` returns it in the place of the result. It can be raised like any exception.

    Attributes:
        index: The number of the point in the sweep, from 0.
        parameters: The point, as the sweep was given it.
        error: What went wrong. It is also the `__cause__`.
        traceback: Where it went wrong in the worker, as text; empty if a worker was lost.
    """

    def __init__(
        self, index: int, parameters: Any, error: BaseException, traceback: str = ""
    ) -> None:
        """Describe the failure.

        Args:
            index: The number of the point.
            parameters: The point.
            error: What went wrong.
            traceback: Where, as text.
        """
        super().__init__(index, parameters, error, traceback)
        self.index = index
        self.parameters = parameters
        self.error = error
        self.traceback = traceback
        self.__cause__ = error

    def __str__(self) -> str:
        what = f"{type(self.error).__name__}: {self.error}"
        return f"point {self.index}, {self.parameters!r}: {what}"
