"""What a simulator with amplitudes can do beyond running records.

Bit k of a term's index is qubit k, so qubit 0 is the least significant and the amplitude
of |q2 q1 q0> stands at 4 q2 + 2 q1 + q0.
"""

from typing import Final, SupportsIndex

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import _call
from nimbrel.amplitudes import Amplitudes, Indices, check_buffer
from nimbrel.dense import DenseRegister
from nimbrel.filter_handle import FilterHandle
from nimbrel.layout import Qubits
from nimbrel.sparse import TermList

_DENSE: Final = "StreamQPU"
_SPARSE: Final = "StreamSparseQPU"


class StateOperations(FilterHandle):
    """State transfer, probabilities and samples of a dense or a sparse register.

    "Dense" is a filter of the type "StreamQPU", "sparse" one of the type
    "StreamSparseQPU". A dense register can be named by its qubits below 32. A sparse one has
    up to 63 qubits, all of which can be named here; its size is known to the engine only, so
    a qubit that it lacks is no error but counts as one that is 0.

    Every method raises `ValueError` after `close`, and `RuntimeError` with the engine's own
    text when the engine reports a failure, such as a dense register without a reset. Unless a
    method says otherwise, a filter without amplitudes and what a sparse filter cannot do are a
    `ValueError`.
    """

    def terms(self) -> tuple[Indices, Amplitudes]:
        """Copy the terms out that are not zero.

        Returns:
            Indices, shape (m,) of uint64 in ascending order, and amplitudes, shape (m,) of
            complex128. A sparse register leaves out terms whose squared magnitude is 0 or
            no number, and makes no dense array; a dense register pulls its whole state.
        """
        return self._register().terms()

    def num_stored_terms(self) -> int:
        """Length of a sparse register's list, modulo 2**32.

        Terms of amplitude 0 count: gates and measurements leave them in the list, and every
        walk visits them. 0 before the first reset.

        Raises:
            ValueError: If the filter is not sparse.
        """
        return self._register().num_stored_terms()

    def state(self) -> Amplitudes:
        """Copy the whole state out of a dense register.

        Returns:
            The amplitudes, shape (2**n,) for n qubits.

        Raises:
            ValueError: If the filter is sparse; `terms` serves there.
        """
        return self._register().state()

    def state_of(self, qubits: Qubits) -> tuple[Amplitudes, bool]:
        """The state of some qubits of a dense register alone, as far as they have one.

        Args:
            qubits: The k qubits, below 32; bit j of an index is the j-th lowest of them,
                whatever the order given.

        Returns:
            Amplitudes of shape (2**k,), those of the heaviest setting of the other qubits
            and not normalised; and whether the qubits are entangled with the others, which
            is judged by magnitudes and not by phases. The time grows with 2**n.

        Raises:
            ValueError: If there is no qubit, or one is negative, given twice, above 31 or
                outside the register; or if the filter is sparse.
        """
        return self._register().state_of(qubits)

    def push_state(self, state: npt.ArrayLike, qubits: Qubits | None = None) -> None:
        """Replace the state, or that of some neighbouring qubits.

        Args:
            state: Amplitudes, taken as they are, also when their norm is not 1. Dense: shape
                (2**n,), or (2**k,) for k qubits. Sparse: shape (m,), m from 1 to 2**n, for
                the terms 0 to m - 1; the engine does not look whether the register has
                them. Amplitudes below 1e-25 in squared magnitude are dropped there.
            qubits: Qubits of a dense register that lie side by side, below 32; bit j of an
                index is the j-th lowest. They are measured and set to 0 first, so the others
                collapse to what was entangled with the outcome. None replaces the whole
                state.

        Raises:
            ValueError: If the shape is wrong, the qubits leave a gap, there is none, or one
                is negative, given twice, above 31 or outside the register; or if a sparse
                filter is given qubits.
        """
        self._register().push_state(state, qubits)

    def check_state(self, expected: npt.ArrayLike, tolerance: float = 1e-9) -> bool:
        """Compare the state with expected amplitudes.

        Args:
            expected: Amplitudes. Dense: shape (2**n,). Sparse: shape (m,) from the term 0
                on, up to the highest stored term at least; only stored terms are compared,
                so an amplitude that is expected where none is stored goes unnoticed.
            tolerance: Largest difference allowed in a real or an imaginary part.

        Raises:
            ValueError: If the shape is wrong.
            RuntimeError: If a sparse register stores a term past the array.
        """
        return self._register().check_state(expected, tolerance)

    def override_state_buffer(self, buffer: Amplitudes) -> None:
        """Make a dense register whose amplitudes live in the caller's memory.

        The contents are the state. While the register uses the memory, the order of the
        amplitudes in it may differ from that of `state`. A reset to another number of
        qubits goes back to memory of the engine.

        Args:
            buffer: Amplitudes, shape (2**n,) with n from 1, contiguous, writable and
                aligned as NumPy makes them. Memory of `aligned_buffer` is the fastest.

        Raises:
            ValueError: If the buffer is not of that kind.
            RuntimeError: If the filter is not dense.
        """
        handle = self._open_handle()
        check_buffer(buffer)
        _call(_lib_nb_sim.override_state_buffer, handle, buffer)
        self._register_made(len(buffer).bit_length() - 1)

    def probabilities(self, qubits: Qubits) -> npt.NDArray[np.float64]:
        """The probability of every value of some qubits, without measuring.

        Args:
            qubits: The k qubits, below 32 (sparse: below 63); bit j of a value is the j-th
                qubit given.

        Returns:
            Probabilities, shape (2**k,). Dense: each from one pass over the state. Sparse:
            all from one copy of the terms.

        Raises:
            ValueError: If there is no qubit, or one is negative, given twice, too high or
                outside a dense register.
        """
        return self._register().probabilities(qubits)

    def biggest(self, count: int) -> list[tuple[int, complex]]:
        """The terms of largest probability.

        Args:
            count: How many terms to look for, 0 or more; on a dense register at most 2**n
                and below 2**32.

        Returns:
            Index and amplitude of each, the most likely first. Among equals the lower index
            comes first on a dense register, and the earlier one in the list on a sparse one.
            Terms of amplitude 0 are left out, so there may be fewer than `count`.

        Raises:
            ValueError: If `count` is negative or more than a dense register has terms.
        """
        return self._register().biggest(count)

    def value_of(self, index: SupportsIndex) -> complex:
        """One amplitude, without measuring.

        Args:
            index: The term. Dense: below 2**32; the engine refuses one outside the register.
                Sparse: below 2**63; from 2**32 on, which the engine does not take, all terms
                are copied to find it.

        Raises:
            ValueError: If `index` is negative or too large.
        """
        return self._register().value_of(index)

    def normalize(self) -> float:
        """Scale the state to total probability 1; returns the total before.

        A state of total probability 0 stays as it is. A filter without amplitudes answers 1.
        """
        return _call(_lib_nb_sim.normalize, self._open_handle())

    def set_random(self) -> None:
        """Replace a dense state by a random one of total probability 1.

        A filter without amplitudes does nothing.

        Raises:
            ValueError: If the filter is sparse.
        """
        handle = self._open_handle()
        if self._filter_type == _SPARSE:  # the engine would do nothing without a word
            raise ValueError("a sparse filter has no random states")
        _call(_lib_nb_sim.set_random, handle)

    def pauli_probability(self, xs: Qubits, zs: Qubits) -> float:
        """The probability that a Pauli product would measure as +1, on a dense register.

        Args:
            xs: Qubits that carry X, or Y when they are in `zs` as well; below 32.
            zs: Qubits that carry Z; below 32.

        Raises:
            ValueError: If there is no qubit, or one is negative, given twice in one
                argument, above 31 or outside the register; or if the filter is sparse.
        """
        return self._register().pauli_probability(xs, zs)

    def sample(
        self, shots: int, qubits: Qubits | None = None, seed: int | None = None
    ) -> npt.NDArray[np.int64]:
        """Draw outcomes of a measurement many times; the state is not measured.

        The state or the terms are copied once, and the draws come from NumPy's default
        generator.

        Args:
            shots: Number of draws, 0 or more.
            qubits: Qubits to look at, below 32 (sparse: below 63); bit j of a value is the
                j-th qubit given. None is the whole register, whose values are term indices.
            seed: Seed of the draws; None draws differently every time.

        Returns:
            The values, shape (shots,).

        Raises:
            ValueError: If `shots` is negative, the state has no probability, or a qubit
                is negative, given twice, too high or outside a dense register.
        """
        if shots < 0:
            raise ValueError(f"shots must be 0 or more, not {shots}")
        return self._register().sample(shots, qubits, np.random.default_rng(seed))

    def _register_made(self, num_qubits: int) -> None:
        """Called when a register was made without a record."""

    def _register(self) -> DenseRegister | TermList:
        handle = self._open_handle()
        if self._filter_type == _DENSE:
            return DenseRegister(handle)
        if self._filter_type == _SPARSE:
            return TermList(handle)
        raise ValueError(f'a "{self._filter_type}" filter has no amplitudes')
