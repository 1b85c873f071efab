"""Resets of the Clifford filter: what they change and what they keep."""

from types import ModuleType

import numpy as np
import pytest

from models.clifford import outside
from models.opcodes import EXTEND, JUMP_FWD, LABEL, READ, RESET, WRITE, H, X
from models.program import NO_REGISTER
from support.clifford import open_clifford
from support.clifford_rows import changes
from support.driver import rec

FRESH_PAIR = "0 01|00\n0 10|00\n-------\n0 00|01\n0 00|10\n"


@pytest.mark.parametrize("num_qubits", [1, 2, 63, 64, 128, 640])
def test_every_qubit_is_0(engine: ModuleType, num_qubits: int) -> None:
    with open_clifford(engine, num_qubits) as filter_:
        top = {"target_mask": 1, "target_offset": num_qubits - 1}
        filter_.run(rec(READ, read_flag=-5, **top))
        assert filter_.flag(5) == 1
        filter_.run(rec(X, **top), rec(READ, read_flag=-6, **top))
        assert filter_.flag(6) == 0


def test_a_reset_replaces_the_register(engine: ModuleType) -> None:
    with open_clifford(engine, 5) as filter_:
        filter_.run(rec(H, target_mask=3), rec(X, target_mask=4, cond_mask=1))
        filter_.reset(2)
        assert filter_.tableau() == FRESH_PAIR
        filter_.reset(65)
        filter_.reset(2)
        assert filter_.tableau() == FRESH_PAIR


def test_gates_before_a_reset_in_the_same_call_are_gone(engine: ModuleType) -> None:
    with open_clifford(engine, 100) as filter_:
        reset = rec(RESET, target_mask=2)
        filter_.run(rec(X, target_mask=1, target_offset=99), reset, rec(X, target_mask=1))
        assert changes(filter_) == {"Z0": "-Z0"}


def test_a_reset_to_no_qubits(engine: ModuleType) -> None:
    with open_clifford(engine, 0) as filter_:
        assert filter_.tableau() == "---\n"
        # With a register, a record without qubits does nothing.
        filter_.run(rec(X), rec(H), rec(READ, read_flag=5), rec(WRITE, cond_mask=1))
        assert filter_.tableau() == "---\n"


def test_flags_survive(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(WRITE, target_mask=1, cond_mask=1), rec(READ, target_mask=3, read_flag=5))
        filter_.reset(1)
        assert filter_.flags(5, 2) == 0b01


def test_an_extension_does_not(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(EXTEND, target_mask=2), rec(RESET, target_mask=2), rec(X, target_mask=1))
        assert changes(filter_) == {"Z0": "-Z0"}


def test_only_the_count_is_looked_at(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        words = {"cond_mask": 3, "angle": 45.5, "cond_flag": -1, "target_offset": 2**63}
        filter_.run(rec(RESET, target_mask=2, **words))
        assert filter_.tableau() == FRESH_PAIR


def test_a_skipped_reset(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        filter_.run(
            rec(JUMP_FWD, target_mask=9), rec(RESET, target_mask=2), rec(LABEL, target_mask=9)
        )
        filter_.fails(NO_REGISTER, rec(X, target_mask=1))


@pytest.mark.parametrize("count", [2**32 + 2, 2**62 + 2, 2**64 - 2**32 + 2])
def test_the_tableau_takes_the_low_half_of_the_count(engine: ModuleType, count: int) -> None:
    with open_clifford(engine, 5) as filter_:
        filter_.reset(count)
        assert filter_.tableau() == FRESH_PAIR
        filter_.fails(outside(2, 2), rec(X, target_mask=0b100))
        filter_.run(rec(X, target_mask=0b10))
        assert changes(filter_) == {"Z1": "-Z1"}


def test_filters_have_registers_of_their_own(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as one, open_clifford(engine, 2) as other:
        one.run(rec(X, target_mask=1))
        other.run(rec(X, target_mask=2))
        assert (changes(one), changes(other)) == ({"Z0": "-Z0"}, {"Z1": "-Z1"})


@pytest.mark.parametrize("length", [0, 1, 2, 4])
def test_amplitudes_are_never_taken(engine: ModuleType, length: int) -> None:
    text = "qc.push_state() has not been implemented for the Clifford sim."
    state = np.zeros(4, dtype=np.complex128)[:length]
    with open_clifford(engine) as filter_:
        filter_.call_fails(text, "push_state", state, 0)
        filter_.reset(1)
        filter_.call_fails(text, "push_state", state, 0)
        filter_.call_fails(text, "push_state", state, 1)
        assert changes(filter_) == {}
