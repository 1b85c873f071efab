"""Services that end: the process survives, and the filter still reports a connection."""

import subprocess
import sys
from collections.abc import Iterator
from types import ModuleType
from typing import Any

import pytest

from models.opcodes import FETCH_REQUEST, X
from models.wire import RECORD_BYTES
from support.driver import rec
from support.remote import (
    SHORT,
    STATUS_CONNECTED,
    STATUS_NOT_CONNECTED,
    TIMED_OUT,
    Remote,
    open_remote,
    reply,
)

REPLY = reply(2, 4, 0b1011)
endings = pytest.mark.parametrize("ending", ["close", "reset"])


@pytest.fixture
def remote(engine: ModuleType, capfd: Any) -> Iterator[Remote]:
    with open_remote(engine, capfd) as pair:
        pair.join(SHORT)
        yield pair


def assert_waits_in_vain(remote: Remote) -> None:
    """Expects waits that time out: the filter does not detect that its service has ended."""
    wait = remote.fetch()
    assert wait.printed == TIMED_OUT
    assert wait.seconds >= SHORT
    assert remote.filter.status() == STATUS_CONNECTED


@endings
def test_a_service_that_has_gone_before_the_wait(remote: Remote, ending: str) -> None:
    remote.peer.ask(ending)
    for _ in range(3):  # a write, a read of the error and a read of the end
        assert_waits_in_vain(remote)


@endings
def test_records_for_a_service_that_has_gone(remote: Remote, ending: str) -> None:
    remote.peer.ask(ending)
    for _ in range(5):
        assert remote.run(rec(X)).printed == ""
        remote.peer.ask("wait_until_gone")
    assert remote.filter.status() == STATUS_CONNECTED


@endings
@pytest.mark.parametrize("size", [0, 1, 87])
def test_a_service_that_goes_during_the_wait(remote: Remote, ending: str, size: int) -> None:
    chunks = [REPLY[:size]] if size else []
    wait, _ = remote.fetch_from(chunks, ending=ending)
    assert wait.printed == TIMED_OUT
    assert wait.seconds >= SHORT
    assert remote.filter.status() == STATUS_CONNECTED
    assert remote.filter.flags(2, 4) == 0
    assert_waits_in_vain(remote)


@endings
def test_a_reply_counts_although_its_service_has_gone(remote: Remote, ending: str) -> None:
    remote.peer.ask("send", REPLY)
    remote.peer.ask(ending)  # the peer answers the request by a reset, however it closed
    assert remote.fetch(requests=2).printed == ""
    assert remote.filter.flags(2, 4) == 0b1011
    assert remote.filter.status() == STATUS_CONNECTED


@endings
def test_the_count_goes_on_after_the_service_has_gone(remote: Remote, ending: str) -> None:
    wait, _ = remote.fetch_from([REPLY], requests=3, ending=ending)
    assert wait.printed == ""
    assert remote.filter.flags(2, 4) == 0b1011


@endings
def test_a_new_connection_after_a_loss(remote: Remote, ending: str) -> None:
    remote.peer.ask(ending)
    assert_waits_in_vain(remote)
    assert remote.filter.disconnect() == ""
    assert remote.filter.status() == STATUS_NOT_CONNECTED
    remote.join()
    assert remote.fetch_sent(REPLY).printed == ""
    assert remote.filter.flags(2, 4) == 0b1011


@endings
def test_a_new_connection_without_disconnecting(remote: Remote, ending: str) -> None:
    remote.peer.ask(ending)
    remote.join()
    assert remote.fetch_sent(REPLY).printed == ""


@endings
def test_deleting_a_filter_whose_service_has_gone(
    engine: ModuleType, capfd: Any, ending: str
) -> None:
    with open_remote(engine, capfd) as remote:
        remote.join(SHORT)
        remote.peer.ask(ending)
        remote.run(rec(X))


def test_a_service_that_ends_its_process(remote: Remote) -> None:
    remote.peer.end()
    assert_waits_in_vain(remote)


# The interpreter ignores SIGPIPE, but a program that embeds it may not. A listening socket
# accepts a connection in the kernel, so the script needs no peer.
WITH_THE_SIGNAL = """
import signal, socket, struct, sys
import _lib_nb_sim as engine, nimbrel as nb

signal.signal(signal.SIGPIPE, signal.SIG_DFL)
listener = socket.create_server(("127.0.0.1", 0))
handle = engine.new_native_filter("StreamConnect")
assert engine.connect(handle, *listener.getsockname(), 0.05) == ""
service, _ = listener.accept()
service.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
service.close()
for records in [nb.x(0)] * 5 + [nb.record(nb.Opcode.FETCH_REQUEST)]:
    engine.put_instructions(handle, records, 1)
print(engine.get_status(handle))
"""


def test_writing_to_nobody_sends_no_signal() -> None:
    command = [sys.executable, "-c", f"import sys; sys.path[:0] = {sys.path!r}{WITH_THE_SIGNAL}"]
    done = subprocess.run(command, capture_output=True, text=True, check=True)
    assert STATUS_CONNECTED in done.stdout.splitlines()


def test_a_service_that_reads_nothing_and_answers(remote: Remote) -> None:
    assert remote.fetch_sent(REPLY).printed == ""
    assert remote.peer.ask("receive", RECORD_BYTES) == rec(FETCH_REQUEST).tobytes()
