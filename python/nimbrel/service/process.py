"""Starts the service in another process for the length of a `with` block."""

import contextlib
import subprocess
import sys
from collections.abc import Iterator
from typing import Final

COMMAND: Final = (sys.executable, "-m", "nimbrel.service")
END_SECONDS: Final = 5.0


@contextlib.contextmanager
def running_service(*arguments: str) -> Iterator[tuple[str, int]]:
    """Run the service on a free port of this machine.

    The service needs another process, because the engine holds the interpreter lock while a
    client waits for a reply. The service ends when its standard input ends, so it also ends when
    this process dies.

    Args:
        *arguments: Further arguments for the command line of the service.

    Yields:
        The address and the port on which the service listens.

    Raises:
        ConnectionError: If the service does not start.
    """
    command = [*COMMAND, "--port", "0", "--until-eof", *arguments]
    process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    assert process.stdout is not None
    try:
        line = process.stdout.readline()
        if not line.startswith("listening on "):
            raise ConnectionError("the service has not started")
        host, _, port = line.removeprefix("listening on ").strip().rpartition(":")
        yield host, int(port)
    finally:
        _end(process)


def _end(process: subprocess.Popen[str]) -> None:
    """End the service, and kill it if it is busy with a long record."""
    assert process.stdin is not None
    assert process.stdout is not None
    process.stdin.close()
    process.stdout.close()
    try:
        process.wait(timeout=END_SECONDS)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
