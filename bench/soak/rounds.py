"""The uses of the engine that a soak repeats. Each checks its own result.

A use is what a user does in a second or more: it makes what it needs, and leaves nothing.
"""

import contextlib
import os
import random
import socket
from collections.abc import Callable, Iterator
from typing import Final, TypeAlias

import nimbrel as nb
import numpy as np

Use: TypeAlias = Callable[[random.Random], None]
Address: TypeAlias = tuple[str, int]

PROGRAMS_OF_A_ROUND: Final = 27  # that all uses of this file run, each once
LONG: Final = 60.0
LOCAL_FILTERS: Final = ("StreamQPU", "StreamSparseQPU", "StreamBitQPU", "StreamCliffordQPU")


class WrongResultError(Exception):
    """A use has another result than the one known."""


def require(holds: bool, what: str) -> None:
    """Raise unless a result is the known one."""
    if not holds:
        raise WrongResultError(what)


def parity_program(rng: random.Random, qubits: int) -> nb.RecordArray:
    """Flips some qubits and folds their parity into the last one, which flag 2 then has."""
    flips = [qubit for qubit in range(qubits - 1) if rng.random() < 0.5]
    folds = [nb.x(qubits - 1, controls=qubit) for qubit in range(qubits - 1)]
    flipped = [nb.x(flips)] if flips else []
    return nb.program(nb.reset(qubits), *flipped, *folds, nb.read(range(qubits), 2))


def check_parity(flags: int, qubits: int) -> None:
    """The last of the bits read is the parity of the others."""
    others = flags & ((1 << (qubits - 1)) - 1)
    require(others.bit_count() & 1 == flags >> (qubits - 1), "the parity is wrong")


def classical_program(rng: random.Random) -> None:
    """One program on each filter, with resets of changing sizes."""
    for filter_type in LOCAL_FILTERS:
        with nb.Simulator(filter_type) as sim:
            for _ in range(3):
                qubits = rng.randint(2, 12)
                sim.run(parity_program(rng, qubits))
                check_parity(sim.flags(2, qubits), qubits)


def dense_transfers(rng: random.Random) -> None:
    """Registers with and without workers, on own and on lent memory; states in and out."""
    block_qubits, most_qubits = rng.choice([(0, 16), (2, 6), (13, 15)])
    with nb.DenseSimulator(num_block_qubits=block_qubits) as sim:
        for qubits in (rng.randint(1, 5), rng.randint(2, most_qubits)):
            sim.run(nb.reset(qubits), nb.h(range(qubits)), nb.rx(rng.uniform(0, 90), 0))
            state = sim.state()
            sim.push_state(state)
            require(abs(np.vdot(state, state).real - 1) < 1e-9, "the state has another norm")
            sim.run(nb.h(range(qubits)), nb.ppm([0], [], 2))
        lent = nb.aligned_buffer(rng.randint(2, 8))
        lent[:] = 0
        lent[0] = 1
        sim.override_state_buffer(lent)
        sim.run(nb.h(0))
        sim.finish()
        require(abs(abs(lent[1]) ** 2 - 0.5) < 1e-9, "the lent state is wrong")


def sparse_and_clifford(rng: random.Random) -> None:
    """Wide registers of the two filters that have them."""
    with nb.SparseSimulator() as sim:
        sim.run(nb.reset(40), nb.h(range(rng.randint(1, 8))), nb.x(39), nb.read(39, 2))
        require(sim.flags(2, 1) == 1, "the sparse outcome is wrong")
    with nb.CliffordSimulator() as sim:
        qubits = rng.randint(100, 400)
        chain = [nb.x(qubit + 1, controls=qubit) for qubit in range(50)]
        sim.run(nb.reset(qubits), nb.h(0), *chain, nb.read([0, 50], 2))
        require(sim.flags(2, 2) in (0, 3), "the entangled outcomes differ")
        require(len(sim.generators()) == qubits, "the tableau is too small")


def sampling(rng: random.Random) -> None:
    """Samples and an expectation value of a whole program."""
    program = nb.program(
        nb.reset(3), nb.h(0), nb.x(1, controls=0), nb.rx(30.0, 2), nb.read([0, 1], 2)
    )
    samples = nb.sample(program, 100, seed=rng.randrange(2**32))
    require(set(samples.values().tolist()) <= {0, 3}, "the entangled samples differ")


def errors(rng: random.Random) -> None:
    """Failing calls of each kind."""
    with nb.DenseSimulator(max_ram_size_gb=1) as sim:
        for program in (nb.reset(40), nb.h(0), nb.program(nb.reset(3), np.zeros(1, nb.QPU_OP))):
            with contextlib.suppress(RuntimeError, ValueError):
                sim.run(program)
        with contextlib.suppress(ValueError, RuntimeError):
            sim.push_state(np.zeros(rng.randint(1, 7), dtype=np.complex128))
    with contextlib.suppress(RuntimeError):
        nb.Simulator("StreamNothing")
    with nb.BitSimulator() as bits, contextlib.suppress(RuntimeError, ValueError):
        bits.run(nb.reset(3), nb.h(0), nb.rx(3.0, 0))


def events(rng: random.Random) -> None:
    """Open events and failed assertions, which are fetched."""
    with nb.BitSimulator() as sim:
        sim.enable_qubit_debugging()
        sim.run(nb.reset(8), nb.open_event(rng.randint(1, 99)), nb.x(1))
        sim.run(nb.free(1, check=True, event_code=7))
        event = sim.next_event()
        require(event is not None and event.code == 7, "the event is missing")


def session(address: Address) -> Use:
    """A session with a service, and a client that breaks off within a record."""

    def run(rng: random.Random) -> None:
        with nb.RemoteSimulator() as sim:
            sim.connect(*address, timeout=LONG)
            qubits = rng.randint(2, 60)
            flags = sim.fetch(2, qubits, parity_program(rng, qubits))
            check_parity(flags, qubits)
        with socket.create_connection(address, LONG) as broken:
            broken.sendall(os.urandom(rng.randint(1, 87)))

    return run


@contextlib.contextmanager
def silence() -> Iterator[None]:
    """Hides what the engine prints, such as the line of each connection."""
    saved = os.dup(1)
    nothing = os.open(os.devnull, os.O_WRONLY)
    os.dup2(nothing, 1)
    try:
        yield
    finally:
        os.dup2(saved, 1)
        os.close(saved)
        os.close(nothing)
