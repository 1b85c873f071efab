"""The plan of a run of gates for one rank, and the plans that are kept for the next time."""

from __future__ import annotations

from collections import OrderedDict
from collections.abc import Callable, Hashable, Iterator
from typing import Final, NamedTuple, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.mpi.placement import Placement
from nimbrel.mpi.plan import Exchange, Gates, steps
from nimbrel.mpi.rank_records import Stretch, records_of_rank
from nimbrel.records import QPU_OP
from nimbrel.register_trace import Words

__all__ = ["KeptPlans", "RankPlan", "Transfer", "plan_for_rank"]

_STRETCHES_TOGETHER: Final = 256
"""Stretches that are rewritten at once. Each takes 2 KiB for eight qubits meanwhile."""
_KEPT_BYTES: Final = 4 << 20
_LEAST_BYTES: Final = 1 << 10
"""What a plan counts for beside its records and numbers."""

Records: TypeAlias = npt.NDArray[np.void]


class Transfer(NamedTuple):
    """An exchange, and the numbers that the ranks have meanwhile."""

    step: Exchange
    placement: Placement


class RankPlan(NamedTuple):
    """What a rank does for a run of gates.

    Attributes:
        steps: Records for its engine and exchanges, in order.
        after: The placement behind the run.
    """

    steps: tuple[Records | Transfer, ...]
    after: Placement

    @property
    def nbytes(self) -> int:
        """The memory of the plan, roughly."""
        held = (
            step.placement.numbers if isinstance(step, Transfer) else step for step in self.steps
        )
        return self.after.numbers.nbytes + sum(_LEAST_BYTES + each.nbytes for each in held)


def plan_for_rank(words: Words, before: Placement, ahead: Words, rank: int) -> RankPlan:
    """Plan a run of gates.

    Args:
        words: Gates in plain form, shape (n, 11).
        before: The placement before the run; it does not change.
        ahead: What the records behind these mix, shape (m,).
        rank: The rank.
    """
    placement = before.copy()
    transfers: list[Transfer] = []
    runs: list[list[Stretch]] = [[]]
    for step in steps(words, placement, ahead):
        if isinstance(step, Gates):
            number = int(placement.numbers[rank])
            runs[-1].append(Stretch(step.words, tuple(placement.places), number))
        else:
            transfers.append(Transfer(step, placement.copy()))
            runs.append([])
    records = _records([stretch for run in runs for stretch in run], placement.num_local)
    found: list[Records | Transfer] = []
    for number, run in enumerate(runs):
        found += transfers[number - 1 : number]
        parts = [part for part in (next(records) for _ in run) if len(part)]
        if parts:
            found.append(parts[0] if len(parts) == 1 else np.concatenate(parts))
    return RankPlan(tuple(found), placement)


def _records(stretches: list[Stretch], num_local: int) -> Iterator[Records]:
    for start in range(0, len(stretches), _STRETCHES_TOGETHER):
        together = stretches[start : start + _STRETCHES_TOGETHER]
        for words in records_of_rank(together, num_local):
            yield np.ascontiguousarray(words).view(QPU_OP).reshape(-1)


class KeptPlans:
    """The plans that were used last."""

    def __init__(self) -> None:
        """Keep no plan yet."""
        self._plans: OrderedDict[Hashable, RankPlan] = OrderedDict()
        self._bytes = 0

    def get(self, key: Hashable, make: Callable[[], RankPlan]) -> RankPlan:
        """The plan of a key, made now if it is not kept.

        Args:
            key: What the plan depends on; two runs of the same key have the same plan.
            make: Makes the plan.
        """
        plan = self._plans.get(key)
        if plan is not None:
            self._plans.move_to_end(key)
            return plan
        plan = make()
        if plan.nbytes <= _KEPT_BYTES:
            self._plans[key] = plan
            self._bytes += plan.nbytes
            while self._bytes > _KEPT_BYTES:
                self._bytes -= self._plans.popitem(last=False)[1].nbytes
        return plan
