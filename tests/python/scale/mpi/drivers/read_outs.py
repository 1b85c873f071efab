"""Run under mpirun: what a simulator tells about its state, beside a dense filter of one process.

mpirun -n 4 python read_outs.py [--sums-by-parts]
"""

import sys

import nimbrel
import nimbrel.mpi
import numpy as np
import pytest
from mpi4py import MPI

QUBITS = 7
SHOTS = 4000
ROUNDING = 1e-12


def prepared() -> nimbrel.Program:
    angles = np.random.default_rng(7).uniform(20, 160, QUBITS)
    turns = [nimbrel.ry(angle, qubit) for qubit, angle in enumerate(angles)]
    chain = [nimbrel.x(qubit + 1, controls=[qubit]) for qubit in range(QUBITS - 1)]
    moved = [nimbrel.swap(0, QUBITS - 1), nimbrel.x(QUBITS - 1), nimbrel.y(QUBITS - 2)]
    return nimbrel.program(nimbrel.reset(QUBITS), *turns, *chain, *moved, nimbrel.s(range(QUBITS)))


def same(found: object, expected: object) -> None:
    np.testing.assert_allclose(found, expected, ROUNDING, ROUNDING)  # type: ignore[call-overload]


def compare(sim: nimbrel.mpi.Simulator, one: nimbrel.DenseSimulator, exact: bool) -> None:
    for qubits in (0, QUBITS - 1, [QUBITS - 1, 0], [3, 6, 1], range(QUBITS)):
        found, expected = sim.probabilities(qubits), one.probabilities(qubits)
        same(found, expected)
        assert not exact or np.array_equal(found, expected)
    for xs, zs in (([0, 6], [6]), ([], [6, 5, 0]), ([5], [0]), ([], [6])):
        same(sim.pauli_probability(xs, zs), one.pauli_probability(xs, zs))
    same(sim.state(), one.state())
    if exact:
        assert np.array_equal(sim.sample(50, seed=3), one.sample(50, seed=3))
    qubits = [6, 2, 0]
    counts = np.bincount(sim.sample(SHOTS, qubits, seed=4), minlength=8)
    spread = 5 * np.sqrt(SHOTS) / 2
    assert np.abs(counts - SHOTS * one.probabilities(qubits)).max() < spread
    sim.postselect(0b10, [6, 1])
    one.postselect(1 << 1, 1 << 6 | 1 << 1)
    same(sim.state(), one.state())
    same(sim.normalize(), 1.0)
    root = sim.state(root=sim.comm.size - 1)
    assert (root is None) == (sim.comm.rank != sim.comm.size - 1)
    with pytest.raises(RuntimeError, match="no nonzero terms"):
        sim.postselect(0b01, [6, 1])
    assert sim.normalize() == 0.0


def main() -> None:
    exact = "--sums-by-parts" not in sys.argv
    with (
        nimbrel.mpi.Simulator(exact_qubits=16 if exact else 0) as sim,
        nimbrel.DenseSimulator(max_num_threads=1) as one,
    ):
        sim.run(prepared())
        one.run(prepared())
        compare(sim, one, exact or sim.comm.size == 1)
    if MPI.COMM_WORLD.rank == 0:
        print("all the same", flush=True)


main()
