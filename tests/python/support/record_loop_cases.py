"""Records of the loop that the state-vector filters share: what is ignored and what fails how."""

from typing import Any

import nimbrel as nb
import numpy as np

from models.opcodes import CALLBACK, EXTEND, JUMP_BACK, LABEL, X
from models.program import ONLY_FILTER
from support.driver import op, rec

# Ignored.
IGNORED = [
    0x207, 0x10000000, 0x10000002, 0x10000011, 0x10000012, 0x10000015, 0x10000017, 0x10000412,
    0x10000416, 0x10004011, 0x10004012, 0x10004015, 0x10004412, 0x10008003, 0x1000C003,
]  # fmt: skip
# Words that have an effect in other records.
EVERYTHING: dict[str, Any] = {
    "target_mask": 7,
    "cond_mask": 1,
    "angle": 90.0,
    "read_flag": 2,
    "reserved_a": 5,
}

FAILURES: list[tuple[np.ndarray[Any, Any], str]] = [
    (
        rec(EXTEND, target_mask=1),
        "qc.extend has not been implemented for the State-vector QPU sim.",
    ),
    (
        rec(EXTEND, cond_flag=-1),
        "qc.extend has not been implemented for the State-vector QPU sim.",
    ),
    (rec(CALLBACK, read_flag=-12), "Unhandled callback:[lookup:(-12)]"),
    (rec(JUMP_BACK), f"qc.jump_back() {ONLY_FILTER}"),
    (rec(LABEL, cond_mask=1), f"qc.jump_fwd() with quantum conditions {ONLY_FILTER}"),
    (rec(0x07), "Error: Unknown opcode: 0x4e6d627200000007\n"),
    (nb.record(5), "Error: Unknown opcode: 0x5\n"),
    (nb.record(op(X) ^ 1 << 63), "Error: Unknown opcode: 0xce6d627200000005\n"),
]
