"""Run under mpirun: parts of many pieces, exchanged by high and by low bits, beside one process."""

import random
from collections.abc import Iterator

import nimbrel
import nimbrel.mpi
import numpy as np
from mpi4py import MPI

QUBITS = 20
GATES = 60


def gates() -> Iterator[nimbrel.RecordArray]:
    rng = random.Random("large parts")
    yield nimbrel.reset(QUBITS)
    yield nimbrel.rx.each([rng.uniform(20, 160) for _ in range(QUBITS)], range(QUBITS))
    for _ in range(GATES):
        target, control = rng.sample(range(QUBITS), 2)
        # The high qubits are used again and again, so that low ones leave the parts.
        target = rng.choice((target, *range(QUBITS - 5, QUBITS)))
        controls = [] if control == target else [control]
        yield rng.choice(
            (
                nimbrel.h(target),
                nimbrel.ry(rng.uniform(0, 90), target, controls=controls),
                nimbrel.x(target, zeros=controls),
                nimbrel.ppr(rng.uniform(0, 90), {target, QUBITS - 1}, [0]),
            )
        )


def main() -> None:
    program = nimbrel.program(*gates())
    with nimbrel.mpi.Simulator() as sim, nimbrel.DenseSimulator(max_num_threads=1) as one:
        sim.run(program)
        state = sim.state(root=0)
        if state is None:
            return
        one.run(program)
        assert np.array_equal(state, one.state())
        assert sim.traffic.exchanges
    print(f"the same on {MPI.COMM_WORLD.size} ranks", flush=True)


main()
