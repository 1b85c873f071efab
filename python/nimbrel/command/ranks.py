"""Runs a file on all processes that `mpirun` has started."""

from __future__ import annotations

import sys
import time
from pathlib import Path

from nimbrel.command.programs import FileProgram, read_program
from nimbrel.command.runs import Result

__all__ = ["run_on_ranks"]


def run_on_ranks(file: Path, shots: int, seed: int | None) -> Result | None:
    """Run a file on all ranks.

    A rank but the first ends the process if all ranks fail alike, so that the error is shown once.

    Args:
        file: The file, which every rank reads.
        shots: Number of runs.
        seed: Makes the outcomes repeat.

    Returns:
        The outcomes on rank 0, None on the others.

    Raises:
        ImportError: If mpi4py is missing.
        ValueError: If the program cannot be read or run, or measures nothing.
        MemoryError: If a rank has no memory for its part.
    """
    from mpi4py import MPI

    import nimbrel.mpi  # its error says how to install mpi4py
    from nimbrel.mpi.agreement import agreed_call, happened_everywhere

    comm = MPI.COMM_WORLD
    try:
        read = agreed_call(comm, lambda: _readable(file))
        start = time.perf_counter()
        flags = [flag for register in read.registers.values() for flag in register]
        samples = nimbrel.mpi.sample(read.program, shots, read_flags=flags, seed=seed)
        result = Result(file, samples, read.registers, time.perf_counter() - start)
    except Exception as error:
        if comm.rank and happened_everywhere(error):
            sys.exit(0)
        raise
    return None if comm.rank else result


def _readable(file: Path) -> FileProgram:
    if file.suffix.lower() == ".stim":
        raise ValueError(f"{file}: a Stim circuit runs on a Clifford filter, in one process")
    read = read_program(file)
    if read.back_jumps:
        jump = read.back_jumps[0]
        raise ValueError(
            f"{file}: the loop that ends before record {jump.position} depends on a measurement, "
            "and ranks run no such loops"
        )
    if not any(read.registers.values()):
        raise ValueError(f"{file}: the program has no classical bits, so there are no outcomes")
    return read
