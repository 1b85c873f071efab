"""X, elbows and swap with controls on the bit filter, and the state after a reset."""

from collections.abc import Callable

import nimbrel as nb
import pytest

from models.opcodes import EXTEND, LELBOW, RELBOW, RESET, SWAP, X
from models.program import NO_REGISTER
from support.driver import BitFilter, rec
from support.flag_conditions import CONDITIONS

MORE = "qc.swap() has more than two target bits, must have exactly two."
LESS = "qc.swap() has less than two target bits, must have exactly two."

NOT_GATES = pytest.mark.parametrize(
    "gate",
    [
        pytest.param(nb.x, id="x"),
        pytest.param(nb.lelbow, id="lelbow"),
        pytest.param(nb.relbow, id="relbow"),
    ],
)
Gate = Callable[..., nb.RecordArray]


def start(bits: BitFilter, state: str) -> None:
    """Prepares this state by X gates only, so that every qubit in state 1 is unsettled."""
    bits.run(nb.reset(len(state)), *(nb.x(q) for q, value in enumerate(state) if value == "1"))


def unsettled_ones(bits: BitFilter) -> list[int]:
    """The qubits that a gate has set to 1. Frees every qubit: each of these queues an event."""
    bits.debug()
    bits.events()
    bits.run(*(nb.free(q, check=True, event_code=q) for q in range(len(bits.state()))))
    return [code for _, _, code, _ in bits.events()]


@NOT_GATES
def test_flips_its_targets(bits: BitFilter, gate: Gate) -> None:
    start(bits, "00110")
    bits.run(gate((1, 2, 4)))
    assert bits.state() == "01011"


@NOT_GATES
@pytest.mark.parametrize(
    ("start_state", "end_state"),
    [("1010", "1011"), ("1011", "1010"), ("0010", "0010"), ("1110", "1110"), ("1000", "1000")],
)
def test_acts_when_controls_are_1_and_zeros_are_0(
    bits: BitFilter, gate: Gate, start_state: str, end_state: str
) -> None:
    start(bits, start_state)
    bits.run(gate(3, controls=(0, 2), zeros=1))
    assert bits.state() == end_state


@NOT_GATES
def test_a_failed_condition_leaves_the_settled_bits(bits: BitFilter, gate: Gate) -> None:
    start(bits, "10")
    bits.run(nb.read(0), gate(0, controls=1))
    assert bits.state() == "10"
    assert unsettled_ones(bits) == []


@NOT_GATES
def test_unsettles_a_qubit_just_read(bits: BitFilter, gate: Gate) -> None:
    start(bits, "01")
    bits.run(nb.read((0, 1)), gate(0))
    assert unsettled_ones(bits) == [0]


@NOT_GATES
@CONDITIONS
def test_obeys_the_classical_condition(bits: BitFilter, gate: Gate, flag: int, acts: bool) -> None:
    start(bits, "01")
    bits.run(nb.read(1, 2), gate(0, flag=flag))
    assert bits.state() == ("11" if acts else "01")


def test_a_target_may_be_its_own_condition(bits: BitFilter) -> None:
    start(bits, "10")
    bits.run(rec(X, target_mask=3, cond_mask=1))
    assert bits.state() == "01"


def test_a_negation_outside_the_conditions_never_holds(bits: BitFilter) -> None:
    start(bits, "100")
    bits.run(rec(X, target_mask=4, cond_mask=1, cond_neg_mask=2))
    assert bits.state() == "100"


def test_a_negation_without_conditions_is_not_looked_at(bits: BitFilter) -> None:
    start(bits, "100")
    bits.run(rec(X, target_mask=4, cond_neg_mask=1, cond_offset=1 << 50))
    assert bits.state() == "101"


def test_no_targets_is_no_error(bits: BitFilter) -> None:
    start(bits, "10")
    bits.run(rec(X), rec(LELBOW), rec(RELBOW))
    assert bits.state() == "10"


@pytest.mark.parametrize(
    ("before", "after"), [("10", "01"), ("01", "10"), ("00", "00"), ("11", "11")]
)
def test_swap_exchanges_two_qubits(bits: BitFilter, before: str, after: str) -> None:
    start(bits, before)
    bits.run(nb.swap(0, 1))
    assert bits.state() == after


