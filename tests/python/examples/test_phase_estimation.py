"""The phase estimation example: what it prints, and its parts on small registers."""

from __future__ import annotations

from collections.abc import Iterator
from types import ModuleType

import nimbrel as nb
import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from support.examples import Example, Run

SCRIPT = Example("phase_estimation", "[PHASE] [--qubits N]")


@pytest.fixture(scope="module")
def example() -> Iterator[ModuleType]:
    """The script as a module, not run."""
    with SCRIPT.imported() as module:
        yield module


def lines_of(run: Run) -> list[str]:
    assert (run.status, run.err) == (0, "")
    return run.out.splitlines()


def test_the_default_run_prints_chart_and_estimate() -> None:
    lines = lines_of(SCRIPT.run_as_script())
    assert lines[0].split() == ["outcome", "phase", "probability"]
    assert lines[1].split() == ["010100", "0.312500", "0.965984", "#" * 39]
    assert len(lines) == 1 + 8 + 3
    assert lines[-3:-1] == ["phase     0.314100", "estimate  0.312500 +- 0.007812"]
    assert lines[-1].startswith("measured  0.")


@pytest.mark.parametrize(
    ("phase", "qubits", "outcome"),
    [("0", 1, "0"), ("0.5", 1, "1"), ("0.25", 2, "01"), ("0.6875", 4, "1011"), ("0.3125", 9, None)],
)
def test_a_phase_that_fits_the_qubits_is_certain(
    phase: str, qubits: int, outcome: str | None
) -> None:
    lines = lines_of(SCRIPT.run(phase, "--qubits", str(qubits)))
    assert len(lines) == 2 + 3
    assert lines[1].split()[0] == (outcome or f"{int(float(phase) * 2**qubits):0{qubits}b}")
    assert lines[1].split()[2:] == ["1.000000", "#" * 40]
    assert float(lines[-1].split()[1]) == float(phase)


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        (["x"], "argument PHASE: not a number: 'x'"),
        (["y" * 500], f"argument PHASE: not a number: '{'y' * 60}...'"),
        (["a\nb"], r"argument PHASE: not a number: 'a\nb'"),
        (["1"], "argument PHASE: the phase must be from 0 to below 1, not 1"),
        (["nan"], "argument PHASE: the phase must be from 0 to below 1, not nan"),
        (["--", "-0.5"], "argument PHASE: the phase must be from 0 to below 1, not -0.5"),
        (["--qubits", "0"], "argument --qubits: N must be an integer from 1 to 20"),
        (["--qubits", "21"], "argument --qubits: N must be an integer from 1 to 20"),
        (["--qubits", "\u00b2"], "argument --qubits: N must be an integer from 1 to 20"),
        (["--qubits"], "argument --qubits: expected one argument"),
        (["--qubit=8"], "unrecognized arguments: --qubit=8"),
        (["0.5", "0.5"], "unrecognized arguments: 0.5"),
    ],
)
def test_bad_arguments_get_one_line(arguments: list[str], message: str) -> None:
    SCRIPT.assert_refuses(arguments, message)


@settings(deadline=None)  # the first call in a process loads what later ones find
@given(turns=st.floats(0, 1, exclude_max=True), bits=st.integers(1, 9))
def test_any_phase_gives_the_known_distribution(
    example: ModuleType, turns: float, bits: int
) -> None:
    estimate = example.run_estimation(example.EstimationQubits(bits), turns)
    assert example.disagreement(estimate, bits, turns) is None


@pytest.mark.parametrize("turns", [0.0, 0.3, 0.4375, 0.97])
def test_the_known_distribution_is_the_fourier_transform_of_the_phases(
    example: ModuleType, turns: float
) -> None:
    phases = np.exp(2j * np.pi * turns * np.arange(16)) / 4
    transformed = np.fft.fft(phases) / 4
    known = example.known_distribution(4, turns)
    np.testing.assert_allclose(known, np.abs(transformed) ** 2, atol=1e-14)
    assert known.sum() == pytest.approx(1)


def test_the_inverse_fourier_is_the_inverse_fourier_matrix(example: ModuleType) -> None:
    qubits, size = 3, 8
    index = np.arange(size)
    expected = np.exp(-2j * np.pi * np.outer(index, index) / size) / np.sqrt(size)
    for column in range(size):
        with nb.Simulator("StreamQPU") as sim:
            start = nb.write(range(qubits), column)
            sim.run(nb.reset(qubits), start, *example.inverse_fourier(range(qubits)))
            np.testing.assert_allclose(sim.state(), expected[:, column], atol=1e-14)


@pytest.mark.parametrize("part", ["inverse_fourier", "powers_of_the_gate"])
def test_a_wrong_program_is_an_error(
    example: ModuleType,
    monkeypatch: pytest.MonkeyPatch,
    capsys: pytest.CaptureFixture[str],
    part: str,
) -> None:
    monkeypatch.setattr(example, part, lambda *_: [])
    assert example.main(["0.3", "--qubits", "4"]) == 1
    printed = capsys.readouterr()
    assert printed.out == ""
    assert printed.err.startswith(
        "phase_estimation.py: a probability differs from the known one by "
    )
    assert printed.err.count("\n") == 1


def test_an_impossible_measurement_is_an_error(example: ModuleType) -> None:
    estimate = example.Estimate(example.known_distribution(3, 0.25), outcome=5)
    assert example.disagreement(estimate, 3, 0.25) == "outcome 5 was measured and cannot be"


def test_a_peak_in_the_wrong_place_is_an_error(
    example: ModuleType, monkeypatch: pytest.MonkeyPatch
) -> None:
    shifted = example.known_distribution(3, 0.5)
    monkeypatch.setattr(example, "known_distribution", lambda *_: shifted)
    estimate = example.Estimate(shifted, outcome=4)
    assert example.disagreement(estimate, 3, 0.25) == (
        "the likeliest outcome 4 is not the one nearest to the phase"
    )
