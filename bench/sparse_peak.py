"""Measure the memory at the peak of a pair walk; a process of its own, since a peak never falls.

    python bench/sparse_peak.py QUBITS {growing,paired,lopsided,uneven}

Prints the peak over the bytes of the larger list, 24 a term. The walk is a Hadamard on a list in
no order: one that doubles to 2**QUBITS terms, one of 2**QUBITS terms that all have their partner,
such a list with two terms more, which get theirs, or one that was ordered by merging a large side
into a small one just before.
"""

import sys
from pathlib import Path

from nimbrel import RecordArray, Simulator, h, program, reset, x
from sparse_engine import scrambling

TERM_BYTES = 24


def kilobytes(field: str) -> int:
    """A field of the process's status, such as VmHWM."""
    for line in Path("/proc/self/status").read_text(encoding="ascii").splitlines():
        if line.startswith(f"{field}:"):
            return int(line.split()[1])
    raise RuntimeError(f"this system tells no {field}")


def steps(kind: str, num_qubits: int) -> tuple[RecordArray, RecordArray, int]:
    """The records before the walk, those of the walk, and the terms after it."""
    full, qubits = 1 << num_qubits, range(num_qubits)
    if kind == "growing":
        new = num_qubits - 1
        return program(h(qubits[:-1]), scrambling(qubits[:-1])), h(new), full
    if kind == "paired":
        return program(h(qubits), scrambling(qubits)), h(qubits[-1]), full
    if kind == "uneven":
        # Seven terms of eight get the qubit on top. The walks order the list and do not act.
        on_top = program(x(num_qubits), x(num_qubits, controls=qubits[:3]))
        never = num_qubits + 1
        merged, walk = h(num_qubits, controls=never), h(qubits[-1], controls=never)
        return program(h(qubits), on_top, merged, scrambling(qubits)), walk, full
    few = h(num_qubits, controls=qubits[:-1])  # in one of two settings of the last qubit each
    return program(h(qubits), few, scrambling(qubits[1:])), h(0), full + 4


def peak_ratio(kind: str, num_qubits: int) -> float:
    """Peak of the process above what it held before, over the bytes of the larger list."""
    before, walk, terms = steps(kind, num_qubits)
    with Simulator("StreamSparseQPU") as sim:
        sim.run(reset(num_qubits + 2))
        held = kilobytes("VmRSS")
        sim.run(before, walk)
        if sim.num_stored_terms() != terms:
            raise RuntimeError(f"there are {sim.num_stored_terms()} terms and not {terms}")
        return (kilobytes("VmHWM") - held) * 1024 / (TERM_BYTES * terms)


if __name__ == "__main__":
    print(peak_ratio(sys.argv[2], int(sys.argv[1])))
