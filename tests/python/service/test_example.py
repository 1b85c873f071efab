"""The service in another process, with clients of the engine and plain sockets."""

from __future__ import annotations

import re
import signal
import socket
import subprocess
from collections.abc import Iterator
from typing import Any

import _lib_nb_sim
import nimbrel as nb
import numpy as np
import pytest
from nimbrel import Opcode, Simulator
from nimbrel.service.__main__ import main

from models.wire import RECORD_BYTES, signed
from support.remote import LONG, LOOPBACK, reply
from support.service import COMMAND, Client, Service, run_service, service_of

FILTERS = ["StreamQPU", "StreamSparseQPU", "StreamBitQPU", "StreamCliffordQPU"]


@pytest.fixture(scope="module")
def bit_service() -> Iterator[Service]:
    with service_of("--filter", "StreamBitQPU", "--quiet") as service:
        yield service


@pytest.fixture
def client(bit_service: Service) -> Iterator[Client]:
    with Client(bit_service) as connected:
        yield connected


@pytest.mark.parametrize("filter_type", FILTERS)
def test_each_filter_gives_the_local_outcome(filter_type: str) -> None:
    records = nb.program(nb.reset(10), nb.x([1, 4, 5]), nb.x(9, controls=4), nb.read(range(10), 2))
    with service_of("--filter", filter_type) as service:
        with Simulator("StreamConnect") as remote:
            remote.connect(LOOPBACK, service.port, LONG)
            assert remote.fetch(2, 10, records) == 0b1000110010
        status, log = service.end()
    assert status == 0
    assert re.findall(r"client 127\.0\.0\.1:\d+: (.*)\n", log) == [
        "connected",
        f"closed after {len(records) + 1} records",
    ]


@pytest.mark.parametrize("window", [8, 512, 16384])
def test_a_long_program_arrives_whole(bit_service: Service, rng: Any, window: int) -> None:
    """The program has extensions and jumps. The window cuts it at arbitrary records."""
    count = 60 * window if window < 100 else 3 * window
    width = 300
    gates = [nb.x(rng.sample(range(width), 2), flag=rng.choice([0, 0, -1])) for _ in range(1000)]
    parts = [nb.reset(width), *rng.choices(gates, k=count)]
    parts += [nb.jump_fwd(5), nb.x(range(width)), nb.label(5), nb.read(range(width), 2)]
    records = nb.program(*parts)
    with Simulator("StreamBitQPU") as local, Simulator("StreamConnect") as remote:
        local.run(records)
        remote.connect(LOOPBACK, bit_service.port, LONG, window=window)
        assert remote.fetch(2, width, records) == local.flags(2, width)


@pytest.mark.parametrize("filter_type", FILTERS)
def test_flags_that_were_never_stored_read_as_in_a_local_run(filter_type: str) -> None:
    """With positive and negative numbers, also in later fetches and in another order."""
    records = nb.program(nb.reset(20), nb.x([1, 4, 19]), nb.read(range(20), 2))
    with Simulator(filter_type) as local, service_of("--filter", filter_type) as service:
        local.run(records)
        for ranges in ([(-70, 141)], [(-500, 30), (-70, 60), (60, 30)], [(64, 70), (-100, 100)]):
            with Simulator("StreamConnect") as remote:
                remote.connect(LOOPBACK, service.port, LONG)
                remote.run(records)
                for each in ranges:
                    assert remote.fetch(*each) == local.flags(*each)
                for each in ranges:
                    assert remote.flags(*each) == local.flags(*each)


def test_each_client_has_a_filter_of_its_own(bit_service: Service) -> None:
    with Client(bit_service) as one, Client(bit_service) as other:
        one.send(nb.reset(2), nb.x(0), nb.read([0, 1], 2))
        other.send(nb.reset(2), nb.x(1), nb.read([0, 1], 2))
        assert one.flags(2, 2) == 0b01
        assert other.flags(2, 2) == 0b10


def test_a_failing_client_takes_no_other_along(bit_service: Service, client: Client) -> None:
    client.send(nb.reset(1), nb.x(0))
    with Client(bit_service) as failing:
        failing.send(nb.reset(1), nb.y(0))
        assert failing.is_cut_off()
    client.send(nb.read(0, 2))
    assert client.flags(2, 1) == 1


