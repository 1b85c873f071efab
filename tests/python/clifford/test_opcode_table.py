"""Every opcode on the Clifford filter: carried out, ignored, refused or unknown."""

from types import ModuleType
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from models.opcodes import (
    CALLBACK,
    CLEAR,
    CLOSE_EVENT,
    CLOSE_EVENT_2,
    EXTEND,
    FLAG_NAND,
    FREE,
    JUMP_BACK,
    JUMP_FWD,
    LABEL,
    OPEN_EVENT,
    OPEN_EVENT_2,
    PHASE,
    PPM,
    PPR,
    READ,
    RESET,
    RZ,
    S_INV,
    SWAP,
    WRITE,
    H,
    S,
    X,
    Y,
    Z,
)
from models.program import NO_REGISTER, ONLY_FILTER
from support.clifford import open_clifford
from support.clifford_rows import changes
from support.driver import op, rec
from support.record_loop_cases import EVERYTHING, IGNORED
from support.record_loop_programs import (
    FLAG_OPERATIONS,
    TABLE,
    assert_flag_operation,
    assert_foreign_tags_unknown,
    assert_neighbours_unknown,
)

REFUSED = {
    0x00000013: "qc.pcp",
    0x00000014: "qc.lelbow",
    0x00004014: "qc.relbow",
    0x00000105: "qc.rx",
    0x00000106: "qc.ry",
    0x00000407: "qc.t",
    0x00004407: "qc.t_inv",
    0x00002005: "qc.rootx",
    0x00006005: "qc.rootx_inv",
    0x00002006: "qc.rooty",
    0x00006006: "qc.rooty_inv",
}
NEED_A_REGISTER = {X, Y, H, READ, WRITE, SWAP, PPR, PPM, S, Z, S_INV, CLEAR, FREE}
BY_ANGLE = {PHASE, RZ}
NEED_NONE = {RESET, FLAG_NAND, EXTEND, OPEN_EVENT, OPEN_EVENT_2, CLOSE_EVENT, CLOSE_EVENT_2}
STEERING = {JUMP_FWD, LABEL, JUMP_BACK}

refused = pytest.mark.parametrize(
    ("low", "text"),
    [
        pytest.param(low, f"{name} has not been implemented for the Clifford sim.", id=name)
        for low, name in REFUSED.items()
    ],
)


def test_every_row_of_the_table_is_in_one_class() -> None:
    classes = [NEED_A_REGISTER, BY_ANGLE, NEED_NONE, STEERING, {*REFUSED}, {*IGNORED}, {CALLBACK}]
    assert sum(map(len, classes)) == len(TABLE) == 52
    assert set().union(*classes) == TABLE


@refused
def test_refused_by_name(engine: ModuleType, low: int, text: str) -> None:
    words: list[dict[str, Any]] = [
        {"target_mask": 1},
        {"target_mask": 1, "angle": 180.0},
        {"target_mask": 1, "cond_mask": 6, "cond_neg_mask": 2},
        {"target_mask": 1 << 63, "target_offset": 2**63},
        {"cond_flag": -1},
    ]
    with open_clifford(engine) as filter_:
        for more in words:
            filter_.fails(text, rec(low, **more))
        filter_.reset(2)
        filter_.run(rec(X, target_mask=1))
        for more in words:
            filter_.fails(text, rec(low, **more), rec(X, target_mask=2))
        assert changes(filter_) == {"Z0": "-Z0"}


@refused
def test_a_refusal_leaves_the_extension(engine: ModuleType, low: int, text: str) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.fails(text, rec(EXTEND, target_mask=0b100), rec(low, target_mask=0b10))
        filter_.run(rec(X, target_mask=1))
        assert changes(filter_) == {"Z0": "-Z0", "Z2": "-Z2"}


