"""Results of measurement processes that look at mid-circuit measurements."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from itertools import product
from typing import Any, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.pennylane._framework import qml

Outcomes: TypeAlias = Mapping[Any, npt.NDArray[np.int64]]
"""The outcomes of each mid-circuit measurement, shape (shots,), by its identifier."""


def value_of(value: Any, outcomes: Mapping[Any, int]) -> Any:
    """A value computed from one outcome of each measurement.

    Args:
        value: A `MeasurementValue`.
        outcomes: The outcomes by the measurements' identifiers.
    """
    return value.processing_fn(*(outcomes[source.meas_uid] for source in value.measurements))


def value_samples(value: Any, outcomes: Outcomes) -> npt.NDArray[Any]:
    """A value computed from outcomes, for each shot.

    Args:
        value: A `MeasurementValue`. Its function is called once for each distinct combination.
        outcomes: The outcomes.

    Returns:
        The values, shape (shots,).
    """
    columns = np.stack([outcomes[source.meas_uid] for source in value.measurements], axis=1)
    rows, places = np.unique(columns, axis=0, return_inverse=True)
    values = [value.processing_fn(*row) for row in rows.tolist()]
    distinct = np.array([qml.math.toarray(each) for each in values]).reshape(len(rows))
    return np.asarray(distinct[places.reshape(-1)]) if len(rows) else np.zeros(0)


def value_result(process: Any, outcomes: Outcomes) -> Any:
    """The result of a measurement process that looks at mid-circuit measurements.

    Args:
        process: The measurement process; `process.mv` is a value or a sequence of them.
        outcomes: The outcomes.
    """
    measurements = qml.measurements
    values = process.mv if isinstance(process.mv, Sequence) else [process.mv]
    samples = np.stack([value_samples(value, outcomes) for value in values], axis=1)
    if isinstance(process, measurements.SampleMP):
        return samples if isinstance(process.mv, Sequence) else samples[:, 0]
    if isinstance(process, measurements.ProbabilityMP):
        return _probabilities(values, samples)
    if isinstance(process, measurements.CountsMP):
        return _counts(process, values, samples)
    if isinstance(process, measurements.VarianceMP):
        return np.float64(np.var(samples[:, 0]))
    return np.float64(np.mean(samples[:, 0]))


def _combinations(values: Sequence[Any]) -> list[tuple[Any, ...]]:
    return list(product(*(value.branches.values() for value in values)))


def _probabilities(values: Sequence[Any], samples: npt.NDArray[Any]) -> npt.NDArray[np.float64]:
    hits = [np.count_nonzero((samples == row).all(axis=1)) for row in _combinations(values)]
    return np.array(hits) / len(samples)


def _counts(process: Any, values: Sequence[Any], samples: npt.NDArray[Any]) -> dict[Any, int]:
    def key(row: Sequence[Any]) -> Any:
        if isinstance(process.mv, Sequence):
            return "".join(str(int(entry)) for entry in row)
        return float(row[0])

    counts = {key(row): 0 for row in _combinations(values)} if process.all_outcomes else {}
    rows, numbers = np.unique(samples, axis=0, return_counts=True)
    for row, number in zip(rows.tolist(), numbers.tolist(), strict=True):
        counts[key(row)] = counts.get(key(row), 0) + number
    return dict(sorted(counts.items()))


def value_moments(process: Any, outcomes: Mapping[Any, int]) -> Any:
    """What one branch contributes to the exact result of a process that looks at outcomes.

    Args:
        process: An expectation value, a variance or probabilities; `process.mv` is a value or a
            sequence of them.
        outcomes: The branch's outcomes by the measurements' identifiers.

    Returns:
        The value, the value and its square, or the probabilities of all combinations.
    """
    values = process.mv if isinstance(process.mv, Sequence) else [process.mv]
    found = tuple(value_of(value, outcomes) for value in values)
    if isinstance(process, qml.measurements.ProbabilityMP):
        return np.array([float(row == found) for row in _combinations(values)])
    if isinstance(process, qml.measurements.VarianceMP):
        return np.array([found[0], found[0] ** 2])
    return np.float64(found[0])
