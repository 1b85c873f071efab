"""Execution of a plan: straight through, or branch by branch of its mid-circuit measurements.

Shots share everything up to the measurement at which their outcomes differ. At a measurement, the
number of shots with the outcome 1 is drawn from the binomial distribution, and each branch with
shots goes on from the projected state. So a circuit costs at most one run a shot, and at most
2**k runs for k measurements.
"""

from __future__ import annotations

from collections.abc import Callable, Iterator
from dataclasses import dataclass
from typing import Any

import numpy as np

from nimbrel.amplitudes import Amplitudes
from nimbrel.pennylane.outcomes import value_of
from nimbrel.pennylane.plan import Measure, Plan, Project, Run
from nimbrel.pennylane.register import Register

_NOTHING = 1e-15
"""A probability that rounding alone may leave."""


@dataclass
class Branch:
    """One history of outcomes.

    Attributes:
        step: The next step of the plan.
        outcomes: The outcome of each mid-circuit measurement so far, by its identifier.
        weight: The number of shots, or, for exact results, the probability.
        state: The state to go on with, or None if the register holds it.
    """

    step: int
    outcomes: dict[Any, int]
    weight: float
    state: Amplitudes | None = None


Split = Callable[[float, float], tuple[float, float]]
"""Divides a weight between the outcomes 0 and 1, by the probability of 1."""


def split_exactly(weight: float, ones: float) -> tuple[float, float]:
    """Give each outcome its probability."""
    return weight * (1.0 - ones), weight * ones


def split_shots(rng: np.random.Generator) -> Split:
    """Divide shots as independent draws would."""

    def split(weight: float, ones: float) -> tuple[float, float]:
        drawn = int(rng.binomial(int(weight), ones))
        return int(weight) - drawn, drawn

    return split


def prepare(register: Register, plan: Plan) -> None:
    """Set a register to the state that a plan begins with."""
    register.reset(plan.num_qubits)
    if plan.initial is not None:
        register.load(plan.initial)


def leaves(register: Register, plan: Plan, weight: float, split: Split) -> Iterator[Branch]:
    """Run a plan and stop at each end.

    Args:
        register: The register. At each stop it holds the branch's final state, which the caller
            may change.
        plan: The plan.
        weight: The weight of the whole: shots, or 1.0.
        split: Divides a weight at a measurement.

    Yields:
        The branches of a weight above 0 that no postselection drops.
    """
    prepare(register, plan)
    pending = [Branch(0, {}, weight)]
    while pending:
        branch = pending.pop()
        if branch.state is not None:
            register.load(branch.state)
        yield from _follow(register, plan, branch, pending, split)


def _follow(
    register: Register, plan: Plan, branch: Branch, pending: list[Branch], split: Split
) -> Iterator[Branch]:
    for number in range(branch.step, len(plan.steps)):
        step = plan.steps[number]
        if isinstance(step, Measure):
            if not _measure(register, branch, step, number, pending, split):
                return
        elif isinstance(step, Project):
            _project(register, branch, step, split)
            if not branch.weight:
                return
        elif isinstance(step, Run) or value_of(step.condition, branch.outcomes):
            register.run(step.records)
    yield branch


def _measure(
    register: Register,
    branch: Branch,
    step: Measure,
    number: int,
    pending: list[Branch],
    split: Split,
) -> bool:
    """Go on with one outcome, leave the other one to `pending`, and tell whether one is left."""
    if step.uid in branch.outcomes and number == branch.step:
        outcome = branch.outcomes[step.uid]  # a pending branch takes up its own measurement
    else:
        weights = list(split(branch.weight, _ones(register, step)))
        if step.postselect is not None:
            weights[1 - step.postselect] = 0
        open_outcomes = [outcome for outcome in (0, 1) if weights[outcome] > 0]
        if not open_outcomes:
            return False
        if len(open_outcomes) == 2:
            later = {**branch.outcomes, step.uid: 1}
            pending.append(Branch(number, later, weights[1], register.state()))
        outcome = open_outcomes[0]
        branch.outcomes[step.uid] = outcome
        branch.weight = weights[outcome]
    register.postselect(step.bit if outcome else 0, step.bit)
    if outcome and step.flip is not None:
        register.run(step.flip)
    return True


def _ones(register: Register, step: Measure) -> float:
    ones = register.probability(step.bit, step.bit)
    zeros = register.probability(0, step.bit)
    share = ones / (ones + zeros)
    return 0.0 if share < _NOTHING else 1.0 if share > 1.0 - _NOTHING else share


def _project(register: Register, branch: Branch, step: Project, split: Split) -> None:
    share = min(1.0, register.probability(step.value, step.mask) / register.norm())
    branch.weight = split(branch.weight, share)[1] if share > _NOTHING else 0
    if branch.weight:
        register.postselect(step.value, step.mask)
