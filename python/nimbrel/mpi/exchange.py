"""Exchange of amplitudes between ranks: some bits of the rank's number with bits of the index.

With s such bits, a part has 2**s blocks. A rank keeps the block whose index bits are its own number
bits, and exchanges each other block, in place, with the rank that has the number bits of the block.
Blocks travel in pieces; while one is copied to its place, the next ones are under way.
"""

from __future__ import annotations

from collections.abc import Iterator
from typing import TYPE_CHECKING, Any, Final, NamedTuple

import numpy as np
import numpy.typing as npt
from mpi4py import MPI

from nimbrel.amplitudes import Amplitudes
from nimbrel.mpi.parts import PIECE, pieces, view_of
from nimbrel.mpi.placement import Placement

if TYPE_CHECKING:
    from nimbrel.mpi.plan import Exchange

__all__ = ["Exchanger", "Traffic"]

_SLOTS: Final = 4
_TAG: Final = 7


class Traffic(NamedTuple):
    """What a rank has sent to others.

    Attributes:
        exchanges: Number of exchanges.
        bytes_sent: Bytes of amplitudes.
        seconds: The time of all exchanges.
    """

    exchanges: int = 0
    bytes_sent: int = 0
    seconds: float = 0.0


class _Slot:
    """One piece under way."""

    def __init__(self) -> None:
        self._sent: Amplitudes | None = None
        self._received = np.empty(PIECE, dtype=np.complex128)
        self._requests: list[MPI.Request] = []
        self._piece: npt.NDArray[Any] | None = None

    def start(self, comm: MPI.Comm, piece: npt.NDArray[Any], partner: int) -> None:
        size = piece.size
        if piece.flags.c_contiguous:
            source = piece.reshape(-1)
        else:
            if self._sent is None:
                self._sent = np.empty(PIECE, dtype=np.complex128)
            source = self._sent[:size]
            source.reshape(piece.shape)[...] = piece
        receive = comm.Irecv(self._received[:size], partner, _TAG)
        self._requests = [receive, comm.Isend(source, partner, _TAG)]
        self._piece = piece

    def finish(self) -> None:
        if self._piece is None:
            return
        MPI.Request.Waitall(self._requests)
        self._piece[...] = self._received[: self._piece.size].reshape(self._piece.shape)
        self._piece = None


class Exchanger:
    """Exchanges amplitudes of one rank with the others.

    Attributes:
        traffic: What this rank has sent so far.
    """

    def __init__(self, comm: MPI.Comm) -> None:
        """Take the memory of the pieces.

        Args:
            comm: The ranks.
        """
        self._comm = comm
        self._slots = [_Slot() for _ in range(_SLOTS)] if comm.size > 1 else []
        self.traffic = Traffic()

    def __call__(self, part: Amplitudes, placement: Placement, step: Exchange) -> None:
        """Exchange, in place.

        Args:
            part: The part of this rank, shape (2**m,).
            placement: Numbers of the ranks.
            step: The bits.
        """
        start, sent = MPI.Wtime(), 0
        for count, (piece, partner) in enumerate(self._pieces(part, placement, step)):
            slot = self._slots[count % _SLOTS]
            slot.finish()
            slot.start(self._comm, piece, partner)
            sent += piece.nbytes
        for slot in self._slots:
            slot.finish()
        before = self.traffic
        self.traffic = Traffic(
            before.exchanges + 1,
            before.bytes_sent + sent,
            before.seconds + MPI.Wtime() - start,
        )

    def _pieces(
        self, part: Amplitudes, placement: Placement, step: Exchange
    ) -> Iterator[tuple[npt.NDArray[Any], int]]:
        """Each piece of this rank with the rank that it is exchanged with."""
        number = int(placement.numbers[self._comm.rank])
        for differing in range(1, 1 << len(step.pairs)):
            partner = number
            bits = {}
            for bit, (number_bit, index_bit) in enumerate(step.pairs):
                flipped = differing >> bit & 1
                partner ^= flipped << number_bit
                bits[index_bit] = number >> number_bit & 1 ^ flipped
            rank = placement.rank_of(partner)
            for piece in pieces(view_of(part, bits)):
                yield piece, rank
