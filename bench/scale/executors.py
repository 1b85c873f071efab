"""Time of shot-by-shot programs and of sweeps on process pools and on Dask, and what a task costs.

Every figure is the median of several rounds in which the executors take turns. The outcomes of all
executors are compared with those of this process before anything is timed. Dask is left out if it
is not installed.
"""

import argparse
import multiprocessing
import os
import statistics
import sys
import time
from collections.abc import Callable, Iterator, Sequence
from concurrent.futures import Executor, ProcessPoolExecutor
from contextlib import ExitStack, contextmanager
from functools import partial
from importlib import import_module
from pathlib import Path
from typing import Any
from uuid import uuid4

import nimbrel as nb
import numpy as np
from nimbrel.running.distributed_shots import _ShotJob
from nimbrel.running.worker import run_chunk

WIDTHS = (4, 12, 20)
SECONDS = 4.0  # of one process, for the timed number of shots
CHECKED_SHOTS = 50
TASKS = 300
LARGE_RECORDS = 200_000
POOL_GOAL = 1.8
DASK_GOAL = 1.6
SEED = 11
SHOTS_OF_A_POINT = 20


def shot_by_shot(num_qubits: int, layers: int = 4) -> nb.Program:
    """Layers of rotations and CNOTs, after each a measurement that the next one depends on."""
    angles = np.random.default_rng(num_qubits).uniform(0, 180, (layers, num_qubits))
    qubits = range(num_qubits)
    chain = nb.x.each(range(1, num_qubits), controls=range(num_qubits - 1))
    parts = [nb.reset(num_qubits)]
    for layer in range(layers):
        parts += [nb.ry.each(angles[layer], qubits), chain, nb.read(layer, 2 + layer)]
        parts.append(nb.x(num_qubits - 1, flag=2 + layer))
    return nb.program(*parts, nb.read(qubits, 2 + layers))


def rotated(angle: float) -> nb.Program:
    """A point of the sweep."""
    return nb.program(nb.reset(8), nb.ry(angle, 0), shot_by_shot(8)[1:])


def resident_bytes(_task: int) -> int:
    """The memory of this process; pages that several processes share count by their share."""
    for line in Path("/proc/self/smaps_rollup").read_text(encoding="ascii").splitlines():
        if line.startswith("Pss:"):
            return int(line.split()[1]) * 1024
    raise OSError("the system does not tell")


def median_seconds(calls: Sequence[Callable[[], object]], rounds: int) -> list[float]:
    """The median time of each call; the calls take turns."""
    times: list[list[float]] = [[] for _ in calls]
    for _ in range(rounds):
        for own, call in zip(times, calls, strict=True):
            start = time.perf_counter()
            call()
            own.append(time.perf_counter() - start)
    return [statistics.median(own) for own in times]


def require_same(records: nb.Program, executor: Executor) -> None:
    """Compare outcomes on an executor with those of this process."""
    here = nb.sample(records, CHECKED_SHOTS, filter="StreamQPU", seed=SEED)
    there = nb.sample(records, CHECKED_SHOTS, filter="StreamQPU", seed=SEED, executor=executor)
    if not np.array_equal(here.packed, there.packed):
        raise SystemExit("an executor gives other outcomes than this process")


