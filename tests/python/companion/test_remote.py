"""The companion's connection: its refusals, the records sent, and the error of a missing reply."""

from __future__ import annotations

import math
import socket
from collections.abc import Callable, Iterator
from typing import Any, NamedTuple

import _lib_nb_sim
import nimbrel as nb
import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st
from nimbrel import Opcode, RemoteSimulator, Simulator
from nimbrel import remote as nb_remote
from nimbrel.remote import WINDOW
from nimbrel.send_window import arrays_of

from models.wire import RECORD_BYTES
from support.remote import LONG, LOOPBACK, NOT_CONNECTED, SHORT, Peer, reply

EMPTY_REQUEST = nb.fetch_request(0, 0)
EMPTY_REPLY = reply(0, 0, 0)
EXTEND = nb.record(Opcode.EXTEND)

CALLS: dict[str, Callable[[RemoteSimulator], object]] = {
    "connect": lambda sim: sim.connect(LOOPBACK, 1),
    "disconnect": lambda sim: sim.disconnect(),
    "connected": lambda sim: sim.connected,
    "fetch": lambda sim: sim.fetch(2, 1),
}


class Pair(NamedTuple):
    """A simulator and the peer that it is connected to."""

    sim: RemoteSimulator
    peer: Peer

    def join(self, timeout: float = LONG, window: int = WINDOW) -> None:
        self.sim.connect(LOOPBACK, self.peer.port, timeout, window=window)
        self.peer.ask("accept")

    def prepare(self, *replies: bytes) -> None:
        """Lets the peer send each of these as soon as the previous one has been read."""
        self.peer.start("play", 0, list(replies), "")

    def sent(self) -> nb.RecordArray:
        """Everything that the peer received until the connection ended."""
        self.sim.disconnect()
        return np.frombuffer(self.peer.ask("receive_rest"), dtype=nb.QPU_OP)


@pytest.fixture
def pair() -> Iterator[Pair]:
    peer = Peer()
    try:
        with Simulator("StreamConnect") as sim:
            yield Pair(sim, peer)
    finally:
        peer.end()


@pytest.fixture
def free_port() -> int:
    """A port without a listener."""
    with socket.socket() as listener:
        listener.bind((LOOPBACK, 0))
        port: int = listener.getsockname()[1]
        return port


def numbered(count: int, first: int = 0) -> nb.RecordArray:
    """Distinguishable records."""
    records = np.zeros(count, dtype=nb.QPU_OP)
    records["opcode"] = Opcode.X
    records["target_mask"] = np.arange(first, first + count)
    return records


def test_a_connection_has_two_ends(pair: Pair) -> None:
    states = [pair.sim.connected]
    pair.join()
    states.append(pair.sim.connected)
    for _ in range(2):
        pair.sim.disconnect()
        states.append(pair.sim.connected)
    assert states == [False, True, False, False]
    assert type(states[1]) is bool


def test_a_failed_connect_raises_the_engine_text(free_port: int) -> None:
    with Simulator("StreamConnect") as sim:
        with pytest.raises(ConnectionError) as caught:
            sim.connect(LOOPBACK, free_port, 1.0)
        assert caught.value.args == (f"Error: failed to connect to host {LOOPBACK}:{free_port}",)
        assert sim.connected is False
        with pytest.raises(RuntimeError, match=f"^{NOT_CONNECTED}$"):
            sim.run(nb.x(0))


def test_a_failed_connect_has_closed_the_connection_before(pair: Pair, free_port: int) -> None:
    pair.join()
    with pytest.raises(ConnectionError):
        pair.sim.connect(LOOPBACK, free_port)
    assert pair.sim.connected is False
    assert pair.peer.ask("receive_rest") == b""


@pytest.mark.parametrize("port", [-1, 0, 65536, 2**31, 2**32 + 80])
def test_a_number_that_is_no_port(pair: Pair, port: int) -> None:
    pair.join()
    with pytest.raises(ValueError, match=f"^port must be from 1 to 65535, not {port}$"):
        pair.sim.connect(LOOPBACK, port)
    assert pair.sim.connected is True


@pytest.mark.parametrize("host", [f"{LOOPBACK}\0", "\0", "ho\0st", "\udcff", "\ud800.example"])
def test_a_host_that_no_call_can_name(pair: Pair, host: str) -> None:
    pair.join()
    with pytest.raises(ValueError, match=r"^host (must not hold a null|cannot be encoded)"):
        pair.sim.connect(host, pair.peer.port)
    assert pair.sim.connected is True


