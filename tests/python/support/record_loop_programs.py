"""Programs for the record loop of any filter, and failures that all filters have in common.

The programs run on three qubits at 0 and invert some of them. The tests of each filter read its
register in their own way.
"""

from __future__ import annotations

import nimbrel as nb
import numpy as np
import pytest

from models.opcodes import FLAG_NAND, JUMP_BACK, JUMP_FWD, LABEL, X
from models.program import ONLY_FILTER
from support.driver import FilterDriver, op, raises_engine_error, rec

TABLE = {int(opcode) & 0xFFFFFFFF for opcode in nb.Opcode}
WRONG_COUNT = "Error: put_instructions array length differs from num_ops argument."

REST_OF_THE_JUMPS = pytest.mark.parametrize(
    "opcode", [0x16, op(0x16), op(0x10000616), op(JUMP_FWD) ^ 1 << 63, JUMP_FWD]
)
FLAG_OPERATIONS = pytest.mark.parametrize(
    ("first", "second", "destination", "stored"),
    [(1, 1, 7, 0), (1, 1, -7, 1), (0, 1, 7, 1), (0, 1, -7, 0), (1, 1, 1, 0), (0, 0, 0, 0)],
)


def invert_around_ignored_jumps(filter_: FilterDriver, opcode: int) -> None:
    """Inverts qubits 0 and 2. Records of this opcode are neither jumps nor labels."""
    other = nb.record(opcode, target_mask=7, cond_mask=1)
    filter_.run(other, rec(X, target_mask=1), rec(JUMP_FWD, target_mask=7), other)
    filter_.run(rec(X, target_mask=2), rec(LABEL, target_mask=7), rec(X, target_mask=4))


def skip_to_a_label(filter_: FilterDriver, *skipped: np.ndarray) -> None:
    """Inverts qubit 2. A jump over several calls and the given parts skips the other gates."""
    filter_.run(rec(JUMP_FWD, target_mask=9), rec(X, target_mask=1), rec(LABEL, target_mask=8))
    filter_.run(*skipped, rec(JUMP_FWD, target_mask=8))
    filter_.fails(f"qc.jump_back() {ONLY_FILTER}", rec(JUMP_BACK))
    with_condition = rec(LABEL, target_mask=9, cond_mask=1)
    filter_.fails(f"qc.jump_fwd() with quantum conditions {ONLY_FILTER}", with_condition)
    filter_.run(rec(X, target_mask=2), rec(LABEL, target_mask=9), rec(X, target_mask=4))


def jump_by_label_0(filter_: FilterDriver) -> None:
    """Inverts qubits 0 and 2: label 0 neither opens a jump nor closes one."""
    filter_.run(rec(JUMP_FWD), rec(X, target_mask=1))
    filter_.run(rec(JUMP_FWD, target_mask=7), rec(LABEL), rec(X, target_mask=2))
    filter_.run(rec(LABEL, target_mask=7), rec(LABEL, target_mask=7), rec(X, target_mask=4))


def assert_wrong_counts_fail(filter_: FilterDriver) -> None:
    """A count that differs from the array's length is refused, and nothing is inverted."""
    for count in (0, 2, 2**32 - 1):
        with raises_engine_error(WRONG_COUNT):
            filter_.call("put_instructions", rec(X, target_mask=1), count)


def assert_neighbours_unknown(filter_: FilterDriver) -> None:
    """Numbers that differ by one bit from those of the table are unknown."""
    near = {low ^ 1 << bit for low in TABLE for bit in range(32)} - TABLE
    for low in sorted(low for low in near if low & 0xFF != 0x16):
        filter_.fails(f"Error: Unknown opcode: 0x{op(low):x}\n", rec(low, target_mask=1))


def assert_foreign_tags_unknown(filter_: FilterDriver) -> None:
    """The numbers of the table are unknown under another tag than the engine's."""
    for low in sorted(low for low in TABLE if low & 0xFF != 0x16):
        opcode = op(low) ^ 1 << 40
        filter_.fails(f"Error: Unknown opcode: 0x{opcode:x}\n", nb.record(opcode))


def assert_flag_operation(
    filter_: FilterDriver, first: int, second: int, destination: int, stored: int
) -> None:
    """Runs one of `FLAG_OPERATIONS`, then one whose condition fails and that stores nothing."""
    nand = {"target_mask": first, "cond_mask": second, "read_flag": destination}
    filter_.run(rec(FLAG_NAND, **nand))
    assert filter_.flags(2, 10) == stored << 5
    filter_.run(rec(FLAG_NAND, target_mask=1 - first, cond_mask=1, cond_flag=-1, read_flag=7))
    assert filter_.flags(2, 10) == stored << 5
