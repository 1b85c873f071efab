"""Multiply all pairs of numbers in superposition on the sparse simulator, and factor N.

    python examples/factor_pairs.py [N] [--bits K]

Two numbers of K bits (default 9) are in a superposition of all 2**(2 K) pairs of values. Adders
multiply them on 6 K qubits, 54 by default. A dense state vector of 54 qubits does not fit into
memory. Every product is compared with Python's product. A projection of the product on N (default
55440) leaves the pairs whose product is N. They are compared with the pairs that Python finds by
division, and one of them is measured. The exit status is 1 if a result differs, and 2 if an
argument is wrong. The adders are those of adder.py.
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
MAX_BITS = 10  # 60 qubits, of 63 that a sparse register may have, and a million pairs
FIRST_FLAG = 2  # the flags below are constants
SHOWN_PAIRS = 6
LONGEST_SHOWN = 60  # characters of a wrong argument in its message

Numbers: TypeAlias = npt.NDArray[np.uint64]
Pairs: TypeAlias = set[tuple[int, int]]


class ExampleError(Exception):
    """A result of the simulator differs from the known one."""


@dataclass(frozen=True)
class MultiplierQubits:
    """The qubits of the multiplier.

    The product has the lowest qubits, because the simulator projects on qubits below 32 only.

    Attributes:
        bits: Width k of the two factors. The register has 6k qubits.
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
        """The first factor if the current bit of the second one is 1, else 0; k qubits."""
        return range(4 * self.bits, 5 * self.bits)

    @property
    def carries(self) -> range:
        """The carry into each position of an adder, k qubits. The lowest one is always 0."""
        return range(5 * self.bits, self.num_qubits)

    @property
    def num_qubits(self) -> int:
        """Number of qubits of the register."""
        return 6 * self.bits


class Outcome(NamedTuple):
    """The result of a run."""

    terms: int  # pairs in the superposition
    pairs: Pairs  # that the projection leaves
    measured: tuple[int, int] | None  # one of `pairs`; None if there are none
    records: int
    seconds: float  # of the multiplication


def add(a: Sequence[int], b: Sequence[int], carries: Sequence[int]) -> list[RecordArray]:
    """Make the records that add a to b. The top qubit of b is 0 before and holds the last carry.

    The carries are computed from the lowest position up. Then, from the highest position down,
    each carry is uncomputed and the sum bit of its position is computed.
    """
    positions = list(zip(a, b[:-1], carries, [*carries[1:], b[-1]], strict=True))
    parts = [record for position in positions for record in compute_carry(*position)]
    for low, high, carry, carry_out in reversed(positions):
        if carry_out != b[-1]:
            parts += uncompute_carry(low, high, carry, carry_out)
        parts += finish_sum(low, high, carry)
    return parts


def multiply(qubits: MultiplierQubits) -> RecordArray:
    """The records that add p times q to a product of 0, one bit of q after the other."""
    parts: list[RecordArray] = []
    for shift, bit in enumerate(qubits.q):
        places = list(zip(qubits.addend, qubits.p, strict=True))
        parts += [lelbow(copy, controls=[qubit, bit]) for copy, qubit in places]
        # Before this sum, the product is below 2**(bits + shift): the top qubit of the slice is 0.
        parts += add(qubits.addend, qubits.product[shift : shift + qubits.bits + 1], qubits.carries)
        parts += [relbow(copy, controls=[qubit, bit]) for copy, qubit in places]
    return program(*parts)


