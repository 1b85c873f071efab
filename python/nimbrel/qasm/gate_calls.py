"""Gates as lists of elementary operations, and the modifiers of such lists.

An elementary operation is one record of the engine. A list acts from its first operation on. Angles
are in degrees. An operation PHASE without targets multiplies the terms whose controls hold by a
phase; without controls too, it is the phase of the whole state.
"""

import math
from collections.abc import Iterable, Sequence
from typing import Final, NamedTuple

import numpy as np
import numpy.typing as npt

from nimbrel.opcodes import Opcode

Matrix = npt.NDArray[np.complex128]

MOST_OPERATIONS: Final = 1_000_000
"""Longest list that a power may expand to."""


def degrees_of(radians: float) -> float:
    """An angle in degrees; multiples of 45 degrees are exact, because the filters know those."""
    degrees = math.degrees(radians)
    nearest = 45.0 * round(degrees / 45.0) if math.isfinite(degrees) else degrees
    return nearest if abs(degrees - nearest) <= 4e-16 * abs(nearest) else degrees


class GateCall(NamedTuple):
    """One elementary operation.

    Attributes:
        opcode: The gate.
        angle: The angle in degrees; 0 for a gate without one.
        targets: One qubit, two of a SWAP, or none of a PHASE.
        controls: Qubits that must be 1.
        zeros: Qubits that must be 0.
    """

    opcode: Opcode
    angle: float
    targets: tuple[int, ...]
    controls: tuple[int, ...] = ()
    zeros: tuple[int, ...] = ()


_INVERSE: Final = {
    Opcode.S: Opcode.S_INV,
    Opcode.S_INV: Opcode.S,
    Opcode.T: Opcode.T_INV,
    Opcode.T_INV: Opcode.T,
    Opcode.ROOTX: Opcode.ROOTX_INV,
    Opcode.ROOTX_INV: Opcode.ROOTX,
}
_ANGLE_GATES: Final = frozenset({Opcode.PHASE, Opcode.RX, Opcode.RY, Opcode.RZ})
_ORDER: Final = {
    **dict.fromkeys((Opcode.X, Opcode.Y, Opcode.Z, Opcode.H, Opcode.SWAP), 2),
    **dict.fromkeys((Opcode.S, Opcode.S_INV, Opcode.ROOTX, Opcode.ROOTX_INV), 4),
    **dict.fromkeys((Opcode.T, Opcode.T_INV), 8),
}
"""The least positive power of each gate without an angle that is the identity."""

_PHASE_OF: Final = {
    Opcode.Z: 180.0,
    Opcode.S: 90.0,
    Opcode.S_INV: -90.0,
    Opcode.T: 45.0,
    Opcode.T_INV: -45.0,
}
"""Gates that are a PHASE of a fixed angle."""


def inverse(calls: Sequence[GateCall]) -> list[GateCall]:
    """The inverse of a list."""
    return [_inverse_of(call) for call in reversed(calls)]


def _inverse_of(call: GateCall) -> GateCall:
    return call._replace(opcode=_INVERSE.get(call.opcode, call.opcode), angle=-call.angle)


def placed(calls: Iterable[GateCall], qubits: Sequence[int]) -> list[GateCall]:
    """A list on the places 0, 1, ... as one on these qubits."""
    return [
        GateCall(
            call.opcode,
            call.angle,
            tuple([qubits[place] for place in call.targets]),
            tuple([qubits[place] for place in call.controls]),
            tuple([qubits[place] for place in call.zeros]),
        )
        for call in calls
    ]


def controlled(
    calls: Sequence[GateCall], controls: Sequence[int], zeros: Sequence[int]
) -> list[GateCall]:
    """A list that acts only where `controls` are 1 and `zeros` are 0."""
    return [
        call._replace(controls=(*controls, *call.controls), zeros=(*zeros, *call.zeros))
        for call in calls
    ]


