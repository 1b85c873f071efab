"""Keep a bit in a surface code on the Clifford simulator, and find the error that hit it.

    python examples/surface_code.py [--distance D] [--rounds R] [--error PAULI QUBIT ROUND]

A patch of D * D data qubits (default 9 * 9) holds one logical bit. In each of R rounds (default
50) every check, a product of X or of Z on two or four neighbours, is measured through a qubit
of its own, 161 qubits in all by default, and all outcomes are left in read flags. Between two
rounds one data qubit is hit by a Pauli error, at random or as asked. The rounds' outcomes alone
must tell when it happened, which one it was and where, and the bit, read from the data qubits
at the end and corrected by that, must be the one that was stored. The exit status is 1 when
anything is not so and 2 when the arguments make no sense.
"""

import argparse
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
LONGEST_SHOWN = 60  # characters of a bad argument
ERRORS: Final = {"X": x, "Y": y, "Z": z}

Syndrome: TypeAlias = frozenset[int]
"""Numbers of the checks that are 1, or that have changed."""


class ExampleError(Exception):
    """The simulator's answer is not the one known."""


class Check(NamedTuple):
    """A product of the same letter on some data qubits."""

    letter: str
    data: tuple[int, ...]


class PauliError(NamedTuple):
    """A Pauli matrix that hits one data qubit."""

    letter: str
    qubit: int


class Hit(NamedTuple):
    """An error and the round before which it happens, counted from 1."""

    error: PauliError
    round: int


@dataclass(frozen=True)
class Code:
    """The rotated surface code: data qubits row by row, then a qubit for each check.

    Attributes:
        distance: Width d of the patch, 3 or more; the register has 2 d * d - 1 qubits.
    """

    distance: int

    @property
    def data(self) -> range:
        """The data qubits."""
        return range(self.distance**2)

    @property
    def ancillas(self) -> range:
        """The qubits through which the checks are measured, in the order of `checks`."""
        return range(self.distance**2, self.num_qubits)

    @property
    def num_qubits(self) -> int:
        """Qubits of the whole register."""
        return 2 * self.distance**2 - 1

    @cached_property
    def checks(self) -> list[Check]:
        """All checks, as on a chessboard; the rim is X above and below and Z at the sides."""
        corners = range(self.distance + 1)
        found = [self._check(row, column) for row in corners for column in corners]
        return [check for check in found if check is not None]

    @property
    def logical_x(self) -> range:
        """The qubits whose product of X flips the stored bit: the first column."""
        return range(0, self.distance**2, self.distance)

    @property
    def logical_z(self) -> range:
        """The qubits whose product of Z is the stored bit: the first row."""
        return range(self.distance)

    def signature(self, error: PauliError) -> Syndrome:
        """The checks that an error changes: those with another letter on its qubit."""
        return frozenset(
            number
            for number, check in enumerate(self.checks)
            if error.qubit in check.data and error.letter != check.letter
        )

    def explanations(self, changed: Syndrome) -> list[PauliError]:
        """The errors that change these checks; several of them have the same effect."""
        near = sorted({qubit for number in changed for qubit in self.checks[number].data})
        errors = [PauliError(letter, qubit) for letter in ERRORS for qubit in near]
        return [error for error in errors if self.signature(error) == changed]

    def _check(self, row: int, column: int) -> Check | None:
        # The check at a corner of the data qubits' squares, which touches up to four of them.
        letter = "XZ"[(row + column) % 2]
        touched = [
            self.distance * r + c
            for r in (row - 1, row)
            for c in (column - 1, column)
            if 0 <= r < self.distance and 0 <= c < self.distance
        ]
        rim = "X" if row in (0, self.distance) else "Z"
        inside = len(touched) == 4 or (len(touched) == 2 and letter == rim)
        return Check(letter, tuple(touched)) if inside else None


class Outcome(NamedTuple):
    """What a run gave."""

    syndromes: list[Syndrome]  # of each round
    data: list[int]  # the data qubits at the end
    records: int
    seconds: float


class Diagnosis(NamedTuple):
    """What the outcomes tell."""

    round: int  # the first one after the error, counted from 1
    changed: Syndrome
    errors: list[PauliError]  # those that explain it, all with the same effect
    raw_bit: int  # the stored bit as read
    bit: int  # and corrected


