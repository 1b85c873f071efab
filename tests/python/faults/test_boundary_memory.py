"""Memory that runs out within a call of the module: an error, no crash and nothing leaked."""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

HERE = Path(__file__).parent
COMPILER = shutil.which("cc") or ""


@pytest.fixture(scope="module")
def failing_malloc(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The library that makes allocations fail."""
    library = tmp_path_factory.mktemp("faults") / "failing_malloc.so"
    source = HERE / "failing_malloc.c"
    options = ["-shared", "-fPIC", "-O1", "-fno-builtin"]
    subprocess.run([COMPILER, *options, "-o", str(library), str(source)], check=True)
    return library


@pytest.mark.skipif(not COMPILER, reason="needs a C compiler")
def test_every_allocation_of_every_call_may_fail(failing_malloc: Path) -> None:
    environment = dict(
        os.environ,
        LD_PRELOAD=str(failing_malloc),
        PYTHONMALLOC="malloc",  # the interpreter's own allocations fail as well
        PYTHONPATH=os.pathsep.join(filter(None, sys.path)),
        OPENBLAS_NUM_THREADS="1",
    )
    done = subprocess.run(
        [sys.executable, str(HERE / "boundary.py")],
        capture_output=True,
        text=True,
        env=environment,
        timeout=300,
        check=False,
    )
    assert (done.returncode, done.stdout) == (0, "done\n")
