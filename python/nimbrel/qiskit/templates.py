"""Programs of circuits with parameters: converted once, then filled in with many values.

An angle that is a linear function of the parameters, as nearly all are, is filled in by NumPy. Any
other expression is evaluated by Qiskit for each set of values.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, Final, TypeAlias

import numpy as np
import numpy.typing as npt
from qiskit.circuit import Parameter, ParameterExpression
from qiskit.primitives.containers.estimator_pub import EstimatorPub
from qiskit.primitives.containers.sampler_pub import SamplerPub

from nimbrel.qiskit.rows import Rows

Floats: TypeAlias = npt.NDArray[np.float64]

ANGLE: Final = 3
"""Position of the angle in a row."""


def parameter_sets(pub: SamplerPub | EstimatorPub) -> Floats:
    """The sets of values of a pub's parameters, in the order of `circuit.parameters`.

    Returns:
        The values, shape (sets, parameters).
    """
    values = pub.parameter_values
    flat: Floats = np.array(values.as_array(pub.circuit.parameters), dtype=np.float64)
    rows: Floats = flat.reshape(values.size, len(pub.circuit.parameters))
    return rows


class AngleSlots:
    """The angles of a program that depend on parameters.

    Attributes:
        positions: Index of each such row, shape (m,).
    """

    def __init__(self, rows: Rows, parameters: Sequence[Parameter]) -> None:
        found = [(k, row[ANGLE]) for k, row in enumerate(rows) if is_symbolic(row[ANGLE])]
        self.positions = np.array([position for position, _ in found], dtype=np.int64)
        self._parameters = list(parameters)
        self._offsets = np.zeros(len(found))
        self._others: list[tuple[int, ParameterExpression]] = []
        places = {parameter: k for k, parameter in enumerate(parameters)}
        terms = []
        for slot, (_, expression) in enumerate(found):
            linear = _linear(expression)
            if linear is None:
                self._others.append((slot, expression))
                continue
            self._offsets[slot] = linear[0]
            terms += [(slot, places[parameter], factor) for parameter, factor in linear[1]]
        slots, columns, factors = zip(*terms, strict=True) if terms else ((), (), ())
        self._slots = np.array(slots, dtype=np.int64)
        self._columns = np.array(columns, dtype=np.int64)
        self._factors = np.array(factors, dtype=np.float64)

    def angles(self, values: Floats) -> Floats:
        """The angle of each slot, in degrees, shape (m,), for one value of each parameter."""
        angles: Floats = self._offsets.copy()
        np.add.at(angles, self._slots, self._factors * values[self._columns])
        if self._others:
            binding = dict(zip(self._parameters, values.tolist(), strict=True))
            for slot, expression in self._others:
                own = {parameter: binding[parameter] for parameter in expression.parameters}
                angles[slot] = float(expression.bind(own))
        return angles


def is_symbolic(angle: Any) -> bool:
    """Whether an angle depends on parameters without a value."""
    return isinstance(angle, ParameterExpression) and bool(angle.parameters)


def _linear(
    expression: ParameterExpression,
) -> tuple[float, list[tuple[Parameter, float]]] | None:
    """Constant term and factors of a linear expression, or None if it is not linear."""
    factors = []
    for parameter in expression.parameters:
        factor = expression.gradient(parameter)
        if is_symbolic(factor):
            return None
        factors.append((parameter, float(factor)))
    return float(expression.bind(dict.fromkeys(expression.parameters, 0.0))), factors
