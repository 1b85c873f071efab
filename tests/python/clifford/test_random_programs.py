"""Random programs on the Clifford filter and on a plain model, compared as printed."""

import random
import re
from collections import Counter
from types import ModuleType

import pytest

from models.clifford import REFUSED
from models.opcodes import LABEL, READ, RESET, T, X
from models.tableau import visible_qubits
from models.wire import Record, tagged
from programs.clifford import WIDTHS, CliffordSource, gate_run, random_width
from programs.drawn import DrawnRandom, check_programs
from support.clifford_pair import CliffordPair, open_clifford_pair

BATCHES = 4
PROGRAMS_EACH = 300
MAX_EXTRA_ROWS = 40  # beyond the width; a tableau only ever grows


def peek_or_project(rng: DrawnRandom, pair: CliffordPair) -> None:
    """Peeks or postselects, usually one qubit; sometimes none, several or one outside."""
    bit = 1 << rng.randrange(min(max(pair.num_qubits, 1), 32))
    mask = rng.choice((*(bit,) * 20, 0, 3, bit | 1, 1 << 31, 1 << rng.randrange(32)))
    value = rng.choice((0, mask, rng.getrandbits(32)))
    if rng.random() < 0.5:
        pair.compare_peek(value, mask)
    else:
        pair.postselect(value, mask)


def close_jump(pair: CliffordPair) -> Record:
    """Ends an open jump."""
    return tagged(LABEL, target_mask=pair.model.open_label)


def follow(source: CliffordSource, pair: CliffordPair) -> None:
    """Resets a tableau with many rows, and tells the source the current width."""
    if pair.num_rows > pair.num_qubits + MAX_EXTRA_ROWS:
        pair.run([close_jump(pair), tagged(RESET, target_mask=random_width(source.rng))])
    source.num_qubits = pair.num_qubits


def drive(rng: DrawnRandom, pair: CliffordPair) -> None:
    """Runs one program: usually a reset, then records and calls with a comparison after each."""
    source = CliffordSource(rng, random_width(rng))
    if rng.random() < 0.97:
        pair.run([tagged(RESET, target_mask=source.num_qubits)])
        if source.num_qubits and rng.random() < 0.5:
            pair.run(gate_run(rng, source.num_qubits, 30))
    for _ in rng.steps(24):
        pair.run([source.record()])
        follow(source, pair)
        if rng.random() < 0.1:
            peek_or_project(rng, pair)
    pair.run([close_jump(pair)])
    pair.compare_hidden()


class Reached:
    """Counts what the programs of a batch reach."""

    def __init__(self) -> None:
        self.failures: Counter[str] = Counter()
        self.found: Counter[str] = Counter()
        self.drawn: list[int] = []

    def count(self, pair: CliffordPair) -> None:
        rows = pair.rows()
        self.found["negative"] += any(row.phase == 2 for row in rows)
        self.found["Y"] += any(row.x & row.z for row in rows)
        self.found["hidden"] += len(visible_qubits(pair.num_qubits)) < pair.num_qubits
        self.found["flags"] += any(pair.model.flags.ones)
        self.drawn += pair.drawn
        self.failures.update(re.sub("0x[0-9a-f]+|-?[0-9]+", "#", text) for text in pair.failures)

    def check(self) -> None:
        assert len(REFUSED) + 15 <= len(self.failures) <= len(REFUSED) + 18, self.failures
        assert min(self.found.values()) >= 20, self.found
        assert len(self.drawn) > 300
        assert 0.35 < sum(self.drawn) / len(self.drawn) < 0.65


@pytest.mark.parametrize("batch", range(BATCHES))
def test_random_programs(engine: ModuleType, batch: int) -> None:
    reached = Reached()

    def compare(rng: DrawnRandom) -> None:
        with open_clifford_pair(engine) as pair:
            drive(rng, pair)
            reached.count(pair)

    check_programs(compare, PROGRAMS_EACH, batch)
    reached.check()


