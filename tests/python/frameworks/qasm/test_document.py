"""Every Python block of docs/doors/qasm.md runs, and prints what the comments say."""

from __future__ import annotations

from pathlib import Path

import pytest

pytest.importorskip("openqasm3")
pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")
pytest.importorskip("sybil")

from support.documents import assert_blocks_print

DOCUMENT = Path(__file__).parents[4] / "docs" / "doors" / "qasm.md"


def test_blocks_run_in_order(capsys: pytest.CaptureFixture[str]) -> None:
    assert_blocks_print(DOCUMENT, capsys)
