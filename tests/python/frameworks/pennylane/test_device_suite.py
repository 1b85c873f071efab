"""PennyLane's own tests of a device pass on ours, in all modes."""

from __future__ import annotations

import re
import subprocess
import sys
from pathlib import Path
from typing import Any

import pytest

pytest.importorskip("pennylane")
pytest.importorskip("pytest_mock", reason="PennyLane's tests use it")
pytest.importorskip("flaky", reason="PennyLane's tests use it")

suite: Any = pytest.importorskip("pennylane.devices.tests")

FAST = ["test_properties.py", "test_wires.py", "test_return_system.py", "test_tracker.py"]
SHOTS = [None, 20_000]

# Backpropagation differentiates a simulator that is written in the user's framework. PennyLane's
# own device is; every compiled one skips these cases.
OWN_REASONS = {"device does not support diff_method"}


def run_suite(files: list[str], shots: int | None, device: str = "nimbrel.qubit") -> str:
    """The report of PennyLane's tests in the files, all of them if none is named."""
    folder = Path(suite.get_device_tests())
    chosen = [str(folder / name) for name in files] or [str(folder)]
    options = [f"--device={device}", f"--shots={shots}", "-rs", "-q", "--tb=short"]
    quiet = ["-p", "no:cacheprovider", "-W", "ignore"]
    command = [sys.executable, "-m", "pytest", *chosen, *options, *quiet]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout[-8000:]
    return done.stdout


def reasons_to_skip(report: str) -> set[str]:
    return set(re.findall(r"^SKIPPED \[\d+\] \S+: (.*)$", report, re.MULTILINE))


def num_passed(report: str) -> int:
    passed = re.search(r"(\d+) passed", report)
    return int(passed[1]) if passed else 0


@pytest.mark.parametrize("shots", SHOTS)
def test_basic_properties(shots: int | None) -> None:
    assert num_passed(run_suite(FAST, shots)) > 10


@pytest.mark.slow
@pytest.mark.parametrize("shots", SHOTS)
def test_every_case_that_the_reference_passes(shots: int | None) -> None:
    ours, reference = run_suite([], shots), run_suite([], shots, "default.qubit")
    assert num_passed(ours) >= num_passed(reference) > 300
    assert reasons_to_skip(ours) - reasons_to_skip(reference) <= OWN_REASONS
