"""`Simulator`: a dense register over the memories of many ranks."""

from __future__ import annotations

import operator
from types import TracebackType
from typing import Final, TypeVar, overload

import numpy as np
import numpy.typing as npt
from mpi4py import MPI

from nimbrel._engine import word32
from nimbrel.amplitudes import Amplitudes
from nimbrel.masks import Qubits, qubit_list
from nimbrel.mpi.agreement import agree, mark
from nimbrel.mpi.draws import Draws
from nimbrel.mpi.exchange import Traffic
from nimbrel.mpi.flags import ReadFlags
from nimbrel.mpi.leaving import leave, leave_by, or_end_all
from nimbrel.mpi.measuring import Measuring
from nimbrel.mpi.program_run import ProgramRun
from nimbrel.mpi.refusals import check_letters, check_records
from nimbrel.mpi.register import Register
from nimbrel.mpi.shared_ranks import shared_ranks
from nimbrel.program_check import ProgramCheck
from nimbrel.records import RecordArray, program
from nimbrel.sampling import check_shots, gather_bits
from nimbrel.suspect_search import as_words

__all__ = ["Simulator"]

EXACT_QUBITS: Final = 16
"""Registers up to this size are gathered for a sum, which takes a mebibyte on each rank."""

_Self = TypeVar("_Self", bound="Simulator")


