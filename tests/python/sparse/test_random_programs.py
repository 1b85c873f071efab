"""Random programs on the sparse filter and on a plain model, compared term by term."""

import random
import re
from collections import Counter
from types import ModuleType

import numpy as np
import pytest

from models import opcodes
from models.opcodes import LABEL, X
from models.sparse import SparseModel
from models.wire import Record, tagged
from programs.dense import angle
from programs.drawn import DrawnRandom, check_programs
from programs.sparse import LIMITS, MAX_TERMS, SparseSource, random_state, random_width
from support.dense import reset_record, vector
from support.sparse_pair import SparsePair, blank, open_sparse_pair

BATCHES = 4
PROGRAMS_EACH = 300
PART = 0xFFFFFFFF  # the bits of a mask that a call uses


def some_term(rng: random.Random, pair: SparsePair) -> int:
    """The index of a stored term, or a random number if there is none."""
    indices = [term.key >> 1 for term in pair.model.terms]
    return rng.choice(indices) if indices else rng.getrandbits(6)


def value_and_mask(rng: random.Random, pair: SparsePair) -> tuple[int, int]:
    """A value and a mask: mostly they match a term, sometimes no term, or the mask is empty."""
    mask = rng.getrandbits(32) & rng.getrandbits(32) & rng.getrandbits(32)
    mask = rng.choice((mask, mask, 1 << rng.randrange(8), 0x3, PART))
    value = some_term(rng, pair) & mask
    odd = rng.random()
    if odd < 0.04:
        return value, 0
    return (value ^ 1 << rng.randrange(32), mask) if odd < 0.15 else (value, mask)


def change(rng: random.Random, source: SparseSource, pair: SparsePair) -> None:
    """Makes a call other than a record that changes the state."""
    kind = rng.choice(("postselect", "postselect", "normalize", "push"))
    if kind == "postselect":
        pair.postselect(*value_and_mask(rng, pair))
    elif kind == "normalize":
        pair.normalize()
    else:
        mask = 1 if rng.random() < 0.1 else 0
        pair.load(random_state(rng, source.num_qubits), mask)


def peek(rng: random.Random, pair: SparsePair) -> None:
    """Compares the result of a call that does not change the state, or the order of the list."""
    kind = rng.choice(("probability", "probability", "slice", "check", "pull", "order"))
    if kind == "probability":
        limit = rng.choice((*LIMITS, rng.random()))
        pair.compare_probability(*value_and_mask(rng, pair), limit)
    elif kind == "slice":
        mask = 1 << rng.randrange(32) | 1 << rng.randrange(32) | rng.getrandbits(3)
        pair.compare_slice(mask, rng.choice((0, 1, 2, 7, 32, 64)))
    elif kind == "pull":
        pair.compare_pull(rng.choice((0, 1, 4, 100, 300)))
    elif kind == "order":
        pair.compare_order()
    else:
        compare_check(rng, pair)


def compare_check(rng: random.Random, pair: SparsePair) -> None:
    """Compares a check: it fails at a term, finds one outside the array, or passes."""
    length = rng.choice((0, 1, 2, 16, 256))
    expected = blank(length)
    expected[:] = 0
    for term in pair.model.terms:
        if term.key >> 1 < length:
            expected[term.key >> 1] = vector([term.amplitude])[0]
    if length and rng.random() < 0.7:
        expected[some_term(rng, pair) % length] += rng.choice((0.5, 1e-9, np.nan))
    pair.compare_check(expected, rng.choice((0.0, 1e-9, 0.5, -1.0)))


def keep_width(source: SparseSource, model: SparseModel) -> None:
    """Reports a reset to the source: some of the resets drawn do not run."""
    if source.num_qubits != model.num_qubits:
        source.resize(model.num_qubits)


def drive(engine: ModuleType, rng: DrawnRandom) -> SparsePair:
    """Runs one program: usually a reset, then records and calls, and a comparison of the order."""
    source = SparseSource(rng, random_width(rng))
    with open_sparse_pair(engine, rng.getrandbits(32)) as pair:
        if rng.random() < 0.97:
            pair.reset(source.num_qubits)
            if rng.random() < 0.3:
                pair.load(random_state(rng, source.num_qubits))
        for _ in rng.steps(24):
            pair.run([source.record()])
            keep_width(source, pair.model)
            if len(pair.model.terms) > MAX_TERMS:
                pair.run([close_jump(pair), source.replacement()])
            if rng.random() < 0.04:
                change(rng, source, pair)
            if rng.random() < 0.15:
                peek(rng, pair)
        pair.run([close_jump(pair)])
        pair.compare_order()
        return pair


