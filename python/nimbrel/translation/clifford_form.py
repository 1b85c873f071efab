"""Clifford circuits as a tableau takes them.

The Clifford filter has fewer forms of a gate than the dense one: no controlled Z with a sign, no
controlled Y, no negated controls and no rotation that is not a Pauli product. `clifford_form`
rewrites rows exactly, the global phase included:

    CZ = CX S'(b) CX S(a) S(b)        CY = S(b) CX S'(b)        with S' the inverse of S
    controlled RZ(180) = CZ S'(a)     RX(a) = exp(-i a/2 X)     square root of X = H S H
"""

from __future__ import annotations

from collections.abc import Callable
from typing import Final

from nimbrel.opcodes import Opcode
from nimbrel.translation.row_types import Row, Rows

_X, _Y, _Z, _H = int(Opcode.X), int(Opcode.Y), int(Opcode.Z), int(Opcode.H)
_S, _S_INV, _SWAP = int(Opcode.S), int(Opcode.S_INV), int(Opcode.SWAP)
_RX, _RY, _RZ = int(Opcode.RX), int(Opcode.RY), int(Opcode.RZ)
_PHASE, _PPR = int(Opcode.PHASE), int(Opcode.PPR)

_CLOSE: Final = 1e-10
"""Degrees. An angle that is so near a multiple of 45 degrees differs from it by rounding only."""

_UNCHANGED: Final = frozenset(
    int(opcode)
    for opcode in (
        *(Opcode.READ, Opcode.CLEAR, Opcode.PPM, Opcode.FLAG_NAND),
        *(Opcode.JUMP_FWD, Opcode.LABEL, Opcode.RESET),
    )
)


_CLASSICAL: Final = _UNCHANGED - {int(Opcode.PPM)} | {_X, _SWAP}


class _NotCliffordError(Exception):
    """A row has no Clifford form."""


def clifford_form(rows: Rows) -> tuple[Rows, list[int]] | None:
    """Rewrite rows in the forms that the Clifford filter carries out exactly.

    Returns:
        The new rows, and for each old row, and the end, the index of its first new row. None if
        a row is no Clifford operation, or one with too many controls, or if all rows are
        classical, so that a bit filter takes them as they are.
    """
    if {row[0] for row in rows} <= _CLASSICAL:
        return None
    new: Rows = []
    starts = []
    try:
        for row in rows:
            starts.append(len(new))
            if row[0] in _UNCHANGED:
                new.append(row)
            else:
                _rewrite(new, row)
    except _NotCliffordError:
        return None
    return new, [*starts, len(new)]


def _rewrite(new: Rows, row: Row) -> None:
    opcode, target, controls, angle, flag, products, zeros, *_ = row
    if opcode == _PPR:
        if products:
            raise _NotCliffordError
        new.append(_product(target, controls, _turns(angle, 45) * 45, flag))
        return
    writer = _REWRITERS.get(opcode)
    if writer is None or controls.bit_count() + target.bit_count() > 2:
        raise _NotCliffordError
    if zeros:
        new.append(_gate(_X, zeros, flag))
    writer(new, target, controls, angle, flag)
    if zeros:
        new.append(_gate(_X, zeros, flag))


def _gate(opcode: int, target: int, flag: int, control: int = 0) -> Row:
    return (opcode, target, control, 0.0, flag, 0, 0, 0, 0, 0, 0)


def _product(xs: int, zs: int, degrees: float, flag: int) -> Row:
    return (_PPR, xs, zs, degrees, flag, 0, 0, 0, 0, 0, 0)


def _turns(angle: float, unit: int) -> int:
    """How often an angle in degrees contains a unit."""
    count = round(angle / unit)
    if abs(angle - count * unit) > _CLOSE:
        raise _NotCliffordError
    return count


def _plain(opcode: int) -> Callable[[Rows, int, int, float, int], None]:
    """A gate that may have no controls."""

    def write(new: Rows, target: int, controls: int, _angle: float, flag: int) -> None:
        if controls:
            raise _NotCliffordError
        new.append(_gate(opcode, target, flag))

    return write


def _x(new: Rows, target: int, controls: int, _angle: float, flag: int) -> None:
    new.append(_gate(_X, target, flag, controls))


def _y(new: Rows, target: int, controls: int, _angle: float, flag: int) -> None:
    if not controls:
        new.append(_gate(_Y, target, flag))
        return
    new.append(_gate(_S_INV, target, flag))
    new.append(_gate(_X, target, flag, controls))
    new.append(_gate(_S, target, flag))


def _z(new: Rows, target: int, controls: int, _angle: float, flag: int) -> None:
    _phase(new, target, controls, 180.0, flag)


def _s(new: Rows, target: int, controls: int, _angle: float, flag: int) -> None:
    _phase(new, target, controls, 90.0, flag)


def _s_inv(new: Rows, target: int, controls: int, _angle: float, flag: int) -> None:
    _phase(new, target, controls, -90.0, flag)


def _phase(new: Rows, target: int, controls: int, angle: float, flag: int) -> None:
    both = target | controls
    if both.bit_count() == 1:
        quarter = _turns(angle, 90) % 4
        if quarter:
            new.append(_gate((_S, _Z, _S_INV)[quarter - 1], both, flag))
    elif _turns(angle, 180) % 2:
        low = both & -both
        high = both ^ low
        new.append(_gate(_S, both, flag))
        new.append(_gate(_X, high, flag, low))
        new.append(_gate(_S_INV, high, flag))
        new.append(_gate(_X, high, flag, low))


def _rz(new: Rows, target: int, controls: int, angle: float, flag: int) -> None:
    if not controls:
        new.append(_product(0, target, _turns(angle, 90) * 45, flag))
        return
    _turns(angle, 180)
    _phase(new, target, controls, angle, flag)
    _phase(new, 0, controls, -angle / 2, flag)


def _rx(new: Rows, target: int, controls: int, angle: float, flag: int) -> None:
    if not controls:
        new.append(_product(target, 0, _turns(angle, 90) * 45, flag))
        return
    new.append(_gate(_H, target, flag))
    _rz(new, target, controls, angle, flag)
    new.append(_gate(_H, target, flag))


def _ry(new: Rows, target: int, controls: int, angle: float, flag: int) -> None:
    if not controls:
        new.append(_product(target, target, _turns(angle, 90) * 45, flag))
        return
    new.append(_gate(_S_INV, target, flag))
    _rx(new, target, controls, angle, flag)
    new.append(_gate(_S, target, flag))


def _root_x(quarter: int) -> Callable[[Rows, int, int, float, int], None]:
    def write(new: Rows, target: int, controls: int, _angle: float, flag: int) -> None:
        if controls:
            raise _NotCliffordError
        new.append(_gate(_H, target, flag))
        new.append(_gate(quarter, target, flag))
        new.append(_gate(_H, target, flag))

    return write


_REWRITERS: Final[dict[int, Callable[[Rows, int, int, float, int], None]]] = {
    **{_X: _x, _Y: _y, _Z: _z, _S: _s, _S_INV: _s_inv, _PHASE: _phase},
    **{_H: _plain(_H), _SWAP: _plain(_SWAP), _RX: _rx, _RY: _ry, _RZ: _rz},
    int(Opcode.ROOTX): _root_x(_S),
    int(Opcode.ROOTX_INV): _root_x(_S_INV),
}