@pytest.mark.parametrize("low", IGNORED, ids=hex)
def test_what_is_ignored_does_nothing(engine: ModuleType, low: int) -> None:
    everything = rec(low, target_offset=1 << 40, cond_offset=1 << 40, **EVERYTHING)
    with open_clifford(engine) as filter_:
        filter_.run(everything)
        filter_.fails(NO_REGISTER, rec(X))
        filter_.reset(3)
        filter_.run(rec(X, target_mask=5), everything)
        assert changes(filter_) == {"Z0": "-Z0", "Z2": "-Z2"}
        assert filter_.flags(2, 30) == 0
        assert filter_.events() == []


@pytest.mark.parametrize("low", sorted(NEED_A_REGISTER), ids=hex)
def test_needs_a_register_before_it_looks_at_its_condition(engine: ModuleType, low: int) -> None:
    with open_clifford(engine) as filter_:
        for words in ({}, {"target_mask": 1}, {"cond_flag": -1}, {"target_offset": 1 << 40}):
            filter_.fails(NO_REGISTER, rec(low, **words))


@pytest.mark.parametrize("low", sorted(NEED_NONE), ids=hex)
def test_needs_no_register(engine: ModuleType, low: int) -> None:
    with open_clifford(engine) as filter_:
        filter_.run(rec(low))
        filter_.run(rec(low, cond_flag=-1))


@pytest.mark.parametrize("key", [0, 7, -1, 2**63 - 1, -(2**63)])
def test_a_callback_has_no_handler(engine: ModuleType, key: int) -> None:
    with open_clifford(engine, 1) as filter_:
        for flag in (0, -1):
            callback = rec(CALLBACK, read_flag=key, cond_flag=flag)
            filter_.fails(f"Unhandled callback:[lookup:({key})]", callback)


def test_a_backward_jump_is_refused(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        filter_.fails(f"qc.jump_back() {ONLY_FILTER}", rec(JUMP_BACK))


@pytest.mark.parametrize(
    ("opcode", "digits"),
    [
        (0, "0"),
        (5, "5"),
        (0x4E6D627300000005, "4e6d627300000005"),
        (0x4E6D627200000007, "4e6d627200000007"),
        (op(X) ^ 1 << 63, "ce6d627200000005"),
        (2**64 - 1, "ffffffffffffffff"),
    ],
)
def test_an_unknown_opcode(engine: ModuleType, opcode: int, digits: str) -> None:
    with open_clifford(engine) as filter_:
        filter_.fails(f"Error: Unknown opcode: 0x{digits}\n", nb.record(opcode, target_mask=1))


def test_numbers_near_the_table_are_unknown(engine: ModuleType) -> None:
    with open_clifford(engine, 1) as filter_:
        assert_neighbours_unknown(filter_)
        assert_foreign_tags_unknown(filter_)
        assert changes(filter_) == {}


@FLAG_OPERATIONS
def test_flag_operations(
    engine: ModuleType, first: int, second: int, destination: int, stored: int
) -> None:
    with open_clifford(engine) as filter_:
        assert_flag_operation(filter_, first, second, destination, stored)


def test_flag_operations_on_outcomes(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(X, target_mask=0b11), rec(READ, target_mask=0b11, read_flag=5))
        filter_.run(rec(FLAG_NAND, target_mask=5, cond_mask=6, read_flag=-9, cond_flag=5))
        assert filter_.flag(9) == 1
        filter_.run(rec(FLAG_NAND, target_mask=5, cond_mask=6, read_flag=9, cond_flag=6))
        assert filter_.flag(9) == 0


@pytest.mark.parametrize("low", [X, Y, Z, S, S_INV, H], ids=hex)
def test_reserved_words_and_the_angle_mean_nothing_to_a_gate(engine: ModuleType, low: int) -> None:
    wild = {"angle": np.nan, "read_flag": 9, "reserved_a": 2**64 - 1, "reserved_b": 5}
    with open_clifford(engine, 2) as one, open_clifford(engine, 2) as other:
        one.run(rec(low, target_mask=1))
        other.run(rec(low, target_mask=1, **wild))
        assert one.tableau() == other.tableau()
        assert other.flags(2, 30) == 0
