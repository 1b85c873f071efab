"""Estimate the phase of a phase gate on the dense simulator.

    python examples/phase_estimation.py [PHASE] [--qubits N]

The gate multiplies the state 1 by exp(2 pi i PHASE), PHASE being a fraction of a full turn
(default 0.3141). Quantum phase estimation writes it into N counting qubits (default 6). The
distribution of the outcomes is compared with the one known in closed form; the exit status
is 1 when the two differ and 2 when the arguments make no sense.
"""

import argparse
import sys
from collections.abc import Sequence
from dataclasses import dataclass
from typing import NamedTuple, NoReturn

import numpy as np
import numpy.typing as npt
from nimbrel import RecordArray, Simulator, h, phase, program, read, reset, swap, x

DEFAULT_PHASE = 0.3141
DEFAULT_QUBITS = 6
MAX_QUBITS = 20
SHOWN = 8  # outcomes in the chart
LEAST_SHOWN = 5e-7  # a lower probability would be printed as 0
BAR_WIDTH = 40  # characters of a bar for probability 1
FIRST_FLAG = 2  # the flags below are constants
TOLERANCE = 1e-9
LONGEST_SHOWN = 60  # characters of a bad argument

Distribution = npt.NDArray[np.float64]


@dataclass(frozen=True)
class Layout:
    """Where everything lies: the counting qubits from 0, the gate's own qubit above them.

    Attributes:
        bits: Number n of counting qubits; outcome m stands for the phase m / 2**n.
    """

    bits: int

    @property
    def counting(self) -> range:
        """The counting qubits, the least significant bit of the outcome first."""
        return range(self.bits)

    @property
    def eigenstate(self) -> int:
        """The qubit that the phase gate acts on; in state 1 it only gathers the phase."""
        return self.bits


class Estimate(NamedTuple):
    """What a run gave."""

    probabilities: Distribution  # of every outcome, shape (2**n,)
    outcome: int  # of one measurement of the counting qubits


def degrees(turns: float) -> float:
    """A fraction of a turn in degrees, whole turns left out."""
    return 360.0 * (turns % 1.0)


def powers_of_the_gate(layout: Layout, turns: float) -> list[RecordArray]:
    """Counting qubit k controls the gate's 2**k-th power, which is one phase gate again."""
    return [
        phase(degrees(turns * 2**qubit), layout.eigenstate, controls=qubit)
        for qubit in layout.counting
    ]


