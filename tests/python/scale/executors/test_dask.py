"""Shots, products and sweeps on a local cluster of Dask."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from support.sweep_points import (
    FEEDING,
    failing_at_thirty,
    fed,
    killing_its_worker,
    killing_once,
    turned,
)

distributed = pytest.importorskip("distributed")

# Dask warns of a port that another cluster has, and of sockets that its own threads close late.
pytestmark = pytest.mark.filterwarnings("ignore")

ANGLES = list(range(0, 180, 10))
SHOTS = 3000


@pytest.fixture(scope="module")
def client() -> Iterator[Any]:
    with (
        distributed.LocalCluster(
            n_workers=2, threads_per_worker=1, dashboard_address=":0", silence_logs=50
        ) as cluster,
        distributed.Client(cluster) as client,
    ):
        yield client


@pytest.fixture(scope="module")
def threads() -> Iterator[Any]:
    """A cluster whose two workers are threads of this process."""
    with (
        distributed.LocalCluster(
            n_workers=1, threads_per_worker=2, processes=False, dashboard_address=":0"
        ) as cluster,
        distributed.Client(cluster, set_as_default=False) as client,
    ):
        yield client


@pytest.mark.parametrize("cluster", ["client", "threads"])
def test_a_seed_gives_the_outcomes_of_this_process(
    cluster: str, request: pytest.FixtureRequest
) -> None:
    executor = request.getfixturevalue(cluster).get_executor()
    here = nb.sample(FEEDING, SHOTS, filter="StreamQPU", seed=9)
    there = nb.sample(FEEDING, SHOTS, filter="StreamQPU", seed=9, executor=executor)
    np.testing.assert_array_equal(there.packed, here.packed)
    points_here = nb.sweep(fed, ANGLES, shots=40, seed=9)
    points_there = nb.sweep(fed, ANGLES, shots=40, seed=9, executor=executor)
    for one, other in zip(points_here, points_there, strict=True):
        np.testing.assert_array_equal(one.packed, other.packed)


def test_without_a_seed_the_same_call_draws_anew(client: Any) -> None:
    # Dask returns the old result of a call that it takes for the same.
    executor = client.get_executor()
    first, second = (nb.sample(FEEDING, 500, executor=executor).packed for _ in range(2))
    assert first.tolist() != second.tolist()


def test_expectation_values_are_those_of_this_process(client: Any) -> None:
    sums = [{"ZI": 1.0, "IX": 0.5}, {"YY": 2.0}]
    records = nb.program(turned(30), nb.h(1))
    found = nb.expectation(records, sums, executor=client.get_executor())
    np.testing.assert_array_equal(found, nb.expectation(records, sums))


def test_a_large_program_is_sent_to_the_workers_that_lack_it(client: Any) -> None:
    large = nb.program(FEEDING, *[nb.x(0)] * 3000, nb.read(0, 4))
    here = nb.sample(large, 300, filter="StreamQPU", seed=4)
    there = nb.sample(large, 300, filter="StreamQPU", seed=4, executor=client.get_executor())
    np.testing.assert_array_equal(there.packed, here.packed)


def test_functions_without_a_module_are_sent_too(client: Any) -> None:
    found = nb.sweep(
        lambda angle: turned(angle), [0, 60], observable={"Z": 1}, executor=client.get_executor()
    )
    assert found == pytest.approx([1.0, 0.5])


def test_a_failing_point_is_an_error_with_its_parameters(client: Any) -> None:
    found = nb.sweep(failing_at_thirty, ANGLES, shots=3, executor=client.get_executor())
    assert [i for i, each in enumerate(found) if isinstance(each, nb.PointError)] == [3]
    assert str(found[3]) == "point 3, 30: KeyError: 'no such angle'"


def test_a_worker_that_is_lost_once_is_replaced_by_the_cluster(client: Any, tmp_path: Any) -> None:
    points = [(angle, str(tmp_path / "mark")) for angle in ANGLES]
    found = nb.sweep(killing_once, points, observable={"Z": 1.0}, executor=client.get_executor())
    assert found == pytest.approx(np.cos(np.radians(ANGLES)).tolist(), abs=1e-12)


def test_points_that_end_every_worker_are_errors_and_the_others_run(client: Any) -> None:
    points = [0, 10, 20, -1, *ANGLES[3:]]
    values = nb.sweep(
        killing_its_worker, points, observable={"Z": 1.0}, executor=client.get_executor
    )
    failed = values.pop(3)
    assert isinstance(failed, nb.PointError)
    assert (failed.parameters, type(failed.error).__name__) == (-1, "KilledWorker")
    assert values == pytest.approx(np.cos(np.radians(ANGLES)).tolist(), abs=1e-12)


def test_without_another_executor_lost_points_are_reported(client: Any) -> None:
    points = [0, -1, 20]
    found = nb.sweep(
        killing_its_worker, points, observable={"Z": 1.0}, executor=client.get_executor()
    )
    assert isinstance(found[1], nb.PointError)
    assert found[1].parameters == -1
    assert found[0] == 1.0
