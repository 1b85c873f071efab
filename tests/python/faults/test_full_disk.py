"""A full disk under what the command writes: an error, and status 2."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import nimbrel as nb
import numpy as np
import pytest

FULL = "/dev/full"
COMMAND = "import sys; from nimbrel.command import main; sys.exit(main())"


@pytest.fixture
def program(tmp_path: Path) -> Path:
    file = tmp_path / "pair.npy"
    np.save(file, nb.program(nb.reset(2), nb.h(0), nb.x(1, controls=0), nb.read([0, 1], 2)))
    return file


def run_command(*arguments: str, output: str) -> subprocess.CompletedProcess[str]:
    environment = dict(os.environ, PYTHONPATH=os.pathsep.join(filter(None, sys.path)))
    with Path(output).open("w", encoding="utf-8") as stdout:
        return subprocess.run(
            [sys.executable, "-c", COMMAND, *arguments],
            stdout=stdout,
            stderr=subprocess.PIPE,
            text=True,
            env=environment,
            check=False,
        )


@pytest.mark.parametrize("options", [[], ["--json"]])
def test_results_that_cannot_be_written_are_an_error(program: Path, options: list[str]) -> None:
    pytest.importorskip("click")
    done = run_command("run", str(program), *options, output=FULL)
    assert done.returncode == 2
    assert done.stderr == "Error: [Errno 28] No space left on device\n"


@pytest.mark.parametrize("action", ["info", "--help"])
def test_every_text_that_cannot_be_written_is_an_error(action: str) -> None:
    pytest.importorskip("click")
    done = run_command(action, output=FULL)
    assert done.returncode != 0
    assert "No space left on device" in done.stderr
    assert "Traceback" not in done.stderr


def test_a_picture_that_cannot_be_written_is_an_error(program: Path, tmp_path: Path) -> None:
    pytest.importorskip("click")
    pytest.importorskip("matplotlib")
    picture = tmp_path / "counts.png"
    picture.symlink_to(FULL)
    done = run_command("run", str(program), "--plot", str(picture), output=os.devnull)
    assert done.returncode == 2
    assert done.stderr == "Error: [Errno 28] No space left on device\n"
