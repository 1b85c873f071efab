"""Measurements of a register on many ranks.

Sums are added from the sums of the parts, so every rank has the same ones. A small register is
gathered instead, and summed in the order of its terms; on one rank every register is summed so.
Then outcomes and amplitudes are bit for bit those of one process with one block.
"""

from __future__ import annotations

import math
from collections.abc import Sequence
from typing import Any, Final

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import call
from nimbrel.amplitudes import Amplitudes
from nimbrel.dense import MASK_QUBITS, DenseSimulator
from nimbrel.mpi.draws import Draws
from nimbrel.mpi.parts import pieces, probability, view_of
from nimbrel.mpi.products import PartProduct, plus_probability, project
from nimbrel.mpi.register import Register
from nimbrel.mpi.term_order import term_at, total_probability
from nimbrel.mpi.value_sums import value_sums
from nimbrel.register_trace import Words
from nimbrel.sampling import draw_terms

__all__ = ["Measuring"]

_SUMMED_TOGETHER: Final = 1 << 14
"""Sums that the ranks exchange in one message."""


class Measuring:
    """Reads, projections and sums of one register.

    Attributes:
        draws: The generator of the outcomes, a copy on every rank.
    """

    def __init__(self, register: Register, draws: Draws, exact_qubits: int) -> None:
        """Take a register.

        Args:
            register: The register.
            draws: The attribute `draws`.
            exact_qubits: Qubits of the largest register that is gathered for its sums.
        """
        self.draws = draws
        self._register = register
        self._exact_qubits = exact_qubits
        self._scratch = DenseSimulator(max_num_threads=1)

    def close(self) -> None:
        """Free what belongs to it."""
        self._scratch.close()

    def _whole(self) -> Amplitudes | None:
        """The state in the order of its terms, if it is small enough or on this rank alone."""
        register = self._register
        if register.comm.size == 1:
            return register.part
        return register.gathered() if register.num_qubits <= self._exact_qubits else None

    def _summed(self, value: float) -> float:
        # A sum that is rounded once depends on no order.
        return math.fsum(self._register.comm.allgather(value))

    def total(self) -> float:
        """The total probability."""
        whole = self._whole()
        if whole is not None:
            return total_probability(whole)
        return self._summed(probability(self._register.part))

    def _where(self, mask: int, value: int) -> float:
        """The probability of values of qubits, from the parts."""
        bits, fits = self._register.local_bits(mask, value)
        own = probability(view_of(self._register.part, bits)) if fits else 0.0
        return self._summed(own)

    def probabilities(self, qubits: Sequence[int]) -> npt.NDArray[np.float64]:
        """The probability of every value of some qubits, one at least.

        Args:
            qubits: The k qubits; bit j of a value is the j-th qubit given.

        Returns:
            Probabilities, shape (2**k,).
        """
        whole = self._whole()
        if whole is None or self._register.num_qubits > MASK_QUBITS:
            return self._summed_all(self._own_probabilities(qubits))
        handle = self._engine_on(whole)
        mask = sum(1 << qubit for qubit in qubits)
        values = (
            sum((value >> bit & 1) << qubit for bit, qubit in enumerate(qubits))
            for value in range(1 << len(qubits))
        )
        peek = _lib_nb_sim.peek_read_probability
        return np.array([call(peek, handle, value, mask, 0.0) for value in values])

    def _own_probabilities(self, qubits: Sequence[int]) -> npt.NDArray[np.float64]:
        """What the part of this rank adds to the probability of every value of some qubits."""
        placement, number = self._register.placement, self._register.number
        places = [placement.places[qubit] for qubit in qubits]
        sums = value_sums(
            self._register.part, [place for place in places if place < placement.num_local]
        )
        chosen: list[Any] = [
            slice(None)
            if place < placement.num_local
            else number >> place - placement.num_local & 1
            for place in reversed(places)
        ]
        found = np.zeros((2,) * len(qubits))
        found[tuple(chosen)] = sums.reshape((2,) * found[tuple(chosen)].ndim)
        return found.reshape(-1)

    def _summed_all(self, values: npt.NDArray[np.float64]) -> npt.NDArray[np.float64]:
        """Add arrays of all ranks; see `_summed`."""
        summed = np.empty(len(values))
        for start in range(0, len(values), _SUMMED_TOGETHER):
            own = values[start : start + _SUMMED_TOGETHER]
            found = np.empty((self._register.comm.size, len(own)))
            self._register.comm.Allgather(own, found)
            summed[start : start + len(own)] = [math.fsum(column) for column in found.T.tolist()]
        return summed

    def _engine_on(self, whole: Amplitudes) -> int:
        """A filter with the whole state."""
        if whole is self._register.part:
            return self._register.filter.handle
        call(_lib_nb_sim.override_state_buffer, self._scratch.handle, whole)
        return self._scratch.handle

    def read(self, mask: int) -> int:
        """Measure the qubits of a mask and return their values; also none of them takes a draw."""
        value = self._draw(mask) & mask
        self.collapse(mask, value)
        self.normalize()
        return value

    def _draw(self, mask: int) -> int:
        """Draw a term, at least its bits from the lowest one of a mask on."""
        number = self.draws.zero_to_one()
        everything = (1 << self._register.num_qubits) - 1
        whole = self._whole()
        if whole is None:
            return self._descend(mask, number)
        total = total_probability(whole)
        return term_at(whole, number * total) if total > 0 else everything

    def _descend(self, mask: int, number: float) -> int:
        """Draw the bits of a term from the highest one down."""
        if not mask:
            return 0
        fixed = value = 0
        rest = number * self._where(0, 0)
        for qubit in reversed(range((mask & -mask).bit_length() - 1, self._register.num_qubits)):
            fixed |= 1 << qubit
            zero = self._where(fixed, value)
            if zero > 0 and zero >= rest:
                continue
            one = self._where(fixed, value | 1 << qubit)
            if zero > 0 and not one > 0:
                rest = zero  # rounding has put the number behind the last term
                continue
            value |= 1 << qubit
            rest = min(rest - zero, one)
        return value

    def collapse(self, mask: int, value: int) -> None:
        """Set the terms to zero whose qubits of a mask have other values."""
        register = self._register
        bits, fits = register.local_bits(mask, value)
        if not fits:
            register.part[:] = 0
        else:
            for place, bit in bits.items():
                view_of(register.part, {place: 1 - bit})[...] = 0
        register.lend()

    def normalize(self) -> float:
        """Scale the state to total probability 1 and return the one before; 0 stays 0."""
        total = self.total()
        if total not in (0.0, 1.0):
            factor = 1.0 / math.sqrt(total)
            for piece in pieces(self._register.part.view(np.float64)):
                np.multiply(piece, factor, out=piece)
        self._register.lend()
        return total

    def write_all(self, value: int) -> None:
        """Set all qubits, without a draw."""
        register = self._register
        register.part[:] = 0
        bits, fits = register.local_bits((1 << register.num_qubits) - 1, value)
        if fits:
            register.part[sum(bit << place for place, bit in bits.items())] = 1
        register.lend()

    def plus_probability(self, x_mask: int, z_mask: int, ahead: Words) -> float:
        """The probability that a Pauli product measures as +1; 0 for the identity.

        Args:
            x_mask: Letters X and Y.
            z_mask: Letters Z and Y.
            ahead: What the next records mix.
        """
        if not x_mask | z_mask:
            return 0.0
        self._register.bring_inside(x_mask, ahead)
        whole = self._whole()
        if whole is not None and self._register.num_qubits <= MASK_QUBITS:
            return call(_lib_nb_sim.pps, self._engine_on(whole), x_mask, z_mask)
        product = self._part_product(x_mask, z_mask)
        return self._summed(plus_probability(self._register.part, product))

    def measure_product(self, x_mask: int, z_mask: int, ahead: Words) -> int:
        """Measure a Pauli product: 0 for the eigenvalue +1, 1 for -1; see `plus_probability`."""
        plus = self.plus_probability(x_mask, z_mask, ahead)
        outcome = int(self.draws.zero_to_one() >= plus)
        project(self._register.part, self._part_product(x_mask, z_mask), outcome)
        self._register.lend()
        self.normalize()
        return outcome

    def _part_product(self, x_mask: int, z_mask: int) -> PartProduct:
        placement = self._register.placement
        minus = (placement.number_bits(z_mask) & self._register.number).bit_count() % 2 == 1
        return PartProduct(placement.index_bits(x_mask), placement.index_bits(z_mask), minus)

    def sample(self, shots: int, seed: int) -> npt.NDArray[np.int64]:
        """Draw terms without a measurement.

        Args:
            shots: Number of draws.
            seed: Seed of the draws, the same on all ranks.

        Returns:
            Indices of terms, shape (shots,).

        Raises:
            ValueError: If the total probability is 0 or not finite.
        """
        rng = np.random.default_rng(seed)
        whole = self._whole()
        if whole is not None:
            return draw_terms(whole, shots, rng)
        register = self._register
        weights = np.cumsum(register.comm.allgather(probability(register.part)))
        if not 0.0 < weights[-1] < np.inf:
            raise ValueError(
                f"a state of total probability {weights[-1]:g} has no outcomes to draw"
            )
        last = int(np.searchsorted(weights, weights[-1], side="left"))
        ranks = np.searchsorted(weights, rng.random(shots) * weights[-1], side="right").clip(
            max=last
        )
        count = int(np.count_nonzero(ranks == register.comm.rank))
        own = np.zeros(0, dtype=np.int64)
        if count:
            own_rng = np.random.default_rng([seed, register.comm.rank])
            own = register.term_indices(draw_terms(register.part, count, own_rng))
        drawn = np.empty(shots, dtype=np.int64)
        for rank, terms in enumerate(register.comm.allgather(own)):
            drawn[ranks == rank] = terms
        return drawn
