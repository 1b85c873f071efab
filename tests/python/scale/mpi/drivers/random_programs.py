"""Run under mpirun: random programs on the ranks, each beside one process with one block.

Rank 0 writes one line for each program that differs, and "done" with the number of programs.

    mpirun -n 4 python random_programs.py FIRST COUNT
"""

import random
import sys

import numpy as np
from mpi4py import MPI

import nimbrel
import nimbrel.mpi
from models.wire import described
from programs.ranks import QUBITS, RankSource
from support.dense import to_array
from nimbrel.records import QPU_OP

FLAGS = 40


def program(index: int) -> nimbrel.RecordArray:
    rng = random.Random(f"ranks {index}")
    records = RankSource(rng, rng.randint(*QUBITS)).whole_program()
    return to_array(records)


def main() -> None:
    first, count = map(int, sys.argv[1:])
    rank = MPI.COMM_WORLD.rank
    different = 0
    for index in range(first, first + count):
        records = program(index).view(QPU_OP).reshape(-1)
        with nimbrel.mpi.Simulator(check_qubits=False) as sim:
            sim.seed(index)
            sim.run(records)
            state, flags = sim.state(), sim.flags(2, FLAGS)
        if rank != 0:
            continue
        with nimbrel.DenseSimulator(max_num_threads=1, check_qubits=False) as one:
            nimbrel.seed(index)
            one.run(records)
            expected, wanted = one.state(), one.flags(2, FLAGS)
        if flags != wanted or not np.array_equal(state, expected):
            different += 1
            print(f"program {index}: flags {flags:b} {wanted:b}", np.abs(state - expected).max())
    if rank == 0:
        print(f"done {count}, different {different}", flush=True)


main()
