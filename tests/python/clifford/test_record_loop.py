"""The record loop of the Clifford filter: control flow, extensions, state after failures."""

from types import ModuleType
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from models.opcodes import (
    EXTEND,
    JUMP_FAMILY,
    JUMP_FWD,
    LABEL,
    MARKER_10000000,
    PPR,
    READ,
    WRITE,
    Z_NOP,
    H,
    S,
    T,
    X,
)
from models.program import NO_REGISTER
from support.clifford import open_clifford
from support.clifford_rows import changes
from support.driver import rec
from support.record_loop_cases import FAILURES
from support.record_loop_programs import (
    REST_OF_THE_JUMPS,
    assert_wrong_counts_fail,
    invert_around_ignored_jumps,
    jump_by_label_0,
    skip_to_a_label,
)

QUBITS = 3
# Only the state-vector filters refuse extensions.
SHARED_FAILURES = [(bad, text) for bad, text in FAILURES if "qc.extend" not in text]


@pytest.mark.parametrize(("bad", "text"), SHARED_FAILURES)
def test_failures_keep_what_came_before(
    engine: ModuleType, bad: np.ndarray[Any, Any], text: str
) -> None:
    with open_clifford(engine, QUBITS) as filter_:
        filter_.fails(text, rec(X, target_mask=1), bad, rec(X, target_mask=2))
        assert changes(filter_) == {"Z0": "-Z0"}
    with open_clifford(engine) as filter_:
        filter_.fails(text, bad)
        filter_.fails(NO_REGISTER, rec(X))


@pytest.mark.parametrize(("bad", "text"), SHARED_FAILURES)
def test_failures_leave_the_extension(
    engine: ModuleType, bad: np.ndarray[Any, Any], text: str
) -> None:
    with open_clifford(engine, QUBITS) as filter_:
        filter_.fails(text, rec(EXTEND, target_mask=4), bad)
        filter_.run(rec(X, target_mask=1))
        assert changes(filter_) == {"Z0": "-Z0", "Z2": "-Z2"}


@REST_OF_THE_JUMPS
def test_the_rest_of_the_jump_family_is_ignored_under_any_tag(
    engine: ModuleType, opcode: int
) -> None:
    with open_clifford(engine, QUBITS) as filter_:
        invert_around_ignored_jumps(filter_, opcode)
        assert changes(filter_) == {"Z0": "-Z0", "Z2": "-Z2"}


def test_a_jump_skips_to_its_label(engine: ModuleType) -> None:
    with open_clifford(engine, QUBITS) as filter_:
        # A jump skips records that would fail or resize the register.
        skip_to_a_label(filter_, nb.reset(64), rec(0x07), rec(T))
        assert changes(filter_) == {"Z2": "-Z2"}


def test_a_jump_depends_on_a_measured_flag(engine: ModuleType) -> None:
    skipped = [rec(X, target_mask=4), rec(LABEL, target_mask=1)]
    with open_clifford(engine) as filter_:
        for value, expected in ((0, {"Z2": "-Z2"}), (1, {"Z0": "-Z0"})):
            filter_.reset(QUBITS)
            filter_.run(rec(WRITE, target_mask=1, cond_mask=value))
            filter_.run(rec(READ, target_mask=1, read_flag=5))
            filter_.run(rec(JUMP_FWD, target_mask=1, cond_mask=7, cond_flag=5), *skipped)
            assert changes(filter_) == expected


def test_a_jump_of_a_false_condition_is_not_taken(engine: ModuleType) -> None:
    with open_clifford(engine, QUBITS) as filter_:
        for flag in (-1, 5, -5):
            filter_.run(rec(JUMP_FWD, target_mask=1, cond_flag=flag), rec(X, target_mask=1))
        assert changes(filter_) == {"Z0": "-Z0"}


def test_label_0_opens_and_closes_nothing(engine: ModuleType) -> None:
    with open_clifford(engine, QUBITS) as filter_:
        jump_by_label_0(filter_)
        assert changes(filter_) == {"Z0": "-Z0", "Z2": "-Z2"}


