"""Signals that arrive within calls of a socket filter, with handlers of both kinds."""

from __future__ import annotations

import signal
import socket
import subprocess
import sys
from collections.abc import Iterator
from contextlib import contextmanager
from types import ModuleType
from typing import Any

import nimbrel as nb
import pytest
from nimbrel.service import running_service

from support.remote import LOOPBACK, Remote, open_remote, reply

EVERY = 0.0005  # seconds between two signals
WAITS = 5
BOTH_KINDS = pytest.mark.parametrize("interrupts", [True, False], ids=["EINTR", "SA_RESTART"])


@contextmanager
def signals(interrupts: bool) -> Iterator[list[int]]:
    """SIGALRM again and again, with a handler that does or does not end system calls."""
    seen: list[int] = []
    before = signal.signal(signal.SIGALRM, lambda number, _: seen.append(number))
    signal.siginterrupt(signal.SIGALRM, interrupts)
    signal.setitimer(signal.ITIMER_REAL, EVERY, EVERY)
    try:
        yield seen
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)


@pytest.fixture
def remote(engine: ModuleType, capfd: Any) -> Iterator[Remote]:
    with open_remote(engine, capfd) as pair:
        yield pair


@BOTH_KINDS
def test_a_wait_for_replies_goes_on(remote: Remote, interrupts: bool) -> None:
    remote.join()
    with signals(interrupts) as seen:
        for number in range(WAITS):
            remote.fetch_from([reply(2 + number, 1, 1)])
    assert seen
    assert remote.filter.flags(2, WAITS) == (1 << WAITS) - 1


@BOTH_KINDS
def test_a_session_with_a_service_goes_on(interrupts: bool) -> None:
    value = 0b1011_0110
    flips = [nb.x(qubit) for qubit in range(8) if value >> qubit & 1]
    program = nb.program(nb.reset(8), *flips, nb.read(range(8), 2))
    with (
        running_service("--filter", "StreamBitQPU") as address,
        nb.RemoteSimulator() as sim,
    ):
        sim.connect(*address)
        with signals(interrupts) as seen:
            for _ in range(WAITS):
                assert sim.fetch(2, 8, program) == value
    assert seen


# Makes room for a connection once it has seen one wait for room at so many looks in a row.
ACCEPT_LATER = """
import socket, sys, time
server = socket.socket(fileno=int(sys.argv[1]))
port = f":{server.getsockname()[1]:04X} 02 "  # the address of a peer, and the state SYN_SENT
waiting = 0
while waiting < 50:
    with open("/proc/net/tcp") as table:
        waiting = waiting + 1 if port in table.read() else 0
    time.sleep(0.001)
server.accept()
sys.stdin.read()
"""


def test_an_interrupted_connection_fails_at_once(engine: ModuleType, capfd: Any) -> None:
    """Signals arrive while the system waits for room in the listener's queue."""
    handle = engine.new_native_filter("StreamConnect")
    with socket.socket() as listener, socket.socket() as queued:
        listener.bind((LOOPBACK, 0))
        listener.listen(0)
        queued.connect(listener.getsockname())
        with subprocess.Popen(
            [sys.executable, "-c", ACCEPT_LATER, str(listener.fileno())],
            pass_fds=[listener.fileno()],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
        ) as helper:
            try:
                with signals(interrupts=True) as seen:
                    port = listener.getsockname()[1]
                    result = engine.connect(handle, LOOPBACK, port, 1.0)
                status = engine.get_status(handle)
            finally:
                helper.kill()
    engine.delete_native_filter(handle)
    assert f"failed to connect to host {LOOPBACK}:{port}" in result
    assert status == '{"connected":false}'
    assert seen
    assert "ERROR connecting" in capfd.readouterr().err
