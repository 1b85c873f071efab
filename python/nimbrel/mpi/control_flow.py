"""Which records of a straight part of a program run, once the read flags are known."""

from __future__ import annotations

from collections.abc import Callable

import numpy as np

from nimbrel.mpi.operations import COND_FLAG, TARGETS, Bools
from nimbrel.opcodes import Opcode
from nimbrel.register_trace import Words

__all__ = ["running"]


def running(words: Words, open_label: int, hold: Callable[[Words], Bools]) -> tuple[Bools, int]:
    """Find the records that run.

    No record but the last one changes a read flag, so all conditions can be looked at beforehand.
    A reset has no condition.

    Args:
        words: The part of the program, shape (n, 11).
        open_label: The label of the jump that is open before it, or 0.
        hold: Tells which conditions hold.

    Returns:
        Which records run, shape (n,), and the label of the jump that is open behind them, or 0.
    """
    conditions = words[:, COND_FLAG]
    opcodes = words[:, 0]
    held = conditions <= 1
    if not held.all():
        held = hold(conditions)
    runs = held | (opcodes == Opcode.RESET)
    turns = np.flatnonzero((opcodes == Opcode.JUMP_FWD) | (opcodes == Opcode.LABEL))
    skipped_from = 0
    for index in turns.tolist():
        label = int(words[index, TARGETS])
        if opcodes[index] == Opcode.LABEL:
            if open_label and label == open_label:
                runs[skipped_from:index] = False
                open_label = 0
        elif not open_label and held[index] and label:
            open_label, skipped_from = label, index
    if open_label:
        runs[skipped_from:] = False
    return runs, open_label