def test_each_filter_has_its_own_jump(engine: ModuleType) -> None:
    with open_clifford(engine, 1) as one, open_clifford(engine, 1) as other:
        one.run(rec(JUMP_FWD, target_mask=1))
        one.run(rec(X, target_mask=1))
        other.run(rec(X, target_mask=1))
        one.run(rec(LABEL, target_mask=1))
        assert (changes(one), changes(other)) == ({}, {"Z0": "-Z0"})


# How long an extension lasts.

DROPPING = {
    "gate": rec(H),
    "gate-not-acting": rec(S, target_mask=2, cond_flag=-1),
    "read-not-acting": rec(READ, target_mask=2, cond_flag=-1),
    "write-not-acting": rec(WRITE, target_mask=2, cond_flag=-1),
    "rotation-by-0": rec(PPR, target_mask=2),
    "marker": rec(MARKER_10000000),
    "z-nop": rec(Z_NOP),
    "open-event": nb.open_event(1),
    "close-event": nb.close_event(1),
    "flag-nand": nb.flag_nand(0, 0, 0),
    "reset": nb.reset(QUBITS),
}
KEEPING = {
    "label": nb.label(3),
    "jump-not-taken": nb.jump_fwd(3, flag=-1),
    "jump-family": rec(JUMP_FAMILY),
    "foreign-jump-family": nb.record(0x16),
    "jump-taken": nb.program(nb.jump_fwd(3), rec(X, target_mask=2), nb.label(3)),
    "another-extension": rec(EXTEND, target_mask=2, cond_flag=-1),
}


@pytest.mark.parametrize("between", DROPPING.values(), ids=DROPPING)
def test_any_dispatched_record_drops_the_extension(
    engine: ModuleType, between: np.ndarray[Any, Any]
) -> None:
    with open_clifford(engine, QUBITS) as filter_:
        extension = rec(EXTEND, target_mask=4, cond_mask=4)
        taken = {"Z2": "+X2", "X2": "+Z2"} if between is DROPPING["gate"] else {}
        filter_.run(extension, between, rec(X, target_mask=1))
        assert changes(filter_) == {"Z0": "-Z0", **taken}


@pytest.mark.parametrize("between", KEEPING.values(), ids=KEEPING)
def test_jumps_labels_and_skipped_records_keep_the_extension(
    engine: ModuleType, between: np.ndarray[Any, Any]
) -> None:
    with open_clifford(engine, QUBITS) as filter_:
        filter_.run(rec(EXTEND, target_mask=4), between, rec(X, target_mask=1))
        assert changes(filter_) == {"Z0": "-Z0", "Z2": "-Z2"}


def test_an_extension_waits_for_the_next_call(engine: ModuleType) -> None:
    with open_clifford(engine, QUBITS) as filter_:
        filter_.run(rec(EXTEND, target_mask=4))
        filter_.run(rec(X, target_mask=1))
        filter_.run(rec(X, target_mask=2))
        assert changes(filter_) == {"Z0": "-Z0", "Z1": "-Z1", "Z2": "-Z2"}


@pytest.mark.parametrize("flag", [5, -6, 1, 0])
def test_an_extension_under_a_condition_that_holds(engine: ModuleType, flag: int) -> None:
    with open_clifford(engine, QUBITS) as filter_:
        filter_.run(rec(X, target_mask=1), rec(READ, target_mask=0b11, read_flag=5))
        filter_.run(rec(EXTEND, target_mask=4, cond_flag=flag), rec(X))
        assert changes(filter_) == {"Z0": "-Z0", "Z2": "-Z2"}


def test_events_open_and_close(engine: ModuleType) -> None:
    with open_clifford(engine, QUBITS) as filter_:
        for opening, closing in ((0x10000112, 0x10004112), (0x10000212, 0x10004212)):
            filter_.run(rec(opening, angle=3.7), rec(X, target_mask=1), rec(closing, angle=3.2))
            filter_.run(rec(closing, angle=99.0), rec(opening, angle=2.0**63))
        assert changes(filter_) == {}
        assert filter_.events() == []


def test_an_empty_program(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        filter_.run()
        filter_.fails(NO_REGISTER, rec(X))
        filter_.reset(QUBITS)
        filter_.run()
        assert changes(filter_) == {}


def test_a_wrong_count_runs_nothing(engine: ModuleType) -> None:
    with open_clifford(engine, QUBITS) as filter_:
        assert_wrong_counts_fail(filter_)
        assert changes(filter_) == {}
