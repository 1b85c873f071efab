"""Input that could make the engine access memory outside its arrays is refused."""

import re
from collections.abc import Callable
from types import ModuleType
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from models.opcodes import CLEAR, EXTEND, FREE, LELBOW, READ, RELBOW, SWAP, WRITE, X
from models.program import NO_REGISTER
from support.driver import BitFilter, failure_of, raises_engine_error, rec

GATES = [X, SWAP, LELBOW, RELBOW]
ALL = [*GATES, READ, WRITE, CLEAR, FREE]

each_record = pytest.mark.parametrize("low", [pytest.param(low, id=f"{low:08X}") for low in ALL])
each_gate = pytest.mark.parametrize("low", [pytest.param(low, id=f"{low:08X}") for low in GATES])


def outside(offset: int, num_qubits: int = 70) -> str:
    """The error of a record whose mask lies outside the register."""
    return f"Error: qubit offset {offset} lies outside the register of {num_qubits} qubits."


@pytest.fixture
def seventy(bits: BitFilter) -> BitFilter:
    """Seventy qubits, that is two words, with qubits 0 and 69 at 1, flag 2 at 1 and flag 3 at 0."""
    bits.run(nb.reset(70), nb.x((0, 69)), nb.read((0, 1), 2))
    bits.debug()
    return bits


STATE = "1" + "0" * 68 + "1"


def assert_untouched(bits: BitFilter) -> None:
    assert bits.state() == STATE
    assert bits.flags(2, 32) == 1
    assert bits.events() == []


@each_record
@pytest.mark.parametrize("offset", [128, 129, 191, 192, 1 << 20, 1 << 63, 2**64 - 64, 2**64 - 1])
def test_a_target_past_the_register(seventy: BitFilter, low: int, offset: int) -> None:
    record = rec(low, target_mask=1, target_offset=offset, read_flag=5)
    seventy.fails(outside(offset), nb.h(0), record, nb.x(1))
    assert_untouched(seventy)


@each_record
def test_a_target_in_an_extension_past_the_register(seventy: BitFilter, low: int) -> None:
    extension = rec(EXTEND, target_mask=1 << 63, target_offset=128)
    seventy.fails(outside(128), extension, rec(low, target_mask=1, read_flag=5))
    assert_untouched(seventy)


@each_gate
def test_a_condition_past_the_register(seventy: BitFilter, low: int) -> None:
    seventy.fails(outside(200), rec(low, target_mask=3, cond_mask=1, cond_offset=200))
    extension = rec(EXTEND, cond_mask=1, cond_offset=2**64 - 1)
    seventy.fails(outside(2**64 - 1), extension, rec(low, target_mask=3))
    assert_untouched(seventy)


def test_a_written_value_past_the_register(seventy: BitFilter) -> None:
    seventy.fails(outside(128), rec(WRITE, target_mask=3, cond_mask=1, cond_offset=128))
    seventy.fails(outside(128), rec(WRITE, cond_mask=1, cond_offset=128))
    assert_untouched(seventy)


@pytest.mark.parametrize("low", [WRITE, CLEAR, FREE])
def test_an_extended_value_past_the_register(seventy: BitFilter, low: int) -> None:
    seventy.fails(outside(130), rec(EXTEND, cond_mask=1, cond_offset=130), rec(low, target_mask=3))
    assert_untouched(seventy)


def test_a_read_looks_at_no_condition_offsets(seventy: BitFilter) -> None:
    seventy.run(
        rec(EXTEND, cond_mask=1, cond_offset=1 << 40),
        rec(READ, target_mask=1, cond_mask=1, cond_offset=1 << 40, read_flag=9),
    )
    assert seventy.flag(9) == 1


@pytest.mark.parametrize("low", [CLEAR, FREE])
def test_clear_and_free_have_no_value_to_look_at(seventy: BitFilter, low: int) -> None:
    seventy.run(rec(low, target_mask=2, cond_mask=16, cond_offset=1 << 40))


@pytest.mark.parametrize("low", [low for low in ALL if low != SWAP])
def test_the_offset_of_an_empty_mask_is_not_looked_at(seventy: BitFilter, low: int) -> None:
    seventy.run(
        rec(EXTEND, target_offset=1 << 40, cond_offset=1 << 40, cond_neg_mask=1),
        rec(low, target_offset=2**64 - 1, cond_offset=2**64 - 1, cond_neg_mask=1, read_flag=9),
    )
    assert_untouched(seventy)


def test_targets_are_tested_before_conditions_and_own_masks_first(seventy: BitFilter) -> None:
    own = {"target_mask": 1, "target_offset": 1001, "cond_mask": 1, "cond_offset": 1002}
    first = {"target_mask": 1, "target_offset": 1003, "cond_mask": 1, "cond_offset": 1004}
    second = {"target_mask": 1, "target_offset": 1005, "cond_mask": 1, "cond_offset": 1006}
    order = (1001, 1003, 1005, 1002, 1004, 1006)
    for offset in order:
        extensions = (rec(EXTEND, **first), rec(EXTEND, **second))
        for low in (X, SWAP, WRITE):
            seventy.fails(outside(offset), *extensions, rec(low, **own))
        for words in (own, first, second):  # correct the offset that was reported
            words.update({word: 0 for word, value in words.items() if value == offset})
    assert_untouched(seventy)