def test_swap_over_words(bits: BitFilter) -> None:
    start(bits, "0" * 130)
    bits.run(nb.x(3), nb.swap(3, 129), nb.swap(129, 64))
    assert bits.state() == "0" * 64 + "1" + "0" * 65


@pytest.mark.parametrize("state", ["11", "10", "01"])
def test_swap_unsettles_both_qubits_even_when_equal(bits: BitFilter, state: str) -> None:
    start(bits, state)
    bits.run(nb.read((0, 1)), nb.swap(0, 1))
    swapped = [1 - qubit for qubit in (0, 1) if state[qubit] == "1"]
    assert unsettled_ones(bits) == sorted(swapped)


def test_a_conditioned_swap(bits: BitFilter) -> None:
    start(bits, "1000")
    bits.run(nb.swap(0, 1, controls=2))
    assert bits.state() == "1000"
    bits.run(nb.swap(0, 1, zeros=(2, 3)))
    assert bits.state() == "0100"


def test_a_swap_that_does_not_act_leaves_the_settled_bits(bits: BitFilter) -> None:
    start(bits, "110")
    bits.run(nb.read((0, 1)), nb.swap(0, 1, controls=2))
    assert unsettled_ones(bits) == []


@pytest.mark.parametrize("mask", [0b111, 0b1111, 2**64 - 1])
def test_a_swap_of_more_than_two(bits: BitFilter, mask: int) -> None:
    start(bits, "10110")
    bits.fails(MORE, rec(SWAP, target_mask=mask))
    assert bits.state() == "10110"
    assert unsettled_ones(bits) == [0, 2, 3]


@pytest.mark.parametrize("mask", [0, 1, 1 << 4])
def test_a_swap_of_less_than_two(bits: BitFilter, mask: int) -> None:
    start(bits, "10110")
    bits.fails(LESS, rec(SWAP, target_mask=mask))
    assert bits.state() == "10110"


def test_a_swap_counts_the_bits_of_all_words(bits: BitFilter) -> None:
    start(bits, "0" * 70)
    extension = rec(EXTEND, target_mask=0b11, target_offset=64)
    bits.fails(MORE, extension, rec(SWAP, target_mask=1))
    bits.run(extension, rec(SWAP))


@pytest.mark.parametrize("mask", [0, 1, 0b111])
def test_a_swap_whose_condition_fails_raises_nothing(bits: BitFilter, mask: int) -> None:
    start(bits, "0110")
    bits.run(rec(SWAP, target_mask=mask, cond_mask=8))
    bits.run(rec(SWAP, target_mask=mask, cond_flag=-1))
    assert bits.state() == "0110"


def test_hadamard_is_passed_over(bits: BitFilter) -> None:
    start(bits, "10")
    bits.run(nb.read(0), nb.h((0, 1)))
    assert bits.state() == "10"
    assert unsettled_ones(bits) == []


@pytest.mark.parametrize("num_qubits", [1, 2, 63, 64, 65, 128, 1000, 100_000])
def test_a_reset_sizes_the_register(bits: BitFilter, num_qubits: int) -> None:
    bits.run(nb.reset(num_qubits))
    assert bits.state() == "0" * num_qubits
    bits.run(nb.x(num_qubits - 1))
    assert bits.state() == "0" * (num_qubits - 1) + "1"


def test_a_second_reset_zeroes_everything(bits: BitFilter) -> None:
    start(bits, "1" * 70)
    bits.run(nb.reset(70))
    assert bits.state() == "0" * 70
    bits.run(nb.x(69), nb.reset(3), nb.reset(70))
    assert bits.state() == "0" * 70


def test_a_reset_forgets_what_was_settled(bits: BitFilter) -> None:
    bits.run(nb.reset(1), nb.write(0, 1), nb.reset(1), nb.x(0))
    assert unsettled_ones(bits) == [0]


def test_a_reset_to_no_qubits(bits: BitFilter) -> None:
    start(bits, "11")
    bits.run(nb.reset(0))
    bits.fails(NO_REGISTER, nb.x(0))
    bits.run(nb.reset(2))
    assert bits.state() == "00"


def test_a_reset_obeys_no_condition(bits: BitFilter) -> None:
    start(bits, "11")
    bits.run(rec(RESET, target_mask=3, cond_flag=-1, cond_mask=5))
    assert bits.state() == "000"
