"""The document on this door is true."""

from __future__ import annotations

import pytest

pytest.importorskip("pennylane")
pytest.importorskip("sybil")

from support.documents import assert_blocks_run


def test_blocks_run_in_order(capsys: pytest.CaptureFixture[str]) -> None:
    assert_blocks_run("docs/doors/pennylane.md", capsys)
