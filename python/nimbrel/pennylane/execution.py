"""Execution of one circuit: its plan, run on a register, and the results of its measurements."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np

from nimbrel.pennylane._framework import qml
from nimbrel.pennylane.analytic import FinalState
from nimbrel.pennylane.branches import Branch, Split, leaves, split_exactly, split_shots
from nimbrel.pennylane.mixtures import Mixture
from nimbrel.pennylane.plan import Plan, plan_circuit
from nimbrel.pennylane.register import Register
from nimbrel.pennylane.shots import Draws, Indices, Jobs
from nimbrel.records import RecordArray

FILL_SHOTS = "fill-shots"


def execute(
    register: Register,
    circuit: Any,
    device_wires: Any,
    rng: np.random.Generator,
    postselect_mode: str | None,
) -> Any:
    """Run one circuit.

    Args:
        register: The register to run it on.
        circuit: A `QuantumScript` of native operations, without broadcasting.
        device_wires: The device's wires or None.
        rng: Draws the outcomes.
        postselect_mode: Whether projections drop shots ("fill-shots": they do not).

    Returns:
        The results in PennyLane's form: one for each measurement process, and a tuple of those
        for each part of the shots if they are divided.
    """
    plan = plan_circuit(circuit, device_wires)
    if not circuit.shots:
        return _unwrapped(exact_results(register, circuit, plan))
    parts = _sampled_results(register, circuit, plan, rng, postselect_mode)
    if circuit.shots.has_partitioned_shots:
        return tuple(_unwrapped(part) for part in parts)
    return _unwrapped(parts[0])


def exact_results(register: Register, circuit: Any, plan: Plan) -> list[Any]:
    """The exact result of each measurement process."""
    if plan.has_measurements:
        mixture = Mixture(circuit.measurements, plan)
        for branch in leaves(register, plan, 1.0, split_exactly):
            mixture.add(branch, FinalState(register, plan))
        return mixture.results()
    end = next(leaves(register, plan, 1.0, split_exactly), None)
    final = FinalState(register, plan, valid=end is not None)
    return [final.measure(process) for process in circuit.measurements]


def _unwrapped(results: Sequence[Any]) -> Any:
    return results[0] if len(results) == 1 else tuple(results)


def _sampled_results(
    register: Register,
    circuit: Any,
    plan: Plan,
    rng: np.random.Generator,
    postselect_mode: str | None,
) -> list[list[Any]]:
    shadows = [process for process in circuit.measurements if is_shadow(process)]
    jobs = Jobs([process for process in circuit.measurements if not is_shadow(process)], plan)
    split = _filling if postselect_mode == FILL_SHOTS else split_shots(rng)
    total = circuit.shots.total_shots
    drawn = _draw(register, plan, jobs, total, split, rng)
    valid = _spread_losses(total, drawn.shots, rng)
    parts = []
    for start, stop in circuit.shots.bins():
        draws = drawn.part(int(valid[start]), int(valid[stop]))
        others = iter([estimate(draws) for estimate in jobs.estimates])
        parts.append(
            [
                _shadow(register, process, plan, draws.shots, rng)
                if is_shadow(process)
                else next(others)
                for process in circuit.measurements
            ]
        )
    return parts if shadows or jobs.estimates else [[]]


def is_shadow(process: Any) -> bool:
    """Whether a measurement process draws a random basis for each shot."""
    shadows = (qml.measurements.ClassicalShadowMP, qml.measurements.ShadowExpvalMP)
    return isinstance(process, shadows)


def _shadow(
    register: Register, process: Any, plan: Plan, shots: int, rng: np.random.Generator
) -> Any:
    state = register.state()[: 1 << len(plan.wires)].reshape((2,) * len(plan.wires))
    return process.process_state_with_shots(state, plan.wires, shots, rng=rng)


def _filling(weight: float, share: float) -> tuple[float, float]:
    return (0.0, weight) if share else (weight, 0.0)


def _draw(
    register: Register,
    plan: Plan,
    jobs: Jobs,
    shots: int,
    split: Split,
    rng: np.random.Generator,
) -> Draws:
    """Draw all groups at every end of a plan, and mix the shots of different ends."""
    rotations = [group.rotation() for group in jobs.groups]
    branches: list[Branch] = []
    drawn: list[list[Indices]] = []
    for branch in leaves(register, plan, shots, split):
        branches.append(branch)
        drawn.append(_draw_groups(register, rotations, int(branch.weight), rng))
    if split is _filling and not branches:
        raise RuntimeError(
            "the circuit postselects an outcome of probability 0, so "
            "postselect_mode='fill-shots' has no shots to fill with"
        )
    return _mixed(branches, drawn, len(rotations), rng)


def _draw_groups(
    register: Register, rotations: Sequence[RecordArray], shots: int, rng: np.random.Generator
) -> list[Indices]:
    state = register.state() if len(rotations) > 1 else None
    drawn = []
    for rotation in rotations:
        register.run(rotation)
        drawn.append(register.draw(shots, rng))
        if state is not None and len(rotation):
            register.load(state)
    return drawn


def _mixed(
    branches: Sequence[Branch],
    drawn: Sequence[Sequence[Indices]],
    num_groups: int,
    rng: np.random.Generator,
) -> Draws:
    weights = [int(branch.weight) for branch in branches]
    order = rng.permutation(sum(weights)) if len(branches) > 1 else slice(None)
    nothing = np.zeros(0, dtype=np.int64)
    indices = [
        np.concatenate([nothing, *(groups[number] for groups in drawn)])[order]
        for number in range(num_groups)
    ]
    sources = branches[0].outcomes if branches else {}
    outcomes = {
        uid: np.repeat([branch.outcomes[uid] for branch in branches], weights)[order]
        for uid in sources
    }
    return Draws(indices, outcomes, sum(weights))


def _spread_losses(total: int, kept: int, rng: np.random.Generator) -> Indices:
    """Number of kept shots before each of all shots, shape (total + 1,).

    The shots that a postselection dropped are spread at random over all shots, so that each part
    of the shots loses its own.
    """
    if kept == total:
        return np.arange(total + 1)
    valid = rng.permutation(np.arange(total) < kept)
    return np.concatenate([[0], np.cumsum(valid)])
