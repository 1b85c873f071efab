"""Run under mpirun: something goes wrong on rank 1 only, inside the `with` block of a simulator.

mpirun -n 4 python failures.py killed|memory|unequal|own_error|left_early|forgotten|ended_between
"""

import os
import resource
import signal
import sys
from pathlib import Path

import nimbrel
import nimbrel.mpi
from mpi4py import MPI

QUBITS = 20
LARGE = 26
RUNS = 10_000


def killed(sim: nimbrel.mpi.Simulator) -> None:
    layer = nimbrel.program(nimbrel.h(range(QUBITS)), nimbrel.rx(30, range(QUBITS)))
    sim.run(nimbrel.reset(QUBITS))
    for number in range(RUNS):
        if number == 3 and sim.comm.rank == 1:
            os.kill(os.getpid(), signal.SIGKILL)
        sim.run(layer)


def memory(sim: nimbrel.mpi.Simulator) -> None:
    if sim.comm.rank == 1:
        pages = int(Path("/proc/self/statm").read_text(encoding="ascii").split()[0])
        used = pages * resource.getpagesize()
        resource.setrlimit(resource.RLIMIT_AS, (used + 2**24, used + 2**24))
    sim.run(nimbrel.reset(LARGE))


def unequal(sim: nimbrel.mpi.Simulator) -> None:
    sim.run(nimbrel.reset(QUBITS), nimbrel.h(sim.comm.rank == 1))


def own_error(sim: nimbrel.mpi.Simulator) -> None:
    sim.run(nimbrel.reset(QUBITS))
    if sim.comm.rank == 1:
        raise KeyError("of this rank alone")
    sim.run(nimbrel.h(QUBITS - 1))


def left_early(sim: nimbrel.mpi.Simulator) -> None:
    sim.run(nimbrel.reset(QUBITS))
    if sim.comm.rank != 1:
        sim.run(nimbrel.h(0))


def forgotten(sim: nimbrel.mpi.Simulator) -> None:
    sim.run(nimbrel.reset(QUBITS), nimbrel.x(0), nimbrel.read(0, 2))
    if sim.comm.rank == 1:
        sim.forget_flags()
    sim.run(nimbrel.h(QUBITS - 1, flag=2))


def ended_between(sim: nimbrel.mpi.Simulator) -> None:
    sim.close()
    if MPI.COMM_WORLD.rank == 1:
        sys.exit()
    with nimbrel.mpi.Simulator():
        pass


CASES = (killed, memory, unequal, own_error, left_early, forgotten, ended_between)


def main() -> None:
    with nimbrel.mpi.Simulator() as sim:
        {case.__name__: case for case in CASES}[sys.argv[1]](sim)
    print(f"rank {MPI.COMM_WORLD.rank} came to its end", flush=True)


main()
