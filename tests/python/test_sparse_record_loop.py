"""The record loop of the sparse filter: control flow, markers, failures and what they leave."""

from types import ModuleType
from typing import Any

import nimbrel as nb
import numpy as np
import pytest
from dense_support import reset
from record_loop_cases import EVERYTHING, FAILURES, IGNORED, JUMP, LABEL, ONLY_FILTER, X
from sparse_support import TOO_MANY_QUBITS, open_sparse
from support import op, raises_engine_error, rec

QUBITS = 3
PCP = 0x13
FAIL_ANYWHERE = {0x10000010, 0x10000018, 0x10000516}
TABLE = {int(opcode) & 0xFFFFFFFF for opcode in nb.Opcode}


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
        filter_.run(rec(0x10000316, target_mask=1), reset(2))
        filter_.run(rec(low, target_mask=1, angle=30.0))
        filter_.run(rec(0x10000316, target_mask=1), reset(2), rec(X, target_mask=1))
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
        nand = rec(0x1000000F, read_flag=3)
        filter_.fails(TOO_MANY_QUBITS, nand, rec(X, target_mask=1), reset(64), reset(2))
        assert filter_.flag(3) == 1
        assert filter_.ranked() == [(1, 1.0)]


@pytest.mark.parametrize("key", [0, 7, -1, 2**63 - 1, -(2**63)])
def test_a_callback_has_no_handler(engine: ModuleType, key: int) -> None:
    with open_sparse(engine) as filter_:
        for flag in (0, -1):
            callback = rec(0x10000018, read_flag=key, cond_flag=flag)
            filter_.fails(f"Unhandled callback:[lookup:({key})]", callback)


def test_numbers_near_the_table_are_unknown(engine: ModuleType) -> None:
    near = {low ^ 1 << bit for low in TABLE for bit in range(32)} - TABLE
    with open_sparse(engine, 1) as filter_:
        for low in sorted(low for low in near if low & 0xFF != 0x16):
            text = f"Error: Unknown opcode: 0x{op(low):x}\n"
            filter_.fails(text, rec(low, target_mask=1))
        for low in sorted(low for low in TABLE if low & 0xFF != 0x16):
            foreign = op(low) ^ 1 << 40
            filter_.fails(f"Error: Unknown opcode: 0x{foreign:x}\n", nb.record(foreign))
        assert filter_.ranked() == [(0, 1.0)]


@pytest.mark.parametrize("opcode", [0x16, op(0x16), op(0x10000616), op(JUMP) ^ 1 << 63, JUMP])
def test_the_rest_of_the_jump_family_is_ignored_under_any_tag(
    engine: ModuleType, opcode: int
) -> None:
    other = nb.record(opcode, target_mask=7, cond_mask=1)
    with open_sparse(engine, QUBITS) as filter_:
        filter_.run(other, rec(X, target_mask=1), rec(JUMP, target_mask=7), other)
        filter_.run(rec(X, target_mask=2), rec(LABEL, target_mask=7), rec(X, target_mask=4))
        assert filter_.ranked() == [(5, 1.0)]


def test_a_jump_skips_to_its_label(engine: ModuleType) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        filter_.run(rec(JUMP, target_mask=9), rec(X, target_mask=1), rec(LABEL, target_mask=8))
        # It stays open over calls, and over what would fail or size the register anew.
        filter_.run(reset(64), rec(0x07), rec(0x10000010), rec(JUMP, target_mask=8))
        filter_.fails(f"qc.jump_back() {ONLY_FILTER}", rec(0x10000516))
        with_condition = rec(LABEL, target_mask=9, cond_mask=1)
        filter_.fails(f"qc.jump_fwd() with quantum conditions {ONLY_FILTER}", with_condition)
        filter_.run(rec(X, target_mask=2), rec(LABEL, target_mask=9), rec(X, target_mask=4))
        assert filter_.ranked() == [(4, 1.0)]


def test_a_jump_depends_on_a_measured_flag(engine: ModuleType) -> None:
    skipped = [rec(X, target_mask=4), rec(LABEL, target_mask=1)]
    with open_sparse(engine, QUBITS) as filter_:
        for value in (0, 1):
            filter_.run(reset(QUBITS), rec(0x0B, target_mask=1, cond_mask=value))
            filter_.run(rec(0x0A, target_mask=1, read_flag=5))
            filter_.run(rec(JUMP, target_mask=1, cond_mask=7, cond_flag=5), *skipped)
            assert filter_.ranked() == [(value if value else 4, 1.0)]


def test_label_0_opens_and_closes_nothing(engine: ModuleType) -> None:
    with open_sparse(engine, QUBITS) as filter_:
        filter_.run(rec(JUMP), rec(X, target_mask=1))
        filter_.run(rec(JUMP, target_mask=7), rec(LABEL), rec(X, target_mask=2))
        filter_.run(rec(LABEL, target_mask=7), rec(LABEL, target_mask=7), rec(X, target_mask=4))
        assert filter_.ranked() == [(5, 1.0)]


def test_a_jump_survives_a_reset_and_each_filter_has_its_own(engine: ModuleType) -> None:
    with open_sparse(engine) as one, open_sparse(engine) as other:
        one.run(reset(1), rec(JUMP, target_mask=1), reset(2))
        other.run(reset(2), rec(X, target_mask=2))
        one.run(rec(LABEL, target_mask=1), rec(X, target_mask=3))
        assert (one.ranked(), other.ranked()) == ([(1, 1.0)], [(2, 1.0)])


def test_offsets_and_reserved_words_mean_nothing(engine: ModuleType) -> None:
    wild = {"target_offset": 64, "cond_offset": 2**63, "reserved_a": 9, "reserved_b": 2**64 - 1}
    with open_sparse(engine, QUBITS) as filter_:
        filter_.run(rec(X, target_mask=5, **wild), rec(X, target_mask=2, cond_mask=1, **wild))
        assert filter_.ranked() == [(7, 1.0)]


@pytest.mark.parametrize(
    ("first", "second", "destination", "stored"),
    [(1, 1, 7, 0), (1, 1, -7, 1), (0, 1, 7, 1), (0, 1, -7, 0), (1, 1, 1, 0), (0, 0, 0, 0)],
)
def test_flag_operations(
    engine: ModuleType, first: int, second: int, destination: int, stored: int
) -> None:
    with open_sparse(engine) as filter_:
        nand = rec(0x1000000F, target_mask=first, cond_mask=second, read_flag=destination)
        filter_.run(nand)
        assert filter_.flags(2, 10) == stored << 5
        never = rec(0x1000000F, target_mask=1 - first, cond_mask=1, cond_flag=-1, read_flag=7)
        filter_.run(never)
        assert filter_.flags(2, 10) == stored << 5


def test_an_empty_program(engine: ModuleType) -> None:
    with open_sparse(engine) as filter_:
        filter_.run()
        assert filter_.num_terms() == 0
        filter_.run(reset(QUBITS))
        filter_.run()
        assert filter_.ranked() == [(0, 1.0)]


def test_a_wrong_count_runs_nothing(engine: ModuleType) -> None:
    text = "Error: put_instructions array length differs from num_ops argument."
    with open_sparse(engine, QUBITS) as filter_:
        for count in (0, 2, 2**32 - 1):
            with raises_engine_error(text):
                filter_.call("put_instructions", rec(X, target_mask=1), count)
        assert filter_.ranked() == [(0, 1.0)]