def close_jump(pair: SparsePair) -> Record:
    """Ends an open jump."""
    return tagged(LABEL, target_mask=pair.model.open_label)


class Reached:
    """Counts what the programs of a batch reach.

    Simple states and short lists would test little.
    """

    def __init__(self) -> None:
        self.failures: Counter[str] = Counter()
        self.found: Counter[str] = Counter()

    def count(self, pair: SparsePair) -> None:
        terms = pair.model.terms
        keys = [term.key for term in terms]
        self.found["long"] += len(keys) > 16
        self.found["unsorted"] += keys != sorted(keys)
        self.found["repeated"] += len(set(keys)) < len(keys)
        self.found["wide"] += max(keys, default=0) > 1 << 33
        self.found["stored zero"] += any(term.amplitude == (0.0, 0.0) for term in terms)
        self.found["not a number"] += any(part != part for t in terms for part in t.amplitude)
        self.found["flags"] += any(pair.model.flags.get(flag) for flag in range(2, 40))
        self.failures.update(re.sub("0x[0-9a-f]+|-?[0-9]+", "#", text) for text in pair.failures)

    def check(self) -> None:
        assert len(self.failures) == 7, self.failures
        assert min(self.found.values()) >= PROGRAMS_EACH // 100, self.found
        assert self.found["unsorted"] > PROGRAMS_EACH // 4, self.found
        assert self.found["not a number"] < PROGRAMS_EACH // 6, self.found


@pytest.mark.parametrize("batch", range(BATCHES))
def test_random_programs(engine: ModuleType, batch: int) -> None:
    reached = Reached()
    check_programs(lambda rng: reached.count(drive(engine, rng)), PROGRAMS_EACH, batch)
    reached.check()


@pytest.mark.parametrize("number", range(10))
def test_an_exchange_of_two_terms_is_noticed(
    engine: ModuleType, rng: random.Random, number: int
) -> None:
    """Checks the comparison itself: it must fail for a wrong order."""
    source = SparseSource(rng, 8 + 5 * number)
    with open_sparse_pair(engine, number) as pair:
        pair.reset(source.num_qubits)
        while len(pair.model.terms) < 4:
            pair.run([source.record(), close_jump(pair)])
        assert pair.compare_order()
        terms = pair.model.terms
        place = rng.randrange(len(terms) - 1)
        terms[place], terms[place + 1] = terms[place + 1], terms[place]
        with pytest.raises(AssertionError, match="stands before key"):
            pair.compare_order()


def disorder(rng: random.Random, num_qubits: int) -> list[Record]:
    """Controlled flips that scatter the keys, and a gate that sorts partners together."""
    qubits = rng.sample(range(num_qubits), 6)
    bits = [1 << qubit for qubit in qubits]
    low = rng.choice((opcodes.H, opcodes.RY, opcodes.ROOTY, opcodes.RX))
    return [
        tagged(X, target_mask=bits[0] | bits[1], cond_mask=bits[2]),
        tagged(X, target_mask=bits[3], cond_mask=bits[4], cond_neg_mask=bits[4]),
        tagged(low, target_mask=bits[5], angle=angle(rng), cond_mask=bits[0]),
    ]


@pytest.mark.parametrize("num_qubits", [9, 12, 14, 16])
def test_long_lists(engine: ModuleType, rng: random.Random, num_qubits: int) -> None:
    """The sorting algorithm depends on the length of the list. The result must not."""
    half = tagged(opcodes.H, target_mask=(1 << num_qubits - 1) - 1)
    program = [reset_record(num_qubits), half]
    program += [record for _ in range(6) for record in disorder(rng, num_qubits)]
    with open_sparse_pair(engine, 1) as pair:
        pair.model.run(program)
        pair.filter.run_records(program)
        assert pair.filter.num_terms() == len(pair.model.terms)
        pair.compare_pull(1 << num_qubits)
        steps = rng.sample(range(len(pair.model.terms) - 1), 200)
        assert pair.compare_order(steps, num_qubits)
