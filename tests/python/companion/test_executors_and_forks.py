"""A process that forks while it or one of its threads runs shots."""

from __future__ import annotations

import subprocess
import sys

import pytest

# One thread forks in the middle of the other's shots. The child has copies of the lock and the filter
# of that thread, which does not exist there.
SOURCE = """
import os
from concurrent.futures import ThreadPoolExecutor
import nimbrel as nb

program = nb.program(nb.reset(3), nb.h([0, 1]), nb.read(0, 2), nb.x(1, flag=2), nb.read(1, 3))

def build(seed):
    child = os.fork()
    if child == 0:
        with ThreadPoolExecutor(1) as pool:
            found = nb.sample(program, 3, filter="StreamQPU", seed=seed, executor=pool)
        here = nb.sample(program, 3, filter="StreamQPU", seed=seed)
        os._exit(0 if found.packed.tolist() == here.packed.tolist() else 1)
    if os.waitpid(child, 0)[1]:
        raise RuntimeError("the child has failed")
    return program

{make}
found = nb.sweep(build, range(4), shots=20_000, filter="StreamQPU", executor=executor)
print([len(each) if isinstance(each, nb.Samples) else str(each) for each in found])
"""


@pytest.mark.parametrize("make", ["executor = None", "executor = lambda: ThreadPoolExecutor(2)"])
def test_a_forked_child_runs_shots_of_its_own(make: str) -> None:
    command = [sys.executable, "-W", "ignore::DeprecationWarning", "-c", SOURCE.format(make=make)]
    done = subprocess.run(command, capture_output=True, text=True, timeout=120, check=False)
    assert (done.stdout, done.stderr) == ("[20000, 20000, 20000, 20000]\n", "")
