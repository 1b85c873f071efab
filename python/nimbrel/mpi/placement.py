"""Where the qubits of a program are: inside the parts of the state, or in the numbers of the ranks.

n qubits on 2**k ranks have the places 0 to n - 1. The places below m = n - k are the bits of an
index into a rank's part of 2**m amplitudes. The places from m on are the bits of the rank's number.
The number is not the rank itself: a flip or a swap among such qubits renumbers the ranks and moves
no amplitude.
"""

from __future__ import annotations

from copy import copy

import numpy as np
import numpy.typing as npt

__all__ = ["Placement"]


class Placement:
    """The places of the qubits and the numbers of the ranks; the same on every rank.

    Attributes:
        num_qubits: Qubits of the register, n.
        num_local: Qubits inside a part, m.
        places: The place of each qubit.
        numbers: The number of each rank, shape (2**k,).
    """

    def __init__(self, num_qubits: int, num_ranks: int) -> None:
        """Place qubit q at q, and give each rank its own number.

        Args:
            num_qubits: Qubits of the register.
            num_ranks: A power of two.
        """
        self.num_qubits = num_qubits
        self.num_local = num_qubits - (num_ranks.bit_length() - 1)
        self.places = list(range(num_qubits))
        self.numbers: npt.NDArray[np.int64] = np.arange(num_ranks, dtype=np.int64)
        self._numbers_key: bytes | None = None
        self._ranks: npt.NDArray[np.intp] | None = None

    @property
    def global_mask(self) -> int:
        """The qubits in the ranks' numbers."""
        return sum(1 << qubit for qubit in self.global_qubits())

    def global_qubits(self) -> list[int]:
        """The qubits in the ranks' numbers, ascending."""
        return [qubit for qubit, place in enumerate(self.places) if place >= self.num_local]

    def index_bits(self, mask: int) -> int:
        """The bits of an index into a part that hold the qubits of a mask; see `number_bits`."""
        return sum(
            1 << place
            for qubit, place in enumerate(self.places)
            if place < self.num_local and mask >> qubit & 1
        )

    def number_bits(self, mask: int) -> int:
        """The bits of a number that hold the qubits of a mask; the other qubits are dropped."""
        return sum(
            1 << (place - self.num_local)
            for qubit, place in enumerate(self.places)
            if place >= self.num_local and mask >> qubit & 1
        )

    @property
    def key(self) -> tuple[bytes, bytes]:
        """What two equal placements have in common."""
        if self._numbers_key is None:
            self._numbers_key = self.numbers.tobytes()
        return bytes(self.places), self._numbers_key

    def copy(self) -> Placement:
        """A placement that changes by itself. The two share `numbers`, which a flip replaces."""
        self.rank_of(0)  # the copies share the inverse too
        made = copy(self)
        made.places = self.places.copy()
        return made

    def exchange(self, first: int, second: int) -> None:
        """Note that two qubits have exchanged their places."""
        places = self.places
        places[first], places[second] = places[second], places[first]

    def flip(self, target: int, controls: int, negated: int) -> None:
        """Renumber the ranks by an X on a qubit in the numbers.

        Args:
            target: The qubit as a mask.
            controls: Controls, all of them in the numbers.
            negated: Those that are negated.
        """
        wanted = self.number_bits(controls)
        values = wanted ^ self.number_bits(negated & controls)
        holds = self.numbers & wanted == values
        self.numbers = np.where(holds, self.numbers ^ self.number_bits(target), self.numbers)
        self._ranks = self._numbers_key = None

    def rank_of(self, number: int) -> int:
        """The rank with a number."""
        if self._ranks is None:
            self._ranks = np.argsort(self.numbers)
        return int(self._ranks[number])
