"""The surface code example: what it prints, and its code and diagnosis by themselves."""

from __future__ import annotations

import re
from collections.abc import Iterator
from types import ModuleType

import nimbrel as nb
import pytest

from support.examples import Example

SCRIPT = Example("surface_code", "[--distance D] [--rounds R] [--error PAULI QUBIT ROUND]")
DISTANCES = [3, 4, 5, 6, 9]


@pytest.fixture(scope="module")
def example() -> Iterator[ModuleType]:
    """The script as a module, not run."""
    with SCRIPT.imported() as module:
        yield module


def test_the_default_run_finds_a_random_error_among_161_qubits() -> None:
    printed = SCRIPT.run_as_script().figures()
    assert list(printed) == [
        "code",
        "qubits",
        "rounds",
        "injected",
        "detected",
        "located",
        "bit",
        "records",
        "seconds",
    ]
    assert printed["code"] == "9 x 9 data qubits, 80 checks"
    assert printed["qubits"] == "161"
    assert printed["rounds"] == "50"
    error, number = printed["injected"].split(", before round ")
    assert error in printed["located"].split(" or ")
    assert printed["detected"].startswith(f"in round {number}, by the checks ")


@pytest.mark.parametrize(
    ("error", "checks", "located"),
    [
        (["X", "4", "2"], "3, 4", "X on qubit 4"),
        (["z", "4", "7"], "2, 5", "Z on qubit 4"),
        (["Y", "4", "20"], "2, 3, 4, 5", "Y on qubit 4"),
        (["X", "1", "3"], "3", "X on qubit 1 or X on qubit 2"),
    ],
)
def test_an_error_that_was_asked_for(error: list[str], checks: str, located: str) -> None:
    printed = SCRIPT.run("--distance", "3", "--rounds", "20", "--error", *error).figures()
    assert printed["injected"] == f"{error[0].upper()} on qubit {error[1]}, before round {error[2]}"
    assert printed["detected"] == f"in round {error[2]}, by the checks {checks}"
    assert printed["located"] == located
    raw = re.fullmatch(r"([01]), as stored; ([01]) before the correction", printed["bit"])
    assert raw is not None
    # Of these only the one on qubit 1 lies on the row whose parity is the bit.
    assert (raw[1] != raw[2]) == (error[:2] == ["X", "1"])


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        (["--distance", "2"], "D must be from 3 to 25"),
        (["--distance", "26"], "D must be from 3 to 25"),
        (["--rounds", "1"], "R must be from 2 to 500"),
        (["--rounds", "501"], "R must be from 2 to 500"),
        (["--rounds", "-3"], "argument --rounds: not a number from 0 up: '-3'"),
        (["--rounds", "x" * 500], f"argument --rounds: not a number from 0 up: '{'x' * 60}...'"),
        (["--error", "Q", "0", "2"], "argument --error: PAULI must be X, Y or Z, not 'Q'"),
        (["--error", "X", "81", "2"], "argument --error: QUBIT must be from 0 to 80"),
        (["--error", "X", "a", "2"], "argument --error: not a number from 0 up: 'a'"),
        (["--error", "X", "0", "1"], "argument --error: ROUND must be from 2 to 50"),
        (["--error", "X", "0", "51"], "argument --error: ROUND must be from 2 to 50"),
        (["--error", "X", "0"], "argument --error: expected 3 arguments"),
    ],
)
def test_bad_arguments_get_one_line(arguments: list[str], message: str) -> None:
    SCRIPT.assert_refuses(arguments, message)


@pytest.mark.parametrize("distance", DISTANCES)
def test_checks_and_logical_operators_commute(example: ModuleType, distance: int) -> None:
    code = example.Code(distance)
    assert len(code.checks) == len(code.ancillas) == distance**2 - 1
    products = [(check.letter, set(check.data)) for check in code.checks]
    logical = [("X", set(code.logical_x)), ("Z", set(code.logical_z))]
    for letter, data in products:
        for other, qubits in [*products, *logical]:
            assert letter == other or len(data & qubits) % 2 == 0
    assert len(logical[0][1] & logical[1][1]) == 1


