"""Programs around the gates after which the rows of a tableau are no longer a basis.

The engine holds a tableau qubit by qubit until a gate erases a qubit, and row by row from there.
"""

from collections import Counter
from types import ModuleType

import pytest

from models.opcodes import CLEAR, EXTEND, READ, SWAP, H, S, X, Z
from models.wire import Record, tagged
from programs.drawn import DrawnRandom, check_programs
from support.clifford_pair import CliffordPair, open_clifford_pair

BATCHES = 4
PROGRAMS_EACH = 500
WIDTHS = (*range(1, 8), *range(1, 8), 63, 64, 65)
FIRST_FLAG = 2


def at(qubit: int) -> dict[str, int]:
    return {"target_mask": 1, "target_offset": qubit}


def under(qubit: int) -> dict[str, int]:
    return {"cond_mask": 1, "cond_offset": qubit}


def one_qubit_gate(rng: DrawnRandom, width: int) -> list[Record]:
    return [tagged(rng.choice((H, H, S, X, Z)), **at(rng.randrange(width)))]


def controlled_x(rng: DrawnRandom, width: int) -> list[Record]:
    """A CNOT on different qubits, if there are two."""
    qubit = rng.randrange(width)
    other = (qubit + 1 + rng.randrange(max(width - 1, 1))) % width
    return [tagged(X, **at(qubit), **under(other))] if other != qubit else []


def controlled_z(rng: DrawnRandom, width: int) -> list[Record]:
    """A controlled Z, which changes no sign; sometimes on one qubit, where it does nothing."""
    return [tagged(Z, **at(rng.randrange(width)), **under(rng.randrange(width)))]


def measurement(rng: DrawnRandom, width: int) -> list[Record]:
    qubit = rng.randrange(width)
    return [tagged(rng.choice((READ, READ, CLEAR)), **at(qubit), read_flag=FIRST_FLAG)]


def erasure(rng: DrawnRandom, width: int) -> list[Record]:
    """An X whose control is its target, or a swap of a qubit with itself."""
    qubit = rng.randrange(width)
    if rng.random() < 0.3:
        return [tagged(EXTEND, **at(qubit)), tagged(SWAP, **at(qubit))]
    return [tagged(X, **at(qubit), **under(qubit))]


STEPS = {one_qubit_gate: 8, controlled_x: 5, controlled_z: 4, measurement: 5}


def run_steps(rng: DrawnRandom, pair: CliffordPair, average: int) -> None:
    """Runs records, and compares the printed tableau after each call and peeks at a qubit."""
    for _ in rng.steps(average):
        step = rng.choices(list(STEPS), weights=list(STEPS.values()))[0]
        pair.run(step(rng, pair.num_qubits))
        bit = 1 << rng.randrange(min(pair.num_qubits, 32))
        pair.compare_peek(rng.choice((0, bit)), bit)


@pytest.mark.parametrize("batch", range(BATCHES))
def test_programs_that_erase_qubits(engine: ModuleType, batch: int) -> None:
    found: Counter[str] = Counter()

    def compare(rng: DrawnRandom) -> None:
        width = rng.choice(WIDTHS)
        with open_clifford_pair(engine, width) as pair:
            run_steps(rng, pair, 14)
            for _ in rng.steps(4):
                pair.run(erasure(rng, width))
                run_steps(rng, pair, 10)
                found["erased"] += 1
            pair.compare_hidden()
            found["more rows than qubits"] += pair.num_rows > width
            found["odd phase"] += any(row.phase % 2 for row in pair.rows())
            found["minus"] += any(row.phase == 2 for row in pair.rows())

    check_programs(compare, PROGRAMS_EACH, batch)
    assert min(found.values()) >= 10, found


def test_controlled_z_and_measurements_without_looks(engine: ModuleType) -> None:
    """Outcomes depend on the signs that the gate leaves alone, also many records later."""
    found: Counter[str] = Counter()

    def compare(rng: DrawnRandom) -> None:
        width = rng.choice((*WIDTHS, 100, 130, 200))
        with open_clifford_pair(engine, width) as pair:
            records: list[Record] = []
            for _ in rng.steps(40):
                step = rng.choices(list(STEPS), weights=list(STEPS.values()))[0]
                records += step(rng, width)
            pair.run(records)
            pair.compare_hidden()
            found["drawn"] += bool(pair.drawn)
            found["minus"] += any(row.phase == 2 for row in pair.rows())

    check_programs(compare, 300)
    assert min(found.values()) >= 20, found
