"""The Clifford filter's outcomes and the seed of the process's generator."""

from types import ModuleType

from models.opcodes import READ, H
from support.clifford import CliffordFilter, open_clifford
from support.driver import rec

NUM_QUBITS = 64
ALL = 2**NUM_QUBITS - 1
RUNS = 4  # all different but for one chance in 10^18


def drawn_outcomes(engine: ModuleType, filter_: CliffordFilter) -> int:
    """Seeds, resets and measures every qubit in a state where each outcome is drawn."""
    engine.random_seed(0, 7)
    filter_.reset(NUM_QUBITS)
    filter_.run(rec(H, target_mask=ALL), rec(READ, target_mask=ALL, read_flag=2))
    return filter_.flags(2, 32) | filter_.flags(34, 32) << 32


def test_the_same_seed_does_not_repeat_outcomes_on_one_filter(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        assert len({drawn_outcomes(engine, filter_) for _ in range(RUNS)}) == RUNS


def test_the_same_seed_does_not_repeat_outcomes_on_another_filter(engine: ModuleType) -> None:
    outcomes = set()
    for _ in range(RUNS):
        with open_clifford(engine) as filter_:
            outcomes.add(drawn_outcomes(engine, filter_))
    assert len(outcomes) == RUNS