@pytest.mark.parametrize("distance", DISTANCES)
def test_errors_that_look_alike_have_the_same_effect(example: ModuleType, distance: int) -> None:
    code = example.Code(distance)
    for qubit in code.data:
        for letter in "XYZ":
            error = example.PauliError(letter, qubit)
            alike = code.explanations(code.signature(error))
            assert error in alike
            assert {other.letter for other in alike} == {letter}
            if letter in "XY":
                assert len({other.qubit in code.logical_z for other in alike}) == 1
            if letter in "YZ":
                assert len({other.qubit in code.logical_x for other in alike}) == 1


@pytest.mark.parametrize("distance", [3, 4, 5])
def test_a_round_measures_the_checks(example: ModuleType, distance: int) -> None:
    code = example.Code(distance)
    with nb.Simulator("StreamCliffordQPU") as sim:
        sim.run(nb.reset(code.num_qubits), example.gather_all(code), nb.read(code.ancillas, 2))
        for number, (letter, data) in enumerate(code.checks):
            xs, zs = (data, ()) if letter == "X" else ((), data)
            sim.run(nb.ppm(xs, zs, 1000 + number))
        assert sim.flags(2, len(code.checks)) == sim.flags(1000, len(code.checks))


def test_every_error_is_found_where_and_when_it_happened(example: ModuleType) -> None:
    code = example.Code(3)
    for letter in "XYZ":
        for qubit in code.data:
            for number in (2, 3, 4):
                hit = example.Hit(example.PauliError(letter, qubit), number)
                for bit in (0, 1):
                    outcome = example.run_memory(code, 4, bit, hit)
                    found = example.diagnose(outcome, code)
                    assert example.check_diagnosis(found, hit, bit) is found


def test_nothing_changes_without_an_error(example: ModuleType) -> None:
    code = example.Code(5)
    for bit in (0, 1):
        outcome = example.run_memory(code, 10, bit, None)
        assert example.changes(outcome, code) == {}
        assert example.diagnose(outcome, code) is None
        assert sum(outcome.data[qubit] for qubit in code.logical_z) % 2 == bit


def test_two_errors_are_no_single_one(
    example: ModuleType, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
) -> None:
    monkeypatch.setitem(example.ERRORS, "X", lambda qubit: nb.x([qubit, 24]))
    assert example.main(["--distance", "5", "--rounds", "4", "--error", "X", "6", "3"]) == 1
    captured = capsys.readouterr()
    assert captured.out == ""
    assert re.match(r"^surface_code\.py: no single error changes the checks \[", captured.err)


@pytest.mark.parametrize(
    ("field", "message"),
    [
        ("round", "the error was noticed in round 4"),
        ("errors", "the error was taken for Z on qubit 4"),
        ("bit", "the stored bit has changed"),
        (None, "no check has noticed the error"),
    ],
)
def test_a_wrong_answer_is_an_error(
    example: ModuleType,
    monkeypatch: pytest.MonkeyPatch,
    capsys: pytest.CaptureFixture[str],
    field: str | None,
    message: str,
) -> None:
    diagnose = example.diagnose
    wrong = {"round": 4, "errors": [example.PauliError("Z", 4)], "bit": 1}

    def diagnose_wrongly(*arguments: object) -> object:
        return None if field is None else diagnose(*arguments)._replace(**{field: wrong[field]})

    monkeypatch.setattr(example, "diagnose", diagnose_wrongly)
    monkeypatch.setattr(example.random, "getrandbits", lambda _: 0)
    assert example.main(["--distance", "3", "--rounds", "4", "--error", "X", "4", "3"]) == 1
    assert capsys.readouterr() == ("", f"surface_code.py: {message}\n")


def test_checks_that_change_twice_are_two_errors(example: ModuleType) -> None:
    code = example.Code(3)
    hit = example.Hit(example.PauliError("X", 4), 2)
    outcome = example.run_memory(code, 4, 0, hit)
    undone = outcome._replace(syndromes=[*outcome.syndromes[:3], outcome.syndromes[0]])
    with pytest.raises(example.ExampleError, match=r"^checks have changed in the rounds 2, 4, 5$"):
        example.diagnose(undone, code)
