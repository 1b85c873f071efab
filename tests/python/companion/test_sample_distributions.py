"""Outcomes of `sample` against the exact distribution of a model that follows every branch."""

from __future__ import annotations

import random

import nimbrel as nb
import pytest

from support.outcomes import assert_distributed, expected_counts

SHOTS = 4000
FILTERS = ("auto", "StreamQPU", "StreamSparseQPU")
GATES = (nb.h, nb.x, nb.y, nb.z, nb.s, nb.t, nb.rootx, nb.rooty_inv)

BELL = nb.program(nb.h(0), nb.x(1, controls=0))
PROGRAMS = {
    "all at the end": [nb.reset(2), BELL, nb.read([0, 1], 2)],
    "a part of the qubits": [nb.reset(3), BELL, nb.ry(70, 2), nb.read([0, 2], 5)],
    "in an odd order of flags": [nb.reset(2), nb.ry(50, 0), nb.read(1, 2), nb.read(0, 9)],
    "one flag stored twice": [nb.reset(2), nb.ry(50, 0), nb.h(1), nb.read(0, 2), nb.read(1, 2)],
    "one qubit read twice": [nb.reset(1), nb.ry(80, 0), nb.read(0, 2), nb.read(0, 3)],
    "inverted flags": [nb.reset(2), nb.ry(50, 0), nb.read([0, 1], -9)],
    "gates on other qubits behind": [
        *[nb.reset(2), nb.ry(50, 0), nb.read(0, 2)],
        *[nb.ry(100, 1), nb.read(1, 3)],
    ],
    "a gate behind a measurement": [
        nb.reset(1),
        nb.h(0),
        nb.read(0, 2),
        nb.ry(60, 0),
        nb.read(0, 3),
    ],
    "a control behind a measurement": [
        *[nb.reset(2), nb.h(0), nb.read(0, 2)],
        *[nb.x(1, controls=0), nb.read(1, 3)],
    ],
    "feed-forward": [nb.reset(2), nb.ry(80, 0), nb.read(0, 2), nb.x(1, flag=2), nb.read(1, 3)],
    "feed-forward on 0": [
        nb.reset(2),
        nb.ry(80, 0),
        nb.read(0, 2),
        nb.x(1, flag=-2),
        nb.read(1, 3),
    ],
    "a condition on a flag that is stored later": [
        *[nb.reset(2), nb.x(1, flag=4), nb.ry(80, 0)],
        *[nb.read(0, 4), nb.read(1, 3)],
    ],
    "a negative condition on a flag never stored": [
        *[nb.reset(2), nb.ry(80, 0), nb.x(1, flag=-70)],
        nb.read([0, 1], 2),
    ],
    "a negative condition in a stored word": [
        *[nb.reset(2), nb.ry(80, 0), nb.read(0, 2)],
        *[nb.x(1, flag=-50), nb.read(1, 3)],
    ],
    "a conditional measurement": [
        *[nb.reset(2), nb.ry(80, 0), nb.h(1), nb.read(0, 2)],
        nb.read(1, 3, flag=2),
    ],
    "a jump": [
        *[nb.reset(2), nb.ry(80, 0), nb.read(0, 2), nb.jump_fwd(7, flag=2)],
        *[nb.h(1), nb.read(1, 3), nb.label(7), nb.read(1, 4)],
    ],
    "a jump without a label": [
        *[nb.reset(1), nb.ry(80, 0), nb.read(0, 2)],
        *[nb.jump_fwd(7, flag=2), nb.read(0, 3)],
    ],
    "a second reset": [nb.reset(1), nb.h(0), nb.read(0, 2), nb.reset(2), nb.h(1), nb.read(1, 3)],
    "freed at the end": [nb.reset(2), BELL, nb.read(0, 2), nb.free([0, 1])],
    "read after a free": [nb.reset(2), BELL, nb.free(0), nb.read([0, 1], 2)],
    "cleared between gates": [nb.reset(2), BELL, nb.clear(0), nb.ry(70, 0), nb.read([0, 1], 2)],
    "written at the start": [nb.reset(2), nb.write(0, 1), nb.ry(70, 1), nb.read([0, 1], 2)],
    "written and not used by a gate": [nb.reset(2), nb.write(0, 1), nb.h(1), nb.read([0, 1], 2)],
    "written between two measurements": [
        *[nb.reset(2), nb.h(1), nb.read(0, 2), nb.write(0, 1), nb.read([0, 1], 3)],
    ],
    "written between gates": [nb.reset(2), BELL, nb.write(1, 1), nb.h(1), nb.read([0, 1], 2)],
    "written behind a measurement": [
        *[nb.reset(2), nb.read(0, 2), nb.write(0, 1), nb.h(1)],
        *[nb.x(1, controls=0), nb.read([0, 1], 3)],
    ],
    "a product measured": [nb.reset(2), BELL, nb.ry(30, 0), nb.ppm([0, 1], [], 2), nb.read([0], 3)],
    "a product measured with a negative sign": [
        *[nb.reset(2), BELL, nb.ry(30, 0)],
        nb.ppm([0], [1], 2, sign=-1),
    ],
    "constant flags": [
        *[nb.reset(1), nb.flag_nand(1, 1, 5), nb.flag_nand(0, 1, 6), nb.flag_nand(6, 5, 7)],
        *[nb.ry(50, 0), nb.read(0, 2)],
    ],
    "flags combined": [nb.reset(2), BELL, nb.read([0, 1], 2), nb.flag_nand(2, -3, 4)],
    "nothing measured": [nb.reset(1), nb.h(0)],
}


