"""The reason for a sparse filter names a bound that the number of stored terms never exceeds."""

from __future__ import annotations

import re

import nimbrel as nb
import pytest

NUM_QUBITS = 20
EVERY = range(2, 8)
PROGRAMS = {
    "a swap with a control that differs": [
        *[nb.x(0), nb.h(10), nb.swap(0, 1, controls=10), nb.h(10), nb.t(0)],
    ],
    "a swap whose target differs": [nb.h(0), nb.swap(0, 1), nb.h(1), nb.t(0)],
    "a jump over a reset": [
        *[nb.h(EVERY), nb.flag_nand(0, 0, 5), nb.jump_fwd(1, flag=5), nb.reset(NUM_QUBITS)],
        *[nb.label(1), nb.t(0), nb.h(0)],
    ],
    "a reset that no jump skips": [nb.h(EVERY), nb.reset(NUM_QUBITS), nb.h(0), nb.t(0)],
}


@pytest.mark.parametrize("name", PROGRAMS)
def test_the_list_is_never_longer_than_the_bound(name: str) -> None:
    records = nb.program(nb.reset(NUM_QUBITS), *PROGRAMS[name])
    found = re.search(r"at most (\d+) of", nb.choose_filter(records).reason)
    assert found is not None
    with nb.Simulator("StreamSparseQPU") as simulator:
        simulator.run(records)
        assert simulator.num_stored_terms() <= int(found[1])
