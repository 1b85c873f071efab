"""The arguments of `sample`: open simulators, seeds, errors."""

from __future__ import annotations

import nimbrel as nb
import pytest

BELL = nb.program(nb.reset(2), nb.h(0), nb.x(1, controls=0), nb.read([0, 1], 2))
FEEDING = nb.program(nb.reset(2), nb.h(0), nb.read(0, 2), nb.x(1, flag=2), nb.read(1, 3))


@pytest.mark.parametrize("records", [BELL, FEEDING], ids=["drawn", "run once a shot"])
@pytest.mark.parametrize("filter_", ["StreamQPU", "StreamSparseQPU"])
def test_a_seed_repeats_the_outcomes(records: nb.Program, filter_: str) -> None:
    first, second, other = (
        nb.sample(records, 64, filter=filter_, seed=seed).values().tolist() for seed in (5, 5, 6)
    )
    assert first == second != other


@pytest.mark.parametrize("records", [BELL, FEEDING], ids=["drawn", "run once a shot"])
def test_an_open_simulator_runs_the_program_and_can_be_used_afterwards(records: nb.Program) -> None:
    with nb.Simulator("StreamQPU", max_num_threads=1) as simulator:
        samples = nb.sample(records, 100, filter=simulator)
        assert set(samples.counts()) <= {"00", "11"}
        assert (samples.filter_name, samples.reason) == ("StreamQPU", "the caller named it")
        simulator.run(nb.reset(1), nb.x(0), nb.read(0, 9))
        assert simulator.flags(9, 1) == 1


def test_a_program_begins_with_its_reset() -> None:
    for records in (nb.program(), nb.h(0), nb.program(nb.h(0), nb.reset(1))):
        with pytest.raises(ValueError, match="the first record of the program must be its reset"):
            nb.sample(records, 1)


def test_a_negative_number_of_shots_is_refused() -> None:
    with pytest.raises(ValueError, match="shots must be 0 or more, not -1"):
        nb.sample(BELL, -1)


@pytest.mark.parametrize("filter_", ["auto", "StreamQPU", "StreamSparseQPU", "StreamCliffordQPU"])
def test_a_qubit_outside_the_register_is_refused(filter_: str) -> None:
    records = nb.program(nb.reset(2), nb.h(0), nb.read(5, 2))
    with pytest.raises(ValueError, match="record 2: qubit 5 lies outside the register of 2 qubits"):
        nb.sample(records, 1, filter=filter_)


def test_an_engine_error_is_raised() -> None:
    with pytest.raises(RuntimeError, match="Unknown opcode: 0x123"):
        nb.sample(nb.program(nb.reset(1), nb.record(0x123), nb.read(0, 2)), 1, filter="StreamQPU")


def test_an_unknown_filter_is_refused_by_the_engine() -> None:
    with pytest.raises(RuntimeError, match="Unknown Filter type: StreamX"):
        nb.sample(BELL, 1, filter="StreamX")


def test_a_flag_number_that_the_engine_cannot_fetch_is_refused() -> None:
    with pytest.raises(ValueError, match="cannot be fetched"):
        nb.sample(FEEDING, 1, read_flags=[2**31])


def test_no_shots() -> None:
    for records in (BELL, FEEDING):
        assert nb.sample(records, 0).packed.shape == (0, 1)


def test_a_filter_that_sends_its_programs_to_a_service_is_refused() -> None:
    with pytest.raises(ValueError, match='a "StreamConnect" filter sends its programs'):
        nb.sample(BELL, 1, filter="StreamConnect")
    with nb.Simulator("StreamConnect") as remote, pytest.raises(ValueError, match="StreamConnect"):
        nb.expectation(nb.program(nb.reset(1)), {"Z": 1.0}, filter=remote)
