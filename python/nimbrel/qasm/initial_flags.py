"""The flags that a program must set to 0 before anything else."""

from collections.abc import Iterable
from typing import Final

import numpy as np

from nimbrel.opcodes import Opcode
from nimbrel.qasm.flag_numbers import TRUE
from nimbrel.records import QPU_OP, RecordArray
from nimbrel.translation.row_types import Row


def initialised(records: RecordArray, outputs: Iterable[int]) -> RecordArray:
    """Records that store 0 in every flag that may be read before it is stored.

    A flag that was never stored makes a negative condition fail, and one that only a skipped record
    would store has the value of the shot before. The flags of `outputs` are read at the end.
    """
    stored: set[int] = set()
    missing: set[int] = set()
    open_jumps = extended = 0
    relevant = np.isin(records["opcode"], _FLAG_OPCODES) | (records["cond_flag"] != 0)
    for row in records[relevant].tolist():
        if row[0] == Opcode.EXTEND:
            extended += int(row[1]).bit_count()
            continue
        missing |= _tested(row) - stored
        open_jumps += (row[0] == Opcode.JUMP_FWD) - (row[0] == Opcode.LABEL)
        results = _stored(row, extended)
        extended = 0
        if open_jumps or row[4]:
            missing |= results - stored
        else:
            stored |= results
    missing |= set(outputs) - stored
    made = np.zeros(len(missing), dtype=QPU_OP)
    made["opcode"] = Opcode.FLAG_NAND
    made["target_mask"] = made["cond_mask"] = TRUE
    made["read_flag"] = sorted(missing)
    return made


_FLAG_OPCODES: Final = np.array(
    [Opcode.READ, Opcode.EXTEND, Opcode.FLAG_NAND, Opcode.JUMP_FWD, Opcode.LABEL], dtype=np.uint64
)


def _tested(row: Row) -> set[int]:
    flags = [int(row[4])]
    if row[0] == Opcode.FLAG_NAND:
        flags += [_signed(int(row[1])), _signed(int(row[2]))]
    return {abs(flag) for flag in flags if abs(flag) > TRUE}


def _stored(row: Row, extended: int) -> set[int]:
    if row[0] == Opcode.FLAG_NAND:
        return {abs(int(row[5]))}
    if row[0] == Opcode.READ:
        return {int(row[5]) + number for number in range(int(row[1]).bit_count() + extended)}
    return set()


def _signed(word: int) -> int:
    return word - 2**64 if word >= 2**63 else word
