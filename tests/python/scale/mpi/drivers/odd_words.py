"""Run under mpirun: records with unusual words, each program beside one process with one block.

A program is a tuple of runs, each a tuple of records. Rank 0 writes the programs that differ.
"""

import nimbrel
import nimbrel.mpi
import numpy as np
from mpi4py import MPI
from nimbrel.records import QPU_OP

from models import opcodes
from models.wire import Record, tagged
from support.dense import to_array

QUBITS = 4
ALL = (1 << QUBITS) - 1
LARGEST = 2**63 - 1
START = (tagged(opcodes.RESET, QUBITS), tagged(opcodes.H, ALL))
SECOND_FAILS = (tagged(opcodes.PCP, 1, 0, 2000.0), tagged(opcodes.PCP, 0, 1, 2001.0))
"""Two products that do not commute."""


def between(code: float) -> tuple[Record, ...]:
    """A product with an unusual position inside a batch."""
    batch = (tagged(opcodes.PCP, 0, 1, 2000.0), tagged(opcodes.PCP, 0, 4, 2001.0))
    return (*START, batch[0], tagged(opcodes.PCP, 0, 2, code), batch[1])


PROGRAMS: dict[str, tuple[tuple[Record, ...], ...]] = {
    "gates before a batch that fails": (
        (*START, tagged(opcodes.RX, ALL, 0, 30.0), *SECOND_FAILS, tagged(opcodes.X, 1)),
    ),
    "a jump behind a batch that fails": (
        (*START, *SECOND_FAILS, tagged(opcodes.JUMP_FWD, 5)),
        (tagged(opcodes.RX, ALL, 0, 30.0),),
    ),
    **{
        f"a product at {code}": (between(code),)
        for code in (-5.0, -0.5, -1000.0, -2003.0, 500.0, 999.0, float("nan"), 3e9)
    },
    "flags at the largest number": (
        (*START, tagged(opcodes.X, ALL), tagged(opcodes.READ, ALL, read_flag=LARGEST - 1)),
    ),
    "the smallest flag": ((*START, tagged(opcodes.READ, ALL, read_flag=-LARGEST - 1)),),
    "an angle that overflows": ((*START, tagged(opcodes.RZ, 1 << QUBITS - 1, 0, 1e308)),),
}


def outcome(
    sim: nimbrel.mpi.Simulator | nimbrel.DenseSimulator, runs: tuple[tuple[Record, ...], ...]
) -> tuple[list[str], list[int], np.ndarray]:
    texts = []
    for records in runs:
        try:
            sim.run(to_array(records).view(QPU_OP).reshape(-1))
        except RuntimeError as error:
            texts.append(str(error))
    # The numbers of flags share 100 million bits.
    flags = [sim.flags(first, 8) for first in (2, 54775804, 54775800)]
    return texts, flags, sim.state()


def main() -> None:
    for name, runs in PROGRAMS.items():
        with (
            nimbrel.mpi.Simulator() as sim,
            nimbrel.DenseSimulator(max_num_threads=1) as one,
        ):
            sim.seed(5)
            found = outcome(sim, runs)
            nimbrel.seed(5)
            wanted = outcome(one, runs)
        same = np.array_equal(found[2], wanted[2], equal_nan=True)
        if (found[:2] != wanted[:2] or not same) and MPI.COMM_WORLD.rank == 0:
            print(f"{name}: {found[:2]} and {wanted[:2]}, amplitudes equal: {same}")
    if MPI.COMM_WORLD.rank == 0:
        print("compared", flush=True)


main()