@each_record
def test_the_register_is_tested_before_the_offset(bits: BitFilter, low: int) -> None:
    bits.fails(NO_REGISTER, rec(low, target_mask=1, target_offset=1 << 40))


@each_record
@pytest.mark.parametrize("flag", [-1, 3, -2, 500, -500])
def test_the_classical_condition_is_tested_before_the_offset(
    seventy: BitFilter, low: int, flag: int
) -> None:
    seventy.run(rec(low, target_mask=1, target_offset=1 << 40, cond_flag=flag, read_flag=9))
    assert_untouched(seventy)


@each_gate
def test_the_offset_is_tested_before_the_quantum_condition(seventy: BitFilter, low: int) -> None:
    seventy.fails(outside(128), rec(low, target_mask=7, target_offset=128, cond_mask=2))
    extension = rec(EXTEND, cond_mask=1, cond_offset=128)
    seventy.fails(outside(128), extension, rec(low, target_mask=7, cond_mask=2))


def test_the_offset_is_tested_before_a_swap_counts_its_targets(seventy: BitFilter) -> None:
    seventy.fails(outside(128), rec(SWAP, target_mask=7, target_offset=128))


@each_record
def test_a_failed_record_has_emptied_the_extensions(seventy: BitFilter, low: int) -> None:
    extensions = (
        rec(EXTEND, target_mask=2, target_offset=64, cond_mask=2),
        rec(EXTEND, target_mask=1, target_offset=128),
    )
    seventy.fails(outside(128), *extensions, rec(low, target_mask=1))
    seventy.run(rec(X, target_mask=2), rec(X, target_mask=2))
    assert_untouched(seventy)


def test_earlier_pairs_of_a_failed_record_are_untouched(seventy: BitFilter) -> None:
    extension = rec(EXTEND, target_mask=1, target_offset=128)
    seventy.fails(outside(128), extension, rec(FREE, target_mask=1, cond_mask=16, read_flag=1))
    seventy.fails(outside(128), extension, rec(READ, target_mask=1, read_flag=9))
    assert_untouched(seventy)


def test_an_offset_that_an_earlier_register_had(bits: BitFilter) -> None:
    bits.run(nb.reset(200), nb.x(192), nb.reset(70))
    bits.fails(outside(192), nb.x(192))
    bits.run(nb.reset(64))
    bits.fails(outside(64, 64), nb.x(64))


def test_the_rest_of_the_last_word_may_be_used(bits: BitFilter) -> None:
    bits.run(nb.reset(3), nb.x((2, 3, 63)), nb.read((2, 3, 62, 63), 2), nb.swap(1, 63))
    assert bits.flags(2, 4) == 0b1011
    assert bits.state() == "011"


def assert_too_large(bits: BitFilter, num_qubits: int, *more: np.ndarray) -> None:
    """Expects a refusal that states the memory needed and the memory available."""
    failure = failure_of(lambda: bits.run(nb.reset(num_qubits), *more))
    text = (
        rf"RuntimeError\('Error: qc\.reset\(\) could not allocate a register of {num_qubits} "
        r"qubits\. It needs [0-9.e+]+ TB, and the process may have [0-9.]+ [KMGT]B more\.'\)"
    )
    assert re.fullmatch(text, failure)


@pytest.mark.parametrize("num_qubits", [2**50, 2**62, 2**63, 2**64 - 64, 2**64 - 63, 2**64 - 1])
def test_a_register_too_large_for_memory(seventy: BitFilter, num_qubits: int) -> None:
    assert_too_large(seventy, num_qubits, nb.x(1))
    assert_untouched(seventy)
    seventy.run(nb.x(69))
    assert seventy.state() == "1" + "0" * 69
    seventy.fails(outside(128), nb.x(128))


def test_a_vast_register_on_an_empty_filter(bits: BitFilter) -> None:
    assert_too_large(bits, 2**64 - 1)
    bits.fails(NO_REGISTER, nb.x(0))


Array = np.ndarray[Any, Any]
Put = Callable[[Array], None]


@pytest.fixture
def put(engine: ModuleType, bits: BitFilter) -> Put:
    """Passes an array to the filter, with the length of its first dimension."""

    def hand_over(records: Array) -> None:
        engine.put_instructions(bits.handle, records, len(records))

    return hand_over


PROGRAM = nb.program(nb.reset(3), nb.x(1), nb.x(2))
WORDS = PROGRAM.view(np.uint64).reshape(3, 11)


def misaligned(records: nb.RecordArray) -> nb.RecordArray:
    """The same records at an address one byte past an aligned one."""
    space = b"\0" + records.tobytes()
    return np.frombuffer(space, dtype=nb.QPU_OP, offset=1)


