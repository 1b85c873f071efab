"""Shots, products and sweeps on the workers of `mpi4py.futures`."""

from __future__ import annotations

import shutil
import subprocess
import sys
from pathlib import Path

import pytest

pytest.importorskip("mpi4py")
pytestmark = pytest.mark.skipif(shutil.which("mpirun") is None, reason="needs mpirun")

PROGRAM = """
import sys
sys.path[:0] = {path!r}
import nimbrel as nb
import numpy as np
from mpi4py.futures import MPIPoolExecutor
from support.sweep_points import FEEDING, failing_at_thirty, fed, turned

if __name__ == "__main__":
    angles = list(range(0, 90, 10))
    here = nb.sample(FEEDING, 3000, filter="StreamQPU", seed=9)
    with MPIPoolExecutor() as pool:
        there = nb.sample(FEEDING, 3000, filter="StreamQPU", seed=9, executor=pool)
        np.testing.assert_array_equal(there.packed, here.packed)
        found = nb.sweep(fed, angles, shots=20, seed=9, executor=pool)
        for one, other in zip(found, nb.sweep(fed, angles, shots=20, seed=9), strict=True):
            np.testing.assert_array_equal(one.packed, other.packed)
        values = nb.sweep(turned, angles, observable={{"Z": 1.0}}, executor=pool)
        np.testing.assert_array_equal(values, nb.sweep(turned, angles, observable={{"Z": 1.0}}))
        failed = nb.sweep(failing_at_thirty, angles, shots=1, executor=pool)[3]
        sums = [{{"ZI": 1.0, "IX": 0.5}}, {{"YY": 2.0}}]
        many = nb.expectation(turned(30), sums, executor=pool)
        np.testing.assert_array_equal(many, nb.expectation(turned(30), sums))
    print(failed)
"""


def test_two_workers_give_what_this_process_gives(tmp_path: Path) -> None:
    script = tmp_path / "program.py"
    script.write_text(PROGRAM.format(path=sys.path), encoding="utf-8")
    command = ["mpirun", "--allow-run-as-root", "--oversubscribe", "-n", "3"]
    command += [sys.executable, "-m", "mpi4py.futures", str(script)]
    done = subprocess.run(command, capture_output=True, text=True, timeout=120, check=False)
    assert done.returncode == 0, done.stderr
    assert done.stdout == "point 3, 30: KeyError: 'no such angle'\n"
