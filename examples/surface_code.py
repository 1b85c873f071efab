"""Store a bit in a surface code on the Clifford simulator, and find the error that hits it.

    python examples/surface_code.py [--distance D] [--rounds R] [--error PAULI QUBIT ROUND]
    python examples/surface_code.py rates [--help]

A patch of D * D data qubits (default 9 * 9) holds one logical bit. A check is a product of X, or
of Z, on two or four neighbouring data qubits. Each check has an ancilla qubit, which makes 161
qubits by default. In each of R rounds (default 50) every check is measured, and its outcome is
stored in a read flag. Between two rounds a Pauli error hits one data qubit: a random error, or the
error of --error. From the outcomes alone, the example finds the round, the Pauli matrix and the
qubit. At the end it measures the data qubits and corrects the logical bit. The exit status is 1 if
the error or the bit is not found, and 2 if an argument is wrong.

The second form is surface_code_rates.py: many runs with random errors, and how often the bit is
lost.

The code is the rotated surface code of Tomita and Svore,
https://doi.org/10.1103/PhysRevA.90.062320.
"""

import argparse
import importlib
import random
import sys
import time
from collections.abc import Sequence
from dataclasses import dataclass
from functools import cached_property
from itertools import pairwise
from typing import Final, NamedTuple, NoReturn, TypeAlias

from nimbrel import RecordArray, Simulator, clear, h, program, read, reset, x, y, z

DEFAULT_DISTANCE = 9
DEFAULT_ROUNDS = 50
MAX_DISTANCE = 25  # 1249 qubits
MAX_ROUNDS = 500
FIRST_FLAG = 2  # the flags below are constants
LONGEST_SHOWN = 60  # characters of a wrong argument in its message
ERRORS: Final = {"X": x, "Y": y, "Z": z}

Syndrome: TypeAlias = frozenset[int]
"""Numbers of the checks whose outcome is 1, or whose outcome has changed."""


class ExampleError(Exception):
    """A result of the simulator differs from the known one."""


class Check(NamedTuple):
    """A product of one Pauli matrix, X or Z, on some data qubits."""

    letter: str
    data: tuple[int, ...]


class PauliError(NamedTuple):
    """A Pauli matrix on one data qubit."""

    letter: str
    qubit: int


class Hit(NamedTuple):
    """An error, and the round before which it happens, counted from 1."""

    error: PauliError
    round: int


@dataclass(frozen=True)
class Code:
    """The rotated surface code: data qubits row by row, then an ancilla qubit for each check.

    Attributes:
        distance: Width d of the patch, 3 or more. The register has 2 d * d - 1 qubits.
    """

    distance: int

    @property
    def data(self) -> range:
        """The data qubits."""
        return range(self.distance**2)

    @property
    def ancillas(self) -> range:
        """The ancilla qubits that measure the checks, in the order of `checks`."""
        return range(self.distance**2, self.num_qubits)

    @property
    def num_qubits(self) -> int:
        """Number of qubits of the register."""
        return 2 * self.distance**2 - 1

    @cached_property
    def checks(self) -> list[Check]:
        """All checks.

        X and Z checks alternate as on a chessboard. The top and bottom edges have X checks, the
        left and right edges have Z checks.
        """
        corners = range(self.distance + 1)
        found = [self._check(row, column) for row in corners for column in corners]
        return [check for check in found if check is not None]

    @property
    def logical_x(self) -> range:
        """The qubits whose product of X flips the logical bit: the first column."""
        return range(0, self.distance**2, self.distance)

    @property
    def logical_z(self) -> range:
        """The qubits whose product of Z is the logical bit: the first row."""
        return range(self.distance)

    def signature(self, error: PauliError) -> Syndrome:
        """The checks that an error changes: those with another Pauli matrix on its qubit."""
        return frozenset(
            number
            for number, check in enumerate(self.checks)
            if error.qubit in check.data and error.letter != check.letter
        )

    def explanations(self, changed: Syndrome) -> list[PauliError]:
        """The errors that change exactly these checks. All of them have the same effect."""
        near = sorted({qubit for number in changed for qubit in self.checks[number].data})
        errors = [PauliError(letter, qubit) for letter in ERRORS for qubit in near]
        return [error for error in errors if self.signature(error) == changed]

    def _check(self, row: int, column: int) -> Check | None:
        # The check at a corner where up to four data qubits, drawn as squares, meet.
        letter = "XZ"[(row + column) % 2]
        touched = [
            self.distance * r + c
            for r in (row - 1, row)
            for c in (column - 1, column)
            if 0 <= r < self.distance and 0 <= c < self.distance
        ]
        edge_letter = "X" if row in (0, self.distance) else "Z"
        exists = len(touched) == 4 or (len(touched) == 2 and letter == edge_letter)
        return Check(letter, tuple(touched)) if exists else None


class Outcome(NamedTuple):
    """The outcomes of a run."""

    syndromes: list[Syndrome]  # of each round
    data: list[int]  # the data qubits at the end
    records: int
    seconds: float


