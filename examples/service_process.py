"""Start service.py in a process of its own, for as long as a `with` block."""

import contextlib
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path

SCRIPT = Path(__file__).with_name("service.py")


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
    with subprocess.Popen(
        command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
    ) as process:
        assert process.stdout is not None
        line = process.stdout.readline()
        if not line.startswith("listening on "):
            raise ConnectionError("the service has not started")
        host, _, port = line.removeprefix("listening on ").strip().rpartition(":")
        yield host, int(port)
