"""Runs calls of the module while allocations fail. For a process with `failing_malloc.c` loaded.

The process prints what is wrong, one line each, and "done" at the end.
"""

from __future__ import annotations

import contextlib
import ctypes
import gc
import os
import sys
from collections.abc import Callable, Iterator
from types import ModuleType
from typing import Any, NamedTuple

import _lib_nb_sim
import numpy as np

engine: ModuleType = _lib_nb_sim
TAG = 0x4E6D6272 << 32
RESET, X, H, READ, FREE, OPEN_EVENT = 0x10000001, 5, 9, 10, 0x10004003, 0x10000112
AT_A_TIME = (1, 3)  # allocations that fail; an exception then has no memory either
WARM_UPS, REPEATS = 2, 3

report = os.fdopen(os.dup(1), "w", encoding="utf-8")

allocator = ctypes.CDLL(None)
fail_allocations = allocator.fail_allocations
end_failures = allocator.end_failures
live_allocations = allocator.live_allocations
for function in (end_failures, live_allocations):
    function.restype = ctypes.c_long


def records(*rows: tuple[int, ...]) -> np.ndarray:
    """Records of an opcode and the words after it."""
    made = np.zeros((len(rows), 11), dtype=np.uint64)
    for record, row in zip(made, rows, strict=True):
        record[: len(row)] = row
        record[0] += TAG
    return made


def off_alignment(array: np.ndarray) -> np.ndarray:
    """A copy at an odd address, which the module copies again."""
    memory = np.zeros(array.nbytes + 1, dtype=np.uint8)
    odd: np.ndarray = memory[1:].view()
    odd[:] = array.view(np.uint8).ravel()
    rows: np.ndarray = odd.reshape(len(array), -1)
    return rows


class Case(NamedTuple):
    """A call on a filter of a type, after records."""

    name: str
    filter_type: str
    before: np.ndarray
    call: Callable[[int], Any]


AMPLITUDES = np.zeros(8, dtype=np.complex128)
AMPLITUDES[1] = 1.0
BUFFER = np.zeros(8, dtype=np.complex128)
INDICES = np.zeros(8, dtype=np.uint64)
PROGRAM = records((X, 1), (H, 2), (READ, 2, 0, 0, 0, 5000))
ODD = off_alignment(PROGRAM)
START = records((RESET, 3))
WIDE = records((RESET, 300))
EVENTS = records((RESET, 8), (OPEN_EVENT,), (X, 1), (FREE, 1, 16, 0, 0, 3))
DENSE, SPARSE, BIT, CLIFFORD, CONNECT = (
    f"Stream{name}" for name in ("QPU", "SparseQPU", "BitQPU", "CliffordQPU", "Connect")
)
HELD = (AMPLITUDES, BUFFER, INDICES, PROGRAM, ODD)


def new_filter_of(filter_type: str) -> Callable[[int], Any]:
    """A call that makes another filter."""
    return lambda _: engine.new_native_filter(filter_type)


def on_state_vectors() -> Iterator[Case]:
    """The calls that both state-vector filters have."""
    for kind in (DENSE, SPARSE):
        yield Case("records", kind, START, lambda h: engine.put_instructions(h, PROGRAM, 3))
        yield Case("odd records", kind, START, lambda h: engine.put_instructions(h, ODD, 3))
        yield Case("reset", kind, START[:0], lambda h: engine.put_instructions(h, START, 1))
        yield Case("push", kind, START, lambda h: engine.push_state(h, AMPLITUDES, 0))
        yield Case("pull", kind, START, lambda h: engine.pull_state(h, BUFFER))
        yield Case("slice", kind, START, lambda h: engine.pull_state_specific(h, BUFFER, 3))
        yield Case("check", kind, START, lambda h: engine.check_state(h, BUFFER, 0.1, 0))
        yield Case("value", kind, START, lambda h: engine.peek_value(h, 1, BUFFER))
        yield Case(
            "biggest", kind, START, lambda h: engine.peek_n_biggest_terms(h, 4, INDICES, BUFFER)
        )
        yield Case("terms", kind, START, engine.peek_num_nonzero_terms)
        yield Case("normalize", kind, START, engine.normalize)
        yield Case("random", kind, START, engine.set_random)
        yield Case("product", kind, START, lambda h: engine.pps(h, 1, 2))
        yield Case("probability", kind, START, lambda h: engine.peek_read_probability(h, 1, 1, 0.0))
        yield Case("postselect", kind, START, lambda h: engine.postselect(h, 0, 1))


