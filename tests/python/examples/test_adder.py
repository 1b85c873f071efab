"""The adder example: what it prints, and its adder on all small integers."""

from __future__ import annotations

import os
import re
import subprocess
import sys
from collections.abc import Iterator
from types import ModuleType

import nimbrel as nb
import pytest
from hypothesis import given
from hypothesis import strategies as st

from support.examples import Example

SCRIPT = Example("adder", "[A B] [--bits N]")


@pytest.fixture(scope="module")
def adder() -> Iterator[ModuleType]:
    """The script as a module, not run."""
    with SCRIPT.imported() as module:
        yield module


def test_two_random_integers_fill_the_default_width() -> None:
    printed = SCRIPT.run_as_script().figures()
    assert list(printed) == [
        "first addend",
        "second addend",
        "result",
        "checked",
        "qubits",
        "records",
        "records per second",
    ]
    assert printed["qubits"] == "3074"
    addends = [int(printed["first addend"]), int(printed["second addend"])]
    assert [addend.bit_length() for addend in addends] == [1024, 1024]
    assert int(printed["result"]) == sum(addends)
    assert int(printed["records"]) > 7 * 1024
    assert int(printed["records per second"]) > 0


@pytest.mark.parametrize(
    ("a", "b", "bits", "qubits"),
    [
        (3, 5, 8, 26),
        (0, 0, 1, 5),
        (255, 255, 8, 26),
        (256, 0, 8, 29),
        (2**200, 1, 64, 3 * 201 + 2),
        (-5, 3, 8, 26),
        (-128, -128, 8, 3 * 9 + 2),
        (-1, 0, 1, 3 * 2 + 2),
        (-(2**100), 2**100 - 1, 4, 3 * 102 + 2),
    ],
)
def test_the_sum_of_any_integers(a: int, b: int, bits: int, qubits: int) -> None:
    printed = SCRIPT.run(str(a), str(b), "--bits", str(bits)).figures()
    assert [int(printed["first addend"]), int(printed["second addend"])] == [a, b]
    assert int(printed["result"]) == a + b
    assert printed["checked"] == "Python's own sum is the same"
    assert int(printed["qubits"]) == qubits


def test_integers_beyond_the_digit_limit_of_python(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("PYTHONINTMAXSTRDIGITS", "640")  # the lowest that Python accepts
    printed = SCRIPT.run_as_script("1" * 641, "2" * 641).figures()
    assert printed["first addend"] == "1" * 641
    assert printed["result"] == "3" * 641


def test_a_python_without_a_digit_limit(
    adder: ModuleType, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
) -> None:
    monkeypatch.delattr(sys, "set_int_max_str_digits", raising=False)
    assert adder.main(["12", "30", "--bits", "8"]) == 0
    assert re.search(r"^result +42$", capsys.readouterr().out, re.MULTILINE)


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        (["1"], "give two integers or none, not 1"),
        (["1", "2", "3"], "give two integers or none, not 3"),
        (["1", "two"], "argument A B: not an integer: 'two'"),
        (["1", "2.5"], "argument A B: not an integer: '2.5'"),
        (["1", "x" * 500], f"argument A B: not an integer: '{'x' * 60}...'"),
        (["1", "a\nb"], r"argument A B: not an integer: 'a\nb'"),
        (["--bits", "0"], "N must be from 1 to 500000"),
        (["--bits", "500001"], "N must be from 1 to 500000"),
        (["--bits", "many"], "argument --bits: not an integer: 'many'"),
        (["--bits"], "argument --bits: expected one argument"),
        (["--bit", "8"], "unrecognized arguments: --bit"),
        (["--new\nline"], "unrecognized arguments: --new line"),
    ],
)
def test_bad_arguments_get_one_line(arguments: list[str], message: str) -> None:
    SCRIPT.assert_refuses(arguments, message)


@pytest.mark.parametrize("bits", [1, 2, 3])
def test_every_pair_of_small_integers(adder: ModuleType, bits: int) -> None:
    qubits = adder.AdderQubits(bits)
    for a in range(2**bits):
        for b in range(2**bits):
            outcome = adder.run_adder(qubits, a, b)
            assert (outcome.total, outcome.carries_clean) == (a + b, True)


@given(a=st.integers(-(2**70), 2**70), b=st.integers(-(2**70), 2**70))
def test_the_adder_leaves_a_and_the_carries_as_they_were(adder: ModuleType, a: int, b: int) -> None:
    qubits = adder.AdderQubits(adder.bits_needed(a, b))
    with nb.Simulator() as sim:
        sim.run(adder.adder_program(qubits, a, b))
        state = int(sim.bits()[::-1], 2)
    low = (1 << qubits.bits) - 1
    total = state >> qubits.b[0] & (low << 1 | 1)
    assert state & low == a & low
    assert state >> qubits.carries[0] == 0
    assert adder.decode_sum(total, qubits.bits, signed=a < 0 or b < 0) == a + b


def test_the_register_is_a_then_b_then_the_carries(adder: ModuleType) -> None:
    qubits = adder.AdderQubits(10)
    assert [*qubits.a, *qubits.b, *qubits.carries] == list(range(qubits.num_qubits))
    assert [len(qubits.a), len(qubits.b), len(qubits.carries)] == [10, 11, 11]


def test_a_wrong_sum_is_an_error(
    adder: ModuleType, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
) -> None:
    monkeypatch.setattr(adder, "ripple_carry", lambda _: nb.program())
    assert adder.main(["1", "2", "--bits", "4"]) == 1
    assert capsys.readouterr() == ("", "adder.py: the sum differs from Python's own\n")


def test_a_carry_left_behind_is_an_error(
    adder: ModuleType, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
) -> None:
    monkeypatch.setattr(adder, "uncompute_carry", lambda *_: [])
    assert adder.main(["3", "1", "--bits", "4"]) == 1
    assert capsys.readouterr().err == "adder.py: a carry was not uncomputed to 0\n"


def test_a_long_result_is_cut_for_a_terminal_only(adder: ModuleType) -> None:
    assert adder.shorten(10**59, terminal=True) == str(10**59)
    cut = f"-1{'0' * 22}...{'0' * 24} (101 digits)"
    assert adder.shorten(-(10**100), terminal=True) == cut
    assert adder.shorten(10**100, terminal=False) == str(10**100)


def test_a_terminal_gets_short_numbers() -> None:
    master, slave = os.openpty()
    try:
        command = SCRIPT.command("1" * 100, "2" * 100)
        subprocess.run(command, stdout=slave, check=True)
        lines = os.read(master, 4096).decode().splitlines()
    finally:
        os.close(slave)
        os.close(master)
    assert [re.split(r" {2,}", line) for line in lines[:3]] == [
        ["first addend", f"{'1' * 24}...{'1' * 24} (100 digits)"],
        ["second addend", f"{'2' * 24}...{'2' * 24} (100 digits)"],
        ["result", f"{'3' * 24}...{'3' * 24} (100 digits)"],
    ]
