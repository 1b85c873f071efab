"""Which qubits the engine knows to be classical, observed by a checked free.

A checked free writes 0 to a qubit that is known to be classical, and asserts that others are 0.
"""

from types import ModuleType

import pytest

from models.opcodes import FREE, PCP, PHASE, PPM, PPR, READ, RX, RY, RZ, SWAP, WRITE, H, T, X, Y, Z
from support.dense import DenseFilter, Setting, basis, open_dense, reset, settings
from support.driver import rec

QUBITS = 3


def known_of(filter_: DenseFilter) -> int:
    """The mask of known qubits; all qubits must be 1, and the known ones are 0 afterwards."""
    assert filter_.events() == []
    known = 0
    for qubit in range(QUBITS):
        filter_.run(rec(FREE, target_mask=1 << qubit, cond_mask=0x10))
        if not filter_.events():
            known |= 1 << qubit
    return known


def ones(filter_: DenseFilter) -> None:
    """All qubits 1 and known to be classical."""
    filter_.run(rec(WRITE, target_mask=7, cond_mask=7))


@pytest.fixture(params=settings([1, 3]), ids=str)
def setting(request: pytest.FixtureRequest) -> Setting:
    chosen: Setting = request.param
    return chosen


def known_after(engine: ModuleType, setting: Setting, *parts: object) -> int:
    """What is known after records that leave all qubits 1."""
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.call("enable_qubit_debugging", 1)
        ones(filter_)
        filter_.run(*parts)  # type: ignore[arg-type]
        return known_of(filter_)


def test_a_write_makes_known(engine: ModuleType, setting: Setting) -> None:
    assert known_after(engine, setting) == 7


def test_a_reset_makes_unknown(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.call("enable_qubit_debugging", 1)
        filter_.run(rec(X, target_mask=7))
        assert known_of(filter_) == 0


@pytest.mark.parametrize(
    ("low", "times", "degrees"),
    [
        (X, 2, 0.0), (0x14, 2, 0.0), (0x4014, 2, 0.0), (Y, 2, 0.0), (H, 2, 0.0),
        (0x2005, 4, 0.0), (0x6005, 4, 0.0), (0x2006, 4, 0.0), (0x6006, 4, 0.0),
        (RX, 2, 180.0), (RY, 2, 180.0), (RZ, 1, 30.0), (PPR, 2, 90.0), (PPR, 1, 0.0),
    ],
)  # fmt: skip
def test_gates_that_can_change_a_qubit_forget_it(
    engine: ModuleType, setting: Setting, low: int, times: int, degrees: float
) -> None:
    gate = rec(low, target_mask=0b101, angle=degrees)
    assert known_after(engine, setting, *[gate] * times) == 0b010
    # A target outside the register and a false condition change nothing.
    outside = rec(low, target_mask=8, angle=degrees)
    failing = rec(low, target_mask=7, angle=degrees, cond_flag=-1)
    assert known_after(engine, setting, outside, failing) == 7


@pytest.mark.parametrize("low", [PHASE, Z, T, 0x807, 0x4407, 0x4807])
def test_diagonal_gates_keep_what_is_known(engine: ModuleType, setting: Setting, low: int) -> None:
    gate = rec(low, target_mask=0b101, cond_mask=0b010, angle=50.0)
    assert known_after(engine, setting, gate) == 7


@pytest.mark.parametrize("low", [RX, RY, RZ])
def test_a_rotation_by_nothing_keeps_what_is_known(
    engine: ModuleType, setting: Setting, low: int
) -> None:
    gates = [rec(low, target_mask=7, angle=degrees) for degrees in (0.0, -0.0)]
    assert known_after(engine, setting, *gates) == 7


def test_the_z_qubits_of_a_product_are_forgotten_too(engine: ModuleType, setting: Setting) -> None:
    assert known_after(engine, setting, rec(PPR, cond_mask=0b110, angle=40.0)) == 0b001
    batch = rec(PCP, cond_mask=0b110, angle=500.0)
    assert known_after(engine, setting, batch) == 0b001


def test_a_plain_swap_takes_the_knowledge_along(engine: ModuleType, setting: Setting) -> None:
    forget_0 = [rec(X, target_mask=1)] * 2
    assert known_after(engine, setting, *forget_0, rec(SWAP, target_mask=0b101)) == 0b011
    assert known_after(engine, setting, *forget_0, rec(SWAP, target_mask=0b110)) == 0b110
    conditional = rec(SWAP, target_mask=0b101, cond_mask=0b010)
    assert known_after(engine, setting, conditional) == 0b010
    # Only the two lowest targets are swapped. With a control, no target stays known.
    assert known_after(engine, setting, *forget_0, rec(SWAP, target_mask=0b111)) == 0b101
    beside = rec(SWAP, target_mask=0b111, cond_mask=0b1000)
    assert known_after(engine, setting, beside) == 0


def test_a_swap_of_one_target_forgets_it(engine: ModuleType, setting: Setting) -> None:
    assert known_after(engine, setting, *[rec(SWAP, target_mask=2)] * 2) == 0b101


def test_measuring_makes_known(engine: ModuleType, setting: Setting) -> None:
    forget = [rec(X, target_mask=7)] * 2
    assert known_after(engine, setting, *forget, rec(READ, target_mask=0b1101)) == 0b101
    assert known_after(engine, setting, *forget, rec(READ, target_mask=7, cond_flag=-1)) == 0
    partial = rec(WRITE, target_mask=0b110, cond_mask=7)
    assert known_after(engine, setting, *forget, partial) == 0b110


def test_measuring_one_pauli_makes_its_qubit_known(engine: ModuleType, setting: Setting) -> None:
    forget = [rec(X, target_mask=7)] * 2
    assert known_after(engine, setting, *forget, rec(PPM, cond_mask=0b010)) == 0b010
    assert known_after(engine, setting, *forget, rec(PPM, cond_mask=0b110)) == 0
    # A measured product of several qubits neither adds nor removes known qubits.
    assert known_after(engine, setting, rec(PPM, cond_mask=0b110)) == 7


def test_a_random_state_makes_unknown(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.call("enable_qubit_debugging", 1)
        ones(filter_)
        filter_.call("set_random")
        filter_.run(rec(FREE, target_mask=7, cond_mask=0x10))
        assert len(filter_.events()) == 1


def test_a_reset_of_the_same_shape_keeps_what_is_known(
    engine: ModuleType, setting: Setting
) -> None:
    # Only the amplitudes change.
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.call("enable_qubit_debugging", 1)
        ones(filter_)
        filter_.run(reset(QUBITS))
        filter_.load(basis(QUBITS, 7))
        assert known_of(filter_) == 7


def test_a_reset_of_another_shape_forgets(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, QUBITS, setting) as filter_:
        filter_.call("enable_qubit_debugging", 1)
        ones(filter_)
        filter_.run(reset(QUBITS + 1), reset(QUBITS))
        filter_.load(basis(QUBITS, 7))
        assert known_of(filter_) == 0
