"""The sparse filter's term list as the companion sees it.

The engine names terms by 64-bit indices when it hands them out, but takes indices and masks
of calls as 32-bit numbers. What needs wider ones is therefore worked out here, on a copy of
the terms, so that all 63 qubits of a register can be asked about.
"""

import operator
from typing import Final, NoReturn, SupportsIndex

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import _call, _word32
from nimbrel.amplitudes import Amplitudes, Indices, as_amplitudes
from nimbrel.layout import Qubits, qubit_list
from nimbrel.sampling import draw_terms, gather_bits

MAX_QUBITS: Final = 63
"""Qubits of the largest sparse register."""

_ENGINE_INDICES: Final = 2**32


class TermList:
    """The register of one "StreamSparseQPU" filter.

    The public methods are those of `StateOperations`, which tells what each does. The engine
    does not tell how many qubits a register has: one that it lacks counts as a qubit in 0.
    """

    def __init__(self, handle: int) -> None:
        """Look at the filter that the engine knows by this number."""
        self._handle = handle

    def num_stored_terms(self) -> int:
        """Length of the list, terms of amplitude 0 included."""
        return _call(_lib_nb_sim.peek_num_nonzero_terms, self._handle)

    def terms(self) -> tuple[Indices, Amplitudes]:
        """All terms that are not zero, in ascending order of their index."""
        indices, amplitudes = self._largest(self.num_stored_terms())
        order = np.argsort(indices)
        return indices[order], amplitudes[order]

    def biggest(self, count: int) -> list[tuple[int, complex]]:
        """The largest terms, equals in the order of the list."""
        if count < 0:
            raise ValueError(f"count must be 0 or more, not {count}")
        indices, amplitudes = self._largest(min(count, self.num_stored_terms()))
        return list(zip(indices.tolist(), amplitudes.tolist(), strict=True))

    def value_of(self, index: SupportsIndex) -> complex:
        """One amplitude; 0 for a term that is not stored."""
        number = operator.index(index)
        if not 0 <= number < 1 << MAX_QUBITS:
            raise ValueError(f"index must be from 0 to 2**{MAX_QUBITS} - 1, not {index}")
        if number < _ENGINE_INDICES:
            dest = np.zeros(1, dtype=np.complex128)
            _call(_lib_nb_sim.peek_value, self._handle, number, dest)
            return complex(dest[0])
        indices, amplitudes = self.terms()
        found = amplitudes[indices == np.uint64(number)]
        return complex(found[0]) if len(found) else 0j

    def push_state(self, state: npt.ArrayLike, qubits: Qubits | None) -> None:
        """Replace the list by the amplitudes of the lowest terms."""
        if qubits is not None:
            raise ValueError("a sparse filter takes a whole state, not that of some qubits")
        _call(_lib_nb_sim.push_state, self._handle, as_amplitudes(state), 0)

    def check_state(self, expected: npt.ArrayLike, tolerance: float) -> bool:
        """Compare the stored terms, and no others."""
        source = as_amplitudes(expected)
        return bool(_call(_lib_nb_sim.check_state, self._handle, source, tolerance, 0))

    def probabilities(self, qubits: Qubits) -> npt.NDArray[np.float64]:
        """The probability of every value of some qubits, from one walk over the terms."""
        chosen = _checked(qubits)
        indices, amplitudes = self.terms()
        weights = amplitudes.real**2 + amplitudes.imag**2
        values = gather_bits(indices.astype(np.int64), chosen)
        summed = np.bincount(values, weights, minlength=1 << len(chosen))
        return summed.astype(np.float64, copy=False)

    def sample(
        self, shots: int, qubits: Qubits | None, rng: np.random.Generator
    ) -> npt.NDArray[np.int64]:
        """Draw values of some qubits, or term indices."""
        chosen = None if qubits is None else _checked(qubits)
        indices, amplitudes = self.terms()
        drawn = indices[draw_terms(amplitudes, shots, rng)].astype(np.int64)
        return drawn if chosen is None else gather_bits(drawn, chosen)

    def state(self) -> NoReturn:
        """Refused: nothing tells how long the array would have to be."""
        raise ValueError("a sparse filter gives no dense state; terms() gives its terms")

    def state_of(self, _qubits: Qubits) -> NoReturn:
        """Refused: the engine would not tell whether the qubits are entangled."""
        raise ValueError("a sparse filter gives no state of some qubits; terms() gives its terms")

    def pauli_probability(self, _xs: Qubits, _zs: Qubits) -> NoReturn:
        """Refused: the engine would answer 0.0 whatever the state."""
        raise ValueError("a sparse filter does not calculate Pauli products; ppm measures them")

    def _largest(self, count: int) -> tuple[Indices, Amplitudes]:
        indices = np.zeros(count, dtype=np.uint64)
        amplitudes = np.zeros(count, dtype=np.complex128)
        if count:  # an empty array has no stride that the engine takes
            number = _word32(count, "count")
            _call(_lib_nb_sim.peek_n_biggest_terms, self._handle, number, indices, amplitudes)
        # Places without a term are zero and stand at the end.
        found = int(np.count_nonzero(amplitudes))
        return indices[:found], amplitudes[:found]


def _checked(qubits: Qubits) -> list[int]:
    chosen = qubit_list(qubits, "selected", required=True)
    if max(chosen) >= MAX_QUBITS:
        raise ValueError(f"qubit {max(chosen)} is not below {MAX_QUBITS}")
    return chosen