def compare_with_few_looks(engine: ModuleType, rng: DrawnRandom) -> None:
    width = max(random_width(rng), 1)
    source = CliffordSource(rng, width, steady=True)
    with open_clifford_pair(engine, width) as pair:
        for _ in rng.steps(2):
            pair.run([source.record() for _ in rng.steps(30)])
            follow(source, pair)
        pair.compare_hidden()


def test_looks_far_apart(engine: ModuleType) -> None:
    """A measurement between gates of one call must see the effect of all gates before it."""
    check_programs(lambda rng: compare_with_few_looks(engine, rng), 250)


def erase_a_qubit(rng: DrawnRandom, pair: CliffordPair, source: CliffordSource) -> None:
    """Runs random gates, an X whose control is its target, then records and calls."""
    width = pair.num_qubits
    pair.run(gate_run(rng, width, min(2 * width, 50)))
    erased = rng.randrange(width)
    both = {"target_offset": erased, "cond_offset": erased}
    pair.run([tagged(X, target_mask=1, cond_mask=1, **both)])
    for _ in rng.steps(5):
        pair.run([source.record()])
        peek_or_project(rng, pair)


def test_controls_that_are_their_targets(engine: ModuleType) -> None:
    """Such a gate erases a qubit. Generators may then anticommute, and measurements add rows."""
    found: Counter[str] = Counter()

    def compare(rng: DrawnRandom) -> None:
        width = rng.choice((*range(1, 9), *range(1, 9), 64, 65))
        source = CliffordSource(rng, width, steady=True)
        with open_clifford_pair(engine, width) as pair:
            for _ in rng.steps(2):
                erase_a_qubit(rng, pair, source)
            pair.compare_hidden()
            found["more rows than qubits"] += pair.num_rows > width
            found["odd phase"] += any(row.phase % 2 for row in pair.rows())

    check_programs(compare, 300)
    assert min(found.values()) >= 20, found


@pytest.mark.parametrize("width", [*WIDTHS, 4, 5, 8, 13, 21, 34, 47, 100, 192])
def test_long_runs_of_gates(engine: ModuleType, rng: random.Random, width: int) -> None:
    """Many queued gates are applied by another path than a few."""
    with open_clifford_pair(engine, width) as pair:
        for length in (10, 100, 1000):
            assert pair.run(gate_run(rng, width, length)) is None
        pair.run([tagged(READ, target_mask=1, target_offset=width - 1, read_flag=7)])
        pair.compare_hidden()


@pytest.mark.parametrize("width", [320, 449, 600])
def test_long_runs_on_wide_registers(engine: ModuleType, rng: random.Random, width: int) -> None:
    with open_clifford_pair(engine, width) as pair:
        assert pair.run(gate_run(rng, width, 1000)) is None
        pair.compare_hidden()


@pytest.mark.parametrize("width", [1, 3, 12])
def test_more_gates_than_wait_together(engine: ModuleType, rng: random.Random, width: int) -> None:
    with open_clifford_pair(engine, width) as pair:
        assert pair.run(gate_run(rng, width, 40_000)) is None


def test_a_failure_lets_the_gates_before_it_act(engine: ModuleType, rng: random.Random) -> None:
    for width in WIDTHS:
        with open_clifford_pair(engine, width) as pair:
            for length in (1, 40, 400):
                refused = tagged(T, target_mask=1)
                assert pair.run([*gate_run(rng, width, length), refused]) is not None


def test_a_reset_forgets_the_gates_before_it(engine: ModuleType, rng: random.Random) -> None:
    for width in WIDTHS:
        with open_clifford_pair(engine, 70) as pair:
            for length in (1, 40, 400):
                old, new = gate_run(rng, pair.num_qubits, length), gate_run(rng, width, 3)
                pair.run([*old, tagged(RESET, target_mask=width), *new])