def inverse_fourier(qubits: Sequence[int]) -> list[RecordArray]:
    """The inverse quantum Fourier transform, the least significant qubit first.

    The swaps put the bits into the order in which they can be undone from below; each qubit is
    then rid of what the lower ones add to its phase, and a Hadamard makes a bit of the rest.
    """
    count = len(qubits)
    parts = [swap(qubits[k], qubits[count - 1 - k]) for k in range(count // 2)]
    for high in range(count):
        for low in range(high):
            parts.append(phase(-180.0 / 2 ** (high - low), qubits[high], controls=qubits[low]))
        parts.append(h(qubits[high]))
    return parts


def estimation_program(layout: Layout, turns: float) -> RecordArray:
    """The whole program but for the measurement."""
    return program(
        reset(layout.bits + 1),
        x(layout.eigenstate),
        h(layout.counting),
        *powers_of_the_gate(layout, turns),
        *inverse_fourier(layout.counting),
    )


def run_estimation(layout: Layout, turns: float) -> Estimate:
    """Run the program, look at the distribution, then measure once."""
    with Simulator("StreamQPU") as sim:
        sim.run(estimation_program(layout, turns))
        amplitudes = sim.state().reshape(2, -1)  # the gate's qubit is the highest
        probabilities = np.sum(amplitudes.real**2 + amplitudes.imag**2, axis=0)
        sim.run(read(layout.counting, FIRST_FLAG))
        return Estimate(probabilities, sim.flags(FIRST_FLAG, layout.bits))


def known_distribution(bits: int, turns: float) -> Distribution:
    """The probabilities in closed form, shape (2**bits,).

    With d the distance from outcome m to the phase in turns, 2**bits equal steps of d make a
    geometric sum: (sin(pi 2**bits d) / (2**bits sin(pi d)))**2, and 1 where d is 0.
    """
    size = 2**bits
    distance = turns - np.arange(size) / size
    distance -= np.rint(distance)
    # numpy.sinc is sin(pi x) / (pi x) and takes care of 0.
    known: Distribution = (np.sinc(size * distance) / np.sinc(distance)) ** 2
    return known


def disagreement(estimate: Estimate, bits: int, turns: float) -> str | None:
    """What is wrong with a run; None when it agrees with the known answer."""
    known = known_distribution(bits, turns)
    off = float(np.max(np.abs(estimate.probabilities - known)))
    if not off <= TOLERANCE:
        return f"a probability differs from the known one by {off:.2g}"
    peak = int(np.argmax(estimate.probabilities))
    distance = abs(turns - peak / 2**bits) % 1.0
    if min(distance, 1.0 - distance) > 0.5 / 2**bits + TOLERANCE:
        return f"the likeliest outcome {peak} is not the one nearest to the phase"
    if estimate.probabilities[estimate.outcome] <= TOLERANCE:
        return f"outcome {estimate.outcome} was measured and cannot be"
    return None


def phase_places(bits: int) -> int:
    """Decimal places that tell the outcomes apart."""
    return max(6, bits // 3 + 2)


def chart(probabilities: Distribution) -> list[str]:
    """The likeliest outcomes in falling order, one line and bar each."""
    bits = len(probabilities).bit_length() - 1
    likeliest = np.argsort(-probabilities, kind="stable")[:SHOWN].tolist()
    places = phase_places(bits)
    lines = [f"{'outcome'.ljust(bits)}  {'phase':>{places + 2}}  probability"]
    for outcome in likeliest:
        probability = float(probabilities[outcome])
        if probability < LEAST_SHOWN:
            break
        bar = "#" * round(BAR_WIDTH * probability)
        row = f"{outcome:0{bits}b}".ljust(max(bits, 7)) + f"  {outcome / 2**bits:.{places}f}"
        lines.append(f"{row}  {probability:11.6f}  {bar}".rstrip())
    return lines


class OneLineParser(argparse.ArgumentParser):
    """An argument parser that reports an error in one line."""

    def error(self, message: str) -> NoReturn:
        """Print the usage and the message in one line and exit with status 2."""
        usage = "usage: phase_estimation.py [PHASE] [--qubits N]"
        self.exit(2, f"{usage}: {' '.join(message.split())}\n")


def number(text: str) -> float:
    """Read the phase; the message of a bad one stays short."""
    shown = text if len(text) <= LONGEST_SHOWN else text[:LONGEST_SHOWN] + "..."
    try:
        value = float(text)
    except ValueError:
        raise argparse.ArgumentTypeError(f"not a number: {shown!r}") from None
    if not 0.0 <= value < 1.0:
        raise argparse.ArgumentTypeError(f"the phase must be from 0 to below 1, not {shown}")
    return value


def counting_qubits(text: str) -> int:
    """Read the number of counting qubits."""
    if not (text.isascii() and text.isdigit() and len(text) <= 2 and 1 <= int(text) <= MAX_QUBITS):
        raise argparse.ArgumentTypeError(f"N must be an integer from 1 to {MAX_QUBITS}")
    return int(text)


def parse_arguments(argv: Sequence[str]) -> tuple[float, int]:
    """The phase in turns and the number of counting qubits; exits on bad arguments."""
    parser = OneLineParser(prog="phase_estimation.py", description=__doc__, allow_abbrev=False)
    parser.formatter_class = argparse.RawDescriptionHelpFormatter
    parser.add_argument("phase", nargs="?", type=number, default=DEFAULT_PHASE, metavar="PHASE")
    parser.add_argument("--qubits", type=counting_qubits, default=DEFAULT_QUBITS, metavar="N")
    arguments = parser.parse_args(argv)
    return arguments.phase, arguments.qubits


def report(estimate: Estimate, layout: Layout, turns: float) -> None:
    """Print the chart and the figures of the run."""
    print("\n".join(chart(estimate.probabilities)))
    size, places = 2**layout.bits, phase_places(layout.bits)
    peak = int(np.argmax(estimate.probabilities))
    print(f"phase     {turns:.{places}f}")
    print(f"estimate  {peak / size:.{places}f} +- {0.5 / size:.{places}f}")
    print(f"measured  {estimate.outcome / size:.{places}f}")


def main(argv: Sequence[str]) -> int:
    """Run the example; returns the exit status."""
    turns, bits = parse_arguments(argv)
    layout = Layout(bits)
    estimate = run_estimation(layout, turns)
    wrong = disagreement(estimate, bits, turns)
    if wrong is not None:
        print(f"phase_estimation.py: {wrong}", file=sys.stderr)
        return 1
    report(estimate, layout, turns)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
