"""`sample` and `expectation` on the workers of an executor."""

from __future__ import annotations

import multiprocessing
from collections.abc import Callable, Iterator
from concurrent.futures import Executor, ProcessPoolExecutor, ThreadPoolExecutor
from functools import partial
from typing import Any

import nimbrel as nb
import numpy as np
import pytest
from nimbrel.running.chunk_sizes import ChunkSizes

from support.sweep_points import FEEDING, drawn, new_handle, turned

SPAWN = multiprocessing.get_context("spawn")  # newer Pythons warn of forks beside threads
SHOTS = 1500
OLDER_FLAGS = nb.program(nb.reset(1), nb.h(0), nb.read(0, 2), nb.x(0, flag=3), nb.read(0, 3))
LONG = nb.program(FEEDING, *[nb.x(0)] * 800, nb.read(0, 4))
MANY_SUMS = [{"ZI": 1.0, "IX": 0.5}, {"YY": 2.0, "XX": 1j, "II": 3.0}]


@pytest.fixture(scope="module")
def pools() -> Iterator[dict[str, Executor]]:
    with (
        ProcessPoolExecutor(1, SPAWN) as one,
        ProcessPoolExecutor(2, SPAWN) as two,
        ThreadPoolExecutor(3) as threads,
    ):
        yield {"one process": one, "two processes": two, "threads": threads}


@pytest.mark.parametrize("name", ["one process", "two processes", "threads"])
@pytest.mark.parametrize("filter_", ["auto", "StreamSparseQPU"])
@pytest.mark.parametrize(
    "records", [FEEDING, OLDER_FLAGS, LONG, drawn(40)], ids=["once", "older flags", "long", "drawn"]
)
def test_a_seed_gives_the_same_outcomes_on_every_executor_and_without_one(
    pools: dict[str, Executor], name: str, filter_: str, records: nb.Program
) -> None:
    here = nb.sample(records, SHOTS, filter=filter_, seed=2**32 - 10)
    for _ in range(2):  # the workers keep their filters
        there = nb.sample(records, SHOTS, filter=filter_, seed=2**32 - 10, executor=pools[name])
        np.testing.assert_array_equal(there.packed, here.packed)
        assert there.read_flags == here.read_flags
        assert (there.filter_name, there.reason) == (here.filter_name, here.reason)


@pytest.mark.parametrize("name", ["this process", "two processes", "threads"])
def test_a_seed_may_be_a_number_of_numpy(pools: dict[str, Executor], name: str) -> None:
    seed: Any = np.uint32(2**32 - 10)
    found = nb.sample(FEEDING, 50, filter="StreamQPU", seed=seed, executor=pools.get(name))
    expected = nb.sample(FEEDING, 50, filter="StreamQPU", seed=int(seed))
    assert found.packed.tolist() == expected.packed.tolist()


@pytest.mark.parametrize("seed", [7, 2**32 - 3])
def test_each_shot_has_the_seed_after_that_of_the_shot_before(seed: int) -> None:
    samples = nb.sample(FEEDING, 6, filter="StreamQPU", seed=seed)
    for shot, outcome in enumerate(samples.values().tolist()):
        with nb.Simulator("StreamQPU") as simulator:
            nb.seed((seed + shot) % 2**32)
            simulator.run(FEEDING)
            assert simulator.flags(2, 2) == outcome


@pytest.mark.parametrize("name", ["two processes", "threads"])
def test_without_a_seed_the_outcomes_differ_from_run_to_run(
    pools: dict[str, Executor], name: str
) -> None:
    run = partial(nb.sample, FEEDING, 200, executor=pools[name])
    run(filter="StreamQPU", seed=1)  # must leave no seed behind in the workers
    first = [run().values().tolist() for _ in range(2)]
    nb.sample(FEEDING, 200, filter="StreamQPU", seed=1, executor=pools["two processes"])
    assert first[0] != first[1] != run().values().tolist() != first[0]
    assert sorted(set(first[0])) == [0, 1, 2, 3]


def test_two_runs_in_threads_do_not_disturb_each_other() -> None:
    seeds = [1, 100_000]

    def run(seed: int) -> nb.Samples:
        with ThreadPoolExecutor(2) as pool:
            return nb.sample(FEEDING, 20_000, filter="StreamQPU", seed=seed, executor=pool)

    with ThreadPoolExecutor(2) as runs:
        found = list(runs.map(run, seeds))
    for seed, there in zip(seeds, found, strict=True):
        here = nb.sample(FEEDING, 20_000, filter="StreamQPU", seed=seed)
        np.testing.assert_array_equal(there.packed, here.packed)


def test_unseeded_outcomes_do_not_repeat_after_a_seed(pools: dict[str, Executor]) -> None:
    def after_a_seed() -> Any:
        pool = pools["one process"]
        nb.sample(FEEDING, 64, filter="StreamQPU", seed=1, executor=pool)
        return nb.sample(FEEDING, 64, filter="StreamQPU", executor=pool).values().tolist()

    assert after_a_seed() != after_a_seed()


