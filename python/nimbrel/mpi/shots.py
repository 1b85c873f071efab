"""`sample` on many ranks: the outcomes of many runs of a program."""

from __future__ import annotations

from collections.abc import Iterable

import numpy as np
import numpy.typing as npt
from mpi4py import MPI

from nimbrel.mpi.agreement import agree, mark
from nimbrel.mpi.shared_ranks import shared_ranks
from nimbrel.mpi.simulator import Simulator
from nimbrel.records import Program, RecordArray
from nimbrel.running.deferral import Deferred, defer
from nimbrel.running.filter_choice import with_reset
from nimbrel.running.flag_columns import pack_indices
from nimbrel.running.flag_use import flag_use
from nimbrel.running.program_runs import ENGINE_SEEDS
from nimbrel.running.samples import Samples
from nimbrel.sampling import check_shots

__all__ = ["sample"]


def sample(
    program: RecordArray,
    shots: int,
    *,
    read_flags: Iterable[int] | None = None,
    comm: MPI.Comm | None = None,
    seed: int | None = None,
) -> Samples:
    """Run a program many times on all ranks and return the read flags at the end of each run.

    If all measurements come last, the program is simulated once and the outcomes are drawn from its
    state. Any other program runs once a shot.

    Args:
        program: The records; the first is the reset.
        shots: Number of runs, 0 or more.
        read_flags: The flags to return, signed; None means all that the program may store,
            ascending. A flag that a run has not stored reads 0.
        comm: The ranks, as for `Simulator`.
        seed: Makes the outcomes repeat, 32 bits; None draws differently each time. Shot number k
            of a program that runs once a shot has the seed (seed + k) % 2**32.

    Returns:
        The outcomes, one row a run, the same on all ranks.

    Raises:
        ValueError: If the program does not begin with a reset, if a record is refused, if `shots`
            is negative, or if the ranks differ in an argument.
        RuntimeError: The engine's error.
        MemoryError: If a rank has no memory for its part.
    """
    parent = MPI.COMM_WORLD if comm is None else comm
    ranks = shared_ranks(parent).comm
    try:
        check_shots(shots)
        records = with_reset(program)
    except ValueError as error:
        agree(ranks, f"sample: {error}", b"")
        raise mark(error) from None
    flags = None if read_flags is None else [int(flag) for flag in read_flags]
    agree(ranks, "sample", f"{shots} {flags} {seed} ".encode() + records.tobytes())
    wanted = flag_use(records).stored if flags is None else flags
    plan = defer(records)
    with Simulator(parent) as sim:
        if isinstance(plan, Deferred):
            sim.run(plan.gates)
            sources = [plan.flags.read(flag) for flag in wanted]
            packed = pack_indices(sources, sim.sample(shots, seed=seed))
        else:
            packed = _in_turn(sim, records, shots, wanted, seed)
        reason = f"its state lies on {sim.comm.size} rank(s)"
    return Samples(tuple(wanted), packed, "StreamQPU", reason)


def _in_turn(
    sim: Simulator, records: Program, shots: int, wanted: list[int], seed: int | None
) -> npt.NDArray[np.uint8]:
    bits = np.zeros((shots, len(wanted)), dtype=np.uint8)
    for number, row in enumerate(bits):
        sim.forget_flags()
        if seed is not None:
            sim.seed((seed + number) % ENGINE_SEEDS)
        sim.run(records)
        row[:] = [sim.flags(flag, 1) for flag in wanted]
    return np.packbits(bits, axis=1, bitorder="little")