def test_what_is_not_served() -> None:
    refused: list[tuple[list[np.ndarray], str]] = [
        ([nb.x(0)], "a record failed: qc.reset() has not been called or did not succeed."),
        ([nb.reset(1), nb.y(0)], "a record failed: qc.y has not been implemented for the Bit sim."),
        ([nb.record(12345)], "a record failed: Error: Unknown opcode: 0x3039"),
        ([nb.reset(9)], "a register of 9 qubits"),
        ([nb.reset(2**64 - 1)], f"a register of {2**64 - 1} qubits"),
        ([nb.reset(1)] * 21, "more than 20 records"),
        ([nb.reset(1)] * 20 + [nb.reset(9)], "more than 20 records"),
        ([nb.reset(1)] * 19 + [nb.reset(9)], "a register of 9 qubits"),
    ]
    limits = ["--max-qubits", "8", "--max-records", "20"]
    with service_of("--filter", "StreamBitQPU", "--quiet", *limits) as service:
        for parts, reason in refused:
            with Client(service) as client:
                client.send(*parts)
                assert client.is_cut_off(), reason
            with Client(service) as next_one:
                next_one.send(nb.reset(8), nb.x(7), nb.read(7, 2))
                assert next_one.flags(2, 1) == 1
        _, log = service.end()
    lines = log.splitlines()
    assert len(lines) == len(refused)
    for line, (_, reason) in zip(lines, refused, strict=True):
        assert line.endswith(f": {reason}")


def test_the_last_record_within_the_limit_is_served() -> None:
    with service_of("--filter", "StreamBitQPU", "--max-records", "3") as service:
        with Client(service) as client:
            client.send(nb.reset(8), nb.x(7))
            assert client.flags(2, 1) == 0
        status, log = service.end()
    assert (status, log.count("more than")) == (0, 0)


def test_records_before_a_refused_one_are_answered(client: Client) -> None:
    client.send(nb.reset(4), nb.write(range(4), 9, 2), nb.fetch_request(2, 4), nb.y(0))
    assert client.receive(2) == reply(2, 4, 9, valid=0b1111)
    assert client.is_cut_off()


def test_a_client_that_closes_inside_a_record() -> None:
    sizes = (1, RECORD_BYTES - 1, RECORD_BYTES + 5)
    with service_of("--filter", "StreamBitQPU", "--quiet") as service:
        for size in sizes:
            with Client(service) as client:
                client.socket.sendall(nb.program(nb.reset(1), nb.x(0)).tobytes()[:size])
                client.socket.shutdown(socket.SHUT_WR)
                assert client.is_cut_off()
        _, log = service.end()
    for size, line in zip(sizes, log.splitlines(), strict=True):
        assert line.endswith(f": closed after {size % RECORD_BYTES} bytes of a record")


def test_records_may_come_in_any_pieces(client: Client) -> None:
    client.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    program = nb.program(nb.reset(4), nb.write(range(4), 6, 2), nb.fetch_request(2, 4))
    for byte in program.tobytes():
        client.socket.sendall(bytes([byte]))
    assert client.receive(1) == reply(2, 4, 6, valid=0b1111)


def test_one_reply_for_every_request(client: Client) -> None:
    """In order, also for requests that a jump skips."""
    requests = [nb.fetch_request(first, 3) for first in range(2, 10)]
    client.send(nb.reset(10), nb.write(range(10), 0b1011011101, 2), nb.jump_fwd(3), *requests)
    expected = [reply(first, 3, 0b1011011101 >> first - 2 & 7, valid=7) for first in range(2, 10)]
    assert client.receive(8) == b"".join(expected)


def test_an_engine_client_that_asks_several_times_at_once(bit_service: Service) -> None:
    """The engine counts the first reply repeatedly, so one wait is enough for any number."""
    requests = [nb.fetch_request(2, 1)] * 40
    with Simulator("StreamConnect") as sim:
        sim.connect(LOOPBACK, bit_service.port, LONG)
        records = nb.program(nb.reset(1), nb.x(0), nb.read(0, 2), *requests)
        _lib_nb_sim.put_instructions(sim.handle, records, len(records))
        assert sim.flags(2, 1) == 1


@pytest.mark.parametrize(
    ("first", "count", "told", "valid"),
    [
        (2, 0, 0, 0),
        (0, 3, 3, 0b110),
        (-3, 3, 3, 0b111),
        (2, 64, 64, 2**64 - 1),
        (2, 65, 64, 2**64 - 1),
        (2, 2**64 - 1, 64, 2**64 - 1),
        (2**31 - 1, 1, 1, 0),
        (126, 4, 4, 0b0011),
        (-129, 4, 4, 0b1100),
        (-140, 10, 10, 0),
        (2**31 - 1, 2, 2, 0),
        (2**31, 1, 1, 0),
        (-(2**31), 1, 1, 1),
        (-(2**31) - 1, 1, 1, 0),
        (-(2**63), 1, 1, 0),
        (2**63 - 1, 0, 0, 0),
    ],
)
def test_requests_at_the_edges(
    client: Client, first: int, count: int, told: int, valid: int
) -> None:
    client.send(
        nb.reset(70),
        nb.write(range(70), 2**70 - 1, 2),
        nb.record(Opcode.FETCH_REQUEST, target_mask=first % 2**64, cond_mask=count),
    )
    (words,) = np.frombuffer(client.receive(1), dtype=nb.QPU_OP).tolist()
    with Simulator("StreamBitQPU") as local:
        local.run(nb.reset(70), nb.write(range(70), 2**70 - 1, 2))
        value = local.flags(first, told) if valid else 0
    assert words[1:6] == (first % 2**64, told, 0.0, signed(valid), signed(value))


