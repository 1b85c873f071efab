"""Start a service in another process and run a program on its filter.

    python examples/service.py

The program prepares a GHZ state of 1000 qubits and measures all of them, so that every outcome
bit is the same. A service that stays, for clients on this machine, is started by

    python -m nimbrel.service --filter StreamCliffordQPU

and `Simulator("StreamConnect").connect("127.0.0.1", 7376)` connects to it. The exit status is 1
if the outcome bits differ.
"""

import sys

from nimbrel import Simulator, h, read, reset, x
from nimbrel.service import running_service

QUBITS = 1000
FIRST_FLAG = 2  # the flags below are constants


def main() -> int:
    """Run the example and return the exit status."""
    ghz = [reset(QUBITS), h(0), x(range(1, QUBITS), controls=0)]
    with (
        running_service("--filter", "StreamCliffordQPU", "--quiet") as (host, port),
        Simulator("StreamConnect") as sim,
    ):
        sim.connect(host, port, timeout=20)  # seconds without a reply
        outcome = sim.fetch(FIRST_FLAG, QUBITS, *ghz, read(range(QUBITS), FIRST_FLAG))
    print(f"{QUBITS} qubits measured at {host}:{port}: {outcome.bit_count()} of them are 1")
    return 0 if outcome in (0, (1 << QUBITS) - 1) else 1


if __name__ == "__main__":
    sys.exit(main())
