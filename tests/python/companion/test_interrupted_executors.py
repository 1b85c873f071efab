"""Ctrl-C ends a run on an executor soon and cancels what has not begun."""

from __future__ import annotations

from pathlib import Path

import pytest

from support.interrupted_runs import POINTS, interrupted

PROCESSES = "ProcessPoolExecutor(2, get_context('spawn'))"
THREADS = "ThreadPoolExecutor(2)"


@pytest.mark.parametrize("make", [PROCESSES, THREADS], ids=["processes", "threads"])
def test_an_executor_that_was_made_is_shut_down_at_once(tmp_path: Path, make: str) -> None:
    assert "after shutdown" in interrupted(tmp_path, make, "make")
    assert len(list(tmp_path.iterdir())) < POINTS


@pytest.mark.parametrize("make", [PROCESSES, THREADS], ids=["processes", "threads"])
def test_a_callers_executor_stays_open_without_the_cancelled_points(
    tmp_path: Path, make: str
) -> None:
    assert "open, with" in interrupted(tmp_path, make, "make()")
    begun = {path.name for path in tmp_path.iterdir()} - {"stop"}
    # The queue of a process pool has up to one point more than workers, which cannot be cancelled.
    assert len(begun) <= (2 if make == THREADS else 5)