def power(calls: Sequence[GateCall], exponent: float) -> list[GateCall]:
    """A power of a list.

    An integer power repeats the list or its inverse. Another power is the principal one, whose
    eigenvalues exp(i a) have a in (-exponent pi, exponent pi]: N. J. Higham, "Functions of
    Matrices", section 1.7, https://doi.org/10.1137/1.9780898717778.

    Raises:
        ValueError: If the exponent is not finite, if the list would be too long, or if the exponent
            is no integer and the list is neither one operation nor a gate on one qubit.
    """
    if not np.isfinite(exponent):
        raise ValueError(f"the power {exponent} is not finite")
    if exponent == int(exponent):
        return _integer_power(calls, int(exponent))
    if len(calls) == 1:
        return _fractional_power(calls[0], exponent)
    return _one_qubit_power(calls, exponent)


def _integer_power(calls: Sequence[GateCall], exponent: int) -> list[GateCall]:
    if len(calls) == 1:
        call = calls[0]
        if call.opcode in _ANGLE_GATES:
            return [call._replace(angle=call.angle * exponent)]
        return [call] * (exponent % _ORDER[call.opcode])
    if len(calls) * abs(exponent) > MOST_OPERATIONS:
        raise ValueError(
            f"the power {exponent} of {len(calls)} operations is more than {MOST_OPERATIONS}"
        )
    return list(calls if exponent >= 0 else inverse(calls)) * abs(exponent)


def _fractional_power(call: GateCall, exponent: float) -> list[GateCall]:
    if call.opcode == Opcode.PHASE or call.opcode in _PHASE_OF:
        angle = principal(_PHASE_OF.get(call.opcode, call.angle))
        return [call._replace(opcode=Opcode.PHASE, angle=angle * exponent)]
    if call.opcode == Opcode.SWAP:
        return _swap_power(call, exponent)
    return _turned_power(call, exponent)


def principal(degrees: float) -> float:
    """The same angle modulo 360, in (-180, 180]."""
    return 180.0 - (180.0 - degrees) % 360.0


_BASIS_OF: Final = {
    # (gates before, phase of the eigenvalue -1 or i, gates after)
    Opcode.X: ([(Opcode.H, 0.0)], 180.0, [(Opcode.H, 0.0)]),
    Opcode.ROOTX: ([(Opcode.H, 0.0)], 90.0, [(Opcode.H, 0.0)]),
    Opcode.ROOTX_INV: ([(Opcode.H, 0.0)], -90.0, [(Opcode.H, 0.0)]),
    Opcode.Y: ([(Opcode.S_INV, 0.0), (Opcode.H, 0.0)], 180.0, [(Opcode.H, 0.0), (Opcode.S, 0.0)]),
    Opcode.H: ([(Opcode.RY, -45.0)], 180.0, [(Opcode.RY, 45.0)]),
}


def _turned_power(call: GateCall, exponent: float) -> list[GateCall]:
    # The gate is a PHASE in another basis, so its power is the power of the PHASE there.
    if call.opcode not in _BASIS_OF:
        return _rotation_power(call, exponent)
    before, angle, after = _BASIS_OF[call.opcode]
    return [
        *(GateCall(opcode, turn, call.targets) for opcode, turn in before),
        call._replace(opcode=Opcode.PHASE, angle=angle * exponent),
        *(GateCall(opcode, turn, call.targets) for opcode, turn in after),
    ]


def _rotation_power(call: GateCall, exponent: float) -> list[GateCall]:
    # The eigenvalues are exp(+-i angle/2). At an odd number of full turns both are -1.
    turn = call.angle % 720.0
    if turn == 360.0:
        return [call._replace(opcode=Opcode.PHASE, angle=180.0 * exponent, targets=())]
    angle = turn if turn < 360.0 else turn - 720.0
    return [call._replace(angle=angle * exponent)]


def _swap_power(call: GateCall, exponent: float) -> list[GateCall]:
    # SWAP = CX(a, b) CX(b, a) CX(a, b), so its power is that of the CX in the middle.
    a, b = call.targets
    outer = GateCall(Opcode.X, 0.0, (b,), (a,))
    middle = GateCall(Opcode.X, 0.0, (a,), (b, *call.controls), call.zeros)
    return [outer, *_turned_power(middle, exponent), outer]


