"""Free: clears the qubits, or with the check on queues an event if they are not 0."""

import random
from types import ModuleType

import numpy as np
import pytest

from models.arithmetic import Generator
from models.dense import NOT_ALLOCATED, DenseModel
from models.opcodes import (
    CLOSE_EVENT,
    CLOSE_EVENT_2,
    FREE,
    OPEN_EVENT,
    OPEN_EVENT_2,
    RESET,
    WRITE,
    H,
    X,
)
from models.wire import tagged
from support.dense import (
    DenseFilter,
    Setting,
    amplitudes,
    assert_same_bits,
    basis,
    open_dense,
    random_state,
    reset_record,
    settings,
)
from support.driver import rec

QUBITS = 4
CHECK = 0x10


@pytest.fixture(params=settings([1, 3, 4]), ids=str)
def setting(request: pytest.FixtureRequest) -> Setting:
    chosen: Setting = request.param
    return chosen


def checked_register(filter_: DenseFilter) -> DenseFilter:
    filter_.call("enable_qubit_debugging", 1)
    return filter_


def failed(mask: int, code: int = 0, ids: tuple[int, ...] = ()) -> tuple[str, str, int, list[int]]:
    text = f"Error: assert check failed: mask:{mask:x} expected value:0"
    return "free_nonzero_qubits", text, code, list(ids)


@pytest.mark.parametrize(("debugging", "checks"), [(0, CHECK), (1, 0), (1, 0xF), (0, 0)])
def test_an_unchecked_free_clears(
    engine: ModuleType, setting: Setting, debugging: int, checks: int
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.call("enable_qubit_debugging", debugging)
        filter_.run(rec(X, target_mask=0b0111))
        filter_.run(rec(FREE, target_mask=0b0011, cond_mask=checks, read_flag=2))
        assert filter_.events() == []
        assert filter_.flags(2, 20) == 0
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 0b0100))


def test_an_unknown_qubit_is_asserted_and_left_alone(
    engine: ModuleType, rng: random.Random, setting: Setting
) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        checked_register(filter_)
        state = random_state(rng, QUBITS)
        filter_.load(state)
        filter_.run(rec(FREE, target_mask=0b1010, cond_mask=CHECK, read_flag=77))
        assert filter_.events() == [failed(0b1010, 77)]
        assert_same_bits(filter_.state(QUBITS), state)


def test_an_unknown_qubit_that_is_0_passes(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        checked_register(filter_).run(rec(H, target_mask=0b0101))
        filter_.run(rec(FREE, target_mask=0b1010, cond_mask=CHECK))
        assert filter_.events() == []


def test_known_and_unknown_qubits_in_one_free(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        checked_register(filter_)
        filter_.run(rec(WRITE, target_mask=15, cond_mask=15), *[rec(X, target_mask=0b1001)] * 2)
        filter_.run(rec(FREE, target_mask=0b1011, cond_mask=CHECK, read_flag=5))
        assert filter_.events() == [failed(0b1001, 5)]
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 0b1101))


@pytest.mark.parametrize(("lost", "fails"), [(0.000005, False), (0.00002, True)])
def test_how_much_of_a_1_is_let_pass(
    engine: ModuleType, setting: Setting, lost: float, fails: bool
) -> None:
    state = np.sqrt(1 - lost) * basis(QUBITS, 0b0001) + np.sqrt(lost) * basis(QUBITS, 0b1001)
    with open_dense(engine, QUBITS, setting) as filter_:
        checked_register(filter_).load(state)
        filter_.run(rec(FREE, target_mask=0b1000, cond_mask=CHECK))
        assert filter_.events() == ([failed(0b1000)] if fails else [])


