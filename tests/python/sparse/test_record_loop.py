"""The record loop of the sparse filter: control flow, markers, and the state after failures."""

from types import ModuleType
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from models.opcodes import (
    CALLBACK,
    EXTEND,
    FLAG_NAND,
    JUMP_BACK,
    JUMP_FWD,
    LABEL,
    PCP,
    READ,
    WRITE,
    X,
)
from models.sparse import TOO_MANY_QUBITS
from support.dense import reset
from support.driver import op, rec
from support.record_loop_cases import EVERYTHING, FAILURES, IGNORED
from support.record_loop_programs import (
    FLAG_OPERATIONS,
    REST_OF_THE_JUMPS,
    TABLE,
    assert_flag_operation,
    assert_foreign_tags_unknown,
    assert_neighbours_unknown,
    assert_wrong_counts_fail,
    invert_around_ignored_jumps,
    jump_by_label_0,
    skip_to_a_label,
)
from support.sparse import open_sparse

QUBITS = 3
FAIL_ANYWHERE = {EXTEND, CALLBACK, JUMP_BACK}


def test_the_table_is_whole() -> None:
    assert len(TABLE) == 52
    assert {op(low) for low in TABLE} == {int(opcode) for opcode in nb.Opcode}
    assert {*IGNORED, PCP, *FAIL_ANYWHERE} < TABLE


@pytest.mark.parametrize("low", [*IGNORED, PCP], ids=hex)
def test_what_is_ignored_does_nothing(engine: ModuleType, low: int) -> None:
    with open_sparse(engine) as filter_:
        filter_.run(rec(low, **EVERYTHING))
        assert filter_.num_terms() == 0
        filter_.run(reset(QUBITS), rec(X, target_mask=5), rec(low, **EVERYTHING))
        assert filter_.ranked() == [(5, 1.0)]
        assert filter_.num_terms() == 1
        assert filter_.flags(2, 30) == 0
        assert filter_.events() == []


@pytest.mark.parametrize("low", sorted(TABLE - FAIL_ANYWHERE), ids=hex)
def test_the_rest_of_the_table_runs_with_and_without_a_register(
    engine: ModuleType, low: int
) -> None:
    with open_sparse(engine) as filter_:
        filter_.run(rec(low, target_mask=1, angle=30.0))
        filter_.run(rec(LABEL, target_mask=1), reset(2))
        filter_.run(rec(low, target_mask=1, angle=30.0))
        filter_.run(rec(LABEL, target_mask=1), reset(2), rec(X, target_mask=1))
        assert filter_.ranked() == [(1, 1.0)]


@pytest.mark.parametrize(("bad", "text"), FAILURES)
def test_failures_keep_what_came_before(
    engine: ModuleType, bad: np.ndarray[Any, Any], text: str
) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        filter_.fails(text, rec(X, target_mask=1), bad, rec(X, target_mask=2))
        assert filter_.ranked() == [(1, 1.0)]
    with open_sparse(engine) as filter_:
        filter_.fails(text, bad)
        assert filter_.num_terms() == 0


def test_a_refused_register_keeps_what_came_before(engine: ModuleType) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        nand = rec(FLAG_NAND, read_flag=3)
        filter_.fails(TOO_MANY_QUBITS, nand, rec(X, target_mask=1), reset(64), reset(2))
        assert filter_.flag(3) == 1
        assert filter_.ranked() == [(1, 1.0)]


@pytest.mark.parametrize("key", [0, 7, -1, 2**63 - 1, -(2**63)])
def test_a_callback_has_no_handler(engine: ModuleType, key: int) -> None:
    with open_sparse(engine) as filter_:
        for flag in (0, -1):
            callback = rec(CALLBACK, read_flag=key, cond_flag=flag)
            filter_.fails(f"Unhandled callback:[lookup:({key})]", callback)


def test_numbers_near_the_table_are_unknown(engine: ModuleType) -> None:
    with open_sparse(engine, 1) as filter_:
        assert_neighbours_unknown(filter_)
        assert_foreign_tags_unknown(filter_)
        assert filter_.ranked() == [(0, 1.0)]


@REST_OF_THE_JUMPS
def test_the_rest_of_the_jump_family_is_ignored_under_any_tag(
    engine: ModuleType, opcode: int
) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        invert_around_ignored_jumps(filter_, opcode)
        assert filter_.ranked() == [(5, 1.0)]


def test_a_jump_skips_to_its_label(engine: ModuleType) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        # A jump skips records that would fail or resize the register.
        skip_to_a_label(filter_, reset(64), rec(0x07), rec(EXTEND))
        assert filter_.ranked() == [(4, 1.0)]


def test_a_jump_depends_on_a_measured_flag(engine: ModuleType) -> None:
    skipped = [rec(X, target_mask=4), rec(LABEL, target_mask=1)]
    with open_sparse(engine, QUBITS) as filter_:
        for value in (0, 1):
            filter_.run(reset(QUBITS), rec(WRITE, target_mask=1, cond_mask=value))
            filter_.run(rec(READ, target_mask=1, read_flag=5))
            filter_.run(rec(JUMP_FWD, target_mask=1, cond_mask=7, cond_flag=5), *skipped)
            assert filter_.ranked() == [(value if value else 4, 1.0)]


def test_label_0_opens_and_closes_nothing(engine: ModuleType) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        jump_by_label_0(filter_)
        assert filter_.ranked() == [(5, 1.0)]


def test_a_jump_survives_a_reset_and_each_filter_has_its_own(engine: ModuleType) -> None:
    with open_sparse(engine) as one, open_sparse(engine) as other:
        one.run(reset(1), rec(JUMP_FWD, target_mask=1), reset(2))
        other.run(reset(2), rec(X, target_mask=2))
        one.run(rec(LABEL, target_mask=1), rec(X, target_mask=3))
        assert (one.ranked(), other.ranked()) == ([(1, 1.0)], [(2, 1.0)])


def test_offsets_and_reserved_words_mean_nothing(engine: ModuleType) -> None:
    wild = {"target_offset": 64, "cond_offset": 2**63, "reserved_a": 9, "reserved_b": 2**64 - 1}
    with open_sparse(engine, QUBITS) as filter_:
        filter_.run(rec(X, target_mask=5, **wild), rec(X, target_mask=2, cond_mask=1, **wild))
        assert filter_.ranked() == [(7, 1.0)]


@FLAG_OPERATIONS
def test_flag_operations(
    engine: ModuleType, first: int, second: int, destination: int, stored: int
) -> None:
    with open_sparse(engine) as filter_:
        assert_flag_operation(filter_, first, second, destination, stored)


def test_an_empty_program(engine: ModuleType) -> None:
    with open_sparse(engine) as filter_:
        filter_.run()
        assert filter_.num_terms() == 0
        filter_.run(reset(QUBITS))
        filter_.run()
        assert filter_.ranked() == [(0, 1.0)]


def test_a_wrong_count_runs_nothing(engine: ModuleType) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        assert_wrong_counts_fail(filter_)
        assert filter_.ranked() == [(0, 1.0)]
