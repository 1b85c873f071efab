"""The operations that only a "StreamQPU" filter has: those of its state vector.

Bit k of a term's index is qubit k. The amplitude of |q2 q1 q0> has the index 4 q2 + 2 q1 + q0.
The engine takes masks and indices as 32-bit numbers, so operations that name qubits or one term
take qubits 0 to 31.
"""

import operator
import re
from typing import ClassVar, Final, SupportsIndex

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import call, word32
from nimbrel.amplitudes import Amplitudes, Indices, as_amplitudes, check_buffer, empty_terms
from nimbrel.masks import Qubits, qubit_list
from nimbrel.sampling import check_shots, draw_terms, gather_bits
from nimbrel.simulator import FilterSimulator

MASK_QUBITS: Final = 32
"""Qubits that a mask argument of the engine covers."""

_TERMS_NEEDED: Final = re.compile(r"needs an array of (\d+) amplitudes")


class DenseSimulator(FilterSimulator, filter_type="StreamQPU"):
    """A filter that holds a state vector of 2**n amplitudes.

    Without a register, which the first reset makes, every method raises `RuntimeError` with the
    engine's text.
    """

    _instead: ClassVar[dict[str, str]] = {
        "num_stored_terms": "a dense filter keeps no list of terms"
    }

    def terms(self) -> tuple[Indices, Amplitudes]:
        """Copy the terms that are not zero, from a copy of the whole state.

        Returns:
            Indices, shape (m,), dtype uint64, in ascending order, and amplitudes, shape (m,),
            dtype complex128.

        Raises:
            ValueError: If the simulator is closed.
        """
        state = self.state()
        indices = np.flatnonzero(state)
        return indices.astype(np.uint64), state[indices]

    def state(self) -> Amplitudes:
        """Copy the whole state.

        Returns:
            The amplitudes, shape (2**n,) for n qubits, dtype complex128.

        Raises:
            ValueError: If the simulator is closed.
        """
        dest = np.zeros(self._num_terms(), dtype=np.complex128)
        call(_lib_nb_sim.pull_state, self._require_open(), dest)
        return dest

    def state_of(self, qubits: Qubits) -> tuple[Amplitudes, bool]:
        """Copy the state of some qubits, and tell whether they are entangled with the others.

        The amplitudes are those of one value of the other qubits: the value with the highest
        probability. They are not normalised. The time grows with 2**n.

        Args:
            qubits: The k qubits, below 32. Bit j of an index is the j-th lowest of them, whatever
                their order here.

        Returns:
            Amplitudes, shape (2**k,), and whether the qubits are entangled with the others. The
            engine compares magnitudes and no phases to find entanglement.

        Raises:
            ValueError: If there is no qubit; if a qubit is negative, given twice, above 31 or
                outside the register; or if the simulator is closed.
        """
        chosen = self._register_qubits(qubits)
        dest = np.zeros(1 << len(chosen), dtype=np.complex128)
        text = call(_lib_nb_sim.pull_state_specific, self._require_open(), dest, _mask(chosen))
        # The only text that a dense register returns is the one about entanglement.
        return dest, text != ""

    def push_state(self, state: npt.ArrayLike, qubits: Qubits | None = None) -> None:
        """Replace the whole state, or the state of adjacent qubits.

        Args:
            state: Amplitudes, shape (2**n,), or (2**k,) for k qubits. They are not normalised.
            qubits: Adjacent qubits below 32; bit j of an index is the j-th lowest of them. The
                engine first measures these qubits and sets them to 0, so the other qubits
                collapse to the part of the state that has the measured values. None replaces the
                whole state.

        Raises:
            ValueError: If the shape is wrong; if the qubits are not adjacent or there is none; if
                a qubit is negative, given twice, above 31 or outside the register; or if the
                simulator is closed.
        """
        mask, terms = 0, self._num_terms()
        if qubits is not None:
            chosen = self._register_qubits(qubits)
            if max(chosen) - min(chosen) >= len(chosen):
                raise ValueError(f"qubits {sorted(chosen)} do not lie side by side")
            mask, terms = _mask(chosen), 1 << len(chosen)
        call(_lib_nb_sim.push_state, self._require_open(), as_amplitudes(state, terms), mask)

    def check_state(self, expected: npt.ArrayLike, tolerance: float = 1e-9) -> bool:
        """Compare all amplitudes with expected ones.

        Args:
            expected: Amplitudes, shape (2**n,).
            tolerance: Largest difference allowed in a real or an imaginary part.

        Raises:
            ValueError: If the shape is wrong, or if the simulator is closed.
        """
        source = as_amplitudes(expected, self._num_terms())
        return bool(call(_lib_nb_sim.check_state, self._require_open(), source, tolerance, 0))

    def override_state_buffer(self, buffer: Amplitudes) -> None:
        """Make a register whose amplitudes lie in the caller's memory.

        The contents of the buffer become the state. While the register uses the memory, the order
        of the amplitudes in it may differ from that of `state`. A reset to another number of
        qubits changes back to memory of the engine.

        Args:
            buffer: Amplitudes, shape (2**n,) with n from 1, contiguous, writable, and aligned as
                NumPy aligns them. Memory of `aligned_buffer` is the fastest.

        Raises:
            ValueError: If the buffer does not meet these conditions, or if the simulator is
                closed.
        """
        self._require_open()
        check_buffer(buffer)
        call(_lib_nb_sim.override_state_buffer, self._require_open(), buffer)
        self._check.resize(len(buffer).bit_length() - 1)

    def probabilities(self, qubits: Qubits) -> npt.NDArray[np.float64]:
        """The probability of every value of some qubits, without a measurement.

        Args:
            qubits: The k qubits, below 32; bit j of a value is the j-th qubit given.

        Returns:
            Probabilities, shape (2**k,), each from one pass over the state.

        Raises:
            ValueError: If there is no qubit; if a qubit is negative, given twice, above 31 or
                outside the register; or if the simulator is closed.
        """
        chosen = self._register_qubits(qubits)
        mask = _mask(chosen)
        return np.array(
            [
                call(
                    _lib_nb_sim.peek_read_probability,
                    self._require_open(),
                    _spread(value, chosen),
                    mask,
                    0.0,
                )
                for value in range(1 << len(chosen))
            ]
        )

    def biggest(self, count: int) -> list[tuple[int, complex]]:
        """The terms of highest probability.

        Args:
            count: Number of terms to look for, from 0 to 2**n and below 2**32.

        Returns:
            Index and amplitude of each, the highest probability first, the lower index first among
            equals. Terms of amplitude 0 are omitted, so there may be fewer than `count`.

        Raises:
            ValueError: If `count` is out of range, or if the simulator is closed.
        """
        terms = self._num_terms()
        if not 0 <= count <= terms:
            raise ValueError(f"count must be from 0 to {terms}, not {count}")
        indices, amplitudes = empty_terms(count)
        if count:  # the engine refuses the stride of an empty array
            number = word32(count, "count")
            call(
                _lib_nb_sim.peek_n_biggest_terms, self._require_open(), number, indices, amplitudes
            )
        found = zip(indices.tolist(), amplitudes.tolist(), strict=True)
        return [(index, amplitude) for index, amplitude in found if amplitude != 0]

    def value_of(self, index: SupportsIndex) -> complex:
        """One amplitude, without a measurement.

        Args:
            index: The index of the term, below 2**32.

        Raises:
            ValueError: If `index` is negative or too large, or if the simulator is closed.
            RuntimeError: If the register has no such term.
        """
        self._require_open()
        dest = np.zeros(1, dtype=np.complex128)
        call(
            _lib_nb_sim.peek_value,
            self._require_open(),
            word32(operator.index(index), "index"),
            dest,
        )
        return complex(dest[0])

    def normalize(self) -> float:
        """Scale the state to total probability 1.

        A state of total probability 0 does not change.

        Returns:
            The total probability before.

        Raises:
            ValueError: If the simulator is closed.
        """
        return call(_lib_nb_sim.normalize, self._require_open())

    def set_random(self) -> None:
        """Replace the state by a random state of total probability 1.

        Raises:
            ValueError: If the simulator is closed.
        """
        call(_lib_nb_sim.set_random, self._require_open())

    def pauli_probability(self, xs: Qubits, zs: Qubits) -> float:
        """The probability that a Pauli product P measures as +1: <(1 + P) / 2>.

        The formula is the projector on the eigenvalue +1; see Nielsen and Chuang, "Quantum
        Computation and Quantum Information", section 2.2.5.

        Args:
            xs: Qubits with a factor X, or Y if they are in `zs` too; below 32.
            zs: Qubits with a factor Z; below 32.

        Raises:
            ValueError: If there is no qubit; if a qubit is negative, given twice in one argument,
                above 31 or outside the register; or if the simulator is closed.
        """
        self._require_open()
        x_qubits, z_qubits = qubit_list(xs, "X"), qubit_list(zs, "Z")
        self._register_qubits({*x_qubits, *z_qubits})
        return call(_lib_nb_sim.pps, self._require_open(), _mask(x_qubits), _mask(z_qubits))

    def sample(
        self, shots: int, qubits: Qubits | None = None, seed: int | None = None
    ) -> npt.NDArray[np.int64]:
        """Draw outcomes of a measurement many times, without a measurement.

        The whole state is copied once. NumPy's default generator gives the random numbers.

        Args:
            shots: Number of draws, 0 or more.
            qubits: Qubits to look at, below 32; bit j of a value is the j-th qubit given. None
                means the whole register, and the values are indices of terms.
            seed: Seed of the generator; None seeds it from the system.

        Returns:
            The values, shape (shots,), dtype int64.

        Raises:
            ValueError: If `shots` is negative; if the total probability is 0 or not finite; if a
                qubit is negative, given twice, above 31 or outside the register; or if the
                simulator is closed.
        """
        check_shots(shots)
        rng = np.random.default_rng(seed)
        chosen = None if qubits is None else self._register_qubits(qubits)
        indices = draw_terms(self.state(), shots, rng)
        return indices if chosen is None else gather_bits(indices, chosen)

    def _num_terms(self) -> int:
        # A program may change the size in ways that are not known here, for example by a reset that
        # a jump may skip. The engine refuses an array that is too short, and its text gives the
        # size.
        try:
            call(_lib_nb_sim.pull_state, self._require_open(), np.zeros(1, dtype=np.complex128))
        except RuntimeError as error:
            needed = _TERMS_NEEDED.search(str(error))
            if needed is None:
                raise
            return int(needed[1])
        return 1

    def _register_qubits(self, qubits: Qubits) -> list[int]:
        self._require_open()
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
