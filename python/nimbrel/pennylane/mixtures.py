"""Exact results over all outcomes of mid-circuit measurements: sums of the branches' results."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np

from nimbrel.pennylane._framework import qml
from nimbrel.pennylane.analytic import FinalState
from nimbrel.pennylane.branches import Branch
from nimbrel.pennylane.outcomes import value_moments
from nimbrel.pennylane.plan import Plan


def can_mix(process: Any) -> bool:
    """Whether the exact result of a process over all branches is a sum over the branches."""
    measurements = qml.measurements
    return isinstance(
        process, (measurements.ExpectationMP, measurements.VarianceMP, measurements.ProbabilityMP)
    )


class Mixture:
    """Sums the results of the branches, each times its probability.

    Args:
        processes: Measurement processes that `can_mix` accepts.
        plan: The circuit's plan.
    """

    def __init__(self, processes: Sequence[Any], plan: Plan) -> None:
        self._processes = processes
        self._plan = plan
        self._weight = 0.0
        self._sums: list[Any] = [0.0] * len(processes)

    def add(self, branch: Branch, final: FinalState) -> None:
        """Add one branch."""
        self._weight += branch.weight
        for place, process in enumerate(self._processes):
            moments = self._moments(process, branch, final)
            self._sums[place] = self._sums[place] + branch.weight * moments

    def results(self) -> list[Any]:
        """The results, given that no postselection dropped the circuit."""
        weight = self._weight or np.nan
        return [
            self._result(process, total / weight)
            for process, total in zip(self._processes, self._sums, strict=True)
        ]

    def _moments(self, process: Any, branch: Branch, final: FinalState) -> Any:
        if process.mv is not None:
            return value_moments(process, branch.outcomes)
        if isinstance(process, qml.measurements.VarianceMP):
            mean = final.measure(qml.expval(process.obs))
            return np.array([mean, final.measure(process) + mean**2])
        return final.measure(process)

    @staticmethod
    def _result(process: Any, moments: Any) -> Any:
        if isinstance(process, qml.measurements.VarianceMP):
            mean, square = moments
            return square - mean**2
        return moments
