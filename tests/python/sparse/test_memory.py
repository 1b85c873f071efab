"""Memory of a pair walk beyond the terms, measured in another process."""

import os
import subprocess
import sys

import pytest

QUBITS = 18
LIST = 24 << QUBITS  # bytes of the terms
MOST = 2.5  # times the larger list, by the design of the walk
ALLOWANCE = 1 << 20  # for the interpreter

PROGRAM = """
import random, sys
from pathlib import Path
import nimbrel as nb

qubits, kind = int(sys.argv[1]), sys.argv[2]
low = range(qubits - 1)
top = qubits - 1

def kilobytes(field):
    lines = Path("/proc/self/status").read_text().splitlines()
    return next(int(line.split()[1]) for line in lines if line.startswith(field))

rng = random.Random(7)
pairs = [rng.sample(low, 2) for _ in range(100)]
scramble = nb.program(*[nb.x(target, controls=control) for target, control in pairs])
never = qubits  # a control that is 0 in every term
if kind == "growing":
    before, walk = nb.program(nb.h(low), scramble), nb.h(top)
elif kind == "paired":
    before, walk = nb.program(nb.h(low), nb.h(top), scramble), nb.h(top)
else:  # sides of unlike size are merged, then the same list is sorted in no order
    uneven = nb.program(nb.x(qubits + 1), nb.x(qubits + 1, controls=range(4)))
    merged = nb.h(qubits + 1, controls=never)
    before = nb.program(nb.h(low), nb.h(top), uneven, merged, scramble)
    walk = nb.h(top, controls=never)

with nb.Simulator("StreamSparseQPU") as sim:
    sim.run(nb.reset(qubits + 2))
    held = kilobytes("VmRSS")
    sim.run(before, walk)
    assert sim.num_stored_terms() == 1 << qubits
    print((kilobytes("VmHWM") - held) * 1024)
"""


@pytest.mark.skipif("asan" in os.environ.get("LD_PRELOAD", ""), reason="has memory of its own")
@pytest.mark.parametrize("kind", ["growing", "paired", "uneven"])
def test_a_pair_walk_holds_less_than_two_lists_and_a_half(kind: str) -> None:
    environment = dict(os.environ, PYTHONPATH=os.pathsep.join(filter(None, sys.path)))
    done = subprocess.run(
        [sys.executable, "-c", PROGRAM, str(QUBITS), kind],
        capture_output=True,
        text=True,
        check=True,
        env=environment,
    )
    assert LIST // 2 < int(done.stdout) <= MOST * LIST + ALLOWANCE
