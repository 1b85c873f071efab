"""The record's layout, the opcode numbers, and how records become programs."""

from __future__ import annotations

import struct

import nimbrel as nb
import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

WORDS = (
    "opcode",
    "target_mask",
    "cond_mask",
    "angle",
    "cond_flag",
    "read_flag",
    "cond_neg_mask",
    "target_offset",
    "cond_offset",
    "reserved_a",
    "reserved_b",
)
UNSIGNED_WORDS = (
    "target_mask",
    "cond_mask",
    "cond_neg_mask",
    "target_offset",
    "cond_offset",
    "reserved_a",
    "reserved_b",
)
SIGNED_WORDS = ("cond_flag", "read_flag")

# Low 32 bits of every operation, written out so that a slip in the enum shows.
LOW_BITS = {
    "X": 0x00000005,
    "Y": 0x00000006,
    "PHASE": 0x00000008,
    "H": 0x00000009,
    "READ": 0x0000000A,
    "WRITE": 0x0000000B,
    "SWAP": 0x0000000C,
    "PPR": 0x0000000D,
    "PPM": 0x0000000E,
    "PCP": 0x00000013,
    "LELBOW": 0x00000014,
    "RX": 0x00000105,
    "RY": 0x00000106,
    "RZ": 0x00000107,
    "Z_NOP": 0x00000207,
    "T": 0x00000407,
    "S": 0x00000807,
    "Z": 0x00001007,
    "ROOTX": 0x00002005,
    "ROOTY": 0x00002006,
    "RELBOW": 0x00004014,
    "T_INV": 0x00004407,
    "S_INV": 0x00004807,
    "ROOTX_INV": 0x00006005,
    "ROOTY_INV": 0x00006006,
    "MARKER_10000000": 0x10000000,
    "RESET": 0x10000001,
    "MARKER_10000002": 0x10000002,
    "CLEAR": 0x10000003,
    "FLAG_NAND": 0x1000000F,
    "EXTEND": 0x10000010,
    "FETCH_REQUEST": 0x10000011,
    "MARKER_10000012": 0x10000012,
    "MARKER_10000015": 0x10000015,
    "MARKER_10000017": 0x10000017,
    "CALLBACK": 0x10000018,
    "OPEN_EVENT": 0x10000112,
    "OPEN_EVENT_2": 0x10000212,
    "JUMP_FWD": 0x10000216,
    "LABEL": 0x10000316,
    "MARKER_10000412": 0x10000412,
    "JUMP_FAMILY": 0x10000416,
    "JUMP_BACK": 0x10000516,
    "FREE": 0x10004003,
    "FETCH_REPLY": 0x10004011,
    "MARKER_10004012": 0x10004012,
    "MARKER_10004015": 0x10004015,
    "CLOSE_EVENT": 0x10004112,
    "CLOSE_EVENT_2": 0x10004212,
    "MARKER_10004412": 0x10004412,
    "MARKER_10008003": 0x10008003,
    "MARKER_1000C003": 0x1000C003,
}

unsigned = st.integers(0, 2**64 - 1)
signed = st.integers(-(2**63), 2**63 - 1)
words = st.fixed_dictionaries(
    {},
    optional={
        **dict.fromkeys(UNSIGNED_WORDS, unsigned),
        **dict.fromkeys(SIGNED_WORDS, signed),
        "angle": st.floats(allow_nan=False),
    },
)


def test_the_opcodes_are_exactly_those_of_the_engine() -> None:
    tagged = {name: 0x4E6D6272 << 32 | low for name, low in LOW_BITS.items()}
    assert {opcode.name: opcode.value for opcode in nb.Opcode} == tagged


def test_the_tag_spells_the_engine() -> None:
    assert nb.TAG.to_bytes(4, "big") == b"Nmbr"


def test_the_record_is_eleven_packed_little_endian_words() -> None:
    assert nb.QPU_OP.itemsize == 88
    assert nb.QPU_OP.names == WORDS
    fields = nb.QPU_OP.fields
    assert fields is not None
    assert [fields[name][1] for name in WORDS] == list(range(0, 88, 8))
    assert [nb.QPU_OP[name].str for name in WORDS] == (
        ["<u8"] * 3 + ["<f8"] + ["<i8"] * 2 + ["<u8"] * 5
    )


