"""Access to the bit state: pull_state, peek_read_probability, postselect; push_state is refused."""

from types import ModuleType

import nimbrel as nb
import numpy as np
import pytest

from models.program import NO_REGISTER
from support.driver import BitFilter, raises_engine_error

NO_MASK = "qc.peek_read_probability() must specify at least one qubit to measure."
NO_MATCH = "qc.postselect() no non-zero terms match the desired value."
NO_PUSH = "qc.push_state() has not been implemented for the Clifford sim."
AMPLITUDES = np.full(4, 0.5 + 0.25j)


@pytest.fixture
def five(bits: BitFilter) -> BitFilter:
    """Five qubits, of which 0, 2 and 3 are 1."""
    bits.run(nb.reset(5), nb.x((0, 2, 3)))
    return bits


def test_the_state_is_text_with_qubit_0_first(five: BitFilter) -> None:
    assert five.state() == "10110"


def test_seventy_qubits_are_seventy_characters(bits: BitFilter) -> None:
    bits.run(nb.reset(70), nb.x((1, 63, 64, 69)))
    assert bits.state() == "01" + "0" * 61 + "11" + "0000" + "1"


def test_every_call_starts_with_an_empty_text(five: BitFilter) -> None:
    assert [five.state() for _ in range(3)] == ["10110"] * 3


def test_a_failed_call_leaves_no_text_behind(engine: ModuleType, five: BitFilter) -> None:
    five.state()
    empty = BitFilter(engine)
    with raises_engine_error(NO_REGISTER):
        empty.state()
    empty.run(nb.reset(1))
    assert empty.state() == "0"
    empty.close()


@pytest.mark.parametrize("length", [0, 1, 4])
def test_the_buffer_is_not_used(engine: ModuleType, five: BitFilter, length: int) -> None:
    buffer = AMPLITUDES.copy()
    assert engine.pull_state(five.handle, buffer[:length]) == "10110"
    assert np.array_equal(buffer, AMPLITUDES)


def test_unused_bits_of_the_last_word_are_not_shown(bits: BitFilter) -> None:
    bits.run(nb.reset(3), nb.x((1, 3, 40, 63)))
    assert bits.state() == "010"


@pytest.mark.parametrize("reset", [(), (nb.reset(5), nb.reset(0))])
def test_without_a_register(
    engine: ModuleType, bits: BitFilter, reset: tuple[nb.RecordArray, ...]
) -> None:
    bits.run(*reset)
    with raises_engine_error(NO_REGISTER):
        bits.state()
    for mask in (0, 1):
        with raises_engine_error(NO_REGISTER):
            engine.peek_read_probability(bits.handle, 0, mask, 0.0)
        with raises_engine_error(NO_REGISTER):
            engine.postselect(bits.handle, 0, mask)
    with raises_engine_error(NO_PUSH):
        engine.push_state(bits.handle, AMPLITUDES, 0)


@pytest.mark.parametrize(
    ("value", "mask", "probability"),
    [
        (0b01101, 0b11111, 1.0),
        (0b01100, 0b11111, 0.0),
        (0b00000, 0b10010, 1.0),
        (0b00010, 0b10010, 0.0),
        (0b11111, 0b01101, 1.0),  # bits of the value outside the mask are ignored
        (0b00001, 0b00001, 1.0),
        (0b00000, 0b00001, 0.0),
        (0, 1 << 31, 1.0),
    ],
)
@pytest.mark.parametrize("limit", [0.0, 1.0, -5.0])
def test_peek_is_certain(
    engine: ModuleType, five: BitFilter, value: int, mask: int, probability: float, limit: float
) -> None:
    assert engine.peek_read_probability(five.handle, value, mask, limit) == probability
    assert five.state() == "10110"


def test_peek_without_qubits(engine: ModuleType, five: BitFilter) -> None:
    with raises_engine_error(NO_MASK):
        engine.peek_read_probability(five.handle, 1, 0, 0.0)


def test_peek_and_postselect_take_masks_of_32_bits(engine: ModuleType, five: BitFilter) -> None:
    with raises_engine_error(NO_MASK):
        engine.peek_read_probability(five.handle, 1, 1 << 32, 0.0)
    with raises_engine_error(NO_MASK):
        engine.postselect(five.handle, 1, 1 << 32)
    assert engine.peek_read_probability(five.handle, 2**32 + 1, 2**32 + 1, 0.0) == 1.0


def test_peek_and_postselect_see_the_first_word_only(engine: ModuleType, bits: BitFilter) -> None:
    bits.run(nb.reset(65), nb.x(64))
    assert engine.peek_read_probability(bits.handle, 0, 2**32 - 1, 0.0) == 1.0
    assert engine.peek_read_probability(bits.handle, 1, 1, 0.0) == 0.0
    assert engine.postselect(bits.handle, 0, 2**32 - 1) is None


def test_peek_does_not_settle(engine: ModuleType, five: BitFilter) -> None:
    five.debug()
    engine.peek_read_probability(five.handle, 1, 1, 0.0)
    engine.postselect(five.handle, 1, 1)
    five.run(nb.free(0, check=True, event_code=8))
    assert [code for _, _, code, _ in five.events()] == [8]


@pytest.mark.parametrize(("value", "mask"), [(0b01101, 0b11111), (0b11111, 0b01100), (0, 0b10)])
def test_postselect_of_a_match_changes_nothing(
    engine: ModuleType, five: BitFilter, value: int, mask: int
) -> None:
    assert engine.postselect(five.handle, value, mask) is None
    assert five.state() == "10110"


@pytest.mark.parametrize(("value", "mask"), [(0b01100, 0b11111), (0, 0b00001), (0b10, 0b10)])
def test_postselect_of_a_mismatch(
    engine: ModuleType, five: BitFilter, value: int, mask: int
) -> None:
    with raises_engine_error(NO_MATCH):
        engine.postselect(five.handle, value, mask)
    assert five.state() == "10110"


def test_postselect_without_qubits_borrows_the_text_of_peek(
    engine: ModuleType, five: BitFilter
) -> None:
    with raises_engine_error(NO_MASK):
        engine.postselect(five.handle, 0b01101, 0)


def test_push_state_is_refused_in_the_words_of_another_filter(
    engine: ModuleType, five: BitFilter
) -> None:
    with raises_engine_error(NO_PUSH):
        engine.push_state(five.handle, AMPLITUDES, 0)
    assert five.state() == "10110"