def test_a_client_too_many() -> None:
    with service_of("--filter", "StreamBitQPU", "--max-clients", "2") as service:
        with Client(service) as one, Client(service) as two:
            for client in (one, two):
                client.send(nb.reset(1))
                assert client.flags(2, 1) == 0
            with Client(service) as three:
                assert three.is_cut_off()
            one.socket.shutdown(socket.SHUT_WR)
            assert one.is_cut_off()
            with Client(service) as four:
                assert four.flags(1, 1) == 1
        _, log = service.end()
    assert log.count("2 clients are served already") == 1


def test_a_client_that_reads_no_replies_is_not_read_either(bit_service: Service) -> None:
    requests = nb.program(*[nb.fetch_request(1, 1)] * 1000).tobytes()
    most = 2**26  # ten times the buffers of both sockets
    sent = turns_without_room = 0
    with Client(bit_service) as client, Client(bit_service) as other:
        client.socket.setblocking(False)
        while turns_without_room < 20 and sent < most:
            try:
                sent += client.socket.send(requests[sent % RECORD_BYTES :])
                turns_without_room = 0
            except BlockingIOError:
                assert other.flags(1, 1) == 1  # so the service has read since then
                turns_without_room += 1
        assert sent < most
        client.socket.settimeout(LONG)
        whole = sent // RECORD_BYTES
        assert client.receive(whole) == reply(1, 1, 1, valid=1) * whole


def test_a_client_that_resets_is_only_logged() -> None:
    with service_of("--filter", "StreamBitQPU") as service:
        with Client(service) as client:
            assert client.flags(1, 1) == 1
            at_once = b"\1\0\0\0\0\0\0\0"
            client.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, at_once)
        with Client(service) as other:
            assert other.flags(1, 1) == 1
        _, log = service.end()
    assert "Connection reset by peer" in log
    assert "Traceback" not in log


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_a_signal_ends_it_with_clients_connected(number: signal.Signals) -> None:
    service = Service("--filter", "StreamBitQPU", "--quiet")
    with Client(service) as client:
        assert client.flags(1, 1) == 1
        service.process.send_signal(number)
        assert client.is_cut_off()
    assert service.end() == (0, "")


def test_the_end_of_its_input_ends_it() -> None:
    service = Service("--quiet")
    assert service.end() == (0, "")


def test_a_port_that_is_taken() -> None:
    with service_of() as service:
        done = run_service("--port", str(service.port))
    assert (done.returncode, done.stdout) == (1, "")
    assert re.fullmatch(r"python -m nimbrel\.service: .*address already in use\n", done.stderr)


def test_it_warns_when_others_can_reach_it() -> None:
    command = [*COMMAND, "--host", "0.0.0.0", "--port", "0", "--until-eof"]
    done = subprocess.run(command, input="", capture_output=True, text=True, check=True)
    assert re.fullmatch(r"listening on 0\.0\.0\.0:\d+\n", done.stdout)
    assert re.search(r"no authentication: whoever reaches 0\.0\.0\.0:\d+ can use it", done.stderr)


@pytest.mark.parametrize(
    "arguments",
    [
        ["--port", "65536"],
        ["--port", "-1"],
        ["--port", "x"],
        ["--host", ""],
        ["--max-clients", "0"],
        ["--idle-seconds", "0"],
        ["--max-records", "0"],
        ["--filter", "StreamConnect"],
    ],
)
def test_settings_that_make_no_sense(
    arguments: list[str], capsys: pytest.CaptureFixture[str]
) -> None:
    with pytest.raises(SystemExit) as end:
        main(arguments)
    printed = capsys.readouterr()
    assert (end.value.code, printed.out) == (2, "")
    assert "python -m nimbrel.service: error: argument" in printed.err


def run_in_shell(redirection: str, *arguments: str) -> subprocess.CompletedProcess[str]:
    """Run the service with a standard stream closed."""
    command = [*COMMAND, *arguments]
    return subprocess.run(
        ["/bin/sh", "-c", f'"$@" {redirection}', "sh", *command],
        input="",
        capture_output=True,
        text=True,
        check=False,
    )


@pytest.mark.parametrize(
    ("redirection", "name"), [("<&-", "input"), (">&-", "output"), ("2>&-", "error")]
)
def test_a_standard_stream_that_is_closed(redirection: str, name: str) -> None:
    done = run_in_shell(redirection, "--port", "0", "--until-eof")
    assert done.returncode == 1
    assert done.stdout + done.stderr == f"python -m nimbrel.service: standard {name} is closed\n"


def test_an_input_that_nothing_waits_for_may_be_closed() -> None:
    with service_of() as service:
        done = run_in_shell("<&-", "--port", str(service.port))
    assert (done.returncode, done.stderr.count("address already in use")) == (1, 1)


def test_the_help_warns_that_there_is_no_authentication() -> None:
    done = run_service("--help")
    assert done.returncode == 0
    assert "There is NO AUTHENTICATION" in done.stdout
