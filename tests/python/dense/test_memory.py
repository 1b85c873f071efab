"""Memory of a dense register beyond its state vector, measured in another process."""

import os
import subprocess
import sys

import pytest

STATE_AND = 16 << 20  # bytes of 20 qubits
ALLOWANCE = 1 << 20  # for blocks, tables and the used part of the workers' stacks

PROGRAM = """
from pathlib import Path
import nimbrel as nb

def peak():
    lines = Path("/proc/self/status").read_text().splitlines()
    return next(int(line.split()[1]) for line in lines if line.startswith("VmHWM")) * 1024

with nb.Simulator("StreamQPU") as sim:
    sim.run(nb.reset(4), nb.h(0), nb.x(1, controls=0), nb.ppr(33.0, 1, 2), nb.read(0, 2))
    records = nb.program(
        nb.reset(20), nb.h(range(20)), nb.x(19, controls=0), nb.swap(0, 19),
        nb.rx(33.0, range(20)), nb.ppr(33.0, [0, 19], [1, 18]), nb.ppm([0], [19], 3), nb.read(7, 2),
    )
    before = peak()
    sim.run(records)
    print(peak() - before)
"""


@pytest.mark.skipif("asan" in os.environ.get("LD_PRELOAD", ""), reason="has memory of its own")
def test_a_register_takes_little_beside_its_amplitudes() -> None:
    environment = dict(os.environ, PYTHONPATH=os.pathsep.join(filter(None, sys.path)))
    done = subprocess.run(
        [sys.executable, "-c", PROGRAM], capture_output=True, text=True, check=True, env=environment
    )
    assert STATE_AND // 2 < int(done.stdout) <= STATE_AND + ALLOWANCE
