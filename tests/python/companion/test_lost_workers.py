"""Workers that end before their work is done."""

from __future__ import annotations

import multiprocessing
import os
import signal
from collections.abc import Callable
from concurrent.futures import BrokenExecutor, Executor, Future, ProcessPoolExecutor
from functools import partial
from pathlib import Path
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from support.sweep_points import FEEDING, killing_its_worker, killing_once, turned

SPAWN = multiprocessing.get_context("spawn")  # newer Pythons warn of forks beside threads
MAKE = partial(ProcessPoolExecutor, 2, SPAWN)
ANGLES = [0, 10, 20, -1, 40, 50, 60, 70]


def cosines(angles: list[int]) -> list[float]:
    values: list[float] = np.cos(np.radians(angles)).tolist()
    return values


def test_points_that_end_their_worker_are_errors_and_the_others_run_on_new_executors() -> None:
    found = nb.sweep(killing_its_worker, ANGLES, observable={"Z": 1.0}, executor=MAKE)
    failed = found.pop(3)
    assert found == pytest.approx(cosines([0, 10, 20, 40, 50, 60, 70]), abs=1e-12)
    assert isinstance(failed, nb.PointError)
    assert (failed.index, failed.parameters, failed.traceback) == (3, -1, "")
    assert isinstance(failed.error, BrokenExecutor)


def test_a_point_whose_worker_was_lost_once_runs_again(tmp_path: Path) -> None:
    points = [(angle, str(tmp_path / "mark")) for angle in range(0, 90, 10)]
    found = nb.sweep(killing_once, points, observable={"Z": 1.0}, executor=MAKE)
    assert found == pytest.approx(cosines(list(range(0, 90, 10))), abs=1e-12)
    assert (tmp_path / "mark").exists()


def test_without_another_executor_lost_points_are_reported_by_their_parameters() -> None:
    with MAKE() as pool:
        found = nb.sweep(killing_its_worker, [-1, *ANGLES], observable={"Z": 1.0}, executor=pool)
        assert isinstance(found[0], nb.PointError)
        assert (found[0].parameters, type(found[0].error).__name__) == (-1, "BrokenProcessPool")
        for point, each in zip(ANGLES, found[1:], strict=True):
            if isinstance(each, nb.PointError):
                assert each.parameters == point
            else:
                assert each == pytest.approx(np.cos(np.radians(point)), abs=1e-12)


def killed(make: Callable[[], ProcessPoolExecutor]) -> ProcessPoolExecutor:
    """A pool whose workers end one after the other while they work."""
    pool = make()
    process = pool.submit(os.getpid).result()
    os.kill(process, signal.SIGKILL)
    return pool


def test_lost_shots_are_named() -> None:
    with killed(partial(ProcessPoolExecutor, 1, SPAWN)) as pool:
        text = r"a worker was lost with shots? 0.*\(BrokenProcessPool: "
        with pytest.raises(nb.WorkerLostError, match=text) as caught:
            nb.sample(FEEDING, 10**6, filter="StreamQPU", executor=pool)
        assert isinstance(caught.value.__cause__, BrokenExecutor)


def test_lost_products_are_named() -> None:
    with (
        killed(partial(ProcessPoolExecutor, 1, SPAWN)) as pool,
        pytest.raises(nb.WorkerLostError, match=r"a worker was lost with products? 0"),
    ):
        nb.expectation(turned(1), {"Z": 1.0}, executor=pool)


def test_lost_shots_run_again_with_the_same_seeds_on_a_new_executor() -> None:
    made: list[Executor] = []

    def make() -> Executor:
        made.append(MAKE() if made else killed(partial(ProcessPoolExecutor, 1, SPAWN)))
        return made[-1]

    here = nb.sample(FEEDING, 3000, filter="StreamQPU", seed=5)
    there = nb.sample(FEEDING, 3000, filter="StreamQPU", seed=5, executor=make)
    assert here.packed.tolist() == there.packed.tolist()
    assert len(made) == 2
    for each in made:
        with pytest.raises(RuntimeError):
            each.submit(abs, 1)


def test_shots_that_are_lost_again_and_again_end_the_run() -> None:
    made: list[Executor] = []

    def make() -> Executor:
        made.append(killed(partial(ProcessPoolExecutor, 1, SPAWN)))
        return made[-1]

    with pytest.raises(nb.WorkerLostError, match=r"3 workers were lost with shots? 0"):
        nb.sample(FEEDING, 3000, filter="StreamQPU", executor=make)
    assert len(made) == 3


class _Losing(Executor):
    """Loses all work."""

    is_shut_down = False

    def submit(self, _fn: Callable[..., Any], /, *_args: Any, **_kwargs: Any) -> Future[Any]:
        future: Future[Any] = Future()
        future.set_exception(BrokenExecutor("the worker is lost"))
        return future

    def shutdown(self, wait: bool = True, *, cancel_futures: bool = False) -> None:
        del wait, cancel_futures
        self.is_shut_down = True


def test_executors_that_have_lost_a_worker_are_shut_down_before_another_is_made() -> None:
    made: list[_Losing] = []

    def make() -> Executor:
        assert all(each.is_shut_down for each in made)
        made.append(_Losing())
        return made[-1]

    found = nb.sweep(turned, [0, 1, 2], observable={"Z": 1.0}, executor=make)
    assert [str(each.error) for each in found] == ["the worker is lost"] * 3
    assert len(made) > 3
    assert made[-1].is_shut_down
