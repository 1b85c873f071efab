"""Run under mpirun: every gate on every target, with controls in all places, beside one process.

Rank 0 writes a line for each record whose state differs, and the number of records.
"""

import itertools
from collections.abc import Iterator

import nimbrel
import nimbrel.mpi
import numpy as np
from mpi4py import MPI
from nimbrel.records import QPU_OP

from models import opcodes
from models.wire import Record, described, signed, tagged
from programs.dense import GATES
from support.dense import to_array

QUBITS = 5
ANGLES = (33.0, 360.0, 1e-9)
LETTERS = ((0b10001, 0b01000), (0b00001, 0b10010), (0, 0b11000), (0, 0b10000), (0b11000, 0b10001))


def controls_of(targets: int) -> Iterator[tuple[int, int]]:
    """Masks of controls and negated controls: none, low, high and both, plain and negated."""
    free = [qubit for qubit in range(QUBITS) if not targets >> qubit & 1]
    low, high = 1 << free[0], 1 << free[-1]
    for controls in (0, low, high, low | high):
        for negated in {0, controls & low, controls & high, controls}:
            yield controls, negated


def records() -> Iterator[Record]:
    for low in GATES:
        with_angle = low in (opcodes.PHASE, opcodes.RX, opcodes.RY, opcodes.RZ, opcodes.PPR)
        for angle in ANGLES if with_angle else (0.0,):
            yield from gate_records(low, angle)


def gate_records(low: int, angle: float) -> Iterator[Record]:
    if low == opcodes.PPR:
        for x_mask, z_mask in LETTERS:
            for controls, negated in controls_of(x_mask):
                yield tagged(low, x_mask, z_mask, angle, 0, signed(controls), negated)
        return
    masks = [1 << qubit for qubit in range(QUBITS)]
    if low == opcodes.SWAP:
        masks = [a | b for a, b in itertools.combinations(masks, 2)]
    for targets in [*masks, 0b11010]:
        for controls, negated in controls_of(targets):
            yield tagged(low, targets, controls, angle, 0, 0, negated)


def main() -> None:
    angles = np.random.default_rng(5).uniform(20, 160, (2, QUBITS))
    parts = [nimbrel.ry(angle, qubit) for qubit, angle in enumerate(angles[0])]
    parts += [nimbrel.phase(angle, qubit) for qubit, angle in enumerate(angles[1])]
    start = nimbrel.program(nimbrel.reset(QUBITS), *parts, nimbrel.x(4, controls=[0]))
    count = 0
    with nimbrel.mpi.Simulator() as sim, nimbrel.DenseSimulator(max_num_threads=1) as one:
        for record in records():
            gate = to_array([record]).view(QPU_OP).reshape(-1)
            sim.run(start, gate)
            one.run(start, gate)
            state = sim.state()
            count += 1
            if MPI.COMM_WORLD.rank == 0 and not np.array_equal(state, one.state()):
                print(described(record))
    if MPI.COMM_WORLD.rank == 0:
        print(f"{count} records", flush=True)


main()
