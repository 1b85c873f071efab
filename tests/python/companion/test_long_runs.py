"""Ctrl-C ends a long run soon, and the filter can be used afterwards."""

from __future__ import annotations

import signal
import subprocess
import sys
from pathlib import Path

import nimbrel as nb
import numpy as np
import pytest
from nimbrel.running.bounded_calls import put_in_calls, run_in_calls

TICKS_OF_WORK = 20  # a fifth of a second of processor time

# Each takes minutes; the test does not wait for the end.
START = """
import signal
import nimbrel as nb
from nimbrel.running.bounded_calls import run_in_calls
signal.signal(signal.SIGINT, signal.default_int_handler)  # a parent may have it ignored
sim = nb.Simulator("StreamQPU")
print("ready", flush=True)
try:
    {run}
except KeyboardInterrupt:
    sim.run(nb.reset(2), nb.x(1), nb.read([0, 1], 2))
    print("flags:", sim.flags(2, 2))
sim.close()
"""
LAYERS = "nb.reset(20), *[nb.h(range(20)), nb.ry(30, range(20))] * 50000"
RUNS = {
    "one long program": f"run_in_calls(sim, {LAYERS})",
    "a program that is sampled": f"nb.sample(nb.program({LAYERS}, nb.read(3, 2)), 10, filter=sim)",
    "an expectation value": f"nb.expectation(nb.program({LAYERS}), {{'Z': 1.0}}, filter=sim)",
    "long shots": f"nb.sample(nb.program({LAYERS}, nb.read(3, 2), nb.h(3)), 10, filter=sim)",
    "many shots": (
        "nb.sample(nb.program(nb.reset(3), nb.h(0), nb.read(0, 2), nb.h(0)), 10**9, filter=sim)"
    ),
}


def ticks_of(process: subprocess.Popen[str]) -> int:
    """The processor time that a process has used in user mode."""
    fields = Path(f"/proc/{process.pid}/stat").read_text(encoding="ascii").rpartition(")")[2]
    return int(fields.split()[11])


@pytest.mark.parametrize("name", RUNS)
def test_ctrl_c_ends_a_run_and_the_simulator_works_on(name: str) -> None:
    source = START.format(run=RUNS[name])
    with subprocess.Popen(
        [sys.executable, "-c", source], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    ) as process:
        try:
            assert process.stdout is not None
            assert process.stdout.readline() == "ready\n"
            begun = ticks_of(process)
            while ticks_of(process) < begun + TICKS_OF_WORK:
                assert process.poll() is None
            process.send_signal(signal.SIGINT)
            assert process.communicate() == ("flags: 2\n", "")
            assert process.returncode == 0
        finally:
            process.kill()


def pieces(records: nb.Program, count: int) -> complex:
    """A digest of the state after calls of `count` records."""
    with nb.Simulator("StreamQPU") as simulator:
        with simulator.following(records) as handle:
            put_in_calls(handle, records, count)
        return complex(simulator.state() @ np.arange(8))


@pytest.mark.parametrize("count", [1, 2, 3, 5])
def test_a_program_may_be_cut_anywhere(count: int) -> None:
    records = nb.program(
        *[nb.reset(3), nb.h([0, 1, 2]), nb.jump_fwd(5), nb.x(0), nb.label(4), nb.y(1)],
        *[nb.label(5), nb.pcp(0, 2, 0, []), nb.pcp(1, 2, [], 1), nb.ry(20, 2), nb.t(1)],
    )
    assert pieces(records, count) == pieces(records, len(records))


def test_extension_records_may_be_cut_from_their_gate() -> None:
    records = nb.program(nb.reset(200), nb.x([3, 70, 199]), nb.read([3, 70, 71, 199], 2))
    with nb.Simulator("StreamBitQPU") as simulator:
        with simulator.following(records) as handle:
            put_in_calls(handle, records, 1)
        assert simulator.flags(2, 4) == 0b1011


def test_a_failing_record_gives_the_error_of_the_engine_and_ends_the_run() -> None:
    records = nb.program(nb.reset(1), nb.x(0), nb.record(0x123), nb.x(0))
    with nb.Simulator("StreamQPU") as simulator:
        with pytest.raises(RuntimeError, match="Unknown opcode: 0x123"):
            run_in_calls(simulator, records)
        assert simulator.probabilities(0).tolist() == [0, 1]


def test_a_program_is_checked_before_it_runs() -> None:
    with nb.Simulator("StreamQPU") as simulator:
        simulator.run(nb.reset(1), nb.x(0))
        with pytest.raises(ValueError, match="record 1: qubit 4 lies outside"):
            run_in_calls(simulator, nb.h(0), nb.h(4))
        assert simulator.probabilities(0).tolist() == [0, 1]
