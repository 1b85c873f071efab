"""The record loop of the dense filter: control flow, markers, and the state after failures."""

from types import ModuleType
from typing import Any

import numpy as np
import pytest

from models.dense import NOT_ALLOCATED
from models.opcodes import EXTEND, FLAG_NAND, JUMP_FWD, LABEL, READ, WRITE, X
from support.dense import Setting, assert_same_bits, basis, open_dense, reset
from support.driver import rec
from support.record_loop_cases import EVERYTHING, FAILURES, IGNORED
from support.record_loop_programs import assert_wrong_counts_fail, skip_to_a_label

QUBITS = 3


@pytest.mark.parametrize("low", IGNORED, ids=hex)
def test_markers_do_nothing(engine: ModuleType, low: int) -> None:
    with open_dense(engine) as filter_:
        filter_.run(rec(low, **EVERYTHING))
        filter_.run(reset(QUBITS), rec(X, target_mask=5), rec(low, **EVERYTHING))
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 5))
        assert filter_.flags(2, 30) == 0


@pytest.mark.parametrize(("bad", "text"), FAILURES)
def test_failures_keep_what_came_before(
    engine: ModuleType, bad: np.ndarray[Any, Any], text: str
) -> None:
    with open_dense(engine, QUBITS, Setting(1)) as filter_:
        filter_.fails(text, rec(X, target_mask=1), bad, rec(X, target_mask=2))
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 1))
    with open_dense(engine) as filter_:
        filter_.fails(text, bad)


def test_a_failing_gate_keeps_what_came_before(engine: ModuleType) -> None:
    with open_dense(engine) as filter_:
        nand = rec(FLAG_NAND, read_flag=3)
        filter_.fails(NOT_ALLOCATED, nand, rec(X, target_mask=1), reset(QUBITS))
        assert filter_.flags(3, 1) == 1
        filter_.fails(NOT_ALLOCATED, rec(X, target_mask=1))


def test_a_jump_skips_to_its_label(engine: ModuleType) -> None:
    with open_dense(engine, QUBITS) as filter_:
        # A jump skips records that would fail or resize the register.
        skip_to_a_label(filter_, reset(QUBITS + 1), rec(0x07), rec(EXTEND))
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 4))


def test_a_jump_depends_on_a_measured_flag(engine: ModuleType) -> None:
    skipped = [rec(X, target_mask=4), rec(LABEL, target_mask=1)]
    with open_dense(engine, QUBITS, Setting(2)) as filter_:
        for value in (0, 1):
            filter_.run(reset(QUBITS), rec(WRITE, target_mask=1, cond_mask=value))
            filter_.run(rec(X, target_mask=1, cond_flag=-1), rec(READ, target_mask=1, read_flag=5))
            filter_.run(rec(JUMP_FWD, target_mask=1, cond_mask=7, cond_flag=5), *skipped)
            assert_same_bits(filter_.state(QUBITS), basis(QUBITS, value if value else 4))


def test_a_jump_survives_a_failed_register(engine: ModuleType) -> None:
    with open_dense(engine) as filter_:
        filter_.run(rec(JUMP_FWD, target_mask=1), rec(X, target_mask=1))
        filter_.run(rec(LABEL, target_mask=1), reset(QUBITS))
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 0))


def test_offsets_and_reserved_words_mean_nothing(engine: ModuleType) -> None:
    wild = {"target_offset": 64, "cond_offset": 2**63, "reserved_a": 9, "reserved_b": 2**64 - 1}
    with open_dense(engine, QUBITS) as filter_:
        filter_.run(rec(X, target_mask=5, **wild), rec(X, target_mask=2, cond_mask=1, **wild))
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 7))


def test_an_empty_program(engine: ModuleType) -> None:
    with open_dense(engine) as filter_:
        filter_.run()
        filter_.run(reset(QUBITS))
        filter_.run()
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 0))


def test_a_wrong_count_runs_nothing(engine: ModuleType) -> None:
    with open_dense(engine, QUBITS) as filter_:
        assert_wrong_counts_fail(filter_)
        assert_same_bits(filter_.state(QUBITS), basis(QUBITS, 0))
