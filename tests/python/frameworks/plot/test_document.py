"""Every Python block of docs/doors/plot.md runs, and prints what the comments say."""

from __future__ import annotations

from pathlib import Path

import pytest

pytest.importorskip("matplotlib")
pytest.importorskip("sybil")

from matplotlib import pyplot as plt

from support.documents import assert_blocks_print

DOCUMENT = Path(__file__).parents[4] / "docs" / "doors" / "plot.md"

plt.switch_backend("Agg")


def test_blocks_run_in_order(capsys: pytest.CaptureFixture[str]) -> None:
    assert_blocks_print(DOCUMENT, capsys)
