"""Qiskit is imported by its door alone, and a missing one is named."""

from __future__ import annotations

import subprocess
import sys

import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")


def run(source: str) -> str:
    command = [sys.executable, "-c", source]
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def test_the_companion_does_not_import_qiskit() -> None:
    assert run("import sys, nimbrel; print('qiskit' in sys.modules)") == "False\n"


def test_without_qiskit_the_error_tells_what_to_install() -> None:
    source = """
import sys
sys.modules["qiskit"] = None
try:
    import nimbrel.qiskit
except ImportError as error:
    print(error)
"""
    assert run(source) == "nimbrel.qiskit needs Qiskit: pip install nimbrel[qiskit]\n"
