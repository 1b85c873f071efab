"""One measurement of mpi.py: a circuit on the ranks that `mpirun` has started, or in one process.

    mpirun -n 2 python bench/scale/mpi_worker.py qft 24 --repeats 3
    python bench/scale/mpi_worker.py qft 24 --threads 2

Writes one line of JSON: seconds of the best run, amplitudes of some terms to compare, and on ranks
the traffic and the memory.
"""

from __future__ import annotations

import argparse
import json
import resource
import sys
import time
from pathlib import Path
from typing import Any

import numpy as np

sys.path.insert(0, str(Path(__file__).parents[1]))

import nimbrel as nb
from circuit_lists import CIRCUITS
from gates import records_of

COMPARED = 64
KIBIBYTE = 1024


def start_records(num_qubits: int) -> nb.RecordArray:
    """A product state without zeros, so that no kernel has a pair to skip."""
    angles = np.random.default_rng(num_qubits).uniform(20, 160, num_qubits)
    turns = [nb.ry(float(angle), qubit) for qubit, angle in enumerate(angles)]
    phases = [nb.phase(float(angle), qubit) for qubit, angle in enumerate(angles[::-1])]
    return nb.program(nb.reset(num_qubits), *turns, *phases)


def compared_terms(num_qubits: int) -> np.ndarray[Any, np.dtype[np.int64]]:
    """Terms whose amplitudes are compared."""
    return np.random.default_rng(num_qubits).integers(0, 1 << num_qubits, COMPARED)


def one_process(circuit: str, num_qubits: int, repeats: int, threads: int) -> dict[str, Any]:
    gates = records_of(CIRCUITS[circuit](num_qubits))
    start = start_records(num_qubits)
    seconds = []
    with nb.DenseSimulator(max_num_threads=threads) as sim:
        for _ in range(repeats):
            sim.run(start)
            sim.finish()
            begin = time.perf_counter()
            sim.run(gates)
            sim.finish()
            seconds.append(time.perf_counter() - begin)
        values = [sim.value_of(int(term)) for term in compared_terms(num_qubits)]
    return {"seconds": min(seconds), "gates": len(gates), "values": as_pairs(values)}


def as_pairs(values: Any) -> list[list[float]]:
    return [[complex(value).real, complex(value).imag] for value in values]


def on_ranks(circuit: str, num_qubits: int, repeats: int) -> dict[str, Any] | None:
    import nimbrel.mpi

    gates = records_of(CIRCUITS[circuit](num_qubits))
    start = start_records(num_qubits)
    seconds, moved = [], []
    with nimbrel.mpi.Simulator() as sim:
        comm = sim.comm
        sim.run(nb.reset(comm.size.bit_length()))
        before = peak_bytes()
        for _ in range(repeats):
            sim.run(start)
            earlier = sim.traffic
            comm.Barrier()
            begin = time.perf_counter()
            sim.run(gates)
            comm.Barrier()
            seconds.append(time.perf_counter() - begin)
            moved.append([now - then for now, then in zip(sim.traffic, earlier, strict=True)])
        extra = peak_bytes() - before - sim.part.nbytes
        state = sim.state(root=0)
        everywhere = comm.gather((moved[int(np.argmin(seconds))], extra))
        if state is None or everywhere is None:
            return None
        exchanges, sent, exchange_seconds = (
            max(entry[0][place] for entry in everywhere) for place in range(3)
        )
        return {
            "seconds": min(seconds),
            "gates": len(gates),
            "values": as_pairs(state[compared_terms(num_qubits)]),
            "exchanges": exchanges,
            "bytes_sent": sent,
            "exchange_seconds": exchange_seconds,
            "extra_bytes": max(entry[1] for entry in everywhere),
        }


def peak_bytes() -> int:
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * KIBIBYTE


def copying(num_qubits: int, repeats: int) -> dict[str, Any] | None:
    """The slowest rank's rate of a copy of a part in memory, all ranks at the same time."""
    from mpi4py import MPI

    comm = MPI.COMM_WORLD
    source = np.ones((1 << num_qubits) // comm.size, dtype=np.complex128)
    dest = np.empty_like(source)
    dest[:] = source
    best = np.inf
    for _ in range(max(repeats, 3)):
        comm.Barrier()
        begin = time.perf_counter()
        dest[:] = source
        best = min(best, time.perf_counter() - begin)
    rates = comm.gather(source.nbytes / best)
    return None if rates is None else {"copy_rate": min(rates)}


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("circuit", choices=[*CIRCUITS, "copy"])
    parser.add_argument("qubits", type=int)
    parser.add_argument("--repeats", type=int, default=3)
    parser.add_argument("--threads", type=int, help="one process with so many threads")
    arguments = parser.parse_args()
    if arguments.circuit == "copy":
        found = copying(arguments.qubits, arguments.repeats)
    elif arguments.threads is None:
        found = on_ranks(arguments.circuit, arguments.qubits, arguments.repeats)
    else:
        found = one_process(
            arguments.circuit, arguments.qubits, arguments.repeats, arguments.threads
        )
    if found is not None:
        print(json.dumps(found), flush=True)


main()
