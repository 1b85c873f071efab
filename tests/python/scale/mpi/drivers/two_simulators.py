"""Run under mpirun on two ranks: several simulators, used in another order by one rank."""

from collections.abc import Callable

import nimbrel
import nimbrel.mpi
import numpy as np
import pytest
from mpi4py import MPI
from nimbrel.mpi import Simulator

QUBITS = 4
FIRST = MPI.COMM_WORLD.rank == 0
START = nimbrel.program(nimbrel.reset(QUBITS), nimbrel.ry.each([30, 50, 70, 110], range(QUBITS)))
GATE = nimbrel.h(QUBITS - 1)


def differ(text: str, on_first: Callable[[], object], on_second: Callable[[], object]) -> None:
    """Require that ranks which do different things get an error with both names."""
    with pytest.raises(ValueError, match=text):
        (on_first if FIRST else on_second)()


def other_order(one: Simulator, two: Simulator) -> None:
    differ(
        r"rank 0: run of simulator 1 \(.*; rank 1: run of simulator 2 \(",
        lambda: one.run(GATE),
        lambda: two.run(GATE),
    )
    differ(
        r"rank 0: normalize of simulator 2 \(.*; rank 1: seed of simulator 1 \(",
        two.normalize,
        lambda: one.seed(3),
    )
    differ(r"rank 0: Simulator \(.*; rank 1: run of sim", Simulator, lambda: one.run(GATE))
    differ(
        r"rank 0: sample \(.*; rank 1: sample of simulator 1 \(",
        lambda: nimbrel.mpi.sample(START, 3),
        lambda: one.sample(3),
    )


def go_on(one: Simulator, two: Simulator) -> None:
    """After the errors both are as they were."""
    two.run(GATE)
    one.run(GATE, GATE)
    with nimbrel.DenseSimulator(max_num_threads=1) as alone:
        alone.run(START, GATE)
        assert np.array_equal(two.state(), alone.state())
        alone.run(GATE)
        np.testing.assert_allclose(one.state(), alone.state(), 0, 1e-15)


def on_part_of_the_ranks() -> None:
    """A communicator may be freed before its simulator closes, and others are not disturbed."""
    part = MPI.COMM_WORLD.Split(MPI.COMM_WORLD.rank)
    sim = Simulator(part)
    with Simulator(part) as other:
        other.run(START)
    part.Free()
    sim.run(START)
    assert sim.comm.size == 1
    sim.close()
    again = MPI.COMM_WORLD.Dup()
    with Simulator(again) as sim:
        sim.run(START)
    again.Free()


def main() -> None:
    with Simulator() as one, Simulator() as two:
        for sim in (one, two):
            sim.run(START)
        other_order(one, two)
        go_on(one, two)
        on_part_of_the_ranks()
    if FIRST:
        print("told apart", flush=True)


main()
