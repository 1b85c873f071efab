"""`sweep`: one program for each point of a list of parameters."""

import operator
import traceback
from collections.abc import Callable, Iterable, Iterator, Sequence
from contextlib import contextmanager
from typing import Any, Final, NamedTuple

import _lib_nb_sim

from nimbrel._engine import word32
from nimbrel.records import Program, RecordArray
from nimbrel.running.bounded_calls import run_in_calls
from nimbrel.running.distribution import Work, distribute
from nimbrel.running.executor_source import AnyExecutor, refuse_open_simulator
from nimbrel.running.expectation_values import filter_for_values, register_size, totals
from nimbrel.running.filter_choice import check_local, with_reset
from nimbrel.running.kept_filters import KeptFilter, leaves_nothing_open
from nimbrel.running.pauli_sums import Observable, PauliProduct, PauliSum, pauli_sums
from nimbrel.running.product_values import product_values
from nimbrel.running.program_runs import ENGINE_SEEDS, Packed
from nimbrel.running.run_errors import PointError
from nimbrel.running.samples import Samples
from nimbrel.running.shot_plan import shot_plan
from nimbrel.running.worker import portable
from nimbrel.sampling import check_shots
from nimbrel.simulator import Simulator

__all__ = ["sweep"]

_BIT: Final = "StreamBitQPU"
_ANY_REGISTER: Final = 2**62


def sweep(
    build: Callable[[Any], RecordArray],
    parameters: Iterable[Any],
    *,
    shots: int | None = None,
    observable: Observable | None = None,
    read_flags: Iterable[int] | None = None,
    filter: str = "auto",  # noqa: A002 - the word of the documents
    seed: int | None = None,
    executor: AnyExecutor | None = None,
    progress: bool = False,
) -> list[Any]:
    """Build and run a program for each point of a list of parameters.

        def pair(angle):
            return nb.program(nb.reset(1), nb.ry(angle, 0))

        values = nb.sweep(pair, range(0, 360, 5), observable={"Z": 1.0}, executor=pool)

    Args:
        build: Makes the program of a point, whose first record is its reset. The workers of an
            executor call it. Those in other processes need a function that can be pickled, so
            usually a function of a module.
        parameters: The points: anything that `build` takes, such as numbers, tuples or arrays.
        shots: Number of runs of each program, as for `sample`.
        observable: The observable, or a list of them, as for `expectation`. Either this or `shots`.
        read_flags: With `shots`: the flags to return, as for `sample`.
        filter: As for `sample`, except that an open simulator is refused.
        seed: Makes the outcomes repeat, 32 bits. The seed of point number i, from 0, is
            `(seed + i * shots) % 2**32` for `sample`, so no two shots of the sweep have the same
            seed, and `(seed + i) % 2**32` for `expectation`. So the outcomes are the same with
            every executor and without one.
        executor: Builds and runs the programs: as for `sample`.
        progress: Whether a bar on standard error shows the progress.

    Returns:
        A list in the order of the points: `Samples` if there are `shots`, and what `expectation`
        returns otherwise. A point that fails does not end the sweep: in its place is a `PointError`
        with the parameters and the error, such as those of `sample` and `expectation`. So it is
        with the points that are lost with a worker, if `executor` makes no other, or if a point
        ends its worker again and again.

    Raises:
        ValueError: If `shots` is negative, or if there are both `shots` and an observable, or
            neither, or if a label is wrong.
        TypeError: If a label is no string or a coefficient no number, if `shots` is no integer, if
            `executor` is neither an executor nor a function or makes none, or if the work cannot be
            pickled.
        ImportError: If a progress bar is wanted and tqdm is not installed.
    """
    points = list(parameters)
    if (shots is None) == (observable is None):
        raise ValueError("a sweep needs either shots or an observable")
    refuse_open_simulator(filter)
    check_local(filter)
    if seed is not None:
        seed = word32(seed, "seed")
    job: _ShotsOfPoints | _ValuesOfPoints
    if shots is not None:
        shots = operator.index(shots)
        check_shots(shots)
        flags = None if read_flags is None else [int(flag) for flag in read_flags]
        job = _ShotsOfPoints(build, shots, flags, filter, seed)
    else:
        sums, is_list = pauli_sums(observable, _ANY_REGISTER)
        job = _ValuesOfPoints(build, sums, is_list, filter, seed)
    work = Work(job, points, "point", when_lost=_lost)
    results = distribute(work, executor, progress=progress)
    for index, result in enumerate(results):
        if isinstance(result, _Failure):
            results[index] = PointError(index, points[index], result.error, result.traceback)
    return results