@pytest.mark.parametrize("host", [None, 127, LOOPBACK.encode()])
def test_a_host_that_is_no_text(pair: Pair, host: Any) -> None:
    with pytest.raises(TypeError, match=r"^host must be a string, not (NoneType|int|bytes)$"):
        pair.sim.connect(host, pair.peer.port)


@pytest.mark.parametrize(("timeout", "shown"), [(10**400, "inf"), (-(10**400), "-inf")])
def test_a_timeout_beyond_all_floats(pair: Pair, timeout: int, shown: str) -> None:
    with pytest.raises(ValueError, match=f"^timeout must be .* above 0, not {shown}$"):
        pair.sim.connect(LOOPBACK, pair.peer.port, timeout)


@pytest.mark.parametrize("timeout", [0.0, -1.0, math.inf, -math.inf, math.nan])
def test_a_timeout_that_would_never_or_always_pass(pair: Pair, timeout: float) -> None:
    with pytest.raises(ValueError, match=f"^timeout must be .* above 0, not {timeout}$"):
        pair.sim.connect(LOOPBACK, pair.peer.port, timeout)


@pytest.mark.parametrize("window", [0, -1])
def test_a_window_without_records(pair: Pair, window: int) -> None:
    with pytest.raises(ValueError, match=f"^window must be 1 or more, not {window}$"):
        pair.sim.connect(LOOPBACK, pair.peer.port, window=window)


def test_arguments_of_another_type(pair: Pair) -> None:
    wrong: Any = "80"
    with pytest.raises(TypeError):
        pair.sim.connect(LOOPBACK, wrong)
    with pytest.raises(TypeError):
        pair.sim.connect(LOOPBACK, pair.peer.port, window=wrong)


@pytest.mark.parametrize("name", CALLS)
def test_a_filter_of_another_type_has_no_connection(name: str) -> None:
    text = (
        f"""^a "StreamBitQPU" filter has no operation '{name}'; """
        'only "StreamConnect" filters have it$'
    )
    sim: Any = Simulator("StreamBitQPU")
    with sim, pytest.raises(AttributeError, match=text):
        CALLS[name](sim)


@pytest.mark.parametrize("name", CALLS)
def test_a_closed_simulator_has_none_either(name: str) -> None:
    sim = Simulator("StreamConnect")
    sim.close()
    with pytest.raises(ValueError, match=r"^the simulator is closed$"):
        CALLS[name](sim)


@pytest.mark.parametrize(
    "action",
    [
        lambda sim: sim.run(),
        lambda sim: sim.run(nb.x(0)),
        lambda sim: sim.fetch(2, 1),
        lambda sim: sim.fetch(2, 0),
    ],
)
def test_nothing_runs_without_a_connection(action: Callable[[RemoteSimulator], object]) -> None:
    with Simulator("StreamConnect") as sim, pytest.raises(RuntimeError, match=NOT_CONNECTED):
        action(sim)


def test_a_request_names_its_flags() -> None:
    (words,) = nb.fetch_request(-5, 64).tolist()
    assert words == (0x4E6D627210000011, 2**64 - 5, 64, 0.0, *[0] * 7)


@pytest.mark.parametrize(("first", "count"), [(2, -1), (2**31, 1), (-(2**31) - 1, 1), (2, 65)])
def test_a_request_that_no_reply_could_answer(first: int, count: int) -> None:
    with pytest.raises(ValueError, match=r"cannot be fetched$|64 flags at most, not 65$"):
        nb.fetch_request(first, count)


def test_a_fetch_sends_the_program_and_returns_the_flags(pair: Pair) -> None:
    pair.join()
    pair.prepare(reply(2, 5, 0b10110))
    assert pair.sim.fetch(2, 5, nb.reset(3), nb.x(1)) == 0b10110
    assert pair.sim.flags(2, 5) == 0b10110
    wanted = nb.program(nb.reset(3), nb.x(1), nb.fetch_request(2, 5))
    assert pair.sent().tobytes() == wanted.tobytes()


def test_a_fetch_of_no_flags_waits_for_the_service(pair: Pair) -> None:
    pair.join()
    pair.prepare(EMPTY_REPLY)
    assert pair.sim.fetch(2, 0, nb.x(1)) == 0
    assert pair.sent().tobytes() == nb.program(nb.x(1), nb.fetch_request(2, 0)).tobytes()


def test_flags_come_64_at_a_time(pair: Pair, rng: Any) -> None:
    value = rng.getrandbits(150)
    word = 2**64 - 1
    pair.join()
    pair.prepare(
        reply(7, 64, value & word), reply(71, 64, value >> 64 & word), reply(135, 22, value >> 128)
    )
    assert pair.sim.fetch(7, 150) == value
    requests = nb.program(
        nb.fetch_request(7, 64), nb.fetch_request(71, 64), nb.fetch_request(135, 22)
    )
    assert pair.sent().tobytes() == requests.tobytes()


