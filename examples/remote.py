"""Run a program at a service and in this process, and compare the outcomes.

    python examples/remote.py [SECRET] [--filter TYPE] [--service HOST:PORT]

The program finds a secret number (default 48879) by one use of a circuit that contains it, the
algorithm of Bernstein and Vazirani, https://doi.org/10.1137/S0097539796300921: Hadamards on all
qubits, a CNOT to the last qubit from each qubit whose bit of the secret is 1, and Hadamards again.
Then a measurement of the qubits gives the secret.

Without --service, the example starts `python -m nimbrel.service` in another process. Both
processes run the program on a filter of TYPE (default StreamQPU). With --service, the service that
listens at HOST:PORT runs it. The exit status is 1 if an outcome is not the secret or the service
does not answer, and 2 if an argument is wrong.
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
TIMEOUT: Final = 20.0  # seconds without a reply after which the example fails
LONGEST_SHOWN: Final = 60  # characters of a wrong argument in its message


class Address(NamedTuple):
    """The address on which a service listens."""

    host: str
    port: int


class Task(NamedTuple):
    """The program, and the number of bits that it stores in the read flags."""

    records: RecordArray
    bits: int


def secret_task(secret: int) -> Task:
    """Make the program that finds `secret` by one use of the circuit that contains it."""
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
    """Return the outcome on a filter of this process."""
    with Simulator(filter_type) as sim:
        sim.run(task.records)
        return sim.flags(FIRST_FLAG, task.bits)


def run_remotely(task: Task, service: Address) -> int:
    """Return the outcome at a service.

    Raises:
        OSError: If the connection fails, or the service does not answer in time.
    """
    with Simulator("StreamConnect") as sim:
        sim.connect(service.host, service.port, TIMEOUT)
        return sim.fetch(FIRST_FLAG, task.bits, task.records)


@contextlib.contextmanager
def service_at(address: Address | None, filter_type: str) -> Iterator[Address]:
    """Yield the address of the given service, or of a service that runs during the block."""
    if address is not None:
        yield address
        return
    with running_service("--filter", filter_type, "--quiet") as (host, port):
        yield Address(host, port)


class OneLineParser(argparse.ArgumentParser):
    """An argument parser that reports an error on one line."""

    def error(self, message: str) -> NoReturn:
        """Print the usage and the message on one line and exit with status 2."""
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
    """Return the secret, the filter and the service; exits if an argument is wrong."""
    parser = OneLineParser(prog="remote.py", description=__doc__, allow_abbrev=False)
    parser.formatter_class = argparse.RawDescriptionHelpFormatter
    parser.add_argument("secret", nargs="?", type=secret_number, default=DEFAULT_SECRET)
    parser.add_argument("--filter", choices=FILTERS, default=FILTERS[0])
    parser.add_argument("--service", type=service_address, metavar="HOST:PORT")
    return parser.parse_args(argv)


def main(argv: Sequence[str]) -> int:
    """Run the example and return the exit status."""
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
