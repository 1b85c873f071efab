"""`nimbrel run FILE --mpi` shows the outcomes of one process, once."""

import subprocess
import sys
from pathlib import Path

import pytest

from support.mpi import on_ranks

ARGUMENTS = ("--shots", "60", "--seed", "7")
HEADER = 'OPENQASM 3.0; include "stdgates.inc"; qubit[4] q; bit[4] c;'
SAMPLED = f"{HEADER} h q[3]; cx q[3], q[0]; c = measure q;"
IN_TURN = f"{HEADER} h q[3]; c[0] = measure q[3]; if (c[0]) {{ h q[0]; }} c[1] = measure q[0];"
LOOP = f"{HEADER} h q[0]; c[0] = measure q[0]; while (c[0]) {{ h q[0]; c[0] = measure q[0]; }}"


@pytest.fixture
def file(tmp_path: Path) -> Path:
    pytest.importorskip("openqasm3")
    return tmp_path / "program.qasm"


@pytest.mark.parametrize("text", [SAMPLED, IN_TURN], ids=["sampled", "in turn"])
def test_outcomes(file: Path, text: str) -> None:
    file.write_text(text, encoding="utf-8")
    alone = subprocess.run(
        [sys.executable, "-m", "nimbrel", "run", str(file), "--filter", "dense", *ARGUMENTS],
        capture_output=True,
        text=True,
        check=True,
    )
    found = on_ranks(4, "-m", "nimbrel", "run", file, "--mpi", *ARGUMENTS)
    assert found.returncode == 0, found.stderr
    # The last line has the time and the reason.
    assert found.stdout.splitlines()[:-1] == alone.stdout.splitlines()[:-1]
    assert "its state lies on 4 rank(s)" in found.stdout


def test_one_error_text(file: Path) -> None:
    file.write_text(LOOP, encoding="utf-8")
    found = on_ranks(4, "-m", "nimbrel", "run", file, "--mpi")
    assert found.returncode != 0
    assert found.stderr.count("depends on a measurement, and ranks run no such loops") == 1


def test_other_filters_are_refused(file: Path) -> None:
    file.write_text(SAMPLED, encoding="utf-8")
    found = on_ranks(2, "-m", "nimbrel", "run", file, "--mpi", "--filter", "sparse")
    assert found.returncode != 0
    assert "only a dense register lies on many ranks" in found.stderr