def test_a_flag_that_the_service_does_not_give_keeps_what_it_had(pair: Pair) -> None:
    pair.join()
    pair.prepare(reply(2, 4, 0b1111), reply(2, 4, 0b0000, valid=0b0101))
    assert pair.sim.fetch(2, 4) == 0b1111
    assert pair.sim.fetch(2, 4) == 0b1010


@pytest.mark.parametrize(
    "came",
    [
        pytest.param([], id="nothing"),
        pytest.param([reply(2, 1, 1)[:87]], id="a part of a reply"),
        pytest.param([nb.x(0).tobytes(), reply(2, 1, 1)], id="a reply behind another record"),
    ],
)
def test_a_missing_reply_is_an_error(pair: Pair, came: list[bytes]) -> None:
    pair.join(SHORT)
    pair.prepare(*came)
    with pytest.raises(TimeoutError, match=f"^waited {SHORT:g} seconds or more for a reply"):
        pair.sim.fetch(2, 1, nb.x(3))
    assert pair.sim.connected is False
    assert pair.sim.flags(2, 1) == 0


def test_a_service_that_has_gone_is_an_error_of_the_next_fetch(pair: Pair) -> None:
    pair.join(SHORT)
    pair.peer.ask("close")
    assert pair.sim.connected is True
    with pytest.raises(TimeoutError):
        pair.sim.fetch(2, 1)
    assert pair.sim.connected is False


def test_a_late_reply_answers_nothing_else(pair: Pair) -> None:
    pair.join(SHORT)
    with pytest.raises(TimeoutError):
        pair.sim.fetch(2, 1)
    pair.join()
    pair.prepare(reply(2, 1, 0))
    assert pair.sim.fetch(2, 1) == 0


def test_the_flags_before_a_missing_reply_stay(pair: Pair) -> None:
    pair.join(SHORT)
    pair.prepare(reply(2, 64, 9))
    with pytest.raises(TimeoutError):
        pair.sim.fetch(2, 100)
    assert pair.sim.flags(2, 64) == 9


def test_requests_in_a_program_are_sent_one_by_one(pair: Pair) -> None:
    """Together, the first reply would count for both and the second would come too late."""
    pair.join()
    pair.prepare(reply(2, 1, 1), reply(3, 1, 1))
    program = nb.program(nb.x(0), nb.fetch_request(2, 1), nb.x(1), nb.fetch_request(3, 1), nb.x(2))
    pair.sim.run(program)
    assert pair.sim.flags(2, 2) == 0b11
    assert pair.sent().tobytes() == program.tobytes()


def test_a_long_program_is_sent_as_far_as_the_service_keeps_up(pair: Pair) -> None:
    pair.join(window=4)
    pair.prepare(*[EMPTY_REPLY] * 2)
    pair.sim.run(numbered(9))
    pieces = [numbered(4), EMPTY_REQUEST, numbered(4, 4), EMPTY_REQUEST, numbered(1, 8)]
    assert pair.sent().tobytes() == nb.program(*pieces).tobytes()


def test_what_is_under_way_counts_over_calls(pair: Pair) -> None:
    pair.join(window=4)
    pair.sim.run(numbered(3))
    pair.prepare(EMPTY_REPLY, reply(2, 1, 1))
    pair.sim.run(numbered(3, 3))
    pair.sim.fetch(2, 1)
    pair.sim.run(numbered(4, 6))
    pieces = [numbered(4), EMPTY_REQUEST, numbered(2, 4), nb.fetch_request(2, 1), numbered(4, 6)]
    assert pair.sent().tobytes() == nb.program(*pieces).tobytes()


def test_a_new_connection_has_nothing_under_way(pair: Pair) -> None:
    pair.join(window=4)
    pair.sim.run(numbered(4))
    pair.join(window=4)
    pair.sim.run(numbered(4))
    assert pair.sent().tobytes() == numbered(4).tobytes()


def test_a_window_of_the_default_is_taken_whole_by_a_new_connection() -> None:
    """The peer has small buffers and reads nothing until everything is written."""
    peer = Peer(receive_buffer=4096)
    try:
        with Simulator("StreamConnect") as sim:
            sim.connect(LOOPBACK, peer.port)
            peer.ask("accept")
            sim.run(numbered(WINDOW))
            size = WINDOW * RECORD_BYTES
            assert peer.ask("receive", size) == numbered(WINDOW).tobytes()
    finally:
        peer.end()


