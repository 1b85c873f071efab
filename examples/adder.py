"""Add two integers on the bit simulator with a ripple-carry adder.

    python examples/adder.py [A B] [--bits N]

The adder has 1024 bits, or N, or as many as the integers need. Without A and B, the example adds
two random integers of the full width. A negative integer is loaded as its two's complement. The
result is compared with Python's sum. The exit status is 1 if the two differ, and 2 if an argument
is wrong.

Each carry is the majority of three qubits, computed by one temporary AND and uncomputed after its
use, as in C. Gidney, "Halving the cost of quantum addition",
https://doi.org/10.22331/q-2018-06-18-74.
"""

import argparse
import random
import sys
import time
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from typing import NamedTuple, NoReturn

from nimbrel import (
    RecordArray,
    Simulator,
    free,
    lelbow,
    program,
    read,
    relbow,
    reset,
    swap,
    write,
    x,
)

DEFAULT_BITS = 1024
MAX_BITS = 500_000  # enough for the longest command-line argument; less than 1 GB of records
FIRST_FLAG = 2  # the flags below are constants
LONGEST_LINE = 60  # digits of the longest number that is printed whole on a terminal


@dataclass(frozen=True)
class AdderQubits:
    """The qubits of the adder: a, then b with its carry out, then the carries.

    Attributes:
        bits: Width n of the two integers. The register has 3n + 2 qubits.
    """

    bits: int

    @property
    def a(self) -> range:
        """The first integer, n qubits, the lowest bit first."""
        return range(self.bits)

    @property
    def b(self) -> range:
        """The second integer, and later the sum, n + 1 qubits."""
        return range(self.bits, 2 * self.bits + 1)

    @property
    def carries(self) -> range:
        """The carry into each position, and the carry out of the last one, n + 1 qubits."""
        return range(2 * self.bits + 1, self.num_qubits)

    @property
    def num_qubits(self) -> int:
        """Number of qubits of the register."""
        return 3 * self.bits + 2


class Outcome(NamedTuple):
    """The result of a run of the adder."""

    total: int  # the n + 1 bits of the sum, as an unsigned number
    carries_clean: bool
    records: int
    seconds: float


def compute_carry(a: int, b: int, carry: int, carry_out: int) -> list[RecordArray]:
    """Make the records that compute the majority of three qubits into `carry_out`, which is 0.

    After the carry is added to a and b, a AND b tells whether both differ from the carry. Exactly
    then the majority is the opposite of the carry. So adding the carry to this AND gives the
    majority.
    """
    return [
        x([a, b], controls=carry),
        lelbow(carry_out, controls=[a, b]),
        x(carry_out, controls=carry),
    ]


def uncompute_carry(a: int, b: int, carry: int, carry_out: int) -> list[RecordArray]:
    """Make the records that set `carry_out` back to 0 after `compute_carry`."""
    return [x(carry_out, controls=carry), relbow(carry_out, controls=[a, b])]


def finish_sum(a: int, b: int, carry: int) -> list[RecordArray]:
    """Make the records that restore a, and that turn b, which holds b XOR carry, into the sum."""
    return [x(a, controls=carry), x(b, controls=a)]


def ripple_carry(qubits: AdderQubits) -> RecordArray:
    """Make the records that add a to b.

    The carries are computed from the lowest position up. The last carry is swapped to the top of b.
    Then, from the highest position down, each carry is uncomputed and the sum bit of its position
    is computed.
    """
    carries = qubits.carries
    positions = list(zip(qubits.a, qubits.b[:-1], carries[:-1], carries[1:], strict=True))
    upward = [program(*compute_carry(*position)) for position in positions]
    downward = []
    for a, b, carry, carry_out in reversed(positions):
        # The swap has moved the last carry to the top of b, so its qubit is 0 already.
        undo = uncompute_carry(a, b, carry, carry_out) if carry_out != carries[-1] else []
        downward.append(program(*undo, *finish_sum(a, b, carry)))
    return program(*upward, swap(carries[-1], qubits.b[-1]), *downward)


def adder_program(qubits: AdderQubits, a: int, b: int) -> RecordArray:
    """Make the program: load, add, check that the carries are 0, measure the sum."""
    modulus = 1 << qubits.bits
    return program(
        reset(qubits.num_qubits),
        write(qubits.a, a % modulus),
        write(qubits.b, b % modulus),
        ripple_carry(qubits),
        free(qubits.carries, check=True),
        read(qubits.b, FIRST_FLAG),
    )


