"""Time what the checks of Simulator.run add to a call.

    python bench/checks.py [--repeats N] [--json PATH]

Each program runs on the same type of filter with and without the checks, in turn. Of a short
program, two costs are given: of an array that has passed before, and of one that differs from all
arrays that the filter remembers. A long program is checked at every run.
"""

import argparse
import itertools
import sys
from collections.abc import Callable

import numpy as np
from harness import Timer, argument_parser, best_seconds, run, timed
from nimbrel import RecordArray, Simulator, program, reset, x, z
from report import Figure, Report

NUM_QUBITS = 4
SHORT = (1, 6, 13, 40)
LONG = (1_000, 10_000, 100_000)
CALLS = 128  # in a timed round, which is short enough to be undisturbed now and then
UNSEEN = 64  # programs in turn, more of one length than a filter remembers
BIT = "StreamBitQPU"
CLIFFORD = "StreamCliffordQPU"


def simulators(filter_type: str) -> list[Simulator]:
    """A simulator with the checks and one without, each with a register."""
    both = [
        Simulator(filter_type),
        Simulator(filter_type, check_qubits=False, allow_inexact_controls=True),
    ]
    for sim in both:
        sim.run(reset(NUM_QUBITS))
    return both


def calls_in_turn(sim: Simulator, programs: list[RecordArray]) -> Callable[[], None]:
    """Run the programs one after the other, `CALLS` calls in all."""

    def calls() -> None:
        for records in itertools.islice(itertools.cycle(programs), CALLS):
            sim.run(records)

    return calls


def added(filter_type: str, programs: list[RecordArray], repeats: int) -> float:
    """Seconds that the checks add to a call."""
    both = simulators(filter_type)
    timers: list[Timer] = [timed(calls_in_turn(sim, programs)) for sim in both]
    checked, unchecked = best_seconds(timers, 10 * repeats)
    for sim in both:
        sim.close()
    return (checked - unchecked) / CALLS


def added_to_long(filter_type: str, records: RecordArray, repeats: int) -> float:
    """Seconds that the checks add to one call with many records."""
    both = simulators(filter_type)
    timers: list[Timer] = [timed(lambda sim=sim: sim.run(records)) for sim in both]  # type: ignore[misc]
    checked, unchecked = best_seconds(timers, 10 * repeats)
    for sim in both:
        sim.close()
    return checked - unchecked


def short_program(count: int, number: int) -> RecordArray:
    """A program of X gates. Programs of different numbers differ in a word that has no effect."""
    records = program(*[x(0)] * count)
    records["reserved_a"][-1] = number
    return records


def short_costs(repeats: int) -> list[Figure]:
    """The cost for a short program that the filter remembers, and for one that it does not."""
    figures = []
    for count in SHORT:
        programs = [short_program(count, number) for number in range(UNSEEN)]
        for name, part in (("repeated", programs[:1]), ("new", programs)):
            cost = added(BIT, part, repeats)
            figures.append(Figure(f"{count} records, {name}", 1e6 * cost, "us a call"))
    return figures


def long_costs(repeats: int) -> list[Figure]:
    """The cost for each record of a long program."""
    figures = []
    for count in LONG:
        gates = {
            (BIT, "X"): x(0),
            (CLIFFORD, "CNOT"): x(1, controls=0),
            (CLIFFORD, "Z on one control"): z((), controls=0),
        }
        for (filter_type, name), gate in gates.items():
            cost = added_to_long(filter_type, np.repeat(gate, count), repeats)
            label = f"{count:,} x {name}, {filter_type}"
            figures.append(Figure(label, 1e9 * cost / count, "ns a record"))
    return figures


def benchmark(arguments: argparse.Namespace, report: Report) -> None:
    """Time short and long programs."""
    report.add_figures("the checks of a short program", short_costs(arguments.repeats))
    report.add_figures("the checks of a long program", long_costs(arguments.repeats))


if __name__ == "__main__":
    sys.exit(run(benchmark, argument_parser(__doc__, repeats=15).parse_args()))
