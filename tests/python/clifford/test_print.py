"""The text of a tableau: its lines, its width, and the order of its columns."""

from types import ModuleType

import numpy as np
import pytest

from models.opcodes import READ, H, S, X, Z
from models.program import NO_REGISTER
from support.clifford import CliffordFilter, open_clifford
from support.driver import raises_engine_error, rec


def lines(filter_: CliffordFilter) -> tuple[list[str], str, list[str]]:
    """The destabilizers, the separating line, and the generators."""
    text = filter_.tableau()
    assert text.endswith("\n")
    rows = text.split("\n")[:-1]
    half = len(rows) // 2
    assert len(rows) == 2 * half + 1
    return rows[:half], rows[half], rows[half + 1 :]


def test_one_qubit(engine: ModuleType) -> None:
    with open_clifford(engine, 1) as filter_:
        assert filter_.tableau() == "0 1|0\n-----\n0 0|1\n"


def test_two_qubits(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        assert filter_.tableau() == "0 01|00\n0 10|00\n-------\n0 00|01\n0 00|10\n"


def test_no_qubits(engine: ModuleType) -> None:
    with open_clifford(engine, 0) as filter_:
        assert filter_.tableau() == "---\n"


def test_phases_and_both_parts(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(H, target_mask=1), rec(S, target_mask=1), rec(X, target_mask=0b11))
        assert filter_.tableau() == "2 00|01\n0 10|00\n-------\n2 01|01\n2 00|10\n"
        filter_.run(rec(Z, cond_mask=0b11))
        assert filter_.tableau() == "2 00|01\n0 10|01\n-------\n2 01|11\n2 00|10\n"


def column(filter_: CliffordFilter, num_qubits: int, qubit: int) -> int | None:
    """The column of the qubit in both parts of a row, or None if the text does not show it."""
    partners, _, generators = lines(filter_)
    zeros = "0" * num_qubits
    partner, generator = partners[qubit], generators[qubit]
    assert len(partner) == len(generator) == 2 * num_qubits + 3
    place = partner[2 : 2 + num_qubits].find("1")
    bits = zeros if place < 0 else zeros[:place] + "1" + zeros[place + 1 :]
    assert partner == f"0 {bits}|{zeros}"
    assert generator == f"0 {zeros}|{bits}"
    return place if place >= 0 else None


@pytest.mark.parametrize("num_qubits", [1, 2, 5, 63, 64])
def test_up_to_64_qubits_the_highest_stands_first(engine: ModuleType, num_qubits: int) -> None:
    with open_clifford(engine, num_qubits) as filter_:
        _, between, _ = lines(filter_)
        assert between == "-" * (2 * num_qubits + 3)
        for qubit in range(num_qubits):
            assert column(filter_, num_qubits, qubit) == num_qubits - 1 - qubit


@pytest.mark.parametrize(
    ("num_qubits", "columns"),
    [
        # One bit of the first word, then a whole word, of which qubit 64 is the last.
        (65, {0: 0, 1: None, 63: None, 64: 64}),
        (66, {0: 1, 1: 0, 2: None, 63: None, 64: 65, 65: 64}),
        (70, {0: 5, 5: 0, 6: None, 63: None, 64: 69, 69: 64}),
        (127, {0: 62, 62: 0, 63: None, 64: 126, 126: 64}),
        # Whole words: no word is shortened.
        (128, {0: 63, 63: 0, 64: 127, 127: 64}),
        (130, {0: 1, 1: 0, 2: None, 63: None, 64: 65, 127: 2, 128: 129, 129: 128}),
        (192, {0: 63, 64: 127, 128: 191, 191: 128}),
        (193, {0: 0, 1: None, 64: 64, 127: 1, 128: 128, 191: 65, 192: 192}),
    ],
)
def test_above_64_qubits_the_first_word_is_short(
    engine: ModuleType, num_qubits: int, columns: dict[int, int | None]
) -> None:
    with open_clifford(engine, num_qubits) as filter_:
        partners, between, generators = lines(filter_)
        assert between == "-" * (2 * num_qubits + 3)
        assert len(partners) == len(generators) == num_qubits
        for qubit, place in columns.items():
            assert column(filter_, num_qubits, qubit) == place, qubit


def test_65_qubits_in_full(engine: ModuleType) -> None:
    with open_clifford(engine, 65) as filter_:
        filter_.run(rec(X, target_mask=0b11), rec(X, target_mask=1, target_offset=64))
        none, first, last = "0" * 65, "1" + "0" * 64, "0" * 64 + "1"
        partners = [f"0 {first}|{none}", *[f"0 {none}|{none}"] * 63, f"0 {last}|{none}"]
        generators = [f"2 {none}|{first}", f"2 {none}|{none}", *[f"0 {none}|{none}"] * 62]
        generators.append(f"2 {none}|{last}")
        expected = [*partners, "-" * 133, *generators]
        assert filter_.tableau() == "".join(f"{line}\n" for line in expected)


def test_a_look_changes_nothing(engine: ModuleType) -> None:
    with open_clifford(engine, 2) as filter_:
        filter_.run(rec(H, target_mask=1), rec(X, target_mask=2, cond_mask=1))
        first = filter_.tableau()
        assert filter_.tableau() == first  # a second call returns only the new text
        filter_.run(rec(READ, target_mask=1, read_flag=5), rec(READ, target_mask=2, read_flag=6))
        assert filter_.flag(5) == filter_.flag(6)


def test_a_register_is_needed(engine: ModuleType) -> None:
    with open_clifford(engine) as filter_:
        filter_.call_fails(NO_REGISTER, "pull_state", np.zeros(1, dtype=np.complex128))
        filter_.reset(1)
        assert filter_.tableau() == "0 1|0\n-----\n0 0|1\n"


@pytest.mark.parametrize("length", [0, 1, 3, 1000])
def test_the_array_is_neither_read_nor_written(engine: ModuleType, length: int) -> None:
    array = np.full(1000, 3 + 4j)[:length]  # NumPy's versions differ in an empty array's stride
    with open_clifford(engine, 1) as filter_:
        assert filter_.call("pull_state", array) == "0 1|0\n-----\n0 0|1\n"
    assert np.array_equal(array, np.full(length, 3 + 4j))


def test_the_array_is_checked_all_the_same(engine: ModuleType) -> None:
    text = "Error: pull_state() dest buffer must be an array of type complex128"
    with open_clifford(engine, 1) as filter_, raises_engine_error(text):
        filter_.call("pull_state", np.zeros(4))