@pytest.mark.parametrize("shots", [0, 1, 2])
@pytest.mark.parametrize("name", ["two processes", "threads"])
def test_few_shots(pools: dict[str, Executor], name: str, shots: int) -> None:
    samples = nb.sample(FEEDING, shots, filter="StreamQPU", seed=3, executor=pools[name])
    expected = nb.sample(FEEDING, shots, filter="StreamQPU", seed=3)
    assert samples.packed.tolist() == expected.packed.tolist()
    assert samples.packed.shape == (shots, 1)


def test_no_shots_make_no_executor() -> None:
    def make() -> Executor:
        raise AssertionError("an executor was made")

    assert len(nb.sample(FEEDING, 0, executor=make)) == 0
    assert len(nb.sample(drawn(1), 10, executor=make)) == 10  # one simulation in this process


@pytest.mark.parametrize("name", ["two processes", "threads"])
@pytest.mark.parametrize("filter_", ["StreamQPU", "StreamSparseQPU", "StreamCliffordQPU"])
def test_expectation_values_are_those_of_this_process(
    pools: dict[str, Executor], name: str, filter_: str
) -> None:
    clifford = nb.program(nb.reset(2), nb.h(0), nb.x(1, controls=0))
    records = clifford if filter_ == "StreamCliffordQPU" else nb.program(turned(30), nb.h(1))
    expected = nb.expectation(records, MANY_SUMS, filter=filter_)
    for _ in range(2):
        found = nb.expectation(records, MANY_SUMS, filter=filter_, executor=pools[name])
        np.testing.assert_array_equal(found, expected)


def test_runs_in_turn_do_not_take_the_state_of_another(pools: dict[str, Executor]) -> None:
    pool = pools["one process"]
    for angle in (0, 90, 180):
        nb.sample(FEEDING, 3, filter="StreamQPU", executor=pool)
        value = nb.expectation(turned(angle), {"Z": 1.0}, filter="StreamQPU", executor=pool)
        assert value == pytest.approx(np.cos(np.radians(angle)), abs=1e-12)


def test_a_large_program_reaches_workers_that_lack_it(pools: dict[str, Executor]) -> None:
    large = nb.program(FEEDING, *[nb.x(0)] * 3000, nb.read(0, 4))
    assert large.nbytes > 1 << 16
    here = nb.sample(large, 400, filter="StreamQPU", seed=4)
    there = nb.sample(large, 400, filter="StreamQPU", seed=4, executor=pools["two processes"])
    assert here.packed.tolist() == there.packed.tolist()


def test_a_worker_makes_its_filter_once_and_keeps_it() -> None:
    with ProcessPoolExecutor(1, SPAWN) as pool:
        first = pool.submit(new_handle).result()
        for _ in range(2):
            nb.sample(FEEDING, 400, filter="StreamQPU", executor=pool)  # in several chunks
            nb.expectation(turned(30), MANY_SUMS, filter="StreamQPU", executor=pool)
            nb.sweep(turned, range(40), observable={"Z": 1}, filter="StreamQPU", executor=pool)
        assert pool.submit(new_handle).result() == first + 2


def test_a_callers_executor_stays_open(pools: dict[str, Executor]) -> None:
    nb.sample(FEEDING, 10, executor=pools["two processes"])
    assert pools["two processes"].submit(abs, -3).result() == 3


@pytest.mark.parametrize("make", [partial(ThreadPoolExecutor, 1), ThreadPoolExecutor])
def test_an_executor_that_was_made_is_shut_down(make: Callable[[], Executor]) -> None:
    made: list[Executor] = []

    def note() -> Executor:
        made.append(make())
        return made[-1]

    assert len(nb.sample(FEEDING, 10, executor=note)) == 10
    assert len(made) == 1
    with pytest.raises(RuntimeError, match="shutdown"):
        made[0].submit(abs, 1)


def test_an_open_simulator_is_refused(pools: dict[str, Executor]) -> None:
    pool = pools["threads"]
    text = r'an open simulator belongs to this process.*filter="StreamQPU"'
    with nb.Simulator("StreamQPU") as simulator:
        for records in (FEEDING, drawn(1)):
            with pytest.raises(ValueError, match=text):
                nb.sample(records, 1, filter=simulator, executor=pool)
        with pytest.raises(ValueError, match=text):
            nb.expectation(turned(1), {"Z": 1.0}, filter=simulator, executor=pool)


def test_a_seed_is_refused_where_a_clifford_filter_draws(pools: dict[str, Executor]) -> None:
    run = partial(nb.sample, filter="StreamCliffordQPU", seed=1, executor=pools["threads"])
    with pytest.raises(ValueError, match="a Clifford filter cannot do this with a seed"):
        run(FEEDING, 10)
    bell = nb.program(nb.reset(2), nb.h(0), nb.x(1, controls=0), nb.read([0, 1], 2))
    assert run(bell, 20).packed.tolist() == run(bell, 20).packed.tolist()


