"""Time the connect filter with examples/service.py, over this machine's loopback.

    python bench/connect.py [--records N] [--repeats N] [--json PATH]

Records a second to the service and its answer back, with the window that suits any network and
with one that suits loopback, beside the same program on a filter of this process; and the time
of one fetch, of which the filter's poll every 10 milliseconds is nearly all. The service is
another process and runs the records on a bit filter. What is timed is checked first: the flags
fetched must be those of a run here.
"""

import importlib
import statistics
import sys
import time
from collections.abc import Callable, Sequence
from contextlib import ExitStack
from dataclasses import asdict, dataclass
from functools import partial
from pathlib import Path

import numpy as np
from harness import WrongResultError, argument_parser, at_least, best_seconds, write_document
from nimbrel import QPU_OP, Opcode, RecordArray, Simulator, program, read, reset
from nimbrel.remote import WINDOW

NUM_QUBITS = 64
FIRST_FLAG = 2
SEED = 20_250_714
TIMEOUT = 60.0
LOOPBACK_WINDOW = 16_384
POLL_MS = 10.0


@dataclass(frozen=True)
class Rate:
    """How fast records run.

    Attributes:
        way: How they get to the filter that runs them.
        records_per_second: The rate, to the outcome's arrival.
    """

    way: str
    records_per_second: float


@dataclass(frozen=True)
class Latency:
    """Milliseconds of one fetch of 64 flags: the shortest, the median and the longest."""

    least: float
    median: float
    most: float


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


def run_there(sim: Simulator, records: RecordArray) -> int:
    """The outcome from the service."""
    return sim.fetch(FIRST_FLAG, NUM_QUBITS, records)


def connected(address: tuple[str, int], window: int) -> Simulator:
    """A client of the service."""
    sim = Simulator("StreamConnect")
    sim.connect(*address, TIMEOUT, window=window)
    return sim


def rates(address: tuple[str, int], count: int, repeats: int) -> list[Rate]:
    """Check every way, then time them in turn.

    Raises:
        WrongResultError: If two ways have different outcomes.
    """
    records = flips(count)
    with ExitStack() as open_filters:
        here = open_filters.enter_context(Simulator("StreamBitQPU"))
        ways: dict[str, Callable[[], int]] = {
            "on a filter of this process": partial(run_here, here, records)
        }
        for window in (WINDOW, LOOPBACK_WINDOW):
            there = open_filters.enter_context(connected(address, window))
            ways[f"by the service, window {window}"] = partial(run_there, there, records)
        if len({way() for way in ways.values()}) != 1:
            raise WrongResultError("the service's outcome differs from the one here")
        seconds = best_seconds([partial(_drop_result, way) for way in ways.values()], repeats)
    return [Rate(name, count / best) for name, best in zip(ways, seconds, strict=True)]


def _drop_result(call: Callable[[], object]) -> None:
    call()


def latency(address: tuple[str, int], repeats: int) -> Latency:
    """Time single fetches, each checked.

    Raises:
        WrongResultError: If one has another value than was written.
    """
    milliseconds = []
    with connected(address, WINDOW) as sim:
        expected = run_there(sim, flips(WINDOW))
        for _ in range(repeats):
            start = time.perf_counter()
            fetched = sim.fetch(FIRST_FLAG, NUM_QUBITS)
            milliseconds.append(1e3 * (time.perf_counter() - start))
            if fetched != expected:
                raise WrongResultError("a fetch has another value than was measured")
    return Latency(min(milliseconds), statistics.median(milliseconds), max(milliseconds))


def report(found: Sequence[Rate], fetch: Latency, count: int) -> None:
    """Print all figures."""
    print(f"{count:,} records over loopback, best of all rounds")
    for rate in found:
        print(f"{rate.way:<36}{rate.records_per_second:>14,.0f} records/s")
    print(f"one fetch of {NUM_QUBITS} flags; the filter polls every {POLL_MS:g} ms")
    print(f"{'least, median, most':<36}", end="")
    print(f"{fetch.least:>6.2f}{fetch.median:>8.2f}{fetch.most:>8.2f} ms")


def main() -> int:
    """Run the benchmark; returns the exit status."""
    parser = argument_parser("Time the connect filter.", repeats=5)
    parser.add_argument(
        "--records", type=at_least(3), default=200_000, help="records of the program"
    )
    arguments = parser.parse_args()
    sys.path.append(str(Path(__file__).parents[1] / "examples"))
    running_service = importlib.import_module("service_process").running_service
    try:
        with running_service("--filter", "StreamBitQPU", "--quiet") as address:
            found = rates(address, arguments.records, arguments.repeats)
            fetch = latency(address, 20 * arguments.repeats)
    except (WrongResultError, OSError) as error:
        print(f"connect.py: {error}", file=sys.stderr)
        return 1
    report(found, fetch, arguments.records)
    if arguments.json is not None:
        document = {"rates": [asdict(rate) for rate in found], "fetch_ms": asdict(fetch)}
        write_document(arguments.json, document)
    return 0


if __name__ == "__main__":
    sys.exit(main())
