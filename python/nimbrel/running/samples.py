"""The outcomes that `sample` returns."""

from dataclasses import dataclass
from typing import Any, Final

import numpy as np
import numpy.typing as npt

__all__ = ["Samples"]

_WORD_BITS: Final = 64


@dataclass(frozen=True, repr=False)
class Samples:
    """The read flags of many runs of a program.

    Attributes:
        read_flags: Column k of the outcomes is the read flag `read_flags[k]`.
        packed: The outcomes, shape (shots, ceil(columns / 8)), dtype uint8. Column k is bit
            `k % 8` of byte `k // 8`.
        filter_name: The engine's name of the filter that ran the program.
        reason: Why this filter ran it, in one sentence.
    """

    read_flags: tuple[int, ...]
    packed: npt.NDArray[np.uint8]
    filter_name: str
    reason: str

    def __len__(self) -> int:
        """The number of shots."""
        return len(self.packed)

    def __repr__(self) -> str:
        return f"<Samples: {len(self)} shots of {len(self.read_flags)} flags, {self.filter_name}>"

    def bits(self) -> npt.NDArray[np.uint8]:
        """The outcomes as zeros and ones.

        Returns:
            Bits, shape (shots, columns), dtype uint8.
        """
        return np.unpackbits(self.packed, axis=1, count=len(self.read_flags), bitorder="little")

    def values(self) -> npt.NDArray[np.uint64]:
        """The outcomes as integers, column 0 least significant.

        Returns:
            Values, shape (shots,), dtype uint64.

        Raises:
            ValueError: If there are more than 64 columns.
        """
        if len(self.read_flags) > _WORD_BITS:
            raise ValueError(
                f"an integer holds 64 columns, and there are {len(self.read_flags)}; use bits()"
            )
        words = np.zeros((len(self.packed), 8), dtype=np.uint8)
        words[:, : self.packed.shape[1]] = self.packed
        return words.view("<u8").reshape(-1).astype(np.uint64, copy=False)

    def counts(self) -> dict[str, int]:
        """How often each outcome came.

        Returns:
            The number of shots by bit string, column 0 rightmost, in ascending order. Outcomes
            that never came are omitted.
        """
        columns = len(self.read_flags)
        if columns <= _WORD_BITS:
            values, numbers = np.unique(self.values(), return_counts=True)
            strings = [f"{value:0{columns}b}" if columns else "" for value in values.tolist()]
        else:
            # Bytes compare from the first one, so the most significant byte must come first.
            rows: Any = np.ascontiguousarray(self.packed[:, ::-1])
            keys, numbers = np.unique(rows.view(f"V{rows.shape[1]}"), return_counts=True)
            numbers_of = [int.from_bytes(key.tobytes(), "big") for key in keys]
            strings = [f"{value:0{columns}b}" for value in numbers_of]
        return dict(zip(strings, numbers.tolist(), strict=True))
