"""Outcomes of large states, which are drawn row by row."""

from __future__ import annotations

import nimbrel as nb
import numpy as np
import pytest

from support.outcomes import assert_distributed

NUM_QUBITS = 18
SHOTS = 4000  # few beside 2**18 amplitudes


@pytest.mark.parametrize("read", [[0, 1, 2], [4, 5, 6, 7], [0, 8, 17], [16, 17]])
def test_a_product_state_has_the_products_of_its_probabilities(read: list[int]) -> None:
    angles = np.linspace(20, 160, NUM_QUBITS)
    records = nb.program(
        nb.reset(NUM_QUBITS), nb.ry.each(angles, range(NUM_QUBITS)), nb.read(read, 2)
    )
    ones = np.sin(np.deg2rad(angles) / 2) ** 2
    expected = {}
    for value in range(1 << len(read)):
        factors = [ones[q] if value >> place & 1 else 1 - ones[q] for place, q in enumerate(read)]
        expected[f"{value:0{len(read)}b}"] = float(np.prod(factors))
    assert_distributed(nb.sample(records, SHOTS, filter="StreamQPU", seed=1), expected)


def test_terms_of_amplitude_0_are_never_drawn() -> None:
    # Of each row of amplitudes one term has a probability, and of most rows none.
    copies = nb.x.each(range(1, NUM_QUBITS), controls=[0] * (NUM_QUBITS - 1))
    records = nb.program(nb.reset(NUM_QUBITS), nb.ry(70, 0), copies, nb.read(range(NUM_QUBITS), 2))
    chance = float(np.sin(np.deg2rad(35)) ** 2)
    expected = {"0" * NUM_QUBITS: 1 - chance, "1" * NUM_QUBITS: chance}
    assert_distributed(nb.sample(records, SHOTS, filter="StreamQPU", seed=2), expected)