@pytest.mark.parametrize("filter_", FILTERS)
@pytest.mark.parametrize("name", PROGRAMS)
def test_the_outcomes_are_distributed_as_the_records_tell(name: str, filter_: str) -> None:
    records = nb.program(*PROGRAMS[name])
    samples = nb.sample(records, SHOTS, filter=filter_, seed=11)
    assert_distributed(samples, expected_counts(records, samples.read_flags))


@pytest.mark.parametrize("name", PROGRAMS)
def test_the_flags_that_are_asked_for_are_returned(name: str) -> None:
    records = nb.program(*PROGRAMS[name])
    wanted = [3, -2, 1, 0, -1, 40, 200, -200, 2, 3]
    samples = nb.sample(records, SHOTS, read_flags=wanted, seed=12)
    assert samples.read_flags == tuple(wanted)
    assert_distributed(samples, expected_counts(records, wanted))


def some_records(rng: random.Random, num_qubits: int) -> list[nb.RecordArray]:
    """One step of a random program."""
    first, second = rng.sample(range(num_qubits), 2)
    flag = rng.choice((0, 0, 0, 0, rng.choice((2, 3, -2, -3, -70, -1))))
    kind = rng.random()
    if kind < 0.45:
        return [rng.choice(GATES)(first, flag=flag)]
    if kind < 0.6:
        return [nb.x(first, controls=second, flag=flag)]
    if kind < 0.7:
        return [nb.ry(rng.uniform(0, 180), first, flag=flag)]
    if kind < 0.9:
        return [nb.read(first, rng.choice((2, 3, 4, -3, 0)), flag=flag)]
    if kind < 0.95:
        return [rng.choice((nb.clear, nb.free))(first, flag=0)]
    return [nb.jump_fwd(3, flag=flag), nb.h(second), nb.label(3)]


@pytest.mark.parametrize("number", range(60))
def test_random_programs(rng: random.Random, number: int) -> None:
    num_qubits = 3
    steps = [some_records(rng, num_qubits) for _ in range(rng.randrange(4, 11))]
    ends = [nb.read(range(num_qubits), 10)] * (number % 2)
    records = nb.program(nb.reset(num_qubits), *[part for step in steps for part in step], *ends)
    filter_ = rng.choice(FILTERS)
    samples = nb.sample(records, SHOTS, filter=filter_, seed=number)
    assert_distributed(samples, expected_counts(records, samples.read_flags))
