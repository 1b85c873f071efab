"""Open descriptors: a connection takes one, and every way to end it frees the descriptor."""

import os
import socket
from collections.abc import Callable, Iterator
from pathlib import Path
from types import ModuleType
from typing import Any

import pytest

from models.opcodes import X
from support.driver import rec
from support.remote import LOOPBACK, SHORT, ConnectFilter, Remote, heard, open_remote

ROUNDS = 1000
UNKNOWN_HOST = "256.256.256.256"


def open_descriptors() -> int:
    return len(list(Path("/proc/self/fd").iterdir()))


@pytest.fixture
def remote(engine: ModuleType, capfd: Any) -> Iterator[Remote]:
    with open_remote(engine, capfd) as pair:
        yield pair


@pytest.fixture
def closed_port() -> Iterator[int]:
    """A port that is bound but has no listener."""
    with socket.socket() as taken:
        taken.bind((LOOPBACK, 0))
        yield taken.getsockname()[1]


def assert_gives_back(remote: Remote, rounds: int, one_round: Callable[[], None]) -> None:
    one_round()  # descriptors that stay open after a first use are no leak
    before = open_descriptors()

    def all_rounds() -> None:
        for _ in range(rounds):
            one_round()

    heard(remote.capfd, all_rounds)
    assert open_descriptors() == before


def test_a_connection_is_one_descriptor(remote: Remote) -> None:
    before = open_descriptors()
    remote.join()
    assert open_descriptors() == before + 1
    remote.filter.disconnect()
    assert open_descriptors() == before


def test_connections_failures_and_disconnections(remote: Remote, closed_port: int) -> None:
    filter_ = remote.filter

    def one_round() -> None:
        remote.join(SHORT)
        assert filter_.connect(closed_port) != ""
        assert filter_.connect(remote.peer.port, SHORT, UNKNOWN_HOST) != ""
        assert filter_.connect(-1) != ""
        remote.join(SHORT)
        filter_.run(rec(X))
        assert filter_.disconnect() == ""

    assert_gives_back(remote, ROUNDS // 2, one_round)


def test_connecting_while_connected(remote: Remote) -> None:
    assert_gives_back(remote, ROUNDS, lambda: remote.join(SHORT))


def test_deleting_connected_filters(remote: Remote, engine: ModuleType) -> None:
    def one_round() -> None:
        other = ConnectFilter(engine)
        assert other.connect(remote.peer.port) == ""
        remote.peer.ask("accept")
        other.close()

    assert_gives_back(remote, ROUNDS, one_round)


@pytest.mark.parametrize("ending", ["close", "reset"])
def test_services_that_have_gone(remote: Remote, ending: str) -> None:
    def one_round() -> None:
        remote.join(0.0)
        remote.peer.ask(ending)
        remote.fetch()
        assert remote.filter.disconnect() == ""

    assert_gives_back(remote, ROUNDS // 10, one_round)


def test_the_descriptor_does_not_outlive_its_closing(remote: Remote) -> None:
    """A closed descriptor's number may be reused, so a second close must not happen."""
    remote.join()
    remote.filter.disconnect()
    with socket.socket() as other:
        remote.filter.disconnect()
        remote.filter.close()
        remote.filter = ConnectFilter(remote.filter.engine)
        assert os.fstat(other.fileno())
