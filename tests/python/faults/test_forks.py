"""Forks of a process that has filters of every kind: child and parent both go on."""

from __future__ import annotations

import os
import signal
import subprocess
import sys
import traceback
from collections.abc import Callable

import nimbrel as nb
import pytest
from nimbrel.service import running_service

# The forks happen in another interpreter, so that a hang or a crash ends only that process. Newer
# Pythons warn of a fork while threads run.
COMMAND = (sys.executable, "-W", "ignore::DeprecationWarning", "-c")
PROGRAM = "import sys; sys.path[:0] = {path!r}; from faults import test_forks as t; t.{call}()"
SECONDS = 40  # after which a child that hangs is ended
QUBITS = 16  # enough for workers and waiting gates
ECHO = nb.program(nb.reset(3), nb.x([0, 2]), nb.read(range(3), 2))


def in_child(work: Callable[[], None]) -> int:
    """Forks, runs the work in the child, and returns the child's exit status."""
    child = os.fork()
    if child == 0:
        status = 1
        try:
            signal.alarm(SECONDS)
            work()
            status = 0
        except BaseException:
            traceback.print_exc()
        finally:
            os._exit(status)
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])


def all_filters() -> None:
    """The child uses and frees copies of filters of all local types."""
    types = ("StreamQPU", "StreamSparseQPU", "StreamBitQPU", "StreamCliffordQPU")
    filters = [nb.Simulator(filter_type) for filter_type in types]

    def use_and_free() -> None:
        for sim in filters:
            sim.run(nb.x(1), nb.read(range(3), 2))
            assert sim.flags(2, 3) == 7
            sim.run(nb.reset(14), ECHO)
            assert sim.flags(2, 3) == 5
            sim.close()

    for sim in filters:
        sim.run(ECHO)
    assert in_child(use_and_free) == 0
    for sim in filters:
        sim.run(nb.x(1), nb.read(range(3), 2))
        assert sim.flags(2, 3) == 7
        sim.close()


def grandchildren() -> None:
    """A child of a child has the register too, and so has a child of a child's own workers."""
    sim = nb.DenseSimulator()
    sim.run(nb.reset(QUBITS), nb.x([0, 5]), nb.h(3))

    def is_right() -> None:
        sim.run(nb.h(3), nb.read(range(QUBITS), 2))
        assert sim.flags(2, QUBITS) == 0b100001

    def fork_again() -> None:
        assert in_child(is_right) == 0
        with nb.DenseSimulator() as own:
            own.run(nb.reset(QUBITS), nb.x(1), nb.h(3))
            assert in_child(lambda: own.run(nb.h(3), nb.read(1, 2))) == 0
            own.run(nb.h(3), nb.read(range(QUBITS), 2))
            assert own.flags(2, QUBITS) == 2
        is_right()

    assert in_child(fork_again) == 0
    is_right()
    sim.close()


def sockets() -> None:
    """A child that frees its copy of a connected filter leaves the parent's connection open."""
    with (
        running_service("--filter", "StreamBitQPU", "--quiet") as address,
        nb.RemoteSimulator() as sim,
    ):
        sim.connect(*address)
        assert sim.fetch(2, 3, ECHO) == 5
        assert in_child(sim.close) == 0
        assert sim.connected
        assert sim.fetch(2, 3, ECHO) == 5


@pytest.mark.parametrize("scene", [all_filters, grandchildren, sockets])
def test_parent_and_child_both_go_on(scene: Callable[[], None]) -> None:
    command = [*COMMAND, PROGRAM.format(path=sys.path, call=scene.__name__)]
    done = subprocess.run(command, capture_output=True, text=True, timeout=90, check=False)
    assert (done.returncode, done.stderr) == (0, "")