def evenly(records: nb.Program, shots: int, executor: Executor, workers: int) -> None:
    """Run an even share of the shots on each worker: what the machine allows."""
    job = _ShotJob(records, [2], "StreamQPU", False, SEED)
    share = range(shots // workers)
    futures = [
        executor.submit(run_chunk, uuid4().hex, job, number, number, share)
        for number in range(workers)
    ]
    for future in futures:
        future.result()


def show_gain(name: str, times: list[float], goal: float | None) -> None:
    """Print a gain, and whether it is as large as wanted."""
    one, two = times
    gain = one / two
    verdict = "" if goal is None else f"  goal {goal}: {'met' if gain >= goal else 'MISSED'}"
    print(f"{name:<46} {one:7.2f} s on one, {two:7.2f} s on two: {gain:5.2f} times{verdict}")


def gains(name: str, one: Executor, two: Executor, rounds: int, goal: float) -> None:
    """Compare one and two workers on shots, and on a sweep."""
    for num_qubits in WIDTHS:
        records = shot_by_shot(num_qubits)
        for executor in (one, two):
            require_same(records, executor)
        run = partial(nb.sample, records, filter="StreamQPU", seed=SEED)
        shots = 20 if num_qubits > 12 else 2000
        for seconds in (SECONDS / 8, SECONDS):  # the first chunks are slow, so twice
            start = time.perf_counter()
            run(shots, executor=one)
            shots = int(seconds * shots / (time.perf_counter() - start))
        calls: list[Callable[[], object]] = [
            *[partial(run, shots, executor=executor) for executor in (one, two)],
            *[partial(evenly, records, shots, each, n) for n, each in ((1, one), (2, two))],
        ]
        wanted = goal if num_qubits <= 12 else None
        times = median_seconds(calls, rounds)
        show_gain(f"{name}, {num_qubits} qubits, {shots} shots", times[:2], wanted)
        show_gain("  the same in one task a worker", times[2:], None)
    points = np.linspace(0, 180, 2000).tolist()
    sweeps = [
        partial(nb.sweep, rotated, points, shots=SHOTS_OF_A_POINT, seed=SEED, executor=executor)
        for executor in (one, two)
    ]
    show_gain(f"{name}, sweep of {len(points)} points", median_seconds(sweeps, rounds), None)


def seeding() -> None:
    """Print what the seed of each shot costs."""
    for num_qubits in WIDTHS:
        records = shot_by_shot(num_qubits)
        shots = 10 if num_qubits > 12 else 20_000 // num_qubits
        with nb.Simulator("StreamQPU", max_num_threads=1) as simulator:
            calls = [
                partial(nb.sample, records, shots, filter=simulator, seed=seed)
                for seed in (None, SEED)
            ]
            without, with_seed = median_seconds(calls, 9)
        each = 1e6 / shots
        print(
            f"a shot on {num_qubits:2} qubits: {without * each:10.2f} microseconds, with a seed "
            f"{with_seed * each:10.2f}"
        )


def task_costs(name: str, executor: Executor) -> None:
    """Print what a task costs that does nearly nothing, with a small and with a large program."""
    small = shot_by_shot(4)
    large = nb.program(small, *[nb.x(0)] * LARGE_RECORDS)
    for what, records, tasks in (("small", small, TASKS), ("200,000 records", large, 20)):
        job = _ShotJob(records, [2], "StreamQPU", False, None)
        for sent in ("sent", "kept"):
            label = f"{name} {what}"
            executor.submit(run_chunk, label, job, 0, 0, range(0)).result()
            carried = job if sent == "sent" else None
            start = time.perf_counter()
            futures = [
                executor.submit(run_chunk, label, carried, number, number, range(0))
                for number in range(1, tasks + 1)
            ]
            for future in futures:
                future.result()
            each = (time.perf_counter() - start) / tasks
            print(f"{name}: a task, program ({what}) {sent}: {each * 1e3:8.2f} milliseconds")


def memory(name: str, executor: Executor) -> None:
    """Print the memory of a worker after runs of each width."""
    for num_qubits in WIDTHS:
        nb.sample(shot_by_shot(num_qubits), 8, filter="StreamQPU", executor=executor)
        used = max(executor.map(resident_bytes, range(8)))
        print(f"{name}: a worker after runs on {num_qubits} qubits: {used / 2**20:6.1f} MiB")


@contextmanager
def dask_executors() -> Iterator[tuple[Executor, Executor]]:
    """Executors of local clusters with one and with two processes."""
    distributed: Any = import_module("distributed")
    with ExitStack() as stack:
        executors = []
        for workers in (1, 2):
            cluster = stack.enter_context(
                distributed.LocalCluster(
                    n_workers=workers, threads_per_worker=1, dashboard_address=":0"
                )
            )
            executors.append(stack.enter_context(distributed.Client(cluster)).get_executor())
        yield executors[0], executors[1]


def main() -> None:
    """Check and measure."""
    parser = argparse.ArgumentParser(description=(__doc__ or "").partition("\n")[0])
    parser.add_argument("--rounds", type=int, default=5)
    rounds: int = parser.parse_args().rounds
    print(f"{len(os.sched_getaffinity(0))} processors")
    seeding()
    for method in ("fork", "spawn"):
        context = multiprocessing.get_context(method)
        with ProcessPoolExecutor(1, context) as one, ProcessPoolExecutor(2, context) as two:
            if method == "fork":
                gains("process pool", one, two, rounds, POOL_GOAL)
            task_costs(f"process pool ({method})", one)
            memory(f"process pool ({method})", one)
    try:
        with dask_executors() as (one, two):
            gains("Dask", one, two, rounds, DASK_GOAL)
            task_costs("Dask", one)
            memory("Dask", one)
    except ImportError:
        print("Dask is not installed and is left out", file=sys.stderr)


if __name__ == "__main__":
    main()