class Diagnosis(NamedTuple):
    """The error and the logical bit that the outcomes give."""

    round: int  # the first round after the error, counted from 1
    changed: Syndrome
    errors: list[PauliError]  # that change these checks, all with the same effect
    raw_bit: int  # the logical bit as measured
    bit: int  # the logical bit after the correction


def gather(check: Check, ancilla: int) -> list[RecordArray]:
    """Make the records that write the outcome of a check into its ancilla, which is 0 before."""
    if check.letter == "Z":
        return [x(ancilla, controls=qubit) for qubit in check.data]
    return [h(ancilla), x(check.data, controls=ancilla), h(ancilla)]


def gather_all(code: Code) -> RecordArray:
    """Make the records that write the outcome of every check into its ancilla."""
    checks = zip(code.checks, code.ancillas, strict=True)
    return program(*[record for check, ancilla in checks for record in gather(check, ancilla)])


def memory_program(code: Code, rounds: int, bit: int, hit: Hit | None) -> RecordArray:
    """Make the program: store a bit, measure all rounds with one error, measure the data."""
    parts = [reset(code.num_qubits)]
    if bit:
        parts.append(x(code.logical_x))
    gathered, cleared = gather_all(code), clear(code.ancillas)
    for number in range(1, rounds + 1):
        if hit is not None and hit.round == number:
            parts.append(ERRORS[hit.error.letter](hit.error.qubit))
        parts += [gathered, read(code.ancillas, round_flag(code, number)), cleared]
    return program(*parts, read(code.data, round_flag(code, rounds + 1)))


def round_flag(code: Code, number: int) -> int:
    """The first flag of a round. The flags of the data qubits follow those of the last round."""
    return FIRST_FLAG + (number - 1) * len(code.checks)


def run_memory(code: Code, rounds: int, bit: int, hit: Hit | None) -> Outcome:
    """Run the program and measure the time of `run`."""
    records = memory_program(code, rounds, bit, hit)
    with Simulator("StreamCliffordQPU") as sim:
        start = time.perf_counter()
        sim.run(records)
        seconds = time.perf_counter() - start
        flags = [
            sim.flags(round_flag(code, number), len(code.checks)) for number in range(1, rounds + 1)
        ]
        data = sim.flags(round_flag(code, rounds + 1), len(code.data))
    syndromes = [frozenset(ones(word)) for word in flags]
    return Outcome(syndromes, [data >> qubit & 1 for qubit in code.data], len(records), seconds)


def ones(word: int) -> list[int]:
    """The positions of the bits that are 1."""
    return [place for place in range(word.bit_length()) if word >> place & 1]


def changes(outcome: Outcome, code: Code) -> dict[int, Syndrome]:
    """The checks whose outcome changed, by the round that shows the change.

    Rounds without a change are omitted. In the first round, X checks have random outcomes and Z
    checks have the outcome 0. The measured data qubits give the Z checks once more, as a round
    after the last one.
    """
    of_z = frozenset(number for number, check in enumerate(code.checks) if check.letter == "Z")
    last = frozenset(
        number for number in of_z if sum(outcome.data[q] for q in code.checks[number].data) % 2
    )
    syndromes = [
        outcome.syndromes[0] - of_z,
        *outcome.syndromes,
        last | outcome.syndromes[-1] - of_z,
    ]
    found = {
        number: before ^ after for number, (before, after) in enumerate(pairwise(syndromes), 1)
    }
    return {number: changed for number, changed in found.items() if changed}


def diagnose(outcome: Outcome, code: Code) -> Diagnosis | None:
    """Find the error from the outcomes. None if no check has changed.

    Raises:
        ExampleError: If no single error changes these checks.
    """
    found = changes(outcome, code)
    raw_bit = sum(outcome.data[qubit] for qubit in code.logical_z) % 2
    if not found:
        return None
    if len(found) > 1:
        raise ExampleError(f"checks have changed in the rounds {', '.join(map(str, found))}")
    [(number, changed)] = found.items()
    errors = code.explanations(changed)
    if not errors:
        raise ExampleError(f"no single error changes the checks {sorted(changed)}")
    flipped = errors[0].letter != "Z" and errors[0].qubit in code.logical_z
    return Diagnosis(number, changed, errors, raw_bit, raw_bit ^ flipped)


def check_diagnosis(diagnosis: Diagnosis | None, hit: Hit, bit: int) -> Diagnosis:
    """Compare the diagnosis with the error and the bit of the program.

    Raises:
        ExampleError: If the error, its round or the logical bit differs.
    """
    if diagnosis is None:
        raise ExampleError("no check has noticed the error")
    if diagnosis.round != hit.round:
        raise ExampleError(f"the error was noticed in round {diagnosis.round}")
    if hit.error not in diagnosis.errors:
        raise ExampleError(f"the error was taken for {shown_errors(diagnosis.errors)}")
    if diagnosis.bit != bit:
        raise ExampleError("the stored bit has changed")
    return diagnosis


