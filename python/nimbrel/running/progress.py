"""The progress bar of long runs, which the package tqdm shows."""

from types import TracebackType
from typing import Any

__all__ = ["ProgressBar"]


class ProgressBar:
    """A bar on standard error while a block runs, or nothing.

    tqdm is imported when the first bar is made.
    """

    def __init__(self, total: int, unit: str, *, shown: bool) -> None:
        """Make the bar.

        Args:
            total: The number at which the work is done.
            unit: What is counted, in the singular.
            shown: Whether there is a bar at all.

        Raises:
            ImportError: If a bar is wanted and tqdm is not installed.
        """
        self._bar: Any = None
        if shown:
            try:
                from tqdm.auto import tqdm  # type: ignore[import-untyped,unused-ignore]
            except ImportError as error:
                raise ImportError(
                    "a progress bar needs the package tqdm: pip install nimbrel[progress]"
                ) from error
            self._bar = tqdm(total=total, unit=f" {unit}s")

    def __enter__(self) -> "ProgressBar":
        """Return the bar itself."""
        return self

    def __exit__(
        self,
        exc_type: type[BaseException] | None,
        exc: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        """Leave the bar as it stands."""
        if self._bar is not None:
            self._bar.close()

    def update(self, count: int) -> None:
        """Note that so much more is done.

        Args:
            count: The number.
        """
        if self._bar is not None:
            self._bar.update(count)
