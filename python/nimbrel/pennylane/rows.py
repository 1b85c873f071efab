"""Rows: the six words of a record that a gate of a dense register uses, as a plain tuple.

A translation makes a tuple a gate and one array of all of them at the end, which costs about a
microsecond a gate; an array a gate would cost ten times as much.
"""

from collections.abc import Iterable, Sequence
from typing import Final, NamedTuple

import numpy as np
import numpy.typing as npt

from nimbrel.opcodes import Opcode
from nimbrel.records import QPU_OP, RecordArray


class Row(NamedTuple):
    """A gate's record. Words that are not here are 0.

    For a Pauli product rotation, `targets` is the X mask, `conds` the Z mask and `read_flag` the
    mask of the controls, as in the record. A phase without targets and controls is a phase of the
    whole state, for which there is no record: `pack_rows` writes two.
    """

    opcode: int
    targets: int
    conds: int = 0
    zeros: int = 0
    angle: float = 0.0
    read_flag: int = 0


_COLUMNS: Final = ("opcode", "target_mask", "cond_mask", "cond_neg_mask", "angle", "read_flag")

_ANGLED: Final = frozenset({Opcode.PHASE, Opcode.RX, Opcode.RY, Opcode.RZ, Opcode.PPR})
_INVERSE_PAIRS: Final = (
    (Opcode.S, Opcode.S_INV),
    (Opcode.T, Opcode.T_INV),
    (Opcode.ROOTX, Opcode.ROOTX_INV),
    (Opcode.ROOTY, Opcode.ROOTY_INV),
)
_INVERSE: Final = {
    int(opcode): int(other) for pair in _INVERSE_PAIRS for opcode, other in (pair, pair[::-1])
}


def pack_rows(rows: Sequence[Row]) -> RecordArray:
    """Make the records of some rows.

    Args:
        rows: The rows, in program order.

    Returns:
        The records, shape (len(rows),), dtype `QPU_OP`.
    """
    records = np.zeros(len(rows), dtype=QPU_OP)
    if rows:
        for name, column in zip(_COLUMNS, zip(*rows, strict=True), strict=True):
            records[name] = column
    overall = (records["target_mask"] | records["cond_mask"]) == 0
    return _with_overall_phase(records, overall) if overall.any() else records


def _with_overall_phase(records: RecordArray, overall: npt.NDArray[np.bool_]) -> RecordArray:
    # A phase of qubit 0, less the rotation about Z by the same angle, is half that angle for both
    # values of the qubit.
    angle = 2 * float(records["angle"][overall].sum())
    pair = [Row(int(Opcode.PHASE), 1, angle=angle), Row(int(Opcode.RZ), 1, angle=-angle)]
    return np.concatenate([records[~overall], pack_rows(pair)])


def is_angled(row: Row) -> bool:
    """Whether the row's gate depends on its angle."""
    return row.opcode in _ANGLED


def inverse_row(row: Row) -> Row:
    """The row that undoes a row."""
    if row.opcode in _ANGLED:
        return row._replace(angle=-row.angle)
    return row._replace(opcode=_INVERSE.get(row.opcode, row.opcode))


def inverse_rows(rows: Sequence[Row]) -> list[Row]:
    """The rows that undo some rows, in program order."""
    return [inverse_row(row) for row in reversed(rows)]


def controlled_rows(rows: Iterable[Row], controls: int, zeros: int) -> list[Row]:
    """Add controls to every row.

    Args:
        rows: Rows that have none of these qubits.
        controls: Mask of all added controls.
        zeros: Mask of those that must be 0.

    Returns:
        The rows in the same order. Each gate under the controls makes their product a gate under
        the same controls.
    """
    return [
        row._replace(read_flag=row.read_flag | controls, zeros=row.zeros | zeros)
        if row.opcode == Opcode.PPR
        else row._replace(conds=row.conds | controls, zeros=row.zeros | zeros)
        for row in rows
    ]


def support(row: Row) -> int:
    """Mask of the qubits that a row's gate acts on or is controlled by."""
    return row.targets | row.conds | (row.read_flag if row.opcode == Opcode.PPR else 0)