def run_adder(qubits: AdderQubits, a: int, b: int) -> Outcome:
    """Add two integers on a new simulator, and measure the time of `run`."""
    records = adder_program(qubits, a, b)
    with Simulator("StreamBitQPU") as sim:
        sim.enable_qubit_debugging()
        start = time.perf_counter()
        sim.run(records)
        seconds = time.perf_counter() - start
        total = sim.flags(FIRST_FLAG, len(qubits.b))
        return Outcome(total, not sim.events(), len(records), seconds)


def bits_needed(a: int, b: int) -> int:
    """The width of both integers and, if one is negative, of their signed sum."""
    if a >= 0 and b >= 0:
        return max(a.bit_length(), b.bit_length(), 1)
    # A sign bit and a bit for the sum. With signs, the carry out of the top has no meaning.
    return max((~value if value < 0 else value).bit_length() for value in (a, b)) + 2


def decode_sum(total: int, bits: int, *, signed: bool) -> int:
    """The integer that the sum qubits hold."""
    if not signed:
        return total
    low = total % (1 << bits)
    return low - (1 << bits) if low >> (bits - 1) else low


def shorten(number: int, *, terminal: bool) -> str:
    """The number in decimal. For a terminal, the middle of a long number is replaced by dots."""
    text = str(number)
    if not terminal or len(text) <= LONGEST_LINE:
        return text
    return f"{text[:24]}...{text[-24:]} ({len(text.lstrip('-'))} digits)"


class OneLineParser(argparse.ArgumentParser):
    """An argument parser that reports an error on one line."""

    def error(self, message: str) -> NoReturn:
        """Print the usage and the message on one line and exit with status 2."""
        self.exit(2, f"usage: adder.py [A B] [--bits N]: {' '.join(message.split())}\n")


def integer(text: str) -> int:
    """Read an integer argument. The message about a wrong one is short."""
    try:
        return int(text)
    except ValueError:
        shown = text if len(text) <= LONGEST_LINE else text[:LONGEST_LINE] + "..."
        raise argparse.ArgumentTypeError(f"not an integer: {shown!r}") from None


def parse_arguments(argv: Sequence[str]) -> tuple[int, int, int]:
    """Return the two integers and the width of the adder; exits if an argument is wrong."""
    parser = OneLineParser(prog="adder.py", description=__doc__, allow_abbrev=False)
    parser.formatter_class = argparse.RawDescriptionHelpFormatter
    parser.add_argument("integers", nargs="*", type=integer, metavar="A B")
    parser.add_argument("--bits", type=integer, default=DEFAULT_BITS, metavar="N")
    arguments = parser.parse_intermixed_args(argv)
    bits: int = arguments.bits
    integers: list[int] = arguments.integers
    if not 1 <= bits <= MAX_BITS:
        parser.error(f"N must be from 1 to {MAX_BITS}")
    if len(integers) not in (0, 2):
        parser.error(f"give two integers or none, not {len(integers)}")
    if not integers:
        integers = [random.getrandbits(bits) | 1 << (bits - 1) for _ in range(2)]
    a, b = integers
    return a, b, max(bits, bits_needed(a, b))


def report(numbers: Mapping[str, int], outcome: Outcome, qubits: AdderQubits) -> None:
    """Print the numbers with their names, and the figures of a run whose sum is right."""
    for name, number in numbers.items():
        print(f"{name:<18}  {shorten(number, terminal=sys.stdout.isatty())}")
    print("checked             Python's own sum is the same")
    print(f"qubits              {qubits.num_qubits}")
    print(f"records             {outcome.records}")
    print(f"records per second  {outcome.records / outcome.seconds:.0f}")


def main(argv: Sequence[str]) -> int:
    """Run the example and return the exit status."""
    # By default, Python refuses to convert more than 4300 decimal digits. Python 3.10.0 to 3.10.6
    # have neither this limit nor the function that changes it.
    if hasattr(sys, "set_int_max_str_digits"):
        sys.set_int_max_str_digits(0)
    a, b, bits = parse_arguments(argv)
    qubits = AdderQubits(bits)
    outcome = run_adder(qubits, a, b)
    result = decode_sum(outcome.total, bits, signed=a < 0 or b < 0)
    if result != a + b:
        print("adder.py: the sum differs from Python's own", file=sys.stderr)
        return 1
    if not outcome.carries_clean:
        print("adder.py: a carry was not uncomputed to 0", file=sys.stderr)
        return 1
    report({"first addend": a, "second addend": b, "result": result}, outcome, qubits)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
