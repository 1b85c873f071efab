"""The surface code example's rates: what it prints and draws, its errors and its intervals."""

from __future__ import annotations

import re
from collections.abc import Iterator
from pathlib import Path
from types import ModuleType

import nimbrel as nb
import numpy as np
import pytest

from support.examples import Example

SCRIPT = Example("surface_code", "")
LINE = re.compile(r"(\S+), 95 % from (\S+) to (\S+), ([0-9]+) of ([0-9]+) shots")


@pytest.fixture(scope="module")
def rates() -> Iterator[ModuleType]:
    with Example("surface_code_rates", "").imported() as module:
        yield module


@pytest.fixture
def pymatching() -> None:
    pytest.importorskip("pymatching")


def printed(*arguments: str) -> dict[str, tuple[float, ...]]:
    """The numbers of each printed line, by its distance."""
    found = {}
    for name, text in SCRIPT.run("rates", *arguments).figures().items():
        match = LINE.fullmatch(text)
        assert match is not None, text
        found[name] = tuple(float(number) for number in match.groups())
    return found


@pytest.mark.usefixtures("pymatching")
def test_a_larger_code_loses_the_bit_less_often_below_the_threshold() -> None:
    arguments = ["--shots", "1500", "--probability", "0.015", "--seed", "1"]
    found = printed("--distances", "3", "7", *arguments)
    assert list(found) == ["distance 3", "distance 7"]
    for rate, low, high, losses, shots in found.values():
        assert low <= rate <= high
        assert rate == pytest.approx(losses / shots, rel=0.01)
    assert found["distance 7"][0] < found["distance 3"][0] / 2


@pytest.mark.usefixtures("pymatching")
def test_a_larger_code_loses_the_bit_more_often_above_the_threshold() -> None:
    arguments = ["--shots", "600", "--probability", "0.08", "--seed", "1"]
    found = printed("--distances", "3", "7", *arguments)
    assert found["distance 7"][0] > found["distance 3"][0]


@pytest.mark.usefixtures("pymatching")
def test_a_seed_repeats_the_rates() -> None:
    arguments = ["--distances", "3", "--shots", "200", "--probability", "0.05", "--seed"]
    assert printed(*arguments, "1") == printed(*arguments, "1")
    assert printed(*arguments, "1") != printed(*arguments, "2")


@pytest.mark.usefixtures("pymatching")
@pytest.mark.parametrize("ending", ["png", "svg"])
def test_the_rates_are_drawn_to_a_file(tmp_path: Path, ending: str) -> None:
    pytest.importorskip("matplotlib")
    file = tmp_path / f"rates.{ending}"
    printed("--distances", "3", "--shots", "20", "--plot", str(file))
    start = {"png": b"\x89PNG", "svg": b"<?xml"}[ending]
    assert file.read_bytes().startswith(start)


@pytest.mark.usefixtures("pymatching")
def test_every_single_error_is_decoded(rates: ModuleType) -> None:
    """A code of distance 3 corrects any one error; the bit is lost for none of them."""
    code = rates.Code(3)
    memory, decoder = rates.Memory(code, 3), rates.Decoder(code, 3, 0.01)
    records = memory.with_errors(np.random.default_rng(1), 0.0)
    flags = []
    with nb.Simulator("StreamCliffordQPU") as sim:
        for place in np.flatnonzero(records["cond_flag"] == rates.NEVER):
            one = records.copy()
            one["cond_flag"][place] = 0
            sim.run(one)
            flags.append(memory.flags(sim))
    assert len(flags) == 3 * (len(code.data) + len(code.ancillas))
    assert decoder.losses(np.array(flags)) == 0


@pytest.mark.usefixtures("pymatching")
def test_a_flipped_logical_row_is_a_loss(rates: ModuleType) -> None:
    """No check sees the product of X on a column, so nothing is corrected."""
    code = rates.Code(3)
    memory, decoder = rates.Memory(code, 2), rates.Decoder(code, 2, 0.01)
    records = memory.with_errors(np.random.default_rng(1), 0.0)
    with nb.Simulator("StreamCliffordQPU") as sim:
        sim.run(records[:1], nb.x(code.logical_x), records[1:])
        flags = memory.flags(sim)
    assert decoder.losses(flags[None]) == 1


def test_errors_happen_as_often_as_wanted(rates: ModuleType) -> None:
    memory = rates.Memory(rates.Code(5), 5)
    rng = np.random.default_rng(7)
    quiet = memory.with_errors(rng, 0.0)
    places = np.flatnonzero(quiet["cond_flag"] == rates.NEVER)
    happened = sum(
        np.count_nonzero(memory.with_errors(rng, 0.1)["cond_flag"][places] == 0) for _ in range(40)
    )
    assert 0.085 < happened / (40 * len(places)) < 0.115


@pytest.mark.parametrize(
    ("losses", "shots", "low", "high"),
    [
        (0, 10, 0.0, 0.27754),
        (10, 10, 0.72246, 1.0),
        (5, 10, 0.23659, 0.76341),
        (1, 100, 0.0017674, 0.054489),
    ],
)
def test_intervals_are_wilsons(
    rates: ModuleType, losses: int, shots: int, low: float, high: float
) -> None:
    assert rates.Rate(3, losses, shots).interval() == pytest.approx(
        (low, high), rel=1e-3, abs=1e-12
    )


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        (["--distances", "2"], "D must be from 3 to 25"),
        (["--distances", "3", "26"], "D must be from 3 to 25"),
        (["--shots", "0"], "N must be from 1 to 10000000"),
        (["--probability", "0"], "P must be above 0 and below 0.5"),
        (["--probability", "nan"], "P must be above 0 and below 0.5"),
        (["--seed", "-1"], "S must be 0 or more"),
    ],
)
def test_bad_arguments_are_refused(arguments: list[str], message: str) -> None:
    run = SCRIPT.run("rates", *arguments)
    assert (run.status, run.out) == (2, "")
    assert run.err.endswith(f"surface_code.py rates: error: {message}\n")


def test_a_missing_package_is_named(rates: ModuleType) -> None:
    with pytest.raises(ImportError, match=r"^no_such is missing: pip install nimbrel\[examples\]$"):
        rates.require_packages(["no_such"])
