"""Helpers of the service's tests: the service in another process, and a plain client."""

from __future__ import annotations

import contextlib
import re
import socket
import subprocess
import sys
from collections.abc import Iterator

import nimbrel as nb
import numpy as np
from nimbrel import Opcode

from models.wire import RECORD_BYTES
from support.remote import LONG, LOOPBACK

COMMAND = [sys.executable, "-m", "nimbrel.service"]


class Service:
    """One process of the service, and its log."""

    def __init__(self, *arguments: str) -> None:
        self.process = subprocess.Popen(
            [*COMMAND, "--port", "0", "--until-eof", *arguments],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        )
        assert self.process.stdout is not None
        line = self.process.stdout.readline()
        found = re.fullmatch(r"listening on 127\.0\.0\.1:(\d+)\n", line)
        assert found is not None, self.process.communicate()
        self.port = int(found[1])

    def end(self) -> tuple[int, str]:
        """Its exit status and its log."""
        _, log = self.process.communicate()
        return self.process.returncode, log


@contextlib.contextmanager
def service_of(*arguments: str) -> Iterator[Service]:
    service = Service(*arguments)
    try:
        yield service
    finally:
        service.end()


class Client:
    """A plain socket connected to a service."""

    def __init__(self, service: Service) -> None:
        self.socket = socket.create_connection((LOOPBACK, service.port), LONG)

    def __enter__(self) -> Client:
        return self

    def __exit__(self, *_: object) -> None:
        self.socket.close()

    def send(self, *parts: np.ndarray) -> None:
        self.socket.sendall(nb.program(*parts).tobytes())

    def receive(self, count: int) -> bytes:
        """So many records, or fewer if the service closes earlier."""
        received = bytearray()
        while len(received) < count * RECORD_BYTES:
            piece = self.socket.recv(count * RECORD_BYTES - len(received))
            if not piece:
                break
            received += piece
        return bytes(received)

    def flags(self, first: int, count: int) -> int:
        self.send(nb.fetch_request(first, count))
        (words,) = np.frombuffer(self.receive(1), dtype=nb.QPU_OP).tolist()
        assert words[0] == Opcode.FETCH_REPLY
        return int(words[5]) % 2**64

    def is_cut_off(self) -> bool:
        """Waits for the service to close. If bytes are unread, this is a reset."""
        try:
            return self.socket.recv(1) == b""
        except ConnectionResetError:
            return True


def run_service(*arguments: str) -> subprocess.CompletedProcess[str]:
    """Runs a service that ends by itself."""
    command = [*COMMAND, *arguments]
    return subprocess.run(command, capture_output=True, text=True, check=False, timeout=LONG)
