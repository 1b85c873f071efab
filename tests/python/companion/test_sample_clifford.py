"""Outcomes of `sample` on the Clifford filter."""

from __future__ import annotations

import random

import nimbrel as nb
import numpy as np
import pytest

from support.outcomes import assert_distributed, expected_counts

SHOTS = 4000
CLIFFORD = "StreamCliffordQPU"
PAIR = nb.program(nb.h(0), nb.x(1, controls=0))
PROGRAMS = {
    "entangled": [nb.reset(3), PAIR, nb.x(2), nb.read([0, 1, 2], 2)],
    "a part of the qubits": [nb.reset(3), PAIR, nb.h(2), nb.x(1, controls=2), nb.read([1], 2)],
    "certain outcomes": [nb.reset(3), nb.x([0, 2]), nb.read([0, 1, 2], -9)],
    "feed-forward": [nb.reset(2), nb.h(0), nb.read(0, 2), nb.x(1, flag=2), nb.read(1, 3)],
    "written": [nb.reset(2), PAIR, nb.write(0, 1), nb.read([0, 1], 2)],
    "a product": [nb.reset(2), PAIR, nb.s(0), nb.ppm([0], [1], 2), nb.ppm([0], [0, 1], 3)],
}


@pytest.mark.parametrize("name", PROGRAMS)
def test_the_outcomes_are_distributed_as_the_records_tell(name: str) -> None:
    records = nb.program(*PROGRAMS[name])
    samples = nb.sample(records, SHOTS, filter=CLIFFORD)
    assert samples.filter_name == CLIFFORD
    assert_distributed(samples, expected_counts(records, samples.read_flags))


@pytest.mark.parametrize("number", range(30))
def test_random_states(rng: random.Random, number: int) -> None:
    gates = []
    for _ in range(20):
        a, b = rng.sample(range(4), 2)
        gates.append(rng.choice((nb.h(a), nb.s(a), nb.x(b, controls=a), nb.cz(a, b), nb.y(a))))
    read = rng.sample(range(4), 3)
    records = nb.program(nb.reset(4), *gates, *[nb.read(q, 2 + q) for q in read])
    samples = nb.sample(records, SHOTS, filter=CLIFFORD, seed=number)
    assert_distributed(samples, expected_counts(records, samples.read_flags))


@pytest.mark.parametrize("num_qubits", [64, 65, 100, 128, 200])
def test_a_wide_register_gives_its_qubits_in_order(num_qubits: int) -> None:
    flipped = sorted({0, 5, 63, num_qubits - 1})
    chain = nb.x.each(range(1, num_qubits), controls=range(num_qubits - 1))
    records = nb.program(
        nb.reset(num_qubits), nb.h(0), chain, nb.x(flipped), nb.read(range(num_qubits), 2)
    )
    bits = nb.sample(records, 200, filter=CLIFFORD).bits()
    expected = np.zeros(num_qubits, dtype=np.uint8)
    expected[flipped] = 1
    assert {bytes(row) for row in bits} == {bytes(expected), bytes(expected ^ 1)}


def test_a_qubit_outside_a_wide_register_is_refused_though_the_register_is_widened() -> None:
    records = nb.program(nb.reset(70), nb.h(0), nb.x(100), nb.read(0, 2))
    with pytest.raises(ValueError, match="record 2: qubit 100 lies outside the register of 70"):
        nb.sample(records, 1, filter=CLIFFORD)


def test_a_seed_repeats_the_draws() -> None:
    records = nb.program(nb.reset(5), nb.h(range(5)), nb.read(range(5), 2))
    first, second, other = (
        nb.sample(records, 50, filter=CLIFFORD, seed=seed).values().tolist() for seed in (3, 3, 4)
    )
    assert first == second != other


def test_a_seed_is_refused_if_the_program_runs_once_a_shot() -> None:
    records = nb.program(nb.reset(1), nb.h(0), nb.read(0, 2), nb.h(0), nb.read(0, 3))
    with pytest.raises(ValueError, match="record 2 measures a qubit before a gate on it"):
        nb.sample(records, 5, filter=CLIFFORD, seed=1)


def test_a_seeded_program_that_runs_once_a_shot_has_another_filter() -> None:
    records = nb.program(nb.reset(1), nb.h(0), nb.read(0, 2), nb.h(0), nb.read(0, 3))
    first, second = (nb.sample(records, 50, seed=1) for _ in range(2))
    assert first.filter_name == "StreamQPU"
    assert first.values().tolist() == second.values().tolist()
    assert nb.sample(records, 5).filter_name == CLIFFORD
