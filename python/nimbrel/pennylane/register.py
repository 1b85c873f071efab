"""The dense register that a device runs its circuits on."""

from __future__ import annotations

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import call
from nimbrel.amplitudes import Amplitudes, as_amplitudes
from nimbrel.classical import reset
from nimbrel.dense import DenseSimulator
from nimbrel.records import RecordArray
from nimbrel.sampling import draw_terms


class Register:
    """The state vector of one circuit after another, in a filter that stays open.

    Args:
        sim: The filter. Its parameters count the qubits and threads.
    """

    def __init__(self, sim: DenseSimulator) -> None:
        self._sim = sim
        self._handle = sim.handle
        self.num_qubits = 0

    def reset(self, num_qubits: int) -> None:
        """Make a register of some qubits, all 0."""
        self.run(reset(num_qubits))
        self.num_qubits = num_qubits

    def lend(self, buffer: Amplitudes) -> None:
        """Make a register whose state lies in a buffer, shape (2**num_qubits,)."""
        call(_lib_nb_sim.override_state_buffer, self._handle, buffer)
        self.num_qubits = len(buffer).bit_length() - 1

    def run(self, records: RecordArray) -> None:
        """Run records, shape (n,)."""
        if len(records):
            call(_lib_nb_sim.put_instructions, self._handle, records, len(records))

    def load(self, state: npt.ArrayLike) -> None:
        """Replace the state by amplitudes, shape (2**num_qubits,)."""
        call(
            _lib_nb_sim.push_state,
            self._handle,
            as_amplitudes(state, 1 << self.num_qubits),
            0,
        )

    def state(self, dest: Amplitudes | None = None) -> Amplitudes:
        """Copy the state to `dest` or to a new array, shape (2**num_qubits,)."""
        if dest is None:
            dest = np.empty(1 << self.num_qubits, dtype=np.complex128)
        call(_lib_nb_sim.pull_state, self._handle, dest)
        return dest

    def norm(self) -> float:
        """The total probability."""
        return self.probability(0, 1) + self.probability(1, 1)

    def probability(self, value: int, mask: int) -> float:
        """The probability that the qubits of a mask have a value."""
        return call(_lib_nb_sim.peek_read_probability, self._handle, value, mask, 0.0)

    def postselect(self, value: int, mask: int) -> None:
        """Project the qubits of a mask on a value, which must have a probability."""
        call(_lib_nb_sim.postselect, self._handle, value, mask)

    def pauli(self, xs: int, zs: int, norm: float = 1.0) -> float:
        """The expectation value of a Pauli product that is not the identity.

        The engine gives the part of the state in the eigenspace +1, (norm + value) / 2.

        Args:
            xs: Mask of the qubits with X or Y.
            zs: Mask of the qubits with Z or Y.
            norm: The total probability of the state.
        """
        return 2.0 * call(_lib_nb_sim.pps, self._handle, xs, zs) - norm

    def draw(self, shots: int, rng: np.random.Generator) -> npt.NDArray[np.int64]:
        """Draw term indices, shape (shots,), without a measurement."""
        if not shots:
            return np.zeros(0, dtype=np.int64)
        return draw_terms(self.state(), shots, rng)