def test_a_norm_above_1_passes(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        checked_register(filter_).load(np.full(16, 1.0 + 0j))
        filter_.run(rec(FREE, target_mask=0b1111, cond_mask=CHECK))
        assert filter_.events() == []


def test_a_false_condition_frees_nothing(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        checked_register(filter_)
        filter_.run(rec(WRITE, target_mask=15, cond_mask=15), *[rec(X, target_mask=0b1001)] * 2)
        for flag in (-1, 9, -9):
            filter_.run(rec(FREE, target_mask=15, cond_mask=CHECK, cond_flag=flag))
            filter_.run(rec(FREE, target_mask=15, cond_flag=flag))
        assert filter_.events() == []
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 15))


def test_an_event_tells_which_markers_stand_open(engine: ModuleType) -> None:
    with open_dense(engine, QUBITS, Setting(2)) as filter_:
        checked_register(filter_).run(rec(X, target_mask=1))
        bad = rec(FREE, target_mask=1, cond_mask=CHECK, read_flag=3)
        filter_.run(
            rec(OPEN_EVENT, angle=7.9),
            rec(OPEN_EVENT_2, angle=8.0),
            rec(OPEN_EVENT, angle=7.0),
            bad,
        )
        filter_.run(rec(CLOSE_EVENT, angle=8.0), bad, rec(CLOSE_EVENT_2, angle=7.0), bad)
        filter_.run(rec(RESET, target_mask=QUBITS), rec(X, target_mask=1), bad)
        expected = [(7, 8, 7), (7, 7), (7,), (7,)]
        assert filter_.events() == [failed(1, 3, ids) for ids in expected]
        assert filter_.events() == []


def test_a_code_keeps_its_low_32_bits(engine: ModuleType) -> None:
    with open_dense(engine, QUBITS) as filter_:
        checked_register(filter_).run(rec(X, target_mask=1))
        codes = [0, 2**31, 2**32 + 5, -1, -(2**63)]
        filter_.run(*(rec(FREE, target_mask=1, cond_mask=CHECK, read_flag=code) for code in codes))
        assert [event[2] for event in filter_.events()] == [code % 2**32 for code in codes]


def test_targets_above_the_register(engine: ModuleType, setting: Setting) -> None:
    high = 1 << 63 | 1 << QUBITS
    with open_dense(engine, QUBITS, setting) as filter_:
        checked_register(filter_).run(rec(X, target_mask=0b0110))
        # They are printed and not asserted.
        filter_.run(rec(FREE, target_mask=high | 2, cond_mask=CHECK))
        assert filter_.events() == [failed(high | 2)]
        filter_.run(rec(FREE, target_mask=high | 1, cond_mask=CHECK))
        filter_.run(rec(FREE, target_mask=high, cond_mask=CHECK))
        assert filter_.events() == []


def test_a_checked_free_needs_a_register(engine: ModuleType) -> None:
    with open_dense(engine) as filter_:
        checked_register(filter_)
        filter_.fails(NOT_ALLOCATED, rec(FREE, target_mask=1, cond_mask=CHECK))
        filter_.run(rec(FREE, target_mask=0, cond_mask=CHECK))
        filter_.run(rec(FREE, target_mask=1, cond_mask=CHECK, cond_flag=-1))


def test_random_frees_follow_the_model(engine: ModuleType, rng: random.Random) -> None:
    with open_dense(engine, QUBITS, Setting(QUBITS)) as filter_:
        model = DenseModel(Generator(3), debug_qubits=True)
        checked_register(filter_)
        engine.random_seed(0, 3)
        state = random_state(rng, QUBITS)
        model.run([reset_record(QUBITS)])
        model.load(amplitudes(state))
        filter_.load(state)
        for _ in range(60):
            mask, checks = rng.getrandbits(QUBITS), rng.choice((0x10, 0x1F))
            low = rng.choice((FREE, FREE, X, H, 0x0A))
            record = tagged(low, mask, checks if low == FREE else 0, read_flag=mask)
            model.run([record])
            filter_.run_records([record])
        assert filter_.events() == model.events
        assert len(model.events) > 5
