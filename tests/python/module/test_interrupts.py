"""Signals that end a long run: Ctrl-C between two calls, SIGTERM within a call."""

from __future__ import annotations

import signal
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path

import pytest

# Every call flips qubit 16 twice, so it is 1 only within a call.
MANY_CALLS = """
import signal
import nimbrel as nb
signal.signal(signal.SIGINT, signal.default_int_handler)  # a parent may have it ignored
call = nb.program(nb.x(16), *[nb.h(range(16))] * 40, nb.x(16))
with nb.Simulator("StreamQPU") as sim:
    sim.run(nb.reset(17))
    print("ready", flush=True)
    try:
        while True:
            sim.run(call)
    except KeyboardInterrupt:
        print("probability of 1 on qubit 16:", round(sim.probabilities(16)[1], 9))
"""
# Takes minutes; the test does not wait for its end.
ONE_CALL = """
import nimbrel as nb
call = nb.program(nb.reset(20), *[nb.h(range(20))] * 20000)
with nb.Simulator("StreamQPU") as sim:
    print("ready", flush=True)
    sim.run(call)
"""
DEFAULT_HANDLER = "import signal; signal.signal(signal.SIGINT, signal.SIG_DFL)"
TICKS_OF_WORK = 20  # a fifth of a second of processor time


@contextmanager
def working(source: str) -> Iterator[subprocess.Popen[str]]:
    """A process that runs the source and has spent processor time in the engine since "ready"."""
    with subprocess.Popen(
        [sys.executable, "-c", source],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    ) as process:
        try:
            assert process.stdout is not None
            assert process.stdout.readline() == "ready\n"
            begun = ticks_of(process)
            wait_until(process, lambda: ticks_of(process) >= begun + TICKS_OF_WORK)
            yield process
        finally:
            process.kill()


def ticks_of(process: subprocess.Popen[str]) -> int:
    """The processor time that a process has used in user mode."""
    fields = Path(f"/proc/{process.pid}/stat").read_text(encoding="ascii").rpartition(")")[2]
    return int(fields.split()[11])


def is_pending(process: subprocess.Popen[str], number: signal.Signals) -> bool:
    """Whether the kernel has yet to deliver the signal."""
    status = Path(f"/proc/{process.pid}/status").read_text(encoding="ascii")
    words = [line.split()[1] for line in status.splitlines() if line.startswith(("SigP", "ShdP"))]
    return any(int(word, 16) >> (number - 1) & 1 for word in words)


def wait_until(process: subprocess.Popen[str], holds: Callable[[], bool]) -> None:
    """Polls; fails when the process ends before."""
    while not holds():
        assert process.poll() is None
        time.sleep(0.01)


def test_ctrl_c_takes_effect_between_two_calls() -> None:
    with working(MANY_CALLS) as process:
        process.send_signal(signal.SIGINT)
        assert process.communicate() == ("probability of 1 on qubit 16: 0.0\n", "")
        assert process.returncode == 0


def test_ctrl_c_waits_for_the_end_of_a_call() -> None:
    with working(ONE_CALL) as process:
        process.send_signal(signal.SIGINT)
        wait_until(process, lambda: not is_pending(process, signal.SIGINT))
        delivered = ticks_of(process)
        wait_until(process, lambda: ticks_of(process) >= delivered + TICKS_OF_WORK)
        assert process.poll() is None


@pytest.mark.parametrize(
    ("source", "number"),
    [
        (ONE_CALL, signal.SIGTERM),
        (ONE_CALL, signal.SIGKILL),
        (DEFAULT_HANDLER + ONE_CALL, signal.SIGINT),
    ],
    ids=["SIGTERM", "SIGKILL", "Ctrl-C without a handler"],
)
def test_a_process_ends_within_a_call(source: str, number: signal.Signals) -> None:
    with working(source) as process:
        process.send_signal(number)
        process.communicate(timeout=60)
        assert process.returncode == -number
