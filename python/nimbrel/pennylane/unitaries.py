"""The rows of a unitary matrix on one qubit."""

import cmath
import math

import numpy.typing as npt

from nimbrel.opcodes import Opcode
from nimbrel.pennylane.rows import Row


def unitary_rows(matrix: npt.ArrayLike, bit: int) -> list[Row]:
    """The rows of a unitary on one qubit, its global phase included.

    U = exp(i a) P(last) RY(turn) P(first) with the phase gate P: Nielsen and Chuang, "Quantum
    Computation and Quantum Information", theorem 4.1. A phase is taken from the entries of a
    column that are not near 0.

    Args:
        matrix: Shape (2, 2), unitary.
        bit: The bit of the qubit.
    """
    (u00, u01), (u10, u11) = _entries(matrix)
    turn = 2 * math.atan2(abs(u10), abs(u00))
    overall = cmath.phase(u00)
    last = cmath.phase(u10) - overall
    if abs(u00) >= abs(u10):
        first = cmath.phase(u11) - overall - last
    else:
        first = cmath.phase(-u01) - overall
    to_degrees = math.degrees
    return [
        Row(int(Opcode.PHASE), bit, angle=to_degrees(first)),
        Row(int(Opcode.RY), bit, angle=to_degrees(turn)),
        Row(int(Opcode.PHASE), bit, angle=to_degrees(last + 2 * overall)),
        Row(int(Opcode.RZ), bit, angle=to_degrees(-2 * overall)),
    ]


def _entries(matrix: npt.ArrayLike) -> tuple[tuple[complex, complex], tuple[complex, complex]]:
    import numpy as np

    (u00, u01), (u10, u11) = np.asarray(matrix, dtype=complex).tolist()
    return (u00, u01), (u10, u11)
