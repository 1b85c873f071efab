"""The dense filter's register as the companion sees it.

Masks and indices pass to the engine as 32-bit numbers, so operations that name qubits or one
term reach qubits 0 to 31.
"""

import operator
import re
from typing import Final, NoReturn, SupportsIndex

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import _call, _word32
from nimbrel.amplitudes import Amplitudes, Indices, as_amplitudes
from nimbrel.layout import Qubits, qubit_list
from nimbrel.sampling import draw_terms, gather_bits

MASK_QUBITS: Final = 32
"""Qubits that a mask handed to the engine covers."""

_TERMS_NEEDED: Final = re.compile(r"needs an array of (\d+) amplitudes")


class DenseRegister:
    """The register of one "StreamQPU" filter.

    The public methods are those of `StateOperations`, which tells what each does.
    """

    def __init__(self, handle: int) -> None:
        """Look at the filter that the engine knows by this number."""
        self._handle = handle

    def num_stored_terms(self) -> NoReturn:
        """Refused: a dense register has no list."""
        raise ValueError("a dense filter keeps no list of terms")

    def terms(self) -> tuple[Indices, Amplitudes]:
        """All terms that are not zero, in ascending order of their index."""
        state = self.state()
        indices = np.flatnonzero(state)
        return indices.astype(np.uint64), state[indices]

    def state(self) -> Amplitudes:
        """The whole state."""
        dest = np.zeros(self._num_terms(), dtype=np.complex128)
        _call(_lib_nb_sim.pull_state, self._handle, dest)
        return dest

    def state_of(self, qubits: Qubits) -> tuple[Amplitudes, bool]:
        """The heaviest setting's amplitudes, and whether there is entanglement."""
        chosen = self._register_qubits(qubits)
        dest = np.zeros(1 << len(chosen), dtype=np.complex128)
        text = _call(_lib_nb_sim.pull_state_specific, self._handle, dest, _mask(chosen))
        # The only text that a dense register gives is the one about entanglement.
        return dest, text != ""

    def push_state(self, state: npt.ArrayLike, qubits: Qubits | None) -> None:
        """Replace the state, or that of neighbouring qubits."""
        mask, terms = 0, self._num_terms()
        if qubits is not None:
            chosen = self._register_qubits(qubits)
            if max(chosen) - min(chosen) >= len(chosen):
                raise ValueError(f"qubits {sorted(chosen)} do not lie side by side")
            mask, terms = _mask(chosen), 1 << len(chosen)
        _call(_lib_nb_sim.push_state, self._handle, as_amplitudes(state, terms), mask)

    def check_state(self, expected: npt.ArrayLike, tolerance: float) -> bool:
        """Compare all amplitudes."""
        source = as_amplitudes(expected, self._num_terms())
        return bool(_call(_lib_nb_sim.check_state, self._handle, source, tolerance, 0))

    def probabilities(self, qubits: Qubits) -> npt.NDArray[np.float64]:
        """The probability of every value of some qubits, each from one pass over the state."""
        chosen = self._register_qubits(qubits)
        handle, mask = self._handle, _mask(chosen)
        return np.array(
            [
                _call(_lib_nb_sim.peek_read_probability, handle, _spread(v, chosen), mask, 0.0)
                for v in range(1 << len(chosen))
            ]
        )

    def biggest(self, count: int) -> list[tuple[int, complex]]:
        """The largest terms, the lower index first among equals."""
        terms = self._num_terms()
        if not 0 <= count <= terms:
            raise ValueError(f"count must be from 0 to {terms}, not {count}")
        indices = np.zeros(count, dtype=np.uint64)
        amplitudes = np.zeros(count, dtype=np.complex128)
        if count:  # an empty array has no stride that the engine takes
            number = _word32(count, "count")
            _call(_lib_nb_sim.peek_n_biggest_terms, self._handle, number, indices, amplitudes)
        found = zip(indices.tolist(), amplitudes.tolist(), strict=True)
        return [(index, amplitude) for index, amplitude in found if amplitude != 0]

    def value_of(self, index: SupportsIndex) -> complex:
        """One amplitude; the engine refuses a term that the register lacks."""
        dest = np.zeros(1, dtype=np.complex128)
        number = _word32(operator.index(index), "index")
        _call(_lib_nb_sim.peek_value, self._handle, number, dest)
        return complex(dest[0])

    def pauli_probability(self, xs: Qubits, zs: Qubits) -> float:
        """The probability of the outcome +1 of a Pauli product."""
        x_qubits, z_qubits = qubit_list(xs, "X"), qubit_list(zs, "Z")
        self._register_qubits({*x_qubits, *z_qubits})
        return _call(_lib_nb_sim.pps, self._handle, _mask(x_qubits), _mask(z_qubits))

    def sample(
        self, shots: int, qubits: Qubits | None, rng: np.random.Generator
    ) -> npt.NDArray[np.int64]:
        """Draw values of some qubits, or term indices, from the whole state."""
        chosen = None if qubits is None else self._register_qubits(qubits)
        indices = draw_terms(self.state(), shots, rng)
        return indices if chosen is None else gather_bits(indices, chosen)

    def _num_terms(self) -> int:
        # Records change the size behind this object's back, jumps and failures included, so
        # the engine itself is asked: it refuses an array that is too short by naming the size.
        try:
            _call(_lib_nb_sim.pull_state, self._handle, np.zeros(1, dtype=np.complex128))
        except RuntimeError as error:
            needed = _TERMS_NEEDED.search(str(error))
            if needed is None:
                raise
            return int(needed[1])
        return 1

    def _register_qubits(self, qubits: Qubits) -> list[int]:
        chosen = qubit_list(qubits, "selected", required=True)
        num_qubits = self._num_terms().bit_length() - 1
        highest = max(chosen)
        if highest >= num_qubits:
            raise ValueError(f"qubit {highest} lies outside the register of {num_qubits} qubits")
        if highest >= MASK_QUBITS:
            raise ValueError(f"qubit {highest} is not below {MASK_QUBITS}")
        return chosen


def _mask(qubits: list[int]) -> int:
    return sum(1 << qubit for qubit in qubits)


def _spread(value: int, qubits: list[int]) -> int:
    return sum((value >> place & 1) << qubit for place, qubit in enumerate(qubits))
