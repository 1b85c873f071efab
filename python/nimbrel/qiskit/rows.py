"""Records as tuples, and the rows that several gates share.

A conversion collects plain tuples and makes one array of them at its end, because an array for each
gate would take ten times as long. Masks are Python integers of any width; `wide_rows` splits those
that reach beyond the first 64 qubits.

A row function adds the rows of one gate:

    rows       the list to which it adds rows
    qubits     the mask of each qubit of the gate, in the gate's order
    params     the gate's parameters; angles are in radians and may be expressions of Qiskit
    when       the controls and the classical condition under which the gate acts

It returns the global phase that the rows lack, in radians, or None for none. Under controls the
phase of a gate is not global, so it becomes a row.
"""

from __future__ import annotations

from collections.abc import Callable, Sequence
from math import pi
from typing import Any, Final, NamedTuple, TypeAlias

from nimbrel.opcodes import Opcode
from nimbrel.row_types import Row as Row
from nimbrel.row_types import Rows as Rows

Angle: TypeAlias = Any
"""A number, or a `ParameterExpression`, whose arithmetic gives expressions again."""


class When(NamedTuple):
    """The conditions under which operations act.

    Attributes:
        controls: Mask of the controls, negated ones included.
        zeros: Mask of the negated controls.
        flag: The classical condition.
    """

    controls: int = 0
    zeros: int = 0
    flag: int = 0


ALWAYS: Final = When()
"""No controls and no condition."""

RowFunction: TypeAlias = Callable[[Rows, Sequence[int], Sequence[Angle], When], "Angle | None"]

DEGREES: Final = 180.0 / pi
"""Degrees in a radian."""

# Plain integers, because a member of an enumeration costs a lookup at each use.
_PHASE: Final = int(Opcode.PHASE)
_PPR: Final = int(Opcode.PPR)
_RY: Final = int(Opcode.RY)


def row(opcode: int, target: int, when: When, angle: Angle = 0.0, own_controls: int = 0) -> Row:
    """Make the row of a gate.

    Args:
        opcode: The opcode.
        target: Mask of the targets.
        when: The enclosing conditions.
        angle: The angle, in degrees.
        own_controls: Mask of the gate's own controls.
    """
    controls, zeros, flag = when
    return (opcode, target, controls | own_controls, angle, flag, 0, zeros, 0, 0, 0, 0)


def global_phase(rows: Rows, angle: Angle, when: When) -> Angle | None:
    """Multiply by exp(i angle), in radians, the terms in which the controls hold."""
    if not when.controls:
        return angle
    if angle != 0:
        rows.append(row(_PHASE, 0, when, angle * DEGREES))
    return None


def general_turn(rows: Rows, target: int, theta: Angle, phi: Angle, lam: Angle, when: When) -> None:
    """Add Qiskit's U(theta, phi, lambda) = P(phi) RY(theta) P(lambda), angles in radians."""
    if theta == 0:
        phi, lam = 0, phi + lam
    if lam != 0:
        rows.append(row(_PHASE, target, when, lam * DEGREES))
    if theta != 0:
        rows.append(row(_RY, target, when, theta * DEGREES))
    if phi != 0:
        rows.append(row(_PHASE, target, when, phi * DEGREES))


def product_rotation(rows: Rows, xs: int, zs: int, angle: Angle, when: When) -> None:
    """Add exp(-i angle/2 P), angle in radians, for the product P of an X mask and a Z mask."""
    controls, zeros, flag = when
    rows.append((_PPR, xs, zs, angle * (DEGREES / 2), flag, controls, zeros, 0, 0, 0, 0))


def pauli_masks(letters: str, qubits: Sequence[int]) -> tuple[int, int]:
    """The X mask and the Z mask of a Pauli product.

    Args:
        letters: Letters I, X, Y and Z, the first one for the first qubit.
        qubits: The mask of each qubit.
    """
    xs = zs = 0
    for letter, qubit in zip(letters, qubits, strict=True):
        if letter in "XY":
            xs |= qubit
        if letter in "YZ":
            zs |= qubit
    return xs, zs
