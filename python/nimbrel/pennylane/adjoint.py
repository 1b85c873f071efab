"""Derivatives of expectation values by the adjoint method.

The circuit is run once. Then its inverse records take the state psi and the vector O psi back
together: both lie in one register with one qubit more, psi where that qubit is 0 and O psi where it
is 1, so that every record acts on both. The derivative by the angle of a record exp(-i a G) is

    2 Im <O psi| G |psi> = - <Y G>,

where Y acts on the additional qubit. So it is the expectation value of Pauli products in the
register, which the engine computes in one pass without a change of the state.

T. Jones and J. Gacon, "Efficient calculation of gradients in classical simulations of variational
quantum algorithms", https://arxiv.org/abs/2009.02823.
"""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from itertools import combinations
from typing import Any

import numpy as np
import numpy.typing as npt

from nimbrel.amplitudes import Amplitudes, aligned_buffer
from nimbrel.opcodes import Opcode
from nimbrel.pennylane.observables import (
    PauliTerm,
    apply_pauli_sum,
    multiply,
    pauli_expectation,
    pauli_terms,
)
from nimbrel.pennylane.plan import (
    circuit_wires,
    initial_state,
    split_preparation,
    wire_places,
)
from nimbrel.pennylane.register import Register
from nimbrel.pennylane.rows import Row, inverse_row, pack_rows, support
from nimbrel.pennylane.translation import Places, expand, has_angles


@dataclass(frozen=True)
class Slope:
    """How a row's angle depends on a trainable parameter: d angle / d parameter."""

    parameter: int
    factor: float


@dataclass(frozen=True)
class Derivatives:
    """A circuit as rows, with the derivatives of their angles.

    Attributes:
        wires: The wires of the register, the highest qubit first.
        places: The bit of each wire.
        initial: Amplitudes to begin with, or None.
        rows: The rows, in order.
        slopes: For each row, the trainable parameters that its angle depends on.
    """

    wires: Any
    places: Places
    initial: Amplitudes | None
    rows: list[Row]
    slopes: list[list[Slope]]


def differentiable_rows(circuit: Any, device_wires: Any) -> Derivatives:
    """Translate a circuit and find how its rows depend on the trainable parameters."""
    wires = circuit_wires(circuit, device_wires)
    places = wire_places(wires)
    trainable = {index: place for place, index in enumerate(circuit.trainable_params)}
    preparation, ops = split_preparation(circuit)
    rows: list[Row] = []
    slopes: list[list[Slope]] = []
    first = 0 if preparation is None else len(preparation.data)
    for op in ops:
        own = expand(op, places)
        rows += own
        wanted = [
            (place, trainable[first + place])
            for place in range(len(op.data))
            if first + place in trainable
        ]
        slopes += _op_slopes(op, places, wanted) if wanted else [[] for _ in own]
        first += len(op.data)
    return Derivatives(wires, places, initial_state(preparation, wires), rows, slopes)


def _op_slopes(op: Any, places: Places, wanted: list[tuple[int, int]]) -> list[list[Slope]]:
    # All angles of the rows are affine functions of the operation's angles.
    if not has_angles(op):
        raise ValueError(f"{op.name} has a trainable parameter that is no angle")
    count = len(op.data)
    base = expand(op, places, [0.0] * count)
    slopes: list[list[Slope]] = [[] for _ in base]
    for place, parameter in wanted:
        moved = expand(op, places, [float(place == other) for other in range(count)])
        for row, before, after in zip(slopes, base, moved, strict=True):
            if after.angle != before.angle:
                row.append(Slope(parameter, after.angle - before.angle))
    return slopes


def generator(row: Row) -> Iterator[PauliTerm]:
    """The Pauli products of G for a record exp(-i angle G), without the identity.

    The identity has no part in a derivative: <O psi|psi> is real. A control is the projector
    (1 - Z) / 2, or (1 + Z) / 2 if it must be 0.
    """
    if row.opcode == Opcode.PPR:
        yield from _under_controls(1.0, row.targets, row.conds, row.read_flag, row.zeros)
    elif row.opcode == Opcode.PHASE:
        yield from _under_controls(-1.0, 0, 0, row.targets | row.conds, row.zeros)
    else:
        xs = 0 if row.opcode == Opcode.RZ else row.targets
        zs = 0 if row.opcode == Opcode.RX else row.targets
        yield from _under_controls(0.5, xs, zs, row.conds, row.zeros)


