"""The factor pairs example: what it prints, and its multiplier on small numbers."""

from __future__ import annotations

from collections.abc import Iterator
from types import ModuleType

import nimbrel as nb
import pytest

from support.examples import Example

SCRIPT = Example("factor_pairs", "[N] [--bits K]")


@pytest.fixture(scope="module")
def example() -> Iterator[ModuleType]:
    """The script as a module, not run; it imports the adder that stands beside it."""
    with SCRIPT.imported() as module:
        yield module


def test_the_default_run_multiplies_on_more_than_50_qubits() -> None:
    printed = SCRIPT.run_as_script().figures()
    assert list(printed) == [
        "multiplied",
        "checked",
        "with product",
        "pairs",
        "measured",
        "qubits",
        "records",
        "seconds",
    ]
    assert printed["multiplied"] == f"{2**18} pairs of 9-bit numbers at once"
    assert printed["with product"] == "55440: 32 pairs, as division finds them"
    assert printed["pairs"].startswith("110 x 504, 112 x 495, 120 x 462, ")
    p, q = printed["measured"].split(" x ")
    assert int(p) * int(q) == 55440
    assert printed["qubits"] == "54"


@pytest.mark.parametrize(
    ("number", "bits", "pairs"),
    [
        ("12", "3", "2 x 6, 3 x 4, 4 x 3, 6 x 2"),
        ("1", "1", "1 x 1"),
        ("49", "3", "7 x 7"),
        ("0", "1", "0 x 0, 0 x 1, 1 x 0"),
        ("0", "2", "0 x 0, 0 x 1, 0 x 2, 0 x 3, 1 x 0, 2 x 0, ..."),
    ],
)
def test_pairs_of_small_numbers(number: str, bits: str, pairs: str) -> None:
    assert SCRIPT.run(number, "--bits", bits).figures()["pairs"] == pairs


def test_a_number_without_factors_of_that_width() -> None:
    printed = SCRIPT.run("59", "--bits", "5").figures()  # a prime of six bits
    assert printed["with product"] == "59: 0 pairs, as division finds them"
    assert "pairs" not in printed
    assert "measured" not in printed


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        (["-1"], "argument N: not a number from 0 up: '-1'"),
        (["1.5"], "argument N: not a number from 0 up: '1.5'"),
        (["x" * 500], f"argument N: not a number from 0 up: '{'x' * 60}...'"),
        (["1" * 500], f"argument N: not a number from 0 up: '{'1' * 60}...'"),
        (["--bits", "0"], "K must be from 1 to 10"),
        (["--bits", "11"], "K must be from 1 to 10"),
        (["--bits", "many"], "argument --bits: not a number from 0 up: 'many'"),
        (["64", "--bits", "3"], "N must be below 2**6, as products of 3 bits are"),
    ],
)
def test_bad_arguments_get_one_line(arguments: list[str], message: str) -> None:
    SCRIPT.assert_refuses(arguments, message)


@pytest.mark.parametrize("bits", [1, 2, 3, 4])
def test_all_products_of_small_numbers(example: ModuleType, bits: int) -> None:
    qubits = example.MultiplierQubits(bits)
    multiply = example.multiply(qubits)
    with nb.Simulator("StreamBitQPU") as sim:
        for p in range(1 << bits):
            for q in range(1 << bits):
                load = [nb.write(qubits.p, p), nb.write(qubits.q, q)]
                sim.run(nb.reset(qubits.num_qubits), *load, multiply)
                state = int(sim.bits()[::-1], 2)
                assert state == p * q | p << qubits.p[0] | q << qubits.q[0]


def test_the_registers_follow_each_other(example: ModuleType) -> None:
    qubits = example.MultiplierQubits(7)
    parts = [qubits.product, qubits.p, qubits.q, qubits.addend, qubits.carries]
    assert [qubit for part in parts for qubit in part] == list(range(qubits.num_qubits))
    assert [len(part) for part in parts] == [14, 7, 7, 7, 7]


@pytest.mark.parametrize(
    ("name", "replacement", "message"),
    [
        ("multiply", lambda _: nb.program(), "a product differs from Python's own"),
        ("h", lambda qubits: nb.h(qubits[1:]), "not every pair is there"),
        ("h", lambda qubits: nb.ry(80, qubits), "a pair has not its share of the probability"),
        ("factor_pairs", lambda *_: set(), "the factor pairs differ from those found by division"),
    ],
)
def test_a_wrong_answer_is_an_error(
    example: ModuleType,
    monkeypatch: pytest.MonkeyPatch,
    capsys: pytest.CaptureFixture[str],
    name: str,
    replacement: object,
    message: str,
) -> None:
    monkeypatch.setattr(example, name, replacement)
    assert example.main(["12", "--bits", "3"]) == 1
    assert capsys.readouterr() == ("", f"factor_pairs.py: {message}\n")


def test_a_carry_left_behind_is_an_error(
    example: ModuleType, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
) -> None:
    multiply = example.multiply
    monkeypatch.setattr(
        example, "multiply", lambda qubits: nb.program(multiply(qubits), nb.x(qubits.carries[0]))
    )
    assert example.main(["12", "--bits", "3"]) == 1
    assert capsys.readouterr() == ("", "factor_pairs.py: a helping qubit is not 0 again\n")


def test_a_measurement_of_something_else_is_an_error(example: ModuleType) -> None:
    outcome = example.Outcome(64, example.factor_pairs(12, 3), (3, 5), 0, 0.0)
    with pytest.raises(example.ExampleError, match=r"^\(3, 5\) was measured and cannot be$"):
        example.check_pairs(outcome, 12, example.MultiplierQubits(3))
