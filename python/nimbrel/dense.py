"""Amplitudes of a dense register: state transfer, probabilities, samples.

Bit k of a term's index is qubit k, so qubit 0 is the least significant and the amplitude
of |q2 q1 q0> stands at 4 q2 + 2 q1 + q0. Masks and indices pass to the engine as 32-bit
numbers: operations that name qubits or one term reach qubits 0 to 31, the others any.
"""

import re
from typing import Final

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import _call, _word32
from nimbrel.amplitudes import Amplitudes, as_amplitudes, check_buffer
from nimbrel.filter_handle import FilterHandle
from nimbrel.layout import Qubits, qubit_list
from nimbrel.sampling import draw_terms, gather_bits

MASK_QUBITS: Final = 32
"""Qubits that a mask handed to the engine covers."""

_DENSE_FILTERS: Final = frozenset({"StreamQPU"})
_TERMS_NEEDED: Final = re.compile(r"needs an array of (\d+) amplitudes")


class DenseOperations(FilterHandle):
    """What a simulator with a dense register ("StreamQPU") can do beyond running records.

    Every method raises `ValueError` after `close`, and `RuntimeError` with the engine's
    own text when the engine reports a failure, such as a register without a reset. Those
    that need the register's size raise `ValueError` on a filter without amplitudes.
    """

    def state(self) -> Amplitudes:
        """Copy the whole state out.

        Returns:
            The amplitudes, shape (2**n,) for n qubits.
        """
        dest = np.zeros(self._num_terms(), dtype=np.complex128)
        _call(_lib_nb_sim.pull_state, self.handle, dest)
        return dest

    def state_of(self, qubits: Qubits) -> tuple[Amplitudes, bool]:
        """The state of some qubits alone, as far as they have one.

        Args:
            qubits: The k qubits, below 32; bit j of an index is the j-th lowest of them,
                whatever the order given.

        Returns:
            Amplitudes of shape (2**k,), those of the heaviest setting of the other qubits
            and not normalised; and whether the qubits are entangled with the others, which
            is judged by magnitudes and not by phases. The time grows with 2**n.

        Raises:
            ValueError: If there is no qubit, or one is negative, given twice, above 31 or
                outside the register.
        """
        chosen = self._register_qubits(qubits)
        dest = np.zeros(1 << len(chosen), dtype=np.complex128)
        text = _call(_lib_nb_sim.pull_state_specific, self.handle, dest, _mask(chosen))
        # The only text that a dense register gives is the one about entanglement.
        return dest, text != ""

    def push_state(self, state: npt.ArrayLike, qubits: Qubits | None = None) -> None:
        """Replace the state, or that of some neighbouring qubits.

        Args:
            state: Amplitudes, shape (2**n,), or (2**k,) for k qubits; taken as they are,
                also when their norm is not 1.
            qubits: Qubits that lie side by side, below 32; bit j of an index is the j-th
                lowest. They are measured and set to 0 first, so the others collapse to
                what was entangled with the outcome. None replaces the whole state.

        Raises:
            ValueError: If the shape is wrong, the qubits leave a gap, there is none, or
                one is negative, given twice, above 31 or outside the register.
        """
        mask, terms = 0, self._num_terms()
        if qubits is not None:
            chosen = self._register_qubits(qubits)
            if max(chosen) - min(chosen) >= len(chosen):
                raise ValueError(f"qubits {sorted(chosen)} do not lie side by side")
            mask, terms = _mask(chosen), 1 << len(chosen)
        _call(_lib_nb_sim.push_state, self.handle, as_amplitudes(state, terms), mask)

    def check_state(self, expected: npt.ArrayLike, tolerance: float = 1e-9) -> bool:
        """Compare the state with expected amplitudes.

        Args:
            expected: Amplitudes, shape (2**n,).
            tolerance: Largest difference allowed in a real or an imaginary part.

        Raises:
            ValueError: If the shape is wrong.
        """
        source = as_amplitudes(expected, self._num_terms())
        return bool(_call(_lib_nb_sim.check_state, self.handle, source, tolerance, 0))

    def override_state_buffer(self, buffer: Amplitudes) -> None:
        """Make a register whose amplitudes live in the caller's memory.

        The contents are the state. While the register uses the memory, the order of the
        amplitudes in it may differ from that of `state`. A reset to another number of
        qubits goes back to memory of the engine.

        Args:
            buffer: Amplitudes, shape (2**n,) with n from 1, contiguous, writable and
                beginning at a multiple of 32 bytes, as from `aligned_buffer`.

        Raises:
            ValueError: If the buffer is not of that kind.
        """
        handle = self.handle
        check_buffer(buffer)
        _call(_lib_nb_sim.override_state_buffer, handle, buffer)

    def probabilities(self, qubits: Qubits) -> npt.NDArray[np.float64]:
        """The probability of every value of some qubits, without measuring.

        Args:
            qubits: The k qubits, below 32; bit j of a value is the j-th qubit given.

        Returns:
            Probabilities, shape (2**k,), each from one pass over the state.

        Raises:
            ValueError: If there is no qubit, or one is negative, given twice, above 31 or
                outside the register.
        """
        chosen = self._register_qubits(qubits)
        handle, mask = self.handle, _mask(chosen)
        return np.array(
            [
                _call(_lib_nb_sim.peek_read_probability, handle, _spread(v, chosen), mask, 0.0)
                for v in range(1 << len(chosen))
            ]
        )

    def biggest(self, count: int) -> list[tuple[int, complex]]:
        """The terms of largest probability.

        Args:
            count: How many terms to look for, at most 2**n and below 2**32.

        Returns:
            Index and amplitude of each, the most likely first, the lower index first among
            equals. Terms of amplitude 0 are left out, so there may be fewer than `count`.

        Raises:
            ValueError: If `count` is negative or more than the register has terms.
        """
        terms = self._num_terms()
        if not 0 <= count <= terms:
            raise ValueError(f"count must be from 0 to {terms}, not {count}")
        indices = np.zeros(count, dtype=np.uint64)
        amplitudes = np.zeros(count, dtype=np.complex128)
        if count:  # an empty array has no stride that the engine takes
            number = _word32(count, "count")
            _call(_lib_nb_sim.peek_n_biggest_terms, self.handle, number, indices, amplitudes)
        found = zip(indices.tolist(), amplitudes.tolist(), strict=True)
        return [(index, amplitude) for index, amplitude in found if amplitude != 0]

    def value_of(self, index: int) -> complex:
        """One amplitude, without measuring.

        Args:
            index: The term, below 2**32; the engine refuses one outside the register.

        Raises:
            ValueError: If `index` does not fit an unsigned 32-bit word, or the filter has
                no amplitudes.
        """
        handle = self.handle
        self._check_dense()
        dest = np.zeros(1, dtype=np.complex128)
        _call(_lib_nb_sim.peek_value, handle, _word32(index, "index"), dest)
        return complex(dest[0])

    def normalize(self) -> float:
        """Scale the state to total probability 1; returns the total before.

        A state of total probability 0 stays as it is.
        """
        return _call(_lib_nb_sim.normalize, self.handle)

    def set_random(self) -> None:
        """Replace the state by a random one of total probability 1."""
        _call(_lib_nb_sim.set_random, self.handle)

    def pauli_probability(self, xs: Qubits, zs: Qubits) -> float:
        """The probability that a Pauli product would measure as +1.

        Args:
            xs: Qubits that carry X, or Y when they are in `zs` as well; below 32.
            zs: Qubits that carry Z; below 32.

        Raises:
            ValueError: If there is no qubit, or one is negative, given twice in one
                argument, above 31 or outside the register.
        """
        x_qubits, z_qubits = qubit_list(xs, "X"), qubit_list(zs, "Z")
        self._register_qubits({*x_qubits, *z_qubits})
        return _call(_lib_nb_sim.pps, self.handle, _mask(x_qubits), _mask(z_qubits))

    def sample(
        self, shots: int, qubits: Qubits | None = None, seed: int | None = None
    ) -> npt.NDArray[np.int64]:
        """Draw outcomes of a measurement many times; the state is not measured.

        The whole state is pulled once, and the draws come from NumPy's default generator.

        Args:
            shots: Number of draws, 0 or more.
            qubits: Qubits to look at, below 32; bit j of a value is the j-th qubit given.
                None is the whole register, whose values are term indices.
            seed: Seed of the draws; None draws differently every time.

        Returns:
            The values, shape (shots,).

        Raises:
            ValueError: If `shots` is negative, the state has no probability, or a qubit
                is negative, given twice, above 31 or outside the register.
        """
        if shots < 0:
            raise ValueError(f"shots must be 0 or more, not {shots}")
        chosen = None if qubits is None else self._register_qubits(qubits)
        indices = draw_terms(self.state(), shots, np.random.default_rng(seed))
        return indices if chosen is None else gather_bits(indices, chosen)

    def _check_dense(self) -> None:
        if self._filter_type not in _DENSE_FILTERS:
            raise ValueError(f'a "{self._filter_type}" filter has no amplitudes')

    def _num_terms(self) -> int:
        # Records change the size behind this object's back, jumps and failures included, so
        # the engine itself is asked: it refuses an array that is too short by naming the size.
        handle = self.handle
        self._check_dense()
        try:
            _call(_lib_nb_sim.pull_state, handle, np.zeros(1, dtype=np.complex128))
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
