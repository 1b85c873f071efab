"""What the dense engine reaches alone: cost of a record, a call and a reset, memory bandwidth.

The bandwidth to hold it against is that of the plainest loop there is, measured in turn with the
gates: NumPy multiplies a buffer as large as the state by a number, in place, one thread for each
processor. What is timed is checked first, with plain NumPy.
"""

import os
import resource
from collections.abc import Iterator
from concurrent.futures import ThreadPoolExecutor
from functools import partial
from itertools import repeat
from typing import Any

import _lib_nb_sim
import engine
import nimbrel as nb
import numpy as np
from gates import DENSE_SEED, Gate, dense_gates, record_of
from harness import Timer, WrongResultError, best_seconds, seconds_of, timed
from numpy_models import after_gates, random_state
from peers import Amplitudes
from report import Figure

RECORD_QUBITS = (4, 6)
RESET_QUBITS = (6, 12, 16, 20)
CACHED_QUBITS = 10  # 16 KiB, in the first-level cache
MEMORY_QUBITS = 22  # from here on a state does not fit a cache
AMPLITUDE_BYTES = 16
ROUNDS = 4
ARRAY_RECORDS = 20_000
TOLERANCE = 1e-9  # norm of the difference of two states of norm 1


def scaling_loop(num_bytes: int, threads: int) -> Timer:
    """A timer of the in-place scaling of a buffer, shared out over threads."""
    parts = np.array_split(np.ones(num_bytes // 8), threads)
    pool = ThreadPoolExecutor(threads)

    def scale(part: "np.ndarray[Any, np.dtype[np.float64]]") -> None:
        np.multiply(part, -1.0, out=part)

    return timed(lambda: list(pool.map(scale, parts)))


def check_state(register: engine.Dense, expected: Amplitudes, task: str) -> None:
    """Compare a register with the known state.

    Raises:
        WrongResultError: If it differs.
    """
    distance = float(np.linalg.norm(register.state() - expected))
    if not distance <= TOLERANCE:  # also if it is NaN
        raise WrongResultError(f"{task}: the state differs by {distance:.2g}")


def check_gates(register: engine.Dense, num_qubits: int, gates: list[Gate]) -> None:
    """Run gates on a random state, compare, and leave the register in that state.

    Raises:
        WrongResultError: If the result differs from NumPy's.
    """
    start = random_state(num_qubits, DENSE_SEED)
    register.load(start)
    register.apply(gates)
    check_state(register, after_gates(start, gates), f"{gates[0].name} on {num_qubits} qubits")
    register.load(start)


def bandwidth_figures(num_qubits: int, threads: int | None) -> list[Figure]:
    """Hold gates on a large register against the scaling loop."""
    state_bytes = AMPLITUDE_BYTES << num_qubits
    loop = scaling_loop(state_bytes, threads or len(os.sched_getaffinity(0)))
    register = engine.Dense(num_qubits, threads)
    hadamards, cnots, ts = (dense_gates(name, num_qubits) for name in ("H", "CNOT", "T"))
    for gates in (hadamards[:: num_qubits - 1], cnots[:2], ts[-2:]):
        check_gates(register, num_qubits, gates)
    lists = [*([gate] for gate in hadamards), cnots, ts]
    timers = [partial(register.timer(gates), 1) for gates in lists]
    *loops, cnot, t = best_seconds([loop, loop, loop, *timers], ROUNDS)
    register.close()
    best_loop, seconds = min(loops[:3]), loops[3:]
    mean = sum(seconds) / num_qubits
    suffix = f"of the loop on {num_qubits} qubits"
    goal = 85.0 if num_qubits == 24 else None
    over = "times a Hadamard"
    return [
        Figure(f"scaling loop, {num_qubits} qubits", 2 * state_bytes / best_loop / 1e9, "GB/s"),
        Figure("Hadamard", 100 * best_loop / mean, f"% {suffix}", None, goal),
        Figure("Hadamard, worst target", 100 * best_loop / max(seconds), f"% {suffix}"),
        Figure("CNOT, half of the amplitudes", cnot / num_qubits / mean, over),
        Figure("T, half of the amplitudes", t / num_qubits / mean, over),
    ]


def layer_figures(num_qubits: int, threads: int | None) -> list[Figure]:
    """A layer of one gate on each qubit: gates that wait against one pass for each.

    The arithmetic's own limit is the same gate on a register in the first-level cache, with as many
    of these at a time as there are threads.
    """
    waiting, settled = engine.Dense(num_qubits, threads), engine.SettledDense(num_qubits, threads)
    cached = engine.BatchedDense(CACHED_QUBITS, threads)
    workers = threads or len(os.sched_getaffinity(0))
    found = []
    for name in ("H", "RX", "RZ"):
        layer, small = dense_gates(name, num_qubits), dense_gates(name, CACHED_QUBITS)
        for register in (waiting, settled):
            check_gates(register, num_qubits, layer)
        check_gates(cached, CACHED_QUBITS, small)
        layers = [partial(register.timer(layer), 1) for register in (waiting, settled)]
        repeated = cached.timer(small * (ARRAY_RECORDS // CACHED_QUBITS))
        shared, single, alone = best_seconds([*layers, partial(repeated, 1)], ROUNDS)
        gates = ARRAY_RECORDS // CACHED_QUBITS * CACHED_QUBITS
        limit = alone / gates / (1 << CACHED_QUBITS) / workers
        task = f"layer of {name}, {num_qubits} qubits"
        found += [
            Figure(task, shared / single, "of one pass a gate", 0.3),
            Figure(task, shared / num_qubits / (1 << num_qubits) / limit, "of the arithmetic"),
        ]
    for register in (waiting, settled, cached):
        register.close()
    return found


def record_figures(num_qubits: int) -> Iterator[Figure]:
    """Engine time of a record, from arrays of one gate on every target."""
    register = engine.BatchedDense(num_qubits, None)
    names = ("X", "H", "T", "RX", "RZ", "CNOT")
    for name in names:
        check_gates(register, num_qubits, 2 * dense_gates(name, num_qubits))
    lists = [dense_gates(name, num_qubits) * (ARRAY_RECORDS // num_qubits) for name in names]
    seconds = best_seconds([partial(register.timer(gates), 1) for gates in lists], 2 * ROUNDS)
    register.close()
    for name, gates, best in zip(names, lists, seconds, strict=True):
        yield Figure(f"{name} in an array, {num_qubits} qubits", best / len(gates) * 1e9, "ns", 100)


def call_figure(num_qubits: int) -> Figure:
    """Time that a call with one record takes beyond the record itself (a Hadamard)."""
    register = engine.Dense(num_qubits, None)
    gate = Gate("H", (0,))
    put, (handle, record, _) = register.call(gate)
    batch = nb.program(*[record_of(gate)] * ARRAY_RECORDS)

    def single() -> None:
        for _ in repeat(None, ARRAY_RECORDS):
            put(handle, record, 1)
        register.finish()

    def empty() -> None:
        for _ in repeat(None, ARRAY_RECORDS):
            pass

    def batched() -> None:
        put(handle, batch, ARRAY_RECORDS)
        register.finish()

    start = random_state(num_qubits, DENSE_SEED)
    for call in (single, batched):  # an even number of Hadamards
        register.load(start)
        call()
        check_state(register, start, f"{ARRAY_RECORDS} Hadamards")
    times = best_seconds([timed(call) for call in (single, empty, batched)], 3 * ROUNDS)
    register.close()
    beyond = (times[0] - times[1] - times[2]) / ARRAY_RECORDS * 1e9
    return Figure("call of one record beyond the record", beyond, "ns", 250)


def reset_figures(num_qubits: int) -> list[Figure]:
    """Cost of a reset of the same shape from a state without zeros.

    The page faults are those of all resets together: memory given back and taken anew would show
    there.
    """
    register = engine.Dense(num_qubits, None)
    state, record = random_state(num_qubits, DENSE_SEED), nb.reset(num_qubits)
    handle, put, finish = register.handle, _lib_nb_sim.put_instructions, _lib_nb_sim.finish
    best, faults = float("inf"), 0

    def reset() -> None:
        put(handle, record, 1)
        finish(handle)

    register.load(state)
    reset()
    check_state(register, np.eye(1, len(state), dtype=np.complex128)[0], "reset")
    for number in range(2 * ROUNDS):
        register.load(state)
        before = resource.getrusage(resource.RUSAGE_SELF).ru_minflt
        best = min(best, seconds_of(reset))
        if number:  # the first round meets code that has never run
            faults += resource.getrusage(resource.RUSAGE_SELF).ru_minflt - before
    register.close()
    name = f"reset of the same shape, {num_qubits} qubits"
    return [Figure(name, best * 1e6, "us"), Figure(name, faults, "page faults")]


def alone_figures(widest: int, threads: int | None) -> Iterator[Figure]:
    """All that concerns this engine alone."""
    for width in RECORD_QUBITS:
        yield from record_figures(width)
    yield call_figure(RECORD_QUBITS[0])
    for width in RESET_QUBITS:
        yield from reset_figures(width)
    if widest >= MEMORY_QUBITS:
        yield from bandwidth_figures(widest, threads)
        yield from layer_figures(widest, threads)