@given(opcode=unsigned, fields=words)
def test_a_record_holds_each_word_at_its_place(opcode: int, fields: dict[str, float]) -> None:
    expected = struct.pack("<QQQdqqQQQQQ", opcode, *(fields.get(name, 0) for name in WORDS[1:]))
    made = nb.record(opcode, **fields)
    assert made.shape == (1,)
    assert made.dtype == nb.QPU_OP
    assert made.tobytes() == expected


def test_a_record_takes_numpy_integers() -> None:
    mask = np.uint64(2**63)
    assert int(nb.record(nb.Opcode.X, target_mask=mask)["target_mask"][0]) == 2**63


@pytest.mark.parametrize("name", UNSIGNED_WORDS)
@pytest.mark.parametrize("value", [-1, 2**64])
def test_an_unsigned_word_refuses_what_does_not_fit(name: str, value: int) -> None:
    with pytest.raises(ValueError, match=rf"^{name} must be from 0 to {2**64 - 1}, not {value}$"):
        nb.record(nb.Opcode.X, **{name: value})


@pytest.mark.parametrize("name", SIGNED_WORDS)
@pytest.mark.parametrize("value", [-(2**63) - 1, 2**63])
def test_a_signed_word_refuses_what_does_not_fit(name: str, value: int) -> None:
    with pytest.raises(ValueError, match=rf"^{name} must be from -{2**63} to {2**63 - 1}, not"):
        nb.record(nb.Opcode.X, **{name: value})


def test_a_field_without_a_name_in_the_record_is_refused() -> None:
    with pytest.raises(TypeError, match="target_masks"):
        nb.record(nb.Opcode.X, target_masks=1)


@pytest.mark.parametrize("name", [*UNSIGNED_WORDS, *SIGNED_WORDS])
def test_a_fraction_is_refused_in_an_integer_word(name: str) -> None:
    with pytest.raises(TypeError, match=rf"^{name} must be an integer, not 1\.5$"):
        nb.record(nb.Opcode.X, **{name: 1.5})


def test_a_fraction_is_no_opcode() -> None:
    with pytest.raises(TypeError, match=r"^opcode must be an integer, not 5\.5$"):
        nb.record(5.5)  # type: ignore[arg-type]


def test_an_angle_may_be_an_integer_of_numpy() -> None:
    assert nb.record(nb.Opcode.RX, angle=np.int64(-90))["angle"][0] == -90.0


def test_a_program_joins_its_parts_in_order() -> None:
    first, second = nb.record(1), nb.program(nb.record(2), nb.record(3))
    joined = nb.program(first, second)
    assert joined.shape == (3,)
    assert joined.dtype == nb.QPU_OP
    assert joined["opcode"].tolist() == [1, 2, 3]


def test_a_program_of_nothing_is_empty() -> None:
    assert nb.program().shape == (0,)
    assert nb.program().dtype == nb.QPU_OP


def test_a_single_contiguous_part_is_not_copied() -> None:
    part = nb.program(nb.record(1), nb.record(2))
    assert nb.program(part) is part


@pytest.mark.parametrize("more", [(), (nb.record(9),)])
def test_a_strided_part_becomes_contiguous(more: tuple[nb.RecordArray, ...]) -> None:
    every_other = nb.program(*(nb.record(number) for number in range(6)))[::2]
    joined = nb.program(every_other, *more)
    assert joined.flags.c_contiguous
    assert joined["opcode"].tolist()[:3] == [0, 2, 4]


@pytest.mark.parametrize(
    "part",
    [
        np.zeros(88, dtype=np.uint8),
        np.zeros((1, 1), dtype=nb.QPU_OP),
        np.zeros((), dtype=nb.QPU_OP),
        [nb.record(1)],
    ],
    ids=["bytes", "two-dimensional", "scalar", "list"],
)
def test_a_part_that_is_no_record_array_is_refused(part: object) -> None:
    with pytest.raises(ValueError, match="one-dimensional arrays of dtype QPU_OP"):
        nb.program(nb.record(1), part)  # type: ignore[arg-type]
