"""A dense register whose parts lie on many ranks: gates, and the movement of its amplitudes."""

from __future__ import annotations

from collections.abc import Hashable
from typing import Any, Final

import _lib_nb_sim
import numpy as np
import numpy.typing as npt
from mpi4py import MPI

from nimbrel._engine import call
from nimbrel.amplitudes import Amplitudes, aligned_buffer
from nimbrel.dense import DenseSimulator
from nimbrel.mpi.agreement import agreed_call
from nimbrel.mpi.exchange import Exchanger
from nimbrel.mpi.look_ahead import Uses
from nimbrel.mpi.operations import plain_form
from nimbrel.mpi.parts import PIECE
from nimbrel.mpi.placement import Placement
from nimbrel.mpi.plan import choose_exchange
from nimbrel.mpi.rank_plan import KeptPlans, RankPlan, Transfer, plan_for_rank
from nimbrel.register_trace import Words
from nimbrel.running.available_memory import available_memory

__all__ = ["Register"]

_AMPLITUDE_BYTES: Final = 16
_NO_STATE: Final = np.zeros(0, dtype=np.complex128)


class Register:
    """One rank's part of the state, in the memory of a buffer that its engine works on.

    Attributes:
        comm: The ranks.
        num_qubits: Qubits of the register, 0 without one.
        part: The amplitudes of this rank, shape (2**m,). After a change from outside, `lend` must
            be called before the next gate.
        placement: Where the qubits are.
        exchanger: Moves amplitudes between ranks.
    """

    def __init__(self, comm: MPI.Comm) -> None:
        """Start without a register.

        Args:
            comm: The ranks; their number is a power of two.
        """
        self.comm = comm
        self.num_qubits = 0
        self.part: Amplitudes = _NO_STATE
        self.placement = Placement(0, 1)
        self.exchanger = Exchanger(comm)
        self._plans = KeptPlans()
        # With one thread the engine keeps the buffer as one block, in the order of the terms.
        self._filter = DenseSimulator(max_num_threads=1)
        self._handle = self._filter.handle
        self._on_machine = comm.Split_type(MPI.COMM_TYPE_SHARED)

    @property
    def filter(self) -> DenseSimulator:
        """The filter that works on the part."""
        return self._filter

    @property
    def number(self) -> int:
        """The number of this rank: the values of the qubits that are not inside the part."""
        return int(self.placement.numbers[self.comm.rank])

    def close(self) -> None:
        """Free the filter and the part."""
        self._filter.close()
        self.part = _NO_STATE
        if self._on_machine != MPI.COMM_NULL:
            self._on_machine.Free()

    def reset(self, num_qubits: int) -> None:
        """Make a register with all qubits 0.

        Raises:
            MemoryError: On all ranks, if one has too little memory. There is no register then.
        """
        if num_qubits == self.num_qubits:
            self.part[:] = 0
        else:
            self._allocate(num_qubits)
        self.placement = Placement(num_qubits, self.comm.size)
        if self.comm.rank == 0:
            self.part[0] = 1
        self.lend()

    def _allocate(self, num_qubits: int) -> None:
        self._forget()
        num_local = num_qubits - (self.comm.size.bit_length() - 1)
        self.comm.Barrier()  # all ranks of a machine have given their memory back
        agreed_call(self.comm, lambda: self._check_memory(_AMPLITUDE_BYTES << num_local))
        self.part = agreed_call(self.comm, lambda: _allocated(num_local))
        self.num_qubits = num_qubits

    def _forget(self) -> None:
        if self.num_qubits:
            # The engine holds the old buffer until it gets another one.
            self.num_qubits, self.part = 0, _NO_STATE
            call(_lib_nb_sim.override_state_buffer, self._handle, aligned_buffer(1))

    def _check_memory(self, size: int) -> None:
        ranks, free = self._on_machine.size, available_memory()
        if size * ranks > free:
            raise MemoryError(
                f"a part of the state needs {size / 2**30:.3g} GiB on each of the {ranks} rank(s) "
                f"of this machine, which has {free / 2**30:.3g} GiB left"
            )

    def lend(self) -> None:
        """Tell the engine that the part has changed."""
        call(_lib_nb_sim.override_state_buffer, self._handle, self.part)

    def run(self, words: Words, ahead: Words, key: Hashable = None) -> None:
        """Run gates.

        Args:
            words: Gate records that run, shape (n, 11).
            ahead: What the records behind these mix, shape (m,).
            key: Stands for both: equal keys come with equal records. None if they have no key.
        """

        def made() -> RankPlan:
            plain = plain_form(words, self.num_qubits)
            return plan_for_rank(plain, self.placement, ahead, self.comm.rank)

        if key is None:
            plan = made()
        else:
            plan = self._plans.get((key, self.num_qubits, self.placement.key), made)
        for step in plan.steps:
            if isinstance(step, Transfer):
                self._exchange(step)
            else:
                call(_lib_nb_sim.put_instructions, self._handle, step, len(step))
        self.placement = plan.after.copy()

    def _exchange(self, transfer: Transfer) -> None:
        self.exchanger(self.part, transfer.placement, transfer.step)
        self.placement = transfer.placement.copy()
        self.lend()

    def bring_inside(self, mask: int, ahead: Words) -> None:
        """Move qubits into the parts.

        Args:
            mask: The qubits.
            ahead: What the next records mix.
        """
        if mask & self.placement.global_mask:
            uses = Uses(ahead, self.num_qubits).behind(0)
            step = choose_exchange(self.placement, mask, uses)
            self._exchange(Transfer(step, self.placement))

    def local_bits(self, mask: int, value: int) -> tuple[dict[int, int], bool]:
        """Translate a condition on qubits for this rank.

        Args:
            mask: The qubits.
            value: Their values.

        Returns:
            The values of bits of an index into the part, and whether the number of this rank meets
            the rest of the condition.
        """
        bits, number, fits = {}, self.number, True
        for qubit, place in enumerate(self.placement.places):
            if not mask >> qubit & 1:
                continue
            wanted = value >> qubit & 1
            if place < self.placement.num_local:
                bits[place] = wanted
            else:
                fits &= number >> (place - self.placement.num_local) & 1 == wanted
        return bits, fits

    def term_indices(self, indices: npt.NDArray[np.int64]) -> npt.NDArray[np.int64]:
        """The terms of the whole state at indices into the part."""
        placed = indices | self.number << self.placement.num_local
        terms = np.zeros_like(placed)
        for qubit, place in enumerate(self.placement.places):
            terms |= (placed >> place & 1) << qubit
        return terms

    def gathered(self, root: int | None = None) -> Amplitudes | None:
        """Copy the whole state.

        Args:
            root: The rank that gets it; None gives it to every rank.

        Returns:
            The amplitudes in the order of the terms, shape (2**n,); None on the other ranks.

        Raises:
            MemoryError: On all ranks, if a rank that gets the state has too little memory.
        """
        wanted = root is None or root == self.comm.rank
        size = 1 << self.num_qubits if wanted else 0
        state = agreed_call(self.comm, lambda: np.empty(size, dtype=np.complex128))
        buffer = np.empty(min(PIECE, len(self.part)), dtype=np.complex128)
        for rank in range(self.comm.size):
            placed = self._places_of(state, rank) if wanted else None
            for start in range(0, len(self.part), len(buffer)):
                if rank == self.comm.rank:
                    buffer[:] = self.part[start : start + len(buffer)]
                self._send(buffer, rank, root)
                if placed is not None:
                    _put_piece(placed, start, buffer)
        return state if wanted else None

    def _send(self, buffer: Amplitudes, source: int, root: int | None) -> None:
        if root is None:
            self.comm.Bcast(buffer, source)
        elif source != root and self.comm.rank == source:
            self.comm.Send(buffer, root)
        elif source != root and self.comm.rank == root:
            self.comm.Recv(buffer, source)

    def _places_of(self, state: Amplitudes, rank: int) -> npt.NDArray[Any]:
        """The terms of a rank in the whole state: an axis for each place, the highest first."""
        placement, last = self.placement, self.num_qubits - 1
        qubit_of = {place: qubit for qubit, place in enumerate(placement.places)}
        axes = [last - qubit_of[place] for place in reversed(range(self.num_qubits))]
        by_place = state.reshape((2,) * self.num_qubits).transpose(axes)
        number = int(placement.numbers[rank])
        bits = self.num_qubits - placement.num_local
        found: npt.NDArray[Any] = by_place[
            tuple(number >> bit & 1 for bit in reversed(range(bits)))
        ]
        return found


def _allocated(num_local: int) -> Amplitudes:
    try:
        return aligned_buffer(num_local)
    except MemoryError as error:
        size = (_AMPLITUDE_BYTES << num_local) / 2**30
        raise MemoryError(f"no memory for a part of {size:.3g} GiB: {error}") from None


def _put_piece(placed: npt.NDArray[Any], start: int, values: Amplitudes) -> None:
    """Copy values, a power of two of them, to indices from a multiple of their count."""
    inner = len(values).bit_length() - 1
    outer = placed.ndim - inner
    number = start >> inner
    chosen = placed[tuple(number >> bit & 1 for bit in reversed(range(outer)))]
    chosen[...] = values.reshape((2,) * inner)
