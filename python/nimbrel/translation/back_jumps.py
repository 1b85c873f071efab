"""Programs with jumps back, which the companion carries out between two runs of the engine."""

from __future__ import annotations

from collections.abc import Sequence
from contextlib import ExitStack
from typing import NamedTuple

import numpy as np

from nimbrel.records import Program
from nimbrel.running.filter_choice import FilterChoice, check_local, choose_filter
from nimbrel.running.progress import ProgressBar
from nimbrel.running.samples import Samples
from nimbrel.sampling import check_shots
from nimbrel.seeding import seed as seed_engine
from nimbrel.simulator import Simulator


class BackJump(NamedTuple):
    """A jump back to an earlier record, which the companion carries out between two runs.

    Attributes:
        position: Number of records before the jump.
        flag: The read flag that must be 1 for the jump.
        destination: Index of the record with which the program continues.
    """

    position: int
    flag: int
    destination: int


def run_once(simulator: Simulator, program: Program, back_jumps: Sequence[BackJump]) -> None:
    """Run a program from its first record to its last, with its jumps back.

    Args:
        simulator: The filter.
        program: The records.
        back_jumps: The jumps back, in the order of their positions.

    Raises:
        RuntimeError: The engine's error.
    """
    start = 0
    jumps = iter(back_jumps)
    jump = next(jumps, None)
    while jump is not None:
        simulator.run(program[start : jump.position])
        if simulator.flags(jump.flag, 1):
            start = jump.destination
            jumps = (each for each in back_jumps if each.position > start)
        else:
            start = jump.position
        jump = next(jumps, None)
    simulator.run(program[start:])


def sample_with_jumps(
    program: Program,
    back_jumps: Sequence[BackJump],
    flags: Sequence[int],
    shots: int,
    *,
    filter: str | Simulator = "auto",  # noqa: A002 - the name that nimbrel.sample has
    seed: int | None = None,
    progress: bool = False,
) -> Samples:
    """Run a program with jumps back many times, once a shot.

    Args:
        program: The records; the first is the reset.
        back_jumps: The jumps back, in the order of their positions.
        flags: The flags to return, consecutive numbers.
        shots: Number of runs, 0 or more.
        filter: As for `nimbrel.sample`.
        seed: Seed of the engine's generator, 32 bits; None leaves it as it is.
        progress: Whether a bar on standard error shows the progress.

    Returns:
        The outcomes, one row a run.

    Raises:
        ValueError: If `shots` is negative, if no filter fits, or if there is a seed and a Clifford
            filter, whose own draws cannot be seeded.
        RuntimeError: The engine's error.
    """
    check_shots(shots)
    choice = _choice(program, filter, seed)
    width = len(flags)
    outcomes = bytearray()
    with ExitStack() as stack:
        simulator = (
            filter if isinstance(filter, Simulator) else stack.enter_context(Simulator(choice.name))
        )
        bar = stack.enter_context(ProgressBar(shots, "shot", shown=progress))
        if seed is not None:
            seed_engine(seed)
        for _ in range(shots):
            run_once(simulator, program, back_jumps)
            value = simulator.flags(flags[0], width) if width else 0
            outcomes += value.to_bytes((width + 7) // 8, "little")
            bar.update(1)
    packed = np.frombuffer(outcomes, dtype=np.uint8).reshape(shots, (width + 7) // 8)
    return Samples(tuple(flags), packed, choice.name, choice.reason)


def _choice(program: Program, filter_: str | Simulator, seed: int | None) -> FilterChoice:
    if filter_ == "auto":
        return choose_filter(program, seedable=seed is not None)
    name = filter_.filter_type if isinstance(filter_, Simulator) else filter_
    check_local(name)
    if seed is not None and name == "StreamCliffordQPU":
        raise ValueError(
            "the program has while loops, so it runs once a shot; a Clifford filter cannot do this "
            "with a seed"
        )
    return FilterChoice(name, "the caller named it")