class _Failure(NamedTuple):
    """A point without a result."""

    error: Exception
    traceback: str = ""


def _lost(_index: int, error: Exception) -> _Failure:
    return _Failure(error)


class _ShotsOfPoints(NamedTuple):
    """The outcomes of the programs of points."""

    build: Callable[[Any], RecordArray]
    shots: int
    read_flags: list[int] | None
    filter: str
    seed: int | None

    def run(self, first: int, items: Sequence[Any], kept: KeptFilter) -> list[Any]:
        """The outcomes of some points."""
        return [
            _or_failure(self._samples, number, point, kept)
            for number, point in enumerate(items, first)
        ]

    def _samples(self, number: int, point: Any, kept: KeptFilter) -> Samples:
        seed = None if self.seed is None else (self.seed + number * self.shots) % ENGINE_SEEDS
        seeded = seed is not None
        plan = shot_plan(self.build(point), self.read_flags, self.filter, seeded=seeded)
        fresh = plan.older_flags or not leaves_nothing_open(plan.records)

        def outcomes() -> Packed:
            with _filter_for(kept, plan.choice.name, fresh=fresh) as simulator:
                threads = kept.max_num_threads
                return plan.outcomes(simulator, self.shots, seed, max_num_threads=threads)

        return plan.samples(kept.in_turn(outcomes))


class _ValuesOfPoints(NamedTuple):
    """The expectation values of observables in the states of points."""

    build: Callable[[Any], RecordArray]
    sums: list[PauliSum]
    is_list: bool
    filter: str
    seed: int | None

    def run(self, first: int, items: Sequence[Any], kept: KeptFilter) -> list[Any]:
        """The values of some points."""
        return [
            _or_failure(self._value, number, point, kept)
            for number, point in enumerate(items, first)
        ]

    def _value(self, number: int, point: Any, kept: KeptFilter) -> Any:
        records = with_reset(self.build(point))
        products = {product for each in self.sums for product in each}
        _require_inside(max((each.x_mask | each.z_mask for each in products), default=0), records)
        name = filter_for_values(records, self.filter)
        fresh = name == _BIT or not leaves_nothing_open(records)

        def values() -> dict[PauliProduct, float]:
            with _filter_for(kept, name, fresh=fresh) as simulator:
                if self.seed is not None:
                    _lib_nb_sim.random_seed(0, (self.seed + number) % ENGINE_SEEDS)
                run_in_calls(simulator, records)
                return product_values(simulator, products)

        return totals(self.sums, kept.in_turn(values), is_list=self.is_list)


def _or_failure(
    evaluate: Callable[[int, Any, KeptFilter], Any], number: int, point: Any, kept: KeptFilter
) -> Any:
    try:
        return evaluate(number, point, kept)
    except Exception as error:
        return _Failure(portable(error), traceback.format_exc())


@contextmanager
def _filter_for(kept: KeptFilter, name: str, *, fresh: bool) -> Iterator[Simulator]:
    """The kept filter, or one that no program has run on."""
    if fresh:
        with Simulator(name, max_num_threads=kept.max_num_threads) as simulator:
            yield simulator
    else:
        with kept.opened(name) as simulator:
            yield simulator


def _require_inside(letters: int, records: Program) -> None:
    size = register_size(records)
    if letters >> size:
        raise ValueError(
            f"the observable has a letter on qubit {letters.bit_length() - 1}, outside the "
            f"register of {size} qubits"
        )
