"""Make and delete filters of all types, a million in all, and require level memory.

    python bench/soak/many_filters.py [--filters N]

Every tenth filter gets a register; every thousandth dense one has workers. The exit status is 1
if resident memory, descriptors or threads are not level; `levels.py` has the criterion.
"""

import argparse
import sys
import time
from collections.abc import Sequence

import _lib_nb_sim as engine
import nimbrel as nb
from levels import Level, level_of, trends_of

FILTERS = ("StreamQPU", "StreamSparseQPU", "StreamBitQPU", "StreamCliffordQPU", "StreamConnect")
SAMPLES = 40
SMALL = nb.program(nb.reset(5), nb.h(range(5)), nb.x(0), nb.read(0, 2))
WITH_WORKERS = nb.program(nb.reset(13), nb.h(range(13)))


def make_and_delete(first: int, count: int) -> None:
    """Make `count` filters, the first of which has number `first`, and delete each at once."""
    for number in range(first, first + count):
        filter_type = FILTERS[number % len(FILTERS)]
        handle = engine.new_native_filter(filter_type)
        if number % 10 < 4:  # not the socket filter
            large = number % 5000 == 0
            program = WITH_WORKERS if large else SMALL
            engine.put_instructions(handle, program, len(program))
        engine.delete_native_filter(handle)


def levels_of(filters: int) -> list[Level]:
    """Make and delete so many filters, and sample in between."""
    samples = []
    for sample in range(SAMPLES):
        first = filters * sample // SAMPLES
        make_and_delete(first, filters * (sample + 1) // SAMPLES - first)
        samples.append(level_of())
    return samples


def main(argv: Sequence[str]) -> int:
    """Run and return the exit status."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.formatter_class = argparse.RawDescriptionHelpFormatter
    parser.add_argument("--filters", type=int, default=1_000_000, help="(1000000)")
    filters = parser.parse_args(argv).filters
    start = time.perf_counter()
    samples = levels_of(filters)
    seconds = time.perf_counter() - start
    quarter = samples[SAMPLES // 4]
    print(
        f"{filters} filters in {seconds:.1f} s; resident {quarter.resident / 2**20:.2f} MiB after "
        f"a quarter, {samples[-1].resident / 2**20:.2f} MiB at the end"
    )
    trends = trends_of(samples)
    for trend in trends:
        print(trend)
    return 1 if trends else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
