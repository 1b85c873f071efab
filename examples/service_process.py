"""Start service.py in a process of its own, for as long as a `with` block."""

import contextlib
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Final

SCRIPT = Path(__file__).with_name("service.py")
END_SECONDS: Final = 5.0


@contextlib.contextmanager
def running_service(*arguments: str) -> Iterator[tuple[str, int]]:
    """Run the service on a free port of this machine.

    It has to be another process: the engine holds the interpreter lock while it waits for a
    reply. The service ends with its standard input, so also when this process dies.

    Args:
        *arguments: Further ones for its command line.

    Yields:
        The address and the port that it listens on.

    Raises:
        ConnectionError: If it does not start.
    """
    command = [sys.executable, str(SCRIPT), "--port", "0", "--until-eof", *arguments]
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
    """End the service, by force if it is busy with a long record."""
    assert process.stdin is not None
    assert process.stdout is not None
    process.stdin.close()
    process.stdout.close()
    try:
        process.wait(timeout=END_SECONDS)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