def test_an_operation_that_would_be_torn_is_refused(pair: Pair) -> None:
    pair.join(window=3)
    wide = nb.program(EXTEND, EXTEND, EXTEND, nb.x(0))
    with pytest.raises(ValueError, match=r"^an operation of 4 records, .* the window of 3$"):
        pair.sim.run(nb.x(1), wide)
    with pytest.raises(ValueError, match="must not end with an extension record"):
        pair.sim.run(nb.x(1), EXTEND)
    assert len(pair.sent()) == 0


class Clock:
    """A clock that only the test advances."""

    def __init__(self) -> None:
        self.system = self.steady = 10**18

    def time_ns(self) -> int:
        return self.system

    def monotonic_ns(self) -> int:
        return self.steady


@pytest.fixture
def clock(monkeypatch: pytest.MonkeyPatch) -> Clock:
    stopped = Clock()
    monkeypatch.setattr(nb_remote, "time", stopped)
    return stopped


@pytest.mark.parametrize("which", ["system", "steady"])
def test_either_clock_tells_that_a_wait_was_too_long(
    pair: Pair, clock: Clock, monkeypatch: pytest.MonkeyPatch, which: str
) -> None:
    pair.join(timeout=5.0)
    monkeypatch.setattr(
        _lib_nb_sim, "put_instructions", lambda *_: setattr(clock, which, 10**18 + 5 * 10**9)
    )
    with pytest.raises(TimeoutError, match=r"^waited 5 seconds or more"):
        pair.sim.fetch(2, 1)
    assert pair.sim.connected is False


def test_a_lost_connection_is_told_from_a_missing_reply(
    pair: Pair, clock: Clock, monkeypatch: pytest.MonkeyPatch
) -> None:
    def lose(handle: int, *_: object) -> None:
        _lib_nb_sim.disconnect(handle)
        clock.system += 5 * 10**9

    pair.join(timeout=5.0)
    monkeypatch.setattr(_lib_nb_sim, "put_instructions", lose)
    with pytest.raises(ConnectionError, match=r"^the connection to the service was lost$"):
        pair.sim.fetch(2, 1)


OPERATIONS = st.lists(
    st.tuples(st.integers(0, 3), st.sampled_from([Opcode.X, Opcode.FETCH_REQUEST])), max_size=30
)


def made_of(operations: list[tuple[int, Opcode]]) -> nb.RecordArray:
    """Distinguishable records: each operation follows so many extension records."""
    opcodes = [each for count, last in operations for each in [Opcode.EXTEND] * count + [last]]
    records = numbered(len(opcodes), first=1)
    records["opcode"] = opcodes
    return records


def is_inserted(records: nb.RecordArray) -> Any:
    """Which records are not the program's, whose targets are all above 0."""
    return records["target_mask"] == 0


@given(operations=OPERATIONS, under_way=st.integers(0, 4), window=st.integers(4, 12))
def test_arrays_are_the_program_and_keep_the_window(
    operations: list[tuple[int, Opcode]], under_way: int, window: int
) -> None:
    records = made_of(operations)
    arrays = list(arrays_of(records, under_way, window))
    joined = nb.program(*arrays)
    assert joined[~is_inserted(joined)].tobytes() == records.tobytes()
    for array in arrays:
        asks = array["opcode"] == Opcode.FETCH_REQUEST
        assert not np.any(asks[:-1])
        assert under_way + np.count_nonzero(~is_inserted(array)) <= window
        under_way = 0 if asks[-1] else under_way + len(array)


@given(operations=OPERATIONS, under_way=st.integers(0, 4), window=st.integers(4, 12))
def test_nothing_is_put_between_an_extension_and_its_operation(
    operations: list[tuple[int, Opcode]], under_way: int, window: int
) -> None:
    joined = nb.program(*arrays_of(made_of(operations), under_way, window))
    before = joined[:-1][is_inserted(joined)[1:]]
    assert Opcode.EXTEND not in before["opcode"]


def test_requests_of_the_program_leave_the_window_free() -> None:
    records = nb.program(numbered(1), nb.fetch_request(2, 1), numbered(4))
    assert [len(array) for array in arrays_of(records, 2, 4)] == [2, 4]


def test_a_program_that_fits_is_sent_as_it_stands() -> None:
    records = numbered(1000)
    (array,) = arrays_of(records, 24, 1024)
    assert np.shares_memory(array, records)
    assert list(arrays_of(numbered(0), 0, 1)) == []
