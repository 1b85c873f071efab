"""Run a mixture of uses for a given time and require that memory and descriptors stay level.

    python bench/soak/soak.py [--seconds N] [--samples N]

One round of uses is 27 programs on all filters, resets of changing sizes, transfers,
sampling, service sessions and errors. Samples of this process and of the service's are taken
between rounds, when no filter exists. The exit status is 1 if a series is not level; `levels.py`
has the criterion.
"""

import argparse
import os
import random
import sys
import time
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import NamedTuple

import nimbrel as nb
from levels import Level, level_of, trends_of
from nimbrel.service import running_service
from rounds import (
    PROGRAMS_OF_A_ROUND,
    Use,
    classical_program,
    dense_transfers,
    errors,
    events,
    sampling,
    session,
    silence,
    sparse_and_clifford,
)


class Soak(NamedTuple):
    """What a soak has measured.

    Attributes:
        rounds: How often all uses have run.
        here: Samples of this process.
        service: Samples of the service's process.
    """

    rounds: int
    here: list[Level]
    service: list[Level]


def soak(seconds: float, samples: int, rng: random.Random) -> Soak:
    """Run rounds for so many seconds, with samples at equal distances.

    Args:
        seconds: Length of the soak.
        samples: Number of samples.
        rng: Decides sizes, programs and the order of the uses.

    Raises:
        WrongResultError: If a use has a wrong result.
    """
    result = Soak(0, [], [])
    arguments = ("--filter", "StreamBitQPU", "--quiet")
    with running_service(*arguments) as address, silence():
        uses: list[Use] = [classical_program, dense_transfers, sparse_and_clifford, sampling]
        uses += [errors, events, session(address)]
        service = only_child()
        start = time.monotonic()
        for sample in range(samples):
            end = start + seconds * (sample + 1) / samples
            result = result._replace(rounds=result.rounds + run_until(end, uses, rng))
            result.here.append(level_of())
            result.service.append(level_of(service))
    return result


def run_until(end: float, uses: list[Use], rng: random.Random) -> int:
    """Run rounds until a time of the monotonic clock, at least one. Returns their number."""
    done = 0
    while True:
        rng.shuffle(uses)
        nb.seed(rng.randrange(2**32))
        for use in uses:
            use(rng)
        done += 1
        if time.monotonic() >= end:
            return done


def only_child() -> int:
    """The number of the one child of this process, which is the service."""
    children = Path(f"/proc/self/task/{os.getpid()}/children")
    (number,) = children.read_text(encoding="ascii").split()
    return int(number)


def report(result: Soak, write: Callable[[str], object] = print) -> bool:
    """Write what was measured, and return whether all series are level."""
    programs = result.rounds * PROGRAMS_OF_A_ROUND
    write(f"{programs} programs; one a second makes {programs / 3600:.1f} hours of use")
    level = True
    for name, series in (("this process", result.here), ("the service", result.service)):
        quarter = len(series) // 4
        for when, sample in (("after a quarter", series[quarter]), ("at the end", series[-1])):
            write(
                f"{name}, {when}: {sample.resident / 2**20:.1f} MiB resident, "
                f"{sample.descriptors} descriptors, {sample.threads} threads"
            )
        for trend in trends_of(series):
            level = False
            write(f"{name}: {trend}")
    return level


def main(argv: Sequence[str]) -> int:
    """Run a soak and return the exit status."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.formatter_class = argparse.RawDescriptionHelpFormatter
    parser.add_argument("--seconds", type=float, default=600.0, help="length of the soak (600)")
    parser.add_argument("--samples", type=int, default=60, help="8 or more (60)")
    parser.add_argument("--seed", type=int, default=1, help="of sizes and programs (1)")
    settings = parser.parse_args(argv)
    result = soak(settings.seconds, settings.samples, random.Random(settings.seed))
    return 0 if report(result) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
