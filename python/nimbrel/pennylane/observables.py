"""Observables as sums of Pauli products on a register, and their action on a state."""

from __future__ import annotations

from typing import Any, NamedTuple

import numpy as np

from nimbrel.amplitudes import Amplitudes
from nimbrel.opcodes import Opcode
from nimbrel.pennylane._framework import qml
from nimbrel.pennylane.register import Register
from nimbrel.pennylane.rows import Row, inverse_row, pack_rows
from nimbrel.pennylane.translation import Places

_MATRIX_WIRES = 8
"""Up to so many wires, an observable acts by its dense matrix."""


class PauliTerm(NamedTuple):
    """A real multiple of a Pauli product: X on `xs`, Z on `zs`, Y on both."""

    coefficient: float
    xs: int
    zs: int

    @property
    def is_identity(self) -> bool:
        """Whether the product has no qubit."""
        return not self.xs | self.zs


def pauli_terms(obs: Any, places: Places) -> list[PauliTerm] | None:
    """The Pauli products of an observable, or None if it is not given by such products."""
    sentence = obs.pauli_rep
    if sentence is None:
        return None
    return [_term(word, coefficient, places) for word, coefficient in sentence.items()]


def _term(word: Any, coefficient: Any, places: Places) -> PauliTerm:
    xs = zs = 0
    for wire, letter in word.items():
        if letter in "XY":
            xs |= places[wire]
        if letter in "YZ":
            zs |= places[wire]
    return PauliTerm(float(qml.math.real(coefficient)), xs, zs)


def pauli_expectation(register: Register, terms: list[PauliTerm], norm: float) -> float:
    """The expectation value of a sum of Pauli products in a register of some total probability."""
    return sum(
        coefficient * (norm if not xs | zs else register.pauli(xs, zs, norm))
        for coefficient, xs, zs in terms
    )


def apply_pauli_sum(register: Register, state: Amplitudes, terms: list[PauliTerm]) -> Amplitudes:
    """Multiply a state by a sum of Pauli products. Leaves another state in the register.

    Args:
        register: A register that holds the state.
        state: Its amplitudes, shape (2**n,).
        terms: The products.

    Returns:
        The sum of the multiples, shape (2**n,).
    """
    total = sum(term.coefficient for term in terms if term.is_identity) * state
    image = np.empty_like(state)
    undo: list[Row] = []
    for coefficient, xs, zs in terms:
        if xs | zs:
            # A rotation by 90 degrees is -i times the product.
            turn = Row(int(Opcode.PPR), xs, zs, angle=90.0)
            register.run(pack_rows([*undo, turn]))
            undo = [inverse_row(turn)]
            register.state(image)
            image *= 1j * coefficient
            total += image
    return total


def multiply(state: Amplitudes, obs: Any, wires: Any) -> Amplitudes:
    """Multiply a state by the matrix of an observable.

    Args:
        state: Amplitudes, shape (2**n,).
        obs: An observable with a matrix or a sparse matrix.
        wires: The n wires, the highest qubit first.
    """
    if isinstance(obs, (qml.ops.Sum, qml.ops.LinearCombination)):
        coefficients, terms = obs.terms()
        products = (
            coefficient * multiply(state, term, wires)
            for coefficient, term in zip(coefficients, terms, strict=True)
        )
        total: Amplitudes = np.sum(list(products), axis=0)
        return total
    if not obs.wires:
        return np.asarray(state * complex(qml.math.squeeze(obs.matrix())[0, 0]))
    if len(obs.wires) > _MATRIX_WIRES or not obs.has_matrix:
        matrix = obs.sparse_matrix(wire_order=wires)
        return np.asarray(matrix @ state)
    return _contract(state, np.asarray(qml.math.toarray(obs.matrix())), obs.wires, wires)


def _contract(state: Amplitudes, matrix: Amplitudes, targets: Any, wires: Any) -> Amplitudes:
    axes = [wires.index(wire) for wire in targets]
    tensor = np.moveaxis(state.reshape((2,) * len(wires)), axes, range(len(axes)))
    product = (matrix @ tensor.reshape(len(matrix), -1)).reshape(tensor.shape)
    moved = np.moveaxis(product, range(len(axes)), axes)
    flat: Amplitudes = np.ascontiguousarray(moved).reshape(-1)
    return flat