def gather(check: Check, ancilla: int) -> list[RecordArray]:
    """The records that leave the outcome of a check in its qubit, which is 0 before."""
    if check.letter == "Z":
        return [x(ancilla, controls=qubit) for qubit in check.data]
    return [h(ancilla), x(check.data, controls=ancilla), h(ancilla)]


def gather_all(code: Code) -> RecordArray:
    """The records that leave the outcome of every check in its qubit."""
    checks = zip(code.checks, code.ancillas, strict=True)
    return program(*[record for check, ancilla in checks for record in gather(check, ancilla)])


def memory_program(code: Code, rounds: int, bit: int, hit: Hit | None) -> RecordArray:
    """The whole experiment: store a bit, all rounds with the error between, read the data."""
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
    """The first flag of a round; the data qubits' flags follow the last one's."""
    return FIRST_FLAG + (number - 1) * len(code.checks)


def run_memory(code: Code, rounds: int, bit: int, hit: Hit | None) -> Outcome:
    """Run the experiment and time its records alone."""
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
    """The places of the bits that are 1."""
    return [place for place in range(word.bit_length()) if word >> place & 1]


def changes(outcome: Outcome, code: Code) -> dict[int, Syndrome]:
    """The checks that changed, by the round that found them so; rounds without any are left out.

    In the first round the checks of X come out at random, and those of Z as 0. The data qubits
    give the latter once more at the end, as a further round.
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
    """Find the error by the outcomes alone; None when no check has ever changed.

    Raises:
        ExampleError: If no single error explains what changed.
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
    """Compare what was found with what was done.

    Raises:
        ExampleError: If the error, its round or the stored bit is another one.
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
    """An argument parser that reports an error in one line."""

    def error(self, message: str) -> NoReturn:
        """Print the usage and the message in one line and exit with status 2."""
        usage = "surface_code.py [--distance D] [--rounds R] [--error PAULI QUBIT ROUND]"
        self.exit(2, f"usage: {usage}: {' '.join(message.split())}\n")


def integer(text: str) -> int:
    """Read an integer argument of a few digits; the message of a bad one stays short."""
    if text.isascii() and text.isdigit() and len(text) <= LONGEST_SHOWN:
        return int(text)
    shown = text if len(text) <= LONGEST_SHOWN else text[:LONGEST_SHOWN] + "..."
    raise argparse.ArgumentTypeError(f"not a number from 0 up: {shown!r}")


def random_hit(code: Code, rounds: int) -> Hit:
    """Any error on any data qubit, before any round but the first."""
    error = PauliError(random.choice(sorted(ERRORS)), random.choice(code.data))
    return Hit(error, random.randint(2, rounds))


def asked_hit(words: Sequence[str], code: Code, rounds: int) -> Hit:
    """The error that the arguments ask for.

    Raises:
        argparse.ArgumentTypeError: If they make no sense.
    """
    letter, qubit, number = words[0].upper(), integer(words[1]), integer(words[2])
    if letter not in ERRORS:
        raise argparse.ArgumentTypeError(f"PAULI must be X, Y or Z, not {words[0]!r}")
    if qubit not in code.data:
        raise argparse.ArgumentTypeError(f"QUBIT must be from 0 to {len(code.data) - 1}")
    if not 2 <= number <= rounds:
        # What the first round finds is where the checks of X begin.
        raise argparse.ArgumentTypeError(f"ROUND must be from 2 to {rounds}")
    return Hit(PauliError(letter, qubit), number)


def parse_arguments(argv: Sequence[str]) -> tuple[Code, int, Hit]:
    """The code, the number of rounds and the error; exits on bad arguments."""
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
        return code, rounds, asked_hit(arguments.error, code, rounds)
    except argparse.ArgumentTypeError as error:
        parser.error(f"argument --error: {error}")


def shown_errors(errors: Sequence[PauliError]) -> str:
    """The errors in words."""
    return " or ".join(f"{error.letter} on qubit {error.qubit}" for error in errors)


def report(found: Diagnosis, outcome: Outcome, code: Code, hit: Hit) -> None:
    """Print the figures of a run whose answers are right."""
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
    """Run the example; returns the exit status."""
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
