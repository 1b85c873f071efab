"""`sweep`: one program for each point, in this process and on executors."""

from __future__ import annotations

import multiprocessing
from collections.abc import Callable, Iterator
from concurrent.futures import Executor, Future, ProcessPoolExecutor, ThreadPoolExecutor
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from support.sweep_points import (
    FEEDING,
    drawn,
    failing_at_thirty,
    failing_in_its_own_way,
    fed,
    turned,
    wide_at_thirty,
    without_a_reset_at_thirty,
)

SPAWN = multiprocessing.get_context("spawn")  # newer Pythons warn of forks beside threads
ANGLES = list(range(0, 180, 10))
NAMES = ["this process", "processes", "threads"]


@pytest.fixture(scope="module")
def executors() -> Iterator[dict[str, Executor | None]]:
    with ProcessPoolExecutor(2, SPAWN) as processes, ThreadPoolExecutor(3) as threads:
        yield {"this process": None, "processes": processes, "threads": threads}


def plain(results: list[Any]) -> list[Any]:
    return [each.values().tolist() for each in results]


@pytest.mark.parametrize("name", NAMES)
@pytest.mark.parametrize("build", [fed, drawn])
def test_shots_of_a_point_have_the_seeds_after_those_of_the_point_before(
    executors: dict[str, Executor | None], name: str, build: Any
) -> None:
    seed = 2**32 - 50
    found = nb.sweep(build, ANGLES, shots=30, seed=seed, executor=executors[name])
    expected = [
        nb.sample(build(angle), 30, seed=(seed + 30 * index) % 2**32)
        for index, angle in enumerate(ANGLES)
    ]
    assert plain(found) == plain(expected)
    assert [each.filter_name for each in found] == [each.filter_name for each in expected]


def test_numbers_of_numpy_do_not_overflow() -> None:
    shots: Any = np.int8(100)
    seed: Any = np.uint32(2**32 - 50)
    found = nb.sweep(fed, ANGLES, shots=shots, seed=seed)
    assert plain(found) == plain(nb.sweep(fed, ANGLES, shots=100, seed=2**32 - 50))
    values = nb.sweep(turned, ANGLES, observable={"Z": 1.0}, seed=seed)
    assert values == nb.sweep(turned, ANGLES, observable={"Z": 1.0})


@pytest.mark.parametrize("name", NAMES)
@pytest.mark.parametrize("filter_", ["auto", "StreamSparseQPU"])
def test_values_are_those_of_expectation(
    executors: dict[str, Executor | None], name: str, filter_: str
) -> None:
    observables: list[Any] = [{"Z": 1.0, "ZI": 2.0}, {"X": 1.0}]
    executor = executors[name]
    found = nb.sweep(turned, ANGLES, observable=observables, filter=filter_, executor=executor)
    expected = [nb.expectation(turned(angle), observables, filter=filter_) for angle in ANGLES]
    np.testing.assert_array_equal(found, expected)
    single = nb.sweep(turned, ANGLES, observable={"Z": 1.0}, filter=filter_, executor=executor)
    assert single == pytest.approx(np.cos(np.radians(ANGLES)).tolist(), abs=1e-12)


@pytest.mark.parametrize("name", NAMES)
def test_a_failing_point_is_an_error_with_its_parameters_and_the_others_go_on(
    executors: dict[str, Executor | None], name: str
) -> None:
    found = nb.sweep(failing_at_thirty, ANGLES, observable={"Z": 1.0}, executor=executors[name])
    failed = found.pop(3)
    assert found == pytest.approx([np.cos(np.radians(a)) for a in ANGLES if a != 30], abs=1e-12)
    assert isinstance(failed, nb.PointError)
    assert (failed.index, failed.parameters) == (3, 30)
    assert isinstance(failed.error, KeyError)
    assert failed.__cause__ is failed.error
    assert str(failed) == "point 3, 30: KeyError: 'no such angle'"
    assert "in failing_at_thirty" in failed.traceback
    with pytest.raises(nb.PointError, match="no such angle"):
        raise failed


