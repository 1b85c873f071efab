"""The operations that only a "StreamSparseQPU" filter has: those of its list of terms.

Bit k of a term's index is qubit k. The engine returns indices as 64-bit numbers, but takes the
indices and masks of its calls as 32-bit numbers. Operations that need wider ones are carried out
here on a copy of the terms, so that they take all 63 qubits of a register.
"""

import operator
from typing import ClassVar, Final, SupportsIndex

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import call, word32
from nimbrel.amplitudes import Amplitudes, Indices, as_amplitudes, empty_terms
from nimbrel.masks import Qubits, qubit_list
from nimbrel.sampling import check_shots, draw_terms, gather_bits
from nimbrel.simulator import FilterSimulator

MAX_QUBITS: Final = 63
"""Qubits of the largest sparse register."""

_ENGINE_INDICES: Final = 2**32


class SparseSimulator(FilterSimulator, filter_type="StreamSparseQPU"):
    """A filter that holds a list of the terms that are not zero, on up to 63 qubits.

    The engine does not tell how many qubits the register has. A qubit that the register lacks is
    no error in these methods and counts as a qubit that is 0.
    """

    _instead: ClassVar[dict[str, str]] = {
        "state": "terms() gives the terms of a sparse filter",
        "state_of": "terms() gives the terms of a sparse filter",
        "pauli_probability": "a record of ppm measures a Pauli product",
    }

    def terms(self) -> tuple[Indices, Amplitudes]:
        """Copy the terms that are not zero.

        Returns:
            Indices, shape (m,), dtype uint64, in ascending order, and amplitudes, shape (m,),
            dtype complex128. Terms whose squared magnitude is 0 or NaN are omitted.

        Raises:
            ValueError: If the simulator is closed.
        """
        indices, amplitudes = self._largest(self.num_stored_terms())
        order = np.argsort(indices)
        return indices[order], amplitudes[order]

    def num_stored_terms(self) -> int:
        """The length of the list, modulo 2**32; 0 before the first reset.

        Terms of amplitude 0 count. Gates and measurements leave them in the list, and each of them
        costs time in every gate.

        Raises:
            ValueError: If the simulator is closed.
        """
        return call(_lib_nb_sim.peek_num_nonzero_terms, self._require_open())

    def biggest(self, count: int) -> list[tuple[int, complex]]:
        """The terms of highest probability.

        Args:
            count: Number of terms to look for, 0 or more.

        Returns:
            Index and amplitude of each, the highest probability first; equals are in the order of
            the list. Terms of amplitude 0 are omitted, so there may be fewer than `count`.

        Raises:
            ValueError: If `count` is negative, or if the simulator is closed.
        """
        self._require_open()
        if count < 0:
            raise ValueError(f"count must be 0 or more, not {count}")
        indices, amplitudes = self._largest(min(count, self.num_stored_terms()))
        return list(zip(indices.tolist(), amplitudes.tolist(), strict=True))

    def value_of(self, index: SupportsIndex) -> complex:
        """One amplitude, without a measurement; 0 for a term that is not in the list.

        Args:
            index: The index of the term, below 2**63. The engine takes indices below 2**32. For a
                higher one all terms are copied.

        Raises:
            ValueError: If `index` is negative or too large, or if the simulator is closed.
        """
        self._require_open()
        number = operator.index(index)
        if not 0 <= number < 1 << MAX_QUBITS:
            raise ValueError(f"index must be from 0 to 2**{MAX_QUBITS} - 1, not {index}")
        if number < _ENGINE_INDICES:
            dest = np.zeros(1, dtype=np.complex128)
            call(_lib_nb_sim.peek_value, self._require_open(), number, dest)
            return complex(dest[0])
        indices, amplitudes = self.terms()
        found = amplitudes[indices == np.uint64(number)]
        return complex(found[0]) if len(found) else 0j

    def push_state(self, state: npt.ArrayLike) -> None:
        """Replace the list by the terms 0 to m - 1.

        Args:
            state: Amplitudes, shape (m,), m from 1 to 2**n for n qubits; the engine does not check
                this limit. They are not normalised. Amplitudes below 1e-25 in squared magnitude
                are dropped.

        Raises:
            ValueError: If the shape is wrong, or if the simulator is closed.
        """
        self._require_open()
        call(_lib_nb_sim.push_state, self._require_open(), as_amplitudes(state), 0)

    def check_state(self, expected: npt.ArrayLike, tolerance: float = 1e-9) -> bool:
        """Compare the terms of the list with expected amplitudes.

        Only terms of the list are compared. An expected amplitude without a term is not noticed.

        Args:
            expected: Amplitudes from term 0 on, shape (m,), up to the highest term of the list at
                least.
            tolerance: Largest difference allowed in a real or an imaginary part.

        Raises:
            ValueError: If the shape is wrong, or if the simulator is closed.
            RuntimeError: If the list has a term past the end of the array.
        """
        self._require_open()
        source = as_amplitudes(expected)
        return bool(call(_lib_nb_sim.check_state, self._require_open(), source, tolerance, 0))

    def normalize(self) -> float:
        """Scale the state to total probability 1.

        A state of total probability 0 does not change.

        Returns:
            The total probability before.

        Raises:
            ValueError: If the simulator is closed.
        """
        return call(_lib_nb_sim.normalize, self._require_open())

    def probabilities(self, qubits: Qubits) -> npt.NDArray[np.float64]:
        """The probability of every value of some qubits, without a measurement.

        Args:
            qubits: The k qubits, below 63; bit j of a value is the j-th qubit given.

        Returns:
            Probabilities, shape (2**k,), all from one copy of the terms.

        Raises:
            ValueError: If there is no qubit; if a qubit is negative, given twice or above 62; or
                if the simulator is closed.
        """
        self._require_open()
        chosen = _checked(qubits)
        indices, amplitudes = self.terms()
        weights = amplitudes.real**2 + amplitudes.imag**2
        values = gather_bits(indices.astype(np.int64), chosen)
        summed = np.bincount(values, weights, minlength=1 << len(chosen))
        return summed.astype(np.float64, copy=False)

    def sample(
        self, shots: int, qubits: Qubits | None = None, seed: int | None = None
    ) -> npt.NDArray[np.int64]:
        """Draw outcomes of a measurement many times, without a measurement.

        The terms are copied once. NumPy's default generator gives the random numbers.

        Args:
            shots: Number of draws, 0 or more.
            qubits: Qubits to look at, below 63; bit j of a value is the j-th qubit given. None
                means the whole register, and the values are indices of terms.
            seed: Seed of the generator; None seeds it from the system.

        Returns:
            The values, shape (shots,), dtype int64.

        Raises:
            ValueError: If `shots` is negative; if the total probability is 0 or not finite; if a
                qubit is negative, given twice or above 62; or if the simulator is closed.
        """
        check_shots(shots)
        self._require_open()
        rng = np.random.default_rng(seed)
        chosen = None if qubits is None else _checked(qubits)
        indices, amplitudes = self.terms()
        drawn = indices[draw_terms(amplitudes, shots, rng)].astype(np.int64)
        return drawn if chosen is None else gather_bits(drawn, chosen)

    def _largest(self, count: int) -> tuple[Indices, Amplitudes]:
        indices, amplitudes = empty_terms(count)
        if count:  # the engine refuses the stride of an empty array
            number = word32(count, "count")
            call(
                _lib_nb_sim.peek_n_biggest_terms, self._require_open(), number, indices, amplitudes
            )
        # Places without a term are zero and come last.
        found = int(np.count_nonzero(amplitudes))
        return indices[:found], amplitudes[:found]


def _checked(qubits: Qubits) -> list[int]:
    chosen = qubit_list(qubits, "selected", required=True)
    if max(chosen) >= MAX_QUBITS:
        raise ValueError(f"qubit {max(chosen)} is not below {MAX_QUBITS}")
    return chosen
