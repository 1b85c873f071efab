"""The same random programs on the sparse and the dense filter, which hold the same states.

Each filter draws a measurement in its own way, so what is measured is made certain beforehand: both
states are projected on one outcome. Left out are records that the two take for different things,
and targets among their own conditions.
"""

import random
from collections.abc import Iterator
from contextlib import contextmanager
from types import ModuleType

import numpy as np
import pytest

from models import opcodes
from models.wire import TAG, WORD, Record, tagged
from programs.dense import GATES, random_flag, some_of, tidy_gate
from programs.drawn import DrawnRandom, check_programs, noting
from support.beside_dense import DenseAnd, classical, draw_kind, top_letter, z_basis
from support.dense import open_dense, random_state
from support.sparse import SparseFilter, open_sparse

CLOSE = 1e-12
PROGRAMS_EACH = 30


class Both(DenseAnd[SparseFilter]):
    """A dense and a sparse filter, compared after all that they are given."""

    def run(self, *records: Record) -> None:
        super().run(*records)
        self.compare()

    def call(self, name: str, *arguments: object) -> None:
        self.dense.call(name, *arguments)
        self.other.call(name, *arguments)
        self.compare()

    def compare(self) -> None:
        __tracebackhide__ = True
        states = self.other.state(self.num_qubits), self.dense.state(self.num_qubits)
        np.testing.assert_allclose(*states, rtol=0, atol=CLOSE)
        self.compare_flags()

    def compare_read_outs(self, rng: random.Random) -> None:
        mask = rng.randrange(1, 1 << self.num_qubits)
        value = self.likely_index(rng) & mask
        probability = self.dense.call("peek_read_probability", value, mask, 0.0)
        assert self.other.probability(value, mask) == pytest.approx(probability, abs=CLOSE)
        state = self.dense.state(self.num_qubits)
        assert self.other.check(state, CLOSE) == self.dense.call("check_state", state, CLOSE, 0)
        state[self.likely_index(rng)] += 1e-3
        assert self.other.check(state, CLOSE) == self.dense.call("check_state", state, CLOSE, 0)

    def likely_index(self, rng: random.Random) -> int:
        """An index drawn by its probability."""
        state = self.dense.state(self.num_qubits)
        weights = (abs(state) ** 2).tolist()
        return rng.choices(range(len(weights)), weights=weights)[0]


@contextmanager
def open_both(engine: ModuleType, num_qubits: int) -> Iterator[Both]:
    with open_dense(engine, num_qubits) as dense, open_sparse(engine, num_qubits) as sparse:
        both = Both(dense, sparse, num_qubits)
        with noting(both.history):
            yield both


def gate(rng: random.Random, both: Both) -> None:
    gates = [low for low in GATES if low != opcodes.SWAP or both.num_qubits > 1]
    record = tidy_gate(rng, rng.choice(gates), both.num_qubits)
    if record.opcode == TAG << 32 | opcodes.PPR and top_letter(record) & record.read_flag:
        # The sparse filter turns that qubit, which here would be a target among its conditions.
        record = record._replace(cond_mask=record.cond_mask & ~record.read_flag)
    both.run(record._replace(cond_flag=random_flag(rng)))


def settle(rng: random.Random, both: Both) -> int:
    """Projects some qubits on a value that they may well have; answers which."""
    mask = some_of(rng, (1 << both.num_qubits) - 1)
    if mask:
        both.call("postselect", both.likely_index(rng) & mask, mask)
    return mask


def measure(rng: random.Random, both: Both) -> None:
    """A record that measures, on qubits whose values are certain."""
    mask, flag = settle(rng, both), rng.randint(2, 50) * rng.choice((-1, 1))
    words = {"target_mask": mask, "cond_mask": some_of(rng, (1 << both.num_qubits) - 1)}
    low = rng.choice((opcodes.READ, opcodes.READ, opcodes.WRITE, opcodes.CLEAR, opcodes.FREE))
    if low == opcodes.FREE:
        both.run(tagged(low, **words))  # here the two ask different words for their condition
    elif low == opcodes.WRITE:
        # The first of these words names the flags to the one, the second to the other.
        flags = {"read_flag": flag, "target_offset": flag & WORD}
        both.run(tagged(low, **words, **flags, cond_flag=random_flag(rng)))
    else:
        both.run(tagged(low, **words, read_flag=flag, cond_flag=random_flag(rng)))


def measure_product(rng: random.Random, both: Both) -> None:
    """A Pauli measurement on an eigenstate, so that its outcome is certain."""
    xs, zs = (some_of(rng, (1 << both.num_qubits) - 1) for _ in range(2))
    if not xs | zs:
        return
    sign, flag = rng.choice((1.0, -1.0)), rng.randint(2, 50)
    record = tagged(opcodes.PPM, target_mask=xs, cond_mask=zs, angle=sign, read_flag=flag)
    pivot, (there, back) = top_letter(record), z_basis(record)
    both.run(*there)
    both.call("postselect", both.likely_index(rng) & pivot, pivot)
    both.run(*back)
    both.run(record._replace(cond_flag=random_flag(rng)))


KINDS = {gate: 30, measure: 4, measure_product: 3, classical: 2}


def compare_program(engine: ModuleType, rng: DrawnRandom, num_qubits: int) -> None:
    with open_both(engine, num_qubits) as both:
        for _ in rng.steps(50):
            draw_kind(rng, KINDS)(rng, both)
        both.compare_read_outs(rng)


@pytest.mark.parametrize("num_qubits", range(1, 9))
def test_random_programs(engine: ModuleType, num_qubits: int) -> None:
    check_programs(lambda rng: compare_program(engine, rng, num_qubits), PROGRAMS_EACH, num_qubits)


@pytest.mark.parametrize("num_qubits", range(1, 9))
def test_gates_on_a_state_without_zeros(
    engine: ModuleType, rng: random.Random, num_qubits: int
) -> None:
    with open_both(engine, num_qubits) as both:
        both.call("push_state", random_state(rng, num_qubits), 0)
        for _ in range(60):
            gate(rng, both)
        both.compare_read_outs(rng)


@pytest.mark.parametrize("num_qubits", range(1, 9))
def test_normalize_answers_the_same(
    engine: ModuleType, rng: random.Random, num_qubits: int
) -> None:
    with open_both(engine, num_qubits) as both:
        both.call("push_state", 0.25 * random_state(rng, num_qubits), 0)
        total = both.dense.call("normalize")
        assert both.other.call("normalize") == pytest.approx(total, abs=CLOSE)
        assert total == pytest.approx(0.0625, abs=CLOSE)
        both.compare()