@pytest.mark.parametrize(
    "records",
    [
        pytest.param(PROGRAM, id="records"),
        pytest.param(WORDS, id="words"),
        pytest.param(WORDS.view(np.int64), id="signed-words"),
        pytest.param(WORDS.view(np.float64), id="doubles"),
        pytest.param(PROGRAM.view(np.uint8).reshape(3, 88), id="bytes"),
        pytest.param(PROGRAM.view("V88"), id="void"),
        pytest.param(PROGRAM.reshape(3, 1), id="column"),
        pytest.param(WORDS.reshape(3, 1, 11), id="three-dimensions"),
        pytest.param(np.concatenate((PROGRAM, PROGRAM))[:3], id="slice"),
        pytest.param(misaligned(PROGRAM), id="misaligned"),
        pytest.param(misaligned(PROGRAM).view(np.uint64).reshape(3, 11), id="misaligned-words"),
    ],
)
def test_records_back_to_back_are_taken(put: Put, bits: BitFilter, records: Array) -> None:
    put(records)
    assert bits.state() == "011"


def test_a_single_record_has_no_distance_to_the_next(put: Put, bits: BitFilter) -> None:
    put(PROGRAM[::3])
    assert bits.state() == "000"


@pytest.mark.parametrize(
    ("records", "needed", "held"),
    [
        pytest.param(np.zeros(3, dtype=np.uint64), 264, 24, id="words"),
        pytest.param(np.zeros(88, dtype=np.uint8), 7744, 88, id="bytes"),
        pytest.param(np.zeros((2, 12), dtype=np.uint64), 176, 192, id="too-long"),
        pytest.param(np.zeros((2, 10), dtype=np.uint64), 176, 160, id="too-short"),
        pytest.param(np.zeros((2, 0)), 176, 0, id="nothing"),
        pytest.param(np.zeros((1, 11), dtype=np.float32), 88, 44, id="half-words"),
        pytest.param(np.zeros(5, dtype="V87"), 440, 435, id="void"),
        pytest.param(np.zeros(2, dtype="V0"), 176, 0, id="empty-void"),
        pytest.param(np.zeros((2, 2), dtype=nb.QPU_OP), 176, 352, id="two-in-a-row"),
        pytest.param(np.zeros((4, 12), dtype=np.uint64)[::2], 176, 192, id="strided-and-long"),
    ],
)
def test_rows_that_are_no_records(put: Put, records: Array, needed: int, held: int) -> None:
    text = (
        "Error: put_instructions needs contiguous records of 88 bytes: "
        f"{len(records)} records need {needed} bytes, but the array holds {held}."
    )
    with raises_engine_error(text):
        put(records)


@pytest.mark.parametrize(
    ("records", "stride"),
    [
        pytest.param(np.repeat(PROGRAM, 2)[::2], 176, id="every-second"),
        pytest.param(PROGRAM[::-1], -88, id="reversed"),
        pytest.param(np.broadcast_to(PROGRAM[0], (3,)), 0, id="broadcast"),
        pytest.param(np.asfortranarray(WORDS), 8, id="column-major"),
        pytest.param(WORDS[:, ::-1], 88, id="words-reversed"),
        pytest.param(np.zeros((3, 12), dtype=np.uint64)[:, :11], 96, id="padded"),
        pytest.param(np.zeros((3, 22), dtype=np.uint64)[:, ::2], 176, id="every-second-word"),
    ],
)
def test_records_with_gaps(put: Put, bits: BitFilter, records: Array, stride: int) -> None:
    text = (
        "Error: put_instructions needs contiguous records of 88 bytes, "
        f"but the array's are {stride} bytes apart."
    )
    with raises_engine_error(text):
        put(records)
    with raises_engine_error(NO_REGISTER):
        bits.state()


@pytest.mark.parametrize(
    "records",
    [
        pytest.param(np.zeros(0), id="doubles"),
        pytest.param(np.zeros(0, dtype=np.uint8), id="bytes"),
        pytest.param(np.zeros((0, 5)), id="rows"),
        pytest.param(PROGRAM[:0], id="records"),
        pytest.param(PROGRAM[:0:-5][:0], id="strided"),
    ],
)
def test_no_records_always_pass(put: Put, records: Array) -> None:
    put(records)


def test_the_length_is_compared_before_the_layout(engine: ModuleType, bits: BitFilter) -> None:
    text = "Error: put_instructions array length differs from num_ops argument."
    for records in (np.zeros(3, dtype=np.uint64), PROGRAM[::-1], np.zeros((0, 5))):
        with raises_engine_error(text):
            engine.put_instructions(bits.handle, records, len(records) + 1)


@pytest.mark.parametrize("dtype", [np.uint8, np.uint64, nb.QPU_OP])
def test_an_array_without_dimensions_has_no_length(
    engine: ModuleType, bits: BitFilter, dtype: type
) -> None:
    text = "Error: put_instructions array length differs from num_ops argument."
    with raises_engine_error(text):
        engine.put_instructions(bits.handle, np.zeros((), dtype=dtype), 1)


def test_a_refused_array_runs_no_record(put: Put, bits: BitFilter) -> None:
    put(nb.program(nb.reset(3)))
    with pytest.raises(SystemError):
        put(np.repeat(nb.x(0), 6)[::2])
    assert bits.state() == "000"
