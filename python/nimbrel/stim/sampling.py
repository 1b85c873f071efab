"""Samples of Stim circuits."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, Final

import numpy as np
import numpy.typing as npt
import stim

from nimbrel.sampling import check_shots
from nimbrel.seeding import seed as seed_engine
from nimbrel.shots import sample as sample_program
from nimbrel.simulator import Simulator
from nimbrel.stim.stim_program import StimProgram, from_circuit

Packed = npt.NDArray[np.uint8]

_CLIFFORD: Final = "StreamCliffordQPU"
_DENSE: Final = "StreamQPU"
_BIT: Final = "StreamBitQPU"
_MOST_DENSE_QUBITS: Final = 20


@dataclass(frozen=True)
class StimSamples:
    """The outcomes of many runs of a circuit.

    All arrays have one row a run and are packed: column k is bit `k % 8` of byte `k // 8`, as in
    Stim's own format "b8".

    Attributes:
        measurements: The measurement records, shape (shots, ceil(num_measurements / 8)).
        detectors: The detectors, likewise: 1 where a detector differs from the circuit without
            noise.
        observables: The logical observables, likewise.
        filter_name: The engine's name of the filter that ran the circuit.
    """

    measurements: Packed
    detectors: Packed
    observables: Packed
    filter_name: str


def sample(
    circuit: stim.Circuit,
    shots: int,
    seed: int | None = None,
    *,
    filter: str = "auto",  # noqa: A002 - the word of the documents
    progress: bool = False,
) -> StimSamples:
    """Run a circuit many times, each time with noise of its own.

    A circuit with noise runs once a shot on the whole state, which takes the time of the circuit
    each time; Stim's own sampler moves the noise through the circuit and is far faster.

    Args:
        circuit: The circuit.
        shots: Number of runs.
        seed: Makes the samples repeat. A Clifford filter's own draws cannot be seeded; so without
            a named filter, a circuit whose outcomes are not all determined runs on the dense
            filter, if it has at most 20 qubits. With `filter="StreamCliffordQPU"` the seed is that
            of the noise alone, which determines the detectors.
        filter: "auto" or an engine type name such as "StreamCliffordQPU".
        progress: Whether a bar on standard error shows the progress of a circuit without noise.

    Returns:
        The measurement records, the detectors and the observables.

    Raises:
        ValueError: If an instruction has no records, if `shots` is negative, if the filter
            is a bit filter, or if there is a seed that no filter can take.
        RuntimeError: The engine's error.
    """
    check_shots(shots)
    if filter == _BIT:
        raise ValueError(f'a "{_BIT}" filter cannot run the gates of Stim')
    converted = from_circuit(circuit)
    name = _filter_for(circuit, seed) if filter == "auto" else filter
    if converted.channels:
        records = _with_noise(converted, shots, seed, name)
    else:
        records = _without_noise(converted, shots, seed, name, progress=progress)
    detectors, observables = _evaluated(circuit, records)
    return StimSamples(records, detectors, observables, name)


def _filter_for(circuit: stim.Circuit, seed: int | None) -> str:
    if seed is None:
        return _CLIFFORD
    bare = _measurements_alone(circuit)
    undetermined = bare.num_measurements - bare.count_determined_measurements()
    if not undetermined:
        return _CLIFFORD
    if circuit.num_qubits > _MOST_DENSE_QUBITS:
        raise ValueError(
            f"{undetermined} outcomes are random without noise, and a Clifford filter's draws "
            f'cannot be seeded; with filter="{_CLIFFORD}" the seed is that of the noise alone'
        )
    return _DENSE


_NOT_MEASURED: Final = frozenset({"MPAD", "HERALDED_ERASE", "HERALDED_PAULI_CHANNEL_1"})


def _measurements_alone(circuit: stim.Circuit) -> stim.Circuit:
    """The circuit without what Stim's count of determined measurements refuses or ignores.

    The outcomes that are random stay random: noise and feedback change signs only.
    """
    bare = stim.Circuit()
    for index in range(len(circuit)):
        instruction = circuit[index]
        if isinstance(instruction, stim.CircuitRepeatBlock):
            body = _measurements_alone(instruction.body_copy())
            bare.append(stim.CircuitRepeatBlock(instruction.repeat_count, body))
        elif instruction.name not in _NOT_MEASURED and _acts_on_qubits(instruction):
            bare.append(instruction)
    return bare


def _acts_on_qubits(instruction: stim.CircuitInstruction) -> bool:
    targets = instruction.targets_copy()
    return bool(targets) and not any(
        target.is_measurement_record_target or target.is_sweep_bit_target for target in targets
    )


def _without_noise(
    converted: StimProgram, shots: int, seed: int | None, name: str, *, progress: bool
) -> Packed:
    if name == _CLIFFORD:
        seed = None  # every outcome is determined, or only the noise was to be seeded
    flags = converted.read_flags
    samples = sample_program(
        converted.program, shots, read_flags=flags, filter=name, seed=seed, progress=progress
    )
    return samples.packed


def _with_noise(converted: StimProgram, shots: int, seed: int | None, name: str) -> Packed:
    count = converted.num_measurements
    size = -(-count // 8)
    packed = np.zeros((shots, size), dtype=np.uint8)
    rng = np.random.default_rng(seed)
    if seed is not None:
        seed_engine(int(rng.integers(2**32)))
    # The places of the qubits are those of the circuit in every run, so one check is enough.
    with Simulator(name, check_qubits=False) as simulator:
        for run, records in enumerate(converted.trajectories(shots, rng)):
            simulator.run(records)
            value = simulator.flags(converted.read_flags.start, count)
            packed[run] = np.frombuffer(value.to_bytes(size, "little"), dtype=np.uint8)
    return packed


def _evaluated(circuit: stim.Circuit, records: Packed) -> tuple[Packed, Packed]:
    """The detectors and the observables of measurement records."""
    if not circuit.num_detectors and not circuit.num_observables:
        empty = np.zeros((len(records), 0), dtype=np.uint8)
        return empty, empty
    converter: Any = circuit.compile_m2d_converter()
    detectors, observables = converter.convert(
        measurements=records, separate_observables=True, bit_packed=True
    )
    return detectors, observables