def _one_qubit_power(calls: Sequence[GateCall], exponent: float) -> list[GateCall]:
    conditions = {(call.controls, call.zeros) for call in calls}
    targets = {call.targets for call in calls if call.targets}
    if len(conditions) != 1 or len(targets) != 1 or len(next(iter(targets))) != 1:
        raise ValueError(f"the power {exponent} of a gate on several qubits is no integer")
    matrix: Matrix = np.eye(2, dtype=np.complex128)
    for call in calls:
        matrix = matrix_of(call) @ matrix
    values, vectors = np.linalg.eig(matrix)
    powers = np.exp(1j * np.angle(values) * exponent)
    # The eigenvectors of a unitary matrix are orthogonal, except those of equal eigenvalues.
    (controls, zeros), (target,) = next(iter(conditions)), next(iter(targets))
    root: Matrix = np.asarray(vectors @ np.diag(powers) @ np.linalg.inv(vectors), np.complex128)
    return controlled(calls_of_matrix(root, target), controls, zeros)


def matrix_of(call: GateCall) -> Matrix:
    """The matrix of an operation on its one target, without its controls."""
    half = np.deg2rad(call.angle) / 2
    cosine, sine = np.cos(half), np.sin(half)
    if call.opcode == Opcode.PHASE or call.opcode in _PHASE_OF:
        factor = np.exp(1j * np.deg2rad(_PHASE_OF.get(call.opcode, call.angle)))
        return np.diag([1.0 if call.targets else factor, factor]).astype(np.complex128)
    rows = {
        Opcode.X: [[0, 1], [1, 0]],
        Opcode.Y: [[0, -1j], [1j, 0]],
        Opcode.H: [[np.sqrt(0.5), np.sqrt(0.5)], [np.sqrt(0.5), -np.sqrt(0.5)]],
        Opcode.ROOTX: [[0.5 + 0.5j, 0.5 - 0.5j], [0.5 - 0.5j, 0.5 + 0.5j]],
        Opcode.ROOTX_INV: [[0.5 - 0.5j, 0.5 + 0.5j], [0.5 + 0.5j, 0.5 - 0.5j]],
        Opcode.RX: [[cosine, -1j * sine], [-1j * sine, cosine]],
        Opcode.RY: [[cosine, -sine], [sine, cosine]],
        Opcode.RZ: [[cosine - 1j * sine, 0], [0, cosine + 1j * sine]],
    }
    return np.array(rows[call.opcode], dtype=np.complex128)


def u_calls(theta: float, phi: float, lam: float, target: int) -> list[GateCall]:
    """The gate [[cos, -exp(i lam) sin], [exp(i phi) sin, exp(i (phi + lam)) cos]] of theta/2.

    It is PHASE(phi) RY(theta) PHASE(lam), without a further phase. The three angles are in degrees.
    """
    where = (target,)
    if (theta, phi, lam) == (90.0, 0.0, 180.0):
        return [GateCall(Opcode.H, 0.0, where)]
    calls = [
        GateCall(Opcode.PHASE, lam, where),
        GateCall(Opcode.RY, theta, where),
        GateCall(Opcode.PHASE, phi, where),
    ]
    if theta == 0.0:
        return [GateCall(Opcode.PHASE, phi + lam, where)]
    return [call for call in calls if call.angle != 0.0]


def calls_of_matrix(matrix: Matrix, target: int) -> list[GateCall]:
    """A unitary 2 by 2 matrix as operations, its phase included."""
    theta = 2 * np.arctan2(abs(matrix[1, 0]), abs(matrix[0, 0]))
    # The phase of a vanishing element is noise, so each phase is read from a large one.
    if abs(matrix[0, 0]) >= abs(matrix[1, 0]):
        overall = np.angle(matrix[0, 0])
        total = np.angle(matrix[1, 1]) - overall
        phi = np.angle(matrix[1, 0]) - overall if abs(matrix[1, 0]) > 1e-15 else 0.0
        lam = total - phi
    else:
        cos_phase = np.angle(matrix[0, 0]) if abs(matrix[0, 0]) > 1e-15 else 0.0
        overall = cos_phase
        phi = np.angle(matrix[1, 0]) - overall
        lam = np.angle(-matrix[0, 1]) - overall
    degrees = [float(angle) for angle in np.rad2deg([theta, phi, lam, overall])]
    return [
        *u_calls(degrees[0], degrees[1], degrees[2], target),
        GateCall(Opcode.PHASE, degrees[3], ()),
    ]