def test_a_seed_has_32_bits(pools: dict[str, Executor]) -> None:
    for seed in (-1, 2**32):
        with pytest.raises(ValueError, match="seed must be an unsigned 32-bit number"):
            nb.sample(FEEDING, 1, filter="StreamQPU", seed=seed, executor=pools["threads"])


def test_what_is_no_executor_is_refused() -> None:
    with pytest.raises(TypeError, match=r"executor must have the interface of concurrent\.futures"):
        nb.sample(FEEDING, 1, executor=3)  # type: ignore[arg-type]
    with pytest.raises(TypeError, match="executor must have the interface"):
        nb.sample(drawn(1), 1, executor=3)  # type: ignore[arg-type]
    with pytest.raises(TypeError, match="the function must return an executor, not None"):
        nb.sample(FEEDING, 1, filter="StreamQPU", executor=lambda: None)  # type: ignore[arg-type]


@pytest.mark.parametrize("kind", [ImportError, TypeError, AttributeError])
def test_an_error_of_the_function_that_makes_an_executor_is_raised(kind: type[Exception]) -> None:
    def make() -> Executor:
        raise kind("no executor today")

    with pytest.raises(kind, match=r"^no executor today$"):
        nb.sample(FEEDING, 1, filter="StreamQPU", executor=make)


@pytest.mark.parametrize("name", ["two processes", "threads"])
def test_errors_of_the_program_are_raised(pools: dict[str, Executor], name: str) -> None:
    unknown = nb.program(FEEDING, nb.record(0x123))
    outside = nb.program(FEEDING, nb.h(7), nb.read(7, 9))
    run = partial(nb.sample, filter="StreamQPU", executor=pools[name])
    with pytest.raises(RuntimeError, match="Unknown opcode: 0x123"):
        run(unknown, 5)
    with pytest.raises(ValueError, match="qubit 7 lies outside the register of 2 qubits"):
        run(outside, 5)
    assert len(run(FEEDING, 5)) == 5


def test_the_bar_counts_shots_and_products(
    pools: dict[str, Executor], capsys: pytest.CaptureFixture[str]
) -> None:
    pytest.importorskip("tqdm")
    nb.sample(FEEDING, 700, progress=True, executor=pools["two processes"])
    assert "700/700" in capsys.readouterr().err
    nb.expectation(turned(1), MANY_SUMS, progress=True, executor=pools["two processes"])
    assert "5/5" in capsys.readouterr().err


def test_chunks_grow_until_they_take_long_enough_and_end_small() -> None:
    sizes = ChunkSizes()
    assert sizes.next(10**9) == 1
    sizes.finished(1, seconds=1e-6, elapsed=2e-6, worker=1)
    assert sizes.next(10**9) == 16
    for _ in range(10):
        size = sizes.next(10**9)
        sizes.finished(size, seconds=size * 1e-5, elapsed=1.0, worker=1)
    assert sizes.next(10**9) == pytest.approx(0.2 / 1e-5, rel=0.01)
    assert sizes.next(40_000) == 40_000 // sizes.under_way
    assert sizes.next(2000) == pytest.approx(0.01 / 1e-5, rel=0.01)
    assert sizes.next(5) == 5


@pytest.mark.parametrize(
    ("overhead", "longest", "shortest"), [(0.001, 0.2, 0.01), (0.02, 0.4, 0.02), (1.0, 0.5, 0.05)]
)
def test_chunks_are_longer_on_executors_that_take_long_to_hand_them_out(
    overhead: float, longest: float, shortest: float
) -> None:
    sizes = ChunkSizes()
    for _ in range(10):
        size = sizes.next(10**9)
        sizes.finished(size, seconds=size * 1e-5, elapsed=size * 1e-5 + overhead, worker=1)
    assert sizes.next(10**9) * 1e-5 == pytest.approx(longest, rel=0.01)
    assert sizes.next(int(shortest / 1e-5) + 1) * 1e-5 == pytest.approx(shortest, rel=0.01)


def test_the_second_chunk_takes_as_long_as_it_costs_to_hand_it_out() -> None:
    sizes = ChunkSizes()
    sizes.finished(1, seconds=1e-4, elapsed=1e-4 + 0.01, worker=1)
    assert sizes.next(10**9) == pytest.approx(100, rel=0.02)


def test_two_chunks_are_under_way_for_each_worker_that_is_known() -> None:
    sizes = ChunkSizes()
    before = sizes.under_way
    for _ in range(3 * before):
        sizes.finished(1, seconds=0.2, elapsed=0.2, worker="the only one")
    assert sizes.under_way == before
    for worker in range(before):
        sizes.finished(1, seconds=0.2, elapsed=0.5, worker=worker)
    assert sizes.under_way == 2 * (before + 1)


def test_more_chunks_are_under_way_while_long_items_begin_at_once() -> None:
    sizes = ChunkSizes()
    before = sizes.under_way
    sizes.finished(1, seconds=2.0, elapsed=2.1, worker="the only one yet")
    assert sizes.under_way == 2 * before
    sizes.finished(1, seconds=2.0, elapsed=4.0, worker="the only one yet")
    assert sizes.under_way == 2 * before
