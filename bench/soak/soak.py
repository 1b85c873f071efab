"""Run a mixture of uses for a given time and require that memory and descriptors stay level.

    python bench/soak/soak.py [--seconds N] [--samples N] [--different N]

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


class Programs:
    """Generators of the rounds' programs, which repeat after some rounds.

    The companion remembers programs. A short soak needs few different ones, or it would sample
    while that memory fills up.
    """

    def __init__(self, seed: int, different: int) -> None:
        self._seed = seed
        self._different = different
        self._rounds = 0

    def of_next_round(self) -> random.Random:
        """The generator of the next round."""
        number = self._rounds % self._different
        self._rounds += 1
        return random.Random(f"{self._seed} {number}")


def soak(seconds: float, samples: int, programs: Programs) -> Soak:
    """Run rounds for so many seconds, with samples at equal distances.

    Args:
        seconds: Length of the soak.
        samples: Number of samples.
        programs: Decides sizes, programs and the order of the uses.

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
            result = result._replace(rounds=result.rounds + run_until(end, uses, programs))
            result.here.append(level_of())
            result.service.append(level_of(service))
    return result


def run_until(end: float, uses: list[Use], programs: Programs) -> int:
    """Run rounds until a time of the monotonic clock, at least one. Returns their number."""
    done = 0
    while True:
        rng = programs.of_next_round()
        nb.seed(rng.randrange(2**32))
        for use in rng.sample(uses, len(uses)):
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
    parser.add_argument("--different", type=int, default=10**6, help="rounds (a million)")
    settings = parser.parse_args(argv)
    programs = Programs(settings.seed, settings.different)
    result = soak(settings.seconds, settings.samples, programs)
    return 0 if report(result) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
