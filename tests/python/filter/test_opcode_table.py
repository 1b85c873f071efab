"""Every opcode number on the bit filter: carried out, ignored, refused or unknown."""

import nimbrel as nb
import pytest

from models.opcodes import CALLBACK, JUMP_BACK
from models.program import NO_REGISTER
from support.driver import BitFilter, op, rec
from support.record_loop_programs import assert_foreign_tags_unknown, assert_neighbours_unknown

PASSED_OVER = [
    0x00000009,
    0x00000207,
    0x10000000,
    0x10000002,
    0x10000011,
    0x10000012,
    0x10000015,
    0x10000017,
    0x10000412,
    0x10000416,
    0x10004011,
    0x10004012,
    0x10004015,
    0x10004412,
    0x10008003,
    0x1000C003,
]

REFUSED = [
    (0x00000006, "qc.y has not been implemented for the Bit sim."),
    (0x00000008, "qc.phase has not been implemented for the Bit sim."),
    (0x0000000D, "qc.ppr has not been implemented for the Bit sim."),
    (0x0000000E, "qc.ppm has not been implemented for the Bit sim."),
    (0x00000013, "qc.pcp has not been implemented for the Bit sim."),
    (0x00000105, "qc.rx has not been implemented for the Bit sim."),
    (0x00000106, "qc.ry has not been implemented for the Bit sim."),
    (0x00000107, "qc.t has not been implemented for the Bit sim."),
    (0x00000407, "qc.t has not been implemented for the Bit sim."),
    (0x00000807, "qc.s has not been implemented for the Bit sim."),
    (0x00001007, "qc.z has not been implemented for the Bit sim."),
    (0x00002005, "qc.rootx has not been implemented for the Bit sim."),
    (0x00002006, "qc.rooty has not been implemented for the Bit sim."),
    (0x00004407, "qc.t_inv has not been implemented for the Bit sim."),
    (0x00004807, "qc.OP_qc_s_inv has not been implemented for the Bit sim."),
    (0x00006005, "qc.rootx_inv has not been implemented for the Bit sim."),
    (0x00006006, "qc.rooty_inv has not been implemented for the Bit sim."),
]

NEED_A_REGISTER = [
    0x00000005,
    0x0000000A,
    0x0000000B,
    0x0000000C,
    0x00000014,
    0x00004014,
    0x10000003,
    0x10004003,
]

CARRIED_OUT_WITHOUT_A_REGISTER = [
    0x1000000F,
    0x10000010,
    0x10000112,
    0x10000212,
    0x10000216,
    0x10000316,
    0x10004112,
    0x10004212,
]

# The record loop refuses the backward jump, the shared dispatch refuses the callback.
FAILS_IN_EVERY_FILTER = [CALLBACK, JUMP_BACK]

KNOWN = {
    *PASSED_OVER,
    *(low for low, _ in REFUSED),
    *NEED_A_REGISTER,
    *CARRIED_OUT_WITHOUT_A_REGISTER,
    *FAILS_IN_EVERY_FILTER,
    0x10000001,
}


def lows(numbers: list[int]) -> pytest.MarkDecorator:
    """One test case for each low half of an opcode, named in hexadecimal."""
    return pytest.mark.parametrize("low", [pytest.param(n, id=f"{n:08X}") for n in numbers])


def test_the_rows_above_are_the_whole_table() -> None:
    assert len(KNOWN) == 52
    assert {op(low) for low in KNOWN} == {int(opcode) for opcode in nb.Opcode}


@lows(PASSED_OVER)
def test_passed_over_without_a_word(bits: BitFilter, low: int) -> None:
    every_word_set = rec(
        low,
        target_mask=3,
        cond_mask=1,
        angle=90.0,
        cond_flag=1,
        read_flag=2,
        target_offset=1 << 40,
        cond_offset=1 << 40,
    )
    bits.run(every_word_set)
    bits.run(nb.reset(3), nb.x(1), every_word_set)
    assert bits.state() == "010"
    assert bits.flags(0, 32) == 2
    assert bits.events() == []


@pytest.mark.parametrize(
    ("low", "text"), [pytest.param(low, text, id=f"{low:08X}") for low, text in REFUSED]
)
def test_refused_by_name(bits: BitFilter, low: int, text: str) -> None:
    bits.fails(text, rec(low, target_mask=1))
    bits.run(nb.reset(2), nb.x(0))
    bits.fails(text, rec(low, target_mask=1, angle=180.0))
    bits.fails(text, rec(low, target_mask=1, cond_flag=-1))
    assert bits.state() == "10"


@lows(NEED_A_REGISTER)
def test_needs_a_register_before_it_looks_at_its_condition(bits: BitFilter, low: int) -> None:
    bits.fails(NO_REGISTER, rec(low, target_mask=1))
    bits.fails(NO_REGISTER, rec(low, target_mask=1, cond_flag=-1))
    bits.fails(NO_REGISTER, rec(low))
    bits.fails(NO_REGISTER, rec(low, target_mask=1, target_offset=1 << 40))


@lows(NEED_A_REGISTER)
def test_a_reset_to_no_qubits_leaves_no_register(bits: BitFilter, low: int) -> None:
    bits.run(nb.reset(65), nb.reset(0))
    bits.fails(NO_REGISTER, rec(low, target_mask=1))


@lows(CARRIED_OUT_WITHOUT_A_REGISTER)
def test_needs_no_register(bits: BitFilter, low: int) -> None:
    bits.run(rec(low, cond_flag=-1))


@pytest.mark.parametrize("key", [0, 7, -1, 2**63 - 1, -(2**63)])
def test_a_callback_has_no_handler(bits: BitFilter, key: int) -> None:
    bits.fails(f"Unhandled callback:[lookup:({key})]", rec(CALLBACK, read_flag=key))
    bits.fails(f"Unhandled callback:[lookup:({key})]", rec(CALLBACK, read_flag=key, cond_flag=-1))


@pytest.mark.parametrize(
    ("opcode", "digits"),
    [
        (0, "0"),
        (1, "1"),
        (0x05, "5"),  # X without the tag
        (0x4E6D627300000005, "4e6d627300000005"),  # X under a foreign tag
        (0x4E6D627200000000, "4e6d627200000000"),
        (0x4E6D627200000007, "4e6d627200000007"),
        (0x4E6D627200000004, "4e6d627200000004"),
        (0x4E6D627210000004, "4e6d627210000004"),
        (0x4E6D62721000000A, "4e6d62721000000a"),
        (0x4E6D627210000112 | 1 << 63, "ce6d627210000112"),
        (2**64 - 1, "ffffffffffffffff"),
    ],
)
def test_an_unknown_opcode(bits: BitFilter, opcode: int, digits: str) -> None:
    bits.fails(f"Error: Unknown opcode: 0x{digits}\n", nb.record(opcode, target_mask=1))


def test_every_other_number_near_the_table_is_unknown(bits: BitFilter) -> None:
    assert_neighbours_unknown(bits)


def test_a_known_opcode_under_a_foreign_tag_is_unknown(bits: BitFilter) -> None:
    assert_foreign_tags_unknown(bits)