def _under_controls(
    coefficient: float, xs: int, zs: int, controls: int, zeros: int
) -> Iterator[PauliTerm]:
    bits = [1 << place for place in range(controls.bit_length()) if controls >> place & 1]
    share = coefficient / (1 << len(bits))
    for size in range(len(bits) + 1):
        for chosen in combinations(bits, size):
            sign = (-1) ** sum(1 for bit in chosen if not zeros & bit)
            term = PauliTerm(share * sign, xs, zs ^ sum(chosen))
            if not term.is_identity:
                yield term


class AdjointRun:
    """One circuit, run forward, from which derivatives of observables are taken.

    Args:
        register: The register to run on.
        circuit: A `QuantumScript` of native operations, without broadcasting or mid-circuit
            measurements, whose trainable parameters are angles.
        device_wires: The device's wires or None.
    """

    def __init__(self, register: Register, circuit: Any, device_wires: Any) -> None:
        self._register = register
        self._parts = differentiable_rows(circuit, device_wires)
        self._num_parameters = len(circuit.trainable_params)
        self._num_qubits = max(1, len(self._parts.wires))
        self.run_forward()
        self._final = register.state()

    def run_forward(self) -> None:
        """Put the circuit's final state into the register."""
        self._register.reset(self._num_qubits)
        if self._parts.initial is not None:
            self._register.load(self._parts.initial)
        self._register.run(pack_rows(self._parts.rows))

    def expectation(self, obs: Any) -> float:
        """The expectation value of an observable. Call it before the register is changed."""
        terms = pauli_terms(obs, self._parts.places)
        if terms is not None:
            return pauli_expectation(self._register, terms, self._register.norm())
        image = multiply(self._final, obs, self._parts.wires)
        return float(np.vdot(self._final, image).real)

    def weighted_image(self, weights: Sequence[float], observables: Sequence[Any]) -> Amplitudes:
        """The sum of the observables times the weights, applied to the final state.

        Leaves another state in the register.
        """
        terms: list[PauliTerm] = []
        image = np.zeros_like(self._final)
        for weight, obs in zip(weights, observables, strict=True):
            own = pauli_terms(obs, self._parts.places)
            if own is None:
                image += weight * multiply(self._final, obs, self._parts.wires)
            else:
                terms += [term._replace(coefficient=weight * term.coefficient) for term in own]
        if terms:
            self._register.reset(self._num_qubits)
            self._register.load(self._final)
            image += apply_pauli_sum(self._register, self._final, _collected(terms))
        return image

    def gradient(self, image: Amplitudes) -> npt.NDArray[np.float64]:
        """The derivatives of <psi|image> by all trainable parameters.

        Args:
            image: A Hermitian operator applied to the final state, shape (2**n,).

        Returns:
            The derivatives, shape (parameters,).
        """
        found = np.zeros(self._num_parameters)
        size = float(np.linalg.norm(image))
        if size == 0.0:
            return found
        # Both halves have norm 1, so that rounding does not grow with the observable.
        both = aligned_buffer(self._num_qubits + 1)
        both[: len(image)] = self._final
        np.divide(image, size, out=both[len(image) :])
        self._register.lend(both)
        self._walk_back(found)
        return size * found

    def _walk_back(self, found: npt.NDArray[np.float64]) -> None:
        mark = 1 << self._num_qubits
        norm = self._register.norm()
        pending: list[Row] = []
        touched = 0
        for row, slopes in zip(self._parts.rows[::-1], self._parts.slopes[::-1], strict=True):
            own = support(row)
            if slopes:
                # A generator commutes with pending records that share no qubit with it.
                if own & touched:
                    self._register.run(pack_rows(pending))
                    pending, touched = [], 0
                derivative = -sum(
                    coefficient * self._register.pauli(mark | xs, mark | zs, norm)
                    for coefficient, xs, zs in generator(row)
                )
                for slope in slopes:
                    found[slope.parameter] += slope.factor * derivative
            pending.append(inverse_row(row))
            touched |= own
        # What is left has no derivative before it.


def _collected(terms: Sequence[PauliTerm]) -> list[PauliTerm]:
    """Add the coefficients of equal products."""
    sums: dict[tuple[int, int], float] = {}
    for coefficient, xs, zs in terms:
        sums[xs, zs] = sums.get((xs, zs), 0.0) + coefficient
    return [PauliTerm(coefficient, xs, zs) for (xs, zs), coefficient in sums.items()]
