"""Multiply all pairs of numbers at once on the sparse simulator, and keep those that give N.

    python examples/factor_pairs.py [N] [--bits K]

Two numbers of K bits (default 9) are put into every pair of values there is, 2**(2 K) of them,
and multiplied by adders on 6 K qubits, 54 by default, which no dense state vector could hold.
Every product is compared with Python's own. Projecting the product on N (default 55440) leaves
the pairs whose product is N; they are compared with those that Python finds by division, and
one of them is measured. The exit status is 1 when anything differs and 2 when the arguments
make no sense.
"""

import argparse
import sys
import time
from collections.abc import Sequence
from dataclasses import dataclass
from typing import NamedTuple, NoReturn, TypeAlias

import numpy as np
import numpy.typing as npt
from adder import compute_carry, finish_sum, uncompute_carry
from nimbrel import RecordArray, Simulator, SparseSimulator, h, lelbow, program, read, relbow, reset

DEFAULT_NUMBER = 55440
DEFAULT_BITS = 9
MAX_BITS = 10  # 60 of the 63 qubits of a sparse register, and a million pairs
FIRST_FLAG = 2  # the flags below are constants
SHOWN_PAIRS = 6
LONGEST_SHOWN = 60  # characters of a bad argument

Numbers: TypeAlias = npt.NDArray[np.uint64]
Pairs: TypeAlias = set[tuple[int, int]]


class ExampleError(Exception):
    """The simulator's answer is not the one known."""


@dataclass(frozen=True)
class Layout:
    """Where the numbers lie.

    The product comes first: the simulator projects on qubits below 32 only.

    Attributes:
        bits: Width k of the two factors; the register has 6k qubits.
    """

    bits: int

    @property
    def product(self) -> range:
        """The product, 2k qubits."""
        return range(2 * self.bits)

    @property
    def p(self) -> range:
        """The first factor, k qubits."""
        return range(2 * self.bits, 3 * self.bits)

    @property
    def q(self) -> range:
        """The second factor, k qubits."""
        return range(3 * self.bits, 4 * self.bits)

    @property
    def addend(self) -> range:
        """The first factor where the current bit of the second is 1, else 0; k qubits."""
        return range(4 * self.bits, 5 * self.bits)

    @property
    def carries(self) -> range:
        """The carry into each position of an adder, k qubits; the lowest is always 0."""
        return range(5 * self.bits, self.num_qubits)

    @property
    def num_qubits(self) -> int:
        """Qubits of the whole register."""
        return 6 * self.bits


class Outcome(NamedTuple):
    """What a run gave."""

    terms: int  # pairs that were multiplied at once
    pairs: Pairs  # those left after the projection
    measured: tuple[int, int] | None  # one of them; None when there are none
    records: int
    seconds: float  # of the multiplication


def add(a: Sequence[int], b: Sequence[int], carries: Sequence[int]) -> list[RecordArray]:
    """The records that add a to b, whose one further qubit on top is 0 and takes the last carry.

    The carries are computed upward, and uncomputed downward, each before its sum is made.
    """
    positions = list(zip(a, b[:-1], carries, [*carries[1:], b[-1]], strict=True))
    parts = [record for position in positions for record in compute_carry(*position)]
    for low, high, carry, carry_out in reversed(positions):
        if carry_out != b[-1]:
            parts += uncompute_carry(low, high, carry, carry_out)
        parts += finish_sum(low, high, carry)
    return parts


def multiply(layout: Layout) -> RecordArray:
    """The records that add p times q to a product of 0, one bit of q after the other."""
    parts: list[RecordArray] = []
    for shift, bit in enumerate(layout.q):
        places = list(zip(layout.addend, layout.p, strict=True))
        parts += [lelbow(copy, controls=[qubit, bit]) for copy, qubit in places]
        # The sum so far is below 2**(bits + shift), so the qubit above is 0.
        parts += add(layout.addend, layout.product[shift : shift + layout.bits + 1], layout.carries)
        parts += [relbow(copy, controls=[qubit, bit]) for copy, qubit in places]
    return program(*parts)


