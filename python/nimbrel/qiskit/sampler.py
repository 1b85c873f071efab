"""`SamplerV2`: Qiskit's sampler primitive on the engine."""

from __future__ import annotations

from collections.abc import Iterable
from typing import Any

import numpy as np
from qiskit.primitives import (
    BaseSamplerV2,
    BitArray,
    PrimitiveJob,
    PrimitiveResult,
    SamplerPubResult,
)
from qiskit.primitives.containers import DataBin
from qiskit.primitives.containers.sampler_pub import SamplerPub, SamplerPubLike

from nimbrel.qiskit.circuit_programs import Template
from nimbrel.qiskit.outcomes import bits_of, draw, num_bytes, register_places
from nimbrel.qiskit.seeds import seeds_for
from nimbrel.qiskit.shared_filter import with_filter
from nimbrel.qiskit.templates import parameter_sets


class SamplerV2(BaseSamplerV2):
    """Samples the classical registers of circuits.

        job = SamplerV2(seed=7).run([(circuit, [0.1, 0.2])], shots=1000)
        counts = job.result()[0].data.meas.get_counts()

    A circuit needs no transpilation. One with parameters is converted once for all their values.

    Args:
        default_shots: Shots of a pub that gives none.
        seed: Seed of all draws, an integer from 0; None draws from the system's entropy. A
            "StreamCliffordQPU" filter takes no seed.
        filter: As for `nimbrel.sample`.
    """

    def __init__(
        self,
        *,
        default_shots: int = 1024,
        seed: int | None = None,
        filter: str = "auto",  # noqa: A002 - the name that nimbrel.sample has
    ) -> None:
        self._default_shots = default_shots
        self._seed = seed
        self._filter = filter

    @property
    def default_shots(self) -> int:
        """Shots of a pub that gives none."""
        return self._default_shots

    @property
    def seed(self) -> int | None:
        """The seed of all draws."""
        return self._seed

    def run(
        self, pubs: Iterable[SamplerPubLike], *, shots: int | None = None
    ) -> PrimitiveJob[PrimitiveResult[SamplerPubResult]]:
        """Start sampling.

        Args:
            pubs: Circuits, or tuples of a circuit, values of its parameters and shots.
            shots: Shots of a pub that gives none.

        Returns:
            The job; the result has one entry a pub, whose `data` has a `BitArray` for each
            classical register.

        Raises:
            ConversionError: If a circuit has no exact translation; raised by the job's `result`.
        """
        default = self._default_shots if shots is None else shots
        coerced = [SamplerPub.coerce(pub, default) for pub in pubs]
        job: PrimitiveJob[Any] = PrimitiveJob(self._run, coerced)
        job._submit()
        return job

    def _run(self, pubs: list[SamplerPub]) -> PrimitiveResult[SamplerPubResult]:
        seeds = seeds_for(self._seed, len(pubs))
        results = [self._run_pub(pub, seed) for pub, seed in zip(pubs, seeds, strict=True)]
        return PrimitiveResult(results, metadata={"version": 2})

    def _run_pub(self, pub: SamplerPub, seed: int | None) -> SamplerPubResult:
        template = Template(pub.circuit)
        sets = parameter_sets(pub)
        outcomes = np.empty((len(sets), pub.shots, num_bytes(pub.circuit.num_clbits)), np.uint8)
        seeds = seeds_for(seed, len(sets))
        programs = (template.program(values) for values in sets)
        for place, (program, chosen) in enumerate(with_filter(programs, self._filter, len(sets))):
            outcomes[place] = draw(program, pub.shots, filter=chosen, seed=seeds[place])
        drawn = outcomes.reshape(len(sets) * pub.shots, -1)
        registers = {
            name: BitArray(
                bits_of(drawn, places).reshape(*pub.shape, pub.shots, num_bytes(len(places))),
                len(places),
            )
            for name, places in register_places(pub.circuit).items()
        }
        return SamplerPubResult(
            DataBin(**registers, shape=pub.shape),
            metadata={"shots": pub.shots, "circuit_metadata": pub.circuit.metadata},
        )
