"""Runs a file and collects its outcomes."""

from __future__ import annotations

import time
from collections.abc import Mapping
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

import numpy as np

from nimbrel.command.programs import STIM_CHOICE, check_filter, read_program, read_stim
from nimbrel.running.samples import Samples


@dataclass(frozen=True)
class Result:
    """The outcomes of a file.

    Attributes:
        file: The file.
        samples: The outcomes.
        registers: The read flags of each classical register by its name, bit 0 first.
        seconds: The time of the runs.
        rates: How often each detector fired and each observable flipped, by "detectors" and
            "observables"; empty for a file without them.
    """

    file: Path
    samples: Samples
    registers: Mapping[str, range]
    seconds: float
    rates: Mapping[str, list[float]] = field(default_factory=dict)

    def as_json(self) -> dict[str, Any]:
        """The result as an object for JSON."""
        return {
            "file": str(self.file),
            "shots": len(self.samples),
            "filter": self.samples.filter_name,
            "reason": self.samples.reason,
            "seconds": round(self.seconds, 6),
            "registers": {name: list(flags) for name, flags in self.registers.items()},
            "counts": self.samples.counts(),
            **self.rates,
        }


def run_file(file: Path, shots: int, filter_: str, seed: int | None) -> Result:
    """Run a file.

    Args:
        file: The file.
        shots: Number of runs.
        filter_: "auto" or an engine type name.
        seed: Makes the outcomes repeat.

    Raises:
        ValueError: If the program cannot be read or run, or measures nothing.
    """
    if file.suffix.lower() == ".stim":
        return _run_stim(file, shots, filter_, seed)
    read = read_program(file)
    if not any(read.registers.values()):
        raise ValueError(f"{file}: the program has no classical bits, so there are no outcomes")
    check_filter(read.program, filter_)
    start = time.perf_counter()
    samples = read.sample(shots, filter=filter_, seed=seed)
    return Result(file, samples, read.registers, time.perf_counter() - start)


def _run_stim(file: Path, shots: int, filter_: str, seed: int | None) -> Result:
    circuit = read_stim(file)
    if not circuit.num_measurements:
        raise ValueError(f"{file}: the circuit measures nothing, so there are no outcomes")
    from nimbrel.stim import from_circuit
    from nimbrel.stim import sample as sample_circuit

    start = time.perf_counter()
    found = sample_circuit(circuit, shots, seed, filter=filter_)
    seconds = time.perf_counter() - start
    flags = from_circuit(circuit).read_flags
    reason = "the caller named it" if filter_ != "auto" else STIM_CHOICE.reason
    samples = Samples(tuple(flags), found.measurements, found.filter_name, reason)
    rates = {
        "detectors": _rates(found.detectors, circuit.num_detectors),
        "observables": _rates(found.observables, circuit.num_observables),
    }
    rates = {name: values for name, values in rates.items() if values}
    return Result(file, samples, {"rec": flags}, seconds, rates)


def _rates(packed: np.ndarray[Any, np.dtype[np.uint8]], count: int) -> list[float]:
    if not count:
        return []
    rates: list[float] = (
        np.unpackbits(packed, axis=1, count=count, bitorder="little").mean(axis=0).tolist()
    )
    return rates
