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

_BUFFERS: Final = 8
"""Pieces that are under way at most: 8 MiB. With fewer, ranks wait for each other more often."""
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

    def __init__(self, received: Amplitudes, sent: Amplitudes | None) -> None:
        """Take memory for a piece.

        Args:
            received: What the partner sends.
            sent: A contiguous copy of what this rank sends; None if its pieces are contiguous.
        """
        self._received = received
        self._sent = sent
        self._requests: list[MPI.Request] = []
        self._piece: npt.NDArray[Any] | None = None

    def start(self, comm: MPI.Comm, piece: npt.NDArray[Any], partner: int) -> None:
        """Send a piece, and wait for nothing."""
        source = piece.reshape(-1) if self._sent is None else self._sent[: piece.size]
        if self._sent is not None:
            source.reshape(piece.shape)[...] = piece
        receive = comm.Irecv(self._received[: piece.size], partner, _TAG)
        self._requests = [receive, comm.Isend(source, partner, _TAG)]
        self._piece = piece

    def finish(self) -> None:
        """Wait for the partner's piece and put it in the place of the one that was sent."""
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
        self._buffers = np.empty((_BUFFERS if comm.size > 1 else 0, PIECE), dtype=np.complex128)
        self.traffic = Traffic()

    def __call__(self, part: Amplitudes, placement: Placement, step: Exchange) -> None:
        """Exchange, in place.

        Args:
            part: The part of this rank, shape (2**m,).
            placement: Numbers of the ranks.
            step: The bits.
        """
        start, sent = MPI.Wtime(), 0
        slots: list[_Slot] = []
        for count, (piece, partner) in enumerate(self._pieces(part, placement, step)):
            slots = slots or self._slots_for(piece)
            slot = slots[count % len(slots)]
            slot.finish()
            slot.start(self._comm, piece, partner)
            sent += piece.nbytes
        for slot in slots:
            slot.finish()
        before = self.traffic
        self.traffic = Traffic(
            before.exchanges + 1,
            before.bytes_sent + sent,
            before.seconds + MPI.Wtime() - start,
        )

    def _slots_for(self, piece: npt.NDArray[Any]) -> list[_Slot]:
        """The slots of an exchange, whose pieces are all contiguous or all not."""
        if piece.flags.c_contiguous:
            return [_Slot(buffer, None) for buffer in self._buffers]
        half = len(self._buffers) // 2
        pairs = zip(self._buffers[:half], self._buffers[half:], strict=True)
        return [_Slot(received, sent) for received, sent in pairs]

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
