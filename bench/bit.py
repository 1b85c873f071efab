"""Time the bit filter on arrays of a million records.

    python bench/bit.py [--records N] [--repeats N] [--json PATH]

Task: an array of X, conditioned X, swap or read records, one qubit (swap: two) each, run
by one call of the engine on a register of 64 and of 1,000,000 qubits. Goal: 25 million X
records a second, the same within a tenth on both widths. Qubits come from a seeded
generator. Every array is checked against a plain model before it is timed.
"""

import argparse
import sys
from contextlib import ExitStack
from functools import partial
from itertools import chain
from typing import TypeAlias

import numpy as np
import numpy.typing as npt
from gates import FIRST_FLAG
from harness import WrongResultError, argument_parser, at_least, best_seconds, run, timed
from nimbrel import QPU_OP, BitSimulator, Opcode, RecordArray, Simulator, reset
from report import Figure, Report

WIDTHS = (64, 1_000_000)
SEED = 20_250_311
TASKS = {"X": Opcode.X, "conditioned X": Opcode.X, "swap": Opcode.SWAP, "read": Opcode.READ}
RATE_GOAL = 25.0  # of X
RATIO_GOAL = (0.9, 1.1)

Qubits: TypeAlias = npt.NDArray[np.uint64]
Bits: TypeAlias = npt.NDArray[np.uint8]


def bit_of(qubits: Qubits) -> Qubits:
    """The mask of each qubit within its word."""
    masks: Qubits = np.uint64(1) << (qubits & np.uint64(63))
    return masks


def word_of(qubits: Qubits) -> Qubits:
    """The bit offset of each qubit's word."""
    offsets: Qubits = qubits & ~np.uint64(63)
    return offsets


def records_of(task: str, targets: Qubits, others: Qubits) -> RecordArray:
    """A task's records, one for each target and its other qubit."""
    records = np.zeros(len(targets), dtype=QPU_OP)
    records["opcode"] = TASKS[task]
    records["target_mask"] = bit_of(targets)
    records["target_offset"] = word_of(targets)
    if task == "conditioned X":
        records["cond_mask"] = bit_of(others)
        records["cond_offset"] = word_of(others)
    elif task == "swap":
        records["target_mask"] |= bit_of(others)
    elif task == "read":
        records["read_flag"] = targets.astype(np.int64) + FIRST_FLAG
    return records


def model_of(task: str, start: Bits, targets: Qubits, others: Qubits) -> Bits:
    """The register after a task's records, one byte for each qubit."""
    if task == "read":
        return start
    if task == "X":  # the number of flips tells, since X commutes with X
        flips = np.bincount(targets.astype(np.int64), minlength=len(start))
        return start ^ (flips & 1).astype(np.uint8)
    state = bytearray(start)
    for target, other in zip(targets.tolist(), others.tolist(), strict=True):
        if task == "swap":
            state[target], state[other] = state[other], state[target]
        else:
            state[target] ^= state[other]
    return np.frombuffer(state, dtype=np.uint8)


def draw_pairs(
    rng: np.random.Generator, width: int, count: int, *, same_word: bool
) -> tuple[Qubits, Qubits]:
    """Draw `count` pairs of different qubits, all equally likely, each of shape (count,)."""
    first = rng.integers(width, size=count, dtype=np.uint64)
    # A step of 1 .. span - 1 around a ring never comes back to where it started.
    span = np.uint64(64 if same_word else width)
    base = word_of(first) if same_word else np.uint64(0)
    step = rng.integers(1, span, size=count, dtype=np.uint64)
    return first, base + (first - base + step) % span


def checked_records(sim: BitSimulator, task: str, width: int, count: int) -> RecordArray:
    """A task's records, once their effect has agreed with the model.

    Raises:
        WrongResultError: If it does not.
    """
    rng = np.random.default_rng([SEED, width])
    start = rng.integers(2, size=width, dtype=np.uint8)
    ones = np.flatnonzero(start).astype(np.uint64)
    sim.run(reset(width), records_of("X", ones, ones))
    # Both qubits of a swap in one word: it is one record then, whatever the register's width.
    targets, others = draw_pairs(rng, width, count, same_word=task == "swap")
    records = records_of(task, targets, others)
    sim.run(records)
    found = np.frombuffer(sim.bits().encode(), dtype=np.uint8) == ord("1")
    if not np.array_equal(found, model_of(task, start, targets, others)):
        raise WrongResultError(f"{task} on {width} qubits: the state differs from the model")
    if task == "read" and not flags_agree(sim, start, targets):
        raise WrongResultError(f"{task} on {width} qubits: a flag differs from the model")
    return records


def flags_agree(sim: Simulator, start: Bits, targets: Qubits) -> bool:
    """Whether the flag of every qubit read holds its bit, and the others hold 0."""
    expected = np.zeros_like(start)
    expected[targets] = start[targets]
    packed = np.packbits(expected, bitorder="little").tobytes()
    return sim.flags(FIRST_FLAG, len(start)) == int.from_bytes(packed, "little")


def task_figures(task: str, count: int, repeats: int) -> list[Figure]:
    """Check a task on both widths, then time it with the widths in turn."""
    with ExitStack() as stack:
        timers = []
        for width in WIDTHS:
            sim = stack.enter_context(Simulator("StreamBitQPU"))
            records = checked_records(sim, task, width, count)
            timers.append(timed(partial(sim.run, records)))
        seconds = best_seconds(timers, repeats)
    least, (low, high) = (RATE_GOAL, RATIO_GOAL) if task == "X" else (None, (None, None))
    figures = [
        Figure(f"{task}, {width:,} qubits", count / best / 1e6, "million records/s", None, least)
        for width, best in zip(WIDTHS, seconds, strict=True)
    ]
    ratio = seconds[0] / seconds[-1]
    return [*figures, Figure(f"{task}, widest over narrowest", ratio, "", high, low)]


def benchmark(arguments: argparse.Namespace, report: Report) -> None:
    """Time every task."""
    groups = (task_figures(task, arguments.records, arguments.repeats) for task in TASKS)
    report.add_figures("the bit filter, best of all rounds", chain.from_iterable(groups))


if __name__ == "__main__":
    parser = argument_parser(__doc__, repeats=9)
    count = "records of an array"
    parser.add_argument("--records", type=at_least(1), default=1_000_000, help=count)
    sys.exit(run(benchmark, parser.parse_args()))
