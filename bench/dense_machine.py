"""What the dense engine reaches on its own: memory bandwidth, cost of a record, of a call.

The bandwidth to hold it against is that of the plainest loop there is, measured in turn with
the gates: NumPy multiplies a buffer as large as the state by a number, in place, one thread
for each processor.
"""

import os
import resource
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor
from itertools import repeat
from typing import Any

import _lib_nb_sim
import nimbrel as nb
import numpy as np
from dense_engine import BatchedEngine, Engine, record_of
from dense_model import random_state
from dense_tasks import ANGLE, cnots, on_every_target
from harness import seconds_of

AMPLITUDE_BYTES = 16
ROUNDS = 4
ARRAY_RECORDS = 20_000


def scaling_loop(num_bytes: int, threads: int) -> Callable[[], float]:
    """A timed in-place scaling of a buffer, shared out over threads; gives the seconds."""
    parts = np.array_split(np.ones(num_bytes // 8), threads)
    pool = ThreadPoolExecutor(threads)

    def scale(part: "np.ndarray[Any, np.dtype[np.float64]]") -> None:
        np.multiply(part, -1.0, out=part)

    def run() -> float:
        return seconds_of(lambda: list(pool.map(scale, parts)))

    return run


def bandwidth_figures(num_qubits: int, threads: int | None) -> dict[str, float]:
    """Hold gates on a large register against the scaling loop.

    Args:
        num_qubits: Width of the register.
        threads: Threads of both sides; None takes each side's default.

    Returns:
        "loop_gb_per_s": bandwidth of the loop, read and written bytes together.
        "hadamard_percent", "hadamard_worst_percent": what a Hadamard reaches of it, on the
        average and on its worst target. "cnot_over_hadamard", "t_over_hadamard": mean times.
    """
    state_bytes = AMPLITUDE_BYTES << num_qubits
    loop = scaling_loop(state_bytes, threads or len(os.sched_getaffinity(0)))
    engine = Engine(num_qubits, threads)
    engine.load(random_state(num_qubits))
    hadamards = [engine.timer([gate]) for gate in on_every_target("H")(num_qubits)]
    others = [engine.timer(make(num_qubits)) for make in (cnots, on_every_target("T"))]
    best_loop, best_hadamards, best_others = float("inf"), [float("inf")] * num_qubits, [1e9, 1e9]
    for _ in range(ROUNDS):
        best_hadamards = [
            min(best, timer(1)) for best, timer in zip(best_hadamards, hadamards, strict=True)
        ]
        best_loop = min(best_loop, *(loop() for _ in range(3)))
        best_others = [min(best, timer(1)) for best, timer in zip(best_others, others, strict=True)]
    engine.close()
    mean = sum(best_hadamards) / num_qubits
    cnot, t = (best / num_qubits / mean for best in best_others)
    return {
        "num_qubits": num_qubits,
        "loop_gb_per_s": 2 * state_bytes / best_loop / 1e9,
        "hadamard_percent": 100 * best_loop / mean,
        "hadamard_worst_percent": 100 * best_loop / max(best_hadamards),
        "cnot_over_hadamard": cnot,
        "t_over_hadamard": t,
    }


def record_figures(num_qubits: int) -> dict[str, float]:
    """Nanoseconds of engine time for a record, from arrays of one gate on every target."""
    engine = BatchedEngine(num_qubits, None)
    engine.load(random_state(num_qubits))
    makers = {name: on_every_target(name) for name in ("X", "H", "T")}
    makers |= {name: on_every_target(name, ANGLE) for name in ("RX", "RZ")} | {"CNOT": cnots}
    figures = {}
    for name, make in makers.items():
        gates = make(num_qubits) * (ARRAY_RECORDS // num_qubits)
        timer = engine.timer(gates)
        figures[name] = min(timer(1) for _ in range(2 * ROUNDS)) / len(gates) * 1e9
    engine.close()
    return figures


def call_figure(num_qubits: int) -> float:
    """Nanoseconds that a call with one record takes beyond the record itself (a Hadamard)."""
    engine = Engine(num_qubits, None)
    gate = on_every_target("H")(num_qubits)[0]
    put, (handle, record, _) = engine.call(gate)
    batch = nb.program(*[record_of(gate)] * ARRAY_RECORDS)

    def single() -> None:
        for _ in repeat(None, ARRAY_RECORDS):
            put(handle, record, 1)

    def empty() -> None:
        for _ in repeat(None, ARRAY_RECORDS):
            pass

    def batched() -> None:
        put(handle, batch, ARRAY_RECORDS)

    best = [min(seconds_of(call) for _ in range(3 * ROUNDS)) for call in (single, empty, batched)]
    engine.close()
    return (best[0] - best[1] - best[2]) / ARRAY_RECORDS * 1e9


def reset_figures(num_qubits: int) -> dict[str, float]:
    """Cost of a reset of the same shape from a state without zeros.

    Returns:
        "microseconds" of one reset, and the "page_faults" of all that were made: memory
        given back and taken anew would show there.
    """
    engine = Engine(num_qubits, None)
    state, record = random_state(num_qubits), nb.reset(num_qubits)
    put, handle = _lib_nb_sim.put_instructions, engine.call(on_every_target("X")(1)[0])[1][0]
    best, faults = float("inf"), 0
    for number in range(2 * ROUNDS):
        engine.load(state)
        before = resource.getrusage(resource.RUSAGE_SELF).ru_minflt
        best = min(best, seconds_of(lambda: put(handle, record, 1)))
        if number:  # the first round meets code that has never run
            faults += resource.getrusage(resource.RUSAGE_SELF).ru_minflt - before
    engine.close()
    return {"microseconds": best * 1e6, "page_faults": faults}
