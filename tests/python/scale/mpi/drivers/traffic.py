"""Run under mpirun on four ranks: what an exchange sends, and the memory that it takes."""

import resource

import nimbrel
import nimbrel.mpi
from mpi4py import MPI

QUBITS = 24  # 64 MiB a rank
MOST_EXTRA = 16 << 20
KIBIBYTE = 1024
ALL_LOCAL = range(QUBITS - 2)


def peak_bytes() -> int:
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * KIBIBYTE


def sent(sim: nimbrel.mpi.Simulator, *gates: nimbrel.RecordArray) -> tuple[int, float]:
    """Exchanges of some gates, and what this rank sends in them as a fraction of its part."""
    before = sim.traffic
    sim.run(*gates)
    after = sim.traffic
    fraction = (after.bytes_sent - before.bytes_sent) / sim.part.nbytes
    return after.exchanges - before.exchanges, fraction


def main() -> None:
    with nimbrel.mpi.Simulator() as sim:
        sim.run(nimbrel.reset(QUBITS), nimbrel.h(ALL_LOCAL))
        before = peak_bytes()
        # Both qubits of the numbers are needed together, so they come in one step.
        assert sent(sim, nimbrel.ppr(30, [QUBITS - 1, QUBITS - 2], [])) == (1, 0.75)
        # The lowest qubits are used last now, so the halves that leave are scattered.
        away = [nimbrel.h(qubit) for qubit in range(QUBITS - 3, 1, -1)]
        assert sent(sim, nimbrel.h(QUBITS - 3), nimbrel.h(QUBITS - 4), *away) == (1, 0.75)
        assert sent(sim, nimbrel.t(range(QUBITS)), nimbrel.swap(0, 3), nimbrel.h(5)) == (0, 0.0)
        extra = peak_bytes() - before
        assert extra < MOST_EXTRA, f"{extra / 2**20:.1f} MiB"
    if MPI.COMM_WORLD.rank == 0:
        print("as expected", flush=True)


main()
