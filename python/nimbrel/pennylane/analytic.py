"""Exact results of measurements on the final state."""

from __future__ import annotations

from typing import Any

import numpy as np

from nimbrel.amplitudes import Amplitudes
from nimbrel.pennylane._framework import qml
from nimbrel.pennylane.observables import multiply, pauli_expectation, pauli_terms
from nimbrel.pennylane.plan import Plan
from nimbrel.pennylane.register import Register
from nimbrel.pennylane.rows import pack_rows
from nimbrel.pennylane.translation import decomposed, expand_all


class FinalState:
    """The state after a circuit, to take results from.

    Args:
        register: The register that holds it.
        plan: The circuit's plan.
        valid: False if a projection left nothing: every result is then not a number.
    """

    def __init__(self, register: Register, plan: Plan, *, valid: bool = True) -> None:
        self._register = register
        self._plan = plan
        self._valid = valid
        self._state: Amplitudes | None = None
        self._norm: float | None = None

    def measure(self, process: Any) -> Any:
        """The exact result of one measurement process."""
        if not self._valid:
            return process.process_state(np.full_like(self.amplitudes(), np.nan), self._plan.wires)
        if isinstance(process, qml.measurements.ExpectationMP) and process.obs is not None:
            return np.float64(self._expectation(process.obs))
        if isinstance(process, qml.measurements.VarianceMP) and process.obs is not None:
            terms = pauli_terms(process.obs, self._plan.places)
            if terms is not None and len(terms) == 1 and not terms[0].is_identity:
                mean = self._pauli(terms)
                return np.float64(terms[0].coefficient ** 2 * self.norm() - mean**2)
        return process.process_state(self._rotated(process), self._plan.wires)

    def amplitudes(self) -> Amplitudes:
        """The amplitudes, shape (2**n,) for n wires. One array for all who ask."""
        if self._state is None:
            self._state = self._register.state()[: 1 << len(self._plan.wires)]
        return self._state

    def norm(self) -> float:
        """The total probability, 1 up to rounding for a normalised preparation."""
        if self._norm is None:
            self._norm = self._register.norm()
        return self._norm

    def _pauli(self, terms: Any) -> float:
        return pauli_expectation(self._register, terms, self.norm())

    def _expectation(self, obs: Any) -> float:
        terms = pauli_terms(obs, self._plan.places)
        if terms is not None:
            return self._pauli(terms)
        state = self.amplitudes()
        return float(np.vdot(state, multiply(state, obs, self._plan.wires)).real)

    def _rotated(self, process: Any) -> Amplitudes:
        with qml.QueuingManager.stop_recording():
            gates = decomposed(process.diagonalizing_gates())
        state = self.amplitudes()
        if not gates:
            return state
        self._register.run(pack_rows(expand_all(gates, self._plan.places)))
        rotated = self._register.state()
        self._register.load(state)
        return rotated