class OneLineParser(argparse.ArgumentParser):
    """An argument parser that reports an error on one line."""

    def error(self, message: str) -> NoReturn:
        """Print the usage and the message on one line and exit with status 2."""
        usage = "surface_code.py [--distance D] [--rounds R] [--error PAULI QUBIT ROUND]"
        self.exit(2, f"usage: {usage}: {' '.join(message.split())}\n")


def integer(text: str) -> int:
    """Read an integer argument of a few digits. The message about a wrong one is short."""
    if text.isascii() and text.isdigit() and len(text) <= LONGEST_SHOWN:
        return int(text)
    shown = text if len(text) <= LONGEST_SHOWN else text[:LONGEST_SHOWN] + "..."
    raise argparse.ArgumentTypeError(f"not a number from 0 up: {shown!r}")


def random_hit(code: Code, rounds: int) -> Hit:
    """Draw an error on a data qubit before one of the rounds from the second on."""
    error = PauliError(random.choice(sorted(ERRORS)), random.choice(code.data))
    return Hit(error, random.randint(2, rounds))


def given_hit(words: Sequence[str], code: Code, rounds: int) -> Hit:
    """Read the error that the arguments give.

    Raises:
        argparse.ArgumentTypeError: If an argument is wrong.
    """
    letter, qubit, number = words[0].upper(), integer(words[1]), integer(words[2])
    if letter not in ERRORS:
        raise argparse.ArgumentTypeError(f"PAULI must be X, Y or Z, not {words[0]!r}")
    if qubit not in code.data:
        raise argparse.ArgumentTypeError(f"QUBIT must be from 0 to {len(code.data) - 1}")
    if not 2 <= number <= rounds:
        # The X checks have random outcomes in round 1, so it cannot show an error before it.
        raise argparse.ArgumentTypeError(f"ROUND must be from 2 to {rounds}")
    return Hit(PauliError(letter, qubit), number)


def parse_arguments(argv: Sequence[str]) -> tuple[Code, int, Hit]:
    """Return the code, the number of rounds and the error; exits if an argument is wrong."""
    parser = OneLineParser(prog="surface_code.py", description=__doc__, allow_abbrev=False)
    parser.formatter_class = argparse.RawDescriptionHelpFormatter
    parser.add_argument("--distance", type=integer, default=DEFAULT_DISTANCE, metavar="D")
    parser.add_argument("--rounds", type=integer, default=DEFAULT_ROUNDS, metavar="R")
    parser.add_argument("--error", nargs=3, metavar=("PAULI", "QUBIT", "ROUND"))
    arguments = parser.parse_args(argv)
    code, rounds = Code(arguments.distance), int(arguments.rounds)
    if not 3 <= code.distance <= MAX_DISTANCE:
        parser.error(f"D must be from 3 to {MAX_DISTANCE}")
    if not 2 <= rounds <= MAX_ROUNDS:
        parser.error(f"R must be from 2 to {MAX_ROUNDS}")
    if arguments.error is None:
        return code, rounds, random_hit(code, rounds)
    try:
        return code, rounds, given_hit(arguments.error, code, rounds)
    except argparse.ArgumentTypeError as error:
        parser.error(f"argument --error: {error}")


def shown_errors(errors: Sequence[PauliError]) -> str:
    """Describe the errors in words."""
    return " or ".join(f"{error.letter} on qubit {error.qubit}" for error in errors)


def report(found: Diagnosis, outcome: Outcome, code: Code, hit: Hit) -> None:
    """Print the figures of a run whose results are right."""
    checks = ", ".join(str(number) for number in sorted(found.changed))
    print(f"code       {code.distance} x {code.distance} data qubits, {len(code.checks)} checks")
    print(f"qubits     {code.num_qubits}")
    print(f"rounds     {len(outcome.syndromes)}")
    print(f"injected   {shown_errors([hit.error])}, before round {hit.round}")
    print(f"detected   in round {found.round}, by the checks {checks}")
    print(f"located    {shown_errors(found.errors)}")
    print(f"bit        {found.bit}, as stored; {found.raw_bit} before the correction")
    print(f"records    {outcome.records}")
    print(f"seconds    {outcome.seconds:.2f}")


def main(argv: Sequence[str]) -> int:
    """Run the example and return the exit status."""
    if argv[:1] == ["rates"]:
        # Only this form needs further packages.
        status: int = importlib.import_module("surface_code_rates").main(argv[1:])
        return status
    code, rounds, hit = parse_arguments(argv)
    bit = random.getrandbits(1)
    try:
        outcome = run_memory(code, rounds, bit, hit)
        found = check_diagnosis(diagnose(outcome, code), hit, bit)
    except ExampleError as error:
        print(f"surface_code.py: {error}", file=sys.stderr)
        return 1
    report(found, outcome, code, hit)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
