"""Connecting and disconnecting: texts, printed lines, status, and the filter's state."""

import contextlib
import resource
import socket
from collections.abc import Iterator
from functools import partial
from types import ModuleType
from typing import Any

import pytest

from models.opcodes import X, Y
from support.driver import rec
from support.remote import (
    CONNECTED_OK,
    LOOPBACK,
    NOT_CONNECTED,
    SHORT,
    STATUS_CONNECTED,
    STATUS_NOT_CONNECTED,
    ConnectFilter,
    Output,
    Remote,
    heard,
    open_remote,
    reply,
)


@pytest.fixture
def remote(engine: ModuleType, capfd: Any) -> Iterator[Remote]:
    with open_remote(engine, capfd) as pair:
        yield pair


@pytest.fixture
def filter_(engine: ModuleType) -> Iterator[ConnectFilter]:
    driver = ConnectFilter(engine)
    yield driver
    driver.close()


@pytest.fixture
def closed_port() -> Iterator[int]:
    """A port that is bound but has no listener."""
    with socket.socket() as taken:
        taken.bind((LOOPBACK, 0))
        yield taken.getsockname()[1]


def failed(host: str, port: int) -> str:
    return f"Error: failed to connect to host {host}:{port}"


def assert_not_connected(filter_: ConnectFilter) -> None:
    assert filter_.status() == STATUS_NOT_CONNECTED
    filter_.fails(NOT_CONNECTED, rec(X))


def assert_fails(capfd: Any, filter_: ConnectFilter, host: str, port: int, error_line: str) -> None:
    text, output = heard(capfd, partial(filter_.connect, port, SHORT, host))
    assert text == failed(host, port)
    assert output == Output("", error_line)
    assert_not_connected(filter_)


def test_a_filter_begins_without_a_connection(filter_: ConnectFilter) -> None:
    assert_not_connected(filter_)


def test_no_records_need_a_connection_as_well(filter_: ConnectFilter) -> None:
    filter_.fails(NOT_CONNECTED)


@pytest.mark.parametrize("host", [LOOPBACK, "localhost", "127.1"])
def test_a_connection_is_told_on_standard_output_alone(remote: Remote, host: str) -> None:
    connect = partial(remote.filter.connect, remote.peer.port, SHORT, host)
    assert heard(remote.capfd, connect) == ("", Output(CONNECTED_OK, ""))
    assert remote.filter.status() == STATUS_CONNECTED
    remote.peer.ask("accept")
    assert remote.run(rec(X)).printed == ""
    assert remote.peer.ask("receive", 88) == rec(X).tobytes()


def test_a_port_at_which_nobody_listens(
    capfd: Any, filter_: ConnectFilter, closed_port: int
) -> None:
    assert_fails(capfd, filter_, LOOPBACK, closed_port, "ERROR connecting\n")


@pytest.mark.parametrize(
    "host",
    [  # not a name that needs a query
        pytest.param("256.256.256.256", id="numbers"),
        pytest.param("no..host", id="empty-label"),
        pytest.param("::1", id="not-ipv4"),
        pytest.param("h" * 2000, id="long"),
        pytest.param("nö..host", id="not-ascii"),
        pytest.param("no..%s%n", id="format"),
    ],
)
def test_an_unknown_host(remote: Remote, host: str) -> None:
    filter_, port = remote.filter, remote.peer.port
    assert_fails(remote.capfd, filter_, host, port, "ERROR, no such host\n")


@pytest.mark.parametrize("turns", [1, -1, 2**15 - 1])
def test_a_number_beyond_the_ports_is_not_cut_to_one(remote: Remote, turns: int) -> None:
    number = remote.peer.port + turns * 2**16
    assert_fails(remote.capfd, remote.filter, LOOPBACK, number, "ERROR connecting\n")


