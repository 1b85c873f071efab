"""The client example, with a service that it starts and with one that already runs."""

from __future__ import annotations

import argparse
import re
import socket
from collections.abc import Iterator
from types import ModuleType

import pytest

from support.examples import Example
from support.remote import LOOPBACK
from support.service import service_of

SCRIPT = Example("remote", "[SECRET] [--filter TYPE] [--service HOST:PORT]")
SERVICE_SCRIPT = Example("service", "")


@pytest.fixture(scope="module")
def example() -> Iterator[ModuleType]:
    """The script as a module, not run."""
    with SCRIPT.imported() as module:
        yield module


def printed(text: str) -> dict[str, str]:
    """The lines by their name; the engine's own line has none."""
    return dict(re.findall(r"^(\w+) {3,}(.*)$", text, flags=re.MULTILINE))


@pytest.mark.parametrize("filter_type", ["StreamQPU", "StreamSparseQPU", "StreamCliffordQPU"])
def test_remote_prints_one_outcome_twice(filter_type: str) -> None:
    done = SCRIPT.run_as_script("1234", "--filter", filter_type)
    assert (done.status, done.err) == (0, "")
    lines = printed(done.out)
    assert (lines["remote"], lines["local"]) == ("1234", "1234")
    assert lines["records"].endswith("on 12 qubits")


def test_the_service_example_measures_a_state_of_equal_bits() -> None:
    done = SERVICE_SCRIPT.run_as_script()
    assert (done.status, done.err) == (0, "")
    assert re.search(
        r"^1000 qubits measured at 127\.0\.0\.1:\d+: (0|1000) of them are 1$", done.out, re.M
    )


def test_remote_uses_a_service_that_is_there() -> None:
    with service_of("--filter", "StreamCliffordQPU") as service:
        done = SCRIPT.run_as_script("0", "--service", f"localhost:{service.port}")
        _, log = service.end()
    assert (done.status, done.err) == (0, "")
    assert printed(done.out)["service"] == f"localhost:{service.port}"
    assert "closed after" in log


def test_remote_without_its_service() -> None:
    with socket.socket() as listener:
        listener.bind((LOOPBACK, 0))
        port = listener.getsockname()[1]
    done = SCRIPT.run_as_script("--service", f"{LOOPBACK}:{port}")
    assert done.status == 1
    assert done.err.endswith(f"remote.py: Error: failed to connect to host {LOOPBACK}:{port}\n")


def test_remote_tells_a_wrong_outcome() -> None:
    """A bit filter ignores Hadamards, so it finds nothing."""
    with service_of("--filter", "StreamBitQPU") as service:
        done = SCRIPT.run_as_script("6", "--service", f"{LOOPBACK}:{service.port}")
    assert done.status == 1
    assert printed(done.out)["remote"] == "0"
    assert done.err == "remote.py: the secret is 6\n"


@pytest.mark.parametrize(
    ("arguments", "message"),
    [
        (["-1"], "not a number from 0 up: '-1'"),
        (["1" * 500], f"not a number from 0 up: '{'1' * 60}...'"),
        ([str(2**20)], f"not below 2**20: '{2**20}'"),
        (["--service", "here"], "not HOST:PORT: 'here'"),
        (["--service", ":80"], "not HOST:PORT: ':80'"),
        (["--service", "here:65536"], "not HOST:PORT: 'here:65536'"),
        (["--service", "\udcff:80"], "not HOST:PORT: '\\udcff:80'"),
        (["--filter", "StreamBitQPU"], "invalid choice: 'StreamBitQPU'"),
    ],
)
def test_remote_refuses_in_one_line(arguments: list[str], message: str) -> None:
    done = SCRIPT.run(*arguments)
    assert (done.status, done.out) == (2, "")
    assert message in done.err
    assert done.err.count("\n") == 1


def test_a_host_with_a_null_is_no_address(example: ModuleType) -> None:
    with pytest.raises(argparse.ArgumentTypeError, match=r"^not HOST:PORT: 'here\\x00:80'$"):
        example.service_address("here\0:80")


@pytest.mark.parametrize("secret", [0, 1, 2, 5, 0b1001001, 2**10 - 1])
def test_the_program_finds_any_secret(example: ModuleType, secret: int) -> None:
    assert example.run_locally(example.secret_task(secret), "StreamCliffordQPU") == secret
