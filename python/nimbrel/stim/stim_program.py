"""A Stim circuit as a program, with its noise."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from dataclasses import dataclass

import numpy as np
import stim

from nimbrel.classical import reset
from nimbrel.opcodes import Opcode
from nimbrel.records import Program
from nimbrel.stim.conversion import FIRST_FLAG, block_of
from nimbrel.stim.noise import Channel, draw, joined

_DRAWS: int = 4_000_000
"""Random numbers that are held at once."""


@dataclass(frozen=True)
class StimProgram:
    """A Stim circuit as records.

    Attributes:
        program: The records without noise, shape (n,). They begin with a reset of the register.
        num_qubits: Qubits of the register.
        num_measurements: Measurements of the circuit.
        channels: The random choices of the noise.
    """

    program: Program
    num_qubits: int
    num_measurements: int
    channels: Sequence[Channel]

    @property
    def read_flags(self) -> range:
        """The read flag of each measurement, in the order of the circuit."""
        return range(FIRST_FLAG, FIRST_FLAG + self.num_measurements)

    def trajectory(self, rng: np.random.Generator) -> Program:
        """Draw the noise of one run.

        Args:
            rng: The generator.

        Returns:
            The records with the errors of this run, shape (n,).
        """
        drawn: Program = next(self.trajectories(1, rng)).copy()
        return drawn

    def trajectories(self, runs: int, rng: np.random.Generator) -> Iterator[Program]:
        """Draw the noise of several runs.

        Args:
            runs: The number of runs.
            rng: The generator.

        Yields:
            The records of each run, shape (n,). It is one array, which the next run changes.
        """
        records = self.program.copy()
        opcodes, flags = records["opcode"], records["read_flag"]
        places = sum(len(channel.paulis) for channel in self.channels)
        at_once = max(1, min(runs, _DRAWS // max(places, 1)))
        for first in range(0, runs, at_once):
            drawn = draw(self.channels, min(at_once, runs - first), rng)
            pauli, reading = 0, 0
            for pauli_end, reading_end in zip(
                drawn.pauli_ends.tolist(), drawn.reading_ends.tolist(), strict=True
            ):
                paulis = drawn.paulis[pauli:pauli_end]
                readings = drawn.readings[reading:reading_end]
                opcodes[paulis] = drawn.opcodes[pauli:pauli_end]
                flags[readings] *= -1
                yield records
                opcodes[paulis] = Opcode.Z_NOP
                flags[readings] *= -1
                pauli, reading = pauli_end, reading_end


def from_circuit(circuit: stim.Circuit) -> StimProgram:
    """Convert a circuit to records that are exact on a Clifford filter.

    Measurement k of the circuit has the read flag 2 + k. Detectors, observables, coordinates and
    ticks are no operations and give no records. A noise instruction gives records that do nothing;
    `StimProgram.trajectory` turns them into errors.

    Args:
        circuit: The circuit.

    Returns:
        The program, and its noise.

    Raises:
        ValueError: If an instruction has no records, such as one on a sweep bit. The text names it
            and its index.
    """
    block = block_of(circuit)
    size = max(circuit.num_qubits, 1)
    records: Program = np.concatenate([reset(size), block.records]).view(Program)
    start = np.ones(1, dtype=np.int64)
    channels = [channel.moved(start) for channel in joined(block.channels)]
    return StimProgram(records, size, block.num_measurements, channels)
