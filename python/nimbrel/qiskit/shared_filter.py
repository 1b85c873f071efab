"""One dense filter for all sets of values of a circuit's parameters."""

from __future__ import annotations

from collections.abc import Iterable, Iterator
from itertools import chain
from typing import Final

from nimbrel.qiskit.circuit_programs import CircuitProgram
from nimbrel.running.filter_choice import choose_filter
from nimbrel.simulator import Simulator

_DENSE: Final = "StreamQPU"


def with_filter(
    programs: Iterable[CircuitProgram], filter_type: str, count: int
) -> Iterator[tuple[CircuitProgram, str | Simulator]]:
    """Pair the programs of one circuit with the filter that each takes.

    Choosing and making a filter takes longer than a run of a small circuit. A dense filter carries
    out every program, so all programs share it if it is chosen for the first. Another choice holds
    for one program only.

    Args:
        programs: The circuit's program with one set of values after the other.
        filter_type: The filter that the caller named, or "auto".
        count: The number of programs.

    Yields:
        Each program, with an open simulator or `filter_type`.
    """
    every = iter(programs)
    first = next(every, None)
    if first is None:
        return
    if not _is_shared(first, filter_type, count):
        for program in chain([first], every):
            yield program, filter_type
        return
    with Simulator(_DENSE) as simulator:
        for program in chain([first], every):
            yield program, simulator


def _is_shared(first: CircuitProgram, filter_type: str, count: int) -> bool:
    if count < 2 or first.back_jumps:
        return False
    return filter_type == _DENSE or (
        filter_type == "auto" and choose_filter(first.program).name == _DENSE
    )
