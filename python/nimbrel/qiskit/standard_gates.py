"""Row functions of Qiskit's standard gates, by name.

Most gates are one record with the same matrix. The others are exact products:

    U(a, b, c) = P(b) RY(a) P(c)                  R(a, b) = P(b) RX(a) P(-b)
    iSWAP = exp(i pi/4 XX) exp(i pi/4 YY)         ECR = RZX(-pi/2) X on the first qubit
    XX+YY(a, b) = P(-b) RXX(a/2) RYY(a/2) P(b)    with P on the first qubit
    XX-YY(a, b) = P(b) RXX(a/2) RYY(-a/2) P(-b)   with P on the second qubit

The relative-phase Toffoli gates of D. Maslov, https://doi.org/10.1103/PhysRevA.93.022311, are
controlled gates on disjoint sets of terms, as their matrices show.
"""

from __future__ import annotations

from collections.abc import Callable, Sequence
from math import pi
from typing import Final

from nimbrel.opcodes import Opcode
from nimbrel.qiskit.rows import (
    DEGREES,
    Angle,
    RowFunction,
    Rows,
    When,
    general_turn,
    global_phase,
    pauli_masks,
    product_rotation,
    row,
)

# Plain integers, because a member of an enumeration costs a lookup at each use.
_X, _Y, _Z, _SWAP = int(Opcode.X), int(Opcode.Y), int(Opcode.Z), int(Opcode.SWAP)
_RX, _RY, _RZ, _PHASE = int(Opcode.RX), int(Opcode.RY), int(Opcode.RZ), int(Opcode.PHASE)


def _plain(opcode: Opcode) -> RowFunction:
    """A gate on one qubit that is one record without an angle."""
    code = int(opcode)

    def add(rows: Rows, qubits: Sequence[int], _params: Sequence[Angle], when: When) -> None:
        controls, zeros, flag = when
        rows.append((code, qubits[0], controls, 0.0, flag, 0, zeros, 0, 0, 0, 0))

    return add


def _controlled(opcode: Opcode) -> RowFunction:
    """The same with one or more controls, which come before the target."""
    code = int(opcode)

    def add(rows: Rows, qubits: Sequence[int], _params: Sequence[Angle], when: When) -> None:
        *own, target = qubits
        rows.append(row(code, target, when, 0.0, sum(own)))

    return add


def _turning(opcode: Opcode) -> RowFunction:
    """A gate that is one record with an angle, with any number of controls."""
    code = int(opcode)

    def add(rows: Rows, qubits: Sequence[int], params: Sequence[Angle], when: When) -> None:
        *own, target = qubits
        rows.append(row(code, target, when, params[0] * DEGREES, sum(own)))

    return add


def _product(letters: str) -> RowFunction:
    """A rotation about a product of two letters, the first one on the first qubit."""

    def add(rows: Rows, qubits: Sequence[int], params: Sequence[Angle], when: When) -> None:
        product_rotation(rows, *pauli_masks(letters, qubits), params[0], when)

    return add


def _swap(rows: Rows, qubits: Sequence[int], _params: Sequence[Angle], when: When) -> None:
    *own, a, b = qubits
    rows.append(row(_SWAP, a | b, when, 0.0, sum(own)))


def _nothing(_rows: Rows, _qubits: Sequence[int], _params: Sequence[Angle], _when: When) -> None:
    """The identity needs no record."""


def _phase_of_all(
    rows: Rows, _qubits: Sequence[int], params: Sequence[Angle], when: When
) -> Angle | None:
    return global_phase(rows, params[0], when)


def _u(rows: Rows, qubits: Sequence[int], params: Sequence[Angle], when: When) -> None:
    general_turn(rows, qubits[0], params[0], params[1], params[2], when)


def _u2(rows: Rows, qubits: Sequence[int], params: Sequence[Angle], when: When) -> None:
    general_turn(rows, qubits[0], pi / 2, params[0], params[1], when)


def _cu3(rows: Rows, qubits: Sequence[int], params: Sequence[Angle], when: When) -> None:
    _u(rows, qubits[1:], params, _controlled_by(qubits[0], when))


def _cu(rows: Rows, qubits: Sequence[int], params: Sequence[Angle], when: When) -> None:
    global_phase(rows, params[3], _controlled_by(qubits[0], when))
    _cu3(rows, qubits, params, when)


def _controlled_by(control: int, when: When) -> When:
    return When(when.controls | control, when.zeros, when.flag)


def _turned(rows: Rows, target: int, angle: Angle, when: When, turned: Callable[[], None]) -> None:
    """Add P(-angle) G P(angle). The phases cancel where G does not act: they need no controls."""
    free = When(flag=when.flag)
    if angle != 0:
        rows.append(row(_PHASE, target, free, angle * DEGREES))
    turned()
    if angle != 0:
        rows.append(row(_PHASE, target, free, -angle * DEGREES))


