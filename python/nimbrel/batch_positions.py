"""The integers that the word `angle` of a Pauli product holds."""

from typing import Final, NamedTuple

__all__ = ["BatchPosition", "batch_position", "truncated"]

_COUNT_UNIT: Final = 1000
_SMALLEST: Final = -(2**31)


class BatchPosition(NamedTuple):
    """Where a product stands in its batch.

    Attributes:
        size: Products of the batch; a batch of 0 or less collects products and never runs.
        place: The place of the product; 0 begins a batch.
    """

    size: int
    place: int

    @property
    def is_last(self) -> bool:
        """Whether the product ends the batch, which then runs."""
        return self.size > 0 and self.place == self.size - 1


def truncated(number: float) -> int:
    """The 32-bit integer that the engine makes of a number: the smallest if it does not fit."""
    fits = _SMALLEST - 1 < number < -_SMALLEST
    return int(number) if fits else _SMALLEST


def batch_position(code: float) -> BatchPosition:
    """Decode count * 1000 + place, the word `angle` of a product of a batch."""
    number = truncated(code)
    count, place = divmod(abs(number), _COUNT_UNIT)
    return BatchPosition(count, place) if number >= 0 else BatchPosition(-count, -place)
