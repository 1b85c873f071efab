"""Every Python block of docs/doors/command.md runs, and prints what the comments say."""

from __future__ import annotations

from pathlib import Path

import pytest

pytest.importorskip("click")
pytest.importorskip("openqasm3")
pytest.importorskip("sybil")

from support.documents import assert_blocks_print

DOCUMENT = Path(__file__).parents[4] / "docs" / "doors" / "command.md"


def test_blocks_run_in_order(capsys: pytest.CaptureFixture[str]) -> None:
    assert_blocks_print(DOCUMENT, capsys)