def _r(rows: Rows, qubits: Sequence[int], params: Sequence[Angle], when: When) -> None:
    def turn() -> None:
        rows.append(row(_RX, qubits[0], when, params[0] * DEGREES))

    _turned(rows, qubits[0], -params[1], when, turn)


def _xx_yy(turned_qubit: int, sign: int) -> RowFunction:
    """The evolution under XX + YY or XX - YY, turned by a phase on one of the qubits."""

    def add(rows: Rows, qubits: Sequence[int], params: Sequence[Angle], when: When) -> None:
        both, half = sum(qubits), params[0] / 2

        def turn() -> None:
            product_rotation(rows, both, 0, half, when)
            product_rotation(rows, both, both, sign * half, when)

        _turned(rows, qubits[turned_qubit], sign * params[1], when, turn)

    return add


def _iswap(rows: Rows, qubits: Sequence[int], _params: Sequence[Angle], when: When) -> None:
    both = sum(qubits)
    product_rotation(rows, both, 0, -pi / 2, when)
    product_rotation(rows, both, both, -pi / 2, when)


def _ecr(rows: Rows, qubits: Sequence[int], _params: Sequence[Angle], when: When) -> None:
    a, b = qubits
    rows.append(row(_X, a, when))
    product_rotation(rows, b, a, -pi / 2, when)


def _dcx(rows: Rows, qubits: Sequence[int], _params: Sequence[Angle], when: When) -> None:
    a, b = qubits
    rows.append(row(_X, b, when, 0.0, a))
    rows.append(row(_X, a, when, 0.0, b))


def _rccx(rows: Rows, qubits: Sequence[int], _params: Sequence[Angle], when: When) -> None:
    a, b, target = qubits
    rows.append(row(_Y, target, when, 0.0, a | b))
    rows.append(row(_Z, target, _without(b, when), 0.0, a | b))


def _rcccx(rows: Rows, qubits: Sequence[int], _params: Sequence[Angle], when: When) -> None:
    a, b, c, target = qubits
    rows.append(row(_RY, target, when, -180.0, a | b | c))
    rows.append(row(_RZ, target, _without(c, when), -180.0, a | b | c))


def _without(control: int, when: When) -> When:
    """Negate a control. A control of a gate is not negated by its surroundings but once."""
    return When(when.controls, when.zeros ^ control, when.flag)


STANDARD_GATES: Final[dict[str, RowFunction]] = {
    "id": _nothing,
    "global_phase": _phase_of_all,
    **{
        name: _plain(opcode)
        for name, opcode in {
            **{"x": Opcode.X, "y": Opcode.Y, "z": Opcode.Z, "h": Opcode.H},
            **{"s": Opcode.S, "sdg": Opcode.S_INV, "t": Opcode.T, "tdg": Opcode.T_INV},
            **{"sx": Opcode.ROOTX, "sxdg": Opcode.ROOTX_INV},
        }.items()
    },
    **{
        name: _controlled(opcode)
        for name, opcode in {
            **{"cx": Opcode.X, "ccx": Opcode.X, "mcx": Opcode.X, "cy": Opcode.Y, "cz": Opcode.Z},
            **{"ccz": Opcode.Z, "ch": Opcode.H, "cs": Opcode.S, "csdg": Opcode.S_INV},
            **{"csx": Opcode.ROOTX, "c3sx": Opcode.ROOTX},
        }.items()
    },
    **{
        name: _turning(opcode)
        for name, opcode in {
            **{"p": Opcode.PHASE, "u1": Opcode.PHASE, "cp": Opcode.PHASE, "cu1": Opcode.PHASE},
            **{"rx": Opcode.RX, "ry": Opcode.RY, "rz": Opcode.RZ},
            **{"crx": Opcode.RX, "cry": Opcode.RY, "crz": Opcode.RZ},
        }.items()
    },
    **{name: _product(name[1:].upper()) for name in ("rxx", "ryy", "rzz", "rzx")},
    **{"swap": _swap, "cswap": _swap, "iswap": _iswap, "dcx": _dcx, "ecr": _ecr},
    **{"u": _u, "u3": _u, "u2": _u2, "cu": _cu, "cu3": _cu3, "r": _r},
    **{"xx_plus_yy": _xx_yy(0, 1), "xx_minus_yy": _xx_yy(1, -1)},
    **{"rccx": _rccx, "rcccx": _rcccx},
}
"""The row function of each standard gate. The name tells the gate only if Qiskit says that the
instruction is a standard gate: circuits may have other gates of these names."""
