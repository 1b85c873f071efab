"""Add two integers on the bit simulator with a ripple-carry adder.

    python examples/adder.py [A B] [--bits N]

The adder has 1024 bits, or N, or as many as the integers need. Without integers it picks
two random ones of the full width. A negative integer is loaded as its two's complement.
The sum is compared with Python's own; the exit status is 1 when the two differ and 2 when
the arguments make no sense.
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
MAX_BITS = 500_000  # more than the longest argument of a command line needs; under 1 GB of records
FIRST_FLAG = 2  # the flags below are constants
LONGEST_LINE = 60  # digits of a number that a terminal shows whole


@dataclass(frozen=True)
class Layout:
    """Where the adder's numbers lie: a, then b and its carry out, then the carries.

    Attributes:
        bits: Width n of the two integers; the register has 3n + 2 qubits.
    """

    bits: int

    @property
    def a(self) -> range:
        """The first integer, n qubits."""
        return range(self.bits)

    @property
    def b(self) -> range:
        """The second integer and later the sum, n + 1 qubits."""
        return range(self.bits, 2 * self.bits + 1)

    @property
    def carries(self) -> range:
        """The carry into each position and out of the last one, n + 1 qubits."""
        return range(2 * self.bits + 1, self.num_qubits)

    @property
    def num_qubits(self) -> int:
        """Qubits of the whole register."""
        return 3 * self.bits + 2


class Outcome(NamedTuple):
    """What a run of the adder gave."""

    total: int  # the n + 1 bits of the sum, as an unsigned number
    carries_clean: bool
    records: int
    seconds: float


def compute_carry(a: int, b: int, carry: int, carry_out: int) -> list[RecordArray]:
    """The records that make `carry_out` the majority of three qubits.

    With the carry added into both, a AND b says whether both differ from the carry. Only
    then is the majority the opposite of the carry, so adding the carry gives it.
    """
    return [
        x([a, b], controls=carry),
        lelbow(carry_out, controls=[a, b]),
        x(carry_out, controls=carry),
    ]


def uncompute_carry(a: int, b: int, carry: int, carry_out: int) -> list[RecordArray]:
    """The records that undo `compute_carry` for the carry out, which is 0 again."""
    return [x(carry_out, controls=carry), relbow(carry_out, controls=[a, b])]


def finish_sum(a: int, b: int, carry: int) -> list[RecordArray]:
    """The records that restore a and turn b, which holds b XOR carry, into the sum bit."""
    return [x(a, controls=carry), x(b, controls=a)]


def ripple_carry(layout: Layout) -> RecordArray:
    """The records that add register a to register b.

    The carries are computed upward, the last one is swapped to the top of b, and on the
    way back down each carry is uncomputed before its position's sum is made.
    """
    carries = layout.carries
    positions = list(zip(layout.a, layout.b[:-1], carries[:-1], carries[1:], strict=True))
    upward = [program(*compute_carry(*position)) for position in positions]
    downward = []
    for a, b, carry, carry_out in reversed(positions):
        # The last carry has left for the top of b and is 0 already.
        undo = uncompute_carry(a, b, carry, carry_out) if carry_out != carries[-1] else []
        downward.append(program(*undo, *finish_sum(a, b, carry)))
    return program(*upward, swap(carries[-1], layout.b[-1]), *downward)


def adder_program(layout: Layout, a: int, b: int) -> RecordArray:
    """The whole program: load, add, check that the carries are 0, read the sum."""
    modulus = 1 << layout.bits
    return program(
        reset(layout.num_qubits),
        write(layout.a, a % modulus),
        write(layout.b, b % modulus),
        ripple_carry(layout),
        free(layout.carries, check=True),
        read(layout.b, FIRST_FLAG),
    )


def run_adder(layout: Layout, a: int, b: int) -> Outcome:
    """Add two integers on a new simulator and time the run of the records alone."""
    records = adder_program(layout, a, b)
    with Simulator("StreamBitQPU") as sim:
        sim.enable_qubit_debugging()
        start = time.perf_counter()
        sim.run(records)
        seconds = time.perf_counter() - start
        total = sim.flags(FIRST_FLAG, len(layout.b))
        return Outcome(total, not sim.events(), len(records), seconds)


def bits_needed(a: int, b: int) -> int:
    """The width that holds both integers, and with a negative one their signed sum too."""
    if a >= 0 and b >= 0:
        return max(a.bit_length(), b.bit_length(), 1)
    # A sign bit, and one for the sum: with signs the carry out of the top means nothing.
    return max((~value if value < 0 else value).bit_length() for value in (a, b)) + 2


def decode_sum(total: int, bits: int, *, signed: bool) -> int:
    """The integer that the sum register holds."""
    if not signed:
        return total
    low = total % (1 << bits)
    return low - (1 << bits) if low >> (bits - 1) else low


def shorten(number: int, *, terminal: bool) -> str:
    """The number in decimal; a long one is cut in the middle for a terminal."""
    text = str(number)
    if not terminal or len(text) <= LONGEST_LINE:
        return text
    return f"{text[:24]}...{text[-24:]} ({len(text.lstrip('-'))} digits)"


class OneLineParser(argparse.ArgumentParser):
    """An argument parser that reports an error in one line."""

    def error(self, message: str) -> NoReturn:
        """Print the usage and the message in one line and exit with status 2."""
        self.exit(2, f"usage: adder.py [A B] [--bits N]: {' '.join(message.split())}\n")


def integer(text: str) -> int:
    """Read an integer argument; the message of a bad one stays short."""
    try:
        return int(text)
    except ValueError:
        shown = text if len(text) <= LONGEST_LINE else text[:LONGEST_LINE] + "..."
        raise argparse.ArgumentTypeError(f"not an integer: {shown!r}") from None


def parse_arguments(argv: Sequence[str]) -> tuple[int, int, int]:
    """The two integers and the width of the adder; exits on bad arguments."""
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


def report(numbers: Mapping[str, int], outcome: Outcome, layout: Layout) -> None:
    """Print the numbers by their names and the figures of a run whose sum is right."""
    for name, number in numbers.items():
        print(f"{name:<18}  {shorten(number, terminal=sys.stdout.isatty())}")
    print("checked             Python's own sum is the same")
    print(f"qubits              {layout.num_qubits}")
    print(f"records             {outcome.records}")
    print(f"records per second  {outcome.records / outcome.seconds:.0f}")


def main(argv: Sequence[str]) -> int:
    """Run the example; returns the exit status."""
    # Python refuses to convert more than 4300 decimal digits unless it is told otherwise. Python
    # 3.10.0 to 3.10.6 have neither the limit nor the switch.
    if hasattr(sys, "set_int_max_str_digits"):
        sys.set_int_max_str_digits(0)
    a, b, bits = parse_arguments(argv)
    layout = Layout(bits)
    outcome = run_adder(layout, a, b)
    result = decode_sum(outcome.total, bits, signed=a < 0 or b < 0)
    if result != a + b:
        print("adder.py: the sum differs from Python's own", file=sys.stderr)
        return 1
    if not outcome.carries_clean:
        print("adder.py: a carry was not uncomputed to 0", file=sys.stderr)
        return 1
    report({"first addend": a, "second addend": b, "result": result}, outcome, layout)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
