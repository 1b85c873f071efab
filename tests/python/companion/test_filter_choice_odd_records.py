"""Records with unusual words mean the same on the chosen filter as on the dense one."""

from __future__ import annotations

import nimbrel as nb
import pytest
from nimbrel import Opcode

WANTED = [2, 3, 4, -2, -3, -4]
READ = nb.read([0, 1, 2], 2)
UNCLEAR = [nb.flag_nand(0, 0, 5), nb.jump_fwd(1, flag=-5), nb.reset(2), nb.label(1)]
PROGRAMS = {
    "a negated target of S": [
        *[nb.h(0), nb.record(Opcode.S, target_mask=1, cond_neg_mask=1)],
        *[nb.s(0), nb.h(0), READ],
    ],
    "a negated target of a phase": [
        *[nb.h(0), nb.record(Opcode.PHASE, angle=-90.0, target_mask=1, cond_neg_mask=1)],
        *[nb.s_inv(0), nb.h(0), READ],
    ],
    "a negated target of a swap": [
        *[nb.record(Opcode.SWAP, target_mask=3, cond_neg_mask=1), READ],
    ],
    "a negated target of a swap in a Clifford program": [
        *[nb.s(0), nb.record(Opcode.SWAP, target_mask=3, cond_neg_mask=2), READ],
    ],
    "a swap of one target": [nb.record(Opcode.SWAP, target_mask=1), READ],
    "a swap of one target in a Clifford program": [
        *[nb.s(0), nb.record(Opcode.SWAP, target_mask=1), READ],
    ],
    "a negated qubit that is no control": [
        *[nb.x(0), nb.record(Opcode.X, target_mask=4, cond_mask=1, cond_neg_mask=2), READ],
    ],
    "a control that is the target by the word of its offset": [
        *[nb.x(0), nb.record(Opcode.X, target_mask=1, cond_mask=1, cond_offset=3), READ],
    ],
    "an offset inside a word": [
        *[nb.s(0), nb.record(Opcode.X, target_mask=1, target_offset=2), READ],
    ],
    "an offset inside a word of a clear": [
        *[nb.s(0), nb.x([0, 2]), nb.record(Opcode.CLEAR, target_mask=1, target_offset=2), READ],
    ],
    "an offset inside a word of a measurement": [
        *[nb.s(0), nb.x(2), nb.record(Opcode.READ, target_mask=1, target_offset=2, read_flag=2)],
        nb.h(0),
    ],
    "the offset of a written value": [
        nb.record(Opcode.WRITE, target_mask=1, cond_mask=1, cond_offset=64),
        READ,
    ],
    "the offset of a written value in a Clifford program": [
        *[nb.s(0), nb.record(Opcode.WRITE, target_mask=1, cond_mask=1, cond_offset=64), READ],
    ],
    "a qubit outside the register behind a jump over a reset": [*UNCLEAR, nb.x(2), READ],
    "the same in a Clifford program": [*UNCLEAR, nb.s(0), nb.x([1, 2]), READ],
}


@pytest.mark.parametrize("name", PROGRAMS)
def test_the_outcome_is_that_of_the_dense_filter(name: str) -> None:
    records = nb.program(nb.reset(3), *PROGRAMS[name])
    expected = nb.sample(records, 1, read_flags=WANTED, filter="StreamQPU")
    assert nb.sample(records, 1, read_flags=WANTED).counts() == expected.counts()


def test_a_swap_with_a_negated_target_keeps_a_program_off_the_sparse_filter() -> None:
    swap = nb.record(Opcode.SWAP, target_mask=3, cond_neg_mask=2)
    assert nb.choose_filter(nb.program(nb.reset(20), nb.t(0), swap)).name == "StreamQPU"


@pytest.mark.parametrize("opcode", [Opcode.PHASE, Opcode.T, Opcode.T_INV, Opcode.S, Opcode.S_INV])
def test_phases_of_two_targets_with_a_negated_one_stay_off_the_sparse_filter(
    opcode: Opcode,
) -> None:
    for targets, expected in ((1, "StreamSparseQPU"), (3, "StreamQPU")):
        gate = nb.record(opcode, angle=30.0, target_mask=targets, cond_neg_mask=1)
        assert nb.choose_filter(nb.program(nb.reset(20), nb.t(0), gate)).name == expected


def test_a_half_turn_of_two_targets_with_a_negated_one_stays_off_the_tableau() -> None:
    gate = nb.record(Opcode.PHASE, angle=180.0, target_mask=3, cond_neg_mask=2)
    assert nb.choose_filter(nb.program(nb.reset(3), nb.h(0), gate)).name == "StreamQPU"


def test_resets_to_one_size_behind_a_jump_leave_the_register_known() -> None:
    steps = [nb.read(0, 2), nb.jump_fwd(1, flag=2), nb.reset(3), nb.label(1), nb.x(2)]
    assert nb.choose_filter(nb.program(nb.reset(3), *steps)).name == "StreamBitQPU"


@pytest.mark.parametrize("before", [nb.x(0), nb.s(0)], ids=["classical", "clifford"])
def test_a_value_outside_the_register_fails_as_on_the_dense_filter(before: nb.Program) -> None:
    records = nb.program(
        nb.reset(2), before, nb.record(Opcode.WRITE, target_mask=3, cond_mask=7), nb.x(0)
    )
    with pytest.raises(RuntimeError, match="value 7 lies outside the register of 2 qubits"):
        nb.sample(records, 1)