@pytest.mark.parametrize("name", NAMES)
@pytest.mark.parametrize("how", [{"shots": 4}, {"observable": {"Z": 1.0}}])
@pytest.mark.parametrize(
    ("build", "text"),
    [
        (without_a_reset_at_thirty, "point 3, 30: ValueError: the first record of the program"),
        (wide_at_thirty, "point 3, 30: ValueError: record 2: qubit 5 lies outside the register"),
    ],
)
def test_errors_of_sample_and_expectation_are_errors_of_the_point(
    executors: dict[str, Executor | None], name: str, how: Any, build: Any, text: str
) -> None:
    found = nb.sweep(build, ANGLES, filter="StreamQPU", executor=executors[name], **how)
    assert [i for i, each in enumerate(found) if isinstance(each, nb.PointError)] == [3]
    assert str(found[3]).startswith(text)


@pytest.mark.parametrize("name", NAMES)
def test_an_error_that_cannot_be_sent_keeps_its_text(
    executors: dict[str, Executor | None], name: str
) -> None:
    (failed,) = nb.sweep(failing_in_its_own_way, [1], shots=1, executor=executors[name])
    assert str(failed) == "point 0, 1: RuntimeError: UnpicklableError: a b"


def test_a_label_outside_the_register_of_a_point_is_its_error() -> None:
    (failed,) = nb.sweep(turned, [0], observable={"ZII": 1.0})
    assert "the observable has a letter on qubit 2, outside the register of 2" in str(failed)


def test_a_seed_on_a_clifford_filter_that_draws_is_an_error_of_the_point() -> None:
    (failed,) = nb.sweep(lambda _: FEEDING, [0], shots=3, seed=1, filter="StreamCliffordQPU")
    assert isinstance(failed.error, ValueError)
    assert "a Clifford filter cannot do this with a seed" in str(failed)


@pytest.mark.parametrize("name", NAMES)
def test_no_points_and_no_shots(executors: dict[str, Executor | None], name: str) -> None:
    assert nb.sweep(turned, [], shots=3, executor=executors[name]) == []
    assert nb.sweep(turned, iter(()), observable={"Z": 1}, executor=executors[name]) == []
    assert [len(each) for each in nb.sweep(fed, [1, 2], shots=0, executor=executors[name])] == [
        0,
        0,
    ]


def test_read_flags_are_those_of_sample() -> None:
    (found,) = nb.sweep(fed, [90], shots=5, read_flags=iter([4, 2]), seed=1)
    assert found.read_flags == (4, 2)
    expected = nb.sample(fed(90), 5, read_flags=[4, 2], seed=1)
    assert found.packed.tolist() == expected.packed.tolist()


LEAVING = [nb.read(1, 4), nb.jump_fwd(5), nb.record(nb.Opcode.EXTEND), nb.pcp(0, 2, 0, [])]
MEETING = [[nb.read(0, 2), nb.x(1, flag=4)], [nb.pcp(1, 2, [], 1), nb.read(0, 2)]]


def lasting(kind: tuple[str, int]) -> nb.Program:
    """Programs that leave something in a filter, and programs that would meet it."""
    what, number = kind
    if what == "leaving":
        return nb.program(nb.reset(2), nb.x([0, 1]), nb.read(0, 2), LEAVING[number])
    return nb.program(nb.reset(2), nb.h(0), *MEETING[number])


@pytest.mark.parametrize("filter_", ["StreamQPU", "StreamBitQPU", "StreamSparseQPU"])
def test_nothing_of_a_point_reaches_the_next(filter_: str) -> None:
    kinds = [
        kind
        for leaving in range(len(LEAVING))
        for meeting in range(len(MEETING))
        for kind in (("leaving", leaving), ("meeting", meeting))
    ]
    found = nb.sweep(lasting, kinds, shots=6, filter=filter_, seed=8)
    for index, (kind, each) in enumerate(zip(kinds, found, strict=True)):
        expected = alone(lasting(kind), filter_, seed=8 + 6 * index)
        assert (str(each.error) if isinstance(each, nb.PointError) else plain([each])) == expected


