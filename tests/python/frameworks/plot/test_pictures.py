"""Pictures show the numbers that they are given, on axes that say what they show."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

matplotlib: Any = pytest.importorskip("matplotlib")
matplotlib.use("Agg")

import nimbrel.plot as plot  # noqa: E402
from matplotlib import pyplot as plt  # noqa: E402 - after the choice of a backend

BELL = nb.program(nb.reset(2), nb.h(0), nb.x(1, controls=0), nb.read([0, 1], 2))


@pytest.fixture(autouse=True)
def closed_figures() -> Iterator[None]:
    yield
    plt.close("all")


def heights(axes: Any) -> list[float]:
    return [bar.get_height() for bar in axes.patches]


def labels(axes: Any) -> list[str]:
    return [label.get_text() for label in axes.get_xticklabels()]


def test_counts_of_samples_are_bars_in_ascending_order() -> None:
    samples = nb.sample(BELL, 500, seed=1, filter="StreamQPU")
    axes = plot.counts(samples)
    assert labels(axes) == ["00", "11"]
    assert heights(axes) == list(samples.counts().values())
    assert axes.get_xlabel() == "outcome (read flag 3 … 2)"
    assert axes.get_ylabel() == "shots (of 500)"


def test_the_outcomes_that_have_no_bar_are_summed_up() -> None:
    axes = plot.counts({"00": 5, "01": 1, "10": 7, "11": 2}, most=2)
    assert labels(axes) == ["00", "10", "2 others"]
    assert heights(axes) == [5, 7, 3]
    assert axes.patches[2].get_facecolor() != axes.patches[1].get_facecolor()
    assert labels(plot.counts({"0": 5, "1": 1}, most=1)) == ["0", "1 other"]


def test_long_outcomes_are_labelled_in_hexadecimal() -> None:
    axes = plot.counts({"0" * 13: 1, "1" + "0" * 39: 2, "1" * 100: 3})
    assert labels(axes) == ["0x0000", "0x8000000000", "0xffffffff…ffffffff"]


@pytest.mark.parametrize("simulator", [nb.DenseSimulator, nb.SparseSimulator])
def test_probabilities_of_a_simulator_are_those_of_its_qubits(simulator: Any) -> None:
    with simulator() as sim:
        sim.run(nb.reset(3), nb.ry(60, 1), nb.x(2))
        axes = plot.probabilities(sim, [1, 2])
    assert labels(axes) == ["00", "01", "10", "11"]
    np.testing.assert_allclose(heights(axes), [0, 0, 0.75, 0.25], atol=1e-12)
    assert (axes.get_xlabel(), axes.get_ylabel()) == ("qubits 2 … 1", "probability")


def test_probabilities_come_from_an_array_too() -> None:
    axes = plot.probabilities([0.25, 0.75])
    assert heights(axes) == [0.25, 0.75]
    many = np.zeros(128)
    many[[5, 100]] = 0.5
    assert labels(plot.probabilities(many)) == ["0000101", "1100100"]


def test_one_qubit_is_named_alone() -> None:
    with nb.DenseSimulator() as sim:
        sim.run(nb.reset(3))
        assert plot.probabilities(sim, 2).get_xlabel() == "qubit 2"


def test_amplitudes_have_their_magnitude_and_the_colour_of_their_phase() -> None:
    state = np.array([0.5, 0.5j, -0.5, 0.5])
    axes = plot.amplitudes(state)
    assert heights(axes) == [0.5] * 4
    colours = [bar.get_facecolor() for bar in axes.patches]
    assert colours[0] == colours[3]
    assert len(set(colours)) == 3
    assert labels(axes) == ["00", "01", "10", "11"]
    assert axes.get_ylabel() == "magnitude of the amplitude"
    assert axes.get_xlabel() == "basis state (qubit 1 … 0)"
    [bar] = [other for other in axes.figure.axes if other is not axes]
    assert bar.get_ylabel() == "phase"
    assert [tick.get_text() for tick in bar.get_yticklabels()][2] == "$0$"


def test_phases_of_both_ends_have_the_same_colour() -> None:
    ends = [np.exp(1j * (np.pi - 1e-9)), np.exp(-1j * (np.pi - 1e-9))]
    bars: Any = plot.amplitudes(np.array(ends)).patches
    colours = [bar.get_facecolor() for bar in bars]
    np.testing.assert_allclose(colours[0], colours[1], atol=0.02)


def test_a_dense_register_with_fewer_terms_than_bars_shows_its_terms() -> None:
    with nb.DenseSimulator() as sim:
        sim.run(nb.reset(3), nb.h(0))
        axes = plot.amplitudes(sim)
    assert labels(axes) == ["000", "001"]
    assert axes.get_xlabel() == "basis state (qubit 2 … 0)"


def test_only_the_heaviest_amplitudes_have_bars() -> None:
    with nb.SparseSimulator() as sim:
        sim.run(nb.reset(40), nb.ry(60, 39), nb.ry(40, 3))
        axes = plot.amplitudes(sim, most=2)
    assert labels(axes) == ["0x0000000000", "0x8000000000"]
    assert heights(axes)[0] == pytest.approx(np.cos(np.deg2rad(30)) * np.cos(np.deg2rad(20)))


def test_a_density_sums_the_probability_of_the_cells() -> None:
    with nb.SparseSimulator() as sim:
        sim.run(nb.reset(50), nb.h([2, 3, 40]), nb.ry(60, 41))
        axes = plot.density(sim)
    [image] = axes.images
    cells: Any = image.get_array()
    assert cells.shape == (4, 4)
    # Columns are the values of the qubits 41 and 40, rows those of 3 and 2.
    np.testing.assert_allclose(cells[0], np.array([3, 3, 1, 1]) / 32)
    np.testing.assert_allclose(cells.sum(), 1)
    assert axes.get_xlabel() == "value of qubits 41 to 40"
    assert axes.get_ylabel() == "value of qubits 3 to 2"
    assert axes.get_title() == "16 heaviest terms, 100 % of the probability"
    [bar] = [other for other in axes.figure.axes if other is not axes]
    assert bar.get_ylabel() == "probability in a cell"


def test_a_cell_of_a_wide_square_holds_several_terms() -> None:
    cells: Any = plot.density(np.full(1 << 16, 1 / 256), most=1 << 16).images[0].get_array()
    assert cells.shape == (128, 128)
    np.testing.assert_allclose(cells, 4 / 65536)


def test_a_density_tells_what_the_terms_that_it_draws_hold() -> None:
    state = np.sqrt([0.4, 0.3, 0.2, 0.1])
    axes = plot.density(state, most=2)
    assert axes.get_title() == "2 heaviest terms, 70 % of the probability"
    assert plot.density(np.eye(4)[2]).get_title() == "the heaviest term, 100 % of the probability"


def test_pictures_go_into_the_axes_that_are_given() -> None:
    _, (first, second, third, fourth) = plt.subplots(1, 4)
    assert plot.counts({"0": 1}, ax=first) is first
    assert plot.probabilities([1.0, 0.0], ax=second) is second
    assert plot.amplitudes([1.0, 0.0], ax=third) is third
    assert plot.density([1.0, 0.0], ax=fourth) is fourth


@pytest.mark.parametrize("draw", [plot.counts, plot.probabilities, plot.amplitudes, plot.density])
def test_a_limit_below_one_is_refused(draw: Any) -> None:
    argument = {"0": 1} if draw is plot.counts else [1.0, 0.0]
    with pytest.raises(ValueError, match=r"^most must be 1 or more, not 0$"):
        draw(argument, most=0)


def test_what_cannot_be_drawn_is_refused() -> None:
    with pytest.raises(ValueError, match=r"^there are no outcomes to draw$"):
        plot.counts({})
    with pytest.raises(ValueError, match=r"^3 probabilities are no power of two$"):
        plot.probabilities([0.5, 0.25, 0.25])
    with pytest.raises(ValueError, match=r"^3 amplitudes are no power of two$"):
        plot.amplitudes([1, 0, 0])
    with pytest.raises(ValueError, match=r"^there are no terms to draw$"):
        plot.density([0.0, 0.0])
    with nb.DenseSimulator() as sim, pytest.raises(ValueError, match=r"must be named$"):
        plot.probabilities(sim)
