"""The record loop: jumps, labels, refused control flow, and the state after a failure."""

from types import ModuleType

import nimbrel as nb
import numpy as np
import pytest

from models.opcodes import CALLBACK, X
from support.driver import BitFilter, op, raises_engine_error, rec
from support.record_loop_programs import WRONG_COUNT

LABEL_CONDITION = (
    "qc.jump_fwd() with quantum conditions is experimental, "
    "and currently requires use of the >>jump-control>> filter."
)
JUMP_BACK = (
    "qc.jump_back() is experimental, and currently requires use of the >>jump-control>> filter."
)

JUMP, LABEL, BACK = 0x10000216, 0x10000316, 0x10000516


@pytest.fixture
def four(bits: BitFilter) -> BitFilter:
    """A filter with four qubits at 0, read flag 2 at 1 and read flag 3 at 0."""
    bits.run(nb.reset(4), nb.write((0, 1), 1, 2), nb.clear((0, 1)))
    return bits


def test_no_records_change_nothing(bits: BitFilter) -> None:
    bits.run()
    bits.run(nb.reset(2), nb.x(0))
    bits.run()
    assert bits.state() == "10"


def test_records_run_in_order_and_are_not_changed(bits: BitFilter) -> None:
    records = nb.program(nb.reset(3), nb.x(0), nb.swap(0, 2), nb.x(1, controls=2))
    before = records.tobytes()
    bits.run(records)
    assert bits.state() == "011"
    assert records.tobytes() == before


def test_a_read_only_array_is_taken(bits: BitFilter) -> None:
    records = nb.program(nb.reset(2), nb.x(1))
    records.flags.writeable = False
    bits.run(records)
    assert bits.state() == "01"


def test_records_before_a_failing_one_have_taken_effect(four: BitFilter) -> None:
    four.fails("qc.y has not been implemented for the Bit sim.", nb.x(0), nb.y(0), nb.x(1))
    assert four.state() == "1000"


def test_a_wrong_count_fails_before_any_record(engine: ModuleType, four: BitFilter) -> None:
    records = nb.program(nb.x(0), nb.x(1))
    for count in (0, 1, 3, 2**32 - 1, -1):
        with raises_engine_error(WRONG_COUNT):
            engine.put_instructions(four.handle, records, count)
    assert four.state() == "0000"


def test_a_jump_skips_up_to_its_label(four: BitFilter) -> None:
    four.run(nb.x(0), nb.jump_fwd(7), nb.x(1), nb.x(2), nb.label(7), nb.x(3))
    assert four.state() == "1001"


@pytest.mark.parametrize("flag", [0, 1, 2, -3, 100000002, -100000003])
def test_a_jump_whose_condition_holds_is_taken(four: BitFilter, flag: int) -> None:
    four.run(nb.jump_fwd(7, flag=flag), nb.x(1), nb.label(7))
    assert four.state() == "0000"


@pytest.mark.parametrize("flag", [-1, 3, -2, 100000003, 5000, -5000])
def test_a_jump_whose_condition_fails_is_not_taken(four: BitFilter, flag: int) -> None:
    four.run(nb.jump_fwd(7, flag=flag), nb.x(1), nb.label(7))
    assert four.state() == "0100"


def test_a_jump_does_not_look_at_a_quantum_condition(four: BitFilter) -> None:
    four.run(rec(JUMP, target_mask=7, cond_mask=15, target_offset=1 << 40), nb.x(1), nb.label(7))
    assert four.state() == "0000"


def test_a_jump_without_its_label_skips_on_into_later_calls(four: BitFilter) -> None:
    four.run(nb.jump_fwd(7), nb.x(0))
    four.run(nb.x(1))
    four.run(nb.x(2), nb.label(7), nb.x(3))
    assert four.state() == "0001"


def test_another_label_is_passed_over(four: BitFilter) -> None:
    four.run(nb.jump_fwd(7), nb.x(0), nb.label(8), nb.x(1), nb.label(7), nb.x(2))
    assert four.state() == "0010"


def test_jumps_do_not_nest(four: BitFilter) -> None:
    four.run(nb.jump_fwd(7), nb.jump_fwd(8), nb.label(7), nb.x(0), nb.label(8))
    assert four.state() == "1000"


def test_a_jump_to_label_0_opens_nothing(four: BitFilter) -> None:
    four.run(nb.jump_fwd(0), nb.x(0))
    assert four.state() == "1000"


