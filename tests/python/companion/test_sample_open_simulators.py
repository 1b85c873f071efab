"""Open simulators with something of their own: flags, an open jump, random states, no check."""

from __future__ import annotations

import nimbrel as nb
import pytest
from nimbrel import Opcode


@pytest.mark.parametrize("filter_", ["StreamQPU", "StreamSparseQPU", "StreamBitQPU"])
def test_flags_stay_from_run_to_run(filter_: str) -> None:
    records = nb.program(nb.reset(1), nb.flag_nand(5, 5, 5))
    with nb.Simulator(filter_) as simulator:
        samples = nb.sample(records, 4, filter=simulator)
    assert samples.values().tolist() == [1, 0, 1, 0]


@pytest.mark.parametrize("filter_", ["StreamQPU", "StreamCliffordQPU"])
def test_a_jump_may_be_open(filter_: str) -> None:
    with nb.Simulator(filter_) as simulator:
        simulator.run(nb.reset(1), nb.jump_fwd(9))
        records = nb.program(nb.reset(1), nb.x(0), nb.label(9), nb.read(0, 2))
        assert nb.sample(records, 3, filter=simulator).values().tolist() == [0, 1, 1]


def test_every_run_may_begin_with_a_random_state() -> None:
    records = nb.program(nb.reset(1), nb.read(0, 2))
    nb.seed(7)
    with nb.Simulator("StreamQPU", randomized=1) as simulator:
        counts = nb.sample(records, 4000, filter=simulator).counts()
    # The outcomes of one random state are rarely this even.
    assert abs(counts["0"] - 2000) < 5 * 32


def test_without_a_check_a_qubit_outside_the_register_takes_no_flag() -> None:
    outside = nb.record(Opcode.READ, target_mask=7, read_flag=-4)
    with nb.Simulator("StreamQPU", check_qubits=False) as simulator:
        samples = nb.sample(
            nb.program(nb.reset(2), outside), 1, read_flags=[4, 3, 2], filter=simulator
        )
    assert samples.counts() == {"011": 1}
