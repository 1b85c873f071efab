"""Phases whose cosine rounds to 1 or -1.

The dense filter takes the cosine of such a phase for exact: it drops phases below 1e-8 radians, and
takes those as near to 180 degrees for 180. Two records that are far from both have the same
product: P(a) = P(a - 90) P(90).
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Final

import numpy as np

from nimbrel.opcodes import Opcode
from nimbrel.records import Program
from nimbrel.translation.back_jumps import BackJump

_NEAR: Final = 1e-5
"""Degrees. The cosine of a phase that is farther from 0 and 180 does not round."""
_EXACT: Final = 1e-12
"""Degrees. A phase that is nearer differs by rounding only."""
_HALF, _QUARTER = 180.0, 90.0


def with_small_phases(
    program: Program, jumps: Sequence[BackJump]
) -> tuple[Program, tuple[BackJump, ...]]:
    """Write each phase that the dense filter would round as two records.

    Args:
        program: The records, none of which is an extension record.
        jumps: The jumps back.

    Returns:
        The records and the jumps with their new positions.
    """
    angles = program["angle"]
    distance = np.abs(angles - _HALF * np.round(angles / _HALF))
    rounded = (distance > _EXACT) & (distance < _NEAR) & (program["opcode"] == Opcode.PHASE)
    if not rounded.any():
        return program, tuple(jumps)
    starts = np.concatenate([[0], np.cumsum(1 + rounded)])
    divided = np.repeat(program, 1 + rounded)
    first = starts[:-1][rounded]
    divided["angle"][first] = _QUARTER
    divided["angle"][first + 1] = angles[rounded] - _QUARTER
    places = starts.tolist()
    moved = tuple(BackJump(places[p], flag, places[d]) for p, flag, d in jumps)
    return divided.view(Program), moved
