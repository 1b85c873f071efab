"""Time what the checks of Simulator.run add to a call.

    python bench/checks.py [--repeats N] [--json PATH]

Each program runs on the same type of filter with and without the checks, in turn. Of a short
program, two costs are given: of an array that has passed before, and of one that differs from all
arrays that the filter remembers. A long program is checked at every run. Before the timing, every
program must have its known result on both filters, and only one of them may refuse a qubit.
"""

import argparse
import itertools
import sys
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import NamedTuple

import numpy as np
from harness import Timer, WrongResultError, argument_parser, best_seconds, run, timed
from nimbrel import (
    BitSimulator,
    CliffordSimulator,
    RecordArray,
    Simulator,
    h,
    program,
    reset,
    x,
    z,
)
from report import Figure, Report

NUM_QUBITS = 4
SHORT = (1, 6, 13, 40)
LONG = (1_000, 10_000, 100_000)
CALLS = 128  # in a timed round, which is short enough to be undisturbed now and then
UNSEEN = 64  # programs in turn, more of one length than a filter remembers


class Repeated(NamedTuple):
    """A gate that is its own inverse. A program repeats it.

    Attributes:
        name: The gate's name in the report.
        filter_type: The filter that runs it.
        gate: Its record.
        start: The records between the reset and the program.
        results: The state after an even and after an odd number of repetitions.
    """

    name: str
    filter_type: str
    gate: RecordArray
    start: RecordArray
    results: tuple[str, str]


BIT = "StreamBitQPU"
CLIFFORD = "StreamCliffordQPU"
FLIP = Repeated("X", BIT, x(0), program(), ("0000", "1000"))
CNOT = Repeated(
    name="CNOT",
    filter_type=CLIFFORD,
    gate=x(1, controls=0),
    start=x(0),
    results=("-Z___ +_Z__ +__Z_ +___Z", "-Z___ +ZZ__ +__Z_ +___Z"),
)
LONE_Z = Repeated(
    name="Z on one control",
    filter_type=CLIFFORD,
    gate=z((), controls=0),
    start=h(0),
    results=("+X___ +_Z__ +__Z_ +___Z", "-X___ +_Z__ +__Z_ +___Z"),
)


def state_of(sim: Simulator) -> str:
    """The state of a bit filter, or the generators of a Clifford filter."""
    if isinstance(sim, BitSimulator):
        return sim.bits()
    assert isinstance(sim, CliffordSimulator)
    return " ".join(sim.generators())


def refuses(sim: Simulator) -> bool:
    """Whether a check refuses a qubit outside the register, before the engine may do so."""
    try:
        sim.run(reset(NUM_QUBITS), x(NUM_QUBITS))
    except ValueError:
        return True
    except RuntimeError:  # the engine's own refusal
        return False
    return False


def check(sim: Simulator, repeated: Repeated, programs: list[RecordArray]) -> None:
    """Run each program whole and without its last record, and compare the states.

    Raises:
        WrongResultError: If a state differs from the known one.
    """
    for records in programs:
        for part in (records, records[:-1]):
            sim.run(reset(NUM_QUBITS), repeated.start, part)
            if state_of(sim) != repeated.results[len(part) % 2]:
                raise WrongResultError(f"{len(part)} x {repeated.name}: the state is wrong")


@contextmanager
def simulators(repeated: Repeated, programs: list[RecordArray]) -> Iterator[list[Simulator]]:
    """A simulator with the checks and one without, on both of which the programs are right."""
    unchecked = {"check_qubits": False, "allow_inexact_controls": True}
    with (
        Simulator(repeated.filter_type) as first,
        Simulator(repeated.filter_type, **unchecked) as second,
    ):
        if not refuses(first) or refuses(second):
            raise WrongResultError("the simulator with the checks must be the one that refuses")
        for sim in (first, second):
            check(sim, repeated, programs)
        yield [first, second]


def calls_in_turn(sim: Simulator, programs: list[RecordArray], calls: int) -> Callable[[], None]:
    """Run the programs one after the other, `calls` calls in all."""

    def run_all() -> None:
        for records in itertools.islice(itertools.cycle(programs), calls):
            sim.run(records)

    return run_all


def added(repeated: Repeated, programs: list[RecordArray], calls: int, repeats: int) -> float:
    """Seconds that the checks add to a call."""
    with simulators(repeated, programs) as both:
        timers: list[Timer] = [timed(calls_in_turn(sim, programs, calls)) for sim in both]
        checked, unchecked = best_seconds(timers, 10 * repeats)
    return (checked - unchecked) / calls


def short_program(count: int, number: int) -> RecordArray:
    """A program of X gates. Programs of different numbers differ in a word that has no effect."""
    records = np.repeat(FLIP.gate, count)
    records["reserved_a"][-1] = number
    return records


def short_costs(repeats: int) -> list[Figure]:
    """The cost for a short program that the filter remembers, and for one that it does not."""
    figures = []
    for count in SHORT:
        programs = [short_program(count, number) for number in range(UNSEEN)]
        for name, part in (("repeated", programs[:1]), ("new", programs)):
            cost = added(FLIP, part, CALLS, repeats)
            figures.append(Figure(f"{count} records, {name}", 1e6 * cost, "us a call"))
    return figures


def long_costs(repeats: int) -> list[Figure]:
    """The cost for each record of a long program."""
    figures = []
    for count in LONG:
        for repeated in (FLIP, CNOT, LONE_Z):
            cost = added(repeated, [np.repeat(repeated.gate, count)], 1, repeats)
            label = f"{count:,} x {repeated.name}, {repeated.filter_type}"
            figures.append(Figure(label, 1e9 * cost / count, "ns a record"))
    return figures


def benchmark(arguments: argparse.Namespace, report: Report) -> None:
    """Time short and long programs."""
    report.add_figures("the checks of a short program", short_costs(arguments.repeats))
    report.add_figures("the checks of a long program", long_costs(arguments.repeats))


if __name__ == "__main__":
    sys.exit(run(benchmark, argument_parser(__doc__, repeats=15).parse_args()))
