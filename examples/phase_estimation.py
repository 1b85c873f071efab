"""Estimate the phase of a phase gate on the dense simulator.

    python examples/phase_estimation.py [PHASE] [--qubits N]

The gate multiplies the state 1 by exp(2 pi i PHASE). PHASE is a fraction of a full turn (default
0.3141). Quantum phase estimation writes it into N counting qubits (default 6). The distribution of
the outcomes is compared with its closed form. The exit status is 1 if the two differ, and 2 if an
argument is wrong.

The algorithm is that of Cleve, Ekert, Macchiavello and Mosca, "Quantum algorithms revisited",
https://doi.org/10.1098/rspa.1998.0164.
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
LEAST_SHOWN = 5e-7  # lower probabilities would be printed as 0
BAR_WIDTH = 40  # characters of a bar for probability 1
FIRST_FLAG = 2  # the flags below are constants
TOLERANCE = 1e-9
LONGEST_SHOWN = 60  # characters of a wrong argument in its message

Distribution = npt.NDArray[np.float64]


@dataclass(frozen=True)
class EstimationQubits:
    """The qubits of the estimation: the counting qubits from 0, and the gate's target above them.

    Attributes:
        bits: Number n of counting qubits. Outcome m means the phase m / 2**n.
    """

    bits: int

    @property
    def counting(self) -> range:
        """The counting qubits, the least significant bit of the outcome first."""
        return range(self.bits)

    @property
    def eigenstate(self) -> int:
        """The target of the phase gate. It stays in the state 1, an eigenstate of the gate."""
        return self.bits


class Estimate(NamedTuple):
    """The result of a run."""

    probabilities: Distribution  # of every outcome, shape (2**n,)
    outcome: int  # of one measurement of the counting qubits


def degrees(turns: float) -> float:
    """Convert turns to degrees, from 0 to below 360."""
    return 360.0 * (turns % 1.0)


def powers_of_the_gate(qubits: EstimationQubits, turns: float) -> list[RecordArray]:
    """Make the controlled powers: counting qubit k controls the gate to the power 2**k.

    A power of a phase gate is one phase gate.
    """
    return [
        phase(degrees(turns * 2**qubit), qubits.eigenstate, controls=qubit)
        for qubit in qubits.counting
    ]


def inverse_fourier(qubits: Sequence[int]) -> list[RecordArray]:
    """Make the inverse quantum Fourier transform.

    The swaps reverse the order of the qubits. Then, from the lowest qubit up, controlled phases
    remove the part of a qubit's phase that comes from the lower bits, and a Hadamard turns the rest
    into a bit. See Nielsen and Chuang, "Quantum Computation and Quantum Information", section 5.1,
    https://doi.org/10.1017/CBO9780511976667.

    Args:
        qubits: The qubits, the least significant first.
    """
    count = len(qubits)
    parts = [swap(qubits[k], qubits[count - 1 - k]) for k in range(count // 2)]
    for high in range(count):
        for low in range(high):
            parts.append(phase(-180.0 / 2 ** (high - low), qubits[high], controls=qubits[low]))
        parts.append(h(qubits[high]))
    return parts


def estimation_program(qubits: EstimationQubits, turns: float) -> RecordArray:
    """Make the program without the measurement."""
    return program(
        reset(qubits.bits + 1),
        x(qubits.eigenstate),
        h(qubits.counting),
        *powers_of_the_gate(qubits, turns),
        *inverse_fourier(qubits.counting),
    )


def run_estimation(qubits: EstimationQubits, turns: float) -> Estimate:
    """Run the program, copy the distribution, then measure once."""
    with Simulator("StreamQPU") as sim:
        sim.run(estimation_program(qubits, turns))
        amplitudes = sim.state().reshape(2, -1)  # row k: the gate's target, the top qubit, is k
        probabilities = np.sum(amplitudes.real**2 + amplitudes.imag**2, axis=0)
        sim.run(read(qubits.counting, FIRST_FLAG))
        return Estimate(probabilities, sim.flags(FIRST_FLAG, qubits.bits))


def known_distribution(bits: int, turns: float) -> Distribution:
    """The closed form of the probabilities, shape (2**bits,).

    Let d be the distance of outcome m from the phase, in turns. The amplitude of m is a geometric
    sum of 2**bits terms, so the probability is (sin(pi 2**bits d) / (2**bits sin(pi d)))**2, and 1
    if d is 0: Nielsen and Chuang, section 5.2.1.
    """
    size = 2**bits
    distance = turns - np.arange(size) / size
    distance -= np.rint(distance)
    # numpy.sinc(x) is sin(pi x) / (pi x), and 1 at 0.
    known: Distribution = (np.sinc(size * distance) / np.sinc(distance)) ** 2
    return known


def disagreement(estimate: Estimate, bits: int, turns: float) -> str | None:
    """Describe what is wrong with a run; None if it agrees with the closed form."""
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
    """Number of decimal places that distinguishes the outcomes."""
    return max(6, bits // 3 + 2)


def chart(probabilities: Distribution) -> list[str]:
    """Make a line with a bar for each of the most probable outcomes, in descending order."""
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
    """An argument parser that reports an error on one line."""

    def error(self, message: str) -> NoReturn:
        """Print the usage and the message on one line and exit with status 2."""
        usage = "usage: phase_estimation.py [PHASE] [--qubits N]"
        self.exit(2, f"{usage}: {' '.join(message.split())}\n")


def number(text: str) -> float:
    """Read the phase. The message about a wrong one is short."""
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
    """Return the phase in turns and the number of counting qubits; exits if one is wrong."""
    parser = OneLineParser(prog="phase_estimation.py", description=__doc__, allow_abbrev=False)
    parser.formatter_class = argparse.RawDescriptionHelpFormatter
    parser.add_argument("phase", nargs="?", type=number, default=DEFAULT_PHASE, metavar="PHASE")
    parser.add_argument("--qubits", type=counting_qubits, default=DEFAULT_QUBITS, metavar="N")
    arguments = parser.parse_args(argv)
    return arguments.phase, arguments.qubits


def report(estimate: Estimate, qubits: EstimationQubits, turns: float) -> None:
    """Print the chart and the figures of a run."""
    print("\n".join(chart(estimate.probabilities)))
    size, places = 2**qubits.bits, phase_places(qubits.bits)
    peak = int(np.argmax(estimate.probabilities))
    print(f"phase     {turns:.{places}f}")
    print(f"estimate  {peak / size:.{places}f} +- {0.5 / size:.{places}f}")
    print(f"measured  {estimate.outcome / size:.{places}f}")


def main(argv: Sequence[str]) -> int:
    """Run the example and return the exit status."""
    turns, bits = parse_arguments(argv)
    qubits = EstimationQubits(bits)
    estimate = run_estimation(qubits, turns)
    wrong = disagreement(estimate, bits, turns)
    if wrong is not None:
        print(f"phase_estimation.py: {wrong}", file=sys.stderr)
        return 1
    report(estimate, qubits, turns)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
