"""Stim circuits run on the engine's Clifford filter."""

from __future__ import annotations

import importlib
from typing import Any

import nimbrel as nb
import numpy as np
import numpy.typing as npt
import pytest

stim: Any = pytest.importorskip("stim")
nimbrel_stim: Any = importlib.import_module("nimbrel.stim")

from support.stim_states import canonical_of  # noqa: E402 - it needs Stim

SIGMAS = 5


def run_state(circuit: Any) -> list[str]:
    """The state after a circuit on the engine, as Stim's canonical generators."""
    converted = nimbrel_stim.from_circuit(circuit)
    with nb.CliffordSimulator() as sim:
        sim.run(converted.program)
        simulator = stim.TableauSimulator()
        simulator.set_state_from_stabilizers(nimbrel_stim.pauli_strings(sim))
    return canonical_of(simulator)


def stim_state(circuit: Any) -> list[str]:
    simulator = stim.TableauSimulator()
    simulator.do(circuit)
    return canonical_of(simulator)


def bits(packed: npt.NDArray[np.uint8], count: int) -> npt.NDArray[np.uint8]:
    return np.unpackbits(packed, axis=1, count=count, bitorder="little")


def measured(circuit: Any, shots: int, **options: Any) -> npt.NDArray[np.uint8]:
    samples = nimbrel_stim.sample(circuit, shots, **options)
    return bits(samples.measurements, circuit.num_measurements)


def assert_frequency(found: int, shots: int, probability: float) -> None:
    """Fail if a count is further than five standard deviations from its mean."""
    spread = np.sqrt(shots * probability * (1 - probability))
    assert abs(found - shots * probability) <= SIGMAS * spread + 1e-9, (found, shots * probability)