def cases() -> Iterator[Case]:
    """All calls."""
    yield from on_state_vectors()
    yield Case("lend", DENSE, START, lambda h: engine.override_state_buffer(h, BUFFER))
    for kind in (BIT, CLIFFORD):
        yield Case("reset", kind, START[:0], lambda h: engine.put_instructions(h, WIDE, 1))
        yield Case("records", kind, WIDE, lambda h: engine.put_instructions(h, PROGRAM, 3))
        yield Case("text", kind, WIDE, lambda h: engine.pull_state(h, BUFFER))
        yield Case("probability", kind, WIDE, lambda h: engine.peek_read_probability(h, 1, 1, 0.0))
    yield Case("event", BIT, EVENTS, engine.get_next_event)
    for kind in (DENSE, SPARSE, BIT, CLIFFORD, CONNECT):
        yield Case("new", kind, START[:0], new_filter_of(kind))
        yield Case("status", kind, START[:0], engine.get_status)
        yield Case("params", kind, START[:0], lambda h: engine.setup_sim_params(h, *[0] * 7))
        yield Case("flags", kind, START[:0], lambda h: engine.fetch_read_result(h, 2, 20))
        yield Case("finish", kind, START[:0], engine.finish)
    yield Case("seed", DENSE, START[:0], lambda _: engine.random_seed(0, 1))
    yield Case("debugging", DENSE, START[:0], lambda h: engine.enable_qubit_debugging(h, 1))
    yield Case("connect", CONNECT, START[:0], lambda h: engine.connect(h, "127.0.0.1", 1, 0.0))
    yield Case("disconnect", CONNECT, START[:0], engine.disconnect)
    yield Case("unconnected", CONNECT, START[:0], lambda h: engine.put_instructions(h, PROGRAM, 3))


def is_expected(error: BaseException) -> bool:
    """Whether an error is that of missing memory, or one of the engine with its text.

    The interpreter wraps the engine's error. Without the memory for it, it wraps a MemoryError, or
    loses the error and says so.
    """
    if isinstance(error, SystemError) and str(error) == "error return without exception set":
        return True
    cause = error.__cause__
    if isinstance(error, MemoryError) or isinstance(cause, MemoryError):
        return True
    return isinstance(error, SystemError) and isinstance(cause, RuntimeError) and bool(str(cause))


def one_round(case: Case, first: int, count: int) -> int:
    """Makes the filter, fails its call and deletes it. Returns how many allocations have failed."""
    engine.enable_qubit_debugging(handle := engine.new_native_filter(case.filter_type), 1)
    if len(case.before):
        engine.put_instructions(handle, case.before, len(case.before))
    call, made, error = case.call, None, None
    fail_allocations(first, count)
    try:
        made = call(handle)
    except BaseException as caught:
        error = caught
    failures: int = end_failures()
    if error is not None and not is_expected(error):
        complain(case, first, f"ends in {error!r} with cause {error.__cause__!r}")
    if case.name == "new" and made is not None:
        engine.delete_native_filter(made)
    engine.delete_native_filter(handle)
    return failures


def complain(case: Case, first: int, text: str) -> None:
    """Prints one line."""
    print(f"{case.name} on {case.filter_type}, allocation {first}: {text}", file=report)


def live_after(rounds: int, case: Case, first: int, count: int) -> int:
    """The number of live allocations after so many rounds."""
    for _ in range(rounds):
        one_round(case, first, count)
    gc.collect()
    live: int = live_allocations()
    return live


def run(case: Case) -> None:
    """Fails every allocation of a call in turn, until none is left to fail."""
    for count in AT_A_TIME:
        first, failures = 0, 1
        while failures:
            references = [sys.getrefcount(array) for array in HELD]
            failures = one_round(case, first, count)
            before = live_after(WARM_UPS, case, first, count)
            if live_after(REPEATS, case, first, count) >= before + REPEATS:
                complain(case, first, "leaks memory")
            if references != [sys.getrefcount(array) for array in HELD]:
                complain(case, first, "leaks or loses a reference")
            first += 1


def live_filters() -> list[int]:
    """The handles of all filters that exist."""
    last = engine.new_native_filter(BIT)
    engine.delete_native_filter(last)
    found = []
    for handle in range(1, last):
        with contextlib.suppress(SystemError):
            engine.get_status(handle)
            found.append(handle)
    return found


def main() -> None:
    """Runs all cases."""
    silent = os.open(os.devnull, os.O_WRONLY)
    for stream in (1, 2):  # the engine prints failed resets and connections
        os.dup2(silent, stream)
    # Without memory at its first use, the C library's resolver keeps its lock for ever.
    engine.connect(handle := engine.new_native_filter(CONNECT), "127.0.0.1", 1, 0.0)
    engine.delete_native_filter(handle)
    gc.freeze()  # what the modules have made need not be searched again and again
    for case in cases():
        run(case)
    if left := live_filters():
        print(f"filters are left: {left}", file=report)
    print("done", file=report, flush=True)


if __name__ == "__main__":
    main()
