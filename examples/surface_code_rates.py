"""Estimate how often a surface code loses its bit: the mode `rates` of surface_code.py.

    python examples/surface_code.py rates [--distances D ...] [--shots N] [--probability P]
                                          [--seed S] [--plot FILE]

For each distance d a patch of d * d data qubits stores the bit 0 for d rounds. Before each round
every data qubit suffers X, Y or Z with probability P/3 each, and every measured check is wrong
with probability P. Each shot is a run of the program with errors of its own. PyMatching gets the
changes of the Z checks from round to round and says whether the bit was flipped. The bit is lost
if that differs from what the data qubits show. The rate of losses falls with the distance if P is
below the threshold of the code, about 0.03.

The interval of a rate is Wilson's, which holds the true rate in 95 % of all cases (Wilson, Journal
of the American Statistical Association 22, 209, 1927).

PyMatching and matplotlib come with `pip install nimbrel[examples]`.
"""

import argparse
import importlib
import math
from collections.abc import Sequence
from pathlib import Path
from typing import Any, Final, NamedTuple, TypeAlias

import numpy as np
import numpy.typing as npt
from nimbrel import RecordArray, Simulator, clear, program, read, reset, x, y, z
from surface_code import MAX_DISTANCE, Code, gather_all, round_flag

PAULI_OPCODES: Final = [int(gate(0)["opcode"][0]) for gate in (x, y, z)]
NEVER: Final = -1  # a classical condition that fails
DEVIATIONS: Final = 1.959964  # of a normal distribution, whose interval has a probability of 95 %
MOST_SHOTS: Final = 10_000_000

Bits: TypeAlias = npt.NDArray[np.uint8]


class Rate(NamedTuple):
    """How many shots have lost the bit."""

    distance: int
    losses: int
    shots: int

    @property
    def value(self) -> float:
        """The share of the shots."""
        return self.losses / self.shots

    def interval(self) -> tuple[float, float]:
        """Wilson's interval of the probability."""
        square = DEVIATIONS**2
        centre = (self.losses + square / 2) / (self.shots + square)
        variance = self.value * (1 - self.value) / self.shots + square / (4 * self.shots**2)
        half = DEVIATIONS * math.sqrt(variance) / (1 + square / self.shots)
        # Rounding must not put a rate of 0 or 1 outside.
        return min(centre - half, self.value), max(centre + half, self.value)