def test_label_0_closes_no_jump(four: BitFilter) -> None:
    four.run(nb.jump_fwd(7), nb.label(0), nb.x(0))
    assert four.state() == "0000"


def test_a_label_alone_does_nothing(four: BitFilter) -> None:
    four.run(nb.label(7), nb.x(0), nb.label(7))
    assert four.state() == "1000"


def test_a_label_compares_all_its_bits(four: BitFilter) -> None:
    label = 2**64 - 1
    four.run(rec(JUMP, target_mask=label), rec(LABEL, target_mask=2**63 - 1), nb.x(0))
    four.run(rec(LABEL, target_mask=label, cond_flag=-1), nb.x(1))
    assert four.state() == "0100"


def test_a_label_must_not_have_a_quantum_condition(four: BitFilter) -> None:
    four.fails(LABEL_CONDITION, rec(LABEL, target_mask=7, cond_mask=1))
    four.run(nb.jump_fwd(7))
    four.fails(LABEL_CONDITION, rec(LABEL, target_mask=8, cond_mask=1))
    four.fails(LABEL_CONDITION, rec(LABEL, target_mask=7, cond_mask=1 << 63))
    four.run(nb.x(0))  # the refused label left the jump open
    assert four.state() == "0000"


def test_a_backward_jump_is_refused_even_while_skipping(four: BitFilter) -> None:
    four.fails(JUMP_BACK, rec(BACK, target_mask=7))
    four.fails(JUMP_BACK, rec(BACK, target_mask=7, cond_flag=-1))
    four.run(nb.jump_fwd(7))
    four.fails(JUMP_BACK, nb.x(0), rec(BACK, target_mask=7), nb.label(7))
    four.run(nb.x(1), nb.label(7), nb.x(2))  # the jump is still open after the failure
    assert four.state() == "0010"


def test_skipped_records_are_not_looked_at(four: BitFilter) -> None:
    four.run(
        nb.jump_fwd(7),
        nb.y(0),
        nb.record(5),
        rec(CALLBACK),
        nb.reset(1),
        nb.open_event(3),
        nb.flag_nand(1, 1, 2),
        nb.read(0, 4),
        rec(X, target_mask=1, target_offset=2**63),
        nb.label(7),
    )
    assert four.state() == "0000"
    assert four.flags(2, 32) == 1


def test_a_reset_does_not_close_a_jump(four: BitFilter) -> None:
    four.run(nb.jump_fwd(7))
    four.run(nb.reset(2))
    assert four.state() == "0000"
    four.run(nb.label(7), nb.reset(2))
    assert four.state() == "00"


def test_each_filter_has_a_jump_of_its_own(engine: ModuleType, four: BitFilter) -> None:
    other = BitFilter(engine)
    four.run(nb.jump_fwd(7))
    other.run(nb.reset(1), nb.x(0))
    assert other.state() == "1"
    other.close()


@pytest.mark.parametrize(
    "opcode",
    [
        0x16,
        0x4E6D627200000016,
        0x4E6D627210000016,
        0x4E6D627210000116,
        0x4E6D627210000416,
        0x4E6D627210000616,
        0x4E6D627210004216,
        op(JUMP) ^ 1 << 63,
        op(LABEL) ^ 1 << 63,
        op(BACK) ^ 1 << 63,
        0x10000216,
        0x10000316,
        0x10000516,
        2**64 - 256 + 0x16,
    ],
)
def test_the_rest_of_the_jump_family_is_ignored_under_any_tag(four: BitFilter, opcode: int) -> None:
    four.run(nb.record(opcode, target_mask=7), nb.x(0), nb.record(opcode, cond_mask=1))
    four.run(nb.jump_fwd(7), nb.record(opcode, target_mask=7), nb.x(1), nb.label(7), nb.x(2))
    assert four.state() == "1010"


def test_a_failure_leaves_no_jump_open_that_was_closed(four: BitFilter) -> None:
    four.fails(
        "qc.z has not been implemented for the Bit sim.", nb.jump_fwd(7), nb.label(7), nb.z(0)
    )
    four.run(nb.x(3))
    assert four.state() == "0001"


def test_a_long_program_runs_to_its_end(bits: BitFilter) -> None:
    flips = np.repeat(nb.x(0), 100_001)
    bits.run(nb.reset(1), flips)
    assert bits.state() == "1"
