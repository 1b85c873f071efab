"""Outcomes of `sample` on the bit filter, where one run tells all."""

from __future__ import annotations

import nimbrel as nb
import pytest

ADDER = nb.program(
    nb.reset(4), nb.write([0, 1], 3), nb.lelbow(2, controls=[0, 1]), nb.x(1, controls=0)
)


def test_every_shot_has_the_outcome_of_one_run() -> None:
    samples = nb.sample(nb.program(ADDER, nb.read([0, 1, 2], 2)), 5)
    assert samples.filter_name == "StreamBitQPU"
    assert samples.counts() == {"101": 5}


def test_feed_forward_and_jumps_run() -> None:
    steps = [nb.read(2, 2), nb.x(3, flag=2), nb.jump_fwd(9, flag=2), nb.x(3), nb.label(9)]
    assert nb.sample(nb.program(ADDER, *steps, nb.read(3, 3)), 3).counts() == {"11": 3}


def test_a_wide_register_is_read_across_words() -> None:
    records = nb.program(nb.reset(1000), nb.x([3, 70, 999]), nb.read([999, 70, 69, 3], 2))
    assert nb.sample(records, 2).counts() == {"1101": 2}


@pytest.mark.parametrize("shots", [0, 1])
def test_few_shots(shots: int) -> None:
    samples = nb.sample(nb.program(ADDER, nb.read([0, 1, 2], 2)), shots)
    assert samples.packed.shape == (shots, 1)
    assert sum(samples.counts().values()) == shots
