"""The record's fields, the opcode numbers, and how records become programs."""

from __future__ import annotations

import struct

import nimbrel as nb
import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st

from models import opcodes

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
    low_bits = {name: low for name, low in vars(opcodes).items() if isinstance(low, int)}
    tagged = {name: 0x4E6D6272 << 32 | low for name, low in low_bits.items()}
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
