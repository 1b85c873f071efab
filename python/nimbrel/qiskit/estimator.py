"""`EstimatorV2`: Qiskit's estimator primitive on the engine."""

from __future__ import annotations

from collections.abc import Iterable, Mapping
from typing import Any, Final

import numpy as np
import numpy.typing as npt
from qiskit.primitives import BaseEstimatorV2, PrimitiveJob, PrimitiveResult, PubResult
from qiskit.primitives.containers import DataBin
from qiskit.primitives.containers.estimator_pub import EstimatorPub, EstimatorPubLike

from nimbrel import expectation
from nimbrel.qiskit.circuit_programs import Template
from nimbrel.qiskit.shared_filter import with_filter
from nimbrel.qiskit.states import refuse_random
from nimbrel.qiskit.templates import parameter_sets

_PROJECTORS: Final = {
    **{"0": ("Z", 1), "1": ("Z", -1), "+": ("X", 1), "-": ("X", -1), "r": ("Y", 1), "l": ("Y", -1)}
}
"""The letter P and the sign of each projector (1 + sign P) / 2 that an observable may have."""


class EstimatorV2(BaseEstimatorV2):
    """Computes expectation values of observables.

        job = EstimatorV2().run([(circuit, SparsePauliOp("ZZ"), values)])
        energies = job.result()[0].data.evs

    The values are exact. If a precision is asked for, normal noise of that standard deviation is
    added, as Qiskit's `StatevectorEstimator` does. A circuit needs no transpilation. It must not
    measure or reset: its state would differ from run to run.

    Args:
        default_precision: Precision of a pub that gives none; 0 is exact.
        seed: Seed of the noise.
        filter: As for `nimbrel.expectation`.
    """

    def __init__(
        self,
        *,
        default_precision: float = 0.0,
        seed: int | None = None,
        filter: str = "auto",  # noqa: A002 - the name that nimbrel.expectation has
    ) -> None:
        self._default_precision = default_precision
        self._seed = seed
        self._filter = filter

    @property
    def default_precision(self) -> float:
        """Precision of a pub that gives none."""
        return self._default_precision

    @property
    def seed(self) -> int | None:
        """The seed of the noise."""
        return self._seed

    def run(
        self, pubs: Iterable[EstimatorPubLike], *, precision: float | None = None
    ) -> PrimitiveJob[PrimitiveResult[PubResult]]:
        """Start the computation.

        Args:
            pubs: Tuples of a circuit, observables, values of the circuit's parameters and a
                precision. Observables and values are broadcast as NumPy arrays are.
            precision: Precision of a pub that gives none.

        Returns:
            The job; the result has one entry a pub, whose `data` has the values `evs` and the
            standard deviations `stds` of the noise.

        Raises:
            ConversionError: If a circuit has no exact translation, or measures or resets a qubit;
                raised by the job's `result`.
        """
        default = self._default_precision if precision is None else precision
        coerced = [EstimatorPub.coerce(pub, default) for pub in pubs]
        job: PrimitiveJob[Any] = PrimitiveJob(self._run, coerced)
        job._submit()
        return job

    def _run(self, pubs: list[EstimatorPub]) -> PrimitiveResult[PubResult]:
        rng = np.random.default_rng(self._seed)
        return PrimitiveResult([self._run_pub(pub, rng) for pub in pubs], metadata={"version": 2})

    def _run_pub(self, pub: EstimatorPub, rng: np.random.Generator) -> PubResult:
        values = self._exact_values(pub)
        precision = pub.precision
        if precision:
            values = np.asarray(rng.normal(values, precision))
        data = DataBin(evs=values, stds=np.full(values.shape, precision), shape=values.shape)
        return PubResult(
            data,
            metadata={"target_precision": precision, "circuit_metadata": pub.circuit.metadata},
        )

    def _exact_values(self, pub: EstimatorPub) -> npt.NDArray[np.float64]:
        template = Template(pub.circuit)
        sets = parameter_sets(pub)
        set_numbers = np.arange(len(sets)).reshape(pub.parameter_values.shape)
        numbers, chosen = np.broadcast_arrays(set_numbers, pub.observables)
        values = np.zeros(numbers.shape)
        programs = (template.program(row) for row in sets)
        for number, (program, filter_) in enumerate(with_filter(programs, self._filter, len(sets))):
            refuse_random(program)
            here = numbers == number
            sums = [_pauli_sum(observable) for observable in chosen[here]]
            values[here] = np.real(expectation(program.program, sums, filter=filter_))
        return values


def _pauli_sum(observable: Mapping[str, float]) -> dict[str, float]:
    """The observable with each projector written as a sum of two letters."""
    terms = dict(observable)
    total: dict[str, float] = {}
    while terms:
        label, factor = terms.popitem()
        place = next((k for k, letter in enumerate(label) if letter in _PROJECTORS), None)
        if place is None:
            total[label] = total.get(label, 0.0) + factor
            continue
        pauli, sign = _PROJECTORS[label[place]]
        for letter, half in (("I", factor / 2), (pauli, sign * factor / 2)):
            new = label[:place] + letter + label[place + 1 :]
            terms[new] = terms.get(new, 0.0) + half
    return total
