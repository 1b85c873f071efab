"""Run a program at a service, and the same program here: the outcome is the same.

    python examples/remote.py [SECRET] [--filter TYPE] [--service HOST:PORT]

The program finds a secret number (default 48879) that a circuit knows, by asking that circuit
once: Hadamards on all qubits, a CNOT to the last qubit from each one whose bit of the secret is
1, and Hadamards again, after which the qubits read the secret. Without --service, service.py
is started in another process and runs it on a filter of TYPE (default StreamQPU), as this
process does. With it, the service that listens there runs it. The exit status is 1 when an
outcome is not the secret or the service cannot be reached, and 2 when the arguments make no
sense.
"""

import argparse
import contextlib
import sys
import time
from collections.abc import Iterator, Sequence
from typing import Final, NamedTuple, NoReturn

from nimbrel import RecordArray, Simulator, h, program, read, reset, x
from nimbrel.service import running_service

DEFAULT_SECRET: Final = 0xBEEF
MAX_BITS: Final = 20
FIRST_FLAG: Final = 2  # the flags below are constants
FILTERS: Final = ("StreamQPU", "StreamSparseQPU", "StreamCliffordQPU")
TIMEOUT: Final = 20.0  # seconds without a reply after which the service is given up
LONGEST_SHOWN: Final = 60  # characters of a bad argument


class Address(NamedTuple):
    """Where a service listens."""

    host: str
    port: int


class Task(NamedTuple):
    """The program, and the number of bits that it leaves in the read flags."""

    records: RecordArray
    bits: int


def secret_task(secret: int) -> Task:
    """The program that finds `secret` by one use of the circuit that knows it."""
    bits = max(1, secret.bit_length())
    numbers, last = range(bits), bits
    oracle = [x(last, controls=qubit) for qubit in numbers if secret >> qubit & 1]
    records = program(
        reset(bits + 1),
        x(last),
        h([*numbers, last]),
        *oracle,
        h(numbers),
        read(numbers, FIRST_FLAG),
    )
    return Task(records, bits)


def run_locally(task: Task, filter_type: str) -> int:
    """The outcome on a filter of this process."""
    with Simulator(filter_type) as sim:
        sim.run(task.records)
        return sim.flags(FIRST_FLAG, task.bits)


def run_remotely(task: Task, service: Address) -> int:
    """The outcome at a service.

    Raises:
        OSError: If it cannot be reached or does not answer in time.
    """
    with Simulator("StreamConnect") as sim:
        sim.connect(service.host, service.port, TIMEOUT)
        return sim.fetch(FIRST_FLAG, task.bits, task.records)


@contextlib.contextmanager
def service_at(address: Address | None, filter_type: str) -> Iterator[Address]:
    """The service that was asked for, or one of this block's own."""
    if address is not None:
        yield address
        return
    with running_service("--filter", filter_type, "--quiet") as (host, port):
        yield Address(host, port)


class OneLineParser(argparse.ArgumentParser):
    """An argument parser that reports an error in one line."""

    def error(self, message: str) -> NoReturn:
        """Print the usage and the message in one line and exit with status 2."""
        usage = "usage: remote.py [SECRET] [--filter TYPE] [--service HOST:PORT]"
        self.exit(2, f"{usage}: {' '.join(message.split())}\n")


def secret_number(text: str) -> int:
    """Read the secret."""
    short = text if len(text) <= LONGEST_SHOWN else text[:LONGEST_SHOWN] + "..."
    if not (text.isascii() and text.isdigit() and len(text) <= LONGEST_SHOWN):
        raise argparse.ArgumentTypeError(f"not a number from 0 up: {short!r}")
    if int(text) >= 1 << MAX_BITS:
        raise argparse.ArgumentTypeError(f"not below 2**{MAX_BITS}: {short!r}")
    return int(text)


def service_address(text: str) -> Address:
    """Read HOST:PORT."""
    host, _, port = text.rpartition(":")
    is_port = port.isascii() and port.isdigit() and len(port) <= 5 and 0 < int(port) <= 65535
    if host and host.isprintable() and is_port:
        return Address(host, int(port))
    short = text if len(text) <= LONGEST_SHOWN else text[:LONGEST_SHOWN] + "..."
    raise argparse.ArgumentTypeError(f"not HOST:PORT: {short!r}")


def parse_arguments(argv: Sequence[str]) -> argparse.Namespace:
    """The secret, the filter and the service; exits on bad arguments."""
    parser = OneLineParser(prog="remote.py", description=__doc__, allow_abbrev=False)
    parser.formatter_class = argparse.RawDescriptionHelpFormatter
    parser.add_argument("secret", nargs="?", type=secret_number, default=DEFAULT_SECRET)
    parser.add_argument("--filter", choices=FILTERS, default=FILTERS[0])
    parser.add_argument("--service", type=service_address, metavar="HOST:PORT")
    return parser.parse_args(argv)


def main(argv: Sequence[str]) -> int:
    """Run the example; returns the exit status."""
    arguments = parse_arguments(argv)
    task = secret_task(arguments.secret)
    local = run_locally(task, arguments.filter)
    try:
        with service_at(arguments.service, arguments.filter) as address:
            start = time.perf_counter()
            remote = run_remotely(task, address)
            seconds = time.perf_counter() - start
    except OSError as error:
        print(f"remote.py: {error}", file=sys.stderr)
        return 1
    print(f"service   {address.host}:{address.port}")
    print(f"records   {len(task.records)}, on {task.bits + 1} qubits")
    print(f"remote    {remote}")
    print(f"local     {local}")
    print(f"seconds   {seconds:.3f} from connecting to the outcome")
    if remote != arguments.secret or local != arguments.secret:
        print(f"remote.py: the secret is {arguments.secret}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
