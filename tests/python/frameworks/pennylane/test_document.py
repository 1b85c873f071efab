"""The document on this door is true."""

from __future__ import annotations

from pathlib import Path

import pytest

pytest.importorskip("pennylane")
pytest.importorskip("sybil")

from support.documents import assert_blocks_print

DOCUMENT = Path(__file__).parents[4] / "docs/doors/pennylane.md"


def test_blocks_run_in_order(capsys: pytest.CaptureFixture[str]) -> None:
    assert_blocks_print(DOCUMENT, capsys)