def alone(records: nb.Program, filter_: str, seed: int) -> Any:
    """The outcomes of a program without others before it, or the text of its error."""
    try:
        return plain([nb.sample(records, 6, filter=filter_, seed=seed)])
    except (RuntimeError, ValueError) as error:
        return str(error)


def test_arguments_are_checked_before_anything_runs() -> None:
    def build(_point: Any) -> nb.Program:
        raise AssertionError("a program was built")

    for how in ({}, {"shots": 3, "observable": {"Z": 1.0}}):
        with pytest.raises(ValueError, match="a sweep needs either shots or an observable"):
            nb.sweep(build, [1], **how)  # type: ignore[arg-type]
    with pytest.raises(ValueError, match="shots must be 0 or more, not -1"):
        nb.sweep(build, [1], shots=-1)
    with pytest.raises(TypeError, match="'float' object cannot be interpreted as an integer"):
        nb.sweep(build, [1], shots=2.5)  # type: ignore[arg-type]
    with pytest.raises(ValueError, match="I, X, Y and Z, not 'A'"):
        nb.sweep(build, [1], observable={"A": 1.0})
    with pytest.raises(ValueError, match="seed must be an unsigned 32-bit number"):
        nb.sweep(build, [1], shots=1, seed=2**32)
    with nb.Simulator("StreamQPU") as simulator, pytest.raises(ValueError, match="open simulator"):
        nb.sweep(build, [1], shots=1, filter=simulator)  # type: ignore[arg-type]
    with pytest.raises(ValueError, match="sends its programs to a service"):
        nb.sweep(build, [1], shots=1, filter="StreamConnect")


def test_a_function_that_cannot_be_sent_is_refused(executors: dict[str, Executor | None]) -> None:
    with pytest.raises(TypeError, match=r"the work cannot be sent to a worker: .*lambda"):
        nb.sweep(lambda angle: turned(angle), ANGLES, shots=1, executor=executors["processes"])
    points = [0, 1, lambda: 2]
    with pytest.raises(TypeError, match="the work cannot be sent to a worker"):
        nb.sweep(turned, points, observable={"Z": 1}, executor=executors["processes"])
    found = nb.sweep(
        lambda angle: turned(angle), [0, 0], observable={"Z": 1}, executor=executors["threads"]
    )
    assert found == [1.0, 1.0]


def test_a_build_may_run_programs_itself(executors: dict[str, Executor | None]) -> None:
    def build(angle: float) -> nb.Program:
        values = nb.sweep(turned, [angle], observable={"Z": 1.0})
        return turned(np.degrees(np.arccos(values[0])))

    for name in ("this process", "threads"):
        found = nb.sweep(build, [30, 60], observable={"Z": 1.0}, executor=executors[name])
        assert found == pytest.approx(np.cos(np.radians([30, 60])).tolist(), abs=1e-9)


@pytest.mark.parametrize("name", NAMES)
def test_the_bar_counts_points(
    executors: dict[str, Executor | None], name: str, capsys: pytest.CaptureFixture[str]
) -> None:
    pytest.importorskip("tqdm")
    nb.sweep(turned, ANGLES, shots=1, progress=True, executor=executors[name])
    assert f"{len(ANGLES)}/{len(ANGLES)}" in capsys.readouterr().err


class _AtOnce(Executor):
    """Runs what it is given before it returns."""

    def __init__(self, before: Callable[[], None]) -> None:
        self._before = before

    def submit(self, fn: Callable[..., Any], /, *args: Any, **kwargs: Any) -> Future[Any]:
        self._before()
        future: Future[Any] = Future()
        future.set_result(fn(*args, **kwargs))
        return future


def test_the_bar_shows_what_has_run_before_more_runs() -> None:
    bars = pytest.importorskip("tqdm.auto").tqdm._instances
    built: list[float] = []
    shown: list[tuple[int, int]] = []

    def build(angle: float) -> nb.Program:
        built.append(angle)
        return turned(angle)

    executor = _AtOnce(lambda: shown.append((len(built), next(iter(bars)).n)))
    nb.sweep(build, ANGLES, observable={"Z": 1.0}, executor=executor, progress=True)
    assert len(shown) > 1
    assert [number for number, _ in shown] == [number for _, number in shown]