def factor_pairs(number: int, bits: int) -> Pairs:
    """The pairs of numbers of so many bits whose product is `number`, by division."""
    if number == 0:
        return {pair for k in range(1 << bits) for pair in ((0, k), (k, 0))}
    factors = range(1, 1 << bits)
    return {(p, number // p) for p in factors if number % p == 0 and number // p in factors}


def values(indices: Numbers, qubits: range) -> Numbers:
    """The number that some neighbouring qubits hold in every term."""
    found: Numbers = indices >> np.uint64(qubits[0]) & np.uint64((1 << len(qubits)) - 1)
    return found


def pairs_of(indices: Numbers, layout: Layout) -> Pairs:
    """The two factors in every term."""
    ps, qs = values(indices, layout.p), values(indices, layout.q)
    return set(zip(ps.tolist(), qs.tolist(), strict=True))


def check_products(sim: SparseSimulator, layout: Layout) -> int:
    """Compare all products with Python's; returns how many pairs there are.

    Raises:
        ExampleError: If a product is wrong, a helping qubit is not 0 again, or a pair is
            missing or has not its share of the probability.
    """
    indices, amplitudes = sim.terms()
    expected = values(indices, layout.p) * values(indices, layout.q)
    if not np.array_equal(values(indices, layout.product), expected):
        raise ExampleError("a product differs from Python's own")
    if np.any(indices >> np.uint64(layout.addend[0])):
        raise ExampleError("a helping qubit is not 0 again")
    if len(pairs_of(indices, layout)) != 4**layout.bits:
        raise ExampleError("not every pair is there")
    if not np.allclose(amplitudes, 0.5**layout.bits, rtol=0, atol=1e-12):
        raise ExampleError("a pair has not its share of the probability")
    return len(indices)


def run_search(layout: Layout, number: int) -> Outcome:
    """Multiply all pairs, keep those that give `number`, and measure one of them.

    Raises:
        ExampleError: If a product is wrong.
    """
    records = program(reset(layout.num_qubits), h([*layout.p, *layout.q]), multiply(layout))
    mask = (1 << len(layout.product)) - 1
    with Simulator("StreamSparseQPU") as sim:
        start = time.perf_counter()
        sim.run(records)
        seconds = time.perf_counter() - start
        terms = check_products(sim, layout)
        if sim.peek_probability(number, mask) == 0.0:
            return Outcome(terms, set(), None, len(records), seconds)
        sim.postselect(number, mask)
        pairs = pairs_of(sim.terms()[0], layout)
        sim.run(read([*layout.p, *layout.q], FIRST_FLAG))
        p = sim.flags(FIRST_FLAG, layout.bits)
        q = sim.flags(FIRST_FLAG + layout.bits, layout.bits)
        return Outcome(terms, pairs, (p, q), len(records), seconds)


def check_pairs(outcome: Outcome, number: int, layout: Layout) -> None:
    """Compare the pairs that are left with those found by division.

    Raises:
        ExampleError: If they differ, or the one that was measured is not among them.
    """
    known = factor_pairs(number, layout.bits)
    if outcome.pairs != known:
        raise ExampleError("the factor pairs differ from those found by division")
    if known and outcome.measured not in known:
        raise ExampleError(f"{outcome.measured} was measured and cannot be")


class OneLineParser(argparse.ArgumentParser):
    """An argument parser that reports an error in one line."""

    def error(self, message: str) -> NoReturn:
        """Print the usage and the message in one line and exit with status 2."""
        self.exit(2, f"usage: factor_pairs.py [N] [--bits K]: {' '.join(message.split())}\n")


def integer(text: str) -> int:
    """Read an integer argument of a few digits; the message of a bad one stays short."""
    if text.isascii() and text.isdigit() and len(text) <= LONGEST_SHOWN:
        return int(text)
    shown = text if len(text) <= LONGEST_SHOWN else text[:LONGEST_SHOWN] + "..."
    raise argparse.ArgumentTypeError(f"not a number from 0 up: {shown!r}")


def parse_arguments(argv: Sequence[str]) -> tuple[int, int]:
    """The product to look for and the width of its factors; exits on bad arguments."""
    parser = OneLineParser(prog="factor_pairs.py", description=__doc__, allow_abbrev=False)
    parser.formatter_class = argparse.RawDescriptionHelpFormatter
    parser.add_argument("number", nargs="?", type=integer, default=DEFAULT_NUMBER, metavar="N")
    parser.add_argument("--bits", type=integer, default=DEFAULT_BITS, metavar="K")
    arguments = parser.parse_args(argv)
    number: int = arguments.number
    bits: int = arguments.bits
    if not 1 <= bits <= MAX_BITS:
        parser.error(f"K must be from 1 to {MAX_BITS}")
    if number >= 1 << 2 * bits:
        parser.error(f"N must be below 2**{2 * bits}, as products of {bits} bits are")
    return number, bits


def shown_pairs(pairs: Pairs) -> str:
    """The pairs in order, the first few of many."""
    listed = [f"{p} x {q}" for p, q in sorted(pairs)]
    dots = ["..."] if len(listed) > SHOWN_PAIRS else []
    return ", ".join([*listed[:SHOWN_PAIRS], *dots])


def report(outcome: Outcome, number: int, layout: Layout) -> None:
    """Print the figures of a run whose answers are right."""
    print(f"multiplied    {outcome.terms} pairs of {layout.bits}-bit numbers at once")
    print("checked       every product is Python's own")
    print(f"with product  {number}: {len(outcome.pairs)} pairs, as division finds them")
    if outcome.measured is not None:
        print(f"pairs         {shown_pairs(outcome.pairs)}")
        print(f"measured      {outcome.measured[0]} x {outcome.measured[1]}")
    print(f"qubits        {layout.num_qubits}")
    print(f"records       {outcome.records}")
    print(f"seconds       {outcome.seconds:.2f}")


def main(argv: Sequence[str]) -> int:
    """Run the example; returns the exit status."""
    number, bits = parse_arguments(argv)
    layout = Layout(bits)
    try:
        outcome = run_search(layout, number)
        check_pairs(outcome, number, layout)
    except ExampleError as error:
        print(f"factor_pairs.py: {error}", file=sys.stderr)
        return 1
    report(outcome, number, layout)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
