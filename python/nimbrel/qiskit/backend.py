"""`NimbrelBackend`: the engine as a backend of Qiskit."""

from __future__ import annotations

import uuid
from collections.abc import Iterable
from typing import Any

from qiskit import QuantumCircuit
from qiskit.providers import BackendV2, JobStatus, JobV1, Options
from qiskit.result import Result
from qiskit.result.models import ExperimentResult, ExperimentResultData
from qiskit.transpiler import Target

from nimbrel.qiskit.circuit_programs import from_circuit
from nimbrel.qiskit.outcomes import draw, hexadecimal, hexadecimal_counts
from nimbrel.qiskit.seeds import seeds_for
from nimbrel.qiskit.target import make_target


class NimbrelBackend(BackendV2):
    """Runs circuits on the filters of the engine.

        counts = NimbrelBackend().run(circuit, shots=1000).result().get_counts()

    `run` takes any circuit that `from_circuit` takes. Transpilation for this backend keeps all
    instructions of its target, dynamic ones included. The number of qubits is not fixed: a dense
    register is limited by memory, a sparse one has 63, bit and Clifford registers have any number.

    Args:
        **options: Defaults of the options of `run`.
    """

    def __init__(self, **options: Any) -> None:
        super().__init__(
            name="nimbrel", description="Nimbrel's filters: exact simulation without noise"
        )
        self._target = make_target()
        self.set_options(**options)

    @property
    def target(self) -> Target:
        """The instructions of the backend."""
        return self._target

    @property
    def max_circuits(self) -> None:
        """A call of `run` takes any number of circuits."""
        return

    @classmethod
    def _default_options(cls) -> Options:
        return Options(shots=1024, memory=False, seed_simulator=None, filter="auto")

    def run(
        self, run_input: QuantumCircuit | Iterable[QuantumCircuit], **options: Any
    ) -> NimbrelJob:
        """Run circuits.

        Args:
            run_input: A circuit or several, without open parameters.
            **options: `shots`; `memory`, whether the result has each shot's outcome;
                `seed_simulator`, as the seed of `nimbrel.sample`; `filter`, as for
                `nimbrel.sample`.

        Returns:
            A job that is done.

        Raises:
            ConversionError: If a circuit has no exact translation, before any circuit runs.
            TypeError: If there is no option of that name.
        """
        for name in options:
            if name not in self.options:
                known = ", ".join(sorted(self.options))
                raise TypeError(f"run has no option {name!r}; it has {known}")
        chosen = {**self.options, **options}
        is_one = isinstance(run_input, QuantumCircuit)
        circuits: list[QuantumCircuit] = [run_input] if is_one else list(run_input)
        programs = [from_circuit(circuit) for circuit in circuits]
        seeds = seeds_for(chosen["seed_simulator"], len(programs))
        results = []
        for circuit, program, seed in zip(circuits, programs, seeds, strict=True):
            outcomes = draw(program, chosen["shots"], filter=chosen["filter"], seed=seed)
            data = ExperimentResultData(
                counts=hexadecimal_counts(outcomes),
                memory=hexadecimal(outcomes) if chosen["memory"] else None,
            )
            results.append(
                ExperimentResult(
                    shots=chosen["shots"],
                    success=True,
                    data=data,
                    status="DONE",
                    seed=seed,
                    header=_header(circuit),
                    name=circuit.name,
                )
            )
        return NimbrelJob(self, results)


def _header(circuit: QuantumCircuit) -> dict[str, Any]:
    return {
        "name": circuit.name,
        "n_qubits": circuit.num_qubits,
        "memory_slots": circuit.num_clbits,
        "qreg_sizes": [[register.name, register.size] for register in circuit.qregs],
        "creg_sizes": [[register.name, register.size] for register in circuit.cregs],
        "global_phase": float(circuit.global_phase),
        "metadata": circuit.metadata,
    }


class NimbrelJob(JobV1):
    """A job whose circuits have run.

    Args:
        backend: The backend.
        results: The result of each circuit.
    """

    def __init__(self, backend: NimbrelBackend, results: list[ExperimentResult]) -> None:
        super().__init__(backend, str(uuid.uuid4()))
        self._results = results

    def submit(self) -> None:
        """Do nothing: the circuits ran before the job was made."""

    def result(self) -> Result:
        """The results of all circuits."""
        backend = self.backend()
        return Result(
            backend_name=backend.name,
            backend_version="0",
            job_id=self.job_id(),
            success=True,
            results=self._results,
            status=JobStatus.DONE,
        )

    def status(self) -> JobStatus:
        """Always done."""
        return JobStatus.DONE
