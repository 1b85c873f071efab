"""Translation of PennyLane's operations to rows, with their controls and inverses."""

import math
from collections.abc import Callable, Iterable, Mapping, Sequence
from typing import Any, Final, TypeAlias

import numpy as np

from nimbrel.opcodes import Opcode
from nimbrel.pennylane._framework import qml
from nimbrel.pennylane.gates import MAKERS, Maker, pauli_rotation
from nimbrel.pennylane.rows import Row, controlled_rows, inverse_rows
from nimbrel.pennylane.unitaries import unitary_rows

UNITARY_TOLERANCE: Final = 1e-6
"""How far the product of a matrix and its adjoint may be from the identity."""

Places: TypeAlias = Mapping[Any, int]
"""The bit of each wire: 1 << qubit."""

Expander: TypeAlias = Callable[[Any, Places, "Sequence[float] | None"], list[Row]]
"""Makes the rows of an operation. The last argument replaces its angles, in degrees."""


def _expander(maker: Maker) -> Expander:
    def expand(op: Any, places: Places, angles: Sequence[float] | None) -> list[Row]:
        if angles is None:
            angles = [math.degrees(value) for value in op.data]
        return maker(angles, [places[wire] for wire in op.wires])

    return expand


def _pauli_rotation(op: Any, places: Places, angles: Sequence[float] | None) -> list[Row]:
    angle = math.degrees(op.data[0]) if angles is None else angles[0]
    word = op.hyperparameters["pauli_word"]
    return pauli_rotation(angle, word, [places[wire] for wire in op.wires])


def _unitary(op: Any, places: Places, _: Sequence[float] | None) -> list[Row]:
    check_unitary(op, op.data[0])
    return unitary_rows(op.data[0], places[op.wires[0]])


def _adjoint(op: Any, places: Places, angles: Sequence[float] | None) -> list[Row]:
    return inverse_rows(expand(op.base, places, angles))


def _controlled(op: Any, places: Places, angles: Sequence[float] | None) -> list[Row]:
    controls = zeros = 0
    for wire, value in zip(op.control_wires, op.control_values, strict=True):
        controls |= places[wire]
        if not value:
            zeros |= places[wire]
    return controlled_rows(expand(op.base, places, angles), controls, zeros)


def _cnot(op: Any, places: Places, _: Sequence[float] | None) -> list[Row]:
    return [Row(int(Opcode.X), places[op.base.wires[0]], places[op.control_wires[0]])]


_EXPANDERS: Final[dict[Any, Expander]] = {
    **{kind: _expander(maker) for kind, maker in MAKERS.items()},
    qml.PauliRot: _pauli_rotation,
    qml.QubitUnitary: _unitary,
    qml.CNOT: _cnot,
}

_NATIVE: Final = frozenset(_EXPANDERS) - {qml.QubitUnitary}


def is_native(op: Any) -> bool:
    """Whether an operation has rows of its own, so that it needs no decomposition."""
    kind = type(op)
    if kind in _NATIVE:
        return True
    if kind is qml.QubitUnitary:
        return len(op.wires) == 1
    if isinstance(op, (qml.ops.Controlled, qml.ops.Adjoint)):
        return is_native(op.base)
    return False


def has_angles(op: Any) -> bool:
    """Whether all parameters of a native operation are angles, so that it has derivatives."""
    if isinstance(op, (qml.ops.Controlled, qml.ops.Adjoint)):
        return has_angles(op.base)
    return type(op) is not qml.QubitUnitary


def expand(op: Any, places: Places, angles: Sequence[float] | None = None) -> list[Row]:
    """The rows of one native operation.

    Args:
        op: The operation.
        places: The bit of each of its wires.
        angles: Angles in degrees to use instead of its own parameters.
    """
    expander = _EXPANDERS.get(type(op))
    if expander is not None:
        return expander(op, places, angles)
    if isinstance(op, qml.ops.Controlled):
        return _controlled(op, places, angles)
    if isinstance(op, qml.ops.Adjoint):
        return _adjoint(op, places, angles)
    raise TypeError(f"{op.name} has no record")


def expand_all(ops: Iterable[Any], places: Places) -> list[Row]:
    """The rows of native operations, in order."""
    rows: list[Row] = []
    for op in ops:
        rows += expand(op, places)
    return rows


def decompose_once(op: Any) -> Any:
    """The parts of an operation that is not native.

    An operation that has a matrix and no decomposition is decomposed as a unitary. A trainable
    one is not, since its parameters would be lost.

    Raises:
        pennylane.exceptions.DecompositionUndefinedError: If there is neither.
        pennylane.exceptions.DeviceError: If the matrix is not unitary.
    """
    if type(op) is qml.QubitUnitary:
        check_unitary(op, op.data[0])
    constant = not any(qml.math.requires_grad(value) for value in op.data)
    if op.has_decomposition or not (constant and op.has_matrix):
        return op.decomposition()
    matrix = op.matrix()
    check_unitary(op, matrix)
    return [qml.QubitUnitary(matrix, wires=op.wires)]


def check_unitary(op: Any, matrix: Any) -> None:
    """Refuse an operation whose matrix is not unitary: the engine has gates only.

    Raises:
        pennylane.exceptions.DeviceError: If the rows are not orthonormal up to 1e-6.
    """
    rows = np.asarray(qml.math.toarray(qml.math.unwrap([matrix])[0]))
    product = rows @ np.swapaxes(rows.conj(), -1, -2)
    if not np.allclose(product, np.eye(product.shape[-1]), rtol=0.0, atol=UNITARY_TOLERANCE):
        raise qml.exceptions.DeviceError(
            f"{op.name} on wires {op.wires.tolist()} is not unitary, and nimbrel.qubit runs "
            "unitary operations only"
        )


def decomposed(ops: Iterable[Any]) -> list[Any]:
    """Decompose operations until all are native.

    Args:
        ops: Operations, such as the diagonalizing gates of an observable.

    Raises:
        pennylane.operation.DecompositionUndefinedError: If an operation is not native and
            has no decomposition.
    """
    native: list[Any] = []
    with qml.QueuingManager.stop_recording():
        for op in ops:
            native += [op] if is_native(op) else decomposed(decompose_once(op))
    return native
