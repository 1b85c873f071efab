"""Run under mpirun: programs that run again and again, each time beside one process.

The qubits lie elsewhere each time, and the conditions are others. Rank 0 writes what differs.
"""

import random
from collections.abc import Iterator

import nimbrel
import nimbrel.mpi
import numpy as np
from mpi4py import MPI

QUBITS = 7
REPEATS = 12
START = nimbrel.program(nimbrel.reset(QUBITS), nimbrel.h(range(QUBITS)))


def layers(rng: random.Random) -> Iterator[nimbrel.RecordArray]:
    """Gates that move qubits, and gates behind conditions that change from run to run."""
    for flag in range(2, 6):
        yield nimbrel.ry.each([rng.uniform(20, 160) for _ in range(QUBITS)], range(QUBITS))
        one, other = rng.sample(range(QUBITS), 2)
        yield nimbrel.swap(one, other)
        yield nimbrel.x(QUBITS - 1)
        yield nimbrel.read(one, flag)
        yield nimbrel.h(other, flag=flag)
        yield nimbrel.ppr(rng.uniform(20, 160), [one], [other], flag=-flag)
        yield nimbrel.x(other, flag=flag)


def batches(rng: random.Random) -> Iterator[nimbrel.RecordArray]:
    """The first half of a batch in each run, and the second half of the one before."""
    yield nimbrel.pcp(1, 2, [], [rng.randrange(QUBITS)])
    yield nimbrel.rx(30, QUBITS - 1)
    yield nimbrel.pcp(0, 2, [], [rng.randrange(QUBITS)])


def main() -> None:
    rng = random.Random("repeated")
    programs = [nimbrel.program(*layers(rng)) for _ in range(2)]
    programs.append(nimbrel.program(*batches(rng)))
    with nimbrel.mpi.Simulator() as sim, nimbrel.DenseSimulator(max_num_threads=1) as one:
        for filter_ in (sim, one):
            filter_.run(START, nimbrel.pcp(0, 2, [], [0]))
        for number in range(REPEATS * len(programs)):
            program = programs[number % len(programs)]
            if number == REPEATS:
                program["angle"][0] += 1  # the same array has another program now
            sim.seed(number)
            sim.run(program)
            nimbrel.seed(number)
            one.run(program)
            found, wanted = ((each.state(), each.flags(2, 4)) for each in (sim, one))
            if not np.array_equal(found[0], wanted[0]) or found[1] != wanted[1]:
                print(f"run {number} of rank {sim.comm.rank} differs")
    if MPI.COMM_WORLD.rank == 0:
        print("all the same", flush=True)


main()