class Memory:
    """A program that stores a bit, with a record for every error that may happen.

    Attributes:
        code: The patch.
        rounds: Number of rounds.
    """

    def __init__(self, code: Code, rounds: int) -> None:
        self.code = code
        self.rounds = rounds
        errors = program(*[x(qubit) for qubit in code.data])
        flips = program(*[x(qubit) for qubit in code.ancillas])
        gathered, cleared = gather_all(code), clear(code.ancillas)
        parts: list[RecordArray] = [reset(code.num_qubits)]
        self._errors, self._flips = [], []
        for number in range(1, rounds + 1):
            self._errors.append(_places(parts, errors))
            self._flips.append(_places([*parts, errors, gathered], flips))
            reads = read(code.ancillas, round_flag(code, number))
            parts.append(program(errors, gathered, flips, reads, cleared))
        self._program = program(*parts, read(code.data, round_flag(code, rounds + 1)))

    def with_errors(self, rng: np.random.Generator, probability: float) -> RecordArray:
        """The program with random errors. The next call changes the same array."""
        records = self._program
        errors, flips = np.concatenate(self._errors), np.concatenate(self._flips)
        records["opcode"][errors] = rng.choice(PAULI_OPCODES, len(errors))
        for places in (errors, flips):
            happens = rng.random(len(places)) < probability
            records["cond_flag"][places] = np.where(happens, 0, NEVER)
        return records

    def flags(self, sim: Simulator) -> Bits:
        """All outcomes of a run: the checks of each round, then the data qubits."""
        count = self.rounds * len(self.code.checks) + len(self.code.data)
        packed = sim.flags(round_flag(self.code, 1), count).to_bytes(-(-count // 8), "little")
        return np.unpackbits(np.frombuffer(packed, np.uint8), count=count, bitorder="little")


def _places(parts: Sequence[RecordArray], new: RecordArray) -> npt.NDArray[np.intp]:
    """The places of new records behind those of `parts`."""
    start = sum(map(len, parts))
    return np.arange(start, start + len(new))


class Decoder:
    """Finds out from the Z checks whether the stored bit was flipped, by PyMatching."""

    def __init__(self, code: Code, rounds: int, probability: float) -> None:
        self._rounds = rounds
        self._z_checks = [n for n, check in enumerate(code.checks) if check.letter == "Z"]
        self._touched = np.array(
            [[qubit in code.checks[n].data for qubit in code.data] for n in self._z_checks],
            dtype=np.uint8,
        )
        self._logical = np.array([[qubit in code.logical_z for qubit in code.data]], dtype=np.uint8)
        pymatching: Any = importlib.import_module("pymatching")
        self._matching = pymatching.Matching.from_check_matrix(
            self._touched,
            weights=_weight(probability * 2 / 3),  # X and Y change Z checks
            timelike_weights=_weight(probability),
            repetitions=rounds + 1,
            faults_matrix=self._logical,
        )

    def losses(self, flags: Bits) -> int:
        """The number of shots that have lost the bit. Takes the flags of one shot a row."""
        num_data = self._touched.shape[1]
        checks = flags[:, :-num_data].reshape(len(flags), self._rounds, -1)[:, :, self._z_checks]
        data = flags[:, -num_data:]
        last = data @ self._touched.T % 2
        seen = np.concatenate([np.zeros_like(checks[:, :1]), checks, last[:, None]], axis=1)
        changes = seen[:, 1:] ^ seen[:, :-1]
        predicted = self._matching.decode_batch(changes.reshape(len(flags), -1))
        return int(np.count_nonzero(predicted != data @ self._logical.T % 2))


def _weight(probability: float) -> float:
    """The weight of an edge in the matching: the logarithm of the odds against its error."""
    return math.log((1 - probability) / probability)


def estimate(distance: int, shots: int, probability: float, rng: np.random.Generator) -> Rate:
    """Run all shots of one distance and decode them."""
    code = Code(distance)
    memory, decoder = Memory(code, distance), Decoder(code, distance, probability)
    outcomes = []
    with Simulator("StreamCliffordQPU") as sim:
        for _ in range(shots):
            sim.run(memory.with_errors(rng, probability))
            outcomes.append(memory.flags(sim))
    return Rate(distance, decoder.losses(np.array(outcomes)), shots)


def draw(rates: Sequence[Rate], probability: float, file: Path) -> None:
    """Draw the rates over the distance, with their intervals."""
    figure = importlib.import_module("matplotlib.figure").Figure(layout="constrained")
    axes = figure.subplots()
    values = [rate.value for rate in rates]
    spans = [rate.interval() for rate in rates]
    below = [value - low for value, (low, _) in zip(values, spans, strict=True)]
    above = [high - value for value, (_, high) in zip(values, spans, strict=True)]
    axes.errorbar([rate.distance for rate in rates], values, [below, above], fmt="o-", capsize=4)
    axes.set_xticks([rate.distance for rate in rates])
    axes.set_xlabel("distance, and number of rounds")
    axes.set_ylabel("probability to lose the bit")
    axes.set_title(f"rotated surface code, error probability {probability:g}")
    figure.savefig(file)


def parse_arguments(argv: Sequence[str]) -> argparse.Namespace:
    """Return the arguments; exits if one is wrong."""
    parser = argparse.ArgumentParser(prog="surface_code.py rates", allow_abbrev=False)
    parser.add_argument("--distances", nargs="+", type=int, default=[3, 5, 7], metavar="D")
    parser.add_argument("--shots", type=int, default=2000, metavar="N")
    parser.add_argument("--probability", type=float, default=0.02, metavar="P")
    parser.add_argument("--seed", type=int, metavar="S", help="repeats the errors")
    parser.add_argument("--plot", type=Path, metavar="FILE", help="draws the rates, as PNG or SVG")
    arguments = parser.parse_args(argv)
    if not all(3 <= distance <= MAX_DISTANCE for distance in arguments.distances):
        parser.error(f"D must be from 3 to {MAX_DISTANCE}")
    if not 1 <= arguments.shots <= MOST_SHOTS:
        parser.error(f"N must be from 1 to {MOST_SHOTS}")
    if not 0 < arguments.probability < 0.5:
        parser.error("P must be above 0 and below 0.5")
    if arguments.seed is not None and arguments.seed < 0:
        parser.error("S must be 0 or more")
    return arguments


def main(argv: Sequence[str]) -> int:
    """Estimate and print the rates, draw them if wanted, and return the exit status.

    Raises:
        ImportError: If PyMatching, or matplotlib for a plot, is not installed.
    """
    arguments = parse_arguments(argv)
    require_packages(["pymatching", "matplotlib"] if arguments.plot else ["pymatching"])
    rng = np.random.default_rng(arguments.seed)
    rates = []
    for distance in arguments.distances:
        rate = estimate(distance, arguments.shots, arguments.probability, rng)
        low, high = rate.interval()
        losses = f"{rate.losses} of {rate.shots} shots"
        print(f"distance {distance}  {rate.value:.3g}, 95 % from {low:.3g} to {high:.3g}, {losses}")
        rates.append(rate)
    if arguments.plot:
        draw(rates, arguments.probability, arguments.plot)
    return 0


def require_packages(names: Sequence[str]) -> None:
    """Import packages before a long run needs them.

    Raises:
        ImportError: If one is not installed.
    """
    for name in names:
        try:
            importlib.import_module(name)
        except ImportError as error:
            raise ImportError(f"{name} is missing: pip install nimbrel[examples]") from error
