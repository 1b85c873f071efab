"""Run under mpirun: rank 1 uses a simulator otherwise than the other ranks, without a `with` block.

mpirun -n 4 python unequal_ranks.py arguments|exit|error|shots|no_reset
"""

import sys

import nimbrel
import nimbrel.mpi
from mpi4py import MPI

IS_ODD = MPI.COMM_WORLD.rank == 1
COIN = nimbrel.program(nimbrel.reset(4), nimbrel.h(0), nimbrel.read(0, 2), nimbrel.h(0, flag=2))


def arguments() -> None:
    sim = nimbrel.mpi.Simulator(check_qubits=not IS_ODD)
    sim.run(nimbrel.reset(4), nimbrel.h(5), nimbrel.read(0, 2))


def leaving() -> None:
    sim = nimbrel.mpi.Simulator()
    sim.run(COIN)
    if IS_ODD:
        sys.exit(0)
    sim.run(COIN)


def error() -> None:
    sim = nimbrel.mpi.Simulator()
    sim.run(COIN)
    if IS_ODD:
        raise KeyError("of this rank alone")
    sim.run(COIN)


def shots() -> None:
    nimbrel.mpi.sample(COIN, 11 if IS_ODD else 10)


def no_reset() -> None:
    nimbrel.mpi.sample(COIN[1:] if IS_ODD else COIN, 10)


def main() -> None:
    {
        "arguments": arguments,
        "exit": leaving,
        "error": error,
        "shots": shots,
        "no_reset": no_reset,
    }[sys.argv[1]]()
    print(f"rank {MPI.COMM_WORLD.rank} came to its end", flush=True)


main()
