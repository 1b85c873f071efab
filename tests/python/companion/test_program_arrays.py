"""A program is an ordinary NumPy array in all but its text."""

from __future__ import annotations

import copy
import pickle

import _lib_nb_sim
import nimbrel as nb
import numpy as np
import pytest

RECORDS = nb.program(nb.reset(3), nb.x(0), nb.rx(30, 1, controls=0), nb.read([0, 1, 2], 2))


@pytest.mark.parametrize(
    "records",
    [
        nb.h(0),
        nb.h([0, 70]),
        nb.rx(30, 1),
        nb.reset(3),
        nb.read(0, 2),
        nb.ppr(45, 0, 1),
        nb.label(3),
        nb.record(5),
        nb.cz(0, 1),
        nb.swap(0, 1),
    ],
)
def test_builders_return_arrays_of_records_that_can_be_changed(records: nb.RecordArray) -> None:
    assert isinstance(records, np.ndarray)
    assert (records.dtype, records.ndim) == (nb.QPU_OP, 1)
    assert records.flags.writeable
    assert records.flags.c_contiguous


@pytest.mark.parametrize(
    "records",
    [
        nb.program(),
        nb.program(nb.h(0)),
        nb.program(nb.h(0), nb.x(1)),
        nb.program(np.zeros(2, dtype=nb.QPU_OP)),
        nb.program(RECORDS[::2], RECORDS),
        RECORDS[1:],
        nb.h.each([]),
        nb.h.each([1, 2]),
    ],
)
def test_programs_are_of_their_own_class(records: nb.RecordArray) -> None:
    assert type(records) is nb.Program
    assert (records.dtype, records.ndim) == (nb.QPU_OP, 1)
    assert records.flags.writeable


def test_a_single_contiguous_part_is_returned_itself() -> None:
    assert nb.program(RECORDS) is RECORDS
    plain = np.zeros(2, dtype=nb.QPU_OP)
    assert np.shares_memory(nb.program(plain), plain)
    assert not np.shares_memory(nb.program(RECORDS[::2]), RECORDS)


def test_parts_of_any_layout_are_joined_in_order() -> None:
    plain = np.array(RECORDS[::-1])
    joined = nb.program(RECORDS[::2], plain, RECORDS[3:])
    expected = RECORDS[::2].tobytes() + plain.tobytes() + RECORDS[3:].tobytes()
    assert joined.tobytes() == expected


def test_a_word_of_all_records_is_a_plain_array() -> None:
    masks = RECORDS["target_mask"]
    assert type(masks) is np.ndarray
    masks[1] = 1
    assert RECORDS["target_mask"].tolist() == [3, 1, 2, 7]
    assert isinstance(RECORDS["angle"].sum(), np.float64)


def test_one_record_is_a_scalar_with_its_words() -> None:
    assert RECORDS[2]["angle"] == 30.0
    assert float(RECORDS[2]["angle"]) + 1 == 31.0
    assert RECORDS[2].item()[1] == 2


def test_comparisons_are_plain_arrays() -> None:
    assert type(RECORDS == RECORDS) is np.ndarray
    assert (RECORDS.copy() == RECORDS).tolist() == [True] * 4
    assert (RECORDS[::-1] != RECORDS).tolist() == [True] * 4


@pytest.mark.parametrize(
    "copied", [copy.copy, copy.deepcopy, lambda records: pickle.loads(pickle.dumps(records))]
)
def test_copies_are_programs_of_their_own(copied: object) -> None:
    assert callable(copied)
    other = copied(RECORDS)
    assert type(other) is nb.Program
    assert other.tobytes() == RECORDS.tobytes()
    assert not np.shares_memory(other, RECORDS)


def test_the_engine_takes_a_program_and_its_slices_in_place() -> None:
    handle = _lib_nb_sim.new_native_filter("StreamQPU")
    _lib_nb_sim.put_instructions(handle, RECORDS[:3], 3)
    _lib_nb_sim.put_instructions(handle, RECORDS[3:], 1)
    assert _lib_nb_sim.fetch_read_result(handle, 2, 1) == 1
    _lib_nb_sim.delete_native_filter(handle)


def test_a_change_between_two_runs_takes_effect() -> None:
    records = nb.program(nb.reset(2), nb.x(0), nb.read([0, 1], 2))
    with nb.Simulator("StreamBitQPU") as simulator:
        simulator.run(records)
        assert simulator.flags(2, 2) == 0b01
        records["target_mask"][1] = 0b10
        simulator.run(records)
        assert simulator.flags(2, 2) == 0b10
