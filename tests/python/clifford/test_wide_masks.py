"""Wide masks on the Clifford filter: offsets, extensions and the order in which qubits come."""

from types import ModuleType

import pytest

from models.opcodes import CLEAR, EXTEND, READ, WRITE, H, S, X, Z
from support.clifford import CliffordFilter, open_clifford
from support.clifford_rows import changes
from support.driver import rec


def read_all(filter_: CliffordFilter, num_qubits: int) -> set[int]:
    """The qubits that are 1."""
    for offset in range(0, num_qubits, 64):
        mask = (1 << min(64, num_qubits - offset)) - 1
        filter_.run(rec(READ, target_mask=mask, target_offset=offset, read_flag=1000 + offset))
    return {qubit for qubit in range(num_qubits) if filter_.flag(1000 + qubit)}


@pytest.mark.parametrize("offset", [0, 1, 17, 61, 63, 64, 65, 100, 124])
def test_the_whole_offset_is_added(engine: ModuleType, offset: int) -> None:
    with open_clifford(engine, 128) as filter_:
        filter_.run(rec(X, target_mask=0b1011, target_offset=offset))
        assert changes(filter_) == {f"Z{offset + bit}": f"-Z{offset + bit}" for bit in (0, 1, 3)}


def test_the_top_bit_of_a_mask_acts(engine: ModuleType) -> None:
    with open_clifford(engine, 128) as filter_:
        filter_.run(rec(X, target_mask=1 << 63), rec(X, target_mask=1 << 63, target_offset=64))
        filter_.run(rec(X, target_mask=1 << 63, target_offset=1))
        assert changes(filter_) == {"Z63": "-Z63", "Z64": "-Z64", "Z127": "-Z127"}


def test_a_full_mask_at_an_odd_offset(engine: ModuleType) -> None:
    with open_clifford(engine, 128) as filter_:
        filter_.run(rec(X, target_mask=2**64 - 1, target_offset=33))
        assert changes(filter_) == {f"Z{q}": f"-Z{q}" for q in range(33, 97)}


def test_offset_and_bit_are_added_modulo_the_word(engine: ModuleType) -> None:
    with open_clifford(engine, 3) as filter_:
        filter_.run(rec(X, target_mask=0b110, target_offset=2**64 - 1))
        assert changes(filter_) == {"Z0": "-Z0", "Z1": "-Z1"}


def test_conditions_have_an_offset_of_their_own(engine: ModuleType) -> None:
    with open_clifford(engine, 128) as filter_:
        words = {"target_mask": 0b10, "target_offset": 99, "cond_mask": 0b100, "cond_offset": 35}
        filter_.run(rec(X, **words))
        assert changes(filter_) == {"X37": "+X37 X100", "Z100": "+Z37 Z100"}
        filter_.run(rec(X, **words), rec(Z, **words))
        assert changes(filter_) == {"X37": "+X37 Z100", "X100": "+Z37 X100"}


def test_an_offset_without_a_mask_means_nothing(engine: ModuleType) -> None:
    with open_clifford(engine, 64) as filter_:
        filter_.run(rec(X, target_mask=1, cond_offset=2**63), rec(X, target_offset=2**63))
        assert changes(filter_) == {"Z0": "-Z0"}


def test_extensions_add_targets_at_their_own_offsets(engine: ModuleType) -> None:
    with open_clifford(engine, 128) as filter_:
        filter_.run(
            rec(EXTEND, target_mask=0b101, target_offset=70),
            rec(EXTEND, target_mask=1 << 63, target_offset=30),
            rec(H, target_mask=0b10, target_offset=2),
        )
        expected: dict[str, str] = {}
        for qubit in (3, 70, 72, 93):
            expected |= {f"Z{qubit}": f"+X{qubit}", f"X{qubit}": f"+Z{qubit}"}
        assert changes(filter_) == expected


def test_a_qubit_named_twice_is_acted_on_twice(engine: ModuleType) -> None:
    with open_clifford(engine, 128) as filter_:
        filter_.run(rec(EXTEND, target_mask=0b11, target_offset=10), rec(S, target_mask=1 << 10))
        assert changes(filter_) == {"X10": "-X10", "X11": "+Y11"}


def test_pairs_are_read_own_first_and_then_in_the_order_given(engine: ModuleType) -> None:
    with open_clifford(engine, 200) as filter_:
        filter_.run(rec(X, target_mask=1, target_offset=5), rec(X, target_mask=0b10001))
        filter_.run(rec(X, target_mask=1, target_offset=199))
        filter_.run(
            rec(EXTEND, target_mask=0b11, target_offset=198),
            rec(EXTEND, target_mask=0b101),
            rec(READ, target_mask=0b111, target_offset=3, read_flag=40),
        )
        # In order: qubits 3, 4, 5, then 198, 199, then 0 and 2.
        assert filter_.flags(40, 8) == 0b0110110


def test_a_register_of_a_thousand_qubits(engine: ModuleType) -> None:
    ones = {0, 63, 64, 500, 511, 512, 937, 999}
    with open_clifford(engine, 1000) as filter_:
        for qubit in ones:
            offset = max(qubit - 11, 0)
            filter_.run(rec(X, target_mask=1 << (qubit - offset), target_offset=offset))
        assert read_all(filter_, 1000) == ones
        filter_.run(rec(X, target_mask=1, target_offset=998, cond_mask=1, cond_offset=64))
        filter_.run(rec(X, target_mask=1, target_offset=1, cond_mask=1, cond_offset=2))
        assert read_all(filter_, 1000) == ones | {998}
        filter_.run(rec(CLEAR, target_mask=2**64 - 1, target_offset=449))
        assert read_all(filter_, 1000) == (ones | {998}) - {500, 511, 512}
        filter_.run(
            rec(WRITE, target_mask=0b111, target_offset=700, cond_mask=0b101, cond_offset=700)
        )
        assert read_all(filter_, 1000) == (ones | {998, 700, 702}) - {500, 511, 512}


def test_far_apart_qubits_are_entangled(engine: ModuleType) -> None:
    with open_clifford(engine, 600) as filter_:
        filter_.run(rec(H, target_mask=1, target_offset=3))
        for offset in (64, 333, 599):
            filter_.run(rec(X, target_mask=1, target_offset=offset, cond_mask=1, cond_offset=3))
        filter_.run(rec(READ, target_mask=1, target_offset=599, read_flag=5))
        expected = {3, 64, 333, 599} if filter_.flag(5) else set()
        assert read_all(filter_, 600) == expected