@pytest.mark.parametrize("port", [-(2**31), -1, 0, 65536, 2**31 - 1])
def test_numbers_that_are_no_ports(capfd: Any, filter_: ConnectFilter, port: int) -> None:
    assert_fails(capfd, filter_, LOOPBACK, port, "ERROR connecting\n")


def test_the_host_is_looked_up_before_the_port_is_used(capfd: Any, filter_: ConnectFilter) -> None:
    assert_fails(capfd, filter_, "256.256.256.256", -1, "ERROR, no such host\n")


@contextlib.contextmanager
def no_descriptors_left() -> Iterator[None]:
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (0, hard))
    try:
        yield
    finally:
        resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))


def test_a_socket_that_cannot_be_opened(remote: Remote) -> None:
    host, port = "256.256.256.256", remote.peer.port  # no host is looked up

    def connect() -> str:
        with no_descriptors_left():
            return remote.filter.connect(port, SHORT, host)

    expected = failed(host, port), Output("", "ERROR opening socket\n")
    assert heard(remote.capfd, connect) == expected
    assert_not_connected(remote.filter)


def test_disconnecting_closes_without_a_word(remote: Remote) -> None:
    remote.join()
    assert heard(remote.capfd, remote.filter.disconnect) == ("", Output("", ""))
    assert_not_connected(remote.filter)
    assert remote.peer.ask("receive_rest") == b""


def test_disconnecting_what_is_not_connected(remote: Remote) -> None:
    assert remote.filter.disconnect() == ""
    remote.join()
    assert remote.filter.disconnect() == ""
    assert remote.filter.disconnect() == ""
    assert_not_connected(remote.filter)


def test_connecting_again_after_a_disconnection(remote: Remote) -> None:
    for value in (0b01, 0b10):
        remote.join()
        assert remote.filter.status() == STATUS_CONNECTED
        assert remote.fetch_sent(reply(2, 2, value)).printed == ""
        assert remote.filter.flags(2, 2) == value
        remote.filter.disconnect()
        assert remote.filter.flags(2, 2) == value, "the flags outlive their connection"


def test_connecting_while_connected_closes_the_old_connection(remote: Remote) -> None:
    remote.join()
    remote.run(rec(X))
    assert remote.filter.connect(remote.peer.port, SHORT) == ""
    assert remote.peer.ask("receive_rest") == rec(X).tobytes()
    remote.peer.ask("accept")
    remote.run(rec(Y))
    assert remote.peer.ask("receive", 88) == rec(Y).tobytes()


@pytest.mark.parametrize("host", [LOOPBACK, "256.256.256.256"])
def test_a_failure_while_connected_ends_the_old_connection(
    remote: Remote, closed_port: int, host: str
) -> None:
    remote.join()
    assert remote.filter.connect(closed_port, SHORT, host) == failed(host, closed_port)
    assert_not_connected(remote.filter)
    assert remote.peer.ask("receive_rest") == b""


def test_a_failure_is_no_hindrance_to_the_next_connection(remote: Remote, closed_port: int) -> None:
    assert remote.filter.connect(closed_port, SHORT) == failed(LOOPBACK, closed_port)
    remote.join()
    assert remote.fetch_sent(reply(2, 1, 1)).printed == ""
    assert remote.filter.flag(2) == 1


def test_each_filter_has_a_connection_of_its_own(remote: Remote, engine: ModuleType) -> None:
    remote.join()
    other = ConnectFilter(engine)
    assert_not_connected(other)
    assert other.connect(remote.peer.port) == ""
    other.close()
    assert remote.filter.status() == STATUS_CONNECTED
    assert remote.fetch_sent(reply(2, 1, 1)).printed == ""


def test_deleting_a_filter_closes_its_connection(remote: Remote, engine: ModuleType) -> None:
    other = ConnectFilter(engine)
    assert other.connect(remote.peer.port) == ""
    remote.peer.ask("accept")
    other.close()
    assert remote.peer.ask("receive_rest") == b""