def factor_pairs(number: int, bits: int) -> Pairs:
    """Find the pairs of numbers of `bits` bits whose product is `number`, by division."""
    if number == 0:
        return {pair for k in range(1 << bits) for pair in ((0, k), (k, 0))}
    factors = range(1, 1 << bits)
    return {(p, number // p) for p in factors if number % p == 0 and number // p in factors}


def values(indices: Numbers, qubits: range) -> Numbers:
    """The number that adjacent qubits hold in every term, shape (n,) for n indices."""
    found: Numbers = indices >> np.uint64(qubits[0]) & np.uint64((1 << len(qubits)) - 1)
    return found


def pairs_of(indices: Numbers, qubits: MultiplierQubits) -> Pairs:
    """The pairs of factors in all terms."""
    ps, qs = values(indices, qubits.p), values(indices, qubits.q)
    return set(zip(ps.tolist(), qs.tolist(), strict=True))


def check_products(sim: SparseSimulator, qubits: MultiplierQubits) -> int:
    """Compare all products with Python's products, and return the number of pairs.

    Raises:
        ExampleError: If a product is wrong, an ancilla qubit is not 0, a pair is missing, or the
            pairs are not equally probable.
    """
    indices, amplitudes = sim.terms()
    expected = values(indices, qubits.p) * values(indices, qubits.q)
    if not np.array_equal(values(indices, qubits.product), expected):
        raise ExampleError("a product differs from Python's own")
    if np.any(indices >> np.uint64(qubits.addend[0])):
        raise ExampleError("a helping qubit is not 0 again")
    if len(pairs_of(indices, qubits)) != 4**qubits.bits:
        raise ExampleError("not every pair is there")
    if not np.allclose(amplitudes, 0.5**qubits.bits, rtol=0, atol=1e-12):
        raise ExampleError("a pair has not its share of the probability")
    return len(indices)


def run_search(qubits: MultiplierQubits, number: int) -> Outcome:
    """Multiply all pairs, project the product on `number`, and measure one of the pairs left.

    Raises:
        ExampleError: If a product is wrong.
    """
    records = program(reset(qubits.num_qubits), h([*qubits.p, *qubits.q]), multiply(qubits))
    mask = (1 << len(qubits.product)) - 1
    with Simulator("StreamSparseQPU") as sim:
        start = time.perf_counter()
        sim.run(records)
        seconds = time.perf_counter() - start
        terms = check_products(sim, qubits)
        if sim.peek_probability(number, mask) == 0.0:
            return Outcome(terms, set(), None, len(records), seconds)
        sim.postselect(number, mask)
        pairs = pairs_of(sim.terms()[0], qubits)
        sim.run(read([*qubits.p, *qubits.q], FIRST_FLAG))
        p = sim.flags(FIRST_FLAG, qubits.bits)
        q = sim.flags(FIRST_FLAG + qubits.bits, qubits.bits)
        return Outcome(terms, pairs, (p, q), len(records), seconds)


def check_pairs(outcome: Outcome, number: int, qubits: MultiplierQubits) -> None:
    """Compare the pairs that the projection left with the pairs found by division.

    Raises:
        ExampleError: If they differ, or the measured pair is not among them.
    """
    known = factor_pairs(number, qubits.bits)
    if outcome.pairs != known:
        raise ExampleError("the factor pairs differ from those found by division")
    if known and outcome.measured not in known:
        raise ExampleError(f"{outcome.measured} was measured and cannot be")


class OneLineParser(argparse.ArgumentParser):
    """An argument parser that reports an error on one line."""

    def error(self, message: str) -> NoReturn:
        """Print the usage and the message on one line and exit with status 2."""
        self.exit(2, f"usage: factor_pairs.py [N] [--bits K]: {' '.join(message.split())}\n")


def integer(text: str) -> int:
    """Read an integer argument of a few digits. The message about a wrong one is short."""
    if text.isascii() and text.isdigit() and len(text) <= LONGEST_SHOWN:
        return int(text)
    shown = text if len(text) <= LONGEST_SHOWN else text[:LONGEST_SHOWN] + "..."
    raise argparse.ArgumentTypeError(f"not a number from 0 up: {shown!r}")


def parse_arguments(argv: Sequence[str]) -> tuple[int, int]:
    """Return the product and the width of its factors; exits if an argument is wrong."""
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
    """The pairs in ascending order; only the first ones if there are many."""
    listed = [f"{p} x {q}" for p, q in sorted(pairs)]
    dots = ["..."] if len(listed) > SHOWN_PAIRS else []
    return ", ".join([*listed[:SHOWN_PAIRS], *dots])


def report(outcome: Outcome, number: int, qubits: MultiplierQubits) -> None:
    """Print the figures of a run whose results are right."""
    print(f"multiplied    {outcome.terms} pairs of {qubits.bits}-bit numbers at once")
    print("checked       every product is Python's own")
    print(f"with product  {number}: {len(outcome.pairs)} pairs, as division finds them")
    if outcome.measured is not None:
        print(f"pairs         {shown_pairs(outcome.pairs)}")
        print(f"measured      {outcome.measured[0]} x {outcome.measured[1]}")
    print(f"qubits        {qubits.num_qubits}")
    print(f"records       {outcome.records}")
    print(f"seconds       {outcome.seconds:.2f}")


def main(argv: Sequence[str]) -> int:
    """Run the example and return the exit status."""
    number, bits = parse_arguments(argv)
    qubits = MultiplierQubits(bits)
    try:
        outcome = run_search(qubits, number)
        check_pairs(outcome, number, qubits)
    except ExampleError as error:
        print(f"factor_pairs.py: {error}", file=sys.stderr)
        return 1
    report(outcome, number, qubits)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