class Simulator:
    """A state vector of 2**n amplitudes over 2**k processes, the ranks of MPI.

        with nimbrel.mpi.Simulator() as sim:
            sim.run(reset(30), h(range(30)), read(0, 2))
            print(sim.flags(2, 1))

    Every rank runs the same program and calls the same methods with the same arguments, and every
    rank gets the same results. A rank holds 2**(n - k) amplitudes, 2 at least.

    A method that one rank calls with other arguments, or of another simulator of the same
    communicator, raises `ValueError` on all ranks. An error that only one rank has, and that leaves
    the `with` block or the program, is written to standard error and ends all ranks. So does a rank
    that closes the simulator while others go on. After `close`, every method raises `ValueError`.

    Args:
        comm: The ranks, a power of two; None means all processes that `mpirun` has started.
        exact_qubits: A register of up to so many qubits is gathered for each sum of probabilities,
            and its outcomes and amplitudes are bit for bit those of one process with one block. A
            sum over a larger one may differ in its last bits, unless there is one rank.
        check_qubits: Whether `run` refuses qubits outside the register. Without this check they
            are dropped, but for a letter Y of a measured product, which is refused.

    Raises:
        ValueError: If the number of ranks is no power of two, or if they have different arguments.
    """

    def __init__(
        self,
        comm: MPI.Comm | None = None,
        *,
        exact_qubits: int = EXACT_QUBITS,
        check_qubits: bool = True,
    ) -> None:
        ranks = MPI.COMM_WORLD if comm is None else comm
        if ranks.size & (ranks.size - 1):
            raise mark(ValueError(f"the number of ranks is a power of two, not {ranks.size}"))
        self._shared = shared_ranks(ranks)
        self._comm: MPI.Comm | None = self._shared.comm
        agree(self._comm, "Simulator", f"{exact_qubits} {check_qubits}".encode())
        with or_end_all(self._comm):
            self._check = ProgramCheck("StreamQPU", qubits=check_qubits, inexact_controls=False)
            self._register = Register(self._comm)
            self._flags = ReadFlags()
            entropy = int(np.random.SeedSequence().generate_state(1)[0])
            draws = Draws(self._comm.bcast(entropy))
            self._measuring = Measuring(self._register, draws, exact_qubits)
            self._run = ProgramRun(self._register, self._measuring, self._flags)
        self._number = self._shared.enter()

    def __enter__(self: _Self) -> _Self:
        """Return the simulator itself."""
        return self

    def __exit__(
        self,
        exc_type: type[BaseException] | None,
        exc: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        """Close the simulator. An error that not all ranks have ends all of them."""
        if exc is not None and self._comm is not None:
            leave_by(self._comm, exc)
        self.close()

    def __repr__(self) -> str:
        if self._comm is None:
            return "<nimbrel.mpi.Simulator, closed>"
        return f"<nimbrel.mpi.Simulator, rank {self._comm.rank} of {self._comm.size}>"

    def close(self) -> None:
        """Free the part of this rank. A second call does nothing.

        All ranks close together. If one of them is about to do something else, all ranks end.
        """
        if self._comm is not None:
            leave(self._comm, self._named("close"))
            self._comm = None
            self._measuring.close()
            self._flags.close()
            self._register.close()
            self._shared.leave()

    def _agree(self, action: str, content: bytes | memoryview = b"") -> bytes:
        """Check that all ranks call the same method of this simulator; see `agree`."""
        return agree(self._open(), self._named(action), content)

    def _named(self, action: str) -> str:
        return f"{action} of simulator {self._number}"

    def _open(self) -> MPI.Comm:
        if self._comm is None:
            raise ValueError("the simulator is closed")
        return self._comm

    @property
    def comm(self) -> MPI.Comm:
        """The ranks, a duplicate of the communicator that was given, which its simulators share."""
        return self._open()

    @property
    def num_qubits(self) -> int:
        """Qubits of the register; 0 without one."""
        return self._register.num_qubits

    @property
    def traffic(self) -> Traffic:
        """What this rank has sent to other ranks in exchanges so far."""
        return self._register.exchanger.traffic

    @property
    def part(self) -> Amplitudes:
        """The amplitudes of this rank, shape (2**(n - k),), read-only, without a copy.

        Exchanges change which terms they belong to.
        """
        self._open()
        part: Amplitudes = self._register.part.view()
        part.flags.writeable = False
        return part

    def run(self, *parts: RecordArray) -> None:
        """Run a program on all ranks.

        All ranks compare their programs first, and each checks it. What cannot be done on several
        ranks is refused before the first record runs.

        Args:
            *parts: `QPU_OP` arrays of shape (k,), joined in this order.

        Raises:
            ValueError: If the ranks have different programs, if a part is no `QPU_OP` array, or if
                a record is refused; the text gives its index.
            RuntimeError: If a record fails, with the engine's text.
            MemoryError: If a rank has no memory for its part.
        """
        comm = self._open()
        try:
            records = program(*parts)
        except ValueError as error:
            self._agree(f"run: {error}")
            raise mark(error) from None
        name = self._agree("run", records.view(np.uint8).data)
        words = as_words(np.asarray(records))
        try:
            check_records(words, comm.size, self._run.before)
            entry, after = self._check.begin(records)
            check_letters(words, self._run.before)
        except (ValueError, RuntimeError) as error:
            raise mark(error) from None
        try:
            self._run(words, name)
            self._check.ran(entry, after)
        except BaseException:
            self._check.failed(records)
            raise

    def flags(self, first: int, count: int) -> int:
        """Read consecutive read flags; see `DenseSimulator.flags`."""
        self._open()
        return self._flags.fetch(first, count)

    def forget_flags(self) -> None:
        """Go back to the read flags of a new simulator: none is stored."""
        self._agree("forget_flags")
        self._flags.forget()

    def seed(self, value: int) -> None:
        """Seed the draws of this simulator.

        The outcomes are then those of a dense filter of one process after `nimbrel.seed(value)`.
        `nimbrel.seed` itself does not change the draws here.

        Args:
            value: The seed, 32 bits.

        Raises:
            TypeError: If `value` is not an integer.
            ValueError: If `value` does not fit 32 bits, or the ranks give different seeds.
        """
        seed = word32(value, "seed")
        self._agree("seed", str(seed).encode())
        self._measuring.draws = Draws(seed)

    @overload
    def state(self) -> Amplitudes: ...

    @overload
    def state(self, root: int) -> Amplitudes | None: ...

    def state(self, root: int | None = None) -> Amplitudes | None:
        """Copy the whole state.

        Args:
            root: The rank that gets it; None gives a copy to every rank.

        Returns:
            The amplitudes in the order of the terms, shape (2**n,); None on a rank that is not
            `root`.

        Raises:
            MemoryError: On all ranks, if a rank has too little memory.
        """
        self._with_register()
        self._agree("state", str(root).encode())
        return self._register.gathered(root)

    def probabilities(self, qubits: Qubits) -> npt.NDArray[np.float64]:
        """The probability of every value of some qubits, without a measurement.

        Args:
            qubits: The k qubits; bit j of a value is the j-th qubit given.

        Returns:
            Probabilities, shape (2**k,). Above `exact_qubits` qubits all come from one pass.
        """
        chosen = self._chosen(qubits)
        self._with_register()
        self._agree("probabilities", str(chosen).encode())
        return self._measuring.probabilities(chosen)

    def pauli_probability(self, xs: Qubits, zs: Qubits) -> float:
        """The probability that a Pauli product measures as +1.

        Args:
            xs: Qubits with a factor X, or Y if they are in `zs` too.
            zs: Qubits with a factor Z.

        Raises:
            ValueError: If there is no qubit, if one is outside the register, or if there are more
                `xs` than qubits in a part.
        """
        x_qubits, z_qubits = qubit_list(xs, "X"), qubit_list(zs, "Z")
        self._chosen({*x_qubits, *z_qubits})
        if len(x_qubits) > self._register.placement.num_local:
            raise ValueError(f"a part of the state holds fewer than {len(x_qubits)} qubits")
        self._with_register()
        self._agree("pauli_probability", f"{x_qubits} {z_qubits}".encode())
        none = np.zeros(0, dtype=np.uint64)
        return self._measuring.plus_probability(_mask(x_qubits), _mask(z_qubits), none)

    def postselect(self, value: int, qubits: Qubits) -> None:
        """Project some qubits on a value and scale the state to total probability 1.

        Args:
            value: The value; bit j is the j-th qubit given.
            qubits: The qubits.

        Raises:
            RuntimeError: If the value has probability 0. All amplitudes are 0 then.
        """
        chosen = self._chosen(qubits)
        self._with_register()
        self._agree("postselect", f"{value} {chosen}".encode())
        wanted = sum((value >> bit & 1) << qubit for bit, qubit in enumerate(chosen))
        self._measuring.collapse(_mask(chosen), wanted)
        if self._measuring.normalize() == 0.0:
            text = "Error: qc.postselect() no nonzero terms match desired value."
            raise mark(RuntimeError(text))

    def normalize(self) -> float:
        """Scale the state to total probability 1; returns the total probability before."""
        self._with_register()
        self._agree("normalize")
        return self._measuring.normalize()

    def sample(
        self, shots: int, qubits: Qubits | None = None, seed: int | None = None
    ) -> npt.NDArray[np.int64]:
        """Draw outcomes of a measurement many times, without a measurement.

        Up to `exact_qubits` qubits a seed gives the outcomes of `DenseSimulator.sample`. Above,
        they depend on the number of ranks too.

        Args:
            shots: Number of draws, 0 or more.
            qubits: Qubits to look at; bit j of a value is the j-th qubit given. None means the
                whole register.
            seed: Seed of the draws, 0 or more; None draws differently each time.

        Returns:
            The values, shape (shots,).

        Raises:
            ValueError: If `shots` is negative, if a qubit is outside the register, or if the total
                probability is 0 or not finite.
        """
        check_shots(shots)
        chosen = None if qubits is None else self._chosen(qubits)
        comm = self._with_register()
        self._agree("sample", f"{shots} {chosen} {seed}".encode())
        entropy = int(np.random.SeedSequence().generate_state(1)[0])
        terms = self._measuring.sample(shots, comm.bcast(entropy if seed is None else seed))
        return terms if chosen is None else gather_bits(terms, chosen)

    def _with_register(self) -> MPI.Comm:
        comm = self._open()
        if not self._register.num_qubits:
            raise mark(RuntimeError("there is no register yet: run a program with a reset"))
        return comm

    def _chosen(self, qubits: Qubits) -> list[int]:
        self._with_register()
        chosen = [operator.index(qubit) for qubit in qubit_list(qubits, "selected", required=True)]
        size = self._register.num_qubits
        if max(chosen) >= size:
            raise ValueError(f"qubit {max(chosen)} lies outside the register of {size} qubits")
        return chosen


def _mask(qubits: list[int]) -> int:
    return sum(1 << qubit for qubit in qubits)
