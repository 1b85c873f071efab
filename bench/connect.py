"""Time the connect filter with nimbrel.service, over this machine's loopback.

    python bench/connect.py [--records N] [--repeats N] [--json PATH]

Records a second to the service and its answer back, with the window that suits any network and
with one that suits loopback, beside the same program on a filter of this process; and the time
of one fetch, of which the filter's poll every 10 milliseconds is nearly all. The service is
another process and runs the records on a bit filter. What is timed is checked first: the flags
fetched must be those of a run here.
"""

import argparse
import statistics
import sys
from contextlib import ExitStack
from functools import partial

import numpy as np
from gates import FIRST_FLAG
from harness import Timer, WrongResultError, argument_parser, at_least, best_seconds, run, timed
from nimbrel import QPU_OP, Opcode, RecordArray, RemoteSimulator, Simulator, program, read, reset
from nimbrel.remote import WINDOW
from nimbrel.service import running_service
from report import Figure, Report

NUM_QUBITS = 64
SEED = 20_250_714
TIMEOUT = 60.0
LOOPBACK_WINDOW = 16_384
FETCHES = 20  # for each round


def flips(count: int) -> RecordArray:
    """X on random qubits and a measurement of all, `count` records in all."""
    rng = np.random.default_rng(SEED)
    gates = np.zeros(count - 2, dtype=QPU_OP)
    gates["opcode"] = Opcode.X
    gates["target_mask"] = rng.integers(1, 2**64, size=count - 2, dtype=np.uint64)
    return program(reset(NUM_QUBITS), gates, read(range(NUM_QUBITS), FIRST_FLAG))


def run_here(sim: Simulator, records: RecordArray) -> int:
    """The outcome on a filter of this process."""
    sim.run(records)
    return sim.flags(FIRST_FLAG, NUM_QUBITS)


def connected(address: tuple[str, int], window: int) -> RemoteSimulator:
    """A client of the service."""
    sim = RemoteSimulator()
    sim.connect(*address, TIMEOUT, window=window)
    return sim


def rates(address: tuple[str, int], count: int, repeats: int) -> list[Figure]:
    """Check every way to run records, then time them in turn."""
    records = flips(count)
    with ExitStack() as open_filters:
        here = open_filters.enter_context(Simulator("StreamBitQPU"))
        ways = {"on a filter of this process": partial(run_here, here, records)}
        for window in (WINDOW, LOOPBACK_WINDOW):
            client = open_filters.enter_context(connected(address, window))
            fetch = partial(client.fetch, FIRST_FLAG, NUM_QUBITS, records)
            ways[f"by the service, window {window}"] = fetch
        if len({way() for way in ways.values()}) != 1:
            raise WrongResultError("the service's outcome differs from the one here")
        seconds = best_seconds([timed(way) for way in ways.values()], repeats)
    return [
        Figure(name, count / best, "records/s") for name, best in zip(ways, seconds, strict=True)
    ]


def fetch_times(address: tuple[str, int], rounds: int) -> list[Figure]:
    """Time single fetches, each checked."""
    with connected(address, WINDOW) as sim:
        expected = sim.fetch(FIRST_FLAG, NUM_QUBITS, flips(WINDOW))

        def fetch() -> None:
            if sim.fetch(FIRST_FLAG, NUM_QUBITS) != expected:
                raise WrongResultError("a fetch has another value than was measured")

        timer: Timer = timed(fetch)
        seconds = [timer() for _ in range(rounds)]
    figures = {"least": min(seconds), "median": statistics.median(seconds), "most": max(seconds)}
    unit = f"ms for {NUM_QUBITS} flags"
    return [Figure(f"one fetch, {name}", 1e3 * each, unit) for name, each in figures.items()]


def benchmark(arguments: argparse.Namespace, report: Report) -> None:
    """Start the service and time it."""
    with running_service("--filter", "StreamBitQPU", "--quiet") as address:
        figures = rates(address, arguments.records, arguments.repeats)
        figures += fetch_times(address, FETCHES * arguments.repeats)
    report.add_figures(f"{arguments.records:,} records over loopback, best of all rounds", figures)


if __name__ == "__main__":
    parser = argument_parser(__doc__, repeats=5)
    count = "records of the program"
    parser.add_argument("--records", type=at_least(3), default=200_000, help=count)
    sys.exit(run(benchmark, parser.parse_args()))
