"""The shots of a program that runs once a shot, on the workers of an executor."""

from collections.abc import Sequence
from typing import NamedTuple

import numpy as np

from nimbrel._engine import word32
from nimbrel.records import Program
from nimbrel.running.distribution import Work, distribute
from nimbrel.running.executor_source import AnyExecutor
from nimbrel.running.kept_filters import KeptFilter
from nimbrel.running.program_runs import ENGINE_SEEDS, Packed, ProgramRuns
from nimbrel.running.shot_plan import ShotPlan

__all__ = ["distributed_shots"]


def distributed_shots(
    plan: ShotPlan, shots: int, seed: int | None, executor: AnyExecutor, *, progress: bool
) -> Packed:
    """Run a program once a shot.

    Args:
        plan: What to run.
        shots: Number of runs.
        seed: Seeds run number k with `seed + k`.
        executor: As for `sample`.
        progress: Whether a bar shows the progress.
    """
    if seed is not None:
        seed = word32(seed, "seed")
    job = _ShotJob(plan.records, plan.read_flags, plan.choice.name, plan.older_flags, seed)
    parts = distribute(Work(job, range(shots), "shot"), executor, progress=progress)
    none = np.empty((0, -(-len(plan.read_flags) // 8)), dtype=np.uint8)
    return np.concatenate([none, *parts])


class _ShotJob(NamedTuple):
    """Runs of one program; an item is the number of a shot."""

    records: Program
    read_flags: list[int]
    filter_name: str
    renew: bool
    seed: int | None

    def run(self, first: int, items: Sequence[int], kept: KeptFilter) -> list[Packed]:
        """Run some shots."""
        return [kept.in_turn(lambda: self._outcomes(first, len(items), kept))]

    def _outcomes(self, first: int, shots: int, kept: KeptFilter) -> Packed:
        seed = None if self.seed is None else (self.seed + first) % ENGINE_SEEDS
        with kept.opened(self.filter_name) as simulator:
            threads = kept.max_num_threads
            runs = ProgramRuns(simulator, self.records, self.read_flags, max_num_threads=threads)
            return runs.in_turn(shots, renew=self.renew, seed=seed)
