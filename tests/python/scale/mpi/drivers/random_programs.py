"""Run under mpirun: random programs on the ranks, each beside one process with one block.

Rank 0 writes a line for each program that differs, and the number of programs.

    mpirun -n 4 python random_programs.py FIRST COUNT [--sums-by-parts]
"""

import random
import sys

import nimbrel
import nimbrel.mpi
import numpy as np
from mpi4py import MPI
from nimbrel.records import QPU_OP

from programs.ranks import QUBITS, RankSource
from support.dense import to_array

FLAGS = 40
ROUNDING = 1e-12


def random_program(index: int) -> nimbrel.RecordArray:
    rng = random.Random(f"ranks {index}")
    records = RankSource(rng, rng.randint(*QUBITS)).whole_program()
    return to_array(records).view(QPU_OP).reshape(-1)


def main() -> None:
    first, count = map(int, sys.argv[1:3])
    by_parts = "--sums-by-parts" in sys.argv
    for index in range(first, first + count):
        records = random_program(index)
        exact = 0 if by_parts else 16
        with nimbrel.mpi.Simulator(exact_qubits=exact, check_qubits=False) as sim:
            sim.seed(index)
            sim.run(records)
            state, flags = sim.state(root=0), sim.flags(2, FLAGS)
        if state is None:
            continue
        with nimbrel.DenseSimulator(max_num_threads=1, check_qubits=False) as one:
            nimbrel.seed(index)
            one.run(records)
            expected, wanted = one.state(), one.flags(2, FLAGS)
        # Zeros of both signs are equal.
        close = np.allclose(state, expected, 0, ROUNDING)
        same = close if by_parts else np.array_equal(state, expected)
        if flags != wanted or not same:
            off = float(np.abs(state - expected).max())
            print(f"program {index}: flags {flags:b} and {wanted:b}, amplitudes off by {off:.2g}")
    if MPI.COMM_WORLD.rank == 0:
        print(f"{count} programs", flush=True)


main()
