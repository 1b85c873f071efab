"""Running programs with while loops, which jump back between two runs of the engine."""

from __future__ import annotations

import numpy as np
import numpy.typing as npt

from nimbrel.qiskit.circuit_programs import CircuitProgram
from nimbrel.seeding import seed as seed_engine
from nimbrel.simulator import Simulator


def run_once(simulator: Simulator, circuit: CircuitProgram) -> None:
    """Run a program from its first record to its last, with its jumps back.

    Args:
        simulator: The filter.
        circuit: The program.

    Raises:
        RuntimeError: The engine's error.
    """
    start = 0
    records = circuit.program
    jumps = iter(circuit.back_jumps)
    jump = next(jumps, None)
    while jump is not None:
        simulator.run(records[start : jump.position])
        if simulator.flags(jump.flag, 1):
            start = jump.destination
            jumps = (each for each in circuit.back_jumps if each.position > start)
        else:
            start = jump.position
        jump = next(jumps, None)
    simulator.run(records[start:])


def run_shots(
    circuit: CircuitProgram, shots: int, filter_type: str, seed: int | None = None
) -> npt.NDArray[np.uint8]:
    """Run a program many times.

    Args:
        circuit: The program.
        shots: Number of runs.
        filter_type: The engine's name of the filter type.
        seed: Seed of the engine's generator, 32 bits; None leaves it as it is.

    Returns:
        The classical bits of each run, packed in little bit order, shape (shots, bytes).
    """
    width = len(circuit.flags)
    outcomes = bytearray()
    if seed is not None:
        seed_engine(seed)
    with Simulator(filter_type) as simulator:
        for _ in range(shots):
            run_once(simulator, circuit)
            value = simulator.flags(circuit.flags[0], width) if width else 0
            outcomes += value.to_bytes((width + 7) // 8, "little")
    return np.frombuffer(outcomes, dtype=np.uint8).reshape(shots, -1)
