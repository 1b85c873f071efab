"""Runs a program in several calls of the engine, each of a bounded time.

The engine does not return before the last record of a call, and Ctrl-C waits for that. So a long
program is cut into calls of about 20 milliseconds, and `KeyboardInterrupt` is raised between two of
them. Jumps, extension records and batches of products stay open from call to call, so a program may
be cut anywhere. Only a single record that takes long cannot be cut.
"""

import time
from bisect import bisect_right
from collections.abc import Iterator
from contextlib import contextmanager
from itertools import accumulate
from typing import Final

import _lib_nb_sim

from nimbrel._engine import engine_errors
from nimbrel.operations import FilterOperations
from nimbrel.records import Program, RecordArray, program
from nimbrel.running.progress import ProgressBar

__all__ = ["checked", "first_call", "put_in_calls", "run_in_calls"]

_CALL_SECONDS: Final = 0.02
_WEIGHED: Final = 1000
"""Gates of a call up to which targets are counted. The gates of a longer call are so fast that a
call of records with many targets ends soon all the same."""
_RECORD_SECONDS: Final = 1e-7
_AMPLITUDE_SECONDS: Final = 1e-9
_TABLEAU_ROW_SECONDS: Final = 1e-8
_MOST_QUBITS: Final = 40  # of a dense register that any machine holds
_FIRST_SPARSE_CALL: Final = 8
"""Each record of a sparse program may double the work of all that follow."""
_GROWTH: Final = 2


def run_in_calls(
    simulator: FilterOperations, *parts: RecordArray, progress: ProgressBar | None = None
) -> None:
    """Run a program as `Simulator.run` does, so that Ctrl-C ends it soon.

    Args:
        simulator: A simulator of a local filter.
        *parts: The program.
        progress: Shows how many records have run.

    Raises:
        ValueError: As `Simulator.run`.
        RuntimeError: As `Simulator.run`.
        KeyboardInterrupt: Between two calls. The records of the calls before have taken effect,
            and the simulator can be used.
    """
    records = program(*parts)
    with checked(simulator, records) as handle:
        put_in_calls(handle, records, first_call(simulator.filter_type, records), progress)


@contextmanager
def checked(simulator: FilterOperations, records: Program) -> Iterator[int]:
    """Check a program, and note that the block runs it.

    Args:
        simulator: The simulator.
        records: The program.

    Yields:
        The number of the filter in the engine.

    Raises:
        ValueError: If a record is refused, or if the simulator is closed.
        RuntimeError: The engine's error.
    """
    with simulator.following(records) as handle, engine_errors():
        yield handle


def first_call(filter_type: str, records: Program) -> int:
    """The number of gates of the first call, by the size of the register.

    Args:
        filter_type: The engine's name of the filter type.
        records: The program. Its first record is the reset; otherwise the register is unknown.
    """
    if filter_type == "StreamSparseQPU":
        return _FIRST_SPARSE_CALL
    num_qubits = int(records["target_mask"][0]) if len(records) else 0
    seconds = _RECORD_SECONDS
    if filter_type == "StreamQPU":
        seconds += _AMPLITUDE_SECONDS * 2.0 ** min(num_qubits, _MOST_QUBITS)
    elif filter_type == "StreamCliffordQPU":
        seconds += _TABLEAU_ROW_SECONDS * min(num_qubits, 2**32)
    return max(1, int(_CALL_SECONDS / seconds))


def put_in_calls(
    handle: int, records: Program, count: int, progress: ProgressBar | None = None
) -> None:
    """Pass records to the engine in calls of about 20 milliseconds.

    Args:
        handle: The number of the filter in the engine.
        records: The records, which have been checked.
        count: The number of gates of the first call.
        progress: Shows how many records have run.

    Raises:
        SystemError: The engine's error; `engine_errors` raises its cause.
    """
    put, clock = _lib_nb_sim.put_instructions, time.perf_counter
    total = len(records)
    start = 0
    # Gates of a large register wait in one call and act in another, so the mean counts.
    mean = _CALL_SECONDS / count
    while start < total:
        part = records[start : start + count] if start or count < total else records
        gates = len(part)
        if count <= _WEIGHED:
            part, gates = _of_few_gates(part, count)
        begin = clock()
        put(handle, part, len(part))
        seconds = clock() - begin
        start += len(part)
        if progress is not None:
            progress.update(len(part))
        mean = max(mean / _GROWTH, (mean + seconds / gates) / 2, _RECORD_SECONDS / 2)
        count = max(1, min(_GROWTH * count, int(_CALL_SECONDS / mean)))


def _of_few_gates(part: Program, most: int) -> tuple[Program, int]:
    """The first records of a part that have so many targets together, but at least one record."""
    targets = [max(mask.bit_count(), 1) for mask in part["target_mask"].tolist()]
    if sum(targets) <= most:
        return part, sum(targets)
    sums = list(accumulate(targets))
    length = max(bisect_right(sums, most), 1)
    return part[:length], sums[length - 1]
