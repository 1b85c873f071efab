"""Random programs on the Clifford and the dense filter: all outcomes have the same probability.

The controlled Z is left out, because the Clifford filter's lacks part of its sign. The filters draw
outcomes differently, so both states are projected on one outcome before each measurement.
"""

import random
from collections.abc import Iterator
from contextlib import contextmanager
from types import ModuleType

import pytest

from models import opcodes
from models.clifford import NO_MATCH
from models.wire import Record, tagged
from programs.dense import random_flag, some_of
from programs.drawn import DrawnRandom, check_programs, noting, steps
from support.beside_dense import DenseAnd, classical, draw_kind, top_letter, z_basis
from support.clifford import CliffordFilter, open_clifford
from support.dense import open_dense

CLOSE = 1e-9
PROGRAMS_EACH = 60
TURNS = (opcodes.S, opcodes.S_INV, opcodes.Z, opcodes.PHASE, opcodes.RZ)
GATES = (
    opcodes.H,
    opcodes.H,
    opcodes.Y,
    opcodes.X,
    opcodes.X,
    opcodes.X,
    opcodes.SWAP,
    opcodes.PPR,
    opcodes.PPR,
    *TURNS,
)


class Both(DenseAnd[CliffordFilter]):
    """A dense and a Clifford filter that run the same program."""

    def probability(self, qubit: int, value: int) -> float:
        """The probability of this value of the qubit. Both filters must agree on it."""
        arguments = value << qubit, 1 << qubit, 0.0
        found = self.other.probability(*arguments)
        assert found in (0.0, 0.5, 1.0)
        dense = self.dense.call("peek_read_probability", *arguments)
        assert dense == pytest.approx(found, abs=CLOSE)
        return found

    def settle(self, rng: random.Random, qubit: int) -> int:
        """Projects both states on a probable value of the qubit and returns the value."""
        value = rng.getrandbits(1)
        if self.probability(qubit, value) == 0.0:
            self.other.call_fails(NO_MATCH, "postselect", value << qubit, 1 << qubit)
            value ^= 1
        self.other.postselect(value << qubit, 1 << qubit)
        self.dense.call("postselect", value << qubit, 1 << qubit)
        assert self.probability(qubit, value) == 1.0
        return value

    def compare(self, rng: random.Random) -> None:
        """Compares the probability of each qubit, then of one probable outcome of all qubits."""
        qubits = rng.sample(range(self.num_qubits), self.num_qubits)
        for qubit in qubits:
            self.probability(qubit, rng.getrandbits(1))
        for qubit in qubits:
            self.settle(rng, qubit)
        self.compare_flags()


@contextmanager
def open_both(engine: ModuleType, num_qubits: int) -> Iterator[Both]:
    with open_dense(engine, num_qubits) as dense, open_clifford(engine, num_qubits) as clifford:
        both = Both(dense, clifford, num_qubits)
        with noting(both.history):
            yield both


def gate(rng: random.Random, both: Both) -> None:
    both.run(random_gate(rng, both.num_qubits)._replace(cond_flag=random_flag(rng)))


def random_gates(rng: random.Random, num_qubits: int, count: int) -> list[Record]:
    return [random_gate(rng, num_qubits) for _ in steps(rng, count)]


def random_gate(rng: random.Random, num_qubits: int) -> Record:
    low = rng.choice([low for low in GATES if low != opcodes.SWAP or num_qubits > 1])
    qubits = [1 << qubit for qubit in rng.sample(range(num_qubits), num_qubits)]
    if low == opcodes.PPR:
        return product(rng, num_qubits, low, angle=45.0 * rng.randint(-9, 9))
    angle = rng.choice((90.0, -90.0, 180.0))
    if low == opcodes.X and rng.random() < 0.8:
        count = rng.choice((1, 1, 2))
        return tagged(low, target_mask=sum(qubits[1 : 1 + count]), cond_mask=qubits[0])
    count = 2 if low == opcodes.SWAP else rng.choice((1, 1, 2))
    return tagged(low, target_mask=sum(qubits[:count]), angle=angle)


def product(rng: random.Random, num_qubits: int, low: int, **words: int | float) -> Record:
    xs, zs = (some_of(rng, (1 << num_qubits) - 1) for _ in range(2))
    return tagged(low, target_mask=xs, cond_mask=zs, **words)


def measure(rng: random.Random, both: Both) -> None:
    """Reads, writes or clears a qubit with a certain value, and checks the result."""
    qubit, flag = rng.randrange(both.num_qubits), rng.choice((-1, 1)) * rng.randint(2, 50)
    value = both.settle(rng, qubit)
    low = rng.choice((opcodes.READ, opcodes.READ, opcodes.WRITE, opcodes.CLEAR, opcodes.FREE))
    if low == opcodes.READ:
        both.run(tagged(low, target_mask=1 << qubit, read_flag=flag))
        assert both.other.flag(flag) == value
    else:
        wanted = rng.getrandbits(1) if low == opcodes.WRITE else 0
        both.run(tagged(low, target_mask=1 << qubit, cond_mask=wanted << qubit))
        assert both.probability(qubit, wanted) == 1.0


def measure_product(rng: random.Random, both: Both) -> None:
    """Measures a Pauli product in one of its eigenstates, so that the outcome is certain."""
    flag, sign = rng.choice((-1, 1)) * rng.randint(2, 50), rng.choice((1.0, -1.0))
    record = product(rng, both.num_qubits, opcodes.PPM, angle=sign, read_flag=flag)
    if record.target_mask | record.cond_mask:
        there, back = z_basis(record)
        both.run(*there)
        value = both.settle(rng, top_letter(record).bit_length() - 1)
        both.run(*back, record)
        assert both.other.flag(flag) == value ^ (sign < 0)


KINDS = {gate: 30, measure: 2, measure_product: 2, classical: 2}


def compare_program(engine: ModuleType, rng: DrawnRandom, num_qubits: int) -> None:
    with open_both(engine, num_qubits) as both:
        for _ in rng.steps(50):
            draw_kind(rng, KINDS)(rng, both)
            both.probability(rng.randrange(num_qubits), rng.getrandbits(1))
        both.compare(rng)


@pytest.mark.parametrize("num_qubits", range(1, 9))
def test_random_programs(engine: ModuleType, num_qubits: int) -> None:
    check_programs(lambda rng: compare_program(engine, rng, num_qubits), PROGRAMS_EACH, num_qubits)


def compare_run(engine: ModuleType, rng: DrawnRandom, num_qubits: int) -> None:
    with open_both(engine, num_qubits) as both:
        both.run(*random_gates(rng, num_qubits, 80))
        both.compare(rng)


@pytest.mark.parametrize("num_qubits", range(1, 9))
def test_runs_of_gates(engine: ModuleType, num_qubits: int) -> None:
    """Many gates in one call, with no comparison between them."""
    check_programs(lambda rng: compare_run(engine, rng, num_qubits), PROGRAMS_EACH, num_qubits)


def test_the_programs_reach_every_probability(engine: ModuleType) -> None:
    """If most outcomes were certain, the comparisons would test little."""
    found = {0.0: 0, 0.5: 0, 1.0: 0}

    def count(rng: DrawnRandom) -> None:
        with open_both(engine, 6) as both:
            both.run(*random_gates(rng, 6, 40))
            for qubit in range(6):
                found[both.probability(qubit, 1)] += 1
                both.settle(rng, qubit)

    check_programs(count, 100)
    assert min(found.values()) > 40
