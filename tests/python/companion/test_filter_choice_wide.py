"""The filter of programs on registers that no dense filter holds."""

from __future__ import annotations

import nimbrel as nb
import pytest
from nimbrel import Opcode

CLIFFORD = [
    nb.ppm([], [0, 70, 130, 199], 2),
    nb.ppr(45, [1, 70], [0, 70, 199]),
    nb.write([0, 70, 130, 199], 5),
    nb.read(70, -2),
    nb.read([0, 1, 70, 199], -9),
    nb.swap(3, 199),
    nb.record(Opcode.X, target_mask=1, target_offset=70),
]


@pytest.mark.parametrize("part", CLIFFORD)
def test_clifford_records_of_several_words_go_to_the_tableau(part: nb.Program) -> None:
    assert nb.choose_filter(nb.program(nb.reset(200), nb.h(0), part)).name == "StreamCliffordQPU"


def test_a_measured_product_of_four_words() -> None:
    flips = nb.x([0, 70, 199])
    records = nb.program(nb.reset(200), flips, nb.ppm([], [0, 70, 130, 199], 2))
    assert nb.sample(records, 2).counts() == {"1": 2}


def test_a_bit_filter_counts_extended_measurements_without_flags() -> None:
    records = nb.program(nb.reset(200), nb.x(range(200)), nb.read([0, 70, 130], 0))
    assert nb.sample(records, 1, read_flags=[2]).counts() == {"0": 1}
