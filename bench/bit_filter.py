"""Time the bit filter on arrays of a million records.

    python bench/bit_filter.py [--records N] [--repeats N] [--json PATH]

Task: an array of X, conditioned X, swap or read records, one qubit (swap: two) each, run
by one call of the engine on a register of 64 and of 1,000,000 qubits. Goal: 25 million X
records a second, the same within a tenth on both widths. Qubits come from a seeded
generator. Every array is checked against a plain model before it is timed.
"""

import sys
from collections.abc import Callable
from dataclasses import dataclass
from functools import partial
from typing import TypeAlias

import numpy as np
import numpy.typing as npt
from harness import Goal, Result, argument_parser, at_least, best_seconds, print_table, write_json
from nimbrel import QPU_OP, Opcode, RecordArray, Simulator, reset

WIDTHS = (64, 1_000_000)
SEED = 20_250_311
FIRST_FLAG = 2  # the flags below are constants

Qubits: TypeAlias = npt.NDArray[np.uint64]
Bits: TypeAlias = npt.NDArray[np.uint8]
Model: TypeAlias = Callable[[Bits, Qubits, Qubits], Bits]


@dataclass(frozen=True)
class Task:
    """One kind of record.

    Attributes:
        name: What the table calls it.
        build: Makes the records from a target and a second qubit each.
        model: The register after the records, as one byte per qubit.
        same_word: Whether a record's two qubits must share a 64-qubit word.
        goal: What the rate should be.
    """

    name: str
    build: Callable[[Qubits, Qubits], RecordArray]
    model: Model
    same_word: bool = False
    goal: Goal | None = None


def blank(opcode: Opcode, targets: Qubits) -> RecordArray:
    """Records of one opcode with one target each, shape (len(targets),)."""
    records = np.zeros(len(targets), dtype=QPU_OP)
    records["opcode"] = opcode
    records["target_mask"] = bit_of(targets)
    records["target_offset"] = word_of(targets)
    return records


def bit_of(qubits: Qubits) -> Qubits:
    """The mask of each qubit within its word."""
    masks: Qubits = np.uint64(1) << (qubits & np.uint64(63))
    return masks


def word_of(qubits: Qubits) -> Qubits:
    """The bit offset of each qubit's word."""
    offsets: Qubits = qubits & ~np.uint64(63)
    return offsets


def build_x(targets: Qubits, _: Qubits) -> RecordArray:
    """X on each target."""
    return blank(Opcode.X, targets)


def build_conditioned_x(targets: Qubits, controls: Qubits) -> RecordArray:
    """X on each target, acting where the control is 1."""
    records = blank(Opcode.X, targets)
    records["cond_mask"] = bit_of(controls)
    records["cond_offset"] = word_of(controls)
    return records


def build_swap(targets: Qubits, partners: Qubits) -> RecordArray:
    """Swap of two qubits that share a word."""
    records = blank(Opcode.SWAP, targets)
    records["target_mask"] |= bit_of(partners)
    return records


def build_read(targets: Qubits, _: Qubits) -> RecordArray:
    """Read of each target into the flag that belongs to it."""
    records = blank(Opcode.READ, targets)
    records["read_flag"] = targets.astype(np.int64) + FIRST_FLAG
    return records


def model_x(start: Bits, targets: Qubits, _: Qubits) -> Bits:
    """X commutes with X, so the number of flips tells."""
    flips = np.bincount(targets.astype(np.int64), minlength=len(start))
    return start ^ (flips & 1).astype(np.uint8)


def model_conditioned_x(start: Bits, targets: Qubits, controls: Qubits) -> Bits:
    """Each record sees what those before it left, so they are walked one by one."""
    state = bytearray(start)
    for target, control in zip(targets.tolist(), controls.tolist(), strict=True):
        state[target] ^= state[control]
    return np.frombuffer(state, dtype=np.uint8)


def model_swap(start: Bits, targets: Qubits, partners: Qubits) -> Bits:
    """Likewise one by one."""
    state = bytearray(start)
    for a, b in zip(targets.tolist(), partners.tolist(), strict=True):
        state[a], state[b] = state[b], state[a]
    return np.frombuffer(state, dtype=np.uint8)


def model_read(start: Bits, _targets: Qubits, _others: Qubits) -> Bits:
    """A read changes no qubit; the flags are compared apart."""
    return start


TASKS = (
    Task("X", build_x, model_x, goal=Goal(rate=25, spread=0.1)),
    Task("conditioned X", build_conditioned_x, model_conditioned_x),
    # Both qubits in one word: a swap is one record then, whatever the register's width.
    Task("swap", build_swap, model_swap, same_word=True),
    Task("read", build_read, model_read),
)


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


def prepare(task: Task, width: int, count: int) -> tuple[Simulator, RecordArray]:
    """Make a simulator and records whose effect agrees with the model.

    Raises:
        RuntimeError: If it does not, or the engine fails.
    """
    rng = np.random.default_rng([SEED, width])
    sim = Simulator("StreamBitQPU")
    start = rng.integers(2, size=width, dtype=np.uint8)
    sim.run(reset(width), blank(Opcode.X, np.flatnonzero(start).astype(np.uint64)))
    first, second = draw_pairs(rng, width, count, same_word=task.same_word)
    records = task.build(first, second)
    sim.run(records)
    if not np.array_equal(state_of(sim), task.model(start, first, second)):
        raise RuntimeError(f"{task.name} on {width} qubits: the state differs from the model")
    if task.name == "read" and not flags_agree(sim, start, first):
        raise RuntimeError(f"{task.name} on {width} qubits: a flag differs from the model")
    return sim, records


def state_of(sim: Simulator) -> Bits:
    """The register, one byte per qubit."""
    characters = np.frombuffer(sim.bits().encode(), dtype=np.uint8)
    state: Bits = (characters == ord("1")).astype(np.uint8)
    return state


def flags_agree(sim: Simulator, start: Bits, targets: Qubits) -> bool:
    """Whether the flag of every qubit read holds its bit, and the others hold 0."""
    expected = np.zeros_like(start)
    expected[targets] = start[targets]
    packed = np.packbits(expected, bitorder="little").tobytes()
    return sim.flags(FIRST_FLAG, len(start)) == int.from_bytes(packed, "little")


def time_task(task: Task, count: int, repeats: int) -> Result:
    """Check one task on every width, then time it with the widths interleaved."""
    prepared = [prepare(task, width, count) for width in WIDTHS]
    try:
        seconds = best_seconds([partial(sim.run, records) for sim, records in prepared], repeats)
    finally:
        for sim, _ in prepared:
            sim.close()
    rates = {width: count / best / 1e6 for width, best in zip(WIDTHS, seconds, strict=True)}
    return Result(task.name, task.goal, rates)


def main() -> int:
    """Time every task; returns the exit status."""
    parser = argument_parser("Time the bit filter.", repeats=9)
    parser.add_argument(
        "--records", type=at_least(1), default=1_000_000, help="records of an array"
    )
    arguments = parser.parse_args()
    results = [time_task(task, arguments.records, arguments.repeats) for task in TASKS]
    print_table(results)
    if arguments.json is not None:
        write_json(arguments.json, results)
    return 0


if __name__ == "__main__":
    sys.exit(main())
