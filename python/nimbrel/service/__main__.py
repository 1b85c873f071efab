"""Run programs for other processes: a service that "StreamConnect" filters connect to.

    python -m nimbrel.service [--filter TYPE] [--host HOST] [--port PORT] [--max-clients N]
                              [--max-qubits N] [--max-records N] [--idle-seconds N]
                              [--until-eof] [--quiet]

There is NO AUTHENTICATION and no encryption: everyone who can reach the port can use the
service. It listens on the loopback address of this machine unless HOST is another address; use
such an address only inside a network that you trust. The service prints a line
"listening on HOST:PORT" for each address of HOST. Port 0 chooses a free port.

Each client gets a filter of TYPE that no other client uses. Its records run on this filter in
order, and the filter ends with the connection. The service answers a fetch request (opcode
10000011) by one reply (10004011), also between a jump and its label:

    request   target_mask   first read flag, signed
              cond_mask     number of flags; above 64 counts as 64
    reply     target_mask   first read flag, as in the request
              cond_mask     number of flags, 64 at most
              cond_flag     bit i: the value has bit i, because a record has stored flag
                            first + i; no bit if a flag number does not fit 32 bits
              read_flag     bit i: flag first + i

The service sends nothing else. It cuts off a client and logs the reason

    when a record fails,
    when a reset names more qubits than --max-qubits,
    when the client sends more records than --max-records, more than 65536 records that open an
    event, or more than 4096 extensions of one operation,
    when the client sends nothing or leaves replies unread for --idle-seconds,
    when the client closes in the middle of a record.

The service holds less than a megabyte of a client's bytes at a time, and reads no more of them
while the client leaves replies unread. All limits except --max-clients hold for each client:
sixteen clients with a gigabyte each need sixteen gigabytes.

All clients share one thread and take turns of 50 milliseconds, or of one record if it takes
longer. Nothing interrupts a record. The log, and what the engine prints, go to standard error.
With --until-eof the service ends when its standard input ends, which must be a pipe or a
terminal.
"""

import argparse
import asyncio
import logging
import sys
from collections.abc import Callable, Sequence
from typing import Final

from nimbrel.service.connections import Service
from nimbrel.service.server import require_streams, serve
from nimbrel.service.session import Limits

PROGRAM: Final = "python -m nimbrel.service"
DEFAULT_PORT: Final = 7376

# Registers of about a gigabyte. A bit filter needs four bytes a qubit for reservations alone.
MAX_QUBITS: Final = {
    "StreamQPU": 26,
    "StreamSparseQPU": 24,
    "StreamBitQPU": 1 << 27,
    "StreamCliffordQPU": 1 << 15,
}


def host_name(text: str) -> str:
    """Read the address to listen on. An empty one would mean all addresses."""
    if not text:
        raise argparse.ArgumentTypeError("empty; 0.0.0.0 stands for all addresses")
    return text


def number_from(low: int, high: int = 2**63 - 1) -> Callable[[str], int]:
    """Make a reader of integer arguments from `low` to `high`."""

    def parse(text: str) -> int:
        if text.isascii() and text.isdigit() and len(text) < 20 and low <= int(text) <= high:
            return int(text)
        raise argparse.ArgumentTypeError(f"not a number from {low} to {high}: {text[:60]!r}")

    return parse


def parse_arguments(argv: Sequence[str]) -> argparse.Namespace:
    """Read the options; exits with status 2 if one is wrong."""
    parser = argparse.ArgumentParser(prog=PROGRAM, description=__doc__, allow_abbrev=False)
    parser.formatter_class = argparse.RawDescriptionHelpFormatter
    add = parser.add_argument
    add("--filter", choices=MAX_QUBITS, default="StreamQPU", help="what runs the records")
    add("--host", type=host_name, default="127.0.0.1", help="where to listen (default: loopback)")
    add("--port", type=number_from(0, 65535), default=DEFAULT_PORT, help=f"({DEFAULT_PORT})")
    add("--max-clients", type=number_from(1), default=16, metavar="N", help="at a time (16)")
    add("--max-qubits", type=number_from(0), metavar="N", help="of each (what fits a gigabyte)")
    add("--max-records", type=number_from(1), default=10**8, metavar="N", help="(100 million)")
    add("--idle-seconds", type=number_from(1), default=3600, metavar="N", help="(3600)")
    add("--quiet", action="store_true", help="log only what goes wrong")
    add("--until-eof", action="store_true", help="end when standard input does")
    return parser.parse_args(argv)


def main(argv: Sequence[str]) -> int:
    """Run the service and return the exit status."""
    settings = parse_arguments(argv)
    level = logging.WARNING if settings.quiet else logging.INFO
    logging.basicConfig(format="%(asctime)s %(message)s", level=level)
    qubits = settings.max_qubits
    if qubits is None:
        qubits = MAX_QUBITS[settings.filter]
    limits = Limits(settings.max_clients, qubits, settings.max_records, settings.idle_seconds)
    service = Service(settings.filter, limits)
    until_eof: bool = settings.until_eof
    try:
        require_streams(until_eof=until_eof)
        asyncio.run(serve(service, settings.host, settings.port, until_eof=until_eof))
    except (OSError, ValueError) as error:  # an address or a stream that cannot be used
        print(f"{PROGRAM}: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
