"""A client whose records take long: the service still serves other clients."""

from __future__ import annotations

import select
import signal
import socket
from collections.abc import Iterator

import nimbrel as nb
import numpy as np
import pytest

from support.remote import LONG
from support.service import Client, Service, service_of

# Each takes some hundredths of a second, all together longer than any timeout here.
WIDTH = 22
SLOW = np.repeat(nb.h(range(WIDTH)), 3)
ENDLESS = np.repeat(nb.h(range(WIDTH)), 6000)  # more than is read ahead


def start_long_array(client: Client) -> None:
    """Returns while the service runs the array."""
    client.send(nb.reset(WIDTH), SLOW, nb.fetch_request(2, 0), ENDLESS)
    assert client.receive(1)


@pytest.fixture
def service() -> Iterator[Service]:
    """A service that is killed if it does not end."""
    started = Service("--quiet", "--max-clients", "2")
    try:
        yield started
    finally:
        started.process.kill()
        started.end()


@pytest.mark.parametrize("how", ["SIGTERM", "SIGINT", "end of input"])
def test_it_ends_in_the_middle_of_an_array(service: Service, how: str) -> None:
    with Client(service) as client:
        start_long_array(client)
        if how == "end of input":
            assert service.process.stdin is not None
            service.process.stdin.close()
            service.process.stdin = None
        else:
            service.process.send_signal(signal.Signals[how])
        assert service.process.wait(LONG) == 0
        assert service.end() == (0, "")


def test_others_are_served_meanwhile(service: Service) -> None:
    with Client(service) as client, Client(service) as other:
        start_long_array(client)
        other.send(nb.reset(1), nb.x(0), nb.read(0, 2))
        assert other.flags(2, 1) == 1
        client.socket.setblocking(False)
        with pytest.raises(BlockingIOError):
            client.socket.recv(1)  # it still runs


def test_a_client_that_resets_is_found_out(service: Service) -> None:
    with Client(service) as client:
        start_long_array(client)
        at_once = b"\1\0\0\0\0\0\0\0"
        client.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, at_once)
    assert service.process.stderr is not None
    assert select.select([service.process.stderr], [], [], LONG)[0]
    line = service.process.stderr.readline()
    assert line.endswith(": the connection was lost while its records ran\n")


def test_a_silent_client_is_cut_off() -> None:
    with service_of("--quiet", "--idle-seconds", "1") as service:
        with Client(service) as client:
            assert client.flags(1, 1) == 1
            assert client.is_cut_off()
        _, log = service.end()
    assert log.endswith(": idle for 1 seconds\n")
