"""Decides how the outcomes of a program are found, before anything runs."""

from collections.abc import Iterable
from typing import Final, NamedTuple

import numpy as np

from nimbrel.program_check import ProgramCheck
from nimbrel.records import Program, RecordArray
from nimbrel.running.deferral import Deferred, NotDeferred, defer
from nimbrel.running.filter_choice import FilterChoice, check_local, choose_filter, with_reset
from nimbrel.running.flag_use import flag_use
from nimbrel.running.program_runs import Packed, ProgramRuns
from nimbrel.running.samples import Samples
from nimbrel.simulator import Simulator

__all__ = ["ShotPlan", "shot_plan"]

_CLIFFORD: Final = "StreamCliffordQPU"
_BIT: Final = "StreamBitQPU"


class ShotPlan(NamedTuple):
    """How the outcomes of a program are found.

    Attributes:
        records: The program.
        read_flags: The read flags to return.
        older_flags: Whether flags of the run before could show in a run.
        deferral: Whether the outcomes are drawn from one state.
        choice: The filter.
        open_filter: The caller's simulator, if there is one.
    """

    records: Program
    read_flags: list[int]
    older_flags: bool
    deferral: Deferred | NotDeferred
    choice: FilterChoice
    open_filter: Simulator | None

    @property
    def runs_once_a_shot(self) -> bool:
        """Whether the program runs once a shot."""
        certain = self.choice.name == _BIT and not (self.open_filter and self.older_flags)
        return not certain and isinstance(self.deferral, NotDeferred)

    def outcomes(
        self,
        simulator: Simulator,
        shots: int,
        seed: int | None,
        *,
        progress: bool = False,
        max_num_threads: int = 0,
    ) -> Packed:
        """Find the outcomes.

        Args:
            simulator: The open simulator, or a filter of the chosen type. It has no stored flags if
                `older_flags` is set.
            shots: Number of runs.
            seed: Seeds run number k with `seed + k`, or the draws from one state.
            progress: Whether a bar shows the progress.
            max_num_threads: The parameter of that name for filters that are made for one run.
        """
        run = ProgramRuns(simulator, self.records, self.read_flags, max_num_threads=max_num_threads)
        if self.runs_once_a_shot:
            renew = self.older_flags and self.open_filter is None
            return run.in_turn(shots, progress=progress, renew=renew, seed=seed)
        if isinstance(self.deferral, Deferred) and self.choice.name != _BIT:
            return run.drawn(self.deferral, shots, seed, progress=progress)
        return np.repeat(run.in_turn(min(shots, 1), progress=progress), shots, axis=0)

    def samples(self, packed: Packed) -> Samples:
        """The outcomes with what `sample` tells about them."""
        return Samples(tuple(self.read_flags), packed, self.choice.name, self.choice.reason)


def shot_plan(
    program: RecordArray,
    read_flags: Iterable[int] | None,
    filter_: str | Simulator,
    *,
    seeded: bool,
) -> ShotPlan:
    """Decide how the outcomes of a program are found.

    Args:
        program: As for `sample`.
        read_flags: As for `sample`.
        filter_: As for `sample`.
        seeded: Whether there is a seed.

    Raises:
        ValueError: As `sample`.
    """
    records = with_reset(program)
    use = flag_use(records)
    wanted = use.stored if read_flags is None else [int(flag) for flag in read_flags]
    older_flags = use.needs_fresh_flags(wanted)
    deferral = defer(records)
    open_filter = filter_ if isinstance(filter_, Simulator) else None
    if open_filter is not None and isinstance(deferral, Deferred):
        deferral = _deferral_for(open_filter, records, deferral, older_flags=older_flags)
    choice = _choice(records, filter_, deferral, seeded=seeded)
    return ShotPlan(records, wanted, older_flags, deferral, choice, open_filter)


def _choice(
    records: Program, filter_: str | Simulator, plan: Deferred | NotDeferred, *, seeded: bool
) -> FilterChoice:
    runs_once_a_shot = isinstance(plan, NotDeferred)
    if filter_ == "auto":
        return choose_filter(records, seedable=runs_once_a_shot and seeded)
    name = filter_.filter_type if isinstance(filter_, Simulator) else filter_
    check_local(name)
    if isinstance(plan, NotDeferred) and seeded and name == _CLIFFORD:
        raise ValueError(
            f"record {plan.record} {plan.reason}, so the program runs once a shot; a Clifford "
            "filter cannot do this with a seed"
        )
    return FilterChoice(name, "the caller named it")


def _deferral_for(
    simulator: Simulator, records: Program, plan: Deferred, *, older_flags: bool
) -> Deferred | NotDeferred:
    """Find what an open simulator has of its own that makes a difference from run to run."""
    if simulator._check.may_be_skipping:
        return NotDeferred(0, "may be skipped by an open jump")
    if older_flags:
        return NotDeferred(0, "begins a run that may see flags of the run before")
    if simulator._randomized:
        return NotDeferred(0, "makes a random state")
    try:
        # The simulator may have no check. Qubits outside the register have no outcomes to draw.
        ProgramCheck(simulator.filter_type, qubits=True, inexact_controls=True).begin(records)
    except ValueError:
        return NotDeferred(0, "makes a register that lacks a qubit of the program")
    return plan
