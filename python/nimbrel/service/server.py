"""The listening socket of the service, its standard streams and its end."""

import asyncio
import ipaddress
import logging
import os
import signal
import socket
import sys
from collections.abc import Coroutine, Iterable
from typing import Any

from nimbrel.service.connections import READ_BYTES, Service

log = logging.getLogger("nimbrel.service")


async def serve(service: Service, host: str, port: int, *, until_eof: bool) -> None:
    """Listen and serve until a signal, or until the end of standard input.

    Args:
        service: Serves the clients.
        host: The name or address to listen on.
        port: The port; 0 chooses a free one.
        until_eof: Whether the end of standard input ends the service, as SIGINT and SIGTERM do.

    Raises:
        OSError: If the service cannot listen on the address.
        ValueError: If standard input is neither a pipe nor a terminal.
    """
    stopped = asyncio.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        asyncio.get_running_loop().add_signal_handler(number, stopped.set)
    # The engine's client supports IPv4 only.
    server = await asyncio.start_server(
        service.serve_client, host, port, family=socket.AF_INET, limit=READ_BYTES
    )
    announce(listener.getsockname() for listener in server.sockets)
    redirect_standard_output()
    ends: list[Coroutine[Any, Any, object]] = [stopped.wait()]
    if until_eof:
        ends.append(end_of_input())
    done, _ = await asyncio.wait(
        [asyncio.ensure_future(end) for end in ends], return_when=asyncio.FIRST_COMPLETED
    )
    for end in done:
        await end
    server.close()
    await service.end()


def announce(addresses: Iterable[tuple[str, int]]) -> None:
    """Print each address and port, and warn of those that other machines can reach."""
    for address, number in addresses:
        if not ipaddress.ip_address(address).is_loopback:
            log.warning("no authentication: whoever reaches %s:%d can use it", address, number)
        print(f"listening on {address}:{number}", flush=True)


def redirect_standard_output() -> None:
    """Redirect standard output to standard error: the reader of the address may have gone."""
    os.dup2(sys.stderr.fileno(), sys.stdout.fileno())


async def end_of_input() -> None:
    """Wait for the end of standard input.

    Raises:
        ValueError: If standard input is neither a pipe nor a terminal.
    """
    reader = asyncio.StreamReader()
    protocol = asyncio.StreamReaderProtocol(reader)
    await asyncio.get_running_loop().connect_read_pipe(lambda: protocol, sys.stdin)
    while await reader.read(READ_BYTES):
        pass


def require_streams(*, until_eof: bool) -> None:
    """Check that the standard streams that the service needs are open.

    Otherwise the first sockets would get the numbers of these streams and receive printed text.

    Args:
        until_eof: Whether the service needs standard input.

    Raises:
        ValueError: If a stream is closed.
    """
    needed = {"output": sys.stdout, "error": sys.stderr}
    if until_eof:
        needed["input"] = sys.stdin
    for name, stream in needed.items():
        if stream is None:
            raise ValueError(f"standard {name} is closed")
