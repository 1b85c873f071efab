"""Ctrl-C ends a run on a Dask cluster and cancels the points that no worker has begun."""

from __future__ import annotations

from pathlib import Path

import pytest

from support.interrupted_runs import POINTS, interrupted

pytest.importorskip("distributed")

IMPORTS = "import distributed"
CLUSTER = "distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=':0')"
MAKE = f"distributed.Client({CLUSTER}).get_executor()"


def test_a_callers_executor_stays_open_without_the_cancelled_points(tmp_path: Path) -> None:
    assert "open, with" in interrupted(tmp_path, MAKE, "make()", IMPORTS)
    begun = {path.name for path in tmp_path.iterdir()} - {"stop"}
    assert 0 < len(begun) < POINTS


def test_an_executor_that_was_made_is_shut_down_at_once(tmp_path: Path) -> None:
    assert interrupted(tmp_path, MAKE, "make", IMPORTS)
    begun = {path.name for path in tmp_path.iterdir()} - {"stop"}
    assert 0 < len(begun) < POINTS
